#include "gui/SoftwareUpdater.h"

#include "core/Logging.h"
#include "core/SettingsStore.h"
#include "gui/BuildConfig.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QXmlStreamReader>

#include <algorithm>

const QString SoftwareUpdater::lastCheckTimeKey = QStringLiteral("SoftwareUpdaterLastCheckTime");

// An appcast item names its version in either of two ways:
//   <enclosure url="..." dw:version="1.2.0" xmlns:dw="http://www.bramblefox.com/xml-namespaces/deckwright-update"/>
//   <version>1.2.0</version>   (plain, or in the same namespace)
// and its page in <link>, falling back to the enclosure's url.
const QString SoftwareUpdater::feedNamespace
    = QStringLiteral("http://www.bramblefox.com/xml-namespaces/deckwright-update");

namespace {
// However short an interval the settings hold, never ask the server more
// often than this; however long, still within ten years, which also keeps
// every sum of times below far from the largest integer.
constexpr qint64 minimumInterval = 60;
constexpr qint64 maximumInterval = 10 * 365 * 86400LL;
// A stored last check later than this after now is no time a check ran at
// (a clock set back a little keeps its count): it counts as none.
constexpr qint64 clockSlack = 86400;
// QTimer counts in int milliseconds; longer waits are taken in steps and re-checked.
constexpr qint64 longestTimerStep = 24 * 3600 * 1000LL;

// A version part: its leading number and whatever follows ("3b1" -> 3, "b1").
void splitPart(const QString &part, qulonglong *number, QString *suffix)
{
    int digits = 0;
    while (digits < part.size() && part.at(digits).isDigit())
        ++digits;
    *number = part.left(digits).toULongLong();
    *suffix = part.mid(digits);
}

bool looksLikeVersion(const QString &text)
{
    return !text.isEmpty() && text.at(0).isDigit();
}

void readItem(QXmlStreamReader &xml, SoftwareUpdater::FeedItem *item)
{
    QString elementVersion;
    QString enclosureVersion;
    QUrl link;
    QUrl enclosureUrl;
    while (xml.readNextStartElement()) {
        const bool plain = xml.namespaceUri().isEmpty();
        if (plain && xml.name() == QLatin1String("link")) {
            link = QUrl(xml.readElementText().trimmed());
        } else if (plain && xml.name() == QLatin1String("enclosure")) {
            const QXmlStreamAttributes attributes = xml.attributes();
            enclosureVersion
                = attributes.value(SoftwareUpdater::feedNamespace, QLatin1String("version")).toString().trimmed();
            enclosureUrl = QUrl(attributes.value(QLatin1String("url")).toString().trimmed());
            xml.skipCurrentElement();
        } else if (xml.name() == QLatin1String("version")
                   && (plain || xml.namespaceUri() == SoftwareUpdater::feedNamespace)) {
            elementVersion = xml.readElementText().trimmed();
        } else {
            xml.skipCurrentElement();
        }
    }
    item->version = !enclosureVersion.isEmpty() ? enclosureVersion : elementVersion;
    item->pageUrl = link.isValid() && !link.isEmpty() ? link : enclosureUrl;
}
} // namespace

SoftwareUpdater::SoftwareUpdater(QObject *parent)
    : QObject(parent)
    , m_network(new QNetworkAccessManager(this))
{
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &SoftwareUpdater::onTimer);
}

SoftwareUpdater::~SoftwareUpdater()
{
    if (m_reply) {
        m_reply->disconnect(this);
        m_reply->abort();
        delete m_reply;
    }
}

void SoftwareUpdater::setAutomaticallyChecksForUpdates(bool on)
{
    m_automatic = on;
    if (m_started && !m_checking)
        scheduleNextCheck();
}

void SoftwareUpdater::setUpdateCheckInterval(double seconds)
{
    m_interval = seconds;
    if (m_started && !m_checking)
        scheduleNextCheck();
}

