#include "core/ConversionEvents.h"
#include "core/Converter.h"
#include "support/FatalTrap.h"
#include "core/FileUtils.h"
#include "core/NotificationCenter.h"
#include "core/OutputFile.h"
#include "support/PackageFactory.h"
#include "core/ScratchDir.h"
#include "core/ScratchRun.h"
#include "core/SettingsStore.h"
#include "core/StopRequest.h"
#include "support/EventRecorder.h"
#include "support/TestSettings.h"

#include <QDir>
#include <QDirIterator>
#include <QProcess>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>

#include <cstring>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {
QStringList expected(int progress, const QString &last)
{
    QStringList list;
    for (int i = 0; i < progress; ++i)
        list.append(QStringLiteral("progress"));
    list.append(last);
    return list;
}

// Records the commands instead of running the copy step, to see their arguments.
class RecordingFileUtils : public FileUtils
{
public:
    RecordingFileUtils(const QString &path, QStringList *log) : FileUtils(path), m_log(log) {}
    QString runCommand(const QString &launchPath, const QStringList &arguments) override
    {
        m_log->append(launchPath + QLatin1Char('|') + arguments.join(QLatin1Char('|')));
        return FileUtils::runCommand(launchPath, arguments);
    }

private:
    QStringList *m_log;
};

