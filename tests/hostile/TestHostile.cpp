#include "support/Archive.h"
#include "support/PackageFactory.h"
#include "support/Program.h"
#include "support/Tree.h"

#include <QtTest>

#include <algorithm>
#include <csignal>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

// Attacks the built program with hostile packages, planted names, a hostile
// environment, full disks and signals, and checks each promise by its effects
// on the disk and in the process table.
namespace {
// Binds a socket there; its name stays on disk once the socket is closed.
const QString bindSocket = u"perl -MIO::Socket::UNIX -e 'IO::Socket::UNIX->new(Local => shift, Listen => 1)' "_s;

// One case's folders: packages in in/, results in out/, and the program's
// own scratch and settings folders.
struct Site
{
    explicit Site(const QString &folder)
        : dir(folder)
        , in(folder + u"/in"_s)
        , out(folder + u"/out"_s)
        , program(folder)
    {
        QDir().mkpath(in);
        QDir().mkpath(out);
        // Every run meets tool options that would store the document or drop the pictures.
        for (const auto &[name, value] :
             {std::pair{"ZIPOPT", "-0 -x *.jpg"}, {"ZIP", "-0"}, {"GZIP", "-1"}, {"UNZIP", "-x *"}})
            program.env.insert(QString::fromLatin1(name), QString::fromLatin1(value));
    }
    QStringList convert(const QStringList &packages, const QString &folder = {}) const
    {
        return Program::deckwright(QStringList{u"convert"_s, u"--output"_s, folder.isEmpty() ? out : folder}
                                   + packages);
    }

    QString dir, in, out;
    Program program;
};
} // namespace

class TestHostile : public QObject
{
    Q_OBJECT

    QTemporaryDir m_work;
    QString m_victim = m_work.filePath(u"victim"_s), m_big;
    QList<Tree> m_outside;
    Tree m_bigBefore;
    int m_count = 0;

    Site site() { return Site(m_work.filePath(QString::number(++m_count))); }
    QList<Tree> outside() { return {Tree::of(m_victim, Tree::WithTimes), Tree::of(u"/etc/passwd"_s, Tree::WithTimes)}; }

    // The archive must test whole and hold exactly the package's files, its document rewritten and deflated.
    void checkArchive(const QString &path, const QString &package)
    {
        const Archive archive(path);
        QVERIFY2(archive.isWhole() && archive.isDeflated(), qPrintable(path + u" is damaged or stores all"_s));
        QProcess gunzip;
        gunzip.start(u"gunzip"_s, {u"-c"_s, package + u"/index.apxl.gz"_s});
        gunzip.waitForFinished(-1);
        auto want = Tree::of(package).fileHashes();
        want.remove("index.apxl.gz");
        want.insert("index.apxl", Tree::sha1(gunzip.readAllStandardOutput().replace("72007061400", "92008102400")));
        const auto got = archive.packageFiles();
        QVERIFY2(got == want,
                 qPrintable(u"%1 holds [%2], the package [%3]"_s.arg(path, QString::fromUtf8(got.keys().join(", ")),
                                                                     QString::fromUtf8(want.keys().join(", ")))));
    }

    // What a finished command may leave: these archives, each whole, and the
    // other entries of the output folder as they were; an empty scratch folder;
    // files outside as they were.
    void checkOutcome(const Site &s, const QMap<QString, QString> &archives, Tree others = {})
    {
        Tree left = Tree::of(s.out);
        for (auto it = archives.begin(); it != archives.end(); ++it) {
            left.remove(it.key().toUtf8());
            checkArchive(s.out + u'/' + it.key(), it.value());
        }
        left.remove(".");
        others.remove(".");
        QVERIFY2(left == others, qPrintable(u"the output folder holds: "_s + Tree::of(s.out).paths()));
        // A command that never needed one may not have made the scratch folder at all.
        const Tree scratch = Tree::of(s.program.runtime());
        QVERIFY2(scratch.size() == 1 || (scratch.size() == 2 && scratch.contains("deckwright")),
                 qPrintable(u"the scratch folder holds: "_s + scratch.paths()));
        QVERIFY2(outside() == m_outside, "a file outside the package changed");
    }

