#include "core/FileUtils.h"
#include "support/FatalTrap.h"
#include "support/Program.h"
#include "support/Tree.h"

#include <QtTest>

using namespace Qt::StringLiterals;

// The scratch folder, the tools' environment and their size caps are attacked
// through the real program in the hostile suite, and the usual names (dots,
// blanks, relative paths) go through the converter and the command line; what
// is left here are the odd names and the text a conversion works from.
class TestFileUtils : public QObject
{
    Q_OBJECT

    FileUtils m_utils{u"/d/T.key"_s};

private Q_SLOTS:
    void initTestCase() { FatalTrap::install(); }

    void derivedNames_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QStringList>("names"); // the package's, without its extension, of its zip
        QTest::newRow("extra slashes") << u"//a//b//Talk.key//"_s
                                       << QStringList{u"Talk.key"_s, u"Talk"_s, u"Talk.zip"_s};
        QTest::newRow("leading dot") << u"/d/.key"_s << QStringList{u".key"_s, u"key"_s, u"key.zip"_s};
    }

    void derivedNames()
    {
        QFETCH(QString, path);
        FileUtils utils(path);
        QTEST((QStringList{utils.getPrezName(), utils.getPrezNameWithoutExt(), utils.getZipName()}), "names");
    }

    void pathsWithoutANameAreFatal()
    {
        QVERIFY_FATAL(FileUtils(QString()).getPrezName(), "has no file name");
        QVERIFY_FATAL(FileUtils(u"///"_s).getPrezName(), "has no file name");
        QVERIFY_FATAL(FileUtils(u"/d/..."_s).getPrezNameWithoutExt(), "nothing but dots");
    }

    void runCommandJoinsBothStreams()
    {
        const auto sh = [&](const QString &script) { return m_utils.runCommand(u"/bin/sh"_s, {u"-c"_s, script}); };
        QCOMPARE(sh(u"printf a; printf b >&2"_s), u"a b"_s);
        QCOMPARE(sh(u"printf 'one\\r\\ntwo\\n'"_s), u"one\r\ntwo\n "_s);
        // Output that is not UTF-8 (zip listing such a name) is only text to log.
        QCOMPARE(sh(u"printf 'a\\377b'"_s), u"a\uFFFDb "_s);
        // Far more than a pipe holds, on standard error before standard output closes.
        QCOMPARE(sh(u"head -c 300000 /dev/zero | tr '\\0' e >&2; printf out"_s), u"out "_s + QString(300000, u'e'));
        // Arguments reach the child unchanged: no shell, no quoting.
        QCOMPARE(m_utils.runCommand(u"/usr/bin/printf"_s, {u"%s|"_s, u"a b"_s, u"$HOME"_s, u"*"_s}),
                 u"a b|$HOME|*| "_s);
        // Nothing is read from our standard input; a tool that cannot start says nothing.
        QCOMPARE(m_utils.runCommand(u"/bin/cat"_s, {}), u" "_s);
        QCOMPARE(m_utils.runCommand(u"/nonexistent/tool"_s, {}), u" "_s);
    }

    void rmFileRemovesALinkNotWhatItPointsTo()
    {
        QTemporaryDir dir;
        QVERIFY(Program::sh(u"mkdir -p pkg/Data/deep; ln -s \"$PWD/pkg\" link"_s, dir.path()));
        m_utils.rmFile(dir.filePath(u"link"_s));
        QCOMPARE(Tree::of(dir.path()).keys(), (QList<QByteArray>{".", "pkg", "pkg/Data", "pkg/Data/deep"}));
        m_utils.rmFile(dir.filePath(u"pkg"_s));
        m_utils.rmFile(dir.filePath(u"missing"_s));
        QCOMPARE(Tree::of(dir.path()).keys(), QList<QByteArray>{"."});
    }

    void tmpDirFromEnvironmentText()
    {
        QCOMPARE(FileUtils::tmpDirFromEnvText(u"HOME=/root\nTMPDIR=/a/\nX=1\nTMPDIR=/b/\n"_s), u"/b/"_s);
        QCOMPARE(FileUtils::tmpDirFromEnvText(u"MYTMPDIR=/no\n"_s), QString());
        QVERIFY_FATAL(FileUtils::tmpDirFromEnvText(u"TMPDIR=\n"_s), "TMPDIR");
    }
};

QTEST_GUILESS_MAIN(TestFileUtils)
#include "TestFileUtils.moc"
