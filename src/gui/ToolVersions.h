#pragma once

#include <QObject>
#include <QString>

#include <optional>

namespace tw {

// The versions of the tools folder's git and curl, asked once per run of the
// application and without waiting: "git --version" and "curl --version" run
// in the background the first time someone asks, and changed() says when
// their answers are in.
class ToolVersions : public QObject {
    Q_OBJECT

public:
    static ToolVersions& instance();

    // Starts asking, the first time; later calls do nothing.
    void ask();
    // The first line of the tool's answer ("git version 2.39.5", "curl 8.14.1"),
    // "not found" when it did not run, nothing while it has not answered.
    std::optional<QString> git() const { return m_git; }
    std::optional<QString> curl() const { return m_curl; }

signals:
    void changed();

private:
    explicit ToolVersions(QObject* parent);
    void run(const QString& program, bool isCurl);

    bool m_asked = false;
    std::optional<QString> m_git;
    std::optional<QString> m_curl;
};

} // namespace tw
