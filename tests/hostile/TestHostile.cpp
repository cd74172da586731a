#include "support/PackageFactory.h"

#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <csignal>
#include <memory>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

// Attacks the built program with hostile packages, planted names, a hostile
// environment, full disks and signals, and checks each promise by its effects
// on the disk and in the process table.
namespace {
// Relative path -> type and mode as ls shows them, then the content hash of a file or the target of a link.
using Tree = QMap<QByteArray, QByteArray>;

const QString kBinary = QStringLiteral(DECKWRIGHT_BINARY);

QByteArray bytes(const QString &path)
{
    return QFile::encodeName(path);
}

QByteArray sha1(const QByteArray &path)
{
    QFile file;
    QCryptographicHash hash(QCryptographicHash::Sha1);
    const int fd = ::open(path.constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0 || !file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle) || !hash.addData(&file))
        return "unreadable";
    return hash.result().toHex();
}

struct Run
{
    int code = -1; // -1 when it did not exit by itself, hung ones included
    QByteArray out, err;
};

std::unique_ptr<QProcess> start(const QStringList &command, const QProcessEnvironment &env, const QString &folder = {})
{
    auto process = std::make_unique<QProcess>();
    process->setProcessEnvironment(env);
    process->setWorkingDirectory(folder);
    process->start(command.first(), command.mid(1));
    return process;
}

Run run(const QStringList &command, const QProcessEnvironment &env = QProcessEnvironment::systemEnvironment(),
        const QString &folder = {})
{
    const auto process = start(command, env, folder);
    // Generous: only a hang (a link loop, a FIFO read) should ever reach it.
    if (!process->waitForFinished(120000)) {
        process->kill();
        process->waitForFinished();
    }
    return {process->exitStatus() == QProcess::NormalExit ? process->exitCode() : -1, process->readAllStandardOutput(),
            process->readAllStandardError()};
}

// Everything below a folder as lstat sees it, names as raw bytes: no link
// followed, nothing opened but regular files.
Tree tree(const QString &root)
{
    Tree result;
    const QList<QByteArray> fields
        = run({u"find"_s, root, u"-mindepth"_s, u"1"_s, u"-printf"_s, u"%P\\0%M %l\\0"_s}).out.split('\0');
    for (qsizetype i = 0; i + 1 < fields.size(); i += 2)
        result.insert(fields[i], fields[i + 1].startsWith('-') ? fields[i + 1] + sha1(bytes(root) + '/' + fields[i])
                                                               : fields[i + 1]);
    return result;
}

// The regular files of a tree, prefix + relative path -> content hash.
Tree filesOf(const Tree &all, const QByteArray &prefix = {})
{
    Tree files;
    for (auto it = all.begin(); it != all.end(); ++it)
        if (it.value().startsWith('-'))
            files.insert(prefix + it.key(), it.value().mid(it.value().indexOf(' ') + 1));
    return files;
}

// Whether the output is these lines; from a "*" on, a line may say anything.
bool printed(const QByteArray &out, const QStringList &expected)
{
    const QList<QByteArray> got = out.split('\n');
    bool same = got.size() == expected.size() + 1 && got.last().isEmpty();
    for (qsizetype i = 0; same && i < expected.size(); ++i)
        same = expected[i].contains(u'*') ? got[i].startsWith(expected[i].section(u'*', 0, 0).toUtf8())
                                          : got[i] == expected[i].toUtf8();
    return same;
}

// Runs a setup script in a folder, with the extra variables in its environment.
int shell(const QString &script, const QString &folder, const QMap<QString, QString> &extra = {})
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (auto it = extra.begin(); it != extra.end(); ++it)
        env.insert(it.key(), it.value());
    const Run r = run({u"sh"_s, u"-ec"_s, script}, env, folder);
    if (r.code != 0)
        qWarning("%s", r.err.constData());
    return r.code;
}

// A socket's name stays on disk once the socket is closed.
bool bindSocket(const QByteArray &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    qstrncpy(address.sun_path, path.constData(), sizeof address.sun_path);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool bound = ::bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
    ::close(fd);
    return bound;
}

