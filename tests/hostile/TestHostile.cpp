#include "support/Archive.h"
#include "support/PackageFactory.h"
#include "support/Program.h"
#include "support/Tree.h"

#include <QtTest>

#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

// Attacks the built program with hostile packages, planted names, a hostile
// environment, full disks and signals, and checks each promise by its effects
// on the disk and in the process table.
namespace {
// One case's folders: packages in in/, results in out/, and the program's
// own scratch and settings folders.
struct Site : Program
{
    explicit Site(const QString &folder)
        : Program(folder)
        , dir(folder)
    {
        QDir().mkpath(in);
        QDir().mkpath(out);
        // Every run meets tool options that would store the document or drop the pictures.
        for (const auto &[name, value] :
             {std::pair{"ZIPOPT", "-0 -x *.jpg"}, {"ZIP", "-0"}, {"GZIP", "-1"}, {"UNZIP", "-x *"}})
            env.insert(QString::fromLatin1(name), QString::fromLatin1(value));
    }
    // An output folder given in a roundabout way is named by its clean absolute path.
    QStringList convert(const QStringList &packages) const
    {
        return deckwright(QStringList{u"convert"_s, u"--output"_s, out + u"/../out/./"_s} + packages);
    }
    // Takes away what a case mounted below its folder, the deepest first.
    void unmount() const
    {
        sh(u"awk -v d=\"$PWD/\" 'index($2, d) == 1 {print $2}' /proc/mounts | sort -r | xargs -r umount -l"_s, dir);
    }

    QString dir, in = dir + u"/in"_s, out = dir + u"/out"_s;
};
} // namespace

class TestHostile : public QObject
{
    Q_OBJECT

    QTemporaryDir m_work;
    QString m_victim = m_work.filePath(u"victim"_s), m_big;
    QList<Tree> m_outside;
    int m_count = 0;

    Site site() { return Site(m_work.filePath(QString::number(++m_count))); }
    QList<Tree> outside() { return {Tree::of(m_victim, Tree::WithTimes), Tree::of(u"/etc/passwd"_s, Tree::WithTimes)}; }

    // What a finished command may leave: these archives, and the other
    // entries of the output folder as they were; an empty scratch folder;
    // files outside as they were.
    void checkOutcome(const Site &s, const QMap<QString, QString> &archives, Tree others = {})
    {
        Tree left = Tree::of(s.out);
        for (const auto &[name, package] : archives.asKeyValueRange()) {
            left.remove(name.toUtf8());
            // Each tests whole and holds exactly the package's files, its document rewritten and deflated.
            const Archive archive(s.out + u'/' + name);
            QVERIFY2(archive.isWhole() && archive.isDeflated(), qPrintable(name + u" is damaged or stores all"_s));
            auto want = Tree::of(package).fileHashes();
            want.remove("index.apxl.gz");
            want.insert("index.apxl", Tree::sha1(s.run({u"gunzip"_s, u"-c"_s, package + u"/index.apxl.gz"_s})
                                                     .out.replace("72007061400", "92008102400")));
            const auto got = archive.packageFiles();
            QVERIFY2(got == want, qPrintable(name + u" holds: "_s + QString::fromUtf8(got.keys().join(", "))));
        }
        others["."] = left["."]; // the folder itself is the caller's
        QVERIFY2(left == others, qPrintable(u"the output folder holds: "_s + Tree::of(s.out).paths()));
        // A command that never needed one may not have made the scratch folder at all.
        const Tree scratch = Tree::of(s.runtime());
        QVERIFY2(scratch.size() == 1 || (scratch.size() == 2 && scratch.contains("deckwright")),
                 qPrintable(u"the scratch folder holds: "_s + scratch.paths()));
        QVERIFY2(outside() == m_outside, "a file outside the package changed");
    }

