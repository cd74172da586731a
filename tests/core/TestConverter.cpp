#include "core/Converter.h"
#include "core/DiskSpace.h"
#include "core/OutputFile.h"
#include "core/OutputFolder.h"
#include "core/ScratchDir.h"
#include "core/StopRequest.h"
#include "support/Archive.h"
#include "support/EventRecorder.h"
#include "support/PackageFactory.h"
#include "support/Program.h"
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
QStringList entries(const QString &folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
}

bool put(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
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
    // This process's own scratch folder, set before any conversion.
    QString m_runtime = TestSettings::isolateScratch(m_work.path());
    QString m_tmp = ScratchDir::path();

private Q_SLOTS:
    void initTestCase() { QVERIFY(m_work.isValid() && m_tmp.startsWith(m_runtime)); }

    void init()
    {
        m_out = m_work.filePath(u"out-%1-%2"_s.arg(QTest::currentTestFunction(), QTest::currentDataTag()));
        QVERIFY(QDir().mkpath(m_out));
        TestSettings::useOutputFolder(m_out);
    }

    void convertsIntoTheLayoutRewritingTheTagInAnyCaseAndSweepingOnlyItsOwnStaleRuns_data()
    {
        // The setting's value (none: absent); only "root" puts the package at the root.
        QTest::addColumn<QString>("layout");
        QTest::newRow("absent") << QString();
        QTest::newRow("reference") << u"reference"_s;
        QTest::newRow("root") << u"root"_s;
        QTest::newRow("unknown") << u"flat"_s;
    }

    // A conversion sweeps run folders a killed one left in the output folder;
    // the person's folder may hold look-alikes, which are not ours to remove.
    void convertsIntoTheLayoutRewritingTheTagInAnyCaseAndSweepingOnlyItsOwnStaleRuns()
    {
        QFETCH(QString, layout);
        if (!layout.isEmpty())
            TestSettings::useOutputFolder(m_out, {{SettingKey::archiveLayout, layout}});
        // Ours, closed to others: a leftover; open to others, or a link: not one of ours.
        QVERIFY(
            Program::sh(u"mkdir -p ../victim/kept $R-stale1/Talk $R-open12/Talk; chmod 700 $R-stale1; "
                        u"ln -s \"$PWD/../victim\" $R-link12"_s,
                        m_out, {{u"R"_s, u".deckwright-run"_s}}));
        Converter converter(PackageFactory(m_in).make(
            u"My Big.Talk.key"_s,
            "<?xml version=\"1.0\"?>\n<a KEY:VERSION=\"72007061400\"/>\n<b key:Version=\"72007061400\" "
            "other:version=\"72007061400\"/>\n"));
        converter.doConvert(m_out);
        QCOMPARE(converter.errorOccurred(), qint64(Converter::NoError));
        QCOMPARE(entries(m_out),
                 QStringList({u".deckwright-run-link12"_s, u".deckwright-run-open12"_s, u"My Big.Talk.key"_s}));
        QVERIFY(QFileInfo::exists(m_work.filePath(u"victim/kept"_s)));

        const Archive archive(m_out + u"/My Big.Talk.key"_s);
        QMap<QByteArray, QByteArray> inPackage{
            {"index.apxl",
             Tree::sha1("<?xml version=\"1.0\"?>\n<a key:version=\"92008102400\"/>\n<b key:version=\"92008102400\" "
                        "other:version=\"72007061400\"/>\n")}};
        for (const auto &[media, bytes] : PackageFactory::defaultMedia().asKeyValueRange())
            inPackage.insert(media.toUtf8(), Tree::sha1(bytes));
        QByteArray top;
        QCOMPARE(archive.packageFiles(&top), inPackage);
        // Nothing of this machine's paths at the root; else zip was given the
        // scratch copy by its path, less the leading "/", named up to the first dot.
        const QString root
            = layout == u"root"_s ? QString() : QRegularExpression::escape(m_tmp.mid(1)) + u"run-\\w{6}/My Big/"_s;
        QVERIFY2(QRegularExpression(u"^%1$"_s.arg(root)).match(QString::fromUtf8(top)).hasMatch(), top.constData());
        for (const QString &name : archive.names())
            QVERIFY2(!name.startsWith(u'/') && !name.split(u'/').contains(u".."_s), qPrintable(name));
    }

    // What KeynoteDocument says of a document (damaged, not UTF-8, no tag) is
    // the check's test; here, one refusal of each path through the converter,
    // a stop after each step and while the file waits for its turn to be
    // named, and a conversion whose name an earlier one takes meanwhile.
    void eachEndingIsToldAndLeavesNothingElse_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("shape");      // package, file, nothing, or a package for a gone output folder
        QTest::addColumn<QByteArray>("content"); // the package's index.apxl.gz (none when empty), the file's bytes
        QTest::addColumn<int>("stopAt");         // progress events before a stop; 9: the turn, 10: the copy
        QTest::addColumn<int>("progress");       // events before the ending
        QTest::addColumn<qint64>("code");
        QTest::addColumn<QString>("reason"); // OUT: the output folder
        const auto row = [](const char *tag, const char *name, const char *shape, const QByteArray &content,
                            int progress, qint64 code, const char *reason, int stopAt = 0) {
            QTest::newRow(tag) << name << shape << content << stopAt << progress << code << reason;
        };
        const char *newer = "already in the Keynote '09 format";
        const QByteArray raw = PackageFactory::keynoteFourDocument(), four = PackageFactory::gzip(raw);
        const qint64 refused = Converter::NotKeynoteFour;
        row("capital extension", "Loud.KEY", "package", four, 0, Converter::NotKeynote,
            "its name does not end in .key");
        row("no document", "Empty.key", "package", {}, 2, refused, "index.apxl.gz is missing");
        // Where the version test's measure cuts gunzip's complaint short: the copy says it all the same.
        static const QByteArray emoji = QString(40, QChar(u'x')).replace(u"x"_s, u"\U0001F600"_s).toUtf8() + ".key";
        row("no document, a name of emoji", emoji.constData(), "package", {}, 2, refused, "index.apxl.gz is missing");
        row("not gzip", "Raw.key", "package", raw, 3, refused, "the document is damaged");
        row("already Keynote 09", "Newer.key", "package", PackageFactory::gzip(PackageFactory::keynoteFiveDocument()),
            3, refused, newer);
        row("Keynote 09 single file", "Zipped.key", "file", QByteArray("PK\x03\x04rest", 8), 3, refused, newer);
        row("missing package", "Nowhere.key", "nothing", {}, 2, refused, "it was not found");
        // Told, not fatal.
        row("output folder gone", "Gone.key", "gone", four, 8, Converter::OutputNotWritten,
            "could not write OUT/Gone.key (the output folder no longer exists)");
        row("output folder inside the package", "Self.key", "inside", four, 0, Converter::OutputNotWritten,
            "the output folder is inside the package, which is never changed");
        for (int n = 1; n <= 9; ++n)
            row(n == 9 ? "stopped while waiting for its turn" : qPrintable(u"stopped after progress %1"_s.arg(n)),
                "Turn.key", "package", four, qMin(n, 8), Converter::Stopped, "stopped", n);
        row("stopped while it copies", "Turn.key", "package", four, 2, Converter::Stopped, "stopped", 10);
        row("converted, its name taken meanwhile", "Turn.key", "package", four, 8, Converter::NoError, "");
    }

    void eachEndingIsToldAndLeavesNothingElse()
    {
        QFETCH(QString, name);
        QFETCH(QString, shape);
        QFETCH(QByteArray, content);
        QFETCH(int, stopAt);
        QFETCH(int, progress);
        QFETCH(qint64, code);
        QFETCH(QString, reason);
        const QString package = m_in + u'/' + name;
        if (shape == u"file"_s)
            QVERIFY(put(package, content));
        else if (shape != u"nothing"_s)
            content.isEmpty() ? PackageFactory(m_in).makeWithoutIndex(name)
                              : PackageFactory(m_in).makeWithRawIndex(name, content);
        QVERIFY(shape != u"gone"_s || QDir(m_out).removeRecursively());
        if (shape == u"inside"_s)
            TestSettings::useOutputFolder(package);
        const Tree source = Tree::of(package, Tree::WithTimes);
        EventRecorder events;
        TurnTaker converter(package);
        int seen = 0;
        NotificationCenter::defaultCenter().addObserver(this, ConversionEvents::progress, [&](const Notification &) {
            if (++seen == stopAt)
                StopRequest::request();
        });
        const auto stopInCopy = [&](const Notification &) { stopAt == 10 ? StopRequest::request() : void(); };
        NotificationCenter::defaultCenter().addObserver(this, ConversionEvents::stageProgress, stopInCopy);
        QStringList named;
        converter.onTurn = [&] {
            named = entries(m_out);
            // An earlier conversion takes the name found free meanwhile.
            QVERIFY(put(m_out + u"/Turn.key"_s, "earlier"));
            if (stopAt == 9)
                StopRequest::request();
        };
        converter.doConvert(m_out);
        NotificationCenter::defaultCenter().removeObserver(this);
        // The last event: finished, notKeynote, and for any other outcome notKeynoteFour.
        QCOMPARE(events.names, QStringList(progress, u"progress"_s)
                                   << QStringList({u"finished"_s, u"notKeynote"_s}).value(code, u"notKeynoteFour"_s));
        QCOMPARE(events.objects, QList<Converter *>(events.names.size(), &converter));
        QCOMPARE(converter.errorOccurred(), code);
        QCOMPARE(converter.errorReason(), reason.replace(u"OUT"_s, m_out));
        // Only a file whole and nameless waits for its turn; a file refused never does.
        QCOMPARE(converter.turns, code == Converter::NoError || stopAt == 9 ? 1 : 0);
        QCOMPARE(named, QStringList());
        QVERIFY(converter.turns || shape == u"gone"_s || converter.outputPrezName().isEmpty());
        QCOMPARE(Tree::of(package, Tree::WithTimes), source);
        QCOMPARE(entries(m_tmp), QStringList());
        QCOMPARE(entries(m_out), (code == Converter::NoError ? QStringList{u"Turn.1.key"_s, u"Turn.key"_s}
                                  : stopAt == 9              ? QStringList{u"Turn.key"_s}
                                                             : QStringList()));
        QCOMPARE(Tree::of(m_out).fileHashes().value("Turn.key"),
                 converter.turns ? Tree::sha1("earlier") : QByteArray());
        QVERIFY(!StopRequest::pending()); // the next conversion starts afresh
        QVERIFY(code || (converter.outputPrezName() == u"Turn.1.key"_s && Archive(m_out + u"/Turn.1.key"_s).isWhole()));
    }

    void aFatalEndingRemovesTheRunsFolder()
    {
        // The real ending, in a child: the fatal exit itself must take the
        // run's folder (with the package's copy and its archive) along.
        const Program child(m_work.filePath(u"child"_s));
        const Finished run = child.run({QCoreApplication::applicationFilePath(), u"--convert-fatally"_s,
                                        PackageFactory(m_in).make(u"Doomed.key"_s)});
        QVERIFY2(run.status == 70 && run.err.contains("fatal: no output folder was chosen"), run.err);
        QCOMPARE(entries(child.scratch()), QStringList());
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
        const auto out = OutputFolder::open(m_out);
        const auto write = [&] {
            return put(archive, bytes) && converter.writeOutput(archive, *out) ? converter.outputPrezName() : QString();
        };
        converter.setOutputPrezName(u"A.key"_s);
        QCOMPARE(write(), u"A.key"_s);
        QCOMPARE(Tree::of(m_out).fileHashes().value("A.key"), Tree::sha1(bytes));
        QCOMPARE(QFileInfo::exists(archive), !sameDisk); // moved, not copied
        // Taken since the name was found free (here: by the first write): the next number.
        QCOMPARE(write(), u"A.1.key"_s);
        // A dangling link takes a name as well, and is never written through.
        QVERIFY(QFile::link(m_work.filePath(u"elsewhere.key"_s), m_out + u"/A.2.key"_s));
        QCOMPARE(write(), u"A.3.key"_s);
        QVERIFY(!QFileInfo::exists(m_work.filePath(u"elsewhere.key"_s)));

        converter.setOutputPrezName(u"B.key"_s);
        QVERIFY(!converter.writeOutput(m_work.filePath(u"missing.zip"_s), *out));
        QVERIFY2(converter.errorReason().startsWith(u"could not write %1/B.key ("_s.arg(m_out)),
                 qPrintable(converter.errorReason()));
        QCOMPARE(entries(m_out), QStringList({u"A.1.key"_s, u"A.2.key"_s, u"A.3.key"_s, u"A.key"_s}));
    }
};

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    // As a child of aFatalEndingRemovesTheRunsFolder: converts with no output folder chosen, which is fatal.
    if (argc == 3 && qstrcmp(argv[1], "--convert-fatally") == 0) {
        SettingsStore::standard().useMemory({});
        Converter(QString::fromLocal8Bit(argv[2])).doConvert(u"/nowhere"_s);
        return 0; // not reached
    }
    TestConverter test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}
#include "TestConverter.moc"
