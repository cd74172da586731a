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

const QString offer = u"A new version of Deckwright is available!"_s,
              failure = u"Deckwright couldn't check for updates."_s;
// The last check's age in seconds, for a check at start (the interval is an hour); or no last check, at a first
// start or for a check the person asked for.
constexpr qint64 longAgo = 7200, recently = 60, firstStart = -2, asked = -1;
} // namespace

class TestSoftwareUpdater : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QCoreApplication::setApplicationVersion(u"1.9.3"_s); }
    void init() { SettingsStore::standard().useMemory(); }

    void compareVersions_data()
    {
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<int>("expected");
        QTest::newRow("numeric, not textual") << u"1.10"_s << u"1.9"_s << 1;
        QTest::newRow("missing parts are zero") << u"1.0"_s << u"1.0.0"_s << 0;
        QTest::newRow("pre-release before release") << u"2.0b1"_s << u"2.0"_s << -1;
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
        QTest::addColumn<qint64>("age");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("message"); // of the one alert; none when empty
        QTest::addColumn<QString>("detail");
        QTest::newRow("asked, newer") << asked << newerFeed << offer
                                      << u"Deckwright 1.10.0 is now available (you have 1.9.3)"_s;
        QTest::newRow("asked, same") << asked << sameFeed << u"You're up to date."_s
                                     << u"Deckwright 1.9.3 is currently"_s;
        QTest::newRow("asked, broken") << asked << brokenFeed << failure << u"not well-formed XML"_s;
        QTest::newRow("asked, no answer") << asked << noAnswer << failure << u"did not answer within 0.2 seconds"_s;
        QTest::newRow("at start, newer: offered") << longAgo << newerFeed << offer << u"1.10.0"_s;
        QTest::newRow("at start, same: quiet") << longAgo << sameFeed << QString() << QString();
        QTest::newRow("at start, broken: quiet") << longAgo << brokenFeed << QString() << QString();
        QTest::newRow("at start, checked recently: no check") << recently << newerFeed << QString() << QString();
        QTest::newRow("first start: waits one interval") << firstStart << newerFeed << QString() << QString();
    }

    void check()
    {
        QFETCH(qint64, age);
        QFETCH(QByteArray, body);
        QFETCH(QString, message);
        QFETCH(QString, detail);
        // A feed served from a file, or a server that takes every request and never answers.
        QTemporaryFile file;
        QVERIFY(body.isNull() || (file.open() && file.write(body) == body.size() && file.flush()));
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
        if (age >= 0)
            SettingsStore::standard().setInteger(SoftwareUpdater::lastCheckTimeKey,
                                                 QDateTime::currentSecsSinceEpoch() - age);
        updater.setUpdateCheckInterval(3600);
        updater.setAutomaticallyChecksForUpdates(age != asked);
        updater.start();
        QCOMPARE(updater.isChecking(), age == longAgo);
        if (age == asked)
            updater.checkForUpdates(nullptr);
        // The limit only keeps a broken build from hanging.
        QTRY_COMPARE_WITH_TIMEOUT(finished.count(), age == asked || age == longAgo ? 1 : 0, 20000);
        // A failed check counts too, no asking a broken server again at every start; a first start begins the count.
        QCOMPARE(updater.lastCheckTime() > QDateTime::currentSecsSinceEpoch() - 60, age != recently);
        QCOMPARE(recorder.alerts.size(), message.isEmpty() ? 0 : 1);
        for (const Alert &alert : recorder.alerts) {
            QCOMPARE(alert.messageText(), message);
            QVERIFY2(alert.informativeText().contains(detail), qPrintable(alert.informativeText()));
        }
        QCOMPARE(desktop.calls, message == offer
                                    ? QStringList{u"openUrl(\"https://example.invalid/deckwright/1.10.0/\")"_s}
                                    : QStringList());
    }

    // An absurd interval or last check: neither a check now nor a timer that
    // fires at once for ever, but the next check within ten years.
    void anAbsurdScheduleWaitsAnIntervalAtMost()
    {
        const qint64 now = QDateTime::currentSecsSinceEpoch(), largest = std::numeric_limits<qint64>::max();
        for (const auto &[last, interval] :
             {std::pair{now - 10, 1e16}, {now - 10, qQNaN()}, {largest - 10, 3600.0}, {largest, 1e300}}) {
            SettingsStore::standard().setInteger(SoftwareUpdater::lastCheckTimeKey, last);
            SoftwareUpdater updater;
            updater.setUpdateCheckInterval(interval);
            updater.setAutomaticallyChecksForUpdates(true);
            updater.start();
            QVERIFY(!updater.isChecking() && updater.nextCheckTime() > now
                    && updater.nextCheckTime() - now <= 10 * 366 * 86400LL);
        }
    }
};

QTEST_MAIN(TestSoftwareUpdater)
#include "TestSoftwareUpdater.moc"
