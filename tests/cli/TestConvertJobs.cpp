#include "cli/ConvertJobs.h"
#include "support/PackageFactory.h"
#include "support/TestSettings.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QTextStream>
#include <QThread>

#include <csignal>
#include <memory>

#include <unistd.h>

using namespace Qt::StringLiterals;

// Several packages at once: the same lines and files as one after another,
// and no debris after a signal or a worker lost.
namespace {
struct Run
{
    int status = -1; // -1 when it did not exit by itself
    QStringList lines;
};

// Every file of a converted archive, below the package's own folder -> content,
// and under "<layout>" whether the package is the archive's root.
using Archive = QMap<QString, QByteArray>;

QByteArray output(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    process.waitForFinished(60000);
    return process.readAllStandardOutput();
}

Archive unpacked(const QString &archive)
{
    QStringList names = QString::fromUtf8(output(u"unzip"_s, {u"-Z1"_s, archive})).split(u'\n', Qt::SkipEmptyParts);
    // Entries keep the path they were zipped under, which differs from run to run.
    QString prefix = names.value(0);
    for (const QString &name : std::as_const(names)) {
        while (!name.startsWith(prefix))
            prefix.chop(1);
    }
    prefix.truncate(prefix.lastIndexOf(u'/') + 1);
    Archive files;
    for (const QString &name : std::as_const(names)) {
        if (!name.endsWith(u'/'))
            files.insert(name.mid(prefix.size()), output(u"unzip"_s, {u"-p"_s, archive, name}));
    }
    files.insert(u"<layout>"_s, prefix.isEmpty() ? "root" : "under folders");
    return files;
}

// Every file in the folder, hidden ones too, unpacked.
QMap<QString, Archive> outputs(const QString &folder)
{
    QMap<QString, Archive> found;
    for (const QString &name : QDir(folder).entryList(QDir::Files | QDir::Hidden | QDir::System))
        found.insert(name, unpacked(folder + u'/' + name));
    return found;
}

QStringList entries(const QString &folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
}

// The processes whose command line mentions text: pid -> parent's pid and program.
struct Process
{
    qint64 parent = 0;
    QString program;
};
QMap<qint64, Process> processesMentioning(const QByteArray &text)
{
    QMap<qint64, Process> found;
    for (const QString &pid : QDir(u"/proc"_s).entryList({u"[0-9]*"_s}, QDir::Dirs)) {
        QFile cmdline(u"/proc/%1/cmdline"_s.arg(pid)), stat(u"/proc/%1/stat"_s.arg(pid));
        if (pid.toLongLong() == ::getpid() || !cmdline.open(QIODevice::ReadOnly) || !cmdline.readAll().contains(text)
            || !stat.open(QIODevice::ReadOnly))
            continue;
        const QByteArray fields = stat.readAll();
        const QList<QByteArray> after = fields.mid(fields.lastIndexOf(')') + 2).split(' ');
        found.insert(pid.toLongLong(), {after.value(1).toLongLong(),
                                        QFileInfo(QFile::symLinkTarget(u"/proc/%1/exe"_s.arg(pid))).fileName()});
    }
    return found;
}

QString makePackageOf(const QString &folder, const QString &name, const QString &title, int noiseMiB = 0)
{
    const QString package = PackageFactory(folder).make(name, PackageFactory::keynoteFourDocument(title));
    if (noiseMiB > 0) {
        // Incompressible, so that zip is busy for a while.
        QFile random(u"/dev/urandom"_s), media(package + u"/Data/noise.bin"_s);
        if (!random.open(QIODevice::ReadOnly) || !media.open(QIODevice::WriteOnly))
            qFatal("cannot make %s", qPrintable(package));
        for (int i = 0; i < noiseMiB; ++i)
            media.write(random.read(1 << 20));
    }
    return package;
}
} // namespace

