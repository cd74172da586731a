#include "core/FileUtils.h"
#include "core/Regex.h"
#include "core/ScratchDir.h"
#include "support/FatalTrap.h"
#include "support/Program.h"
#include "support/Tree.h"

#include <QtTest>

#include <unistd.h>

using namespace Qt::StringLiterals;

// The tools a conversion works with: the names FileUtils derives, the
// commands it runs, the scratch folder it finds, and the version tag's
// search. The scratch folder, the tools' environment and their size caps are
// attacked through the real program in the hostile suite, and the usual names
// (dots, blanks, relative paths) go through the converter and the command
// line; what is left here are the odd names and the text a conversion works
// from. Telling tags apart in any case is checked through the converter,
// whose documents carry them in capitals; here is what only the text's
// length decides.
class TestConversionTools : public QObject
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
        m_utils.rmFile(dir.filePath(u"link/Data"_s)); // nor through a link on the way
        m_utils.rmFile(dir.filePath(u"link"_s));
        QCOMPARE(Tree::of(dir.path()).keys(), (QList<QByteArray>{".", "pkg", "pkg/Data", "pkg/Data/deep"}));
        m_utils.rmFile(dir.filePath(u"pkg"_s));
        m_utils.rmFile(dir.filePath(u"missing"_s));
        QCOMPARE(Tree::of(dir.path()).keys(), QList<QByteArray>{"."});
    }

    // The scratch folder's base too: with $TMPDIR naming no folder or the
    // root, $XDG_RUNTIME_DIR relative or the root, /tmp serves.
    void tmpDirFromTheEnvironment()
    {
        QCOMPARE(FileUtils::tmpDirFromEnvText(u"HOME=/root\nTMPDIR=/a/\nX=1\nTMPDIR=/b/\n"_s), u"/b/"_s);
        QCOMPARE(FileUtils::tmpDirFromEnvText(u"MYTMPDIR=/no\n"_s), QString());
        QVERIFY_FATAL(FileUtils::tmpDirFromEnvText(u"TMPDIR=\n"_s), "TMPDIR");
        QTemporaryDir dir; // holds run/, which the relative $XDG_RUNTIME_DIR names
        QVERIFY(QDir(dir.path()).mkdir(u"run"_s, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner)
                && QDir::setCurrent(dir.path()));
        for (const auto &[runtime, tmpdir] :
             {std::pair{"", "/nonexistent"}, {"", "nonexistent"}, {"", "/"}, {"run", "/nonexistent"}, {"/", ""}}) {
            *runtime ? qputenv("XDG_RUNTIME_DIR", runtime) : qunsetenv("XDG_RUNTIME_DIR");
            *tmpdir ? qputenv("TMPDIR", tmpdir) : qunsetenv("TMPDIR");
            QVERIFY2(ScratchDir::path().startsWith(u"/tmp/deckwright-%1"_s.arg(::getuid())), tmpdir);
        }
    }

    void searchesAsManyUnitsAsTheTextHasCharacters_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("characters"); // user-perceived ones
        QTest::newRow("empty") << QString() << 0;
        QTest::newRow("ascii") << u"<a b=\"c\">text</a>\n"_s << 18;
        // CR LF is one character; LF CR are two.
        QTest::newRow("crlf") << u"a\r\nb\n\rc\r\n\r\n"_s << 8;
        QTest::newRow("controls") << u"\t\x01\x7f"_s << 3;
        QTest::newRow("accents") << u"Cafe\u0301 na\u00efve"_s << 10;
        // Each emoji is one character but two UTF-16 units or more.
        QTest::newRow("emoji") << u"\U0001F469\u200D\U0001F4BB and \U0001F1E9\U0001F1EA"_s << 7;
        // The range after a tag then ends inside a pair, or on a half of one left alone.
        QTest::newRow("100 emoji") << u"\U0001F600"_s.repeated(100) << 100;
        QTest::newRow("101 emoji") << u"\U0001F600"_s.repeated(101) << 101;
        QTest::newRow("a lone half") << u"\xD83D\U0001F600"_s << 2;
    }

    void searchesAsManyUnitsAsTheTextHasCharacters()
    {
        QFETCH(QString, text);
        QFETCH(int, characters);
        QCOMPARE(Regex::graphemeCount(text), characters);
        // A tag after the text is found only where each character is one unit; before it, always.
        const QString tag = u"key:version=\"72007061400\""_s;
        QCOMPARE(Regex(tag).hasMatch(text + tag), text.size() == characters);
        QVERIFY(Regex(tag).hasMatch(tag + text));
    }
};

QTEST_GUILESS_MAIN(TestConversionTools)
#include "TestConversionTools.moc"
