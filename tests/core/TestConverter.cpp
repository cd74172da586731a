#include "Converter.h"
#include "FatalTrap.h"
#include "FileUtils.h"
#include "PackageFactory.h"
#include "ScratchDir.h"
#include "SettingsStore.h"
#include "TestSettings.h"

#include <QDir>
#include <QDirIterator>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

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
        return QDir(m_tmp).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden);
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
        // Entries keep the scratch folder's path, less the leading "/".
        const QString root = into.path() + QLatin1Char('/') + m_tmp.mid(1) + folderName;
        const auto files = PackageFactory::snapshot(root);
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

    void runsTheToolsWithTheirFixedArguments()
    {
        const QString package = PackageFactory(m_in).make(QStringLiteral("Args.key"));
        RecordingConverter converter(package);
        converter.doConvert(m_out);
        QCOMPARE(converter.commands, QStringList({
            QStringLiteral("/bin/cp|-r|") + package + QLatin1Char('|') + m_tmp,
            QStringLiteral("/usr/bin/gunzip|-f|") + m_tmp + QStringLiteral("Args.key/index.apxl.gz"),
            QStringLiteral("/bin/mv|") + m_tmp + QStringLiteral("Args.key|") + m_tmp + QStringLiteral("Args"),
            QStringLiteral("/usr/bin/zip|-r|") + m_tmp + QStringLiteral("Args.zip|") + m_tmp + QStringLiteral("Args"),
            QStringLiteral("/bin/mv|-f|") + m_tmp + QStringLiteral("Args.zip|") + m_tmp + QStringLiteral("Args.key"),
        }));
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
        QTest::newRow("capital extension") << "capitals" << qint64(1) << expected(0, QStringLiteral("notKeynote"));
        QTest::newRow("other extension") << "other" << qint64(1) << expected(0, QStringLiteral("notKeynote"));
        QTest::newRow("no document") << "noIndex" << qint64(2) << expected(2, QStringLiteral("notKeynoteFour"));
        QTest::newRow("not gzip") << "notGzip" << qint64(2) << expected(3, QStringLiteral("notKeynoteFour"));
        QTest::newRow("already Keynote 09") << "keynote5" << qint64(2) << expected(3, QStringLiteral("notKeynoteFour"));
        QTest::newRow("not UTF-8") << "latin1" << qint64(2) << expected(3, QStringLiteral("notKeynoteFour"));
        QTest::newRow("missing package") << "missing" << qint64(2) << expected(2, QStringLiteral("notKeynoteFour"));
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
        else if (kind == QLatin1String("latin1"))
            package = factory.make(QStringLiteral("Latin.key"), QByteArray("<a key:version=\"72007061400\">caf\xe9</a>"));
        else
            package = m_in + QStringLiteral("/Nowhere.key");
        const auto source = PackageFactory::snapshot(package);

        EventRecorder events;
        Converter converter(package);
        converter.doConvert(m_out);
        QTEST(events.names, "events");
        QTEST(converter.errorOccurred(), "code");
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

    void aLeftoverScratchCopyDoesNotSpoilTheNextRun()
    {
        const QString package = PackageFactory(m_in).make(QStringLiteral("Stale.key"));
        QVERIFY(QDir().mkpath(m_tmp + QStringLiteral("Stale.key/junk")));
        QVERIFY(QDir().mkpath(m_tmp + QStringLiteral("Stale/junk")));
        Converter converter(package);
        converter.doConvert(m_out);
        QCOMPARE(converter.errorOccurred(), qint64(0));
        const auto converted = unpack(m_out + QStringLiteral("/Stale.key"), QStringLiteral("Stale"));
        QVERIFY(!converted.keys().join(QLatin1Char(',')).contains(QStringLiteral("junk")));
        QCOMPARE(scratchLeftovers(), QStringList());
    }

    void theOutputFolderMustStillBeThere()
    {
        const QString package = PackageFactory(m_in).make(QStringLiteral("Gone.key"));
        SettingsStore::standard().useMemory({});
        QVERIFY_FATAL(Converter(package).doConvert(m_out), "no output folder was chosen");

        const QString doomed = m_work.filePath(QStringLiteral("doomed"));
        QVERIFY(QDir().mkpath(doomed));
        TestSettings::useOutputFolder(doomed);
        QVERIFY(QDir(doomed).removeRecursively());
        QVERIFY_FATAL(Converter(package).doConvert(doomed), "no longer exists");
        QDir(m_tmp + QStringLiteral("Gone.key")).removeRecursively();
        QFile::remove(m_tmp + QStringLiteral("Gone.key"));
        QDir(m_tmp + QStringLiteral("Gone")).removeRecursively();
    }

    void writingTheOutputIsAllOrNothing()
    {
        RecordingConverter converter;
        const QString archive = m_work.filePath(QStringLiteral("archive.zip"));
        QFile file(archive);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(PackageFactory::pseudoRandom(9 * 1024 * 1024 + 5, 7));
        file.close();

        QVERIFY(converter.writeOutput(archive, m_out + QStringLiteral("/A.key")));
        QCOMPARE(PackageFactory::snapshot(m_out).value(QStringLiteral("A.key")), PackageFactory::snapshot(m_work.path()).value(QStringLiteral("archive.zip")));
        // An existing file is never replaced, and no partial file stays behind.
        QVERIFY(!converter.writeOutput(archive, m_out + QStringLiteral("/A.key")));
        QVERIFY(!converter.writeOutput(m_work.filePath(QStringLiteral("missing.zip")), m_out + QStringLiteral("/B.key")));
        QCOMPARE(QDir(m_out).entryList(QDir::Files | QDir::Hidden), QStringList{QStringLiteral("A.key")});
    }

    void aFullDiskLeavesNothingInTheOutputFolder()
    {
        const QString small = m_work.filePath(QStringLiteral("small"));
        QVERIFY(QDir().mkpath(small));
        QProcess mount;
        mount.start(QStringLiteral("mount"), {QStringLiteral("-t"), QStringLiteral("tmpfs"), QStringLiteral("-o"),
                                              QStringLiteral("size=256k"), QStringLiteral("tmpfs"), small});
        mount.waitForFinished();
        if (mount.exitStatus() != QProcess::NormalExit || mount.exitCode() != 0)
            QSKIP("a small tmpfs cannot be mounted here (needs root with mount rights)");
        const QString archive = m_work.filePath(QStringLiteral("big.zip"));
        QFile file(archive);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(PackageFactory::pseudoRandom(1024 * 1024, 9));
        file.close();
        RecordingConverter converter;
        const bool written = converter.writeOutput(archive, small + QStringLiteral("/Big.key"));
        const QStringList left = QDir(small).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden);
        QProcess::execute(QStringLiteral("umount"), {small});
        QVERIFY(!written);
        QCOMPARE(left, QStringList());
    }
};

QTEST_GUILESS_MAIN(TestConverter)
#include "TestConverter.moc"
