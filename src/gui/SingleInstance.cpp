#include "gui/SingleInstance.h"

#include "core/ScratchDir.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QLocalServer>
#include <QLocalSocket>
#include <QPointer>

namespace {
constexpr int kConnectTimeoutMs = 3000;
constexpr qint64 kMaxRequestBytes = 4 * 1024 * 1024;
} // namespace

SingleInstance::SingleInstance(QString serverName, QObject *parent)
    : QObject(parent)
    , m_serverName(std::move(serverName))
{
}

SingleInstance::~SingleInstance() = default;

QString SingleInstance::defaultServerName()
{
    const QString name = qEnvironmentVariable("DECKWRIGHT_INSTANCE_NAME");
    if (!name.isEmpty())
        return name;
    // In the user's private folder, where nobody else can plant or reach it.
    return ScratchDir::path() + QStringLiteral("instance.sock");
}

bool SingleInstance::isListening() const
{
    return m_server && m_server->isListening();
}

bool SingleInstance::forwardToRunningInstance(const QStringList &absolutePaths)
{
    QLocalSocket socket;
    socket.connectToServer(m_serverName);
    if (socket.waitForConnected(kConnectTimeoutMs)) {
        // The running copy may be busy converting; the request waits in the socket until it reads.
        socket.write(QJsonDocument(QJsonArray::fromStringList(absolutePaths)).toJson(QJsonDocument::Compact) + '\n');
        socket.flush();
        const bool sent = socket.waitForBytesWritten(kConnectTimeoutMs) || socket.bytesToWrite() == 0;
        socket.disconnectFromServer();
        if (socket.state() != QLocalSocket::UnconnectedState)
            socket.waitForDisconnected(kConnectTimeoutMs);
        if (sent)
            return true;
    }
    listen();
    return false;
}

bool SingleInstance::listen()
{
    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    if (!m_server->listen(m_serverName)) {
        // Nobody answered above: what is there is left over from a copy that ended without tidying up.
        QLocalServer::removeServer(m_serverName);
        if (!m_server->listen(m_serverName))
            return false;
    }
    connect(m_server, &QLocalServer::newConnection, this, &SingleInstance::onNewConnection);
    return true;
}

void SingleInstance::onNewConnection()
{
    while (QLocalSocket *socket = m_server->nextPendingConnection()) {
        QPointer<QLocalSocket> guarded(socket);
        auto handle = [this, guarded] {
            if (!guarded || !guarded->canReadLine()) {
                if (guarded && guarded->bytesAvailable() > kMaxRequestBytes)
                    guarded->abort();
                return;
            }
            const QByteArray line = guarded->readLine(kMaxRequestBytes);
            guarded->disconnectFromServer();
            QStringList paths;
            const QJsonArray array = QJsonDocument::fromJson(line).array();
            for (const auto &value : array)
                if (value.isString())
                    paths.append(value.toString());
            Q_EMIT activated(paths);
        };
        connect(socket, &QLocalSocket::readyRead, this, handle);
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        handle(); // the request may already be here
    }
}