class RecordingConverter : public Converter
{
public:
    using Converter::Converter;
    QStringList commands;
    using Converter::writeOutput;

protected:
    std::unique_ptr<FileUtils> createFileUtils(const QString &path) override
    {
        return std::make_unique<RecordingFileUtils>(path, &commands);
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

    QStringList scratchLeftovers() const
    {
        return QDir(m_tmp).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
    }

    // Unpacks the archive and returns the files under the folder the entries name.
    QMap<QString, QByteArray> unpack(const QString &archive, const QString &folderName)
    {
        QTemporaryDir into;
        into.setAutoRemove(false);
        QProcess unzip;
        unzip.start(QStringLiteral("unzip"), {QStringLiteral("-q"), archive, QStringLiteral("-d"), into.path()});
        unzip.waitForFinished(-1);
        if (unzip.exitCode() != 0)
            return {};
        // Entries keep the path of the run's scratch folder, less the leading "/".
        QDirIterator runs(into.path() + QLatin1Char('/') + m_tmp.mid(1), {QStringLiteral("run-*")}, QDir::Dirs);
        const QString root = runs.hasNext() ? runs.next() + QLatin1Char('/') + folderName : QString();
        const auto files = root.isEmpty() ? QMap<QString, QByteArray>() : PackageFactory::snapshot(root);
        QDir(into.path()).removeRecursively();
        return files;
    }

private Q_SLOTS:
    void initTestCase()
    {
        FatalTrap::install();
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

    void convertsAPackage()
    {
        const QString package = PackageFactory(m_in).make(QStringLiteral("My Big.Talk.key"));
        const auto source = PackageFactory::snapshot(package);

        EventRecorder events;
        Converter converter(package);
        converter.doConvert(m_out);

        QCOMPARE(events.names, expected(8, QStringLiteral("finished")));
        for (Converter *object : events.objects)
            QCOMPARE(object, &converter);
        QCOMPARE(converter.errorOccurred(), qint64(0));
        QCOMPARE(converter.outputPrezName(), QStringLiteral("My Big.Talk.key"));
        QCOMPARE(PackageFactory::snapshot(package), source);
        QCOMPARE(scratchLeftovers(), QStringList());
        QCOMPARE(QDir(m_out).entryList(QDir::Files | QDir::Hidden), QStringList{QStringLiteral("My Big.Talk.key")});

        // The document carries the new tag and is otherwise the same; every other file is there, unchanged.
        auto converted = unpack(m_out + QStringLiteral("/My Big.Talk.key"), QStringLiteral("My Big"));
        QVERIFY(converted.contains(QStringLiteral("index.apxl")));
        QByteArray document = PackageFactory::keynoteFourDocument();
        document.replace("key:version=\"72007061400\"", "key:version=\"92008102400\"");
        QCOMPARE(converted.take(QStringLiteral("index.apxl")), document);
        auto media = source;
        media.remove(QStringLiteral("index.apxl.gz"));
        QCOMPARE(converted, media);
    }

    void runsTheToolsWithTheirFixedArgumentsInAFolderOfTheRunsOwn()
    {
        const QString package = PackageFactory(m_in).make(QStringLiteral("Args.key"));
        RecordingConverter first(package);
        first.doConvert(m_out);
        QCOMPARE(first.commands.size(), 5);
        // The scratch folder is <scratch>/run-XXXXXX/, new for every run.
        const QString run = first.commands.first().section(QLatin1Char('|'), 3);
        QVERIFY2(QRegularExpression(QStringLiteral("^%1run-[A-Za-z0-9]{6}/$").arg(QRegularExpression::escape(m_tmp))).match(run).hasMatch(),
                 qPrintable(run));
        QCOMPARE(first.commands, QStringList({
            QStringLiteral("/bin/cp|-r|") + package + QLatin1Char('|') + run,
            QStringLiteral("/usr/bin/gunzip|-f|") + run + QStringLiteral("Args.key/index.apxl.gz"),
            QStringLiteral("/bin/mv|") + run + QStringLiteral("Args.key|") + run + QStringLiteral("Args"),
            QStringLiteral("/usr/bin/zip|-r|") + run + QStringLiteral("Args.zip|") + run + QStringLiteral("Args"),
            QStringLiteral("/bin/mv|-f|") + run + QStringLiteral("Args.zip|") + run + QStringLiteral("Args.key"),
        }));
        RecordingConverter second(package);
        second.doConvert(m_out);
        QVERIFY(second.commands.first().section(QLatin1Char('|'), 3) != run);
        QCOMPARE(scratchLeftovers(), QStringList());
    }

    void rewritesTheTagInAnyCaseEverywhere()
    {
        QByteArray doc = "<?xml version=\"1.0\"?>\n<a KEY:VERSION=\"72007061400\"/>\n<b key:Version=\"72007061400\" "
                         "other:version=\"72007061400\"/>\n";
        const QString package = PackageFactory(m_in).make(QStringLiteral("Case.key"), doc, {});
        Converter converter(package);
        converter.doConvert(m_out);
        QCOMPARE(converter.errorOccurred(), qint64(0));
        const auto converted = unpack(m_out + QStringLiteral("/Case.key"), QStringLiteral("Case"));
        QCOMPARE(converted.value(QStringLiteral("index.apxl")),
                 QByteArray("<?xml version=\"1.0\"?>\n<a key:version=\"92008102400\"/>\n<b key:version=\"92008102400\" "
                            "other:version=\"72007061400\"/>\n"));
    }

    void refusesWhatIsNotAKeynotePackage_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<qint64>("code");
        QTest::addColumn<QStringList>("events");
        QTest::addColumn<QString>("reason");
        const QString four = QStringLiteral("notKeynoteFour");
        QTest::newRow("capital extension") << "capitals" << qint64(1) << expected(0, QStringLiteral("notKeynote")) << "its name does not end in .key";
        QTest::newRow("other extension") << "other" << qint64(1) << expected(0, QStringLiteral("notKeynote")) << "its name does not end in .key";
        QTest::newRow("no document") << "noIndex" << qint64(2) << expected(2, four) << "index.apxl.gz is missing";
        QTest::newRow("not gzip") << "notGzip" << qint64(2) << expected(3, four) << "the document is damaged";
        QTest::newRow("truncated gzip") << "truncated" << qint64(2) << expected(3, four) << "the document is damaged";
        QTest::newRow("already Keynote 09") << "keynote5" << qint64(2) << expected(3, four) << "already in the Keynote '09 format";
        QTest::newRow("Keynote 09 single file") << "zipFile" << qint64(2) << expected(3, four) << "already in the Keynote '09 format";
        QTest::newRow("other single file") << "plainFile" << qint64(2) << expected(3, four) << "it is a single file, not a Keynote '08 package";
        QTest::newRow("no version tag") << "noTag" << qint64(2) << expected(3, four) << "the document has no Keynote '08 version tag";
        QTest::newRow("not UTF-8") << "latin1" << qint64(2) << expected(3, four) << "the document is not UTF-8 text";
        QTest::newRow("missing package") << "missing" << qint64(2) << expected(2, four) << "it was not found";
    }

    void refusesWhatIsNotAKeynotePackage()
    {
        QFETCH(QString, kind);
        const PackageFactory factory(m_in);
        QString package;
        if (kind == QLatin1String("capitals"))
            package = factory.make(QStringLiteral("Loud.KEY"));
        else if (kind == QLatin1String("other"))
            package = factory.make(QStringLiteral("Sheet.numbers"));
        else if (kind == QLatin1String("noIndex"))
            package = factory.makeWithoutIndex(QStringLiteral("Empty.key"));
        else if (kind == QLatin1String("notGzip"))
            package = factory.makeWithRawIndex(QStringLiteral("Raw.key"), PackageFactory::keynoteFourDocument());
        else if (kind == QLatin1String("keynote5"))
            package = factory.make(QStringLiteral("Newer.key"), PackageFactory::keynoteFiveDocument());
        else if (kind == QLatin1String("truncated"))
            package = factory.makeWithRawIndex(QStringLiteral("Cut.key"), PackageFactory::gzip(PackageFactory::keynoteFourDocument()).chopped(12));
        else if (kind == QLatin1String("noTag"))
            package = factory.make(QStringLiteral("Plain.key"), QByteArrayLiteral("<?xml version=\"1.0\"?><presentation/>"));
        else if (kind == QLatin1String("zipFile") || kind == QLatin1String("plainFile")) {
            package = m_in + (kind == QLatin1String("zipFile") ? QStringLiteral("/Zipped.key") : QStringLiteral("/Flat.key"));
            QFile file(package);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(kind == QLatin1String("zipFile") ? QByteArray("PK\x03\x04rest of an archive", 22) : QByteArray("just text"));
        } else if (kind == QLatin1String("latin1"))
            package = factory.make(QStringLiteral("Latin.key"), QByteArray("<a key:version=\"72007061400\">caf\xe9</a>"));
        else
            package = m_in + QStringLiteral("/Nowhere.key");
        const auto source = PackageFactory::snapshot(package);

        EventRecorder events;
        Converter converter(package);
        converter.doConvert(m_out);
        QTEST(events.names, "events");
        QTEST(converter.errorOccurred(), "code");
        QTEST(converter.errorReason(), "reason");
        QCOMPARE(converter.outputPrezName(), QString());
        QCOMPARE(PackageFactory::snapshot(package), source);
        QCOMPARE(scratchLeftovers(), QStringList());
        QCOMPARE(QDir(m_out).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden), QStringList());
    }

