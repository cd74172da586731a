#include "core/FileUtils.h"
#include "support/FatalTrap.h"

#include <QtTest>

// The scratch folder, the tools' environment and their size caps are attacked
// through the real program in the hostile suite, and the usual names (dots,
// blanks, relative paths) go through the converter and the command line; what
// is left here are the odd names and the text a conversion works from.
class TestFileUtils : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { FatalTrap::install(); }

    void derivedNames_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("withoutExt");
        QTest::newRow("double and trailing slashes") << "//a//b//Talk.key//"
                                                     << "Talk.key"
                                                     << "Talk";
        QTest::newRow("leading dot") << "/d/.key"
                                     << ".key"
                                     << "key";
    }

    void derivedNames()
    {
        QFETCH(QString, path);
        QFETCH(QString, withoutExt);
        FileUtils utils(path);
        QTEST(utils.getPrezName(), "name");
        QCOMPARE(utils.getPrezNameWithoutExt(), withoutExt);
        QCOMPARE(utils.getZipName(), withoutExt + QStringLiteral(".zip"));
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
        const auto sh = [&](const char *script) {
            return utils.runCommand(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), QString::fromUtf8(script)});
        };
        QCOMPARE(sh("printf a; printf b >&2"), QStringLiteral("a b"));
        QCOMPARE(sh("printf 'one\\r\\ntwo\\n'"), QStringLiteral("one\r\ntwo\n "));
        // Output that is not UTF-8 (zip listing such a name) is only text to log.
        QCOMPARE(sh("printf 'a\\377b'"), QStringLiteral("a\uFFFDb "));
        // Far more than a pipe holds, on standard error before standard output closes.
        const QString chatty = sh("head -c 300000 /dev/zero | tr '\\0' e >&2; printf out");
        QCOMPARE(chatty.size(), 3 + 1 + 300000);
        QVERIFY(chatty.startsWith(QStringLiteral("out eee")));
        // Arguments reach the child unchanged: no shell, no quoting.
        QCOMPARE(utils.runCommand(QStringLiteral("/usr/bin/printf"), {QStringLiteral("%s|"), QStringLiteral("a b"),
                                                                      QStringLiteral("$HOME"), QStringLiteral("*")}),
                 QStringLiteral("a b|$HOME|*| "));
        // Nothing is read from our standard input; a tool that cannot start says nothing.
        QCOMPARE(utils.runCommand(QStringLiteral("/bin/cat"), {}), QStringLiteral(" "));
        QCOMPARE(utils.runCommand(QStringLiteral("/nonexistent/tool"), {}), QStringLiteral(" "));
    }

    void rmFileRemovesALinkNotWhatItPointsTo()
    {
        QTemporaryDir dir;
        FileUtils utils(QStringLiteral("/d/T.key"));
        QVERIFY(QDir().mkpath(dir.filePath(QStringLiteral("pkg/Data/deep"))));
        QVERIFY(QFile::link(dir.filePath(QStringLiteral("pkg")), dir.filePath(QStringLiteral("link"))));
        utils.rmFile(dir.filePath(QStringLiteral("link")));
        QVERIFY(!QFileInfo(dir.filePath(QStringLiteral("link"))).isSymLink());
        QVERIFY(QFileInfo::exists(dir.filePath(QStringLiteral("pkg/Data/deep"))));
        utils.rmFile(dir.filePath(QStringLiteral("pkg")));
        utils.rmFile(dir.filePath(QStringLiteral("missing")));
        QCOMPARE(QDir(dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System), QStringList());
    }

    void tmpDirFromEnvironmentText()
    {
        QCOMPARE(FileUtils::tmpDirFromEnvText(QStringLiteral("HOME=/root\nTMPDIR=/a/\nX=1\nTMPDIR=/b/\n")),
                 QStringLiteral("/b/"));
        QCOMPARE(FileUtils::tmpDirFromEnvText(QStringLiteral("MYTMPDIR=/no\n")), QString());
        QVERIFY_FATAL(FileUtils::tmpDirFromEnvText(QStringLiteral("TMPDIR=\n")), "TMPDIR");
    }
};

QTEST_GUILESS_MAIN(TestFileUtils)
#include "TestFileUtils.moc"