// The programs whose command line holds the text.
QByteArrayList processesMentioning(const QByteArray &text)
{
    QByteArrayList found;
    for (const QString &pid : QDir(u"/proc"_s).entryList({u"[0-9]*"_s}, QDir::Dirs)) {
        QFile cmdline(u"/proc/%1/cmdline"_s.arg(pid));
        if (pid.toLongLong() != ::getpid() && cmdline.open(QIODevice::ReadOnly) && cmdline.readAll().contains(text))
            found << QFileInfo(QFile::symLinkTarget(u"/proc/%1/exe"_s.arg(pid))).fileName().toUtf8();
    }
    return found;
}

qint64 highWaterKiB(qint64 pid)
{
    QFile status(u"/proc/%1/status"_s.arg(pid));
    const QRegularExpressionMatch match
        = QRegularExpression(u"VmHWM:\\s+(\\d+) kB"_s)
              .match(status.open(QIODevice::ReadOnly) ? QString::fromLatin1(status.readAll()) : QString());
    return match.hasMatch() ? match.captured(1).toLongLong() : -1;
}

// One case's folders: packages in in/, results in out/, scratch under runtime/.
struct Site
{
    QString dir, in, out, runtime;
    QProcessEnvironment env;
    QString root() const { return runtime + u"/deckwright"_s; }
};

QStringList convertCommand(const Site &s, const QStringList &packages, const QString &folder = {})
{
    return QStringList{kBinary, u"convert"_s, u"--output"_s, folder.isEmpty() ? s.out : folder} + packages;
}

QString fill(QString line, const QString &package, const QString &folder)
{
    return line.replace(u"%1"_s, package).replace(u"%2"_s, folder);
}

} // namespace

