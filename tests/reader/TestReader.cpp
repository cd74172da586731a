#include "support/PackageFactory.h"
#include "support/TestSettings.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

#include <algorithm>
#include <csignal>
#include <unistd.h>

namespace {
struct Run
{
    bool finished = false;
    int status = -1;
    QString out;
    QString err;
};

constexpr int kSlides = 3;
} // namespace

// Opens what `deckwright convert` writes with a real reader: LibreOffice
// Impress, which reads Keynote '09 files through libetonyek, turns each
// archive layout into a PDF, or says it cannot.
class TestReader : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_work;
    QString m_package;
    QString m_scratchParent;
    QString m_soffice;
    QString m_rootArchive;
    QString m_referenceArchive;

    // soffice starts helpers of its own: each run gets a process group, so
    // that one that hangs goes away whole.
    static Run run(const QString &program, const QStringList &arguments, const QProcessEnvironment &env, int timeoutMs)
    {
        QProcess process;
        process.setProcessEnvironment(env);
        process.setChildProcessModifier([] { ::setpgid(0, 0); });
        process.start(program, arguments);
        Run result;
        result.finished = process.waitForFinished(timeoutMs);
        if (!result.finished && process.processId() > 0) {
            ::kill(-pid_t(process.processId()), SIGKILL);
            process.waitForFinished(5000);
        }
        if (result.finished && process.exitStatus() == QProcess::NormalExit)
            result.status = process.exitCode();
        result.out = QString::fromUtf8(process.readAllStandardOutput());
        result.err = QString::fromUtf8(process.readAllStandardError());
        return result;
    }

    QProcessEnvironment environment(const QString &home) const
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const QString &name :
             {QStringLiteral("DISPLAY"), QStringLiteral("WAYLAND_DISPLAY"), QStringLiteral("QT_QPA_PLATFORM")})
            env.remove(name);
        QDir().mkpath(home);
        env.insert(QStringLiteral("HOME"), home);
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/.config"));
        env.insert(QStringLiteral("XDG_RUNTIME_DIR"), m_scratchParent);
        return env;
    }

    // Converts the package into a folder named after the layout; returns the
    // converted file, or nothing when the conversion failed.
    QString convert(const QString &layout)
    {
        const QString out = m_work.filePath(QStringLiteral("out-") + layout);
        QDir().mkpath(out);
        const Run result = run(
            QStringLiteral(DECKWRIGHT_BINARY),
            {QStringLiteral("convert"), QStringLiteral("--layout"), layout, QStringLiteral("--output"), out, m_package},
            environment(m_work.filePath(QStringLiteral("home-deckwright"))), 120000);
        const QString archive = out + QStringLiteral("/Talk.key");
        if (result.status != 0 || !QFile::exists(archive)) {
            qWarning().noquote() << "deckwright convert --layout" << layout << "said:" << result.out << result.err;
            return {};
        }
        return archive;
    }

    // A first start with an empty profile takes long, the more so on a loaded
    // machine: the timeout only keeps a hung reader from stalling the suite.
    Run toPdf(const QString &file, const QString &name)
    {
        const QString profile = m_work.filePath(QStringLiteral("profile-") + name);
        const QString pdfs = m_work.filePath(QStringLiteral("pdf-") + name);
        return run(m_soffice,
                   {QStringLiteral("-env:UserInstallation=") + QUrl::fromLocalFile(profile).toString(),
                    QStringLiteral("--headless"), QStringLiteral("--convert-to"), QStringLiteral("pdf"),
                    QStringLiteral("--outdir"), pdfs, file},
                   environment(m_work.filePath(QStringLiteral("home-") + name)), 540000);
    }

    QStringList entries(const QString &archive)
    {
        const Run listing = run(QStringLiteral("unzip"), {QStringLiteral("-Z1"), archive},
                                QProcessEnvironment::systemEnvironment(), 60000);
        if (listing.status != 0)
            qWarning().noquote() << "unzip -Z1" << archive << "said:" << listing.err;
        return listing.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_work.isValid());
        // Conversions use a scratch folder of this test's own, so that an
        // entry carrying its path is easy to recognise.
        m_scratchParent = TestSettings::isolateScratch(m_work.path());
        m_package = PackageFactory(m_work.filePath(QStringLiteral("in")))
                        .make(QStringLiteral("Talk.key"), PackageFactory::keynoteFourPresentation(kSlides));
        m_soffice = QStandardPaths::findExecutable(QStringLiteral("soffice"));
        m_rootArchive = convert(QStringLiteral("root"));
        m_referenceArchive = convert(QStringLiteral("reference"));
        QVERIFY(!m_rootArchive.isEmpty());
        QVERIFY(!m_referenceArchive.isEmpty());
    }

    void rootLayoutHoldsThePackageAtTheArchiveRoot()
    {
        // The scratch folder lives under the test's own folder.
        const QString scratchPath = m_work.path().mid(1);
        const QStringList listed = entries(m_rootArchive);
        QStringList files;
        for (const QString &entry : listed) {
            QVERIFY2(!entry.startsWith(QLatin1Char('/')), qPrintable(entry));
            QVERIFY2(!entry.split(QLatin1Char('/')).contains(QStringLiteral("..")), qPrintable(entry));
            QVERIFY2(!entry.contains(scratchPath), qPrintable(entry));
            if (!entry.endsWith(QLatin1Char('/')))
                files << entry;
        }
        QStringList expected = PackageFactory::defaultMedia().keys();
        expected << QStringLiteral("index.apxl");
        files.sort();
        expected.sort();
        QCOMPARE(files, expected);
    }

    // What the reader stumbles on: the reference layout's document sits under
    // the scratch folder's path, not at the root where Keynote '09 keeps it.
    void referenceLayoutHasNoDocumentAtTheRoot()
    {
        const QStringList listed = entries(m_referenceArchive);
        QVERIFY(!listed.isEmpty());
        QVERIFY(!listed.contains(QStringLiteral("index.apxl")));
        QVERIFY2(std::any_of(listed.begin(), listed.end(),
                             [](const QString &entry) { return entry.endsWith(QStringLiteral("/Talk/index.apxl")); }),
                 qPrintable(listed.join(QLatin1Char(' '))));
    }

    void readerOpensTheRootLayout()
    {
        if (m_soffice.isEmpty())
            QSKIP("soffice is not installed (scripts/deps --test installs LibreOffice Impress)");
        const Run office = toPdf(m_rootArchive, QStringLiteral("root"));
        QVERIFY2(office.finished, "soffice did not finish");
        QFile pdf(m_work.filePath(QStringLiteral("pdf-root/Talk.pdf")));
        QVERIFY2(pdf.open(QIODevice::ReadOnly), qPrintable(office.out + office.err));
        const QByteArray bytes = pdf.readAll();
        QVERIFY(bytes.startsWith("%PDF-"));
        // One page object per slide; LibreOffice writes them uncompressed.
        // "/Type /Pages" is the page tree, not a page.
        static const QRegularExpression pageObject(QStringLiteral("/Type\\s*/Page(?![A-Za-z])"));
        int pages = 0;
        for (auto it = pageObject.globalMatch(QString::fromLatin1(bytes)); it.hasNext(); it.next())
            ++pages;
        QCOMPARE(pages, kSlides);
    }

    // The reason the root layout exists: the reader cannot load the reference
    // one. soffice still exits 0 then, so its message is what tells a refused
    // file from a reader that did not start at all.
    void readerCannotLoadTheReferenceLayout()
    {
        if (m_soffice.isEmpty())
            QSKIP("soffice is not installed (scripts/deps --test installs LibreOffice Impress)");
        const Run office = toPdf(m_referenceArchive, QStringLiteral("reference"));
        QVERIFY2(office.finished, "soffice did not finish");
        QVERIFY2(office.err.contains(QStringLiteral("source file could not be loaded")),
                 qPrintable(office.out + office.err));
        QVERIFY(!QFile::exists(m_work.filePath(QStringLiteral("pdf-reference/Talk.pdf"))));
    }
};

QTEST_GUILESS_MAIN(TestReader)
#include "TestReader.moc"
