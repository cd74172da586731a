#include "support/PackageFactory.h"
#include "support/TestSettings.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

namespace {
struct Run
{
    int status = -1;
    QString out;
    QString err;
};
} // namespace

// Drives the built program the way a script would.
class TestConvertCommand : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_work;
    QString m_in;
    QProcessEnvironment m_env = QProcessEnvironment::systemEnvironment();

    // Root writes anywhere: an output folder that cannot be written needs another user.
    Run deckwright(const QStringList &arguments, bool unprivileged = false)
    {
        const QStringList nobody{QStringLiteral("setpriv"), QStringLiteral("--reuid=nobody"),
                                 QStringLiteral("--regid=nogroup"), QStringLiteral("--clear-groups")};
        const QStringList command = (unprivileged && ::geteuid() == 0 ? nobody : QStringList())
                                    + QStringList{QStringLiteral(DECKWRIGHT_BINARY)} + arguments;
        QProcess process;
        process.setProcessEnvironment(m_env);
        process.setWorkingDirectory(m_in);
        process.start(command.first(), command.mid(1));
        process.waitForFinished(120000);
        return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
                QString::fromUtf8(process.readAllStandardOutput()), QString::fromUtf8(process.readAllStandardError())};
    }

    QString makeOut(const QString &name)
    {
        const QString out = m_work.filePath(name);
        QDir().mkpath(out);
        return out;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_work.isValid());
        m_in = m_work.filePath(QStringLiteral("in"));
        QDir().mkpath(m_in);
        // The person's own settings must stay untouched: give the runs a config home to watch.
        m_env.insert(QStringLiteral("XDG_CONFIG_HOME"), m_work.filePath(QStringLiteral("config")));
        m_env.insert(QStringLiteral("XDG_RUNTIME_DIR"), TestSettings::isolateScratch(m_work.path()));
        // As from a script on a server: a mistake must still be a usage error,
        // not an attempt at a window that ends in an abort inside Qt.
        for (const QString &name :
             {QStringLiteral("DISPLAY"), QStringLiteral("WAYLAND_DISPLAY"), QStringLiteral("QT_QPA_PLATFORM")})
            m_env.remove(name);
        const PackageFactory factory(m_in);
        factory.make(QStringLiteral("First Talk.key"));
        factory.make(QStringLiteral("Second.Talk.key"));
        QFile pdf(m_in + QStringLiteral("/Talk.pdf"));
        QVERIFY(pdf.open(QIODevice::WriteOnly));
    }

    void printsOneLinePerPackageInOrder()
    {
        const QString out = makeOut(QStringLiteral("out1"));
        const Run run
            = deckwright({QStringLiteral("convert"), QStringLiteral("--output=") + out,
                          QStringLiteral("First Talk.key"), m_in + QStringLiteral("/Second.Talk.key/"),
                          QStringLiteral("notes.txt"), QStringLiteral("Talk.pdf"), QStringLiteral("First Talk.key")});
        QCOMPARE(run.status, 1);
        QCOMPARE(run.out.split(QLatin1Char('\n')),
                 QStringList({
                     QStringLiteral("converted: First Talk.key -> %1/First Talk.key").arg(out),
                     QStringLiteral("converted: %1/Second.Talk.key/ -> %2/Second.Talk.key").arg(m_in, out),
                     QStringLiteral("skipped: notes.txt: not found"),
                     QStringLiteral("skipped: Talk.pdf: not a Keynote file (its name does not end in .key)"),
                     QStringLiteral("converted: First Talk.key -> %1/First Talk.1.key").arg(out),
                     QString(),
                 }));
        QCOMPARE(run.err, QString());
        QCOMPARE(QDir(out).entryList(QDir::Files | QDir::Hidden),
                 QStringList({QStringLiteral("First Talk.1.key"), QStringLiteral("First Talk.key"),
                              QStringLiteral("Second.Talk.key")}));
        QVERIFY(!QFileInfo::exists(m_work.filePath(QStringLiteral("config"))));
    }

    void aFolderWithoutPackagesCountsAsNotConverted()
    {
        const QString out = makeOut(QStringLiteral("out2"));
        // A file named like a package is none.
        QVERIFY(QDir().mkpath(m_in + QStringLiteral("/Empty/Notes")));
        QFile fake(m_in + QStringLiteral("/Empty/Notes/Fake.key"));
        QVERIFY(fake.open(QIODevice::WriteOnly));
        const Run run = deckwright({QStringLiteral("convert"), QStringLiteral("-o"), out,
                                    QStringLiteral("First Talk.key"), QStringLiteral("Empty")});
        QCOMPARE(run.status, 1);
        QCOMPARE(run.out, QStringLiteral("converted: First Talk.key -> %1/First Talk.key\n"
                                         "skipped: Empty: no Keynote packages in it\n")
                              .arg(out));
    }

    void answersWithoutConverting_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("reason"); // the first line of standard error, less "deckwright"; none: help
        QTest::addColumn<bool>("unprivileged");
        const QString out = makeOut(QStringLiteral("out3"));
        const QString locked = makeOut(QStringLiteral("locked"));
        ::chmod(QFile::encodeName(locked).constData(), 0555);
        ::chmod(QFile::encodeName(m_work.path()).constData(), 0755);
        const QString file = m_in + QStringLiteral("/First Talk.key/index.apxl.gz");
        const QString convert = QStringLiteral("convert"), o = QStringLiteral("-o"), x = QStringLiteral("x.key");
        QTest::newRow("no package") << QStringList{convert, QStringLiteral("--output"), out}
                                    << " convert: no package given" << false;
        QTest::newRow("no output") << QStringList{convert, x} << " convert: no output folder given (--output DIR)"
                                   << false;
        QTest::newRow("output without value")
            << QStringList{convert, QStringLiteral("--output")} << " convert: Missing value after '--output'." << false;
        QTest::newRow("missing folder") << QStringList{convert, o, out + QStringLiteral("/nope"), x}
                                        << QStringLiteral(" convert: the output folder %1/nope does not exist").arg(out)
                                        << false;
        QTest::newRow("not a folder") << QStringList{convert, o, file, x}
                                      << QStringLiteral(" convert: %1 is not a folder").arg(file) << false;
        QTest::newRow("unknown option") << QStringList{convert, QStringLiteral("--fast")}
                                        << " convert: Unknown option 'fast'." << false;
        QTest::newRow("unknown layout") << QStringList{convert, o, out, QStringLiteral("--layout=flat"), x}
                                        << " convert: unknown layout 'flat' (reference or root)" << false;
        QTest::newRow("no jobs") << QStringList{convert, QStringLiteral("-j"), QStringLiteral("0"), o, out, x}
                                 << " convert: --jobs needs a whole number of at least 1, not '0'" << false;
        QTest::newRow("jobs not a number") << QStringList{convert, QStringLiteral("--jobs=all"), o, out, x}
                                           << " convert: --jobs needs a whole number of at least 1, not 'all'" << false;
        QTest::newRow("two output folders")
            << QStringList{convert, o, out, o, out, x} << " convert: only one output folder can be given" << false;
        QTest::newRow("unknown program option")
            << QStringList{QStringLiteral("--bogus")} << ": unknown option --bogus" << false;
        QTest::newRow("misspelt command")
            << QStringList{QStringLiteral("conver")}
            << ": 'conver' is neither a command nor a file (the commands are 'convert' and 'check')" << false;
        QTest::newRow("folder not writable")
            << QStringList{convert, o, locked, x}
            << QStringLiteral(" convert: the output folder %1 is not writable").arg(locked) << true;
        QTest::newRow("help") << QStringList{QStringLiteral("--help")} << QString() << false;
        QTest::newRow("convert help") << QStringList{convert, QStringLiteral("--help")} << QString() << false;
        QTest::newRow("version") << QStringList{QStringLiteral("--version")} << QString() << false;
    }

    // A usage error exits with 2 and says why on standard error; help goes to standard output.
    void answersWithoutConverting()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, reason);
        QFETCH(bool, unprivileged);
        const Run run = deckwright(arguments, unprivileged);
        QCOMPARE(run.status, reason.isEmpty() ? 0 : 2);
        QCOMPARE(run.out.isEmpty(), !reason.isEmpty());
        QCOMPARE(run.err.section(QLatin1Char('\n'), 0, 0),
                 reason.isEmpty() ? QString() : QStringLiteral("deckwright") + reason);
    }
};

QTEST_GUILESS_MAIN(TestConvertCommand)
#include "TestConvertCommand.moc"
