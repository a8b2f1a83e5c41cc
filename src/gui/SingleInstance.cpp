#include "SingleInstance.h"

#include "app/AppInfo.h"

#include <QLocalServer>
#include <QLocalSocket>

#include <unistd.h>

namespace tw {

namespace {

const QByteArray activate = QByteArrayLiteral("activate\n");
constexpr int timeoutMs = 1000;

} // namespace

SingleInstance::SingleInstance(const QString& name, QObject* parent)
    : QObject(parent)
    , m_name(name.isEmpty() ? defaultName() : name) {}

SingleInstance::~SingleInstance() = default;

QString SingleInstance::defaultName() {
    return AppInfo::identifier() + QStringLiteral("-") + QString::number(getuid());
}

bool SingleInstance::notifyRunning() {
    QLocalSocket socket;
    socket.connectToServer(m_name);
    if (!socket.waitForConnected(timeoutMs))
        return false;
    socket.write(activate);
    socket.waitForBytesWritten(timeoutMs);
    socket.disconnectFromServer();
    return true;
}

bool SingleInstance::listen() {
    if (notifyRunning())
        return false;
    // Nobody answers: a socket file left by a crashed instance goes.
    QLocalServer::removeServer(m_name);
    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    if (!m_server->listen(m_name))
        return false;
    connect(m_server, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket* socket = m_server->nextPendingConnection()) {
            connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
                if (socket->readAll().startsWith(activate.trimmed()))
                    emit activationRequested();
            });
        }
    });
    return true;
}

} // namespace tw