    // Converts the packages into the output folder (named as given) and checks
    // that the command printed exactly these lines (%1 the package, %2 the
    // output folder; from a "*" on, a line may say anything) with the status
    // they call for, left the packages' folder as it was, and left what
    // checkOutcome allows.
    void convert(const Site &s, const QStringList &packages, QStringList lines, Program::As as = Program::Me,
                 const QString &outputAsGiven = {})
    {
        const Tree sources = Tree::of(s.in, Tree::WithTimes), planted = Tree::of(s.out);
        const Finished r = s.program.run(s.convert(packages, outputAsGiven), as);
        const QStringList got = r.lines();
        QMap<QString, QString> archives;
        bool same = got.size() == lines.size();
        for (qsizetype i = 0; i < lines.size(); ++i) {
            lines[i].replace(u"%1"_s, packages.value(i)).replace(u"%2"_s, s.out);
            same = same
                   && (lines[i].contains(u'*') ? got[i].startsWith(lines[i].section(u'*', 0, 0)) : got[i] == lines[i]);
            if (lines[i].startsWith(u"converted: "_s))
                archives.insert(lines[i].section(u'/', -1), QFileInfo(packages[i]).canonicalFilePath());
        }
        QVERIFY2(same, qPrintable(got.join(u'\n')));
        QCOMPARE(r.status, archives.size() == lines.size() ? 0 : 1);
        QCOMPARE(Tree::of(s.in, Tree::WithTimes), sources);
        checkOutcome(s, archives, planted);
    }

private Q_SLOTS:
    void initTestCase()
    {
        // Files outside every package that no conversion may touch.
        QVERIFY(
            Program::sh(u"mkdir -p victim/sub; cd victim; printf secret > secret.txt; printf mine > sub/precious;"
                        "printf '<a key:version=\"72007061400\"/>' | gzip > doc.apxl.gz"_s,
                        m_work.path()));
        m_outside = outside();
    }

    // Read-only folders, names that are not UTF-8 and deep trees defeat QTemporaryDir.
    void cleanupTestCase() { QVERIFY(Program::sh(u"chmod -R u+rwX . && find . -mindepth 1 -delete"_s, m_work.path())); }

