#include "core/ConversionEvents.h"
#include "core/Converter.h"
#include "core/DiskSpace.h"
#include "core/NotificationCenter.h"
#include "core/OutputFile.h"
#include "core/ScratchDir.h"
#include "core/SettingsStore.h"
#include "core/StopRequest.h"
#include "support/Archive.h"
#include "support/EventRecorder.h"
#include "support/PackageFactory.h"
#include "support/TestSettings.h"
#include "support/Tree.h"

#include <QtTest>

#include <functional>

using namespace Qt::StringLiterals;

// The converted archive's whole content, planted names in the output and
// scratch folders, and leftovers of earlier runs are attacked through the
// real program in the hostile suite; here are the events, the reasons, the
// layouts, a stop at every stage and writing the output without unnamed files.
namespace {
QStringList expected(int progress, const QString &last)
{
    return QStringList(progress, u"progress"_s) << last;
}

QStringList entries(const QString &folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
}

QByteArray contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Does what it is told while its file waits for a name.
struct TurnTaker : Converter
{
    using Converter::Converter;
    using Converter::writeOutput;
    std::function<void()> onTurn = [] {};
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
    QString m_in = m_work.filePath(u"in"_s);
    QString m_out;
    QString m_tmp;

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_work.isValid());
        TestSettings::isolateScratch(m_work.path());
        m_tmp = ScratchDir::path();
        QVERIFY(m_tmp.startsWith(m_work.path()));
    }

    void init()
    {
        m_out = m_work.filePath(u"out-%1"_s.arg(QTest::currentTestFunction()));
        QDir(m_out).removeRecursively();
        QVERIFY(QDir().mkpath(m_out));
        TestSettings::useOutputFolder(m_out);
    }

    void convertsAPackageRewritingTheTagInAnyCase()
    {
        const QByteArray document
            = "<?xml version=\"1.0\"?>\n<a KEY:VERSION=\"72007061400\"/>\n<b key:Version="
              "\"72007061400\" other:version=\"72007061400\"/>\n";
        EventRecorder events;
        Converter converter(PackageFactory(m_in).make(u"My Big.Talk.key"_s, document));
        converter.doConvert(m_out);
        QCOMPARE(events.names, expected(8, u"finished"_s));
        QCOMPARE(events.objects, QList<Converter *>(events.names.size(), &converter));
        QCOMPARE(converter.errorOccurred(), qint64(Converter::NoError));
        QCOMPARE(Archive(m_out + u"/My Big.Talk.key"_s).packageFiles().value("index.apxl"),
                 Tree::sha1("<?xml version=\"1.0\"?>\n<a key:version=\"92008102400\"/>\n<b key:version=\"92008102400\" "
                            "other:version=\"72007061400\"/>\n"));
    }

    // A conversion sweeps run folders a killed one left in the output folder;
    // the person's folder may hold look-alikes, which are not ours to remove.
    void sweepsOnlyItsOwnStaleRunsFromTheOutputFolder()
    {
        const QString victim = m_work.filePath(u"victim"_s), prefix = m_out + u"/.deckwright-run-"_s;
        QVERIFY(QDir().mkpath(victim + u"/kept"_s));
        QVERIFY(QDir().mkpath(prefix + u"stale1/Talk"_s)); // ours, closed to others: a leftover
        QVERIFY(QDir().mkpath(prefix + u"open12/Talk"_s)); // open to others: not one of ours
        QVERIFY(QFile::link(victim, prefix + u"link12"_s));
        QVERIFY(QFile::setPermissions(prefix + u"stale1"_s, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        Converter converter(PackageFactory(m_in).make(u"Swept.key"_s));
        converter.doConvert(m_out);
        QCOMPARE(converter.errorOccurred(), qint64(Converter::NoError));
        QCOMPARE(entries(m_out),
                 QStringList({u".deckwright-run-link12"_s, u".deckwright-run-open12"_s, u"Swept.key"_s}));
        QVERIFY(QFileInfo::exists(victim + u"/kept"_s));
    }

    void theLayoutDecidesWhereEntriesStart_data()
    {
        QTest::addColumn<QString>("layout"); // the setting's value; none: absent
        QTest::addColumn<bool>("atRoot");
        QTest::newRow("absent") << QString() << false;
        QTest::newRow("reference") << u"reference"_s << false;
        QTest::newRow("root") << u"root"_s << true;
        QTest::newRow("unknown") << u"flat"_s << false;
    }

    void theLayoutDecidesWhereEntriesStart()
    {
        QFETCH(QString, layout);
        QFETCH(bool, atRoot);
        if (!layout.isEmpty())
            TestSettings::useOutputFolder(m_out, {{SettingKey::archiveLayout, layout}});
        const auto clear = qScopeGuard([&] { QFile::remove(m_out + u"/Laid.Out.key"_s); });
        Converter(PackageFactory(m_in).make(u"Laid.Out.key"_s)).doConvert(m_out);
        const Archive archive(m_out + u"/Laid.Out.key"_s);
        QByteArray top;
        QByteArrayList files = archive.packageFiles(&top).keys();
        QByteArrayList inPackage{"index.apxl"};
        for (const QString &media : PackageFactory::defaultMedia().keys())
            inPackage.append(media.toUtf8());
        std::sort(inPackage.begin(), inPackage.end());
        QCOMPARE(files, inPackage);
        // Nothing of this machine's paths at the root; else zip was given the
        // scratch copy by its path, less the leading "/", named up to the first dot.
        const QString prefix = atRoot ? QString() : QRegularExpression::escape(m_tmp.mid(1)) + u"run-\\w{6}/Laid/"_s;
        QVERIFY2(QRegularExpression(u"^%1$"_s.arg(prefix)).match(QString::fromUtf8(top)).hasMatch(), top.constData());
        for (const QString &name : archive.names())
            QVERIFY2(!name.startsWith(u'/') && !name.split(u'/').contains(u".."_s), qPrintable(name));
    }

    // What KeynoteDocument says of a document (damaged, not UTF-8, no tag)
    // is the check's test; here, one of each path through the converter.
    void refusesWhatIsNotAKeynotePackage_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("shape");      // package, file, nothing, or a package for a gone output folder
        QTest::addColumn<QByteArray>("content"); // the package's index.apxl.gz (none when empty), the file's bytes
        QTest::addColumn<int>("progress");       // events before the refusal
        QTest::addColumn<QString>("reason");     // OUT: the output folder
        const QString package = u"package"_s, newer = u"already in the Keynote '09 format"_s;
        const QByteArray four = PackageFactory::gzip(PackageFactory::keynoteFourDocument());
        QTest::newRow("capital extension") << "Loud.KEY" << package << four << 0 << "its name does not end in .key";
        QTest::newRow("no document") << "Empty.key" << package << QByteArray() << 2 << "index.apxl.gz is missing";
        QTest::newRow("not gzip") << "Raw.key" << package << PackageFactory::keynoteFourDocument() << 3
                                  << "the document is damaged";
        QTest::newRow("already Keynote 09")
            << "Newer.key" << package << PackageFactory::gzip(PackageFactory::keynoteFiveDocument()) << 3 << newer;
        QTest::newRow("Keynote 09 single file") << "Zipped.key"
                                                << "file" << QByteArray("PK\x03\x04rest", 8) << 3 << newer;
        QTest::newRow("missing package") << "Nowhere.key"
                                         << "nothing" << QByteArray() << 2 << "it was not found";
        // Told, not fatal.
        QTest::newRow("output folder gone")
            << "Gone.key"
            << "gone" << four << 8 << "could not write OUT/Gone.key (the output folder no longer exists)";
    }

    void refusesWhatIsNotAKeynotePackage()
    {
        QFETCH(QString, name);
        QFETCH(QString, shape);
        QFETCH(QByteArray, content);
        QFETCH(int, progress);
        QFETCH(QString, reason);
        const QString package = m_in + u'/' + name;
        if (shape == u"package"_s && content.isEmpty())
            PackageFactory(m_in).makeWithoutIndex(name);
        else if (shape == u"package"_s || shape == u"gone"_s)
            PackageFactory(m_in).makeWithRawIndex(name, content);
        QFile file(package);
        QVERIFY(shape != u"file"_s || (file.open(QIODevice::WriteOnly) && file.write(content) == content.size()));
        file.close();
        QVERIFY(shape != u"gone"_s || QDir(m_out).removeRecursively());
        const Tree source = Tree::of(package, Tree::WithTimes);
        EventRecorder events;
        Converter converter(package);
        converter.doConvert(m_out);
        QCOMPARE(events.names, expected(progress, progress == 0 ? u"notKeynote"_s : u"notKeynoteFour"_s));
        QCOMPARE(converter.errorOccurred(), qint64(progress == 0        ? Converter::NotKeynote
                                                   : shape == u"gone"_s ? Converter::OutputNotWritten
                                                                        : Converter::NotKeynoteFour));
        QCOMPARE(converter.errorReason(), reason.replace(u"OUT"_s, m_out));
        QVERIFY(shape == u"gone"_s || converter.outputPrezName().isEmpty());
        QCOMPARE(Tree::of(package, Tree::WithTimes), source);
        QCOMPARE(entries(m_tmp), QStringList());
        QCOMPARE(entries(m_out), QStringList());
    }

    void aFatalEndingRemovesTheRunsFolder()
    {
        // The real ending, in a child: the fatal exit itself must take the
        // run's folder (with the package's copy and its archive) along.
        QProcess child;
        child.start(QCoreApplication::applicationFilePath(),
                    {u"--convert-fatally"_s, PackageFactory(m_in).make(u"Doomed.key"_s)});
        QVERIFY(child.waitForFinished(240000));
        QCOMPARE(child.exitStatus(), QProcess::NormalExit);
        QCOMPARE(child.exitCode(), 70);
        QVERIFY(child.readAllStandardError().contains("fatal: no output folder was chosen"));
        QCOMPARE(entries(m_tmp), QStringList());
    }

    void aStopLeavesNothingBehind_data()
    {
        QTest::addColumn<int>("atEvent"); // 9: while the file waits for its turn to be named
        for (int n = 1; n <= 9; ++n)
            QTest::addRow(n == 9 ? "waiting for its turn" : "after progress %d", n) << n;
    }

    void aStopLeavesNothingBehind()
    {
        QFETCH(int, atEvent);
        const QString package = PackageFactory(m_in).make(u"Stop.key"_s);
        const Tree source = Tree::of(package, Tree::WithTimes);
        EventRecorder events;
        TurnTaker converter(package);
        int seen = 0;
        NotificationCenter::defaultCenter().addObserver(this, ConversionEvents::progress, [&](const Notification &) {
            if (++seen == atEvent)
                StopRequest::request();
        });
        if (atEvent == 9)
            converter.onTurn = [] { StopRequest::request(); };
        converter.doConvert(m_out);
        NotificationCenter::defaultCenter().removeObserver(this);
        QCOMPARE(events.names, expected(qMin(seen, atEvent), u"notKeynoteFour"_s));
        QCOMPARE(converter.errorOccurred(), qint64(Converter::Stopped));
        QCOMPARE(entries(m_tmp), QStringList());
        QCOMPARE(entries(m_out), QStringList());
        QCOMPARE(Tree::of(package, Tree::WithTimes), source);
        QVERIFY(!StopRequest::pending()); // the next conversion starts afresh
    }

    void waitsForItsTurnWithTheFileWholeAndNameless()
    {
        TurnTaker converter(PackageFactory(m_in).make(u"Turn.key"_s));
        QStringList seen;
        converter.onTurn = [&] {
            seen = entries(m_out);
            // An earlier conversion takes the name found free meanwhile.
            QFile earlier(m_out + u"/Turn.key"_s);
            QVERIFY(earlier.open(QIODevice::WriteOnly) && earlier.write("earlier") == 7);
        };
        converter.doConvert(m_out);
        QCOMPARE(converter.errorOccurred(), qint64(Converter::NoError));
        QCOMPARE(converter.turns, 1);
        QCOMPARE(seen, QStringList());
        QCOMPARE(converter.outputPrezName(), u"Turn.1.key"_s);
        QCOMPARE(contents(m_out + u"/Turn.key"_s), QByteArray("earlier"));
        QVERIFY(Archive(m_out + u"/Turn.1.key"_s).isWhole());
        // A package refused never asks for a turn.
        TurnTaker refused(PackageFactory(m_in).makeWithoutIndex(u"Refused.key"_s));
        refused.doConvert(m_out);
        QCOMPARE(refused.turns, 0);
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
        QTemporaryDir elsewhere(u"/dev/shm/deckwright-test-XXXXXX"_s);
        if (!sameDisk && (!elsewhere.isValid() || DiskSpace::sameFileSystem(elsewhere.path(), m_out)))
            QSKIP("needs /dev/shm on a file system of its own");
        TurnTaker converter(m_in + u"/A.key"_s);
        const QString archive = (sameDisk ? m_work.path() : elsewhere.path()) + u"/archive.zip"_s;
        const QByteArray bytes = PackageFactory::noise(9 * 1024 * 1024 + 5, 7);
        const auto write = [&] {
            QFile file(archive);
            if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
                return false;
            file.close();
            return converter.writeOutput(archive, m_out);
        };
        converter.setOutputPrezName(u"A.key"_s);
        QVERIFY(write());
        QCOMPARE(contents(m_out + u"/A.key"_s), bytes);
        QCOMPARE(QFileInfo::exists(archive), !sameDisk); // moved, not copied
        // Taken since the name was found free (here: by the first write): the next number.
        QVERIFY(write());
        QCOMPARE(converter.outputPrezName(), u"A.1.key"_s);
        // A dangling link takes a name as well, and is never written through.
        QVERIFY(QFile::link(m_work.filePath(u"elsewhere.key"_s), m_out + u"/A.2.key"_s));
        QVERIFY(write());
        QCOMPARE(converter.outputPrezName(), u"A.3.key"_s);
        QVERIFY(!QFileInfo::exists(m_work.filePath(u"elsewhere.key"_s)));

        converter.setOutputPrezName(u"B.key"_s);
        QVERIFY(!converter.writeOutput(m_work.filePath(u"missing.zip"_s), m_out));
        QVERIFY2(converter.errorReason().startsWith(u"could not write %1/B.key ("_s.arg(m_out)),
                 qPrintable(converter.errorReason()));
        QCOMPARE(entries(m_out), QStringList({u"A.1.key"_s, u"A.2.key"_s, u"A.3.key"_s, u"A.key"_s}));
        QFile::remove(archive);
    }
};

// Run as a child by aFatalEndingRemovesTheRunsFolder: converts the package
// with no output folder chosen, which is fatal.
static int convertWithoutAnOutputFolder(const QString &package)
{
    SettingsStore::standard().useMemory({});
    Converter(package).doConvert(u"/nowhere"_s);
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
