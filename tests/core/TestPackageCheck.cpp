#include "core/PackageCheck.h"
#include "core/ScratchDir.h"
#include "support/PackageFactory.h"
#include "support/Program.h"
#include "support/TestSettings.h"
#include "support/Tree.h"

#include <QtTest>

// What `deckwright check` says of one item, and that saying it changes
// nothing; the lines and the folders are the command's test.
class TestPackageCheck : public QObject
{
    Q_OBJECT

    QTemporaryDir m_work;

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_work.isValid());
        TestSettings::isolateScratch(m_work.path());
    }

    void judgesEachKindOfItem_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("document"); // of the package made first
        QTest::addColumn<QString>("script");      // then run beside it, $P its name
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("reason");
        QTest::addColumn<int>("slides");
        QTest::addColumn<bool>("sized"); // the size is reported
        const QByteArray four = PackageFactory::keynoteFourDocument();
        const int no = int(PackageCheck::Kind::NotConvertible);
        const auto row = [&](const char *tag, const QString &script, int kind, const QString &reason, int slides = -1,
                             bool sized = true, const QByteArray &document = PackageFactory::keynoteFourDocument(),
                             const QString &name = QStringLiteral("Talk.key")) {
            QTest::newRow(tag) << name << document << script << kind << reason << slides << sized;
        };
        // Indented slides sit in their parent slide's list; master slides and
        // the lists themselves are no slides.
        row("convertible", "", int(PackageCheck::Kind::KeynoteFourPackage), "", 3, true,
            "<key:presentation key:version=\"72007061400\"><key:master-slides><key:master-slide/></key:master-slides>"
            "<key:slide-list><key:slide key:id=\"1\"/><key:slide>\n<key:slide-list><key:slide\tkey:id=\"3\">"
            "</key:slide></key:slide-list></key:slide></key:slide-list><key:slide-number/></key:presentation>");
        row("through a link", "mv \"$P\" Real.key; ln -s Real.key \"$P\"", int(PackageCheck::Kind::KeynoteFourPackage),
            "", 1);
        // Its folders lack the rights the converter gives its own copy; the check gives none.
        row("read-only package", "find \"$P\" -type f -exec chmod 444 {} +; find \"$P\" -type d -exec chmod 555 {} +",
            int(PackageCheck::Kind::KeynoteFourPackage), "", 1);
        row("Keynote 09 package", "", int(PackageCheck::Kind::KeynoteFivePackage), "already in the Keynote '09 format",
            1, true, PackageFactory::keynoteFiveDocument());
        row("Keynote 09 zip", "rm -r \"$P\"; printf 'PK\\003\\004rest' > \"$P\"",
            int(PackageCheck::Kind::KeynoteFiveDocument), "already in the Keynote '09 format");
        row("other single file", "rm -r \"$P\"; printf text > \"$P\"", no,
            "it is a single file, not a Keynote '08 package");
        row("no index.apxl.gz", "rm \"$P/index.apxl.gz\"", no, "index.apxl.gz is missing");
        row("damaged gzip", "head -c 30 \"$P/index.apxl.gz\" > cut; mv cut \"$P/index.apxl.gz\"", no,
            "the document is damaged");
        row("document a folder", "rm \"$P/index.apxl.gz\"; mkdir \"$P/index.apxl.gz\"", no, "the document is damaged");
        row("not UTF-8", "", no, "the document is not UTF-8 text", -1, true,
            "<a key:version=\"72007061400\">caf\xe9</a>");
        row("no tag", "", no, "the document has no Keynote '08 version tag", -1, true, "<presentation/>");
        row("over the size limit",
            "{ printf '<a key:version=\"72007061400\">'; head -c 270000000 /dev/zero; } | gzip -1 > "
            "\"$P/index.apxl.gz\"",
            no, "the document is larger than 256 MB");
        row("link inside", "ln -s 'Data/photo one.jpg' \"$P/alias.jpg\"", no, "it holds a symbolic link: alias.jpg", -1,
            false);
        row("link out", "ln -s /etc/passwd \"$P/Data/passwd\"", no,
            "it holds a link to a file outside the package: Data/passwd", -1, false);
        row("FIFO inside", "mkfifo \"$P/Data/pipe\"", no, "it holds a FIFO: Data/pipe", -1, false);
        row("FIFO as the package", "rm -r \"$P\"; mkfifo \"$P\"", no, "it is a FIFO", -1, false);
        row("missing", "rm -r \"$P\"", no, "it was not found", -1, false);
        row("name not ending in .key", "", no, "its name does not end in .key", -1, false, four,
            QStringLiteral("Talk.pdf"));
    }

    void judgesEachKindOfItem()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, document);
        QFETCH(QString, script);
        QFETCH(bool, sized);
        const QString folder = m_work.filePath(QStringLiteral("in/") + QString::fromUtf8(QTest::currentDataTag()));
        QVERIFY(QDir().mkpath(folder));
        PackageFactory(folder).make(name, document);
        QVERIFY(Program::sh(script, folder, {{QStringLiteral("P"), name}}));
        const QString path = folder + QLatin1Char('/') + name;
        const Tree before = Tree::of(folder, Tree::WithTimes);

        const PackageCheck::Verdict verdict = PackageCheck::check(path);
        QTEST(int(verdict.kind), "kind");
        QTEST(verdict.reason, "reason");
        QTEST(verdict.slides, "slides");
        QCOMPARE(verdict.bytes, sized ? Tree::fileBytes(path) : -1);
        QCOMPARE(Tree::of(folder, Tree::WithTimes), before);
        QCOMPARE(QDir(ScratchDir::path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
                 QStringList());
    }
};

QTEST_GUILESS_MAIN(TestPackageCheck)
#include "TestPackageCheck.moc"
