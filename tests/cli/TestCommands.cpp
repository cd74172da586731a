#include "core/DiskSpace.h"
#include "support/PackageFactory.h"
#include "support/Program.h"
#include "support/Tree.h"

#include <QtTest>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

// `deckwright check` and the mistakes a script can make with either command,
// through the built program; what `deckwright convert` prints and writes is
// TestConvertJobs's.
class TestCommands : public QObject
{
    Q_OBJECT

    QTemporaryDir m_work;
    Program m_program{m_work.filePath(u"program"_s)};
    Program m_stranger{m_work.filePath(u"stranger"_s)};
    QString m_in = m_work.filePath(u"in"_s);

    QString size(const QString &relative) const { return DiskSpace::describe(Tree::fileBytes(m_in + u'/' + relative)); }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_work.isValid());
        ::chmod(QFile::encodeName(m_work.path()).constData(), 0755); // the way in is open to nobody
        m_program.workingFolder = m_in;
        QVERIFY(Program::giveToNobody(m_stranger.runtime()));
        PackageFactory(m_in).make(u"Talk.key"_s, PackageFactory::keynoteFourDocument(u"Talk"_s, 12));
        PackageFactory(m_in + u"/Decks"_s).make(u"B.key"_s);
        PackageFactory(m_in + u"/Decks/Old"_s).make(u"A.key"_s);
        QVERIFY(Program::sh(u"mkdir Nothing; printf notes > Decks/notes.txt"_s, m_in));
    }

    void cleanupTestCase()
    {
        // Folders made unreadable defeat QTemporaryDir.
        QVERIFY(Program::sh(u"chmod -R u+rwX ."_s, m_work.path()));
    }

    void usageErrorsSayWhyAndConvertNothing_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("first"); // line of standard error; with status 0, the start of standard output
        QTest::addColumn<bool>("asNobody");
        const QString out = m_work.filePath(u"out"_s), locked = m_work.filePath(u"locked"_s);
        QDir().mkpath(out);
        QDir().mkpath(locked);
        ::chmod(QFile::encodeName(locked).constData(), 0555);
        const QString file = m_in + u"/Talk.key/index.apxl.gz"_s, convert = u"convert"_s, o = u"-o"_s, x = u"x.key"_s;
        const auto row = [](const char *tag, const QStringList &arguments, const QString &first, int status = 2,
                            bool asNobody = false) { QTest::newRow(tag) << arguments << status << first << asNobody; };
        row("no package", {convert, u"--output"_s, out}, u"deckwright convert: no package given"_s);
        row("no output", {convert, x}, u"deckwright convert: no output folder given (--output DIR)"_s);
        row("output without value", {convert, u"--output"_s}, u"deckwright convert: Missing value after '--output'."_s);
        row("missing folder", {convert, o, out + u"/nope"_s, x},
            u"deckwright convert: the output folder %1/nope does not exist"_s.arg(out));
        row("not a folder", {convert, o, file, x}, u"deckwright convert: %1 is not a folder"_s.arg(file));
        row("unknown option", {convert, u"--fast"_s}, u"deckwright convert: Unknown option 'fast'."_s);
        row("unknown layout", {convert, o, out, u"--layout=flat"_s, x},
            u"deckwright convert: unknown layout 'flat' (reference or root)"_s);
        row("no jobs", {convert, u"-j"_s, u"0"_s, o, out, x},
            u"deckwright convert: --jobs needs a whole number of at least 1, not '0'"_s);
        row("jobs not a number", {convert, u"--jobs=all"_s, o, out, x},
            u"deckwright convert: --jobs needs a whole number of at least 1, not 'all'"_s);
        row("two output folders", {convert, o, out, o, out, x},
            u"deckwright convert: only one output folder can be given"_s);
        // Root writes anywhere: a folder that cannot be written needs another user.
        row("folder not writable", {convert, o, locked, x},
            u"deckwright convert: the output folder %1 is not writable"_s.arg(locked), 2, true);
        row("check without a path", {u"check"_s}, u"deckwright check: no path given"_s);
        row("check, unknown option", {u"check"_s, u"--fast"_s, u"Talk.key"_s},
            u"deckwright check: Unknown option 'fast'."_s);
        row("unknown program option", {u"--bogus"_s}, u"deckwright: unknown option --bogus"_s);
        row("misspelt command", {u"conver"_s},
            u"deckwright: 'conver' is neither a command nor a file (the commands are 'convert' and 'check')"_s);
        row("help", {u"--help"_s}, u"Usage: deckwright [PACKAGE_OR_FOLDER...]"_s, 0);
        row("convert help", {convert, u"--help"_s}, u"Usage: deckwright convert --output DIR"_s, 0);
        row("check help", {u"check"_s, u"-h"_s}, u"Usage: deckwright check PATH..."_s, 0);
        row("version", {u"--version"_s}, u"Deckwright "_s, 0);
    }

    // A usage error exits with 2 and says why on standard error; help and the version go to standard output.
    void usageErrorsSayWhyAndConvertNothing()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, status);
        QFETCH(QString, first);
        QFETCH(bool, asNobody);
        if (asNobody && !Program::canRunAsNobody())
            QSKIP(Program::whyNotAsNobody());
        const Finished run = m_program.run(Program::deckwright(arguments), asNobody ? Program::Nobody : Program::Me);
        QCOMPARE(run.status, status);
        if (status == 0) {
            QVERIFY2(run.lines().value(0).startsWith(first), run.out.constData());
            QCOMPARE(run.err, QByteArray());
        } else {
            QCOMPARE(run.firstErrorLine(), first);
            QCOMPARE(run.out, QByteArray());
        }
        QCOMPARE(QDir(m_work.filePath(u"out"_s)).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList());
    }

    // What the check says of each kind of item, as the person it runs as may read it, changing nothing.
    void checkJudgesEachItem_data()
    {
        QTest::addColumn<QString>("script");      // run in the row's folder, beside the package Talk.key ($P)
        QTest::addColumn<QString>("line");        // %1 the path given, %2 its files' size
        QTest::addColumn<QByteArray>("document"); // the package's
        QTest::addColumn<QString>("given");
        QTest::addColumn<bool>("asNobody");
        const QByteArray four = PackageFactory::keynoteFourDocument();
        const auto row = [&](const char *tag, const QString &script, const QString &line, const QByteArray &document,
                             bool asNobody = false, const QString &given = u"Talk.key"_s) {
            QTest::newRow(tag) << script << line << document << given << asNobody;
        };
        const QString convertible = u"%1: Keynote '08 package, convertible, %2, 1 slide"_s;
        const auto no = [](const QString &reason) { return u"%1: not convertible ("_s + reason + u')'; };
        const auto sized = [](const QString &reason) { return u"%1: not convertible ("_s + reason + u"), %2"_s; };
        // Indented slides sit in their parent slide's list; master slides and
        // the lists themselves are no slides.
        row("convertible", "", u"%1: Keynote '08 package, convertible, %2, 3 slides"_s,
            "<key:presentation key:version=\"72007061400\"><key:master-slides><key:master-slide/></key:master-slides>"
            "<key:slide-list><key:slide key:id=\"1\"/><key:slide>\n<key:slide-list><key:slide\tkey:id=\"3\">"
            "</key:slide></key:slide-list></key:slide></key:slide-list><key:slide-number/></key:presentation>");
        row("through a link", "mv \"$P\" Real.key; ln -s Real.key \"$P\"", convertible, four);
        // Its folders lack the rights the converter gives its own copy; the check gives none.
        row("read-only package", "find \"$P\" -type f -exec chmod 444 {} +; find \"$P\" -type d -exec chmod 555 {} +",
            convertible, four);
        row("Keynote 09 package", "", u"%1: Keynote '09 package, %2, 1 slide"_s, PackageFactory::keynoteFiveDocument());
        row("Keynote 09 zip", "rm -r \"$P\"; printf 'PK\\003\\004rest' > \"$P\"",
            u"%1: Keynote '09 document (zip), 8 bytes"_s, four);
        row("other single file", "rm -r \"$P\"; printf text > \"$P\"",
            sized(u"it is a single file, not a Keynote '08 package"_s), four);
        row("no index.apxl.gz", "rm \"$P/index.apxl.gz\"", sized(u"index.apxl.gz is missing"_s), four);
        row("damaged gzip", "head -c 30 \"$P/index.apxl.gz\" > cut; mv cut \"$P/index.apxl.gz\"",
            sized(u"the document is damaged"_s), four);
        row("document a folder", "rm \"$P/index.apxl.gz\"; mkdir \"$P/index.apxl.gz\"",
            sized(u"the document is damaged"_s), four);
        row("not UTF-8", "", sized(u"the document is not UTF-8 text"_s), "<a key:version=\"72007061400\">caf\xe9</a>");
        row("no tag", "", sized(u"the document has no Keynote '08 version tag"_s), "<presentation/>");
        row("over the size limit",
            "{ printf '<a key:version=\"72007061400\">'; head -c 270000000 /dev/zero; } | gzip -1 > "
            "\"$P/index.apxl.gz\"",
            sized(u"the document is larger than 256 MB"_s), four);
        row("link inside", "ln -s 'Data/photo one.jpg' \"$P/alias.jpg\"", no(u"it holds a symbolic link: alias.jpg"_s),
            four);
        row("link out", "ln -s /etc/passwd \"$P/Data/passwd\"",
            no(u"it holds a link to a file outside the package: Data/passwd"_s), four);
        row("FIFO inside", "mkfifo \"$P/Data/pipe\"", no(u"it holds a FIFO: Data/pipe"_s), four);
        row("FIFO as the package", "rm -r \"$P\"; mkfifo \"$P\"", no(u"it is a FIFO"_s), four);
        row("missing", "rm -r \"$P\"", no(u"it was not found"_s), four);
        row("name not ending in .key", "printf %%PDF > Talk.pdf", no(u"its name does not end in .key"_s), four, false,
            u"Talk.pdf"_s);
        // Root may read everything: these run as nobody, with a scratch folder of nobody's.
        const auto unreadable = [](const QString &kind, const QString &what) {
            return u"%1: not convertible (it holds a "_s + kind + u" that could not be read: "_s + what + u')';
        };
        row("a file unreadable", "chmod 000 \"$P/Data/photo one.jpg\"", unreadable(u"file"_s, u"Data/photo one.jpg"_s),
            four, true);
        row("a folder listed, not entered", "chmod 444 \"$P/Data\"", unreadable(u"folder"_s, u"Data"_s), four, true);
        // A link comes before it, but the converter's copy would stop at the folder first.
        row("a folder unreadable after a link", "ln -s Data/x \"$P/alias\"; mkdir -p \"$P/Z/In\"; chmod 000 \"$P/Z\"",
            unreadable(u"folder"_s, u"Z"_s), four, true);
    }

    void checkJudgesEachItem()
    {
        QFETCH(QString, script);
        QFETCH(QString, line);
        QFETCH(QByteArray, document);
        QFETCH(QString, given);
        QFETCH(bool, asNobody);
        if (asNobody && !Program::canRunAsNobody())
            QSKIP(Program::whyNotAsNobody());
        const QString folder = m_work.filePath(u"check/"_s + QString::fromUtf8(QTest::currentDataTag()));
        PackageFactory(folder).make(u"Talk.key"_s, document);
        QVERIFY(Program::sh(script, folder, {{u"P"_s, u"Talk.key"_s}}));
        const QString path = folder + u'/' + given;
        const Tree before = Tree::of(folder, Tree::WithTimes);
        const Program &program = asNobody ? m_stranger : m_program;
        const Finished run
            = program.run(Program::deckwright({u"check"_s, path}), asNobody ? Program::Nobody : Program::Me);
        QCOMPARE(run.lines(),
                 QStringList{line.replace(u"%1"_s, path).replace(u"%2"_s, DiskSpace::describe(Tree::fileBytes(path)))});
        QCOMPARE(run.status, line.contains(u"'08 package, convertible"_s) ? 0 : 1);
        QCOMPARE(Tree::of(folder, Tree::WithTimes), before);
        QVERIFY(Tree::of(program.scratch()).size() <= 1);
    }

    // Folders are searched as the windows search them, and the lines come in the order given.
    void checkPrintsOneLinePerItem()
    {
        const Finished run = m_program.run(
            Program::deckwright({u"check"_s, u"Talk.key"_s, u"Decks/"_s, u"missing.key"_s, m_in + u"/Nothing"_s}));
        QCOMPARE(
            run.lines(),
            QStringList({
                u"Talk.key: Keynote '08 package, convertible, %1, 12 slides"_s.arg(size(u"Talk.key"_s)),
                u"Decks/B.key: Keynote '08 package, convertible, %1, 1 slide"_s.arg(size(u"Decks/B.key"_s)),
                u"Decks/Old/A.key: Keynote '08 package, convertible, %1, 1 slide"_s.arg(size(u"Decks/Old/A.key"_s)),
                u"missing.key: not convertible (it was not found)"_s,
                m_in + u"/Nothing: no .key packages in it"_s,
            }));
        QCOMPARE(run.status, 1);
        QCOMPARE(run.err, QByteArray());
        const Finished convertible = m_program.run(Program::deckwright({u"check"_s, u"Decks"_s, u"Talk.key"_s}));
        QCOMPARE(convertible.lines().size(), 3);
        QCOMPARE(convertible.status, 0);
    }

    void sizesReadAsAPersonReadsThem_data()
    {
        QTest::addColumn<qint64>("bytes");
        QTest::addColumn<QString>("text");
        QTest::newRow("one") << qint64(1) << "1 byte";
        QTest::newRow("under a KB") << qint64(1023) << "1023 bytes";
        QTest::newRow("a byte under a MB") << qint64(1024 * 1024 - 1) << "1.0 MB";
        QTest::newRow("a deck") << qint64(13002342) << "12.4 MB";
        QTest::newRow("GB") << qint64(5LL << 30) << "5.0 GB";
    }

    void sizesReadAsAPersonReadsThem()
    {
        QFETCH(qint64, bytes);
        QTEST(DiskSpace::describe(bytes), "text");
    }
};

QTEST_GUILESS_MAIN(TestCommands)
#include "TestCommands.moc"
