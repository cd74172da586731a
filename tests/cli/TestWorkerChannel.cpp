#include "cli/ConvertOutcome.h"
#include "cli/WorkerChannel.h"
#include "core/StopRequest.h"

#include <QtTest>

#include <csignal>
#include <thread>

#include <unistd.h>

// What a worker and its command say to each other must survive any path or
// reason, and a worker waiting for its turn must notice a signal.
class TestWorkerChannel : public QObject
{
    Q_OBJECT

private:
    static bool isOneLine(const QByteArray &message)
    {
        for (const char c : message) {
            if (c < ' ' || c > '~')
                return false;
        }
        return true;
    }

private Q_SLOTS:
    void carriesAnyPathOnOneLine_data()
    {
        QTest::addColumn<QString>("path");
        QTest::newRow("plain") << QStringLiteral("/in/Talk.key");
        QTest::newRow("empty") << QString();
        QTest::newRow("spaces and line breaks") << QStringLiteral("/in/a b\nconvert /etc\r\n.key");
        QTest::newRow("escapes") << QStringLiteral("/in/%41%0A%%.key");
        QTest::newRow("not UTF-8 on disk") << QStringLiteral("/in/caf\uFFFD.key");
        QTest::newRow("beyond ASCII") << QStringLiteral("/in/Caf\u00e9 \u2014 \U0001F600.key");
    }

    void carriesAnyPathOnOneLine()
    {
        QFETCH(QString, path);
        const QByteArray request = WorkerChannel::convertRequest(path);
        QVERIFY2(isOneLine(request), request.constData());
        QCOMPARE(WorkerChannel::requestedPath(request), std::optional<QString>(path));
        QCOMPARE(WorkerChannel::reportedOutcome(request), std::nullopt);
    }

    void carriesEveryOutcome_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("detail");
        const QString hostile = QStringLiteral("could not write /out/a:b\n%20 (No space left on device)");
        QTest::newRow("converted") << int(ConvertOutcome::Converted) << QStringLiteral("Talk 1.key");
        QTest::newRow("not found") << int(ConvertOutcome::NotFound) << QString();
        QTest::newRow("not Keynote") << int(ConvertOutcome::NotKeynote) << hostile;
        QTest::newRow("not Keynote 4") << int(ConvertOutcome::NotKeynoteFour) << QStringLiteral("caf\u00e9: x");
        QTest::newRow("failed") << int(ConvertOutcome::Failed) << hostile;
        QTest::newRow("no packages") << int(ConvertOutcome::NoPackages) << QString();
    }

    void carriesEveryOutcome()
    {
        QFETCH(int, kind);
        QFETCH(QString, detail);
        const ConvertOutcome outcome(ConvertOutcome::Kind(kind), detail);
        const QByteArray report = WorkerChannel::outcomeReport(outcome);
        QVERIFY2(isOneLine(report), report.constData());
        QCOMPARE(WorkerChannel::reportedOutcome(report), std::optional<ConvertOutcome>(outcome));
        QCOMPARE(WorkerChannel::requestedPath(report), std::nullopt);
    }

    void refusesWhatIsNotAMessage_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::newRow("nothing") << QByteArray();
        QTest::newRow("unknown word") << QByteArray("convertx /a.key");
        QTest::newRow("raw space in a path") << QByteArray("convert /a b.key");
        QTest::newRow("control byte") << QByteArray("convert /a\x01.key");
        QTest::newRow("no kind") << QByteArray("outcome :Talk.key");
        QTest::newRow("kind too large") << QByteArray("outcome 6:x");
        QTest::newRow("kind negative") << QByteArray("outcome -1:x");
        QTest::newRow("no colon") << QByteArray("outcome 0");
        QTest::newRow("raw space in a reason") << QByteArray("outcome 4:no space");
        QTest::newRow("byte beyond ASCII") << QByteArray("outcome 0:caf\xc3\xa9");
    }

    void refusesWhatIsNotAMessage()
    {
        QFETCH(QByteArray, line);
        QCOMPARE(WorkerChannel::requestedPath(line), std::nullopt);
        QCOMPARE(WorkerChannel::reportedOutcome(line), std::nullopt);
    }

    void readsLinesHoweverTheyArrive()
    {
        int fds[2];
        QCOMPARE(::pipe(fds), 0);
        WorkerChannel reader(fds[0], -1);
        WorkerChannel writer(-1, fds[1]);
        QVERIFY(writer.writeLine("convert /a"));
        QCOMPARE(::write(fds[1], "go\nrea", 6), ssize_t(6));
        QCOMPARE(reader.readLine(), std::optional<QByteArray>("convert /a"));
        QCOMPARE(reader.readLine(), std::optional<QByteArray>("go"));
        QCOMPARE(::write(fds[1], "dy\n", 3), ssize_t(3));
        QCOMPARE(reader.readLine(), std::optional<QByteArray>("ready"));
        ::close(fds[1]);
        QCOMPARE(reader.readLine(), std::nullopt);
        ::close(fds[0]);
    }

    // A worker waits for its turn inside a conversion, where signals are
    // deferred: the signal, whenever it comes, must end the wait.
    void aSignalEndsTheWait()
    {
        int fds[2];
        QCOMPARE(::pipe(fds), 0);
        StopRequest::installSignalHandlers();
        StopRequest::beginConversion();
        std::thread signaller([] {
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            ::kill(::getpid(), SIGTERM);
        });
        WorkerChannel reader(fds[0], -1);
        const std::optional<QByteArray> line = reader.readLine();
        signaller.join();
        const int signalNumber = StopRequest::signalNumber();
        // Forgotten, so that the end of the conversion does not end the test.
        StopRequest::beginConversion();
        StopRequest::endConversion();
        ::close(fds[0]);
        ::close(fds[1]);
        QCOMPARE(line, std::nullopt);
        QCOMPARE(signalNumber, SIGTERM);
    }
};

QTEST_GUILESS_MAIN(TestWorkerChannel)
#include "TestWorkerChannel.moc"
