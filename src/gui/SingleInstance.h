#pragma once

#include <QObject>
#include <QStringList>

class QLocalServer;

// Keeps Deckwright to one running copy per user. A second start hands its
// packages (possibly none) to the first one and ends; the first one shows its
// window and converts them. The socket lives in the user's private folder.
class SingleInstance : public QObject
{
    Q_OBJECT

public:
    explicit SingleInstance(QString serverName = defaultServerName(), QObject *parent = nullptr);
    ~SingleInstance() override;

    // Sends the request to a running copy and returns true if one took it;
    // otherwise starts listening as the running copy and returns false.
    // Something not ours at the name is left alone and a name after it
    // (NAME-1, NAME-2, ...) serves.
    bool forwardToRunningInstance(const QStringList &absolutePaths);
    bool isListening() const;
    // Why this copy neither handed its request over nor listens.
    const QString &problem() const { return m_problem; }

    static QString defaultServerName();

Q_SIGNALS:
    // A later start asked to be shown, with these packages to convert.
    void activated(const QStringList &absolutePaths);

private:
    void onNewConnection();
    bool listen(const QString &name);

    QString m_serverName;
    QLocalServer *m_server = nullptr;
    QString m_problem;
};