void SoftwareUpdater::start()
{
    m_started = true;
    // No request before the person has used the program for one interval:
    // the first start begins the count instead of checking at once.
    if (lastCheckTime() <= 0 && m_automatic) {
        SettingsStore &settings = SettingsStore::standard();
        settings.setInteger(lastCheckTimeKey, QDateTime::currentSecsSinceEpoch());
        settings.synchronize();
    }
    if (m_automatic && isCheckDue())
        beginCheck(false, nullptr);
    else
        scheduleNextCheck();
}

void SoftwareUpdater::checkForUpdates(QObject *sender)
{
    beginCheck(true, sender);
}

qint64 SoftwareUpdater::lastCheckTime() const
{
    const qint64 last = SettingsStore::standard().integer(lastCheckTimeKey, 0);
    return last > QDateTime::currentSecsSinceEpoch() + clockSlack ? 0 : last;
}

qint64 SoftwareUpdater::intervalSeconds() const
{
    // NaN fails every comparison: it takes the shortest.
    return m_interval >= double(maximumInterval)  ? maximumInterval
           : m_interval > double(minimumInterval) ? qint64(m_interval)
                                                  : minimumInterval;
}

QUrl SoftwareUpdater::feedUrl() const
{
    const QString overridden = qEnvironmentVariable("DECKWRIGHT_APPCAST_URL");
    return QUrl(overridden.isEmpty() ? QString::fromUtf8(BuildConfig::appcastUrl) : overridden);
}

QString SoftwareUpdater::currentVersion() const
{
    const QString version = QCoreApplication::applicationVersion();
    return version.isEmpty() ? QString::fromUtf8(BuildConfig::version) : version;
}

int SoftwareUpdater::compareVersions(const QString &a, const QString &b)
{
    const QStringList left = a.trimmed().split(QLatin1Char('.'));
    const QStringList right = b.trimmed().split(QLatin1Char('.'));
    const int parts = int(std::max(left.size(), right.size()));
    for (int i = 0; i < parts; ++i) {
        qulonglong leftNumber = 0, rightNumber = 0;
        QString leftSuffix, rightSuffix;
        splitPart(i < left.size() ? left.at(i) : QString(), &leftNumber, &leftSuffix);
        splitPart(i < right.size() ? right.at(i) : QString(), &rightNumber, &rightSuffix);
        if (leftNumber != rightNumber)
            return leftNumber < rightNumber ? -1 : 1;
        if (leftSuffix == rightSuffix)
            continue;
        // A pre-release ("2.0b1") comes before the release it leads to ("2.0").
        if (leftSuffix.isEmpty())
            return 1;
        if (rightSuffix.isEmpty())
            return -1;
        return leftSuffix.compare(rightSuffix) < 0 ? -1 : 1;
    }
    return 0;
}

bool SoftwareUpdater::parseFeed(const QByteArray &data, FeedItem *newest, QString *problem)
{
    if (data.trimmed().isEmpty()) {
        *problem = QStringLiteral("it is empty");
        return false;
    }
    QXmlStreamReader xml(data);
    if (!xml.readNextStartElement()) {
        *problem = QStringLiteral("it is not well-formed XML (%1)").arg(xml.errorString());
        return false;
    }
    if (xml.name() != QLatin1String("rss")) {
        *problem = QStringLiteral("it is not an RSS feed");
        return false;
    }
    bool found = false;
    while (!xml.atEnd()) {
        xml.readNext();
        if (!xml.isStartElement() || xml.name() != QLatin1String("item") || !xml.namespaceUri().isEmpty())
            continue;
        FeedItem item;
        readItem(xml, &item);
        if (!looksLikeVersion(item.version))
            continue;
        if (!found || compareVersions(item.version, newest->version) > 0) {
            *newest = item;
            found = true;
        }
    }
    if (xml.hasError()) {
        *problem
            = QStringLiteral("it is not well-formed XML (%1 at line %2)").arg(xml.errorString()).arg(xml.lineNumber());
        return false;
    }
    if (!found) {
        *problem = QStringLiteral("it names no version");
        return false;
    }
    return true;
}

