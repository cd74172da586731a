#include "Alert.h"
#include "BuildConfig.h"
#include "RecordingDesktopServices.h"
#include "SettingsStore.h"
#include "SoftwareUpdater.h"

#include <QDateTime>
#include <QHostAddress>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

namespace {
// A one-page web server on 127.0.0.1: answers every request with the same
// response, or, when silent, takes the request and never answers.
class FeedServer : public QObject
{
public:
    FeedServer()
    {
        QVERIFY(m_server.listen(QHostAddress::LocalHost, 0));
        connect(&m_server, &QTcpServer::newConnection, this, &FeedServer::accept);
    }

    QUrl url() const { return QUrl(QStringLiteral("http://127.0.0.1:%1/appcast.xml").arg(m_server.serverPort())); }
    void answer(const QByteArray &body, int status = 200)
    {
        m_body = body;
        m_status = status;
        m_silent = false;
    }
    void beSilent() { m_silent = true; }
    int requests = 0;

private:
    void accept()
    {
        while (QTcpSocket *socket = m_server.nextPendingConnection()) {
            socket->setParent(this);
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] {
                QByteArray &seen = m_received[socket];
                seen += socket->readAll();
                if (!seen.contains("\r\n\r\n"))
                    return;
                ++requests;
                if (m_silent)
                    return;
                const QByteArray reason = m_status == 200 ? "OK" : "Not Found";
                socket->write("HTTP/1.1 " + QByteArray::number(m_status) + ' ' + reason + "\r\n"
                              "Content-Type: application/rss+xml\r\n"
                              "Content-Length: " + QByteArray::number(m_body.size()) + "\r\n"
                              "Connection: close\r\n\r\n" + m_body);
                socket->disconnectFromHost();
            });
        }
    }

    QTcpServer m_server;
    QHash<QTcpSocket *, QByteArray> m_received;
    QByteArray m_body;
    int m_status = 200;
    bool m_silent = false;
};

struct ShownAlert
{
    QString message;
    QString informative;
    QStringList buttons;
};

// The feed format as published: the version attribute's namespace is part of it.
QByteArray feed(const QByteArray &items)
{
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
           "<rss version=\"2.0\" xmlns:dw=\"http://www.bramblefox.com/xml-namespaces/deckwright-update\">\n"
           "<channel><title>Deckwright</title>\n" + items + "</channel></rss>\n";
}

// The running version is 1.9.3 in these tests; 1.10.0 is newer only when compared numerically.
const QByteArray newerFeed = feed(
    "<item><title>1.5</title><link>https://example.invalid/deckwright/1.5/</link>"
    "<enclosure url=\"https://example.invalid/1.5.zip\" dw:version=\"1.5\" type=\"application/zip\"/></item>"
    "<item><title>1.10</title><link>https://example.invalid/deckwright/1.10.0/</link>"
    "<enclosure url=\"https://example.invalid/1.10.0.zip\" dw:version=\"1.10.0\" type=\"application/zip\"/></item>");
const QByteArray sameFeed = feed("<item><title>Current</title><version>1.9.3.0</version>"
                                 "<link>https://example.invalid/deckwright/1.9.3/</link></item>");
const QByteArray brokenFeed = "<rss version=\"2.0\"><channel><item><title>1.10</title></item>";

const QString currentVersion = QStringLiteral("1.9.3");
} // namespace

class TestSoftwareUpdater : public QObject
{
    Q_OBJECT

private:
    QList<ShownAlert> m_alerts;
    int m_answer = Alert::firstButtonReturn;
    QTemporaryDir m_dir;

    // Waits for the check to end; the limit only keeps a broken build from hanging.
    static bool waitForCheck(QSignalSpy &spy) { return spy.count() > 0 || spy.wait(20000); }
    static void useFeed(const FeedServer &server) { qputenv("DECKWRIGHT_APPCAST_URL", server.url().toEncoded()); }

private Q_SLOTS:
    void initTestCase()
    {
        QCoreApplication::setApplicationVersion(currentVersion);
        Alert::setResponder([this](const Alert &alert) {
            m_alerts.append({alert.messageText(), alert.informativeText(), alert.buttons()});
            return m_answer;
        });
    }