class TestConvertJobs : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_work;
    QString m_in;
    QString m_scratch; // where the runs' folders are made
    QStringList m_batch;
    QString m_big; // a folder of large packages, made when first needed
    QProcessEnvironment m_env = QProcessEnvironment::systemEnvironment();

    // In a process group of its own, as a shell starts a job.
    std::unique_ptr<QProcess> start(const QStringList &arguments)
    {
        auto process = std::make_unique<QProcess>();
        process->setProcessEnvironment(m_env);
        process->setWorkingDirectory(m_in);
        process->setChildProcessModifier([] { ::setpgid(0, 0); });
        process->start(QStringLiteral(DECKWRIGHT_BINARY), arguments);
        return process;
    }

    Run finish(QProcess &process)
    {
        process.waitForFinished(240000);
        return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
                QString::fromUtf8(process.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts)};
    }

    Run convert(const QStringList &options, const QStringList &items)
    {
        return finish(*start(QStringList{u"convert"_s} + options + items));
    }

    QString makeOut(const QString &name)
    {
        const QString out = m_work.filePath(name);
        QDir(out).removeRecursively();
        QDir().mkpath(out);
        return out;
    }

    QStringList runFolders() const { return QDir(m_scratch).entryList({u"run-*"_s}, QDir::AllEntries); }

    // A (large), B (small), C (large): B waits for its turn behind A.
    QString bigBatch()
    {
        if (m_big.isEmpty()) {
            m_big = m_work.filePath(u"big"_s);
            makePackageOf(m_big, u"A.key"_s, u"A"_s, 64);
            makePackageOf(m_big, u"B.key"_s, u"B"_s);
            makePackageOf(m_big, u"C.key"_s, u"C"_s, 64);
        }
        return m_big;
    }

    // Waits until zip runs for count packages; their pids -> the workers' pids.
    QMap<qint64, qint64> waitForZips(QProcess &process, int count)
    {
        QMap<qint64, qint64> zips;
        QElapsedTimer waited;
        waited.start();
        while (zips.size() < count && process.state() == QProcess::Running && waited.elapsed() < 120000) {
            QThread::msleep(20);
            zips.clear();
            const auto found = processesMentioning(QFile::encodeName(m_scratch));
            for (auto it = found.begin(); it != found.end(); ++it) {
                if (it->program == u"zip"_s)
                    zips.insert(it.key(), it->parent);
            }
        }
        return zips;
    }

    // Nothing that the command started outlives it.
    void checkNoProcessLeft()
    {
        const QByteArray work = QFile::encodeName(m_work.path());
        QElapsedTimer waited;
        for (waited.start(); !processesMentioning(work).isEmpty() && waited.elapsed() < 5000;)
            QThread::msleep(50);
        QCOMPARE(processesMentioning(work).keys(), QList<qint64>());
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_work.isValid());
        m_in = m_work.filePath(u"in"_s);
        m_env.insert(u"XDG_RUNTIME_DIR"_s, TestSettings::isolateScratch(m_work.path()));
        m_scratch = m_work.filePath(u"runtime/deckwright"_s);
        for (const QString &name : {u"DISPLAY"_s, u"WAYLAND_DISPLAY"_s, u"QT_QPA_PLATFORM"_s})
            m_env.remove(name);

        // Three packages named Talk.key; the first one given is by far the largest.
        makePackageOf(m_in + u"/a"_s, u"Talk.key"_s, u"first"_s, 24);
        makePackageOf(m_in + u"/b"_s, u"Talk.key"_s, u"second"_s);
        makePackageOf(m_in + u"/c"_s, u"Talk.key"_s, u"third"_s);
        makePackageOf(m_in + u"/c"_s, u"Other.key"_s, u"other"_s);
        PackageFactory(m_in + u"/c"_s).makeWithoutIndex(u"Hollow.key"_s);
        PackageFactory(m_in).make(u"Newer.key"_s, PackageFactory::keynoteFiveDocument());
        QVERIFY(QDir().mkpath(m_in + u"/empty/sub"_s));
        QFile pdf(m_in + u"/Talk.pdf"_s);
        QVERIFY(pdf.open(QIODevice::WriteOnly));
        m_batch = QStringList{u"a"_s,        u"b/Talk.key"_s, u"empty"_s,     u"missing.key"_s,
                              u"Talk.pdf"_s, u"c"_s,          u"Newer.key"_s, u"b/Talk.key"_s};
    }

    void sameLinesAndFilesWhateverTheJobs_data()
    {
        QTest::addColumn<int>("jobs");
        QTest::addColumn<bool>("taken"); // the output folder already holds a Talk.key
        QTest::addColumn<QString>("layout");
        QTest::newRow("2 jobs") << 2 << false << u"reference"_s;
        QTest::newRow("3 jobs") << 3 << false << u"reference"_s;
        QTest::newRow("2 jobs, Talk.key taken") << 2 << true << u"reference"_s;
        QTest::newRow("2 jobs, root layout") << 2 << false << u"root"_s;
    }

    void sameLinesAndFilesWhateverTheJobs()
    {
        QFETCH(int, jobs);
        QFETCH(bool, taken);
        QFETCH(QString, layout);
        const QString one = makeOut(u"one-at-a-time"_s), many = makeOut(u"at-once"_s);
        for (const QString &out : {one, many}) {
            QFile earlier(out + u"/Talk.key"_s);
            QVERIFY(!taken || (earlier.open(QIODevice::WriteOnly) && earlier.write("not ours") == 8));
        }
        const Run sequential = convert({u"--jobs"_s, u"1"_s, u"--layout"_s, layout, u"--output"_s, one}, m_batch);
        const Run parallel = convert({u"-j"_s, QString::number(jobs), u"-l"_s, layout, u"-o"_s, many}, m_batch);

        // The batch as one after another sees it: folders expanded in place,
        // the first Talk.key given named first.
        const auto talk = [taken](int n) {
            n += taken ? 1 : 0;
            return n == 0 ? u"Talk.key"_s : u"Talk.%1.key"_s.arg(n);
        };
        QCOMPARE(sequential.status, 1);
        QCOMPARE(sequential.lines,
                 QStringList({
                     u"converted: a/Talk.key -> %1/%2"_s.arg(one, talk(0)),
                     u"converted: b/Talk.key -> %1/%2"_s.arg(one, talk(1)),
                     u"skipped: empty: no Keynote packages in it"_s,
                     u"skipped: missing.key: not found"_s,
                     u"skipped: Talk.pdf: not a Keynote file (its name does not end in .key)"_s,
                     u"skipped: c/Hollow.key: not a Keynote 4 file (index.apxl.gz is missing)"_s,
                     u"converted: c/Other.key -> %1/Other.key"_s.arg(one),
                     u"converted: c/Talk.key -> %1/%2"_s.arg(one, talk(2)),
                     u"skipped: Newer.key: not a Keynote 4 file (already in the Keynote '09 format)"_s,
                     u"converted: b/Talk.key -> %1/%2"_s.arg(one, talk(3)),
                 }));
        const QMap<QString, Archive> written = outputs(one);
        QVERIFY(written.value(talk(0)).value(u"index.apxl"_s).contains("<key:title>first<"));
        QCOMPARE(written.value(talk(0)).value(u"<layout>"_s), layout == u"root"_s ? "root" : "under folders");

        QCOMPARE(parallel.status, sequential.status);
        QCOMPARE(parallel.lines.join(u'\n').replace(many, u"OUT"_s),
                 sequential.lines.join(u'\n').replace(one, u"OUT"_s));
        QCOMPARE(outputs(many), written);
        QCOMPARE(runFolders(), QStringList());
    }

    void aSignalStopsEveryWorker_data()
    {
        QTest::addColumn<int>("signalNumber");
        QTest::addColumn<bool>("toGroup"); // as Ctrl+C sends it, or to the command alone
        QTest::newRow("Ctrl+C") << SIGINT << true;
        QTest::newRow("SIGTERM to the command") << SIGTERM << false;
        QTest::newRow("SIGHUP to the command") << SIGHUP << false;
    }

    void aSignalStopsEveryWorker()
    {
        QFETCH(int, signalNumber);
        QFETCH(bool, toGroup);
        const QString out = makeOut(u"stopped"_s);
        const auto process = start({u"convert"_s, u"--jobs"_s, u"3"_s, u"--output"_s, out, bigBatch()});
        QVERIFY(process->waitForStarted());
        // Mid-batch, with a worker at its longest stage; two zipping at the
        // same moment is not certain on a loaded machine, and not needed.
        QVERIFY2(!waitForZips(*process, 1).isEmpty(), "no large package was ever zipped");
        const pid_t pid = pid_t(process->processId());
        QCOMPARE(::kill(toGroup ? -pid : pid, signalNumber), 0);
        const Run run = finish(*process);

        QCOMPARE(process->exitStatus(), QProcess::CrashExit);
        QCOMPARE(process->exitCode(), signalNumber);
        QCOMPARE(run.lines, QStringList());
        QCOMPARE(entries(out), QStringList());
        QCOMPARE(runFolders(), QStringList());
        checkNoProcessLeft();
    }

    void aLostWorkerFailsOnlyItsPackage()
    {
        const QString out = makeOut(u"lost"_s);
        const auto process = start({u"convert"_s, u"--jobs"_s, u"2"_s, u"--output"_s, out, bigBatch()});
        QVERIFY(process->waitForStarted());
        // The worker zipping C, the last to start, is killed as the system
        // kills a process out of memory: no run after it removes its folder.
        qint64 worker = 0;
        QElapsedTimer waited;
        for (waited.start(); !worker && process->state() == QProcess::Running && waited.elapsed() < 120000;) {
            const auto zips = waitForZips(*process, 1);
            for (auto it = zips.begin(); it != zips.end(); ++it) {
                QFile cmdline(u"/proc/%1/cmdline"_s.arg(it.key()));
                if (cmdline.open(QIODevice::ReadOnly) && cmdline.readAll().contains("/C.zip"))
                    worker = it.value();
            }
        }
        QVERIFY2(worker > 0, "C was never zipped");
        QCOMPARE(::kill(pid_t(worker), SIGKILL), 0);
        const Run run = finish(*process);

        QCOMPARE(run.status, 1);
        QCOMPARE(run.lines,
                 QStringList({
                     u"converted: %1/A.key -> %2/A.key"_s.arg(m_big, out),
                     u"converted: %1/B.key -> %2/B.key"_s.arg(m_big, out),
                     u"failed: %1/C.key: the process converting it ended unexpectedly (signal 9, Killed)"_s.arg(m_big),
                 }));
        QCOMPARE(entries(out), QStringList({u"A.key"_s, u"B.key"_s}));
        QCOMPARE(runFolders(), QStringList());
        checkNoProcessLeft();
    }

    void aWorkerThatCannotServeFailsItsItems_data()
    {
        QTest::addColumn<QString>("program");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("reason"); // the start of it
        QTest::newRow("cannot start") << m_work.filePath(u"nowhere/deckwright"_s) << QStringList()
                                      << u"no process could be started to convert it ("_s;
        QTest::newRow("ends at once") << u"/bin/sh"_s << QStringList{u"-c"_s, u"exit 3"_s}
                                      << u"the process converting it ended unexpectedly (exit status 3)"_s;
        QTest::newRow("says nonsense") << u"/bin/sh"_s << QStringList{u"-c"_s, u"read a; echo nonsense; read a"_s}
                                       << u"the process converting it said something unexpected"_s;
        QTest::newRow("says too much") << u"/bin/sh"_s
                                       << QStringList{u"-c"_s, u"read a; head -c 2000000 /dev/zero; read a"_s}
                                       << u"the process converting it said more than it should"_s;
    }

    // In this process, with workers that are not ours: each item fails with
    // the reason, and the batch ends instead of waiting for answers.
    void aWorkerThatCannotServeFailsItsItems()
    {
        QFETCH(QString, program);
        QFETCH(QStringList, arguments);
        QFETCH(QString, reason);
        QString printed;
        QTextStream out(&printed);
        ConvertJobs batch(program, arguments, u"/out"_s, out);
        const QList<ConvertJobs::Item> items{
            {u"x.key"_s, u"/in/x.key"_s, std::nullopt},
            {u"folder"_s, QString(), ConvertOutcome(ConvertOutcome::NoPackages)},
            {u"y.key"_s, u"/in/y.key"_s, std::nullopt},
            {u"z.key"_s, u"/in/z.key"_s, std::nullopt},
        };
        QVERIFY(!batch.run(items, 2));
        const QStringList lines = printed.split(u'\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 4);
        QCOMPARE(lines[1], u"skipped: folder: no Keynote packages in it"_s);
        for (const int i : {0, 2, 3}) {
            const QString expected = u"failed: %1: %2"_s.arg(items[i].shown, reason);
            QVERIFY2(lines[i].startsWith(expected), qPrintable(lines[i]));
        }
    }
};

QTEST_GUILESS_MAIN(TestConvertJobs)
#include "TestConvertJobs.moc"
