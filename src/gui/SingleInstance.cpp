#include "SingleInstance.h"

#include "app/AppInfo.h"

#include <QDir>
#include <QLocalServer>
#include <QLocalSocket>
#include <QStandardPaths>

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
    const QString socket = AppInfo::identifier() + QStringLiteral(".socket");
    const QString runtime = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (!runtime.isEmpty())
        return QDir(runtime).filePath(socket);
    // No runtime folder at all: the temporary folder, under the user's id.
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

SingleInstance::Claim SingleInstance::claim() {
    if (notifyRunning())
        return Claim::AnotherAnswered;
    // Nobody answers: a socket file left by a crashed instance goes.
    QLocalServer::removeServer(m_name);
    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    if (!m_server->listen(m_name)) {
        m_error = m_server->errorString();
        delete m_server;
        m_server = nullptr;
        return Claim::Unavailable;
    }
    connect(m_server, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket* socket = m_server->nextPendingConnection()) {
            connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
                if (socket->readAll().startsWith(activate.trimmed()))
                    emit activationRequested();
            });
        }
    });
    return Claim::Listening;
}

} // namespace tw