    // Converts the packages (or runs the command given for that) and checks
    // that it printed exactly these lines (%1 the package, %2 the output
    // folder; from a "*" on, a line may say anything) with the status they
    // call for, left the packages' folder as it was, and left what
    // checkOutcome allows.
    void convert(const Site &s, const QStringList &packages, QStringList lines, Program::As as = Program::Me,
                 const QStringList &command = {})
    {
        const Tree sources = Tree::of(s.in, Tree::WithTimes), planted = Tree::of(s.out);
        const Finished r = s.run(command.isEmpty() ? s.convert(packages) : command, as);
        const QStringList got = r.lines();
        QMap<QString, QString> archives;
        bool ok = got.size() == lines.size();
        for (qsizetype i = 0; i < lines.size(); ++i) {
            lines[i].replace(u"%1"_s, packages.value(i)).replace(u"%2"_s, s.out);
            ok = ok && (lines[i].contains(u'*') ? got[i].startsWith(lines[i].section(u'*', 0, 0)) : got[i] == lines[i]);
            if (lines[i].startsWith(u"converted: "_s))
                archives.insert(lines[i].section(u'/', -1), QFileInfo(packages[i]).canonicalFilePath());
        }
        QVERIFY2(ok, qPrintable(got.join(u'\n')));
        QCOMPARE(r.status, archives.size() == lines.size() ? 0 : 1);
        // deckwright check says the same of each package, in the same words.
        for (qsizetype i = 0; i < lines.size() && command.isEmpty(); ++i) {
            const bool converted = lines[i].startsWith(u"converted: "_s);
            if (lines[i].contains(u'*') || (!converted && !lines[i].contains(u" file ("_s)))
                continue;
            const QString verdict = converted ? u"Keynote '08 package, convertible"_s
                                              : u"not convertible ("_s + lines[i].section(u" file ("_s, 1);
            const QString said = s.run(Program::deckwright({u"check"_s, packages[i]}), as).lines().value(0);
            QVERIFY2(said.startsWith(packages[i] + u": "_s + verdict), qPrintable(said));
        }
        QCOMPARE(Tree::of(s.in, Tree::WithTimes), sources);
        checkOutcome(s, archives, planted);
    }

private Q_SLOTS:
    void initTestCase()
    {
        // Files outside every package that no conversion may touch.
        QVERIFY(
            Program::sh(u"mkdir -p victim/sub; cd victim; printf secret > secret.txt; printf mine > sub/precious; "
                        "printf '<a key:version=\"72007061400\"/>' | gzip > doc.apxl.gz"_s,
                        m_work.path()));
        m_outside = outside();
    }

    // Read-only folders, names that are not UTF-8 and deep trees defeat QTemporaryDir.
    void cleanupTestCase() { QVERIFY(Program::sh(u"chmod -R u+rwX . && find . -mindepth 1 -delete"_s, m_work.path())); }