void SoftwareUpdater::beginCheck(bool userInitiated, QObject *sender)
{
    if (m_checking) {
        // A person asking during a quiet automatic check gets that check's answer.
        if (userInitiated && !m_userInitiated && m_reply) {
            m_userInitiated = true;
            m_sender = sender;
        }
        DW_LOG(QStringLiteral("update check already running"));
        return;
    }
    m_checking = true;
    m_userInitiated = userInitiated;
    m_sender = sender;
    m_timer.stop();
    m_nextCheckTime = 0;

    const QUrl url = feedUrl();
    DW_LOG(QStringLiteral("checking for updates : ") + url.toString());
    if (!url.isValid() || url.isRelative()) {
        finishCheck(NetworkError, FeedItem(),
                    QStringLiteral("The update address \"%1\" is not valid.").arg(url.toString()));
        return;
    }
    QNetworkRequest request(url);
    request.setTransferTimeout(m_transferTimeout);
    request.setHeader(QNetworkRequest::UserAgentHeader, QStringLiteral("Deckwright/") + currentVersion());
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    m_reply = m_network->get(request);
    connect(m_reply, &QNetworkReply::finished, this, &SoftwareUpdater::onReplyFinished);
}

void SoftwareUpdater::onReplyFinished()
{
    QNetworkReply *reply = m_reply;
    m_reply = nullptr;
    reply->deleteLater();
    const QUrl url = reply->url();

    if (reply->error() == QNetworkReply::OperationCanceledError || reply->error() == QNetworkReply::TimeoutError) {
        // Only the transfer timeout cancels a running check.
        finishCheck(NetworkError, FeedItem(),
                    QStringLiteral("The update server at %1 did not answer within %2 seconds.")
                        .arg(url.host(), QString::number(m_transferTimeout / 1000.0)));
        return;
    }
    if (reply->error() != QNetworkReply::NoError) {
        finishCheck(NetworkError, FeedItem(),
                    QStringLiteral("The update server could not be reached: %1").arg(reply->errorString()));
        return;
    }
    FeedItem newest;
    QString problem;
    if (!parseFeed(reply->readAll(), &newest, &problem)) {
        finishCheck(
            FeedError, FeedItem(),
            QStringLiteral("The update information from %1 could not be read: %2.").arg(url.toString(), problem));
        return;
    }
    finishCheck(compareVersions(newest.version, currentVersion()) > 0 ? UpdateAvailable : UpToDate, newest, QString());
}

void SoftwareUpdater::finishCheck(Result result, const FeedItem &item, const QString &problem)
{
    SettingsStore &store = SettingsStore::standard();
    store.setInteger(lastCheckTimeKey, QDateTime::currentSecsSinceEpoch());
    store.synchronize();
    DW_LOG(QStringLiteral("update check finished : ") + QString::number(int(result)) + QLatin1Char(' ')
           + (problem.isEmpty() ? item.version : problem));

    // The answer is shown (and answered) before the check counts as over.
    Q_EMIT answerReady(Answer{result, item, problem, m_userInitiated, m_sender.data()});

    m_checking = false;
    m_userInitiated = false;
    m_sender = nullptr;
    scheduleNextCheck();
    Q_EMIT checkFinished(result, item.version);
}

bool SoftwareUpdater::isCheckDue() const
{
    const qint64 last = lastCheckTime();
    return last <= 0 || QDateTime::currentSecsSinceEpoch() >= last + intervalSeconds();
}

void SoftwareUpdater::scheduleNextCheck()
{
    if (!m_started || !m_automatic) {
        m_timer.stop();
        m_nextCheckTime = 0;
        return;
    }
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    const qint64 last = lastCheckTime();
    m_nextCheckTime = last <= 0 ? now : last + intervalSeconds();
    const qint64 wait = std::clamp(m_nextCheckTime - now, qint64(0), longestTimerStep / 1000) * 1000;
    m_timer.start(int(wait));
}

void SoftwareUpdater::onTimer()
{
    if (m_checking)
        return; // the running check plans the next one when it ends
    if (m_automatic && isCheckDue())
        beginCheck(false, nullptr);
    else
        scheduleNextCheck();
}
