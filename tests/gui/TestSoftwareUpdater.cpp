#include "core/SettingsStore.h"
#include "gui/SoftwareUpdateDialog.h"
#include "gui/SoftwareUpdater.h"
#include "support/gui/AlertRecorder.h"
#include "support/gui/RecordingDesktopServices.h"

#include <QtNetwork>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {
QByteArray feed(const QByteArray &items)
{
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
           "<rss version=\"2.0\" xmlns:dw=\"http://www.bramblefox.com/xml-namespaces/deckwright-update\">\n"
           "<channel><title>Deckwright</title>\n"
           + items + "</channel></rss>\n";
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
const QByteArray noAnswer; // null: the server never answers

const QString offer = "A new version of Deckwright is available!";
const QString failure = "Deckwright couldn't check for updates.";
} // namespace

class TestSoftwareUpdater : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QCoreApplication::setApplicationVersion("1.9.3"); }
    void init() { SettingsStore::standard().useMemory(); }

    void compareVersions_data()
    {
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<int>("expected");
        QTest::newRow("numeric, not textual") << QString("1.10") << "1.9" << 1;
        QTest::newRow("missing parts are zero") << QString("1.0") << "1.0.0" << 0;
        QTest::newRow("pre-release before release") << QString("2.0b1") << "2.0" << -1;
    }

    void compareVersions()
    {
        QFETCH(QString, a);
        QFETCH(QString, b);
        QFETCH(int, expected);
        QCOMPARE(SoftwareUpdater::compareVersions(a, b), expected);
        QCOMPARE(SoftwareUpdater::compareVersions(b, a), -expected);
    }

    void check_data()
    {
        // The age of the last check, for a check at start (the interval is an hour); -1: asked for.
        QTest::addColumn<qint64>("age");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("message"); // of the one alert; none when empty
        QTest::addColumn<QString>("detail");
        QTest::newRow("asked, newer") << qint64(-1) << newerFeed << offer
                                      << "Deckwright 1.10.0 is now available (you have 1.9.3)";
        QTest::newRow("asked, same") << qint64(-1) << sameFeed << "You're up to date."
                                     << "Deckwright 1.9.3 is currently";
        QTest::newRow("asked, broken") << qint64(-1) << brokenFeed << failure << "not well-formed XML";
        QTest::newRow("asked, no answer") << qint64(-1) << noAnswer << failure << "did not answer within 0.2 seconds";
        QTest::newRow("at start, newer: offered") << qint64(7200) << newerFeed << offer << "1.10.0";
        QTest::newRow("at start, same: quiet") << qint64(7200) << sameFeed << QString() << QString();
        QTest::newRow("at start, broken: quiet") << qint64(7200) << brokenFeed << QString() << QString();
        QTest::newRow("at start, checked recently: no check") << qint64(60) << newerFeed << QString() << QString();
    }

    void theFirstStartWaitsOneInterval()
    {
        SettingsStore::standard().useMemory();
        SoftwareUpdater updater;
        updater.setUpdateCheckInterval(3600);
        updater.setAutomaticallyChecksForUpdates(true);
        updater.start();
        QVERIFY(!updater.isChecking());
        QVERIFY(updater.lastCheckTime() > QDateTime::currentSecsSinceEpoch() - 60);
    }

    void check()
    {
        QFETCH(qint64, age);
        QFETCH(QByteArray, body);
        QFETCH(QString, message);
        QFETCH(QString, detail);
        // A feed served from a file, or a server that takes every request and never answers.
        QTemporaryDir dir;
        QFile file(dir.filePath(u"appcast.xml"_s));
        QVERIFY(body.isNull() || (file.open(QIODevice::WriteOnly) && file.write(body) == body.size() && file.flush()));
        QTcpServer silent;
        QVERIFY(!body.isNull() || silent.listen(QHostAddress::LocalHost));
        qputenv("DECKWRIGHT_APPCAST_URL", body.isNull() ? "http://127.0.0.1:" + QByteArray::number(silent.serverPort())
                                                        : QUrl::fromLocalFile(file.fileName()).toEncoded());
        AlertRecorder recorder; // answers "Download" to an offer
        RecordingDesktopServices desktop;
        SoftwareUpdater updater;
        SoftwareUpdateDialog dialog(&updater);
        if (body.isNull())
            updater.setTransferTimeout(200);
        QSignalSpy finished(&updater, &SoftwareUpdater::checkFinished);
        if (age < 0) {
            updater.checkForUpdates(nullptr);
        } else {
            SettingsStore::standard().setInteger(SoftwareUpdater::lastCheckTimeKey,
                                                 QDateTime::currentSecsSinceEpoch() - age);
            updater.setUpdateCheckInterval(3600);
            updater.setAutomaticallyChecksForUpdates(true);
            updater.start();
            QCOMPARE(updater.isChecking(), age > 3600);
        }
        if (age < 0 || age > 3600) {
            // The limit only keeps a broken build from hanging.
            QVERIFY(finished.count() > 0 || finished.wait(20000));
            // A failed check counts too: no asking a broken server again at every start.
            QVERIFY(updater.lastCheckTime() > QDateTime::currentSecsSinceEpoch() - 60);
        }
        QCOMPARE(recorder.alerts.size(), message.isEmpty() ? 0 : 1);
        if (!message.isEmpty()) {
            QCOMPARE(recorder.alerts.at(0).messageText(), message);
            QVERIFY2(recorder.alerts.at(0).informativeText().contains(detail),
                     qPrintable(recorder.alerts.at(0).informativeText()));
        }
        QCOMPARE(desktop.calls, message == offer
                                    ? QStringList{"openUrl(\"https://example.invalid/deckwright/1.10.0/\")"}
                                    : QStringList());
    }
};

QTEST_MAIN(TestSoftwareUpdater)
#include "TestSoftwareUpdater.moc"
