#include "support/FatalTrap.h"
#include "core/FileUtils.h"
#include "core/ScratchDir.h"
#include "support/TestSettings.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

#include <sys/stat.h>

namespace {
// Replaces only the name; the derived names must follow it.
class RenamingFileUtils : public FileUtils
{
public:
    using FileUtils::FileUtils;
    QString getPrezName() override { return QStringLiteral("Other.Name.key"); }
};
} // namespace

class TestFileUtils : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_work;

private Q_SLOTS:
    void initTestCase()
    {
        FatalTrap::install();
        QVERIFY(m_work.isValid());
        TestSettings::isolateScratch(m_work.path());
    }

    void derivedNames_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("withoutExt");
        QTest::addColumn<QString>("zip");
        QTest::newRow("plain") << "/Users/x/Talk.key" << "Talk.key" << "Talk" << "Talk.zip";
        QTest::newRow("trailing slash") << "/Users/x/Talk.key/" << "Talk.key" << "Talk" << "Talk.zip";
        QTest::newRow("double slashes") << "//a//b//Talk.key//" << "Talk.key" << "Talk" << "Talk.zip";
        QTest::newRow("several dots") << "/d/My.Talk.key" << "My.Talk.key" << "My" << "My.zip";
        QTest::newRow("leading dot") << "/d/.key" << ".key" << "key" << "key.zip";
        QTest::newRow("blanks") << "/d/My Big Talk.key" << "My Big Talk.key" << "My Big Talk" << "My Big Talk.zip";
        QTest::newRow("no folder") << "Talk.key" << "Talk.key" << "Talk" << "Talk.zip";
    }

    void derivedNames()
    {
        QFETCH(QString, path);
        FileUtils utils(path);
        QTEST(utils.getPrezName(), "name");
        QTEST(utils.getPrezNameWithoutExt(), "withoutExt");
        QTEST(utils.getZipName(), "zip");
    }

    void derivedNamesFollowAReplacedName()
    {
        RenamingFileUtils utils(QStringLiteral("/d/Talk.key"));
        QCOMPARE(utils.getPrezNameWithoutExt(), QStringLiteral("Other"));
        QCOMPARE(utils.getZipName(), QStringLiteral("Other.zip"));
    }

    void pathsWithoutANameAreFatal()
    {
        QVERIFY_FATAL(FileUtils(QString()).getPrezName(), "has no file name");
        QVERIFY_FATAL(FileUtils(QStringLiteral("///")).getPrezName(), "has no file name");
        QVERIFY_FATAL(FileUtils(QStringLiteral("/d/...")).getPrezNameWithoutExt(), "nothing but dots");
    }

    void runCommandJoinsBothStreams()
    {
        FileUtils utils(QStringLiteral("/d/T.key"));
        QCOMPARE(utils.runCommand(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), QStringLiteral("printf a; printf b >&2")}),
                 QStringLiteral("a b"));
        QCOMPARE(utils.runCommand(QStringLiteral("/bin/true"), {}), QStringLiteral(" "));
        QCOMPARE(utils.runCommand(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), QStringLiteral("printf 'one\\r\\ntwo\\n'")}),
                 QStringLiteral("one\r\ntwo\n "));
        // Arguments reach the child unchanged: no shell, no quoting.
        QCOMPARE(utils.runCommand(QStringLiteral("/usr/bin/printf"), {QStringLiteral("%s|"), QStringLiteral("a b"), QStringLiteral("$HOME"), QStringLiteral("*")}),
                 QStringLiteral("a b|$HOME|*| "));
        QCOMPARE(utils.runCommand(QStringLiteral("/nonexistent/tool"), {}), QStringLiteral(" "));
    }

    void runCommandSurvivesAChattyStandardError()
    {
        FileUtils utils(QStringLiteral("/d/T.key"));
        // Far more than a pipe holds, on standard error before standard output closes.
        const QString result = utils.runCommand(QStringLiteral("/bin/sh"),
            {QStringLiteral("-c"), QStringLiteral("head -c 300000 /dev/zero | tr '\\0' e >&2; printf out")});
        QCOMPARE(result.size(), 3 + 1 + 300000);
        QVERIFY(result.startsWith(QStringLiteral("out eee")));
    }

    void childrenAreKeptOnALeash()
    {
        FileUtils utils(QStringLiteral("/d/T.key"));
        // Output that is not UTF-8 (zip listing such a name) is only text to log.
        QCOMPARE(utils.runCommand(QStringLiteral("/usr/bin/printf"), {QStringLiteral("a\\377b")}),
                 QStringLiteral("a\uFFFDb "));
        // The variables through which zip and gzip take options do not reach them.
        qputenv("ZIPOPT", "-0");
        qputenv("GZIP", "-1");
        qputenv("DECKWRIGHT_KEPT", "yes");
        const QString env = utils.runCommand(QStringLiteral("/usr/bin/env"), {});
        qunsetenv("ZIPOPT");
        qunsetenv("GZIP");
        QVERIFY(env.contains(QStringLiteral("DECKWRIGHT_KEPT=yes")));
        QVERIFY(!env.contains(QStringLiteral("ZIPOPT=")) && !env.contains(QStringLiteral("\nGZIP=")));
        // Nothing is read from our standard input, and the status is kept.
        QCOMPARE(utils.runCommand(QStringLiteral("/bin/cat"), {}), QStringLiteral(" "));
        QVERIFY(utils.lastCommand().succeeded());
        utils.runCommand(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), QStringLiteral("exit 3")});
        QCOMPARE(utils.lastCommand().exitCode, 3);
        // A cap on what a tool writes stops it there.
        QTemporaryDir dir;
        utils.setFileSizeLimit(1000);
        utils.runCommand(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), QStringLiteral("head -c 5000 /dev/zero > '%1/big'").arg(dir.path())});
        QVERIFY(!utils.lastCommand().succeeded());
        QVERIFY(QFileInfo(dir.filePath(QStringLiteral("big"))).size() <= 1000);
    }

    void rmFileRemovesFoldersFilesButNotThroughLinks()
    {
        QTemporaryDir dir;
        FileUtils utils(QStringLiteral("/d/T.key"));
        QVERIFY(QDir().mkpath(dir.filePath(QStringLiteral("pkg/Data/deep"))));
        QFile f(dir.filePath(QStringLiteral("pkg/Data/deep/x")));
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.close();
        utils.rmFile(dir.filePath(QStringLiteral("pkg")));
        QVERIFY(!QFileInfo::exists(dir.filePath(QStringLiteral("pkg"))));

        // A link to a folder goes; the folder it points at stays whole.
        QVERIFY(QDir().mkpath(dir.filePath(QStringLiteral("victim/inside"))));
        QVERIFY(QFile::link(dir.filePath(QStringLiteral("victim")), dir.filePath(QStringLiteral("link"))));
        utils.rmFile(dir.filePath(QStringLiteral("link")));
        QVERIFY(!QFileInfo(dir.filePath(QStringLiteral("link"))).isSymLink());
        QVERIFY(QFileInfo::exists(dir.filePath(QStringLiteral("victim/inside"))));

        // Removing what is not there is silent and changes nothing.
        const QStringList before = QDir(dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
        utils.rmFile(dir.filePath(QStringLiteral("missing")));
        QCOMPARE(QDir(dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), before);
    }

    void tmpDirFromEnvironmentText()
    {
        QCOMPARE(FileUtils::tmpDirFromEnvText(QStringLiteral("HOME=/root\nTMPDIR=/a/\nX=1\nTMPDIR=/b/\n")), QStringLiteral("/b/"));
        QCOMPARE(FileUtils::tmpDirFromEnvText(QStringLiteral("HOME=/root\n")), QString());
        QCOMPARE(FileUtils::tmpDirFromEnvText(QStringLiteral("TMPDIR=/x=y/\n")), QStringLiteral("/x"));
        QCOMPARE(FileUtils::tmpDirFromEnvText(QStringLiteral("MYTMPDIR=/no\n")), QString());
        QVERIFY_FATAL(FileUtils::tmpDirFromEnvText(QStringLiteral("TMPDIR=\n")), "TMPDIR");
    }

    void tmpDirFromTheRealEnvironment()
    {
        qputenv("TMPDIR", "/var/tmp/deckwright-test/");
        QCOMPARE(FileUtils(QStringLiteral("/d/T.key")).getTmpDirFromEnv(), QStringLiteral("/var/tmp/deckwright-test/"));
        qunsetenv("TMPDIR");
        QCOMPARE(FileUtils(QStringLiteral("/d/T.key")).getTmpDirFromEnv(), QString());
    }

    void onlyAClosedFolderOfOursIsPrivate()
    {
        QTemporaryDir dir;
        const QString open = dir.filePath(QStringLiteral("open"));
        const QString closed = dir.filePath(QStringLiteral("closed"));
        QVERIFY(QDir().mkdir(open));
        QVERIFY(QDir().mkdir(closed));
        QCOMPARE(::chmod(QFile::encodeName(open).constData(), 0755), 0);
        QCOMPARE(::chmod(QFile::encodeName(closed).constData(), 0700), 0);
        QVERIFY(QFile::link(closed, dir.filePath(QStringLiteral("link"))));
        QFile file(dir.filePath(QStringLiteral("file")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(ScratchDir::isPrivate(closed));
        QVERIFY(!ScratchDir::isPrivate(open));
        QVERIFY(!ScratchDir::isPrivate(dir.filePath(QStringLiteral("link"))));
        QVERIFY(!ScratchDir::isPrivate(dir.filePath(QStringLiteral("file"))));
        QVERIFY(!ScratchDir::isPrivate(dir.filePath(QStringLiteral("missing"))));

        // Each FileUtils has a private run folder of its own, gone with it.
        auto first = std::make_unique<FileUtils>(QStringLiteral("/d/T.key"));
        const std::optional<QString> tmp = first->getTmpDir();
        QVERIFY(tmp && tmp->endsWith(QLatin1Char('/')) && ScratchDir::isPrivate(*tmp));
        QCOMPARE(first->getTmpDir(), tmp);
        QVERIFY(FileUtils(QStringLiteral("/d/T.key")).getTmpDir() != tmp);
        first.reset();
        QVERIFY(!QFileInfo::exists(*tmp));
    }
};

QTEST_GUILESS_MAIN(TestFileUtils)
#include "TestFileUtils.moc"
