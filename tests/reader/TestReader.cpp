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

    static constexpr int kSlides = 3;
    QTemporaryDir m_work;
    QString m_package;

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_work.isValid());
        m_package = PackageFactory(m_work.filePath(u"in"_s))
                        .make(u"Talk.key"_s, PackageFactory::keynoteFourDocument(u"Talk"_s, kSlides));
    }

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
        // soffice starts helpers of its own, in the run's process group; each run has a home of its own.
        Program program(m_work.filePath(layout));
        program.env.insert(u"HOME"_s, program.config());
        const QString out = m_work.filePath(layout + u"/out"_s), pdfs = m_work.filePath(layout + u"/pdf"_s);
        QDir().mkpath(out);
        const Finished converted
            = program.run(Program::deckwright({u"convert"_s, u"--layout"_s, layout, u"--output"_s, out, m_package}));
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
        if (layout == u"reference"_s) {
            QVERIFY2(office.err.contains("source file could not be loaded"), office.out + office.err);
            QVERIFY(!pdf.exists());
            return;
        }
        QVERIFY2(pdf.open(QIODevice::ReadOnly), office.out + office.err);
        const QByteArray bytes = pdf.readAll();
        QVERIFY(bytes.startsWith("%PDF-"));
        // One page object per slide; LibreOffice writes them uncompressed.
        // "/Type /Pages" is the page tree, not a page.
        static const QRegularExpression pageObject(u"/Type\\s*/Page(?![A-Za-z])"_s);
        int pages = 0;
        for (auto it = pageObject.globalMatch(QString::fromLatin1(bytes)); it.hasNext(); it.next())
            ++pages;
        QCOMPARE(pages, kSlides);
    }
};

QTEST_GUILESS_MAIN(TestReader)
#include "TestReader.moc"
