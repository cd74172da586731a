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

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_work.isValid());
        m_scratchParent = TestSettings::isolateScratch(m_work.path());
        m_package = PackageFactory(m_work.filePath(QStringLiteral("in")))
                        .make(QStringLiteral("Talk.key"), PackageFactory::keynoteFourPresentation(kSlides));
        m_soffice = QStandardPaths::findExecutable(QStringLiteral("soffice"));
        m_rootArchive = convert(QStringLiteral("root"));
        m_referenceArchive = convert(QStringLiteral("reference"));
        QVERIFY(!m_rootArchive.isEmpty());
        QVERIFY(!m_referenceArchive.isEmpty());
    }

    // The entry lists of both layouts are checked with the converter's own
    // tests; here the reader has its say. The reason the root layout exists:
    // the reader cannot load the reference one. soffice exits 0 then too, so
    // its message tells a refused file from a reader that never started.
    void readerOpensOnlyTheRootLayout_data()
    {
        QTest::addColumn<QString>("layout");
        QTest::newRow("root: one page per slide") << QStringLiteral("root");
        QTest::newRow("reference: not loaded") << QStringLiteral("reference");
    }
    void readerOpensOnlyTheRootLayout()
    {
        QFETCH(QString, layout);
        if (m_soffice.isEmpty())
            QSKIP("soffice is not installed (scripts/deps --test installs LibreOffice Impress)");
        const bool root = layout == QLatin1String("root");
        const Run office = toPdf(root ? m_rootArchive : m_referenceArchive, layout);
        QVERIFY2(office.finished, "soffice did not finish");
        QFile pdf(m_work.filePath(QStringLiteral("pdf-%1/Talk.pdf").arg(layout)));
        if (!root) {
            QVERIFY2(office.err.contains(QStringLiteral("source file could not be loaded")),
                     qPrintable(office.out + office.err));
            QVERIFY(!pdf.exists());
            return;
        }
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
};

QTEST_GUILESS_MAIN(TestReader)
#include "TestReader.moc"