    void numbersTheOutputWhenTheNameIsTaken()
    {
        const QString package = PackageFactory(m_in).make(QStringLiteral("My.Talk.key"));
        QFile existing(m_out + QStringLiteral("/My.Talk.key"));
        QVERIFY(existing.open(QIODevice::WriteOnly));
        existing.write("keep me");
        existing.close();

        Converter first(package);
        first.doConvert(m_out);
        QCOMPARE(first.outputPrezName(), QStringLiteral("My.1.key"));
        Converter second(package);
        second.doConvert(m_out);
        QCOMPARE(second.outputPrezName(), QStringLiteral("My.2.key"));
        QVERIFY(QDir().mkdir(m_out + QStringLiteral("/My.3.key"))); // a folder takes a name too
        Converter third(package);
        third.doConvert(m_out);
        QCOMPARE(third.outputPrezName(), QStringLiteral("My.4.key"));

        QVERIFY(existing.open(QIODevice::ReadOnly));
        QCOMPARE(existing.readAll(), QByteArray("keep me"));
        QVERIFY(!unpack(m_out + QStringLiteral("/My.2.key"), QStringLiteral("My")).isEmpty());
    }

    void leftoversAreSweptAndLiveRunsKept()
    {
        const QString package = PackageFactory(m_in).make(QStringLiteral("Stale.key"));
        // Left by a killed run, and by the scratch layout of older versions.
        QVERIFY(QDir().mkpath(m_tmp + QStringLiteral("run-dead00/Stale/junk")));
        QFile planted(m_tmp + QStringLiteral("run-dead00/Stale.zip"));
        QVERIFY(planted.open(QIODevice::WriteOnly));
        planted.write("PK junk");
        planted.close();
        QVERIFY(QDir().mkpath(m_tmp + QStringLiteral("Stale.key/junk")));
        QVERIFY(QDir().mkpath(m_tmp + QStringLiteral("Stale/junk")));
        // The running application's socket lives here too, and is no scratch.
        const int sock = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address {};
        address.sun_family = AF_UNIX;
        const QByteArray socketPath = QFile::encodeName(m_tmp + QStringLiteral("instance.sock"));
        std::strncpy(address.sun_path, socketPath.constData(), sizeof address.sun_path - 1);
        QCOMPARE(::bind(sock, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        const auto closeSocket = qScopeGuard([&] { ::close(sock); ::unlink(socketPath.constData()); });
        // A run that is still going keeps its folder.
        auto live = std::make_unique<ScratchRun>();
        QVERIFY(live->isValid());
        const QString liveName = live->path().section(QLatin1Char('/'), -2, -2);

        Converter converter(package);
        converter.doConvert(m_out);
        QCOMPARE(converter.errorOccurred(), qint64(0));
        const auto converted = unpack(m_out + QStringLiteral("/Stale.key"), QStringLiteral("Stale"));
        QVERIFY(!converted.isEmpty());
        QVERIFY(!converted.keys().join(QLatin1Char(',')).contains(QStringLiteral("junk")));
        QCOMPARE(scratchLeftovers(), QStringList({QStringLiteral("instance.sock"), liveName}));
        live.reset();
        QCOMPARE(scratchLeftovers(), QStringList{QStringLiteral("instance.sock")});
    }

    void anOutputFolderThatIsGoneIsToldNotFatal()
    {
        const QString package = PackageFactory(m_in).make(QStringLiteral("Gone.key"));
        SettingsStore::standard().useMemory({});
        QVERIFY_FATAL(Converter(package).doConvert(m_out), "no output folder was chosen");
        QCOMPARE(scratchLeftovers(), QStringList()); // unwound, the run's folder went with it

        const QString doomed = m_work.filePath(QStringLiteral("doomed"));
        QVERIFY(QDir().mkpath(doomed));
        TestSettings::useOutputFolder(doomed);
        QVERIFY(QDir(doomed).removeRecursively());
        EventRecorder events;
        Converter converter(package);
        converter.doConvert(doomed);
        QCOMPARE(events.names, expected(8, QStringLiteral("notKeynoteFour")));
        QCOMPARE(converter.errorOccurred(), qint64(Converter::OutputNotWritten));
        QCOMPARE(converter.errorReason(), QStringLiteral("could not write %1/Gone.key (the output folder no longer exists)").arg(doomed));
        QCOMPARE(scratchLeftovers(), QStringList());
    }

    void aFatalEndingRemovesTheRunsFolder()
    {
        // The real ending, in a child: the fatal exit itself must take the
        // run's folder (with the package's copy and its archive) along.
        const QString package = PackageFactory(m_in).make(QStringLiteral("Doomed.key"));
        QProcess child;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("DECKWRIGHT_TEST_FATAL_PACKAGE"), package);
        child.setProcessEnvironment(env);
        child.start(QCoreApplication::applicationFilePath(), {});
        QVERIFY(child.waitForFinished(60000));
        QCOMPARE(child.exitStatus(), QProcess::NormalExit);
        QCOMPARE(child.exitCode(), 70);
        QVERIFY(child.readAllStandardError().contains("fatal: no output folder was chosen"));
        QCOMPARE(scratchLeftovers(), QStringList());
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
        QCOMPARE(scratchLeftovers(), QStringList());
        QCOMPARE(QDir(m_out).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden), QStringList());
        QCOMPARE(PackageFactory::snapshot(package), source);
        QVERIFY(!StopRequest::pending()); // the next conversion starts afresh
    }

