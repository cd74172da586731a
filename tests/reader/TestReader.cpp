#include "support/PackageFactory.h"
#include "support/Program.h"

#include <QtTest>

using namespace Qt::StringLiterals;

// Opens what `deckwright convert` writes with a real reader: LibreOffice
// Impress, which reads Keynote '09 files through libetonyek, turns each
// archive layout into a PDF, or says it cannot.
class TestReader : public QObject
{
    Q_OBJECT

    QTemporaryDir m_work;

private Q_SLOTS:
    // What each layout holds is the converter's test; here the reader has its
    // say. The reason the root layout exists: the reader cannot load the
    // reference one. soffice exits 0 then too, so its message tells a refused
    // file from a reader that never started.
    void readerOpensOnlyTheRootLayout_data()
    {
        QTest::addColumn<QString>("layout");
        QTest::newRow("root: one page per slide") << u"root"_s;
        QTest::newRow("reference: not loaded") << u"reference"_s;
    }

    void readerOpensOnlyTheRootLayout()
    {
        QFETCH(QString, layout);
        const QString soffice = QStandardPaths::findExecutable(u"soffice"_s);
        if (soffice.isEmpty())
            QSKIP("soffice is not installed (scripts/deps --test installs LibreOffice Impress)");
        QVERIFY(m_work.isValid());
        // soffice starts helpers of its own, in the run's process group; each run has a home of its own.
        Program program(m_work.filePath(layout));
        program.env.insert(u"HOME"_s, program.config());
        const QString out = m_work.filePath(layout + u"/out"_s), pdfs = m_work.filePath(layout + u"/pdf"_s);
        QDir().mkpath(out);
        const QString package = PackageFactory(m_work.filePath(layout + u"/in"_s))
                                    .make(u"Talk.key"_s, PackageFactory::keynoteFourDocument(u"Talk"_s, 3));
        const Finished converted
            = program.run(Program::deckwright({u"convert"_s, u"--layout"_s, layout, u"--output"_s, out, package}));
        QVERIFY2(converted.status == 0, converted.out + converted.err);
        // A first start with an empty profile takes long, the more so on a
        // loaded machine: the limit only keeps a hung reader from stalling the suite.
        const Finished office = program.run(
            {soffice,
             u"-env:UserInstallation="_s + QUrl::fromLocalFile(m_work.filePath(layout + u"/profile"_s)).toString(),
             u"--headless"_s, u"--convert-to"_s, u"pdf"_s, u"--outdir"_s, pdfs, out + u"/Talk.key"_s},
            Program::Me, 540000);
        QVERIFY2(office.ended, "soffice did not finish");
        QFile pdf(pdfs + u"/Talk.pdf"_s);
        const bool root = layout == u"root"_s;
        QVERIFY2(root || office.err.contains("source file could not be loaded"), office.out + office.err);
        const QString text = pdf.open(QIODevice::ReadOnly) ? QString::fromLatin1(pdf.readAll()) : QString();
        QVERIFY2(pdf.exists() == root && text.startsWith(u"%PDF-"_s) == root, office.out + office.err);
        // One page object per slide; LibreOffice writes them uncompressed.
        // "/Type /Pages" is the page tree, not a page.
        QCOMPARE(text.count(QRegularExpression(u"/Type\\s*/Page(?![A-Za-z])"_s)), root ? 3 : 0);
    }
};

QTEST_GUILESS_MAIN(TestReader)
#include "TestReader.moc"
