#include "cli/ConvertJobs.h"
#include "cli/ConvertReport.h"
#include "core/OutputFolder.h"
#include "support/Archive.h"
#include "support/PackageFactory.h"
#include "support/Program.h"
#include "support/Tree.h"

#include <QtTest>

#include <csignal>

using namespace Qt::StringLiterals;

// What `deckwright convert` prints and writes, one package after another or
// several at once: the same lines and files, and no debris after a signal or
// a worker lost.
namespace {
// Every file in the folder, hidden ones too: name -> the package's files in
// it, and "<root>" -> whether the package is the archive's root.
QMap<QString, QMap<QByteArray, QByteArray>> outputs(const QString &folder)
{
    QMap<QString, QMap<QByteArray, QByteArray>> found;
    for (const QString &name : QDir(folder).entryList(QDir::Files | QDir::Hidden | QDir::System)) {
        QByteArray top;
        found.insert(name, Archive(folder + u'/' + name).packageFiles(&top));
        found[name].insert("<root>", top.isEmpty() ? "yes" : "no");
    }
    return found;
}
} // namespace

class TestConvertJobs : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_work;
    Program m_program{m_work.filePath(u"program"_s)};
    QString m_in = m_work.filePath(u"in"_s);
    QString m_big = m_work.filePath(u"big"_s); // A (large), B (small), C (large): B waits for its turn behind A
    QString m_k4 = m_work.filePath(u"k4/Talk.key"_s), m_k5 = m_work.filePath(u"k5/Newer.key"_s); // to copy

    QStringList runFolders() const { return QDir(m_program.scratch()).entryList({u"run-*"_s}, QDir::AllEntries); }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_work.isValid());
        m_program.workingFolder = m_in;
        // Three packages named Talk.key; the first one given is by far the largest.
        PackageFactory(m_in + u"/a"_s)
            .makeLarge(u"Talk.key"_s, 24 << 20, 1, PackageFactory::keynoteFourDocument(u"first"_s));
        PackageFactory(m_in + u"/b"_s).make(u"Talk.key"_s, PackageFactory::keynoteFourDocument(u"second"_s));
        const PackageFactory c(m_in + u"/c"_s);
        c.make(u"Talk.key"_s, PackageFactory::keynoteFourDocument(u"third"_s));
        c.make(u"Other.key"_s);
        c.makeWithoutIndex(u"Hollow.key"_s);
        PackageFactory(m_in).make(u"Newer.key"_s, PackageFactory::keynoteFiveDocument());
        // A file named like a package is none.
        QVERIFY(Program::sh(u"mkdir -p empty/sub; : > empty/sub/Fake.key; : > Talk.pdf"_s, m_in));
        PackageFactory(m_big).makeLarge(u"A.key"_s, 64 << 20, 1);
        PackageFactory(m_big).make(u"B.key"_s);
        PackageFactory(m_big).makeLarge(u"C.key"_s, 64 << 20, 3);
        PackageFactory(m_work.filePath(u"k4"_s)).make(u"Talk.key"_s);
        PackageFactory(m_work.filePath(u"k5"_s)).make(u"Newer.key"_s, PackageFactory::keynoteFiveDocument());
    }

    void archiveOptions_data()
    {
        QTest::addColumn<QString>("script");        // makes in/ and out/ in the row's folder, copying $K4 and $K5
        QTest::addColumn<QStringList>("arguments"); // after convert --output OUT, run in in/
        QTest::addColumn<QString>("lines");         // OUT: the output folder; K4, K5: the packages' bytes
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("summary"); // up to the time it took
        QTest::addColumn<QString>("tree");    // the output folder's
        QTest::newRow("keep folders: natural order, numbers per folder, nothing through a link")
            << u"mkdir -p in/D/2008/Misc in/D/B in/D/C out/2008/Misc; : > 'out/2008/Misc/Talk 2.key'; : > out/C; "
               "ln -s . out/B; cd in/D; for t in 'Talk 1' 2008/Misc/'Talk 10' 2008/Misc/'Talk 2' B/Talk C/Talk; do "
               "cp -r \"$K4\" \"$t.key\"; done"_s
            << QStringList{u"--keep-folders"_s, u"D"_s}
            << u"converted: D/2008/Misc/Talk 2.key -> OUT/2008/Misc/Talk 2.1.key\n"
               "converted: D/2008/Misc/Talk 10.key -> OUT/2008/Misc/Talk 10.key\n"
               "failed: D/B/Talk.key: could not write OUT/B/Talk.key (OUT/B is a symbolic link)\n"
               "failed: D/C/Talk.key: could not write OUT/C/Talk.key (OUT/C is not a folder)\n"
               "converted: D/Talk 1.key -> OUT/Talk 1.key"_s
            << 1 << u"3 converted, 0 skipped, 2 failed in "_s
            << u"., 2008, 2008/Misc, 2008/Misc/Talk 10.key, 2008/Misc/Talk 2.1.key, 2008/Misc/Talk 2.key, B, C, "
               "Talk 1.key"_s;
        QTest::newRow("control characters quoted")
            << u"mkdir -p in/Q out; cd in/Q; cp -r \"$K4\" \"$(printf 'Evil\\nconverted: x -> y.key')\"; "
               "mkdir \"$(printf 'Bad\\tname.key')\""_s
            << QStringList{u"Q"_s}
            << u"skipped: 'Q/Bad'$'\\t''name.key': not a Keynote 4 file (index.apxl.gz is missing)\n"
               "converted: 'Q/Evil'$'\\n''converted: x -> y.key' -> 'OUT/Evil'$'\\n''converted: x -> y.key'"_s
            << 1 << u"1 converted, 1 skipped, 0 failed in "_s << u"., Evil\nconverted: x -> y.key"_s;
        QTest::newRow("JSON, quiet")
            << u"mkdir -p in/Q out; cd in/Q; cp -r \"$K4\" Talk.key; cp -r \"$K5\" Newer.key; mkdir Hollow.key"_s
            << QStringList{u"--json"_s, u"--quiet"_s, u"Q"_s, u"Gone.key"_s}
            << u"{\"bytes\":0,\"code\":2,\"input\":\"Q/Hollow.key\",\"outcome\":\"skipped\",\"output\":null,"
               "\"reason\":\"index.apxl.gz is missing\",\"seconds\":0}\n"
               "{\"bytes\":K5,\"code\":2,\"input\":\"Q/Newer.key\",\"outcome\":\"skipped\",\"output\":null,"
               "\"reason\":\"already in the Keynote '09 format\",\"seconds\":0}\n"
               "{\"bytes\":K4,\"code\":0,\"input\":\"Q/Talk.key\",\"outcome\":\"converted\",\"output\":"
               "\"OUT/Talk.key\",\"reason\":null,\"seconds\":0}\n"
               "{\"bytes\":0,\"code\":null,\"input\":\"Gone.key\",\"outcome\":\"skipped\",\"output\":null,"
               "\"reason\":\"it was not found\",\"seconds\":0}"_s
            << 1 << QString() << u"., Talk.key"_s;
        // Nothing to do is no failure: a Keynote '09 package, a package converted before.
        QTest::newRow("skip existing: what is there, and the same name twice")
            << u"mkdir -p in/Q in/R out; : > out/Other.key; cd in; cp -r \"$K4\" Q/Talk.key; "
               "cp -r \"$K4\" Q/Other.key; cp -r \"$K5\" Q/Newer.key; cp -r \"$K4\" R/Talk.key"_s
            << QStringList{u"--skip-existing"_s, u"Q"_s, u"R"_s}
            << u"skipped: Q/Newer.key: not a Keynote 4 file (already in the Keynote '09 format)\n"
               "already-done: Q/Other.key: OUT/Other.key exists\n"
               "converted: Q/Talk.key -> OUT/Talk.key\n"
               "already-done: R/Talk.key: OUT/Talk.key exists"_s
            << 0 << u"1 converted, 2 already done, 1 skipped, 0 failed in "_s << u"., Other.key, Talk.key"_s;
    }

    // The options for converting an archive, one after another and at once alike.
    void archiveOptions()
    {
        QFETCH(QString, script);
        QFETCH(QStringList, arguments);
        QFETCH(QString, lines);
        QFETCH(int, status);
        QFETCH(QString, summary);
        QFETCH(QString, tree);
        for (const QString &jobs : {u"1"_s, u"2"_s}) {
            const QTemporaryDir row(m_work.filePath(u"row-XXXXXX"_s));
            QVERIFY(Program::sh(script, row.path(), {{u"K4"_s, m_k4}, {u"K5"_s, m_k5}}));
            Program program = m_program;
            program.workingFolder = row.filePath(u"in"_s);
            const QString out = row.filePath(u"out"_s);
            const Finished run
                = program.run(Program::deckwright(QStringList{u"convert"_s, u"-j"_s, jobs, u"-o"_s, out} + arguments));
            QStringList got = run.lines();
            for (QString &line : got) {
                QJsonObject object = QJsonDocument::fromJson(line.toUtf8()).object();
                if (object.isEmpty())
                    continue;
                QVERIFY2(object.value(u"seconds"_s).toDouble(-1) >= 0, qPrintable(line));
                object[u"seconds"_s] = 0;
                line = QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
            }
            QCOMPARE(got.join(u'\n'), QString(lines)
                                          .replace(u"OUT"_s, out)
                                          .replace(u"K4"_s, QString::number(Tree::fileBytes(m_k4)))
                                          .replace(u"K5"_s, QString::number(Tree::fileBytes(m_k5))));
            QCOMPARE(run.status, status);
            QVERIFY2(summary.isEmpty()
                         ? run.err.isEmpty()
                         : run.err.startsWith(summary.toUtf8()) && run.err.endsWith(" s\n") && run.err.count('\n') == 1,
                     run.err);
            QCOMPARE(Tree::of(out).paths(), tree);
        }
    }

    // On a terminal one line rewrites itself, making way for each result; on a pipe there is none.
    void progressOnlyOnATerminal()
    {
        const QString result
            = u"skipped: c/Hollow.key: not a Keynote 4 file (index.apxl.gz is missing)\n"
              "converted: c/Other.key -> %1/Other.key\nconverted: c/Talk.key -> %1/Talk.key\n"_s;
        const QRegularExpression drawn(u"\r([^\r\n]*)\x1b\\[K"_s);
        const QRegularExpression progress(
            u"^$|^[123]/3 c/\\w+\\.key \\d+% · [\\d.]+ \\w+ left( · about [^·]+ left)?$"_s);
        for (const QString &jobs : {u"1"_s, u"2"_s}) {
            const QTemporaryDir ttyDir(m_work.filePath(u"tty-XXXXXX"_s)), pipeDir(m_work.filePath(u"pipe-XXXXXX"_s));
            QString command;
            for (const QString &word :
                 Program::deckwright({u"convert"_s, u"-j"_s, jobs, u"-o"_s, ttyDir.path(), u"c"_s}))
                command += u" '"_s + word + u'\'';
            const Finished tty = m_program.run({u"script"_s, u"-qec"_s, command, u"/dev/null"_s});
            QString transcript = QString::fromUtf8(tty.out);
            QStringList draws;
            for (const QRegularExpressionMatch &draw : drawn.globalMatch(transcript))
                draws.append(draw.captured(1));
            QVERIFY2(draws.filter(progress).size() == draws.size()
                         && !draws.filter(QRegularExpression(u"^1/3 c/Hollow.key 0% · "_s)).isEmpty(),
                     qPrintable(draws.join(u'\n')));
            // Without the progress line, the terminal shows the results and the summary, each on a line of its own.
            const QStringList shown = transcript.remove(drawn).split(u"\r\n"_s);
            QCOMPARE(shown.mid(0, 3).join(u'\n') + u'\n', result.arg(ttyDir.path()));
            QVERIFY2(shown.value(3).startsWith(u"2 converted, 1 skipped, 0 failed in "_s), qPrintable(shown.value(3)));

            const Finished pipe
                = m_program.run(Program::deckwright({u"convert"_s, u"-j"_s, jobs, u"-o"_s, pipeDir.path(), u"c"_s}));
            QCOMPARE(QString::fromUtf8(pipe.out), result.arg(pipeDir.path()));
            QVERIFY2(pipe.err.startsWith("2 converted, 1 skipped, 0 failed in ") && pipe.err.count('\n') == 1,
                     pipe.err);
        }
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
        const QTemporaryDir oneDir(m_work.filePath(u"one-XXXXXX"_s)), manyDir(m_work.filePath(u"many-XXXXXX"_s));
        const QString one = oneDir.path(), many = manyDir.path();
        QVERIFY(!taken
                || Program::sh(u"echo not ours | tee \"$ONE/Talk.key\" > \"$MANY/Talk.key\""_s, m_in,
                               {{u"ONE"_s, one}, {u"MANY"_s, many}}));
        const QStringList batch = u"a b/Talk.key empty missing.key Talk.pdf c Newer.key b/Talk.key/"_s.split(u' ');
        const Finished sequential = m_program.run(Program::deckwright(
            QStringList{u"convert"_s, u"--jobs"_s, u"1"_s, u"--layout"_s, layout, u"--output="_s + one} + batch));
        const Finished parallel = m_program.run(Program::deckwright(
            QStringList{u"convert"_s, u"-j"_s, QString::number(jobs), u"-l"_s, layout, u"-o"_s, many} + batch));

        // The batch as one after another sees it: folders expanded in place,
        // the first Talk.key given named first, each item named as it was given.
        const auto talk = [taken](int n) { return n + taken ? u"Talk.%1.key"_s.arg(n + taken) : u"Talk.key"_s; };
        QCOMPARE(sequential.status, 1);
        QCOMPARE(sequential.lines().join(u'\n'),
                 u"converted: a/Talk.key -> %1/%2\n"
                 u"converted: b/Talk.key -> %1/%3\n"
                 u"skipped: empty: no Keynote packages in it\n"
                 u"skipped: missing.key: not found\n"
                 u"skipped: Talk.pdf: not a Keynote file (its name does not end in .key)\n"
                 u"skipped: c/Hollow.key: not a Keynote 4 file (index.apxl.gz is missing)\n"
                 u"converted: c/Other.key -> %1/Other.key\n"
                 u"converted: c/Talk.key -> %1/%4\n"
                 u"skipped: Newer.key: not a Keynote 4 file (already in the Keynote '09 format)\n"
                 u"converted: b/Talk.key/ -> %1/%5"_s.arg(one, talk(0), talk(1), talk(2), talk(3)));
        QVERIFY2(sequential.err.startsWith("5 converted, 5 skipped, 0 failed in ") && sequential.err.count('\n') == 1,
                 sequential.err);
        QCOMPARE(parallel.err.left(parallel.err.indexOf(" in ")), sequential.err.left(sequential.err.indexOf(" in ")));
        // The command neither reads nor writes the person's settings.
        QVERIFY(!QFileInfo::exists(m_program.config()));
        const auto written = outputs(one);
        QCOMPARE(written.value(talk(0)).value("index.apxl"),
                 Tree::sha1(PackageFactory::keynoteFourDocument(u"first"_s).replace("72007061400", "92008102400")));
        // --layout reaches the converter; what each layout holds is the converter's to show.
        QCOMPARE(written.value(talk(0)).value("<root>"), layout == u"root"_s ? "yes" : "no");

        QCOMPARE(parallel.status, sequential.status);
        QCOMPARE(parallel.lines().join(u'\n').replace(many, u"OUT"_s),
                 sequential.lines().join(u'\n').replace(one, u"OUT"_s));
        QCOMPARE(outputs(many), written);
        QCOMPARE(runFolders(), QStringList());
    }

    void aSignalStopsTheBatchAndALostWorkerOnlyItsPackage_data()
    {
        QTest::addColumn<int>("signalNumber");
        QTest::addColumn<QString>("to"); // the command's group, as Ctrl+C sends it; the command; C's worker
        QTest::newRow("Ctrl+C") << SIGINT << "group";
        QTest::newRow("SIGTERM to the command") << SIGTERM << "command";
        QTest::newRow("SIGHUP to the command") << SIGHUP << "command";
        // As the system kills a process out of memory: no run after it removes its folder.
        QTest::newRow("the worker zipping C killed") << SIGKILL << "worker";
    }

    void aSignalStopsTheBatchAndALostWorkerOnlyItsPackage()
    {
        QFETCH(int, signalNumber);
        QFETCH(QString, to);
        const QTemporaryDir outDir(m_work.filePath(u"stopped-XXXXXX"_s));
        const QString out = outDir.path();
        const bool lost = to == u"worker"_s;
        const auto process = m_program.start(
            Program::deckwright({u"convert"_s, u"--jobs"_s, lost ? u"2"_s : u"3"_s, u"--output"_s, out, m_big}));
        // Mid-batch, with a worker at its longest stage (C, the last to start,
        // when a worker is to be lost). Only what is asked: two zipping at the
        // same moment is not certain on a loaded machine.
        qint64 worker = 0;
        Program::waitUntil(*process, [&] {
            for (const RunningProcess &found : Program::mentioning(QFile::encodeName(m_program.scratch())))
                if (found.program == u"zip"_s && found.commandLine.contains(lost ? "/C.zip" : "/"))
                    worker = found.parent;
            return worker != 0;
        });
        QVERIFY2(worker > 0, "no large package was ever zipped");
        const pid_t pid = pid_t(lost ? worker : process->processId());
        QCOMPARE(::kill(to == u"group"_s ? -pid : pid, signalNumber), 0);
        const Finished run = Program::finish(*process);
        QCOMPARE(run.signal, lost ? 0 : signalNumber);
        QCOMPARE(run.status, lost ? 1 : -1);
        const QString lines
            = u"converted: %1/A.key -> %2/A.key\nconverted: %1/B.key -> %2/B.key\n"
              u"failed: %1/C.key: the process converting it ended unexpectedly (signal 9, Killed)"_s;
        QCOMPARE(run.lines(), lost ? lines.arg(m_big, out).split(u'\n') : QStringList());
        QCOMPARE(Tree::of(out).paths(), lost ? u"., A.key, B.key"_s : u"."_s);
        QCOMPARE(runFolders(), QStringList());
        QCOMPARE(m_program.leftovers().size(), 0);
    }

    // Ctrl+C on a terminal: the progress line is gone before the shell's prompt comes back.
    void ctrlCOnATerminalTakesTheLineAway_data()
    {
        QTest::addColumn<QString>("jobs");
        QTest::newRow("one after another") << u"1"_s;
        QTest::newRow("two at once") << u"2"_s;
    }

    void ctrlCOnATerminalTakesTheLineAway()
    {
        QFETCH(QString, jobs);
        const QTemporaryDir outDir(m_work.filePath(u"tty-stopped-XXXXXX"_s));
        QString command;
        for (const QString &word : Program::deckwright({u"convert"_s, u"-j"_s, jobs, u"-o"_s, outDir.path(), m_big}))
            command += u" '"_s + word + u'\'';
        const auto process = m_program.start({u"script"_s, u"-qec"_s, command, u"/dev/null"_s});
        // Ctrl+C reaches the terminal's foreground group: the session script made, once A is being zipped.
        pid_t session = 0;
        Program::waitUntil(*process, [&] {
            for (const RunningProcess &found : Program::mentioning(QFile::encodeName(m_program.scratch())))
                if (found.program == u"zip"_s)
                    session = ::getsid(pid_t(found.parent));
            return session > 0;
        });
        QVERIFY2(session > 0, "the large package was never zipped");
        QCOMPARE(::kill(-session, SIGINT), 0);
        const QString transcript = QString::fromUtf8(Program::finish(*process).out);
        QVERIFY2(transcript.contains(u"\r1/3 "_s) && transcript.endsWith(u"\r\x1b[K"_s), qPrintable(transcript));
        QCOMPARE(Tree::of(outDir.path()).paths(), u"."_s);
    }

    void aLineThatCannotBeWrittenEndsTheCommand_data()
    {
        QTest::addColumn<QString>("shell"); // runs the command, "$@", with its standard output failing
        QTest::addColumn<QStringList>("command");
        QTest::addColumn<QString>("reason");
        const QString noReader = u"exec perl -e 'pipe R, W; close R; open STDOUT, \">&W\"; exec @ARGV' \"$@\""_s;
        for (const QString &jobs : {u"1"_s, u"2"_s}) {
            const QStringList convert{u"convert"_s, u"--jobs"_s, jobs, u"--output"_s};
            QTest::addRow("full disk, %s jobs", qPrintable(jobs))
                << u"exec \"$@\" >/dev/full"_s << convert << u"No space left on device"_s;
            QTest::addRow("closed, %s jobs", qPrintable(jobs))
                << u"exec \"$@\" >&-"_s << convert << u"Bad file descriptor"_s;
            QTest::addRow("pipe without a reader, %s jobs", qPrintable(jobs))
                << noReader << convert << u"Broken pipe"_s;
        }
        QTest::newRow("check, full disk")
            << u"exec \"$@\" >/dev/full"_s << QStringList{u"check"_s} << u"No space left on device"_s;
    }

    // A result that cannot be told ends the batch at once, undone, and says so.
    void aLineThatCannotBeWrittenEndsTheCommand()
    {
        QFETCH(QString, shell);
        QFETCH(QStringList, command);
        QFETCH(QString, reason);
        const QTemporaryDir outDir(m_work.filePath(u"unwritten-XXXXXX"_s));
        if (command.size() > 1)
            command.append(outDir.path());
        const Finished run = m_program.run(QStringList{u"sh"_s, u"-c"_s, shell, u"sh"_s}
                                           + Program::deckwright(command + QStringList{u"c"_s}));
        QCOMPARE(run.status, 3);
        QCOMPARE(run.firstErrorLine(),
                 u"deckwright %1: could not write to standard output (%2)"_s.arg(command[0], reason));
        QCOMPARE(Tree::of(outDir.path()).paths(), u"."_s);
        QCOMPARE(runFolders(), QStringList());
        QCOMPARE(m_program.leftovers().size(), 0);
    }

    void aWorkerThatCannotServeFailsItsItems_data()
    {
        QTest::addColumn<QString>("script"); // what sh runs as the worker; none: a worker that cannot start
        QTest::addColumn<QString>("reason"); // the start of it
        QTest::newRow("cannot start") << QString() << "no process could be started to convert it (";
        QTest::newRow("ends at once") << "exit 3"
                                      << "the process converting it ended unexpectedly (exit status 3)";
        QTest::newRow("says nonsense") << "read a; echo nonsense; read a"
                                       << "the process converting it said something unexpected";
        QTest::newRow("says too much") << "read a; head -c 2000000 /dev/zero; read a"
                                       << "the process converting it said more than it should";
    }

    // In this process, with workers that are not ours: each item fails with
    // the reason, and the batch ends instead of waiting for answers.
    void aWorkerThatCannotServeFailsItsItems()
    {
        QFETCH(QString, script);
        QFETCH(QString, reason);
        QString printed;
        QTextStream out(&printed);
        ConvertReport report(out, out, u"/out"_s, {});
        ConvertJobs batch(script.isEmpty() ? m_work.filePath(u"nowhere/deckwright"_s) : u"/bin/sh"_s, {u"-c"_s, script},
                          OutputFolder::open(u"/out"_s), report);
        const QList<ConvertJobs::Item> items{{u"x.key"_s, u"/in/x.key"_s, {}, std::nullopt},
                                             {u"folder"_s, {}, {}, ConvertOutcome(ConvertOutcome::NoPackages)},
                                             {u"y.key"_s, u"/in/y.key"_s, {}, std::nullopt},
                                             {u"z.key"_s, u"/in/z.key"_s, {}, std::nullopt}};
        QList<ConvertReport::Item> shown;
        for (const ConvertJobs::Item &item : items)
            shown.append({item.shown, 0});
        report.begin(shown);
        batch.run(items, 2);
        QCOMPARE(report.status(), 1);
        const QStringList lines = printed.split(u'\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 4);
        QCOMPARE(lines[1], u"skipped: folder: no Keynote packages in it"_s);
        for (const int i : {0, 2, 3})
            QVERIFY2(lines[i].startsWith(u"failed: %1: %2"_s.arg(items[i].shown, reason)), qPrintable(lines[i]));
    }
};

QTEST_GUILESS_MAIN(TestConvertJobs)
#include "TestConvertJobs.moc"