class TestHostile : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_work;
    QString m_victim;
    Tree m_victimBefore;
    QByteArray m_passwdBefore;
    int m_count = 0;
    QString m_big;
    Tree m_bigBefore;

    Site site()
    {
        Site s;
        s.dir = m_work.filePath(QString::number(++m_count));
        s.in = s.dir + u"/in"_s;
        s.out = s.dir + u"/out"_s;
        s.runtime = s.dir + u"/runtime"_s;
        for (const QString &folder : {s.in, s.out, s.runtime})
            QDir().mkpath(folder);
        ::chmod(bytes(s.runtime).constData(), 0700);
        s.env = QProcessEnvironment::systemEnvironment();
        s.env.insert(u"XDG_CONFIG_HOME"_s, s.dir + u"/config"_s);
        s.env.insert(u"XDG_RUNTIME_DIR"_s, s.runtime);
        // Every run meets tool options that would store the document or drop the pictures.
        for (const auto &[name, value] :
             {std::pair{"ZIPOPT", "-0 -x *.jpg"}, {"ZIP", "-0"}, {"GZIP", "-1"}, {"UNZIP", "-x *"}})
            s.env.insert(QString::fromLatin1(name), QString::fromLatin1(value));
        return s;
    }

    // The archive must test whole and hold exactly the package's files, its document rewritten and deflated.
    void checkArchive(const QString &archive, const QString &package)
    {
        const Run tested = run({u"unzip"_s, u"-tqq"_s, archive});
        QVERIFY2(tested.code == 0, qPrintable(archive + u": "_s + QString::fromLocal8Bit(tested.out + tested.err)));
        const QString into = m_work.filePath(u"extracted"_s);
        run({u"unzip"_s, u"-qq"_s, archive, u"-d"_s, into});
        const Tree got = filesOf(tree(into));
        QProcess::execute(u"rm"_s, {u"-rf"_s, into});
        // Entries carry the run folder's path: the package's folder is the one right below it.
        const QByteArray top = QRegularExpression(u"^(.*/)?(\\.deckwright-)?run-[A-Za-z0-9]{6}/[^/]+/"_s)
                                   .match(QString::fromUtf8(got.isEmpty() ? QByteArray() : got.firstKey()))
                                   .captured()
                                   .toUtf8();
        Tree want = filesOf(tree(package), top);
        want.remove(top + "index.apxl.gz");
        const QByteArray document = run({u"gunzip"_s, u"-c"_s, package + u"/index.apxl.gz"_s})
                                        .out.replace("key:version=\"72007061400\"", "key:version=\"92008102400\"");
        want.insert(top + "index.apxl", QCryptographicHash::hash(document, QCryptographicHash::Sha1).toHex());
        QVERIFY2(!top.isEmpty() && got == want,
                 qPrintable(u"%1 holds [%2], the package [%3]"_s.arg(archive, QString::fromUtf8(got.keys().join(", ")),
                                                                     QString::fromUtf8(want.keys().join(", ")))));
        QVERIFY2(run({u"unzip"_s, u"-v"_s, archive}).out.contains(" Defl:"), qPrintable(archive + u" stores all"_s));
    }

    // What a finished command may leave: these archives, each whole, and the
    // other entries of the output folder as they were; an empty scratch folder;
    // files outside as they were.
    void checkOutcome(const Site &s, const QMap<QString, QString> &archives, const Tree &others = {})
    {
        Tree left = tree(s.out);
        for (auto it = archives.begin(); it != archives.end(); ++it) {
            left.remove(it.key().toUtf8());
            checkArchive(s.out + u'/' + it.key(), it.value());
        }
        QVERIFY2(left == others, qPrintable(u"the output folder holds: "_s + tree(s.out).keys().join(", ")));
        // A command that never needed one may not have made the scratch folder at all.
        const Tree scratch = tree(s.runtime);
        QVERIFY2(scratch.isEmpty() || scratch.keys() == QList<QByteArray>{"deckwright"},
                 qPrintable(u"the scratch folder holds: "_s + scratch.keys().join(", ")));
        QVERIFY2(tree(m_victim) == m_victimBefore && sha1("/etc/passwd") == m_passwdBefore,
                 "a file outside the package changed");
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_work.isValid());
        QVERIFY(QFileInfo::exists(kBinary));
        // Files outside every package that no conversion may touch.
        m_victim = m_work.filePath(u"victim"_s);
        QCOMPARE(shell(u"mkdir -p victim/sub; cd victim; printf secret > secret.txt; printf mine > sub/precious;"
                       "printf '<a key:version=\"72007061400\"/>' | gzip > doc.apxl.gz"_s,
                       m_work.path()),
                 0);
        m_victimBefore = tree(m_victim);
        m_passwdBefore = sha1("/etc/passwd");
    }

    void cleanupTestCase()
    {
        // Read-only folders, names that are not UTF-8 and deep trees defeat QTemporaryDir.
        QProcess::execute(u"chmod"_s, {u"-R"_s, u"u+rwX"_s, m_work.path()});
        QProcess::execute(u"find"_s, {m_work.path(), u"-mindepth"_s, u"1"_s, u"-delete"_s});
    }

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
        row("socket", "true", skip("it holds a socket: Data/sock")); // bound by the test
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
        if (asNobody
            && (::geteuid() != 0
                || QProcess::execute(
                       u"sh"_s,
                       {u"-c"_s, u"exec >/dev/null; command -v setpriv && id nobody && getent group nogroup"_s})
                       != 0))
            QSKIP("needs root, setpriv, the user nobody and the group nogroup to run as someone else");
        const Site s = site();
        if (asNobody) {
            // Everything on the way is open to nobody; the scratch and output folders are nobody's.
            for (const QString &folder : {m_work.path(), s.dir, s.in})
                ::chmod(bytes(folder).constData(), 0755);
            for (const QString &folder : {s.runtime, s.out})
                QCOMPARE(QProcess::execute(u"chown"_s, {u"nobody:nogroup"_s, folder}), 0);
        }
        const QString after = PackageFactory(s.in).make(u"After.key"_s);
        QCOMPARE(shell(script, PackageFactory(s.in).make(u"Talk.key"_s),
                       {{u"VICTIM"_s, m_victim}, {u"ARG"_s, argument}, {u"OUT"_s, s.out}}),
                 0);
        const QString package = s.in + u'/' + argument, real = QFileInfo(package).canonicalFilePath();
        QVERIFY(QByteArray(QTest::currentDataTag()) != "socket" || bindSocket(bytes(real) + "/Data/sock"));
        const Tree before = tree(real), planted = tree(s.out);
        const QStringList nobody{u"setpriv"_s, u"--reuid=nobody"_s, u"--regid=nogroup"_s, u"--clear-groups"_s};
        // An output folder given in a roundabout way is named by its clean absolute path.
        const Run r = run(
            (asNobody ? nobody : QStringList()) + convertCommand(s, {package, after}, s.out + u"/../out/./"_s), s.env);
        QVERIFY2(printed(r.out, {fill(line, package, s.out), u"converted: %1 -> %2/After.key"_s.arg(after, s.out)}),
                 r.out.constData());
        const bool converted = line.startsWith(u"converted"_s);
        QCOMPARE(r.code, converted ? 0 : 1);
        QCOMPARE(tree(real), before);
        QMap<QString, QString> archives{{u"After.key"_s, after}};
        if (converted)
            archives.insert(line.section(u'/', -1), real);
        checkOutcome(s, archives, planted);
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
        QCOMPARE(shell(u"printf neighbour > in/notes.txt; mkdir -m 0700 base; cd base; "_s + script, s.dir,
                       {{u"NAME"_s, name}, {u"SRC"_s, s.in}}),
                 0);
        s.env.remove(u"XDG_RUNTIME_DIR"_s);
        s.env.insert(runtime ? u"XDG_RUNTIME_DIR"_s : u"TMPDIR"_s, base);
        const Tree sourceBefore = tree(s.in);
        Tree expected = tree(base);
        const Run r = run(convertCommand(s, {package}), s.env);
        QVERIFY2(printed(r.out, {u"converted: %1 -> %2/Talk.key"_s.arg(package, s.out)}), r.out.constData());
        QCOMPARE(tree(s.in), sourceBefore);
        // The planted name as it was; the next name served, and is empty again.
        expected.insert((name + u"-1"_s).toUtf8(), "drwx------ ");
        QCOMPARE(tree(base), expected);
        checkOutcome(s, {{u"Talk.key"_s, package}});
    }

    void sweepsStaleLeftoversButNotLiveRuns()
    {
        const Site s = site();
        const QString package = PackageFactory(s.in).make(u"Talk.key"_s), live = s.root() + u"/run-live01"_s;
        QDir().mkpath(s.root());
        ::chmod(bytes(s.root()).constData(), 0700);
        // An old archive holding other entries, a killed run's folder, the folders
        // of the older layout straight in the root, and a run still alive.
        QCOMPARE(shell(u"mkdir -p intruder run-dead01 run-live01/Talk Talk.key/junk Talk/junk; printf evil > "
                       "intruder/evil.txt; zip -qr Talk.zip intruder; cp Talk.zip run-dead01/; rm -r intruder; "
                       "printf live > run-live01/Talk/keep"_s,
                       s.root()),
                 0);
        // The running application's socket lives here too, and is no scratch.
        const QByteArray socket = bytes(s.root()) + "/instance.sock";
        QVERIFY(bindSocket(socket));
        Tree kept = tree(s.root());
        kept.removeIf([](Tree::iterator entry) {
            return !entry.key().startsWith("run-live01") && entry.key() != "instance.sock";
        });
        const int liveFd = ::open(bytes(live).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        QVERIFY(liveFd >= 0 && ::flock(liveFd, LOCK_EX) == 0);
        Run r = run(convertCommand(s, {package}), s.env);
        ::close(liveFd);
        QVERIFY2(printed(r.out, {u"converted: %1 -> %2/Talk.key"_s.arg(package, s.out)}), r.out.constData());
        QCOMPARE(tree(s.root()), kept);
        ::unlink(socket.constData());
        // Once its process is gone, the next run takes it away.
        r = run(convertCommand(s, {package}), s.env);
        QCOMPARE(r.code, 0);
        checkOutcome(s, {{u"Talk.key"_s, package}, {u"Talk.1.key"_s, package}});
    }

    void concurrentRunsWriteWholeFilesUnderTheirOwnNames_data()
    {
        QTest::addColumn<QStringList>("packages"); // in in/, converted at the same time
        QTest::addColumn<QString>("stem");
        QTest::newRow("the same package") << QStringList{u"Talk.key"_s, u"Talk.key"_s} << "Talk";
        QTest::newRow("two packages of one name") << QStringList{u"a/Mid.key"_s, u"b/Mid.key"_s} << "Mid";
    }

    void concurrentRunsWriteWholeFilesUnderTheirOwnNames()
    {
        QFETCH(QStringList, packages);
        QFETCH(QString, stem);
        const Site s = site();
        std::vector<std::unique_ptr<QProcess>> processes;
        for (const QString &package : packages) {
            const QFileInfo info(s.in + u'/' + package);
            if (!info.exists()) // a few megabytes, different for each, so that the runs overlap
                PackageFactory(info.absolutePath())
                    .make(info.fileName(), PackageFactory::keynoteFourDocument(package),
                          {{u"Data/media.bin"_s, PackageFactory::pseudoRandom(6 << 20, quint32(qHash(package)))}});
        }
        for (const QString &package : packages)
            processes.push_back(start(convertCommand(s, {s.in + u'/' + package}), s.env));
        QMap<QString, QString> written;
        for (size_t i = 0; i < processes.size(); ++i) {
            QVERIFY(processes[i]->waitForFinished(60000));
            const QString line = QString::fromUtf8(processes[i]->readAllStandardOutput()).trimmed();
            const QString prefix = u"converted: %1/%2 -> %3/"_s.arg(s.in, packages[int(i)], s.out);
            QVERIFY2(line.startsWith(prefix), qPrintable(line));
            written.insert(line.mid(prefix.size()), s.in + u'/' + packages[int(i)]);
        }
        // Different names, each holding the package of the run that named it.
        QCOMPARE(written.keys(), QStringList({stem + u".1.key"_s, stem + u".key"_s}));
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
            m_big = PackageFactory(m_work.filePath(u"big"_s))
                        .make(u"Talk.key"_s, PackageFactory::keynoteFourDocument(), {});
            QCOMPARE(shell(u"mkdir Data; head -c 200M /dev/urandom > Data/media.bin"_s, m_big), 0);
            m_bigBefore = tree(m_big);
        }
        const Site s = site();
        const QByteArray root = bytes(s.root());
        const auto process = start(convertCommand(s, {m_big}), s.env);
        QVERIFY(process->waitForStarted());
        QElapsedTimer waited;
        waited.start();
        while (!processesMentioning(root).contains("zip") && process->state() != QProcess::NotRunning
               && waited.elapsed() < 60000)
            QThread::msleep(20);
        QVERIFY2(process->state() == QProcess::Running && processesMentioning(root).contains("zip"), "zip never ran");
        ::kill(pid_t(process->processId()), signalNumber);
        QVERIFY(process->waitForFinished(60000));
        // Ended by that very signal.
        QCOMPARE(process->exitStatus(), QProcess::CrashExit);
        QCOMPARE(process->exitCode(), signalNumber);
        // No tool outlives the command.
        for (waited.restart(); !processesMentioning(root).isEmpty() && waited.elapsed() < 3000;)
            QThread::msleep(50);
        QVERIFY2(processesMentioning(root).isEmpty(), processesMentioning(root).join(' ').constData());
        QCOMPARE(tree(m_big), m_bigBefore);
        QMap<QString, QString> archives;
        if (signalNumber == SIGKILL) {
            // The killed run's folder is the next run's to remove.
            archives.insert(u"Small.key"_s, PackageFactory(s.in).make(u"Small.key"_s));
            QCOMPARE(run(convertCommand(s, archives.values()), s.env).code, 0);
        }
        checkOutcome(s, archives);
    }

    void refusesAGzipBombCheaply()
    {
        const Site s = site();
        // Gzip members concatenate: 16 of 64 MiB of zeros make a 1 GiB document.
        const QString package = PackageFactory(s.in).makeWithRawIndex(
            u"Bomb.key"_s, PackageFactory::gzip(QByteArray(64 << 20, '\0')).repeated(16));
        const auto process = start(convertCommand(s, {package}), s.env);
        QVERIFY(process->waitForStarted());
        qint64 highWater = -1;
        QElapsedTimer waited;
        waited.start();
        while (!process->waitForFinished(10) && waited.elapsed() < 60000)
            highWater = qMax(highWater, highWaterKiB(process->processId()));
        QCOMPARE(process->state(), QProcess::NotRunning);
        QVERIFY(printed(process->readAllStandardOutput(),
                        {u"skipped: %1: not a Keynote 4 file (the document is larger than 256 MB)"_s.arg(package)}));
        QVERIFY2(highWater > 0 && highWater < 150 * 1024, qPrintable(u"peak %1 KiB"_s.arg(highWater)));
        checkOutcome(s, {});
    }

    void placesLargePackagesWhereThereIsRoom_data()
    {
        QTest::addColumn<QString>("scratchSize");
        QTest::addColumn<QString>("outputSize");
        QTest::addColumn<int>("mediaKiB");
        QTest::addColumn<QString>("line"); // %1 the package, %2 the output folder; converted: exit status 0
        // Far too small for the copy and its archive: the work moves to a
        // hidden run folder in the output folder, which goes with it.
        QTest::newRow("scratch too small") << u"1m"_s << QString() << 3072 << u"converted: %1 -> %2/Talk.key"_s;
        QTest::newRow("too large for both")
            << u"1m"_s << u"8m"_s << 3072
            << u"failed: %1: there is not enough free space to convert it: it needs "
               u"about 70.3 MB, and there are 1.0 MB free for the scratch folder and 8.0 MB "
               u"for the output folder"_s;
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
        for (const auto &[point, size] : {std::pair{s.runtime, scratchSize}, std::pair{s.out, outputSize}}) {
            if (size.isEmpty())
                continue;
            const Run mount
                = run({u"mount"_s, u"-t"_s, u"tmpfs"_s, u"-o"_s, u"size=%1,mode=0700"_s.arg(size), u"tmpfs"_s, point});
            if (mount.code != 0)
                QSKIP(qPrintable(u"a small tmpfs cannot be mounted here: "_s + QString::fromLocal8Bit(mount.err)));
            mounted << point;
        }
        const QString package
            = PackageFactory(s.in).make(u"Talk.key"_s, PackageFactory::keynoteFourDocument(),
                                        {{u"Data/media.bin"_s, PackageFactory::pseudoRandom(mediaKiB * 1024, 7)}});
        const Tree before = tree(package);
        const Run r = run(convertCommand(s, {package}), s.env);
        QVERIFY2(printed(r.out, {fill(line, package, s.out)}), r.out.constData());
        const bool converted = line.startsWith(u"converted"_s);
        QCOMPARE(r.code, converted ? 0 : 1);
        QCOMPARE(tree(package), before);
        checkOutcome(s, converted ? QMap<QString, QString>{{u"Talk.key"_s, package}} : QMap<QString, QString>{});
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
        Site s = site();
        const QByteArray full = bytes(s.dir) + '/' + path;
        ::mkdir(full.left(full.lastIndexOf('/')).constData(), 0755);
        QVERIFY(::rename(bytes(PackageFactory(s.in).make(u"Made.key"_s)).constData(), full.constData()) == 0);
        const Tree before = tree(s.in);
        // Only a shell hands the raw bytes on: the path travels as printf escapes.
        QByteArray escaped;
        for (const char c : path)
            escaped += uchar(c) < 0x80 ? QByteArray(1, c) : "\\" + QByteArray::number(uchar(c), 8);
        const QString command = u"cd '%1' && exec '%2' convert --output '%3' \"$(printf '%4')\""_s;
        const Run r = run({u"sh"_s, u"-c"_s, command.arg(s.dir, kBinary, s.out, QString::fromLatin1(escaped))}, s.env);
        QVERIFY2(printed(r.out, {u"skipped: %1: not a Keynote 4 file (its name is not valid UTF-8)"_s.arg(
                                    QString::fromUtf8(path))}),
                 r.out.constData());
        QCOMPARE(r.code, 1);
        QCOMPARE(tree(s.in), before);
        checkOutcome(s, {});
    }
};

QTEST_GUILESS_MAIN(TestHostile)
#include "TestHostile.moc"
