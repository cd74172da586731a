#include "core/ConversionEvents.h"
#include "core/Converter.h"
#include "core/DiskSpace.h"
#include "core/NotificationCenter.h"
#include "core/OutputFile.h"
#include "core/ScratchDir.h"
#include "core/SettingsStore.h"
#include "core/StopRequest.h"
#include "support/EventRecorder.h"
#include "support/PackageFactory.h"
#include "support/TestSettings.h"

#include <QDir>
#include <QProcess>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>

#include <functional>

// The converted archive's whole content, planted names in the output and
// scratch folders, and leftovers of earlier runs are attacked through the
// real program in the hostile suite; here are the events, the reasons, a stop
// at every stage and writing the output without unnamed files.
namespace {
QStringList expected(int progress, const QString &last)
{
    return QStringList(progress, QStringLiteral("progress")) << last;
}

struct OutputWriter : Converter
{
    using Converter::Converter;
    using Converter::writeOutput;
};

// Does what it is told while its file waits for a name.
struct TurnTaker : Converter
{
    using Converter::Converter;
    std::function<void()> onTurn;
    int turns = 0;

    void waitForTurnToName() override
    {
        ++turns;
        onTurn();
    }
};
} // namespace

class TestConverter : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_work;
    QString m_in;
    QString m_out;
    QString m_tmp;

    QStringList entries(const QString &folder) const
    {
        return QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_work.isValid());
        m_in = m_work.filePath(QStringLiteral("in"));
        QVERIFY(QDir().mkpath(m_in));
        TestSettings::isolateScratch(m_work.path());
        m_tmp = ScratchDir::path();
        QVERIFY(m_tmp.startsWith(m_work.path()));
    }

    void init()
    {
        m_out = m_work.filePath(QStringLiteral("out-%1").arg(QTest::currentTestFunction()));
        QDir(m_out).removeRecursively();
        QVERIFY(QDir().mkpath(m_out));
        TestSettings::useOutputFolder(m_out);
    }

    void convertsAPackageRewritingTheTagInAnyCase()
    {
        const QByteArray document
            = "<?xml version=\"1.0\"?>\n<a KEY:VERSION=\"72007061400\"/>\n<b key:Version=\"72007061400\" "
              "other:version=\"72007061400\"/>\n";
        const QString package = PackageFactory(m_in).make(QStringLiteral("My Big.Talk.key"), document);

        EventRecorder events;
        Converter converter(package);
        converter.doConvert(m_out);

        QCOMPARE(events.names, expected(8, QStringLiteral("finished")));
        QCOMPARE(events.objects, QList<Converter *>(events.names.size(), &converter));
        QCOMPARE(converter.errorOccurred(), qint64(Converter::NoError));
        // The document sits under the run's scratch folder and a folder named up to the first dot.
        QProcess unzip;
        unzip.start(QStringLiteral("unzip"), {QStringLiteral("-p"), m_out + QStringLiteral("/My Big.Talk.key"),
                                              QStringLiteral("*/run-??????"
                                                             "/My Big/index.apxl")});
        QVERIFY(unzip.waitForFinished());
        QCOMPARE(unzip.readAllStandardOutput(),
                 QByteArray("<?xml version=\"1.0\"?>\n<a key:version=\"92008102400\"/>\n<b key:version=\"92008102400\" "
                            "other:version=\"72007061400\"/>\n"));
    }

    // A conversion sweeps run folders a killed one left in the output folder;
    // the person's folder may hold look-alikes, which are not ours to remove.
    void sweepsOnlyItsOwnStaleRunsFromTheOutputFolder()
    {
        const QString victim = m_work.filePath(QStringLiteral("victim"));
        QVERIFY(QDir().mkpath(victim + QStringLiteral("/kept")));
        const QString prefix = m_out + QStringLiteral("/.deckwright-run-");
        QVERIFY(QDir().mkpath(prefix + QStringLiteral("stale1/Talk"))); // ours, closed to others: a leftover
        QVERIFY(QDir().mkpath(prefix + QStringLiteral("open12/Talk"))); // open to others: not one of ours
        QVERIFY(QFile::link(victim, prefix + QStringLiteral("link12")));
        QVERIFY(QFile::setPermissions(prefix + QStringLiteral("stale1"),
                                      QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        Converter converter(PackageFactory(m_in).make(QStringLiteral("Swept.key")));
        converter.doConvert(m_out);
        QCOMPARE(converter.errorOccurred(), qint64(Converter::NoError));
        QCOMPARE(entries(m_out), QStringList({QStringLiteral(".deckwright-run-link12"),
                                              QStringLiteral(".deckwright-run-open12"), QStringLiteral("Swept.key")}));
        QVERIFY(QFileInfo::exists(victim + QStringLiteral("/kept")));
    }

    void theLayoutDecidesWhereEntriesStart_data()
    {
        QTest::addColumn<QString>("layout"); // the setting's value; none: absent
        QTest::addColumn<bool>("atRoot");
        QTest::newRow("absent") << QString() << false;
        QTest::newRow("reference") << QStringLiteral("reference") << false;
        QTest::newRow("root") << QStringLiteral("root") << true;
        QTest::newRow("unknown") << QStringLiteral("flat") << false;
    }
    void theLayoutDecidesWhereEntriesStart()
    {
        QFETCH(QString, layout);
        QFETCH(bool, atRoot);
        if (!layout.isEmpty())
            TestSettings::useOutputFolder(m_out, {{SettingKey::archiveLayout, layout}});
        const auto clear = qScopeGuard([&] { QFile::remove(m_out + QStringLiteral("/Laid.Out.key")); });
        const QString package = PackageFactory(m_in).make(QStringLiteral("Laid.Out.key"));
        Converter converter(package);
        converter.doConvert(m_out);
        QCOMPARE(converter.errorOccurred(), qint64(Converter::NoError));

        QProcess unzip;
        unzip.start(QStringLiteral("unzip"), {QStringLiteral("-Z1"), m_out + QStringLiteral("/Laid.Out.key")});
        QVERIFY(unzip.waitForFinished());
        const QStringList names = QString::fromUtf8(unzip.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
        QStringList inPackage = QStringList{QStringLiteral("index.apxl")} + PackageFactory::defaultMedia().keys();
        if (atRoot) {
            // Nothing of this machine's paths: only the package's own names, and its folders.
            QStringList files = names.filter(QRegularExpression(QStringLiteral("[^/]$")));
            files.sort();
            inPackage.sort();
            QCOMPARE(files, inPackage);
            for (const QString &name : names)
                QVERIFY2(!name.startsWith('/') && !name.split('/').contains(QStringLiteral("..")), qPrintable(name));
        } else {
            // zip was given the scratch copy by its path, less the leading "/".
            const QString prefix = QString(m_tmp).remove(0, 1);
            for (const QString &file : inPackage)
                QVERIFY2(names.filter(QRegularExpression(QStringLiteral("^%1run-\\w{6}/Laid/%2$")
                                                             .arg(QRegularExpression::escape(prefix),
                                                                  QRegularExpression::escape(file))))
                                 .size()
                             == 1,
                         qPrintable(file));
        }
    }

    void refusesWhatIsNotAKeynotePackage_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("shape");      // a package, a single file, or nothing
        QTest::addColumn<QByteArray>("content"); // the package's index.apxl.gz (none when empty), the file's bytes
        QTest::addColumn<int>("progress");       // events before the refusal
        QTest::addColumn<QString>("reason");
        const QString package = QStringLiteral("package"), file = QStringLiteral("file");
        const QByteArray four = PackageFactory::gzip(PackageFactory::keynoteFourDocument());
        const QString damaged = QStringLiteral("the document is damaged"),
                      newer = QStringLiteral("already in the Keynote '09 format");
        QTest::newRow("capital extension") << "Loud.KEY" << package << four << 0 << "its name does not end in .key";
        QTest::newRow("no document") << "Empty.key" << package << QByteArray() << 2 << "index.apxl.gz is missing";
        QTest::newRow("not gzip") << "Raw.key" << package << PackageFactory::keynoteFourDocument() << 3 << damaged;
        QTest::newRow("truncated gzip") << "Cut.key" << package << four.chopped(12) << 3 << damaged;
        QTest::newRow("already Keynote 09")
            << "Newer.key" << package << PackageFactory::gzip(PackageFactory::keynoteFiveDocument()) << 3 << newer;
        QTest::newRow("Keynote 09 single file")
            << "Zipped.key" << file << QByteArray("PK\x03\x04rest of an archive", 22) << 3 << newer;
        QTest::newRow("no version tag") << "Plain.key" << package
                                        << PackageFactory::gzip("<?xml version=\"1.0\"?><presentation/>") << 3
                                        << "the document has no Keynote '08 version tag";
        QTest::newRow("not UTF-8") << "Latin.key" << package
                                   << PackageFactory::gzip("<a key:version=\"72007061400\">caf\xe9</a>") << 3
                                   << "the document is not UTF-8 text";
        QTest::newRow("missing package") << "Nowhere.key"
                                         << "nothing" << QByteArray() << 2 << "it was not found";
    }

    void refusesWhatIsNotAKeynotePackage()
    {
        QFETCH(QString, name);
        QFETCH(QString, shape);
        QFETCH(QByteArray, content);
        QFETCH(int, progress);
        const PackageFactory factory(m_in);
        const QString package = m_in + QLatin1Char('/') + name;
        if (shape == QLatin1String("package") && content.isEmpty())
            factory.makeWithoutIndex(name);
        else if (shape == QLatin1String("package"))
            factory.makeWithRawIndex(name, content);
        QFile file(package);
        QVERIFY(shape != QLatin1String("file")
                || (file.open(QIODevice::WriteOnly) && file.write(content) == content.size()));
        file.close();
        const auto source = PackageFactory::snapshot(package);

        EventRecorder events;
        Converter converter(package);
        converter.doConvert(m_out);
        QCOMPARE(events.names,
                 expected(progress, progress == 0 ? QStringLiteral("notKeynote") : QStringLiteral("notKeynoteFour")));
        QCOMPARE(converter.errorOccurred(), qint64(progress == 0 ? Converter::NotKeynote : Converter::NotKeynoteFour));
        QTEST(converter.errorReason(), "reason");
        QCOMPARE(converter.outputPrezName(), QString());
        QCOMPARE(PackageFactory::snapshot(package), source);
        QCOMPARE(entries(m_tmp), QStringList());
        QCOMPARE(entries(m_out), QStringList());
    }

    void anOutputFolderThatIsGoneIsToldNotFatal()
    {
        const QString package = PackageFactory(m_in).make(QStringLiteral("Gone.key"));
        QVERIFY(QDir(m_out).removeRecursively());
        EventRecorder events;
        Converter converter(package);
        converter.doConvert(m_out);
        QCOMPARE(events.names, expected(8, QStringLiteral("notKeynoteFour")));
        QCOMPARE(converter.errorOccurred(), qint64(Converter::OutputNotWritten));
        QCOMPARE(converter.errorReason(),
                 QStringLiteral("could not write %1/Gone.key (the output folder no longer exists)").arg(m_out));
        QCOMPARE(entries(m_tmp), QStringList());
    }

    void aFatalEndingRemovesTheRunsFolder()
    {
        // The real ending, in a child: the fatal exit itself must take the
        // run's folder (with the package's copy and its archive) along.
        const QString package = PackageFactory(m_in).make(QStringLiteral("Doomed.key"));
        QProcess child;
        child.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--convert-fatally"), package});
        QVERIFY(child.waitForFinished(60000));
        QCOMPARE(child.exitStatus(), QProcess::NormalExit);
        QCOMPARE(child.exitCode(), 70);
        QVERIFY(child.readAllStandardError().contains("fatal: no output folder was chosen"));
        QCOMPARE(entries(m_tmp), QStringList());
    }

    void aStopLeavesNothingBehind_data()
    {
        QTest::addColumn<int>("atEvent");
        for (int n = 1; n <= 8; ++n)
            QTest::addRow("after progress %d", n) << n;
    }

    void aStopLeavesNothingBehind()
    {
        QFETCH(int, atEvent);
        const QString package = PackageFactory(m_in).make(QStringLiteral("Stop.key"));
        const auto source = PackageFactory::snapshot(package);
        EventRecorder events;
        Converter converter(package);
        int seen = 0;
        NotificationCenter::defaultCenter().addObserver(this, ConversionEvents::progress, [&](const Notification &) {
            if (++seen == atEvent)
                StopRequest::request();
        });
        converter.doConvert(m_out);
        NotificationCenter::defaultCenter().removeObserver(this);
        QCOMPARE(events.names, expected(atEvent, QStringLiteral("notKeynoteFour")));
        QCOMPARE(converter.errorOccurred(), qint64(Converter::Stopped));
        QCOMPARE(entries(m_tmp), QStringList());
        QCOMPARE(entries(m_out), QStringList());
        QCOMPARE(PackageFactory::snapshot(package), source);
        QVERIFY(!StopRequest::pending()); // the next conversion starts afresh
    }

    void waitsForItsTurnWithTheFileWholeAndNameless()
    {
        const QString package = PackageFactory(m_in).make(QStringLiteral("Turn.key"));
        TurnTaker converter(package);
        QStringList seen;
        converter.onTurn = [&] {
            seen = entries(m_out);
            // An earlier conversion takes the name found free meanwhile.
            QFile earlier(m_out + QStringLiteral("/Turn.key"));
            QVERIFY(earlier.open(QIODevice::WriteOnly) && earlier.write("earlier") == 7);
        };
        converter.doConvert(m_out);
        QCOMPARE(converter.errorOccurred(), qint64(Converter::NoError));
        QCOMPARE(converter.turns, 1);
        QCOMPARE(seen, QStringList());
        QCOMPARE(converter.outputPrezName(), QStringLiteral("Turn.1.key"));
        const auto written = PackageFactory::snapshot(m_out);
        QCOMPARE(written.value(QStringLiteral("Turn.key")), QByteArray("earlier"));
        QVERIFY(written.value(QStringLiteral("Turn.1.key")).startsWith("PK\x03\x04"));

        // A package refused never asks for a turn.
        TurnTaker refused(PackageFactory(m_in).makeWithoutIndex(QStringLiteral("Refused.key")));
        refused.doConvert(m_out);
        QCOMPARE(refused.turns, 0);
    }

    void aStopWhileWaitingForItsTurnLeavesNothing()
    {
        TurnTaker converter(PackageFactory(m_in).make(QStringLiteral("Waiting.key")));
        converter.onTurn = [] { StopRequest::request(); };
        EventRecorder events;
        converter.doConvert(m_out);
        QCOMPARE(converter.turns, 1);
        QCOMPARE(converter.errorOccurred(), qint64(Converter::Stopped));
        QCOMPARE(events.names.constLast(), QStringLiteral("notKeynoteFour"));
        QCOMPARE(entries(m_out), QStringList());
        QCOMPARE(entries(m_tmp), QStringList());
    }

    // Unnamed files, used where the file system has them, are attacked through
    // the real program in the hostile suite; here the hidden name used
    // elsewhere, and the archive moved in from the folder's own disk.
    void writingIsAllOrNothingAndNeverReplaces_data()
    {
        QTest::addColumn<bool>("sameDisk");
        QTest::newRow("copied under a hidden name") << false;
        QTest::newRow("moved in") << true;
    }
    void writingIsAllOrNothingAndNeverReplaces()
    {
        QFETCH(bool, sameDisk);
        OutputFile::setUnnamedFilesTried(false);
        const auto restore = qScopeGuard([] { OutputFile::setUnnamedFilesTried(true); });
        QTemporaryDir elsewhere(QStringLiteral("/dev/shm/deckwright-test-XXXXXX"));
        if (!sameDisk && (!elsewhere.isValid() || DiskSpace::sameFileSystem(elsewhere.path(), m_out)))
            QSKIP("needs /dev/shm on a file system of its own");
        OutputWriter converter(m_in + QStringLiteral("/A.key"));
        const QString archive = (sameDisk ? m_work.path() : elsewhere.path()) + QStringLiteral("/archive.zip");
        const QByteArray bytes = PackageFactory::pseudoRandom(9 * 1024 * 1024 + 5, 7);
        const auto write = [&] {
            QFile file(archive);
            if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
                return false;
            file.close();
            return converter.writeOutput(archive, m_out);
        };

        converter.setOutputPrezName(QStringLiteral("A.key"));
        QVERIFY(write());
        QCOMPARE(PackageFactory::snapshot(m_out).value(QStringLiteral("A.key")), bytes);
        QCOMPARE(QFileInfo::exists(archive), !sameDisk); // moved, not copied
        // Taken since the name was found free (here: by the first write): the next number.
        QVERIFY(write());
        QCOMPARE(converter.outputPrezName(), QStringLiteral("A.1.key"));
        // A dangling link takes a name as well, and is never written through.
        QVERIFY(QFile::link(m_work.filePath(QStringLiteral("elsewhere.key")), m_out + QStringLiteral("/A.2.key")));
        QVERIFY(write());
        QCOMPARE(converter.outputPrezName(), QStringLiteral("A.3.key"));
        QVERIFY(!QFileInfo::exists(m_work.filePath(QStringLiteral("elsewhere.key"))));

        converter.setOutputPrezName(QStringLiteral("B.key"));
        QVERIFY(!converter.writeOutput(m_work.filePath(QStringLiteral("missing.zip")), m_out));
        QVERIFY2(converter.errorReason().startsWith(QStringLiteral("could not write %1/B.key (").arg(m_out)),
                 qPrintable(converter.errorReason()));
        QCOMPARE(entries(m_out), QStringList({QStringLiteral("A.1.key"), QStringLiteral("A.2.key"),
                                              QStringLiteral("A.3.key"), QStringLiteral("A.key")}));
        QFile::remove(archive);
    }
};

// Run as a child by aFatalEndingRemovesTheRunsFolder: converts the package
// with no output folder chosen, which is fatal.
static int convertWithoutAnOutputFolder(const QString &package)
{
    SettingsStore::standard().useMemory({});
    Converter(package).doConvert(QStringLiteral("/nowhere"));
    return 0; // not reached
}

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    if (argc == 3 && qstrcmp(argv[1], "--convert-fatally") == 0)
        return convertWithoutAnOutputFolder(QString::fromLocal8Bit(argv[2]));
    TestConverter test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}
#include "TestConverter.moc"