    void convertsOrRefusesEachPackageWhole_data()
    {
        QTest::addColumn<QString>("script");   // run as root in Talk.key; $V holds files outside, $OUT the output
        QTest::addColumn<QString>("argument"); // the name given for it, in the same folder
        QTest::addColumn<QString>("line");     // %1 the package, %2 the output folder
        const auto row = [](const char *tag, const QString &line, const QString &script,
                            const QString &arg = u"Talk.key"_s) { QTest::newRow(tag) << script << arg << line; };
        const auto skip = [](const QString &why) { return u"skipped: %1: not a Keynote 4 file ("_s + why + u')'; };
        const auto holds = [&](const QString &what) { return skip(u"it holds "_s + what); };
        const auto out = [&](const QString &name) { return holds(u"a link to a file outside the package: "_s + name); };
        const auto to = [](const QString &name) { return u"converted: %1 -> %2/"_s + name; };
        const QString talk = to(u"Talk.key"_s);
        row("document a link out", out("index.apxl"), "printf x > index.apxl.gz; ln -s \"$V/secret.txt\" index.apxl");
        row("relative link out, gz a folder", out("index.apxl"),
            "rm index.apxl.gz; mkdir index.apxl.gz; ln -s ../../../victim/secret.txt index.apxl");
        row("document a link inside", holds("a symbolic link: index.apxl"), "ln -s 'Data/photo one.jpg' index.apxl");
        row("link to /etc/passwd", out("Data/passwd"), "ln -s /etc/passwd Data/passwd");
        row("link to a folder outside", out("Data/victim"), "ln -s \"$V\" Data/victim");
        row("link to itself", holds("a symbolic link: self"), "ln -s . self");
        row("link to /", out("root"), "ln -s / root");
        row("link out through a subfolder", out("up"), "ln -s Data/../.. up");
        row("gz a link to a document outside", out("index.apxl.gz"), "ln -sf \"$V/doc.apxl.gz\" index.apxl.gz");
        row("gz a FIFO", holds("a FIFO: index.apxl.gz"), "rm index.apxl.gz; mkfifo index.apxl.gz");
        row("socket", holds("a socket: Data/sock"),
            "perl -MIO::Socket::UNIX -e 'IO::Socket::UNIX->new(Local => \"Data/sock\", Listen => 1)'");
        row("device", holds("a device: Data/null"), "mknod Data/null c 1 3");
        row("deeper than PATH_MAX", skip("a path in it is too long to copy: d/d/*"),
            "mkdir -p $(printf 'd/%.0s' $(seq 2100))");
        row("package a single file", skip("it is a single file, not a Keynote '08 package"),
            "cd ..; rm -r Talk.key; cp \"$V/doc.apxl.gz\" Talk.key");
        row("package a FIFO", skip("*"), "cd ..; rm -r Talk.key; mkfifo Talk.key");
        row("mounted inside itself", holds("a mount point: loop"), "mkdir loop; mount --bind . loop");
        // Files of an overlay carry the device number of the disk below; the package is still one mount.
        row("on an overlay of two disks", talk,
            "cd ..; mkdir low up on; mv Talk.key low; mount -t tmpfs tmpfs up; mkdir up/u up/w; "
            "mount -t overlay -o lowerdir=low,upperdir=up/u,workdir=up/w overlay on",
            "on/Talk.key");
        row("index.apxl a folder", skip("index.apxl is a folder"), "mkdir -p index.apxl/Sub");
        row("document a sparse 8 GB file", skip("the document is larger than 256 MB"), "truncate -s 8G index.apxl.gz");
        // Names said as what they are; a long one shortened between two characters, never inside one.
        const QString emoji = u"\U0001F600"_s, mark = u"e\u0301"_s;
        row("name shortened",
            holds(u"a symbolic link: "_s + QString(38, u'x') + emoji + u"…"_s + mark + QString(39, u'y')),
            u"ln -s Data "_s + QString(38, u'x') + emoji + mark.repeated(11) + QString(39, u'y'));
        row("link named as a package",
            u"skipped: %1: not a Keynote file (it links to "_s + m_victim + u", whose name does not end in .key)"_s,
            "ln -s \"$V\" ../$ARG", "Etc.key");
        row("named .key", u"skipped: %1: not a Keynote file (its name is only the extension .key)"_s,
            "cd ..; mv Talk.key $ARG", ".key");
        row("path too long to open", skip("its path is too long to open"), "", u"d/"_s.repeated(2100) + u"T.key"_s);
        // Root reads everything: rows that take permissions away run as nobody,
        // and what nobody cannot read is refused, not half copied.
        row("unreadable file", holds("a file that could not be read: Data/secret.jpg"),
            "printf secret > Data/secret.jpg; chmod 000 Data/secret.jpg");
        row("unreadable folder", holds("a folder that could not be read: Hidden"),
            "mkdir -p Hidden/Inner; printf x > Hidden/Inner/a; chmod 000 Hidden");
        row("read-only package", talk, "chmod -R a=rX .");
        row("file name not UTF-8", talk, "printf 'not utf-8' > \"Data/$(printf 'caf\\351.jpg')\"");
        row("300 folders deep", talk, "d=$(printf 'd/%.0s' $(seq 300)); mkdir -p $d; printf deep > $d/leaf.txt");
        row("hidden file, empty folder", talk, "printf x > .hidden; mkdir Empty");
        row("given as a link", talk, "ln -s Talk.key ../Alias.key", "Alias.key");
        const QString longest = QString(251, u'T') + u".key"_s, dotted = u"Talk.v2.final.key"_s;
        row("name of 255 bytes", to(longest), "cd ..; mv Talk.key $ARG", longest);
        row("name with dots", to(dotted), "cd ..; mv Talk.key $ARG", dotted);
        // What is not a package is named as what it is, never searched for one.
        row("name with a capital extension", u"skipped: %1: not a Keynote file (its name does not end in .key)"_s,
            "cd ..; mv Talk.key $ARG", "Shout.KEY");
        row("folder given that cannot be read", u"skipped: %1: a folder that could not be read (Permission denied)"_s,
            "cd ..; mkdir -p $ARG/Inner.key; chmod 000 $ARG", "Shut");
        // Well inside the document size limit, and far beyond any real deck.
        row("document of 200 MB", talk,
            "{ printf '<key:presentation key:version=\"72007061400\">'; yes '<key:notes>Lorem ipsum.</key:notes>' | "
            "head -c 200000000; printf '</key:presentation>'; } | gzip -1 -n > index.apxl.gz");
        // Names in use in the output folder are never written over or through: the next number serves.
        row("output name a dangling link out", to("Talk.1.key"), "ln -s \"$V/planted.key\" \"$OUT/Talk.key\"");
        row("output name a link to a file outside", to("Talk.1.key"), "ln -s \"$V/secret.txt\" \"$OUT/Talk.key\"");
        row("output names a file, folder, link", to("Talk.3.key"),
            "cd \"$OUT\"; printf x > Talk.key; mkdir Talk.1.key; ln -s \"$V/planted.2.key\" Talk.2.key");
        row("output name in use, dotted", to("Talk.1.key"), "cd ..; mv Talk.key $ARG; echo > \"$OUT/$ARG\"", dotted);
        // The numbered name (the part before the first dot + ".1.key") outgrows 255 bytes.
        row("output name in use, no numbered name fits",
            u"failed: %1: could not write %2/"_s + longest.chopped(4) + u".1.key (File name too long)"_s,
            "cd ..; mv Talk.key $ARG; echo > \"$OUT/$ARG\"", longest);
    }