    void init()
    {
        SettingsStore::standard().useMemory();
        m_alerts.clear();
        m_answer = Alert::firstButtonReturn;
    }

    void cleanupTestCase() { Alert::setResponder(nullptr); }

    void compareVersions_data()
    {
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<int>("expected");
        QTest::newRow("numeric, not textual") << "1.10" << "1.9" << 1;
        QTest::newRow("missing parts are zero") << "1.0" << "1.0.0" << 0;
        QTest::newRow("equal") << "2.3.4" << "2.3.4" << 0;
        QTest::newRow("longer and newer") << "1.0.1" << "1.0" << 1;
        QTest::newRow("major wins") << "1.99.99" << "2" << -1;
        QTest::newRow("leading zeros") << "1.02" << "1.2" << 0;
        QTest::newRow("pre-release before release") << "2.0b1" << "2.0" << -1;
        QTest::newRow("pre-releases in order") << "2.0b2" << "2.0b1" << 1;
        QTest::newRow("surrounding space") << " 1.2 " << "1.2" << 0;
    }

    void compareVersions()
    {
        QFETCH(QString, a);
        QFETCH(QString, b);
        QFETCH(int, expected);
        QCOMPARE(SoftwareUpdater::compareVersions(a, b), expected);
        QCOMPARE(SoftwareUpdater::compareVersions(b, a), -expected);
    }

    void parseFeed_data()
    {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<bool>("ok");
        QTest::addColumn<QString>("version");
        QTest::addColumn<QString>("page");
        QTest::addColumn<QString>("problem");
        QTest::newRow("newest of several, namespaced attribute")
            << newerFeed << true << "1.10.0" << "https://example.invalid/deckwright/1.10.0/" << "";
        QTest::newRow("plain version element") << sameFeed << true << "1.9.3.0" << "https://example.invalid/deckwright/1.9.3/" << "";
        QTest::newRow("namespaced version element, page from the enclosure")
            << feed("<item><dw:version>3.0</dw:version><enclosure url=\"https://example.invalid/3.zip\"/></item>")
            << true << "3.0" << "https://example.invalid/3.zip" << "";
        QTest::newRow("attribute outside the namespace does not count")
            << feed("<item><enclosure url=\"https://example.invalid/3.zip\" version=\"3.0\"/></item>")
            << false << "" << "" << "names no version";
        QTest::newRow("not a version number")
            << feed("<item><version>latest</version></item>") << false << "" << "" << "names no version";
        QTest::newRow("no items") << feed("") << false << "" << "" << "names no version";
        QTest::newRow("cut off") << brokenFeed << false << "" << "" << "not well-formed";
        QTest::newRow("not XML") << QByteArray("Service Unavailable") << false << "" << "" << "not well-formed";
        QTest::newRow("empty") << QByteArray() << false << "" << "" << "empty";
        QTest::newRow("another kind of document")
            << QByteArray("<html><body><item><version>9</version></item></body></html>") << false << "" << ""
            << "not an RSS feed";
    }

    void parseFeed()
    {
        QFETCH(QByteArray, data);
        QFETCH(bool, ok);
        QFETCH(QString, version);
        QFETCH(QString, page);
        QFETCH(QString, problem);
        SoftwareUpdater::FeedItem item;
        QString reason;
        QCOMPARE(SoftwareUpdater::parseFeed(data, &item, &reason), ok);
        if (ok) {
            QCOMPARE(item.version, version);
            QCOMPARE(item.pageUrl.toString(), page);
        } else {
            QVERIFY2(reason.contains(problem), qPrintable(reason));
        }
    }

