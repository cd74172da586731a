#include "support/gui/AlertRecorder.h"
#include "support/gui/RecordingDesktopServices.h"
#include "core/SettingsStore.h"
#include "gui/SoftwareUpdateDialog.h"
#include "gui/SoftwareUpdater.h"

#include <QDateTime>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

namespace {
// A one-page web server on 127.0.0.1 that becomes the updater's feed. Given a
// null body it takes every request and never answers.
class FeedServer : public QObject
{
public:
    explicit FeedServer(const QByteArray &body)
    {
        QVERIFY(m_server.listen(QHostAddress::LocalHost, 0));
        qputenv("DECKWRIGHT_APPCAST_URL", "http://127.0.0.1:" + QByteArray::number(m_server.serverPort()) + "/appcast.xml");
        connect(&m_server, &QTcpServer::newConnection, this, [this, body] {
            while (QTcpSocket *socket = m_server.nextPendingConnection()) {
                socket->setParent(this);
                connect(socket, &QTcpSocket::readyRead, socket, [socket, body] {
                    while (socket->canReadLine()) {
                        if (socket->readLine() != "\r\n" || body.isNull())
                            continue;
                        socket->write("HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(body.size())
                                      + "\r\nConnection: close\r\n\r\n" + body);
                        socket->disconnectFromHost();
                    }
                });
            }
        });
    }

private:
    QTcpServer m_server;
};

QByteArray feed(const QByteArray &items)
{
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
           "<rss version=\"2.0\" xmlns:dw=\"http://www.bramblefox.com/xml-namespaces/deckwright-update\">\n"
           "<channel><title>Deckwright</title>\n" + items + "</channel></rss>\n";
}

// The running version is 1.9.3: 1.10.0 is newer only when compared numerically,
// and it is the newest item though not the first.
const QByteArray newerFeed = feed(
    "<item><title>1.5</title><link>https://example.invalid/deckwright/1.5/</link>"
    "<enclosure url=\"https://example.invalid/1.5.zip\" dw:version=\"1.5\"/></item>"
    "<item><title>1.10</title><link>https://example.invalid/deckwright/1.10.0/</link>"
    "<enclosure url=\"https://example.invalid/1.10.0.zip\" dw:version=\"1.10.0\"/></item>");
const QByteArray sameFeed = feed("<item><title>Current</title><version>1.9.3.0</version></item>");
const QByteArray brokenFeed = "<rss version=\"2.0\"><channel><item><title>1.10</title></item>";
const QByteArray noAnswer; // null: the server stays silent

const QString offer = QStringLiteral("A new version of Deckwright is available!");
const QString failure = QStringLiteral("Deckwright couldn't check for updates.");
} // namespace

class TestSoftwareUpdater : public QObject
{
    Q_OBJECT

    // The limit only keeps a broken build from hanging.
    static bool waitForCheck(QSignalSpy &finished) { return finished.count() > 0 || finished.wait(20000); }

private Q_SLOTS:
    void initTestCase() { QCoreApplication::setApplicationVersion(QStringLiteral("1.9.3")); }
    void init() { SettingsStore::standard().useMemory(); }

    void compareVersions_data()
    {
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<int>("expected");
        QTest::newRow("numeric, not textual") << "1.10" << "1.9" << 1;
        QTest::newRow("missing parts are zero") << "1.0" << "1.0.0" << 0;
        QTest::newRow("pre-release before release") << "2.0b1" << "2.0" << -1;
    }

    void compareVersions()
    {
        QFETCH(QString, a);
        QFETCH(QString, b);
        QFETCH(int, expected);
        QCOMPARE(SoftwareUpdater::compareVersions(a, b), expected);
        QCOMPARE(SoftwareUpdater::compareVersions(b, a), -expected);
    }

    void checkNow_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("detail");
        QTest::addColumn<QStringList>("opened");
        QTest::newRow("newer") << newerFeed << offer << "Deckwright 1.10.0 is now available (you have 1.9.3)"
                               << QStringList{"openUrl(\"https://example.invalid/deckwright/1.10.0/\")"};
        QTest::newRow("same") << sameFeed << "You're up to date." << "Deckwright 1.9.3 is currently" << QStringList();
        QTest::newRow("broken") << brokenFeed << failure << "not well-formed XML" << QStringList();
        QTest::newRow("no answer") << noAnswer << failure << "did not answer within 0.2 seconds" << QStringList();
    }

    void checkNow()
    {
        QFETCH(QByteArray, body);
        QFETCH(QString, message);
        QFETCH(QString, detail);
        QFETCH(QStringList, opened);
        FeedServer server(body);
        AlertRecorder recorder; // answers "Download" to an offer
        RecordingDesktopServices desktop;
        SoftwareUpdater updater;
        SoftwareUpdateDialog dialog(&updater);
        if (body.isNull())
            updater.setTransferTimeout(200);
        QSignalSpy finished(&updater, &SoftwareUpdater::checkFinished);

        updater.checkForUpdates(nullptr);
        QVERIFY(waitForCheck(finished));

        QCOMPARE(recorder.alerts.size(), 1);
        QCOMPARE(recorder.alerts.at(0).messageText(), message);
        QVERIFY2(recorder.alerts.at(0).informativeText().contains(detail), qPrintable(recorder.alerts.at(0).informativeText()));
        QCOMPARE(desktop.calls, opened);
        // A failed check counts too: no asking a broken server again at every start.
        QVERIFY(updater.lastCheckTime() > 0);
    }

    void automaticCheckAtStart_data()
    {
        QTest::addColumn<qint64>("age"); // of the last check, in seconds; the interval is an hour
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<bool>("checks");
        QTest::addColumn<QStringList>("messages");
        QTest::newRow("old, newer: offered") << qint64(7200) << newerFeed << true << QStringList{offer};
        QTest::newRow("old, same: quiet") << qint64(7200) << sameFeed << true << QStringList();
        QTest::newRow("old, broken: quiet") << qint64(7200) << brokenFeed << true << QStringList();
        QTest::newRow("recent: no check") << qint64(60) << newerFeed << false << QStringList();
    }

    void automaticCheckAtStart()
    {
        QFETCH(qint64, age);
        QFETCH(QByteArray, body);
        QFETCH(bool, checks);
        QFETCH(QStringList, messages);
        SettingsStore::standard().setInteger(SoftwareUpdater::lastCheckTimeKey, QDateTime::currentSecsSinceEpoch() - age);
        FeedServer server(body);
        AlertRecorder recorder;
        RecordingDesktopServices desktop;
        SoftwareUpdater updater;
        SoftwareUpdateDialog dialog(&updater);
        updater.setUpdateCheckInterval(3600);
        updater.setAutomaticallyChecksForUpdates(true);
        QSignalSpy finished(&updater, &SoftwareUpdater::checkFinished);

        updater.start();
        QCOMPARE(updater.isChecking(), checks);
        if (checks)
            QVERIFY(waitForCheck(finished));

        QStringList shown;
        for (const Alert &alert : std::as_const(recorder.alerts))
            shown.append(alert.messageText());
        QCOMPARE(shown, messages);
    }
};

QTEST_MAIN(TestSoftwareUpdater)
#include "TestSoftwareUpdater.moc"