    void convertsOrRefusesEachPackageWhole()
    {
        QFETCH(QString, script);
        QFETCH(QString, argument);
        QFETCH(QString, line);
        const bool asNobody = script.contains(u"chmod"_s);
        if (script.startsWith(u"mknod"_s) && ::geteuid() != 0)
            QSKIP("making a device needs root");
        if (asNobody && !Program::canRunAsNobody())
            QSKIP(Program::whyNotAsNobody());
        const Site s = site();
        const auto unmount = qScopeGuard([&] { s.unmount(); });
        if (script.contains(u"mount"_s) && ::geteuid() != 0)
            QSKIP("mounting needs root");
        // Everything on the way is open to nobody; the scratch and output folders are nobody's.
        QVERIFY(!asNobody || Program::sh(u"chmod o+rx .. . in"_s, s.dir));
        QVERIFY(!asNobody || (Program::giveToNobody(s.runtime()) && Program::giveToNobody(s.out)));
        QVERIFY(Program::sh(script, PackageFactory(s.in).make(u"Talk.key"_s),
                            {{u"V"_s, m_victim}, {u"ARG"_s, argument}, {u"OUT"_s, s.out}}));
        convert(s, {s.in + u'/' + argument, PackageFactory(s.in).make(u"After.key"_s)},
                {line, u"converted: %1 -> %2/After.key"_s}, Program::As(asNobody));
    }

    void neverCopiesThroughALinkSwappedInWhileItCopies_data()
    {
        // A folder of the package, holding a decoy named as a private file, is
        // swapped for a link to the victim's folder and back, again and again.
        QTest::addColumn<QString>("folder");
        QTest::newRow("subfolder") << u"Data"_s;
        QTest::newRow("folder in a subfolder") << u"Data/Sub"_s;
    }

    // Converts until a private byte reaches an archive, 150 times or for a minute at most.
    void neverCopiesThroughALinkSwappedInWhileItCopies()
    {
        QFETCH(QString, folder);
        const Site s = site();
        const QString package = PackageFactory(s.in).make(u"Talk.key"_s, PackageFactory::keynoteFourDocument(),
                                                          {{folder + u"/secret.txt"_s, "decoy"}});
        QVERIFY(QFile::link(m_victim, s.dir + u"/link"_s));
        const auto swapper
            = s.start({u"perl"_s, u"-e"_s,
                       u"($p, $l) = @ARGV; until (-e \"$l.stop\") { syscall(316, -100, $p, -100, $l, 2); "
                       "select(undef, undef, undef, 0.0003) }"_s, // renameat2(RENAME_EXCHANGE)
                       package + u'/' + folder, s.dir + u"/link"_s});
        const QList<QByteArray> secrets = Tree::of(m_victim).fileHashes().values();
        QElapsedTimer clock;
        clock.start();
        for (int run = 0; run < 150 && clock.elapsed() < 60000; ++run) {
            const QString line = s.run(s.convert({package})).lines().value(0);
            if (!line.startsWith(u"converted: "_s))
                continue;
            const QString archive = line.section(u" -> "_s, 1);
            for (const QByteArray &hash : Archive(archive).packageFiles().values())
                QVERIFY2(!secrets.contains(hash), qPrintable(u"a private file in the archive, run %1"_s.arg(run)));
            QVERIFY(QFile::remove(archive));
        }
        QVERIFY(QFile(s.dir + u"/link.stop"_s).open(QIODevice::WriteOnly));
        QCOMPARE(Program::finish(*swapper).status, 0);
        checkOutcome(s, {});
    }

    void sweepsStaleRunsButLeavesLiveRunsAndPlantedNamesAlone_data()
    {
        QTest::addColumn<bool>("runtime");   // $XDG_RUNTIME_DIR, or the temporary folder without it
        QTest::addColumn<QString>("script"); // plants $NAME there; $SRC, private like a scratch, holds the package
        QTest::addColumn<QString>("swept");  // what the run takes away; none: the planted name stays, the next serves
        QTest::newRow("runtime: link to the package's folder") << true << "ln -s \"$SRC\" \"$NAME\"" << u""_s;
        QTest::newRow("tmp: link to the package's folder") << false << "ln -s \"$SRC\" \"$NAME\"" << u""_s;
        QTest::newRow("runtime: folder open to all")
            << true << "mkdir -m 0777 $NAME; printf x > $NAME/Talk.zip" << u""_s;
        QTest::newRow("runtime: another user's folder")
            << true << "mkdir -m 0700 $NAME; printf x > $NAME/x; chown -R nobody $NAME" << u""_s;
        QTest::newRow("tmp: a file") << false << "printf x > $NAME" << u""_s;
        // Swept: an old archive holding other entries, a killed run's folder,
        // the folders of the older layout straight in the root. Kept: a run still
        // alive (locked below) and the running application's socket, which is no scratch.
        QTest::newRow("runtime: stale and live runs")
            << true
            << "mkdir -m 0700 deckwright; cd deckwright; mkdir -p intruder run-dead01 run-live01/Talk Talk.key/junk "
               "Talk/junk; printf evil > intruder/evil.txt; zip -qr Talk.zip intruder; cp Talk.zip run-dead01/; "
               "rm -r intruder; printf live > run-live01/Talk/keep; "
               "perl -MIO::Socket::UNIX -e 'IO::Socket::UNIX->new(Local => \"instance.sock\", Listen => 1)'"
            << "^deckwright/(?!run-live01|instance\\.sock$)";
    }

