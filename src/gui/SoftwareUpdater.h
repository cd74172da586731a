#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>
#include <QUrl>

class QNetworkAccessManager;
class QNetworkReply;

// Looks for newer versions of Deckwright in an appcast: an RSS 2.0 feed whose
// items carry a version and a page to download it from. Checks run on request
// (the preferences pane's "check now") and, when automatic checks are on, at
// start and once per interval. It shows nothing itself: SoftwareUpdateDialog
// turns each answer into the alerts a person sees.
class SoftwareUpdater : public QObject
{
    Q_OBJECT

public:
    enum Result { UpdateAvailable, UpToDate, NetworkError, FeedError };
    Q_ENUM(Result)

    // Seconds since the epoch of the last finished check, in the settings
    // store, apart from the program's own keys.
    static const QString lastCheckTimeKey;
    // Namespace of the version attribute on <enclosure> (see parseFeed).
    static const QString feedNamespace;

    explicit SoftwareUpdater(QObject *parent = nullptr);
    ~SoftwareUpdater() override;

    void setAutomaticallyChecksForUpdates(bool on);
    bool automaticallyChecksForUpdates() const { return m_automatic; }
    void setUpdateCheckInterval(double seconds);
    double updateCheckInterval() const { return m_interval; }

    // Called once the settings are in: checks at once when automatic checks
    // are on and the last check is older than the interval, then keeps the
    // interval.
    void start();

    // Check now, asked for by a person; sender is the control that asked
    // (its window becomes the alerts' parent). Ignored while a check runs.
    void checkForUpdates(QObject *sender);

    bool isChecking() const { return m_checking; }
    // When the next automatic check is due (seconds since the epoch); 0 when none is planned.
    qint64 nextCheckTime() const { return m_nextCheckTime; }
    // 0 for none, and for a stored time too far ahead to be one.
    qint64 lastCheckTime() const;

    // The feed address: DECKWRIGHT_APPCAST_URL when set, else the one configured at build time.
    QUrl feedUrl() const;
    // The running version: the application's version when set, else the build's.
    QString currentVersion() const;

    // How long a check may wait for the server (milliseconds; 15 s unless a test shortens it).
    void setTransferTimeout(int milliseconds) { m_transferTimeout = milliseconds; }
    int transferTimeout() const { return m_transferTimeout; }

    // Numeric comparison of dotted versions: <0, 0, >0. "1.10" > "1.9", "1.0" == "1.0.0".
    static int compareVersions(const QString &a, const QString &b);

    // The newest item of an appcast.
    struct FeedItem
    {
        QString version;
        QUrl pageUrl; // the item's <link>, else its enclosure's url
    };
    // Reads an appcast; false with a reason when it is not one or names no version.
    static bool parseFeed(const QByteArray &data, FeedItem *newest, QString *problem);

    // What a check found, and for whom.
    struct Answer
    {
        Result result;
        FeedItem item;      // the feed's newest item (empty after an error)
        QString problem;    // why the check failed, for a person
        bool userInitiated; // asked for by a person, not an automatic check
        QObject *sender;    // the control that asked, or nullptr
    };

Q_SIGNALS:
    // At the end of every check, while it still counts as running: whoever
    // shows the answer does so before the signal returns.
    void answerReady(const SoftwareUpdater::Answer &answer);
    // After every check, once its answer has been shown. foundVersion is the
    // feed's newest version (empty after an error).
    void checkFinished(SoftwareUpdater::Result result, const QString &foundVersion);

private:
    void beginCheck(bool userInitiated, QObject *sender);
    void onReplyFinished();
    void finishCheck(Result result, const FeedItem &item, const QString &problem);
    void onTimer();
    void scheduleNextCheck();
    bool isCheckDue() const;
    // The interval in whole seconds, within the bounds a schedule can keep.
    qint64 intervalSeconds() const;

    QNetworkAccessManager *m_network = nullptr;
    QNetworkReply *m_reply = nullptr;
    QTimer m_timer;
    bool m_automatic = false;
    bool m_started = false;
    bool m_checking = false; // from the request until the last alert is answered
    bool m_userInitiated = false;
    QPointer<QObject> m_sender;
    double m_interval = 86400;
    int m_transferTimeout = 15000;
    qint64 m_nextCheckTime = 0;
};
