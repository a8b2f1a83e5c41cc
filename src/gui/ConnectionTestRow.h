#pragma once

#include "editor/SiteForm.h"
#include "model/Site.h"

#include <QWidget>

#include <functional>
#include <optional>

class QLabel;
class QPushButton;

namespace tw {

// The site editor's connection test: the button and, beside it, what the
// last test found, as a sentence people read (curl's own text in the tool
// tip). The test runs on a copy of the site with secrets stored under the
// copy's own id, removed again when it answers.
class ConnectionTestRow : public QWidget {
    Q_OBJECT

public:
    // Runs the connection test for a site and calls done once, on the main
    // thread, with the error text or nothing.
    using Tester = std::function<void(const SitePtr& site,
                                      std::function<void(const std::optional<QString>& error)> done)>;

    explicit ConnectionTestRow(QWidget* parent = nullptr);

    // The copy of the site the test runs on, with the server settings of the
    // form and an id of its own, so the password typed in the editor is used
    // without replacing the stored one.
    static SitePtr probeFor(Site& site, const SiteForm& form);

    // None disables the button.
    void setTester(Tester tester);
    bool hasTester() const { return static_cast<bool>(m_tester); }
    bool isTesting() const { return m_testing; }

    // Tests the probe (a copy of the site) with these secrets.
    void run(const SitePtr& probe, const QString& password, const QString& passphrase);
    // Shows a problem that keeps the test from starting.
    void showRefusal(const QString& text);
    // Forgets the last result (the settings it was for have changed); the
    // answer of a test still under way is dropped.
    void clearResult();

    QString resultText() const;
    QPushButton* button() const { return m_button; }
    QLabel* resultLabel() const { return m_result; }

signals:
    void clicked();
    void finished(bool succeeded, const QString& message);

private:
    void setResult(const QString& text, const QString& details, int kind);

    Tester m_tester;
    bool m_testing = false;
    quint64 m_generation = 0; // the test whose answer counts
    QPushButton* m_button = nullptr;
    QLabel* m_result = nullptr;
};

} // namespace tw