    void settingsAndFeedAddress()
    {
        SoftwareUpdater updater;
        QVERIFY(!updater.automaticallyChecksForUpdates());
        updater.setAutomaticallyChecksForUpdates(true);
        updater.setUpdateCheckInterval(604800);
        QVERIFY(updater.automaticallyChecksForUpdates());
        QCOMPARE(updater.updateCheckInterval(), 604800.0);
        QCOMPARE(updater.transferTimeout(), 15000);
        QCOMPARE(updater.currentVersion(), currentVersion);

        qunsetenv("DECKWRIGHT_APPCAST_URL");
        QCOMPARE(updater.feedUrl(), QUrl(QString::fromUtf8(BuildConfig::appcastUrl)));
        qputenv("DECKWRIGHT_APPCAST_URL", "http://127.0.0.1:9/feed.xml");
        QCOMPARE(updater.feedUrl(), QUrl(QStringLiteral("http://127.0.0.1:9/feed.xml")));
    }

    void checkNowOffersNewerVersion()
    {
        // A file-backed store, to see the last-check time reach the disk.
        const QString settingsFile = m_dir.filePath(QStringLiteral("settings.json"));
        SettingsStore::standard().useFile(settingsFile);
        FeedServer server;
        server.answer(newerFeed);
        useFeed(server);
        RecordingDesktopServices desktop;
        SoftwareUpdater updater;
        QSignalSpy finished(&updater, &SoftwareUpdater::checkFinished);
        const qint64 before = QDateTime::currentSecsSinceEpoch();

        updater.checkForUpdates(nullptr);
        QVERIFY(updater.isChecking());
        QVERIFY(waitForCheck(finished));

        QCOMPARE(finished.count(), 1);
        QCOMPARE(finished.at(0).at(0).value<SoftwareUpdater::Result>(), SoftwareUpdater::UpdateAvailable);
        QCOMPARE(finished.at(0).at(1).toString(), QStringLiteral("1.10.0"));
        QVERIFY(!updater.isChecking());
        QCOMPARE(server.requests, 1);
        QCOMPARE(m_alerts.size(), 1);
        QCOMPARE(m_alerts.at(0).message, QStringLiteral("A new version of Deckwright is available!"));
        QVERIFY(m_alerts.at(0).informative.contains(QLatin1String("1.10.0")));
        QVERIFY(m_alerts.at(0).informative.contains(currentVersion));
        QCOMPARE(m_alerts.at(0).buttons, (QStringList{QStringLiteral("Download"), QStringLiteral("Remind Me Later")}));
        QCOMPARE(desktop.describe(), QStringList{QStringLiteral("openUrl(\"https://example.invalid/deckwright/1.10.0/\")")});

        SettingsStore::standard().useFile(settingsFile); // read back what was written
        const qint64 last = SettingsStore::standard().integer(SoftwareUpdater::lastCheckTimeKey, 0);
        QVERIFY(last >= before && last <= QDateTime::currentSecsSinceEpoch());
    }

    void checkNowOfferDeclined()
    {
        FeedServer server;
        server.answer(newerFeed);
        useFeed(server);
        RecordingDesktopServices desktop;
        SoftwareUpdater updater;
        QSignalSpy finished(&updater, &SoftwareUpdater::checkFinished);
        m_answer = Alert::firstButtonReturn + 1;

        updater.checkForUpdates(nullptr);
        QVERIFY(waitForCheck(finished));

        QCOMPARE(m_alerts.size(), 1);
        QCOMPARE(m_alerts.at(0).message, QStringLiteral("A new version of Deckwright is available!"));
        QVERIFY(desktop.calls().isEmpty());
    }

    void checkNowUpToDate()
    {
        FeedServer server;
        server.answer(sameFeed);
        useFeed(server);
        SoftwareUpdater updater;
        QSignalSpy finished(&updater, &SoftwareUpdater::checkFinished);

        updater.checkForUpdates(nullptr);
        QVERIFY(waitForCheck(finished));

        QCOMPARE(finished.at(0).at(0).value<SoftwareUpdater::Result>(), SoftwareUpdater::UpToDate);
        QCOMPARE(finished.at(0).at(1).toString(), QStringLiteral("1.9.3.0"));
        QCOMPARE(m_alerts.size(), 1);
        QCOMPARE(m_alerts.at(0).message, QStringLiteral("You're up to date."));
        QCOMPARE(m_alerts.at(0).informative, QStringLiteral("Deckwright 1.9.3 is currently the newest version available."));
    }

