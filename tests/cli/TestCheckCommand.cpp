#include "cli/CheckCommand.h"
#include "core/DiskSpace.h"
#include "core/FileTree.h"
#include "support/PackageFactory.h"
#include "support/TestSettings.h"

#include <QDir>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <unistd.h>

namespace {
struct Run
{
    int status = -1;
    QStringList lines;
    QString err;
};
} // namespace

// Drives the built program the way a script would.
class TestCheckCommand : public QObject
{
    Q_OBJECT

    QTemporaryDir m_work;
    QString m_in;
    QProcessEnvironment m_env = QProcessEnvironment::systemEnvironment();

    Run deckwright(const QStringList &arguments, const QStringList &prefix = {})
    {
        const QStringList command = prefix + QStringList{QStringLiteral(DECKWRIGHT_BINARY)} + arguments;
        QProcess process;
        process.setProcessEnvironment(m_env);
        process.setWorkingDirectory(m_in);
        process.start(command.first(), command.mid(1));
        process.waitForFinished(120000);
        return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
                QString::fromUtf8(process.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts),
                QString::fromUtf8(process.readAllStandardError())};
    }

    QString size(const QString &relative) const
    {
        return DiskSpace::describe(PackageFactory::filesSize(m_in + QLatin1Char('/') + relative));
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_work.isValid());
        m_in = m_work.filePath(QStringLiteral("in"));
        m_env.insert(QStringLiteral("XDG_RUNTIME_DIR"), TestSettings::isolateScratch(m_work.path()));
        for (const QString &name :
             {QStringLiteral("DISPLAY"), QStringLiteral("WAYLAND_DISPLAY"), QStringLiteral("QT_QPA_PLATFORM")})
            m_env.remove(name);
        const PackageFactory factory(m_in);
        factory.make(QStringLiteral("Talk.key"), PackageFactory::keynoteFourPresentation(12));
        factory.make(QStringLiteral("Newer.key"), PackageFactory::keynoteFiveDocument());
        factory.makeWithoutIndex(QStringLiteral("Empty.key"));
        PackageFactory(m_in + QStringLiteral("/Decks")).make(QStringLiteral("B.key"));
        PackageFactory(m_in + QStringLiteral("/Decks/Old")).make(QStringLiteral("A.key"));
        QVERIFY(QDir().mkpath(m_in + QStringLiteral("/Nothing")));
        for (const auto &[name, content] :
             {std::pair{"Zipped.key", "PK\x03\x04 the rest"}, {"Talk.pdf", "%PDF"}, {"Decks/notes.txt", "notes"}}) {
            QFile file(m_in + QLatin1Char('/') + QLatin1String(name));
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write(content) > 0);
        }
    }

    void cleanupTestCase()
    {
        QVERIFY(FileTree::remove(m_work.path())); // folders made unreadable defeat QTemporaryDir
    }

    void printsOneLinePerItemAndChangesNothing()
    {
        const auto before = PackageFactory::fingerprint(m_in);
        const Run run
            = deckwright({QStringLiteral("check"), QStringLiteral("Talk.key"), QStringLiteral("Decks/"),
                          QStringLiteral("Newer.key"), QStringLiteral("Zipped.key"), QStringLiteral("Empty.key"),
                          QStringLiteral("missing.key"), QStringLiteral("Talk.pdf"), m_in + "/Nothing"});
        QCOMPARE(
            run.lines,
            QStringList({
                QStringLiteral("Talk.key: Keynote '08 package, convertible, %1, 12 slides").arg(size("Talk.key")),
                QStringLiteral("Decks/B.key: Keynote '08 package, convertible, %1, 1 slide").arg(size("Decks/B.key")),
                QStringLiteral("Decks/Old/A.key: Keynote '08 package, convertible, %1, 1 slide")
                    .arg(size("Decks/Old/A.key")),
                QStringLiteral("Newer.key: Keynote '09 package, %1, 1 slide").arg(size("Newer.key")),
                QStringLiteral("Zipped.key: Keynote '09 document (zip), 13 bytes"),
                QStringLiteral("Empty.key: not convertible (index.apxl.gz is missing), %1").arg(size("Empty.key")),
                QStringLiteral("missing.key: not convertible (it was not found)"),
                QStringLiteral("Talk.pdf: not convertible (its name does not end in .key)"),
                m_in + QStringLiteral("/Nothing: no .key packages in it"),
            }));
        QCOMPARE(run.status, 1);
        QCOMPARE(run.err, QString());
        QCOMPARE(PackageFactory::fingerprint(m_in), before);
        QCOMPARE(QDir(m_env.value(QStringLiteral("XDG_RUNTIME_DIR")) + QStringLiteral("/deckwright"))
                     .entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
                 QStringList());

        const Run convertible
            = deckwright({QStringLiteral("check"), QStringLiteral("Decks"), QStringLiteral("Talk.key")});
        QCOMPARE(convertible.lines.size(), 3);
        QCOMPARE(convertible.status, 0);
    }

    // Root may read everything: then the check runs as nobody, with a scratch folder of nobody's.
    void refusesWhatItMayNotRead()
    {
        QStringList nobody;
        if (::geteuid() == 0 && QStandardPaths::findExecutable(QStringLiteral("setpriv")).isEmpty())
            QSKIP("as root everything can be read; running as nobody needs setpriv");
        if (::geteuid() == 0)
            nobody = QStringList{QStringLiteral("setpriv"), QStringLiteral("--reuid=nobody"),
                                 QStringLiteral("--regid=nogroup"), QStringLiteral("--clear-groups")};
        const QString locked = m_work.filePath(QStringLiteral("locked"));
        // A link comes before the unreadable folder, but the converter's copy would stop at the folder first.
        const QString script = QStringLiteral(
            "for p in File Listed Hidden; do cp -r \"$0\" $p.key; done; chmod 000 'File.key/Data/photo one.jpg'; "
            "chmod 444 Listed.key/Data; ln -s Data/x Hidden.key/alias; mkdir -p Hidden.key/Z/In; chmod 000 "
            "Hidden.key/Z; "
            "mkdir -m 700 runtime; chmod 755 . ..; [ -z \"$1\" ] || chown nobody:nogroup runtime");
        QDir().mkpath(locked);
        QCOMPARE(QProcess::execute(QStringLiteral("sh"), {QStringLiteral("-ec"), QStringLiteral("cd \"$2\"; ") + script,
                                                          m_in + QStringLiteral("/Talk.key"), nobody.value(0), locked}),
                 0);
        m_env.insert(QStringLiteral("XDG_RUNTIME_DIR"), locked + QStringLiteral("/runtime"));
        const Run run = deckwright({QStringLiteral("check"), locked}, nobody);
        m_env.insert(QStringLiteral("XDG_RUNTIME_DIR"), m_work.filePath(QStringLiteral("runtime")));
        const QString refused
            = locked + QStringLiteral("/%1.key: not convertible (it holds a %2 that could not be read: %3)");
        QCOMPARE(run.lines,
                 QStringList({refused.arg("File", "file", "Data/photo one.jpg"), refused.arg("Hidden", "folder", "Z"),
                              refused.arg("Listed", "folder", "Data")}));
        QCOMPARE(run.status, 1);
    }

    void answersWithoutChecking_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("first"); // the first line of standard output, or else of standard error
        const QString check = QStringLiteral("check");
        QTest::newRow("no path") << QStringList{check} << 2 << "deckwright check: no path given";
        QTest::newRow("unknown option") << QStringList{check, QStringLiteral("--fast"), QStringLiteral("Talk.key")} << 2
                                        << "deckwright check: Unknown option 'fast'.";
        QTest::newRow("help") << QStringList{check, QStringLiteral("-h")} << 0 << "Usage: deckwright check PATH...";
    }

    void answersWithoutChecking()
    {
        QFETCH(QStringList, arguments);
        const Run run = deckwright(arguments);
        QTEST(run.status, "status");
        QTEST(run.lines.value(0, run.err.section(QLatin1Char('\n'), 0, 0)), "first");
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

QTEST_GUILESS_MAIN(TestCheckCommand)
#include "TestCheckCommand.moc"