    void convertsOrRefusesEachPackageWhole_data()
    {
        QTest::addColumn<QString>("script");   // run as root in Talk.key; $VICTIM holds files outside, $OUT the output
        QTest::addColumn<QString>("argument"); // the name given for it, in the same folder
        QTest::addColumn<QString>("line");     // %1 the package, %2 the output folder
        QTest::addColumn<bool>("asNobody");
        const auto row
            = [](const char *tag, const QString &script, const QString &line, const QString &argument = u"Talk.key"_s,
                 bool asNobody = false) { QTest::newRow(tag) << script << argument << line << asNobody; };
        const auto skip
            = [](const QString &reason) { return u"skipped: %1: not a Keynote 4 file ("_s + reason + u')'; };
        const auto to = [](const QString &name) { return u"converted: %1 -> %2/"_s + name; };
        const QString out = u"it holds a link to a file outside the package: "_s, talk = u"Talk.key"_s;
        row("document a link out", "printf garbage > index.apxl.gz; ln -s \"$VICTIM/secret.txt\" index.apxl",
            skip(out + "index.apxl"));
        row("relative link out, gz a folder",
            "rm index.apxl.gz; mkdir index.apxl.gz; ln -s ../../../victim/secret.txt index.apxl",
            skip(out + "index.apxl"));
        row("document a link inside", "ln -s 'Data/photo one.jpg' index.apxl",
            skip("it holds a symbolic link: index.apxl"));
        row("link to /etc/passwd", "ln -s /etc/passwd Data/passwd", skip(out + "Data/passwd"));
        row("link to a folder outside", "ln -s \"$VICTIM\" Data/victim", skip(out + "Data/victim"));
        row("link to itself", "ln -s . self", skip("it holds a symbolic link: self"));
        row("link to /", "ln -s / root", skip(out + "root"));
        row("link out through a subfolder", "ln -s Data/../.. up", skip(out + "up"));
        row("gz a link to a document outside", "rm index.apxl.gz; ln -s \"$VICTIM/doc.apxl.gz\" index.apxl.gz",
            skip(out + "index.apxl.gz"));
        row("gz a FIFO", "rm index.apxl.gz; mkfifo index.apxl.gz", skip("it holds a FIFO: index.apxl.gz"));
        row("socket", "perl -MIO::Socket::UNIX -e 'IO::Socket::UNIX->new(Local => \"Data/sock\", Listen => 1)'",
            skip("it holds a socket: Data/sock"));
        row("device", "mknod Data/null c 1 3", skip("it holds a device: Data/null"));
        row("deeper than PATH_MAX", "d=.; for i in $(seq 2100); do d=$d/d; done; mkdir -p $d",
            skip("a path in it is too long to copy: d/d/*"));
        row("package a single file", "cd ..; rm -r Talk.key; cp \"$VICTIM/doc.apxl.gz\" Talk.key",
            skip("it is a single file, not a Keynote '08 package"));
        row("package a FIFO", "cd ..; rm -r Talk.key; mkfifo Talk.key", skip("*"));
        // Root reads everything; what an unprivileged person cannot read is refused, not half copied.
        row("unreadable file", "printf secret > Data/secret.jpg; chmod 000 Data/secret.jpg",
            skip("it holds a file that could not be read: Data/secret.jpg"), talk, true);
        row("unreadable folder", "mkdir -p Hidden/Inner; printf x > Hidden/Inner/a; chmod 000 Hidden",
            skip("it holds a folder that could not be read: Hidden"), talk, true);
        row("read-only package", "find . -type f -exec chmod 0444 {} +; find . -type d -exec chmod 0555 {} +", to(talk),
            talk, true);
        row("file name not UTF-8", "printf 'not utf-8' > \"Data/$(printf 'caf\\351.jpg')\"", to(talk));
        row("300 folders deep", "d=.; for i in $(seq 300); do d=$d/d; done; mkdir -p $d; printf deep > $d/leaf.txt",
            to(talk));
        row("hidden file, empty folder", "printf x > .hidden; mkdir Empty", to(talk));
        row("given as a link", "ln -s Talk.key ../Alias.key", to(talk), u"Alias.key"_s);
        const QString longest = QString(251, u'T') + u".key"_s, dotted = u"Talk.v2.final.key"_s;
        row("name of 255 bytes", "cd ..; mv Talk.key \"$ARG\"", to(longest), longest);
        row("name with dots", "cd ..; mv Talk.key \"$ARG\"", to(dotted), dotted);
        // Well inside the document size limit, and far beyond any real deck.
        row("document of 200 MB",
            "{ printf '<key:presentation key:version=\"72007061400\">'; yes '<key:notes>Lorem ipsum.</key:notes>' "
            "| head -c 200000000; printf '</key:presentation>'; } | gzip -1 -n > index.apxl.gz",
            to(talk));
        // Names in use in the output folder are never written over or through: the next number serves.
        row("output name a dangling link out", "ln -s \"$VICTIM/planted.key\" \"$OUT/Talk.key\"", to("Talk.1.key"));
        row("output name a link to a file outside", "ln -s \"$VICTIM/secret.txt\" \"$OUT/Talk.key\"", to("Talk.1.key"));
        row("output names a file, folder, link",
            "cd \"$OUT\"; printf mine > Talk.key; mkdir Talk.1.key; "
            "ln -s \"$VICTIM/planted.2.key\" Talk.2.key",
            to("Talk.3.key"));
        row("output name in use, dotted", "cd ..; mv Talk.key \"$ARG\"; printf mine > \"$OUT/$ARG\"", to("Talk.1.key"),
            dotted);
        // The numbered name (the part before the first dot + ".1.key") outgrows 255 bytes.
        row("output name in use, no numbered name fits", "cd ..; mv Talk.key \"$ARG\"; printf mine > \"$OUT/$ARG\"",
            u"failed: %1: could not write %2/"_s + longest.chopped(4) + u".1.key (File name too long)"_s, longest);
    }

    void convertsOrRefusesEachPackageWhole()
    {
        QFETCH(QString, script);
        QFETCH(QString, argument);
        QFETCH(QString, line);
        QFETCH(bool, asNobody);
        if (script.startsWith(u"mknod"_s) && ::geteuid() != 0)
            QSKIP("making a device needs root");
        if (asNobody && !Program::canRunAsNobody())
            QSKIP(Program::whyNotAsNobody());
        const Site s = site();
        // Everything on the way is open to nobody; the scratch and output folders are nobody's.
        for (const QString &folder : {m_work.path(), s.dir, s.in})
            QVERIFY(!asNobody
                    || QFile::setPermissions(folder, QFile::permissions(folder) | QFile::ReadOther | QFile::ExeOther));
        QVERIFY(!asNobody || (Program::giveToNobody(s.program.runtime()) && Program::giveToNobody(s.out)));
        const QString after = PackageFactory(s.in).make(u"After.key"_s);
        QVERIFY(Program::sh(script, PackageFactory(s.in).make(u"Talk.key"_s),
                            {{u"VICTIM"_s, m_victim}, {u"ARG"_s, argument}, {u"OUT"_s, s.out}}));
        // An output folder given in a roundabout way is named by its clean absolute path.
        convert(s, {s.in + u'/' + argument, after}, {line, u"converted: %1 -> %2/After.key"_s},
                asNobody ? Program::Nobody : Program::Me, s.out + u"/../out/./"_s);
    }

