#include "gui/SingleInstance.h"

#include "core/ScratchDir.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLocalServer>
#include <QLocalSocket>
#include <QPointer>

namespace {
constexpr int kConnectTimeoutMs = 3000;
constexpr qint64 kMaxRequestBytes = 4 * 1024 * 1024;
// Further names tried when something not ours holds the first one.
constexpr int kMaxAlternatives = 20;

// Whether a copy listens at the name; asked without a request, which it
// takes for none.
bool answers(const QString &name)
{
    QLocalSocket socket;
    socket.connectToServer(name);
    return socket.waitForConnected(kConnectTimeoutMs);
}

// Hands the request to the copy listening at the name; whether it took it.
bool send(const QString &name, const QStringList &absolutePaths)
{
    QLocalSocket socket;
    socket.connectToServer(name);
    if (!socket.waitForConnected(kConnectTimeoutMs))
        return false;
    // The running copy may be busy converting; the request waits in the socket until it reads.
    socket.write(QJsonDocument(QJsonArray::fromStringList(absolutePaths)).toJson(QJsonDocument::Compact) + '\n');
    socket.flush();
    const bool sent = socket.waitForBytesWritten(kConnectTimeoutMs) || socket.bytesToWrite() == 0;
    socket.disconnectFromServer();
    if (socket.state() != QLocalSocket::UnconnectedState)
        socket.waitForDisconnected(kConnectTimeoutMs);
    return sent;
}
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
    // In the user's private folder, where nobody else can plant or reach it;
    // without one, nowhere (a bare name would land in the shared /tmp).
    const QString folder = ScratchDir::path();
    return folder.isEmpty() ? QString() : folder + QStringLiteral("instance.sock");
}

bool SingleInstance::isListening() const
{
    return m_server && m_server->isListening();
}

bool SingleInstance::forwardToRunningInstance(const QStringList &absolutePaths)
{
    m_problem.clear();
    if (m_serverName.isEmpty()) {
        m_problem = QStringLiteral("there is no private folder for its socket");
        return false;
    }
    // What is not our socket (a folder, another user's file) is left alone
    // and the next name serves, so every name is asked before one is taken.
    // Another start may take the free name meanwhile: then the names are
    // asked again, once.
    for (int round = 0; round < 2; ++round) {
        QString free, taken;
        for (int n = 0; n <= kMaxAlternatives; ++n) {
            const QString name = n == 0 ? m_serverName : m_serverName + QLatin1Char('-') + QString::number(n);
            QString otherwise;
            if (ScratchDir::isOwnSocket(name, &otherwise) && send(name, absolutePaths))
                return true;
            if (!otherwise.isEmpty() && taken.isEmpty())
                taken = QStringLiteral("%1 is not its socket (%2), nor are the names after it").arg(name, otherwise);
            if (otherwise.isEmpty() && free.isEmpty())
                free = name; // nothing there, or a socket of ours nobody answers at
        }
        if (free.isEmpty()) {
            m_problem = taken;
            return false;
        }
        if (listen(free))
            return false;
    }
    return false;
}

bool SingleInstance::listen(const QString &name)
{
    delete m_server;
    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    QString otherwise;
    // A socket of ours that nobody answers at is what a copy that ended
    // without tidying up left; only such a one is removed.
    if (ScratchDir::isOwnSocket(name, &otherwise) && !answers(name))
        QLocalServer::removeServer(name);
    if (!m_server->listen(name)) {
        // Qt calls a missing folder a "Name error".
        const bool folder = QFileInfo(QFileInfo(name).path()).isDir();
        m_problem = QStringLiteral("%1 could not be made (%2)")
                        .arg(name, folder ? m_server->errorString().section(QLatin1String(": "), -1)
                                          : QStringLiteral("its folder does not exist"));
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
