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
    QString m_in = m_work.filePath(u"in"_s);

    QString size(const QString &relative) const { return DiskSpace::describe(Tree::fileBytes(m_in + u'/' + relative)); }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_work.isValid());
        ::chmod(QFile::encodeName(m_work.path()).constData(), 0755); // the way in is open to nobody
        m_program.workingFolder = m_in;
        const PackageFactory factory(m_in);
        factory.make(u"Talk.key"_s, PackageFactory::keynoteFourDocument(u"Talk"_s, 12));
        factory.make(u"Newer.key"_s, PackageFactory::keynoteFiveDocument());
        factory.makeWithoutIndex(u"Empty.key"_s);
        PackageFactory(m_in + u"/Decks"_s).make(u"B.key"_s);
        PackageFactory(m_in + u"/Decks/Old"_s).make(u"A.key"_s);
        QVERIFY(
            Program::sh(u"mkdir Nothing; printf 'PK\\003\\004 the rest' > Zipped.key; printf %%PDF > Talk.pdf; "
                        "printf notes > Decks/notes.txt"_s,
                        m_in));
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

    void checkPrintsOneLinePerItemAndChangesNothing()
    {
        const Tree before = Tree::of(m_in, Tree::WithTimes);
        const Finished run = m_program.run(
            Program::deckwright({u"check"_s, u"Talk.key"_s, u"Decks/"_s, u"Newer.key"_s, u"Zipped.key"_s,
                                 u"Empty.key"_s, u"missing.key"_s, u"Talk.pdf"_s, m_in + u"/Nothing"_s}));
        QCOMPARE(
            run.lines(),
            QStringList({
                u"Talk.key: Keynote '08 package, convertible, %1, 12 slides"_s.arg(size(u"Talk.key"_s)),
                u"Decks/B.key: Keynote '08 package, convertible, %1, 1 slide"_s.arg(size(u"Decks/B.key"_s)),
                u"Decks/Old/A.key: Keynote '08 package, convertible, %1, 1 slide"_s.arg(size(u"Decks/Old/A.key"_s)),
                u"Newer.key: Keynote '09 package, %1, 1 slide"_s.arg(size(u"Newer.key"_s)),
                u"Zipped.key: Keynote '09 document (zip), 13 bytes"_s,
                u"Empty.key: not convertible (index.apxl.gz is missing), %1"_s.arg(size(u"Empty.key"_s)),
                u"missing.key: not convertible (it was not found)"_s,
                u"Talk.pdf: not convertible (its name does not end in .key)"_s,
                m_in + u"/Nothing: no .key packages in it"_s,
            }));
        QCOMPARE(run.status, 1);
        QCOMPARE(run.err, QByteArray());
        QCOMPARE(Tree::of(m_in, Tree::WithTimes), before);
        QVERIFY(Tree::of(m_program.scratch()).size() <= 1);
        const Finished convertible = m_program.run(Program::deckwright({u"check"_s, u"Decks"_s, u"Talk.key"_s}));
        QCOMPARE(convertible.lines().size(), 3);
        QCOMPARE(convertible.status, 0);
    }

    // Root may read everything: then the check runs as nobody, with a scratch folder of nobody's.
    void checkRefusesWhatItMayNotRead()
    {
        if (!Program::canRunAsNobody())
            QSKIP(Program::whyNotAsNobody());
        const QString locked = m_work.filePath(u"unreadable"_s);
        Program stranger(locked + u"/home"_s);
        QVERIFY(Program::giveToNobody(stranger.runtime()));
        // A link comes before the unreadable folder, but the converter's copy would stop at the folder first.
        QVERIFY(
            Program::sh(u"for p in File Listed Hidden; do cp -r \"$SRC\" $p.key; done; "
                        "chmod 000 'File.key/Data/photo one.jpg'; chmod 444 Listed.key/Data; "
                        "ln -s Data/x Hidden.key/alias; mkdir -p Hidden.key/Z/In; chmod 000 Hidden.key/Z; "
                        "chmod 755 . home"_s,
                        locked, {{u"SRC"_s, m_in + u"/Talk.key"_s}}));
        const Finished run = stranger.run(Program::deckwright({u"check"_s, locked}), Program::Nobody);
        const QString refused = locked + u"/%1.key: not convertible (it holds a %2 that could not be read: %3)"_s;
        QCOMPARE(run.lines(), QStringList({refused.arg(u"File"_s, u"file"_s, u"Data/photo one.jpg"_s),
                                           refused.arg(u"Hidden"_s, u"folder"_s, u"Z"_s),
                                           refused.arg(u"Listed"_s, u"folder"_s, u"Data"_s)}));
        QCOMPARE(run.status, 1);
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