    void leavesAPlantedScratchNameAlone_data()
    {
        QTest::addColumn<bool>("runtime");   // $XDG_RUNTIME_DIR, or the temporary folder without it
        QTest::addColumn<QString>("script"); // plants $NAME in that folder; $SRC holds the package
        QTest::newRow("runtime: link to the package's folder") << true << "ln -s \"$SRC\" \"$NAME\"";
        QTest::newRow("tmp: link to the package's folder") << false << "ln -s \"$SRC\" \"$NAME\"";
        QTest::newRow("runtime: folder open to all")
            << true << "mkdir -m 0777 \"$NAME\"; printf theirs > \"$NAME/Talk.zip\"";
        QTest::newRow("runtime: another user's folder")
            << true << "mkdir -m 0700 \"$NAME\"; printf theirs > \"$NAME/x\"; chown -R nobody \"$NAME\"";
        QTest::newRow("tmp: a file") << false << "printf theirs > \"$NAME\"";
    }

    void leavesAPlantedScratchNameAlone()
    {
        QFETCH(bool, runtime);
        QFETCH(QString, script);
        if (script.contains(u"chown"_s) && ::geteuid() != 0)
            QSKIP("giving a folder to another user needs root");
        Site s = site();
        const QString base = s.dir + u"/base"_s, name = runtime ? u"deckwright"_s : u"deckwright-%1"_s.arg(::getuid());
        const QString package = PackageFactory(s.in).make(u"Talk.key"_s);
        QVERIFY(Program::sh(u"printf neighbour > in/notes.txt; mkdir -m 0700 base; cd base; "_s + script, s.dir,
                            {{u"NAME"_s, name}, {u"SRC"_s, s.in}}));
        s.program.env.remove(u"XDG_RUNTIME_DIR"_s);
        s.program.env.insert(runtime ? u"XDG_RUNTIME_DIR"_s : u"TMPDIR"_s, base);
        Tree expected = Tree::of(base);
        convert(s, {package}, {u"converted: %1 -> %2/Talk.key"_s});
        // The planted name as it was; the next name served, and is empty again.
        expected.insert((name + u"-1"_s).toUtf8(), "drwx------");
        QCOMPARE(Tree::of(base), expected);
    }