    void checkNowFails_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<bool>("silent");
        QTest::addColumn<SoftwareUpdater::Result>("result");
        QTest::addColumn<QString>("problem");
        QTest::newRow("broken feed") << 200 << brokenFeed << false << SoftwareUpdater::FeedError
                                     << "could not be read: it is not well-formed XML";
        QTest::newRow("missing page") << 404 << QByteArray("gone") << false << SoftwareUpdater::NetworkError
                                      << "The update server could not be reached: ";
        QTest::newRow("no answer") << 200 << QByteArray() << true << SoftwareUpdater::NetworkError
                                   << "The update server at 127.0.0.1 did not answer within 0.2 seconds.";
    }

    void checkNowFails()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(bool, silent);
        QFETCH(SoftwareUpdater::Result, result);
        QFETCH(QString, problem);
        FeedServer server;
        server.answer(body, status);
        if (silent)
            server.beSilent();
        useFeed(server);
        RecordingDesktopServices desktop;
        SoftwareUpdater updater;
        updater.setTransferTimeout(200);
        QSignalSpy finished(&updater, &SoftwareUpdater::checkFinished);

        updater.checkForUpdates(nullptr);
        QVERIFY(waitForCheck(finished));

        QCOMPARE(finished.at(0).at(0).value<SoftwareUpdater::Result>(), result);
        QVERIFY(finished.at(0).at(1).toString().isEmpty());
        QCOMPARE(m_alerts.size(), 1);
        QCOMPARE(m_alerts.at(0).message, QStringLiteral("Deckwright couldn't check for updates."));
        QVERIFY2(m_alerts.at(0).informative.contains(problem), qPrintable(m_alerts.at(0).informative));
        QVERIFY(desktop.calls().isEmpty());
        // A failed check still counts as a check: no retry loop against a broken server.
        QVERIFY(updater.lastCheckTime() > 0);
    }

    void checkNowUnreachable()
    {
        // A port that was just free: nothing listens there.
        quint16 port = 0;
        {
            QTcpServer probe;
            QVERIFY(probe.listen(QHostAddress::LocalHost, 0));
            port = probe.serverPort();
        }
        qputenv("DECKWRIGHT_APPCAST_URL", QByteArray("http://127.0.0.1:") + QByteArray::number(port) + "/appcast.xml");
        SoftwareUpdater updater;
        QSignalSpy finished(&updater, &SoftwareUpdater::checkFinished);

        updater.checkForUpdates(nullptr);
        QVERIFY(waitForCheck(finished));

        QCOMPARE(finished.at(0).at(0).value<SoftwareUpdater::Result>(), SoftwareUpdater::NetworkError);
        QCOMPARE(m_alerts.size(), 1);
        QVERIFY2(m_alerts.at(0).informative.contains(QLatin1String("Connection refused")), qPrintable(m_alerts.at(0).informative));
    }

    void secondCheckWhileRunningIsIgnored()
    {
        FeedServer server;
        server.beSilent();
        useFeed(server);
        SoftwareUpdater updater;
        updater.setTransferTimeout(300);
        QSignalSpy finished(&updater, &SoftwareUpdater::checkFinished);

        updater.checkForUpdates(nullptr);
        updater.checkForUpdates(nullptr);
        QVERIFY(waitForCheck(finished));
        QCoreApplication::processEvents();

        QCOMPARE(finished.count(), 1);
        QCOMPARE(server.requests, 1);
        QCOMPARE(m_alerts.size(), 1);
    }

    void automaticCheckAtStartWhenDue()
    {
        SettingsStore::standard().setInteger(SoftwareUpdater::lastCheckTimeKey, QDateTime::currentSecsSinceEpoch() - 7200);
        FeedServer server;
        server.answer(newerFeed);
        useFeed(server);
        RecordingDesktopServices desktop;
        SoftwareUpdater updater;
        updater.setUpdateCheckInterval(3600);
        updater.setAutomaticallyChecksForUpdates(true);
        QSignalSpy finished(&updater, &SoftwareUpdater::checkFinished);

        updater.start();
        QVERIFY(updater.isChecking());
        QVERIFY(waitForCheck(finished));

        // An update is worth speaking up for, even unasked.
        QCOMPARE(m_alerts.size(), 1);
        QCOMPARE(m_alerts.at(0).message, QStringLiteral("A new version of Deckwright is available!"));
        QCOMPARE(desktop.calls().size(), 1);
        // The next check is one interval after this one.
        QCOMPARE(updater.nextCheckTime(), updater.lastCheckTime() + 3600);
    }

    void automaticCheckStaysQuiet_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<bool>("silent");
        QTest::addColumn<SoftwareUpdater::Result>("result");
        QTest::newRow("up to date") << sameFeed << false << SoftwareUpdater::UpToDate;
        QTest::newRow("broken feed") << brokenFeed << false << SoftwareUpdater::FeedError;
        QTest::newRow("no answer") << QByteArray() << true << SoftwareUpdater::NetworkError;
    }

    void automaticCheckStaysQuiet()
    {
        QFETCH(QByteArray, body);
        QFETCH(bool, silent);
        QFETCH(SoftwareUpdater::Result, result);
        FeedServer server;
        server.answer(body);
        if (silent)
            server.beSilent();
        useFeed(server);
        SoftwareUpdater updater;
        updater.setTransferTimeout(200);
        updater.setAutomaticallyChecksForUpdates(true);
        QSignalSpy finished(&updater, &SoftwareUpdater::checkFinished);

        updater.start(); // never checked before: due at once
        QVERIFY(waitForCheck(finished));

        QCOMPARE(finished.at(0).at(0).value<SoftwareUpdater::Result>(), result);
        QVERIFY(m_alerts.isEmpty());
    }

    void noAutomaticCheckWhenRecentOrOff()
    {
        const qint64 recent = QDateTime::currentSecsSinceEpoch() - 60;
        SettingsStore::standard().setInteger(SoftwareUpdater::lastCheckTimeKey, recent);
        FeedServer server;
        server.answer(newerFeed);
        useFeed(server);
        SoftwareUpdater updater;
        updater.setUpdateCheckInterval(3600);
        updater.setAutomaticallyChecksForUpdates(true);

        updater.start();
        QVERIFY(!updater.isChecking());
        QCOMPARE(updater.nextCheckTime(), recent + 3600);

        // Turned off, nothing is planned, however old the last check.
        SettingsStore::standard().setInteger(SoftwareUpdater::lastCheckTimeKey, recent - 100000);
        updater.setAutomaticallyChecksForUpdates(false);
        QCOMPARE(updater.nextCheckTime(), qint64(0));
        SoftwareUpdater off;
        off.start();
        QVERIFY(!off.isChecking());
        QCOMPARE(off.nextCheckTime(), qint64(0));

        QCoreApplication::processEvents();
        QCOMPARE(server.requests, 0);
    }

    void askingDuringAutomaticCheckReportsIt()
    {
        FeedServer server;
        server.answer(sameFeed);
        useFeed(server);
        SoftwareUpdater updater;
        updater.setAutomaticallyChecksForUpdates(true);
        QSignalSpy finished(&updater, &SoftwareUpdater::checkFinished);

        updater.start();
        updater.checkForUpdates(nullptr);
        QVERIFY(waitForCheck(finished));

        QCOMPARE(server.requests, 1);
        QCOMPARE(m_alerts.size(), 1);
        QCOMPARE(m_alerts.at(0).message, QStringLiteral("You're up to date."));
    }
};

QTEST_MAIN(TestSoftwareUpdater)
#include "TestSoftwareUpdater.moc"
