#include "core/DiskSpace.h"
#include "support/PackageFactory.h"
#include "support/Program.h"
#include "support/Tree.h"

#include <QtTest>

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
        m_program.workingFolder = m_in;
        QVERIFY(Program::giveToNobody(m_stranger.runtime()));
        PackageFactory(m_in).make(u"Talk.key"_s, PackageFactory::keynoteFourDocument(u"Talk"_s, 12));
        PackageFactory(m_in + u"/Decks"_s).make(u"B.key"_s);
        PackageFactory(m_in + u"/Decks/Old"_s).make(u"A.key"_s);
        // The way in is open to nobody; the usage errors' output folders sit beside in/.
        QVERIFY(Program::sh(
            u"chmod 755 .; mkdir out locked in/Nothing; chmod 555 locked; printf notes > in/Decks/notes.txt"_s,
            m_work.path()));
    }

    // Folders made unreadable defeat QTemporaryDir.
    void cleanupTestCase() { QVERIFY(Program::sh(u"chmod -R u+rwX ."_s, m_work.path())); }

    void usageErrorsSayWhyAndConvertNothing_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("first"); // line of standard error; with status 0, the start of standard output
        QTest::addColumn<bool>("asNobody");
        const auto row
            = [](const char *tag, const QString &arguments, const QString &first, int status = 2,
                 bool asNobody = false) { QTest::newRow(tag) << arguments.split(u' ') << status << first << asNobody; };
        // The program runs in in/, beside out/ and locked/.
        const auto convert = [&](const char *tag, const QString &arguments, const QString &why, bool asNobody = false) {
            row(tag, u"convert "_s + arguments, u"deckwright convert: "_s + why, 2, asNobody);
        };
        convert("no package", "--output ../out", "no package given");
        convert("no output", "x.key", "no output folder given (--output DIR)");
        convert("output without value", "--output", "option '--output' needs a folder");
        convert("output empty", "--output= x.key", "option '--output' needs a folder");
        convert("layout without value", "-o ../out x.key -l", "option '-l' needs a layout (reference or root)");
        convert("missing folder", "-o ../out/nope x.key", "the output folder ../out/nope does not exist");
        convert("not a folder", "-o Talk.key/index.apxl.gz x.key", "Talk.key/index.apxl.gz is not a folder");
        convert("unknown option", "--fast", "unknown option '--fast'");
        convert("unknown short option", "-x -o ../out x.key", "unknown option '-x'");
        convert("unknown letter among flags", "-qx -o ../out x.key", "unknown option '-x' in '-qx'");
        convert("value on a flag", "--json=yes -o ../out x.key", "option '--json' takes no value");
        convert("value on help", "--help=all", "option '--help' takes no value");
        convert("unknown layout", "-o ../out --layout=flat x.key", "unknown layout 'flat' (reference or root)");
        convert("no jobs", "-j 0 -o ../out x.key", "--jobs needs a whole number of at least 1, not '0'");
        convert("jobs not a number", "--jobs=all -o ../out x.key",
                "--jobs needs a whole number of at least 1, not 'all'");
        // The bound follows: processors and the limits on open files and processes.
        convert("jobs beyond any machine", "-j 99999999999 -o ../out x.key",
                "--jobs 99999999999 is more than this machine can run: at most ");
        convert("two output folders", "-o ../out -o ../out x.key", "option '--output' can be given only once");
        convert("two layouts", "-lroot -o ../out --layout=root x.key", "option '--layout' can be given only once");
        // Root writes anywhere: a folder that cannot be written needs another user.
        convert("folder not writable", "-o ../locked x.key", "the output folder ../locked is not writable", true);
        row("check without a path", "check", "deckwright check: no path given");
        row("check, unknown option", "check --fast Talk.key", "deckwright check: unknown option '--fast'");
        row("unknown program option", "--bogus", "deckwright: unknown option '--bogus'");
        row("unknown program option after a package", "Talk.key -x", "deckwright: unknown option '-x'");
        row("misspelt command", "conver",
            "deckwright: 'conver' is neither a command nor a file (the commands are 'convert' and 'check')");
        row("help", "--help", "Usage: deckwright [PACKAGE_OR_FOLDER...]", 0);
        row("convert help", "convert --help", "Usage: deckwright convert [--jobs N] [--layout reference|root]", 0);
        row("check help", "check -h", "Usage: deckwright check PATH...", 0);
        for (const char *version : {"--version", "-V", "Talk.key --version", "convert --version", "check -V"})
            row(version, QString::fromLatin1(version), u"Deckwright "_s, 0);
    }

    // A usage error exits with 2 and says why on standard error, and where the help is; help and the version go
    // to standard output.
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
        QVERIFY2((status ? run.firstErrorLine() : run.lines().value(0)).startsWith(first), run.out + run.err);
        if (status)
            QCOMPARE(
                run.err.split('\n').mid(1),
                QByteArrayList({"Try '" + first.section(u':', 0, 0).toUtf8() + " --help' for more information.", ""}));
        QCOMPARE(status ? run.out : run.err, QByteArray());
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
        const auto row = [&](const char *tag, const QString &script, const QString &line, bool asNobody = false,
                             const QByteArray &document = PackageFactory::keynoteFourDocument(),
                             const QString &given = u"Talk.key"_s) {
            QTest::newRow(tag) << script << line << document << given << asNobody;
        };
        const QString convertible = u"%1: Keynote '08 package, convertible, %2, 1 slide"_s;
        const auto no = [](const QString &reason) { return u"%1: not convertible ("_s + reason + u')'; };
        const auto sized = [](const QString &reason) { return u"%1: not convertible ("_s + reason + u"), %2"_s; };
        // Indented slides sit in their parent slide's list; master slides and
        // the lists themselves are no slides.
        row("convertible", "", "%1: Keynote '08 package, convertible, %2, 3 slides", false,
            "<key:presentation key:version=\"72007061400\"><key:master-slides><key:master-slide/></key:master-slides>"
            "<key:slide-list><key:slide key:id=\"1\"/><key:slide>\n<key:slide-list><key:slide\tkey:id=\"3\">"
            "</key:slide></key:slide-list></key:slide></key:slide-list><key:slide-number/></key:presentation>");
        // The searched range, as many units as the text has characters, ends inside the emoji.
        row("101 emoji", "", convertible, false,
            "<key:presentation key:version=\"72007061400\"><key:slide/><t>"
                + QByteArray("\xF0\x9F\x98\x80").repeated(101) + "</t></key:presentation>\n");
        row("through a link", "mv $P Real.key; ln -s Real.key $P", convertible);
        // Its folders lack the rights the converter gives its own copy; the check gives none.
        row("read-only package", "find $P -type f -exec chmod 444 {} +; find $P -type d -exec chmod 555 {} +",
            convertible);
        row("Keynote 09 package", "", "%1: Keynote '09 package, %2, 1 slide", false,
            PackageFactory::keynoteFiveDocument());
        row("Keynote 09 zip", "rm -r $P; printf 'PK\\003\\004rest' > $P", "%1: Keynote '09 document (zip), 8 bytes");
        row("other single file", "rm -r $P; printf text > $P", sized("it is a single file, not a Keynote '08 package"));
        row("no index.apxl.gz", "rm $P/index.apxl.gz", sized("index.apxl.gz is missing"));
        row("damaged gzip", "head -c 30 $P/index.apxl.gz > cut; mv cut $P/index.apxl.gz",
            sized("the document is damaged"));
        row("document a folder", "rm $P/index.apxl.gz; mkdir $P/index.apxl.gz", sized("the document is damaged"));
        row("not UTF-8", "", sized("the document is not UTF-8 text"), false,
            "<a key:version=\"72007061400\">caf\xe9</a>");
        row("no tag", "", sized("the document has no Keynote '08 version tag"), false, "<presentation/>");
        row("over the size limit",
            "{ printf '<a key:version=\"72007061400\">'; head -c 270000000 /dev/zero; } | gzip -1 > $P/index.apxl.gz",
            sized("the document is larger than 256 MB"));
        row("link inside", "ln -s 'Data/photo one.jpg' $P/alias.jpg", no("it holds a symbolic link: alias.jpg"));
        row("link out", "ln -s /etc/passwd $P/Data/passwd",
            no("it holds a link to a file outside the package: Data/passwd"));
        row("FIFO inside", "mkfifo $P/Data/pipe", no("it holds a FIFO: Data/pipe"));
        row("FIFO as the package", "rm -r $P; mkfifo $P", no("it is a FIFO"));
        row("missing", "rm -r $P", no("it was not found"));
        row("name not ending in .key", "printf %%PDF > Talk.pdf", no("its name does not end in .key"), false,
            PackageFactory::keynoteFourDocument(), "Talk.pdf");
        row("package named .KEY", "mv $P Shout.KEY", no("its name does not end in .key"), false, {}, "Shout.KEY");
        // Root may read everything: these run as nobody, with a scratch folder of nobody's.
        const auto unreadable = [&](const QString &kind, const QString &what) {
            return no("it holds a " + kind + " that could not be read: " + what);
        };
        row("a file unreadable", "chmod 000 \"$P/Data/photo one.jpg\"", unreadable("file", "Data/photo one.jpg"), true);
        row("a folder listed, not entered", "chmod 444 $P/Data", unreadable("folder", "Data"), true);
        // The converter's copy stops at what it meets first: the link, before it enters the folder.
        row("a folder unreadable after a link", "ln -s Data/x $P/alias; mkdir -p $P/Z/In; chmod 000 $P/Z",
            no("it holds a symbolic link: alias"), true);
        // A folder is named as such whether it was given or met in a search.
        const QString shut = u": a folder that could not be read (Permission denied)"_s;
        row("folder given unreadable", "mkdir -p F/In.key; chmod 000 F", "%1" + shut, true, {}, "F");
        row("folder met unreadable", "mkdir -p F/Shut/In.key F/Open; chmod 000 F/Shut", "%1/Shut" + shut, true, {},
            "F");
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
        QCOMPARE(run.lines().join(u'\n'),
                 u"Talk.key: Keynote '08 package, convertible, %1, 12 slides\n"
                 u"Decks/B.key: Keynote '08 package, convertible, %2, 1 slide\n"
                 u"Decks/Old/A.key: Keynote '08 package, convertible, %3, 1 slide\n"
                 u"missing.key: not convertible (it was not found)\n"
                 u"%4/Nothing: no Keynote packages in it"_s.arg(size(u"Talk.key"_s), size(u"Decks/B.key"_s),
                                                                size(u"Decks/Old/A.key"_s), m_in));
        QCOMPARE(run.status, 1);
        QCOMPARE(run.err, QByteArray());
        const Finished convertible = m_program.run(Program::deckwright({u"check"_s, u"Decks"_s, u"Talk.key"_s}));
        QCOMPARE(convertible.lines().size(), 3);
        QCOMPARE(convertible.status, 0);
    }

    void aMissingToolIsNamed_data()
    {
        QTest::addColumn<QString>("tool"); // hidden from the program, in a mount namespace of its own
        QTest::addColumn<QStringList>("command");
        QTest::addColumn<QString>("line"); // %1 the reason
        for (const char *tool : {"zip", "gunzip"}) {
            QTest::addRow("check, no %s", tool)
                << tool << QStringList{u"check"_s} << u"Talk.key: not convertible (%1), "_s + size(u"Talk.key"_s);
            QTest::addRow("convert, no %s", tool)
                << tool << QStringList{u"convert"_s, u"-o"_s, m_work.path()} << u"failed: Talk.key: %1"_s;
        }
    }

    void aMissingToolIsNamed()
    {
        QFETCH(QString, tool);
        QFETCH(QStringList, command);
        QFETCH(QString, line);
        const QString hide
            = u"mount -t tmpfs tmpfs /mnt && mkdir /mnt/u /mnt/w && mknod /mnt/u/$0 c 0 0 && mount -t "
              u"overlay -o lowerdir=/usr/bin,upperdir=/mnt/u,workdir=/mnt/w none /usr/bin || exit 77; "
              u"exec \"$@\""_s;
        const Finished run = m_program.run(QStringList{u"unshare"_s, u"-m"_s, u"sh"_s, u"-c"_s, hide, tool}
                                           + Program::deckwright(command + QStringList{u"Talk.key"_s}));
        if (run.status == 77)
            QSKIP("hiding a tool needs root, a mount namespace and overlayfs");
        QCOMPARE(run.lines(), QStringList{line.arg(u"the tool /usr/bin/"_s + tool + u" is not installed"_s)});
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