    void sweepsStaleLeftoversButNotLiveRuns()
    {
        const Site s = site();
        const QString root = s.program.scratch(), package = PackageFactory(s.in).make(u"Talk.key"_s);
        // An old archive holding other entries, a killed run's folder, the folders
        // of the older layout straight in the root, a run still alive, and the
        // running application's socket, which is no scratch.
        QVERIFY(
            Program::sh(u"mkdir -m 0700 deckwright; cd deckwright; mkdir -p intruder run-dead01 run-live01/Talk "
                        "Talk.key/junk Talk/junk; printf evil > intruder/evil.txt; zip -qr Talk.zip intruder; "
                        "cp Talk.zip run-dead01/; rm -r intruder; printf live > run-live01/Talk/keep; "_s
                            + bindSocket + u"instance.sock"_s,
                        s.program.runtime()));
        Tree kept = Tree::of(root);
        kept.removeIf([](Tree::iterator entry) {
            return !entry.key().startsWith("run-live01") && entry.key() != "instance.sock" && entry.key() != ".";
        });
        const int live
            = ::open(QFile::encodeName(root + u"/run-live01"_s).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        QVERIFY(live >= 0 && ::flock(live, LOCK_EX) == 0);
        const QStringList lines = s.program.run(s.convert({package})).lines();
        ::close(live);
        QCOMPARE(lines, QStringList{u"converted: %1 -> %2/Talk.key"_s.arg(package, s.out)});
        QCOMPARE(Tree::of(root), kept);
        // Once its process is gone, the next run takes it away.
        QVERIFY(QFile::remove(root + u"/instance.sock"_s));
        convert(s, {package}, {u"converted: %1 -> %2/Talk.1.key"_s});
        checkArchive(s.out + u"/Talk.key"_s, package);
    }

    void concurrentRunsWriteWholeFilesUnderTheirOwnNames_data()
    {
        QTest::addColumn<QStringList>("packages"); // in in/, converted at the same time
        QTest::newRow("the same package") << QStringList{u"Talk.key"_s, u"Talk.key"_s};
        QTest::newRow("two packages of one name") << QStringList{u"a/Talk.key"_s, u"b/Talk.key"_s};
    }

    void concurrentRunsWriteWholeFilesUnderTheirOwnNames()
    {
        QFETCH(QStringList, packages);
        const Site s = site();
        std::vector<std::unique_ptr<QProcess>> processes;
        for (const QString &package : packages) {
            const QFileInfo info(s.in + u'/' + package);
            if (!info.exists()) // a few megabytes, different for each, so that the runs overlap
                PackageFactory(info.absolutePath())
                    .makeLarge(info.fileName(), 6 << 20, qHash(package), PackageFactory::keynoteFourDocument(package));
            processes.push_back(s.program.start(s.convert({info.filePath()})));
        }
        QMap<QString, QString> written;
        for (qsizetype i = 0; i < packages.size(); ++i) {
            const QString line = Program::finish(*processes[size_t(i)]).lines().value(0);
            const QString prefix = u"converted: %1/%2 -> %3/"_s.arg(s.in, packages[i], s.out);
            QVERIFY2(line.startsWith(prefix), qPrintable(line));
            written.insert(line.mid(prefix.size()), s.in + u'/' + packages[i]);
        }
        // Different names, each holding the package of the run that named it.
        QCOMPARE(written.keys(), QStringList({u"Talk.1.key"_s, u"Talk.key"_s}));
        checkOutcome(s, written);
    }

    void aSignalUndoesTheConversion_data()
    {
        QTest::addColumn<int>("signalNumber");
        for (const auto &[name, number] :
             {std::pair{"SIGINT", SIGINT}, {"SIGTERM", SIGTERM}, {"SIGHUP", SIGHUP}, {"SIGKILL", SIGKILL}})
            QTest::newRow(name) << number;
    }

    void aSignalUndoesTheConversion()
    {
        QFETCH(int, signalNumber);
        if (m_big.isEmpty()) {
            // Incompressible media, so that zip is busy for seconds.
            m_big = PackageFactory(m_work.filePath(u"big"_s)).makeLarge(u"Talk.key"_s, 200 << 20, 9);
            m_bigBefore = Tree::of(m_big, Tree::WithTimes);
        }
        const Site s = site();
        const auto process = s.program.start(s.convert({m_big}));
        QVERIFY2(Program::waitUntil(*process,
                                    [&] {
                                        const auto found = Program::mentioning(QFile::encodeName(s.program.scratch()));
                                        return std::any_of(found.begin(), found.end(), [](const RunningProcess &p) {
                                            return p.program == u"zip"_s;
                                        });
                                    })
                     && process->state() == QProcess::Running,
                 "zip never ran");
        ::kill(pid_t(process->processId()), signalNumber);
        QCOMPARE(Program::finish(*process).signal, signalNumber); // ended by that very signal
        QCOMPARE(s.program.leftovers().size(), 0);                // and no tool outlives it
        QCOMPARE(Tree::of(m_big, Tree::WithTimes), m_bigBefore);
        // A killed run's folder is the next run's to remove.
        if (signalNumber == SIGKILL)
            convert(s, {PackageFactory(s.in).make(u"Small.key"_s)}, {u"converted: %1 -> %2/Small.key"_s});
        else
            checkOutcome(s, {});
    }

    void refusesAGzipBombCheaply()
    {
        const Site s = site();
        // Gzip members concatenate: 16 of 64 MiB of zeros make a 1 GiB document.
        const QString package = PackageFactory(s.in).makeWithRawIndex(
            u"Bomb.key"_s, PackageFactory::gzip(QByteArray(64 << 20, '\0')).repeated(16));
        const auto process = s.program.start(s.convert({package}));
        qint64 peakKiB = -1;
        QFile status(u"/proc/%1/status"_s.arg(process->processId()));
        Program::waitUntil(*process, [&] {
            const QRegularExpressionMatch match
                = QRegularExpression(u"VmHWM:\\s+(\\d+) kB"_s)
                      .match(status.open(QIODevice::ReadOnly) ? status.readAll() : QString());
            status.close();
            peakKiB = qMax(peakKiB, match.captured(1).toLongLong());
            return false; // sampled until the command ends
        });
        QCOMPARE(Program::finish(*process).lines(),
                 QStringList{u"skipped: %1: not a Keynote 4 file (the document is larger than 256 MB)"_s.arg(package)});
        QVERIFY2(peakKiB > 0 && peakKiB < 150 * 1024, qPrintable(u"peak %1 KiB"_s.arg(peakKiB)));
        checkOutcome(s, {});
    }

    void placesLargePackagesWhereThereIsRoom_data()
    {
        QTest::addColumn<QString>("scratchSize");
        QTest::addColumn<QString>("outputSize");
        QTest::addColumn<int>("mediaKiB");
        QTest::addColumn<QString>("line"); // %1 the package, %2 the output folder
        // Far too small for the copy and its archive: the work moves to a
        // hidden run folder in the output folder, which goes with it.
        QTest::newRow("scratch too small") << u"1m"_s << QString() << 3072 << u"converted: %1 -> %2/Talk.key"_s;
        QTest::newRow("too large for both")
            << u"1m"_s << u"8m"_s << 3072
            << u"failed: %1: there is not enough free space to convert it: it needs about 70.3 MB, and there are "
               u"1.0 MB free for the scratch folder and 8.0 MB for the output folder"_s;
        QTest::newRow("output folder full")
            << QString() << u"256k"_s << 1024 << u"failed: %1: could not write %2/Talk.key (No space left on device)"_s;
    }

    void placesLargePackagesWhereThereIsRoom()
    {
        QFETCH(QString, scratchSize);
        QFETCH(QString, outputSize);
        QFETCH(int, mediaKiB);
        QFETCH(QString, line);
        const Site s = site();
        QStringList mounted;
        const auto unmount = qScopeGuard([&] {
            for (const QString &point : mounted)
                QProcess::execute(u"umount"_s, {u"-l"_s, point});
        });
        for (const auto &[point, size] : {std::pair{s.program.runtime(), scratchSize}, std::pair{s.out, outputSize}}) {
            const Finished mount = size.isEmpty()
                                       ? Finished{true, 0}
                                       : s.program.run({u"mount"_s, u"-t"_s, u"tmpfs"_s, u"-o"_s,
                                                        u"size=%1,mode=0700"_s.arg(size), u"tmpfs"_s, point});
            if (mount.status != 0)
                QSKIP(qPrintable(u"a small tmpfs cannot be mounted here: "_s + QString::fromLocal8Bit(mount.err)));
            if (!size.isEmpty())
                mounted << point;
        }
        convert(s, {PackageFactory(s.in).makeLarge(u"Talk.key"_s, mediaKiB * 1024, 7)}, {line});
    }

    void refusesAPackagePathThatIsNotUtf8_data()
    {
        QTest::addColumn<QByteArray>("path"); // relative to the case's folder
        QTest::newRow("package name") << QByteArray("in/caf\xe9.key");
        QTest::newRow("folder name") << QByteArray("in/caf\xe9/Talk.key");
    }

    void refusesAPackagePathThatIsNotUtf8()
    {
        QFETCH(QByteArray, path);
        const Site s = site();
        const QByteArray full = QFile::encodeName(s.dir) + '/' + path;
        ::mkdir(full.left(full.lastIndexOf('/')).constData(), 0755);
        QVERIFY(::rename(QFile::encodeName(PackageFactory(s.in).make(u"Made.key"_s)).constData(), full.constData())
                == 0);
        const Tree before = Tree::of(s.in, Tree::WithTimes);
        // Only a shell hands the raw bytes on: the path travels as printf escapes.
        QByteArray escaped;
        for (const char c : path)
            escaped += uchar(c) < 0x80 ? QByteArray(1, c) : "\\" + QByteArray::number(uchar(c), 8);
        const QString command = u"cd '%1' && exec '%2' convert --output '%3' \"$(printf '%4')\""_s;
        const Finished r
            = s.program.run({u"sh"_s, u"-c"_s,
                             command.arg(s.dir, Program::deckwright({}).first(), s.out, QString::fromLatin1(escaped))});
        QCOMPARE(r.lines(), QStringList{u"skipped: %1: not a Keynote 4 file (its name is not valid UTF-8)"_s.arg(
                                QString::fromUtf8(path))});
        QCOMPARE(r.status, 1);
        QCOMPARE(Tree::of(s.in, Tree::WithTimes), before);
        checkOutcome(s, {});
    }
};

QTEST_GUILESS_MAIN(TestHostile)
#include "TestHostile.moc"
