#pragma once

#include <QObject>
#include <QString>

class QLocalServer;

namespace tw {

// One window per person: the first start listens on a local socket named
// after the application and the user; a later start finds it, asks it to
// raise its window and quits.
class SingleInstance : public QObject {
    Q_OBJECT

public:
    // name: the socket's name; empty for the application's own.
    explicit SingleInstance(const QString& name = QString(), QObject* parent = nullptr);
    ~SingleInstance() override;

    // Asks a running instance to show itself; true when one answered.
    bool notifyRunning();
    // Starts listening; false when the name is taken by a live instance.
    bool listen();
    QString name() const { return m_name; }

    static QString defaultName();

signals:
    // A later start asked this instance to show its window.
    void activationRequested();

private:
    QString m_name;
    QLocalServer* m_server = nullptr;
};

} // namespace tw