    void writingTheOutputIsAllOrNothingAndNeverReplaces_data()
    {
        QTest::addColumn<bool>("unnamed");
        QTest::newRow("unnamed file, then linked") << true;
        QTest::newRow("hidden name, then renamed") << false; // file systems without unnamed files
    }

    void writingTheOutputIsAllOrNothingAndNeverReplaces()
    {
        QFETCH(bool, unnamed);
        OutputFile::setUnnamedFilesTried(unnamed);
        const auto restore = qScopeGuard([] { OutputFile::setUnnamedFilesTried(true); });
        RecordingConverter converter(m_in + QStringLiteral("/A.key"));
        const QString archive = m_work.filePath(QStringLiteral("archive.zip"));
        QFile file(archive);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(PackageFactory::pseudoRandom(9 * 1024 * 1024 + 5, 7));
        file.close();
        const QByteArray bytes = PackageFactory::snapshot(m_work.path()).value(QStringLiteral("archive.zip"));

        converter.setOutputPrezName(QStringLiteral("A.key"));
        QVERIFY(converter.writeOutput(archive, m_out));
        QCOMPARE(PackageFactory::snapshot(m_out).value(QStringLiteral("A.key")), bytes);
        // Taken since the name was found free (here: by the first write): the next number.
        QVERIFY(converter.writeOutput(archive, m_out));
        QCOMPARE(converter.outputPrezName(), QStringLiteral("A.1.key"));
        // A dangling link takes a name as well, and is never written through.
        QVERIFY(QFile::link(m_work.filePath(QStringLiteral("elsewhere.key")), m_out + QStringLiteral("/A.2.key")));
        QVERIFY(converter.writeOutput(archive, m_out));
        QCOMPARE(converter.outputPrezName(), QStringLiteral("A.3.key"));
        QVERIFY(!QFileInfo::exists(m_work.filePath(QStringLiteral("elsewhere.key"))));

        converter.setOutputPrezName(QStringLiteral("B.key"));
        QVERIFY(!converter.writeOutput(m_work.filePath(QStringLiteral("missing.zip")), m_out));
        QVERIFY2(converter.errorReason().startsWith(QStringLiteral("could not write %1/B.key (").arg(m_out)), qPrintable(converter.errorReason()));
        QCOMPARE(QDir(m_out).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System),
                 QStringList({QStringLiteral("A.1.key"), QStringLiteral("A.2.key"), QStringLiteral("A.3.key"), QStringLiteral("A.key")}));
    }
};

// Run as a child by aFatalEndingRemovesTheRunsFolder: converts the package
// named in the environment with no output folder chosen, which is fatal.
static int convertWithoutAnOutputFolder()
{
    SettingsStore::standard().useMemory({});
    Converter(qEnvironmentVariable("DECKWRIGHT_TEST_FATAL_PACKAGE")).doConvert(QStringLiteral("/nowhere"));
    return 0; // not reached
}

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    if (qEnvironmentVariableIsSet("DECKWRIGHT_TEST_FATAL_PACKAGE"))
        return convertWithoutAnOutputFolder();
    TestConverter test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}
#include "TestConverter.moc"
