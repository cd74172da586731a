#include "cli/ConvertOutcome.h"
#include "cli/WorkerChannel.h"
#include "core/StopRequest.h"

#include <QtTest>

#include <csignal>
#include <future>
#include <thread>
#include <tuple>

#include <unistd.h>

using namespace Qt::StringLiterals;

// What a worker and its command say to each other must survive any path or
// reason, and a worker waiting for its turn must notice a signal.
class TestWorkerChannel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void carriesAnyPathOrOutcomeOnOneLine_data()
    {
        QTest::addColumn<int>("kind");     // of the outcome; -1: a path (and folder) to convert; -2: a share
        QTest::addColumn<QString>("text"); // the path, or the outcome's detail, or the share
        const QString hostile = u"could not write /out/a:b\n%20 (No space left on device)"_s;
        QTest::newRow("plain path") << -1 << u"/in/Talk.key"_s;
        QTest::newRow("empty path") << -1 << QString();
        QTest::newRow("spaces and line breaks") << -1 << u"/in/a b\nconvert /etc\r\n.key"_s;
        QTest::newRow("escapes") << -1 << u"/in/%41%0A%%.key"_s;
        QTest::newRow("not UTF-8 on disk") << -1 << u"/in/caf\uFFFD.key"_s;
        QTest::newRow("beyond ASCII") << -1 << u"/in/Caf\u00e9 \u2014 \U0001F600.key"_s;
        QTest::newRow("converted") << int(ConvertOutcome::Converted) << u"Talk 1.key"_s;
        QTest::newRow("not found") << int(ConvertOutcome::NotFound) << QString();
        QTest::newRow("not Keynote") << int(ConvertOutcome::NotKeynote) << hostile;
        QTest::newRow("not Keynote 4") << int(ConvertOutcome::NotKeynoteFour) << u"caf\u00e9: x"_s;
        QTest::newRow("failed") << int(ConvertOutcome::Failed) << hostile;
        QTest::newRow("no packages") << int(ConvertOutcome::NoPackages) << QString();
        QTest::newRow("already done") << int(ConvertOutcome::AlreadyDone) << u"2008/a b\n.key"_s;
        QTest::newRow("half done") << -2 << u"0.5"_s;
    }

    void carriesAnyPathOrOutcomeOnOneLine()
    {
        QFETCH(int, kind);
        QFETCH(QString, text);
        const ConvertOutcome outcome(ConvertOutcome::Kind(kind), text);
        const QByteArray line = kind == -1   ? WorkerChannel::convertRequest(text, text)
                                : kind == -2 ? WorkerChannel::progressReport(text.toDouble())
                                             : WorkerChannel::outcomeReport(outcome);
        QVERIFY2(QRegularExpression(u"^[ -~]*$"_s).match(QString::fromLatin1(line)).hasMatch(), line);
        QCOMPARE(WorkerChannel::request(line),
                 kind == -1 ? std::optional(WorkerChannel::Request{text, text}) : std::nullopt);
        QCOMPARE(WorkerChannel::reportedProgress(line), kind == -2 ? std::optional(text.toDouble()) : std::nullopt);
        QCOMPARE(WorkerChannel::reportedOutcome(line), kind < 0 ? std::nullopt : std::optional(outcome));
    }

    void refusesWhatIsNotAMessage_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::newRow("nothing") << QByteArray();
        QTest::newRow("unknown word") << QByteArray("convertx /a.key");
        QTest::newRow("control byte") << QByteArray("convert /a\x01.key");
        QTest::newRow("no kind") << QByteArray("outcome :Talk.key");
        QTest::newRow("kind too large") << QByteArray("outcome 7:-1:0:x");
        QTest::newRow("kind negative") << QByteArray("outcome -1:-1:0:x");
        QTest::newRow("no colon") << QByteArray("outcome 0");
        QTest::newRow("no time") << QByteArray("outcome 0:0:x");
        QTest::newRow("raw space in a reason") << QByteArray("outcome 4:3:0:no space");
        QTest::newRow("byte beyond ASCII") << QByteArray("outcome 0:0:0:caf\xc3\xa9");
        QTest::newRow("raw spaces in a path") << QByteArray("convert /a b c.key");
        QTest::newRow("share beyond the whole") << QByteArray("progress 1001");
    }

    void refusesWhatIsNotAMessage()
    {
        QFETCH(QByteArray, line);
        QCOMPARE(WorkerChannel::request(line), std::nullopt);
        QCOMPARE(WorkerChannel::reportedOutcome(line), std::nullopt);
        QCOMPARE(WorkerChannel::reportedProgress(line), std::nullopt);
    }

    // A worker waits for its turn inside a conversion, where signals are
    // deferred: the signal, whenever it comes, must end the wait.
    void readsLinesHoweverTheyArriveUntilASignalOrTheEnd()
    {
        int fds[2];
        QCOMPARE(::pipe(fds), 0);
        WorkerChannel reader(fds[0], -1);
        QVERIFY(WorkerChannel(-1, fds[1]).writeLine("convert /a"));
        QCOMPARE(::write(fds[1], "go\nrea", 6), ssize_t(6));
        QCOMPARE(reader.readLine(), std::optional<QByteArray>("convert /a"));
        QCOMPARE(reader.readLine(), std::optional<QByteArray>("go"));
        QCOMPARE(::write(fds[1], "dy\n", 3), ssize_t(3));
        QCOMPARE(reader.readLine(), std::optional<QByteArray>("ready"));

        StopRequest::installSignalHandlers();
        StopRequest::beginConversion();
        // Raised in the other thread, which handles it: only the stop's descriptor can wake this one. A wait that
        // nothing ends is ended by a line after a minute, so that the comparison below fails instead of hanging.
        std::promise<void> woken;
        std::thread signaller([&, woke = woken.get_future()] {
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            std::raise(SIGTERM);
            if (woke.wait_for(std::chrono::minutes(1)) == std::future_status::timeout)
                std::ignore = ::write(fds[1], "hung\n", 5);
        });
        const std::optional<QByteArray> line = reader.readLine();
        woken.set_value();
        signaller.join();
        const int signalNumber = StopRequest::signalNumber();
        // Forgotten, so that the end of the conversion does not end the test.
        StopRequest::beginConversion();
        StopRequest::endConversion();
        QCOMPARE(line, std::nullopt);
        QCOMPARE(signalNumber, SIGTERM);

        ::close(fds[1]);
        QCOMPARE(reader.readLine(), std::nullopt);
        ::close(fds[0]);
    }
};

QTEST_GUILESS_MAIN(TestWorkerChannel)
#include "TestWorkerChannel.moc"
