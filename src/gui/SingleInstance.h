#pragma once

#include <QObject>
#include <QString>

class QLocalServer;

namespace tw {

// One window per person: the first start listens on a local socket in the
// user's runtime folder; a later start finds it, asks it to raise its window
// and quits. A start that can neither reach a running instance nor listen
// (the socket's place taken by something it cannot remove) opens its window
// all the same: a second window is better than none.
class SingleInstance : public QObject {
    Q_OBJECT

public:
    enum class Claim {
        Listening,       // the first start: it raises its window when asked
        AnotherAnswered, // a running instance was asked to show itself
        Unavailable,     // nobody answered and the socket could not be made
    };

    // name: the socket's path or name; empty for the application's own.
    explicit SingleInstance(const QString& name = QString(), QObject* parent = nullptr);
    ~SingleInstance() override;

    // Asks a running instance to show itself; true when one answered.
    bool notifyRunning();
    // Asks a running instance to show itself, else starts listening. A
    // socket file nobody answers on (left by a crash) is removed first.
    Claim claim();
    // Why listening failed, after Claim::Unavailable.
    QString errorString() const { return m_error; }
    QString name() const { return m_name; }

    // "<runtime folder>/dev.tarnwell.Tarnwell.socket": $XDG_RUNTIME_DIR, or
    // the private folder Qt makes when it is not set.
    static QString defaultName();

signals:
    // A later start asked this instance to show its window.
    void activationRequested();

private:
    QString m_name;
    QString m_error;
    QLocalServer* m_server = nullptr;
};

} // namespace tw