    void sweepsStaleRunsButLeavesLiveRunsAndPlantedNamesAlone()
    {
        QFETCH(bool, runtime);
        QFETCH(QString, script);
        QFETCH(QString, swept);
        if (script.contains(u"chown"_s) && ::geteuid() != 0)
            QSKIP("giving a folder to another user needs root");
        Site s = site();
        const QString base = s.dir + u"/base"_s, name = runtime ? u"deckwright"_s : u"deckwright-%1"_s.arg(::getuid());
        const QString package = PackageFactory(s.in).make(u"Talk.key"_s);
        QVERIFY(Program::sh(u"printf neighbour > in/notes.txt; chmod 700 in; mkdir -m 0700 base; cd base; "_s + script,
                            s.dir, {{u"NAME"_s, name}, {u"SRC"_s, s.in}}));
        s.env.remove(u"XDG_RUNTIME_DIR"_s);
        s.env.insert(runtime ? u"XDG_RUNTIME_DIR"_s : u"TMPDIR"_s, base);
        // A planted name stays as it was and the next name serves, empty again; stale runs go, live ones stay.
        Tree expected = Tree::of(base);
        if (swept.isEmpty())
            expected.insert((name + u"-1"_s).toUtf8(), "drwx------");
        else
            expected.removeIf([&](Tree::iterator e) { return QRegularExpression(swept).match(e.key()).hasMatch(); });
        const int live = ::open(qPrintable(base + u"/deckwright/run-live01"_s), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        QVERIFY(live < 0 || ::flock(live, LOCK_EX) == 0);
        convert(s, {package}, {u"converted: %1 -> %2/Talk.key"_s});
        ::close(live);
        QCOMPARE(Tree::of(base), expected);
        if (!swept.isEmpty()) { // once its process is gone, the next run takes the live run away
            QVERIFY(QFile::remove(base + u"/deckwright/instance.sock"_s));
            convert(s, {package}, {u"converted: %1 -> %2/Talk.1.key"_s});
            QVERIFY(Tree::of(base + u"/deckwright"_s).size() <= 1);
        }
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
            processes.push_back(s.start(s.convert({info.filePath()})));
        }
        QMap<QString, QString> written;
        for (qsizetype i = 0; i < packages.size(); ++i) {
            const QString line = Program::finish(*processes[size_t(i)]).lines().value(0);
            QCOMPARE(line, u"converted: %1/%2 -> %3/"_s.arg(s.in, packages[i], s.out) + line.section(u'/', -1));
            written.insert(line.section(u'/', -1), s.in + u'/' + packages[i]);
        }
        // Different names, each holding the package of the run that named it.
        QCOMPARE(written.keys(), QStringList({u"Talk.1.key"_s, u"Talk.key"_s}));
        checkOutcome(s, written);
    }

    void aSignalUndoesTheConversionAndAGzipBombIsRefusedCheaply_data()
    {
        QTest::addColumn<int>("signalNumber"); // sent once zip runs; none: the run is watched to its end
        for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGKILL})
            QTest::addRow("SIG%s", sigabbrev_np(number)) << number;
        QTest::newRow("gzip bomb") << 0;
    }

    void aSignalUndoesTheConversionAndAGzipBombIsRefusedCheaply()
    {
        QFETCH(int, signalNumber);
        const Site s = site();
        if (signalNumber && m_big.isEmpty()) // incompressible media, so that zip is busy for seconds
            m_big = PackageFactory(m_work.filePath(u"big"_s)).makeLarge(u"Talk.key"_s, 200 << 20, 9);
        // Gzip members concatenate: 16 of 64 MiB of zeros make a 1 GiB document.
        QString package = m_big;
        if (!signalNumber)
            package = PackageFactory(s.in).makeWithRawIndex(u"Bomb.key"_s,
                                                            PackageFactory::gzip(QByteArray(64 << 20, 0)).repeated(16));
        const Tree before = Tree::of(package, Tree::WithTimes);
        const auto process = s.start(s.convert({package}));
        QFile status(u"/proc/%1/status"_s.arg(process->processId()));
        qint64 peakKiB = -1;
        const bool zipRan = Program::waitUntil(*process, [&] {
            const QByteArray text = status.open(QIODevice::ReadOnly) ? status.readAll() : QByteArray();
            status.close();
            peakKiB = qMax(peakKiB, QRegularExpression(u"VmHWM:\\s+(\\d+) kB"_s).match(text).captured(1).toLongLong());
            for (const RunningProcess &p : Program::mentioning(QFile::encodeName(s.scratch())))
                if (signalNumber && p.program == u"zip"_s)
                    return true;
            return false;
        });
        QVERIFY2(!signalNumber || (zipRan && process->state() == QProcess::Running), "zip never ran");
        if (signalNumber)
            ::kill(pid_t(process->processId()), signalNumber);
        const Finished r = Program::finish(*process);
        QCOMPARE(r.signal, signalNumber); // ended by that very signal, or by none
        const QString refused = u"skipped: %1: not a Keynote 4 file (the document is larger than 256 MB)"_s;
        QCOMPARE(r.lines(), signalNumber ? QStringList() : QStringList{refused.arg(package)});
        QCOMPARE(s.leftovers().size(), 0); // and no tool outlives it
        // Documents and media stream: neither a 1 GiB document nor 200 MB of media sit in memory.
        QVERIFY2(peakKiB > 0 && peakKiB < 150 * 1024, qPrintable(u"peak %1 KiB"_s.arg(peakKiB)));
        QCOMPARE(Tree::of(package, Tree::WithTimes), before);
        // A killed run's folder is the next run's to remove.
        if (signalNumber == SIGKILL)
            convert(s, {PackageFactory(s.in).make(u"Small.key"_s)}, {u"converted: %1 -> %2/Small.key"_s});
        else
            checkOutcome(s, {});
    }

    void placesLargePackagesWhereThereIsRoom_data()
    {
        QTest::addColumn<QString>("mounts"); // "m FOLDER SIZE" mounts a small tmpfs there
        QTest::addColumn<int>("mediaKiB");
        QTest::addColumn<QString>("line");   // %1 the package, %2 the output folder
        QTest::addColumn<QString>("script"); // then run in Talk.key; "doc N" gives it a document of N bytes
        const auto row = [](const char *tag, const QString &mounts, int kib, const QString &line,
                            const QString &script = {}) { QTest::newRow(tag) << mounts << kib << line << script; };
        // Far too small for the copy and its archive: the work moves to a
        // hidden run folder in the output folder, which goes with it.
        row("scratch too small", u"m runtime 1m"_s, 3072, u"converted: %1 -> %2/Talk.key"_s);
        row("too large for both", u"m runtime 1m; m out 8m"_s, 3072,
            u"failed: %1: there is not enough free space to convert it: it needs about 70.3 MB, and there are "
            u"1.0 MB free for the scratch folder and 8.0 MB for the output folder"_s);
        row("output folder full", u"m out 256k"_s, 1024,
            u"failed: %1: could not write %2/Talk.key (No space left on device)"_s);
        // The size of what is read decides, before anything large is written; a disk full anyway is named.
        const QString full = u"failed: %1: the %2 folder's disk is full"_s;
        row("single file, scratch too small", u"m runtime 100m"_s, 153600,
            u"skipped: %1: not a Keynote 4 file (it is a single file, not a Keynote '08 package)"_s,
            u"mv Data/media.bin ../x; cd ..; rm -r Talk.key; mv x Talk.key"_s);
        row("gzip bomb, small scratch", u"m runtime 100m"_s, 16,
            u"skipped: %1: not a Keynote 4 file (the document is larger than 256 MB)"_s,
            u"head -c 300M /dev/zero | gzip -1 > index.apxl.gz"_s);
        row("gunzip fills the scratch", u"m runtime 100m"_s, 16, full.arg(u"%1", u"scratch"), u"doc 200M"_s);
        row("zip fills the scratch", u"m runtime 150m"_s, 40960, full.arg(u"%1", u"scratch"), u"doc 80M"_s);
        row("gunzip fills the output folder", u"m runtime 1m; m out 100m"_s, 16, full.arg(u"%1", u"output"),
            u"doc 200M"_s);
        row("too large to count", u"m in 16m"_s, 16,
            u"failed: %1: there is not enough free space to convert it: it needs about 8.0 EB*"_s,
            u"truncate -s 4E Data/huge"_s);
        // Never where another user may rename the run folder, as nobody tries here, and plant a link in its place.
        const QString open
            = u"failed: %1: there is not enough free space in the scratch folder to convert it (it "
              u"needs about 64.1 MB, and there are 1.0 MB free), and the output folder cannot serve "
              u"instead: other users may rename what is in "_s;
        row("output folder open to all", u"m runtime 1m; chmod 777 out; attack"_s, 64, open + u"%2"_s);
        row("output folder open to a group", u"m runtime 1m; chgrp nogroup out; chmod 775 out; attack"_s, 64,
            open + u"%2"_s);
        row("a folder above open to all", u"m runtime 1m; chmod 777 ."_s, 64, open + u"*"_s);
        row("output folder open to all, sticky", u"m runtime 1m; chmod 1777 out; attack"_s, 64,
            u"converted: %1 -> %2/Talk.key"_s);
    }

    void placesLargePackagesWhereThereIsRoom()
    {
        QFETCH(QString, mounts);
        QFETCH(int, mediaKiB);
        QFETCH(QString, line);
        QFETCH(QString, script);
        const Site s = site();
        const auto unmount = qScopeGuard([&] { s.unmount(); });
        if (mounts.contains(u"attack"_s) && !Program::canRunAsNobody())
            QSKIP(Program::whyNotAsNobody());
        if (!Program::sh(u"m() { mount -t tmpfs -o size=$2,mode=0700 tmpfs $1; }; attack() { chmod o+x .. .; setpriv "
                         u"--reuid=nobody --regid=nogroup --clear-groups sh -c 'for i in $(seq 20000); do for d in "
                         u"out/.deckwright-run-*; do [ -d $d ] && mv $d out/moved && ln -s \"$V\" $d && exit; "
                         u"done; done' & }; "_s
                             + mounts,
                         s.dir, {{u"V"_s, m_victim}}))
            QSKIP("a small tmpfs cannot be mounted here");
        const QString package = PackageFactory(s.in).makeLarge(u"Talk.key"_s, mediaKiB * 1024, 7);
        QVERIFY(
            Program::sh(u"doc() { { printf '<a key:version=\"72007061400\">'; head -c $1 /dev/zero | tr '\\0' a; "
                        "printf '</a>'; } | gzip -1 > index.apxl.gz; }; "_s
                            + script,
                        package));
        convert(s, {package}, {line});
    }

    void convertsEveryPackageWithinTheMachinesLimits_data()
    {
        QTest::addColumn<QString>("limit"); // prlimit's, on the command; far more jobs are asked for
        QTest::newRow("few open files") << u"--nofile=40"_s;
        QTest::newRow("few processes") << u"--nproc=12"_s; // a user's: root has no such limit
    }

    void convertsEveryPackageWithinTheMachinesLimits()
    {
        QFETCH(QString, limit);
        if (!Program::canRunAsNobody())
            QSKIP(Program::whyNotAsNobody());
        const Site s = site();
        QVERIFY(Program::sh(u"chmod o+rx .. . in"_s, s.dir));
        QVERIFY(Program::giveToNobody(s.runtime()) && Program::giveToNobody(s.out));
        QStringList packages, lines;
        for (int i = 0; i < 12; ++i) {
            packages.append(PackageFactory(s.in).make(u"P%1.key"_s.arg(i)));
            lines.append(u"converted: %1 -> %2/"_s + QFileInfo(packages.last()).fileName());
        }
        convert(s, packages, lines, Program::Nobody,
                QStringList{u"prlimit"_s, limit, u"--"_s}
                    + Program::deckwright(QStringList{u"convert"_s, u"--jobs"_s, u"50"_s, u"-o"_s, s.out} + packages));
    }

    void aSwappedOutputFolderRedirectsNothing_data()
    {
        QTest::addColumn<QString>("jobs");
        QTest::newRow("in the command") << u"1"_s;
        QTest::newRow("in workers") << u"2"_s;
    }

    // Once zip runs, the output folder is moved away and a link to someone
    // else's folder takes its name: the files still go where it was opened.
    void aSwappedOutputFolderRedirectsNothing()
    {
        QFETCH(QString, jobs);
        const Site s = site();
        const QStringList packages{PackageFactory(s.in).makeLarge(u"A.key"_s, 16 << 20, 1),
                                   PackageFactory(s.in).makeLarge(u"B.key"_s, 16 << 20, 2)};
        const auto process
            = s.start(Program::deckwright(QStringList{u"convert"_s, u"-j"_s, jobs, u"-o"_s, s.out} + packages));
        QVERIFY(Program::waitUntil(*process, [&] {
            const auto running = Program::mentioning(QFile::encodeName(s.scratch()));
            return std::any_of(running.begin(), running.end(), [](auto &p) { return p.program == u"zip"_s; });
        }));
        QVERIFY(QFile::rename(s.out, s.out + u".old"_s) && QFile::link(m_victim, s.out));
        QCOMPARE(Program::finish(*process).lines(),
                 QStringList({u"converted: %1 -> %2/A.key"_s.arg(packages[0], s.out),
                              u"converted: %1 -> %2/B.key"_s.arg(packages[1], s.out)}));
        QCOMPARE(QDir(s.out + u".old"_s).entryList(QDir::Files), QStringList({u"A.key"_s, u"B.key"_s}));
        QVERIFY(outside() == m_outside);
    }

    void refusesAnOutputFolderInsideThePackage_data()
    {
        QTest::addColumn<QString>("output"); // from the case's folder
        QTest::addColumn<QString>("script"); // run there first
        QTest::newRow("the package") << u"in/Talk.key"_s << QString();
        QTest::newRow("a folder in it") << u"in/Talk.key/Data"_s << QString();
        QTest::newRow("through a link") << u"alias/Data"_s << u"ln -s in/Talk.key alias"_s;
        QTest::newRow("a bind mount of it") << u"mnt/Data"_s << u"mkdir mnt; mount --bind in/Talk.key mnt"_s;
    }

    void refusesAnOutputFolderInsideThePackage()
    {
        QFETCH(QString, output);
        QFETCH(QString, script);
        const Site s = site();
        const QString package = PackageFactory(s.in).make(u"Talk.key"_s);
        const auto unmount = qScopeGuard([&] { s.run({u"umount"_s, u"-l"_s, s.dir + u"/mnt"_s}); });
        if (!Program::sh(script, s.dir))
            QSKIP("a bind mount needs root");
        convert(s, {package}, {u"failed: %1: the output folder is inside the package, which is never changed"_s},
                Program::Me, Program::deckwright({u"convert"_s, u"--output"_s, s.dir + u'/' + output, package}));
    }

    // File systems without unnamed files (FUSE) get the file under a hidden
    // name while it is written: one a kill leaves is the next run's to remove.
    void aKilledWriteLeavesAHiddenFileTheNextRunRemoves()
    {
        const Site s = site();
        const auto unmount = qScopeGuard([&] { s.run({u"umount"_s, u"-l"_s, s.out}); });
        if (!Program::sh(u"mkdir real; bindfs real out"_s, s.dir))
            QSKIP("bindfs cannot mount a FUSE file system here");
        // Not ours to remove: another user's, a link, another name, one a live process holds.
        QVERIFY(
            Program::sh(u"printf x > .dw-Other1; chown nobody .dw-Other1; ln -s \"$V\" .dw-Link01; "
                        u"printf x > .dw-short; printf x > .dw-Held01"_s,
                        s.out, {{u"V"_s, m_victim}}));
        const int held = ::open(qPrintable(s.out + u"/.dw-Held01"_s), O_RDONLY | O_CLOEXEC);
        QVERIFY(::flock(held, LOCK_EX) == 0);
        const Tree planted = Tree::of(s.out);
        const auto count = [&] { return QDir(s.out).entryList(QDir::AllEntries | QDir::Hidden | QDir::System).size(); };
        const qsizetype before = count();
        const auto process = s.start(s.convert({PackageFactory(s.in).makeLarge(u"Big.key"_s, 64 << 20, 3)}));
        QVERIFY(Program::waitUntil(*process, [&] { return count() > before; }));
        ::kill(-pid_t(process->processId()), SIGKILL);
        Program::finish(*process);
        QCOMPARE(count(), before + 1);
        QCOMPARE(s.run(s.convert({PackageFactory(s.in).make(u"Small.key"_s)})).lines(),
                 QStringList(u"converted: %1/Small.key -> %2/Small.key"_s.arg(s.in, s.out)));
        Tree left = Tree::of(s.out);
        ::close(held);
        QVERIFY(left.remove("Small.key"));
        QCOMPARE(left, planted);
    }

    void refusesAPackagePathThatIsNotUtf8_data()
    {
        QTest::addColumn<QString>("path"); // from the case's folder, in printf escapes
        QTest::newRow("package name") << u"in/caf\\351.key"_s;
        QTest::newRow("folder name") << u"in/caf\\351/Talk.key"_s;
    }

    void refusesAPackagePathThatIsNotUtf8()
    {
        QFETCH(QString, path);
        const Site s = site();
        // Only a shell hands the raw bytes on.
        QVERIFY(Program::sh(u"p=$(printf \"$P\"); mkdir -p \"${p%/*}\"; mv \"$M\" \"$p\""_s, s.dir,
                            {{u"P"_s, path}, {u"M"_s, PackageFactory(s.in).make(u"Made.key"_s)}}));
        convert(s, {QString(path).replace(u"\\351"_s, u"\uFFFD"_s)},
                {u"skipped: %1: not a Keynote 4 file (its name is not valid UTF-8)"_s}, Program::Me,
                {u"sh"_s, u"-c"_s, u"cd \"$1\" && exec \"$0\" convert --output out \"$(printf \"$2\")\""_s,
                 Program::deckwright({}).first(), s.dir, path});
    }
};

QTEST_GUILESS_MAIN(TestHostile)
#include "TestHostile.moc"
