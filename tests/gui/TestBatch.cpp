#include "core/ConversionEvents.h"
#include "core/Converter.h"
#include "core/FileTree.h"
#include "core/FileUrl.h"
#include "core/FileUtils.h"
#include "core/NotificationCenter.h"
#include "core/StopRequest.h"
#include "core/Waiting.h"
#include "gui/AppDelegate.h"
#include "gui/BatchReport.h"
#include "gui/ProgressBarWindowController.h"
#include "gui/ResultsWindow.h"
#include "support/FatalTrap.h"
#include "support/Program.h"
#include "support/TestSettings.h"
#include "support/gui/BatchFixture.h"
#include "system/SystemCalls.h"
#include "widgets/TextTable.h"

#include <QtTest>
#include <QtWidgets>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
namespace Key = SettingKey;
namespace Events = ConversionEvents;

// The batch from the open dialog to the summary, driven through the dialog
// and alert seams, and the progress window that follows each file.
namespace {
// The tool that takes its time, and the shell run before it, with $P the folder
// zip packs (less its leading "/"); no tool: every tool runs as it is.
QString slowTool, slowScript;

struct SlowFileUtils : FileUtils
{
    using FileUtils::FileUtils;
    QString runCommand(const QString &tool, const QStringList &arguments) override
    {
        if (tool != slowTool)
            return FileUtils::runCommand(tool, arguments);
        const QString script = u"P='%1'; %2; exec %3 \"$@\""_s.arg(arguments.last().mid(1), slowScript, tool);
        return FileUtils::runCommand(u"/bin/sh"_s, QStringList{u"-c"_s, script, u"sh"_s} + arguments);
    }
};
struct SlowConverter : Converter
{
    using Converter::Converter;
    std::unique_ptr<FileUtils> createFileUtils(const QString &p) override { return std::make_unique<SlowFileUtils>(p); }
};

// Converts through the slow tool and keeps the values the bar takes at each
// event (-1 when the window did not show then), and all of them, those within
// a stage too.
struct Controller : ProgressBarWindowController
{
    // Converts the file with the tool taking its time as the script says.
    Controller(const QString &file, const QString &tool, const QString &script)
        : ProgressBarWindowController(u"ProgressBarView"_s)
    {
        SettingsStore::standard().setObject(SettingKey::prezPath, FileUrl::absoluteString(file));
        slowTool = tool, slowScript = script;
    }
    QList<double> values, all;
    void moveProgressBar() override
    {
        const bool shown = window()->isVisible();
        ProgressBarWindowController::moveProgressBar();
        all.append(values.emplaceBack(shown ? progressIndy()->doubleValue() : -1));
    }
    void moveWithinStage() override
    {
        ProgressBarWindowController::moveWithinStage();
        all.append(progressIndy()->doubleValue());
    }
    std::unique_ptr<Converter> makeConverter(const QString &p) override { return std::make_unique<SlowConverter>(p); }
};
} // namespace

class TestBatch : public QObject
{
    Q_OBJECT

    BatchFixture f;

    bool nothingTold() const { return f.alerts.isEmpty() && f.rejected().isEmpty() && f.desktop.calls.isEmpty(); }
    static QString outcomes(AppDelegate &app)
    {
        QStringList all;
        for (const BatchResult &result : app.report()->results())
            all.append(BatchResult::outcomeText(result.outcome));
        return all.join(u' ');
    }

private Q_SLOTS:
    // As in the application: the windows answer while a tool runs.
    void initTestCase() { Waiting::setKeepsEventsTurning(true); }
    void init() { f.reset({{Key::playSound, "false"}}); }
    void cleanup() { NotificationCenter::defaultCenter().removeObserver(this); }

    void theBarMovesWithTheWorkAndOnlyDuringIt_data()
    {
        QTest::addColumn<QString>("work"); // before zip waits
        QTest::addColumn<double>("least"); // of the zip's step the bar must show then
        QTest::addColumn<double>("most");
        // zip's output comes in blocks, long apart on a large file; what it has read tells more.
        const double photo = 40000.0 / double(FileTree::bytesOfFiles(f.in(u"My Talk.key"_s)));
        QTest::newRow("the lines zip prints")
            << u"printf '  adding: %s/Data/photo one.jpg (stored 0%%)\\n' \"$P\""_s << 0.0 << 1.0;
        QTest::newRow("what zip reads, silently")
            << u"while read -r l; do :; done < \"/$P/Data/photo one.jpg\""_s << photo * 0.99 << photo + 0.05;
    }

    // zip does its first work, then waits until the window has shown it: the
    // windows must go on answering meanwhile. It waits on a pipe, as no child
    // may add its reads to zip's.
    void theBarMovesWithTheWorkAndOnlyDuringIt()
    {
        QFETCH(QString, work);
        QFETCH(double, least);
        QFETCH(double, most);
        if (least > 0 && SystemCalls::bytesReadBy(::getpid()) < 0)
            QSKIP("this system does not tell what a process has read; zip's lines and its archive must do");
        const QString go = f.work(u"go-"_s + QTest::currentDataTag());
        QVERIFY(::mkfifo(QFile::encodeName(go).constData(), 0600) == 0);
        Controller c(f.in(u"My Talk.key"_s), u"/usr/bin/zip"_s, u"%1; read -r go < '%2'"_s.arg(work, go));
        const auto letGo = [&] { QFile(go).open(QIODevice::WriteOnly); };
        // Between the zip's own events (75 and 87.5) the bar goes on; a minute only ends a hang.
        double shown = 0;
        QTimer ticks;
        ticks.callOnTimeout([&] {
            for (const double v : std::as_const(c.all))
                if (v > 75 + 12.5 * least && v < 87.5 && !shown)
                    shown = v, letGo();
        });
        ticks.start(20);
        QTimer::singleShot(60000, &ticks, letGo);
        c.showWindow(nullptr);
        QVERIFY2(shown > 0, "the bar never moved while zip worked");
        QVERIFY2(shown <= 75 + 12.5 * most, qPrintable(QString::number(shown)));
        // Never back, and never past the events' own values.
        QVERIFY2(std::is_sorted(c.all.begin(), c.all.end()), qPrintable(QDebug::toString(c.all)));
        // A second run must not find the first one's observers still there.
        slowTool.clear();
        c.showWindow(nullptr);
        QCOMPARE(c.exTextField()->text(), u"My Talk.key"_s);
        QCOMPARE(f.outputs(), QStringList({"My Talk.1.key", "My Talk.key"}));
        const QList<double> eight = {12.5, 25, 37.5, 50, 62.5, 75, 87.5, 100};
        QCOMPARE(c.values, eight + eight);
        QVERIFY(!c.window()->isVisible()); // closed by the completion

        // Outside a conversion the events reach nobody.
        c.progressIndy()->setDoubleValue(50);
        for (const QString &event : {Events::progress, Events::finished, Events::finishedWithErrorNotKeynote,
                                     Events::finishedWithErrorNotKeynoteFour})
            NotificationCenter::defaultCenter().post(event, nullptr);
        QCOMPARE(c.progressIndy()->doubleValue(), 50.0);
        QVERIFY(nothingTold());
    }

    void stopUndoesTheFileAtOnce_data()
    {
        QTest::addColumn<QString>("how");
        QTest::newRow("Stop button") << "button";
        QTest::newRow("Escape") << "escape";
        QTest::newRow("close button") << "close";
    }

    void stopUndoesTheFileAtOnce()
    {
        QFETCH(QString, how);
        // zip takes half a minute once it has said it started; it waits in a
        // subshell whose command line names that file: a stop must end the whole group.
        const QString started = f.work(u"zipping-"_s + how);
        Controller c(f.in(u"Plain.key"_s), u"/usr/bin/zip"_s, u": > '%1'; (sleep 30; :)"_s.arg(started));
        c.beginBatch(3);
        QElapsedTimer sinceStop;
        QTimer ticks;
        ticks.callOnTimeout([&, w = c.window()] {
            if (sinceStop.isValid() || !QFile::exists(started))
                return;
            sinceStop.start();
            how == u"button"_s   ? w->findChild<QPushButton *>(u"stopButton"_s)->click()
            : how == u"escape"_s ? QTest::keyClick(w, Qt::Key_Escape)
                                 : void(w->close());
        });
        ticks.start(20);
        c.showWindow(nullptr);
        QCOMPARE(c.window()->windowTitle(), u"Converting 1 of 3"_s);
        // The tool is gone at once, not waited for.
        QVERIFY2(sinceStop.isValid() && sinceStop.elapsed() < 20000, qPrintable(QString::number(sinceStop.elapsed())));
        // Killed, the group still needs the scheduler to go; a group left alive would
        // stay for the half minute of its sleep.
        QTRY_COMPARE_WITH_TIMEOUT(Program::mentioning(QFile::encodeName(started)).size(), 0, 15000);
        QCOMPARE(c.converter().errorOccurred(), qint64(Converter::Stopped));
        QVERIFY(nothingTold());
        QCOMPARE(f.outputs(), QStringList());
        QVERIFY(QDir(f.work(u"runtime/deckwright"_s)).entryList({u"run-*"_s}, QDir::Dirs | QDir::Hidden).isEmpty());
        c.endBatch();
        QVERIFY(!c.window()->isVisible());
    }

    void aStopEndsTheBatchAndSaysSo()
    {
        NotificationCenter::defaultCenter().addObserver(this, Events::progress, [this](const Notification &) {
            if (!SettingsStore::standard().string(Key::prezPath, {}).contains(u"Plain.key"_s))
                return;
            NotificationCenter::defaultCenter().removeObserver(this); // the second file's stop only
            StopRequest::request();
        });
        AppDelegate app;
        f.choose({"My Talk.key", "Plain.key", "Three.v2.key"});
        app.openFileMenuItem();
        QVERIFY(nothingTold());
        QCOMPARE(QDir(f.out).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
                 QStringList{"My Talk.key"});
        QCOMPARE(app.window()->statusText(), u"Stopped: 1 converted, 2 not converted · Show Results"_s);
        QCOMPARE(outcomes(app), u"Converted Stopped Not converted"_s);
    }

    void namesAndSettingsTheWindowCannotDoWithoutAreFatal()
    {
        QCOMPARE(ProgressBarWindowController::displayName(u"Caf%C3%A9.key"_s), u"Café.key"_s);
        QVERIFY_FATAL(ProgressBarWindowController::displayName(u"file:///a/Bad%ZZ.key"_s), "percent escapes");
        QVERIFY_FATAL(ProgressBarWindowController::convertFileUrlToPath(u"file:///a b/"_s), "not a URL");
        SettingsStore &settings = SettingsStore::standard();
        ProgressBarWindowController controller(u"ProgressBarView"_s);
        settings.useMemory({});
        QVERIFY_FATAL(controller.showWindow(nullptr), "the setting prezPath is missing");
        settings.useMemory({{Key::prezPath, "file:///a/T.key/"}});
        QVERIFY_FATAL(controller.showWindow(nullptr), "no output folder was chosen");
        settings.setObject(Key::outputPath, "file:///nowhere/");
        QVERIFY_FATAL(controller.finishedConversion(), "bookmarkData is missing");
        settings.useMemory({{Key::prezPath, "///"}});
        QVERIFY_FATAL(controller.finishedConversion(), "has no file name");
    }

    void gathersRejectedFilesIntoOneSummary_data()
    {
        QTest::addColumn<int>("perFileAlerts"); // none: stopForErrors stored as "false"
        QTest::addColumn<bool>("skipExisting"); // Plain.key converted before
        QTest::newRow("not stored: reported one by one") << 5 << false;
        QTest::newRow("false: only summed up") << 0 << false;
        // A file converted before is nothing to tell: no alert, not among the rejected.
        QTest::newRow("skipping what was converted before") << 5 << true;
    }

    void gathersRejectedFilesIntoOneSummary()
    {
        QFETCH(int, perFileAlerts);
        QFETCH(bool, skipExisting);
        if (!perFileAlerts)
            SettingsStore::standard().setObject(Key::stopForErrors, "false");
        SettingsStore::standard().setObject(Key::skipExisting, skipExisting ? "true" : "false");
        if (skipExisting)
            QVERIFY(QFile(f.out + u"/Plain.key"_s).open(QIODevice::WriteOnly));
        // A document chosen inside a package is rejected under its own name.
        AppDelegate app;
        f.choose({"Newer.key", "Plain.key", "notes.txt", "Not Keynote.key", "My Talk.key/index.apxl.gz", "Newer.key"});
        app.openFileMenuItem();
        QCOMPARE(f.outputs(), QStringList{"Plain.key"});
        QCOMPARE(app.window()->statusText(),
                 skipExisting ? u"0 presentations converted, 5 skipped, 1 already converted · Show Results"_s
                              : u"1 presentation converted, 5 skipped · Show in Files · Show Results"_s);
        // Names as in the URL text, escapes kept.
        const QStringList rejected = {"Newer.key", "notes.txt", "Not%20Keynote.key", "index.apxl.gz", "Newer.key"};
        QCOMPARE(f.rejected(), rejected);
        QCOMPARE(f.alerts.size(), perFileAlerts + 1);
        QCOMPARE(f.alerts.last().informativeText(), AppDelegate::summaryText(rejected));
        // Show Details: every rejected file, its name decoded, with its reason.
        const QStringList details = f.alerts.last().detailedText().split(u'\n');
        QCOMPARE(details.size(), rejected.size());
        QCOMPARE(details[2], u"Not Keynote.key: index.apxl.gz is missing"_s);
        if (perFileAlerts) {
            QVERIFY2(f.alerts[2].informativeText().contains(u"\"Not%20Keynote.key\" is not a Keynote 4 file"_s),
                     qPrintable(f.alerts[2].informativeText()));
            // The converter's reason, as a sentence.
            QCOMPARE(f.alerts[2].detailedText(), "Index.apxl.gz is missing.");
        }
    }

    void summaryListsAtMostFiveNames_data()
    {
        QTest::addColumn<int>("count");
        QTest::addColumn<QString>("list");
        const QString five = "• f1\n• f2\n• f3\n• f4\n• f5";
        QTest::newRow("one") << 1 << "• f1";
        QTest::newRow("five") << 5 << five;
        QTest::newRow("six") << 6 << five + u"\n• and 1 other."_s;
        QTest::newRow("twelve") << 12 << five + u"\n• and 7 others."_s;
    }

    void summaryListsAtMostFiveNames()
    {
        QFETCH(int, count);
        const QStringList names = u"f1 f2 f3 f4 f5 f6 f7 f8 f9 f10 f11 f12"_s.split(u' ').first(count);
        // The list stands between the two paragraphs.
        QTEST(AppDelegate::summaryText(names).section(u"\n\n"_s, 1, 1), "list");
    }

    void theLineUnderTheBar_data()
    {
        QTest::addColumn<qint64>("done");
        QTest::addColumn<qint64>("total");
        QTest::addColumn<double>("seconds");
        QTest::addColumn<QString>("line");
        const qint64 k = 1024, m = k * k;
        QTest::newRow("a large deck") << 600 * m << 1536 * m << 21.0 << u"600 MB of 1.5 GB · about 20 s left"_s;
        QTest::newRow("no estimate yet") << 40 * k << 98 * k << -1.0 << u"40 KB of 98 KB"_s;
        QTest::newRow("hours") << 1000 * k << 9 * m << 3725.0 << u"1.0 MB of 9.0 MB · about 1 h 2 min left"_s;
    }

    void theLineUnderTheBar()
    {
        QFETCH(qint64, done);
        QFETCH(qint64, total);
        QFETCH(double, seconds);
        QTEST(ProgressBarWindowController::detailText(done, total, seconds), "line");
    }

    void theOutputFolderIsAskedForWhenItIsNotThere_data()
    {
        QTest::addColumn<QString>("folder");        // what became of the folder chosen once
        QTest::addColumn<QString>("answer");        // to the folder chooser: choose, cancel, or cancel holding one
        QTest::addColumn<QStringList>("alerts");    // message|start of the informative text|part of the detail
        QTest::addColumn<QStringList>("converted"); // into the folder chosen then
        QTest::addColumn<QString>("starts");        // where the chooser opens
        const auto row = [](const char *tag, const char *folder, const char *answer, const QStringList &alerts,
                            const QStringList &converted, const QString &starts) {
            QTest::newRow(tag) << folder << answer << alerts << converted << starts;
        };
        const QStringList gone{u"The output folder \"NAME\" is no longer there.|It was at OUT. "_s},
            talk{u"My Talk.key"_s};
        row("never chosen, one chosen", "never chosen", "choose", {}, talk, f.work(u"Documents"_s));
        row("never chosen, cancelled", "never chosen", "cancel", {}, {}, f.work(u"Documents"_s));
        // A batch goes by the folder in hand, whatever the button.
        row("never chosen, cancelled holding one", "never chosen", "holding", {}, talk, f.work(u"Documents"_s));
        row("deleted, another chosen", "deleted", "choose", gone, talk, f.work({}));
        row("deleted, cancelled", "deleted", "cancel", gone, {}, f.work({}));
        row("a file in its place, cancelled", "a file", "cancel", gone, {}, f.work({}));
        // linked/a/b/c is gone, and linked/a is now a link to a folder holding a b: no starting there.
        row("via a link", "link", "cancel", {u"The output folder \"c\" is no longer there.|"_s}, {}, f.work("linked"));
        // Gone while the file converts: the file is told and rejected, not the folder asked for.
        row("deleted while converting", "deleted while converting", "none",
            {u"A problem occurred.|The file \"My%20Talk.key\" could not be converted and saved|OUT"_s,
             u"Some problems occurred.|"_s},
            {}, {});
    }

    void theOutputFolderIsAskedForWhenItIsNotThere()
    {
        QFETCH(QString, folder);
        QFETCH(QString, answer);
        QFETCH(QStringList, alerts);
        QFETCH(QStringList, converted);
        const bool whileConverting = folder == u"deleted while converting"_s;
        SettingsStore &settings = SettingsStore::standard();
        if (folder == u"never chosen"_s)
            settings.useMemory({{Key::playSound, "false"}});
        if (folder == u"link"_s) {
            QVERIFY(QDir().mkpath(f.work(u"linked/a/b/c"_s)));
            TestSettings::useOutputFolder(f.work(u"linked/a/b/c"_s), {{Key::playSound, "false"}});
            QVERIFY(Program::sh(u"rm -r a && mkdir -p ../elsewhere/b && ln -s ../elsewhere a"_s, f.work(u"linked"_s)));
        }
        const QString stored = settings.string(Key::outputPath, {});
        if (folder == u"deleted"_s || folder == u"a file"_s)
            QVERIFY(QDir(f.out).removeRecursively());
        QVERIFY(folder != u"a file"_s || QFile(f.out).open(QIODevice::WriteOnly));
        if (whileConverting)
            NotificationCenter::defaultCenter().addObserver(
                this, Events::progress, [this](const Notification &) { QDir(f.out).removeRecursively(); });
        const QString another = f.work(u"Another Output %1"_s.arg(QTest::currentDataTag()));
        QDir().mkpath(another);
        answer == u"choose"_s ? f.choose({another}) : f.cancel(answer == u"holding"_s ? another : QString());
        f.runBatch({"My Talk.key"});

        QCOMPARE(f.alerts.size(), alerts.size());
        for (qsizetype i = 0; i < alerts.size(); ++i) {
            const QStringList want
                = alerts[i].replace(u"NAME"_s, QFileInfo(f.out).fileName()).replace(u"OUT"_s, f.out).split(u'|');
            const QString got = f.alerts[i].messageText() + u'|' + f.alerts[i].informativeText();
            QVERIFY2(got.startsWith(want[0] + u'|' + want[1]) && f.alerts[i].detailedText().contains(want.value(2)),
                     qPrintable(got + u'|' + f.alerts[i].detailedText()));
        }
        QCOMPARE(f.panels.size(), whileConverting ? 1 : 2);
        QVERIFY(whileConverting || f.panels.at(1).canChooseDirectories());
        QTEST(f.panels.value(1).directory(), "starts");
        QCOMPARE(QDir(another).entryList(QDir::Files), converted);
        // Kept as the folder chosen; called off: nothing recorded, nothing made where the folder was.
        QCOMPARE(settings.string(Key::outputPath, {}), converted.isEmpty() ? stored : FileUrl::absoluteString(another));
        QCOMPARE(settings.contains(Key::prezPath), !converted.isEmpty() || whileConverting);
        QCOMPARE(f.rejected(), whileConverting ? QStringList{u"My%20Talk.key"_s} : QStringList());
        QCOMPARE(QFileInfo(f.out).isFile(), folder == u"a file"_s);
        QVERIFY(whileConverting || f.desktop.calls.isEmpty());
    }

    // A line under the panels, and a notification for whoever is away from the window.
    void aBatchTellsWhatItDid()
    {
        AppDelegate app;
        MainWindow *window = app.window();
        QLabel *statusLine = window->findChild<QLabel *>(u"statusLine"_s);
        const auto batch = [&](const QStringList &names) { f.choose(names), app.openFileMenuItem(); };
        const auto notifications = [&] { return f.desktop.calls.filter(u"notify("_s); };
        const auto followLink = [&] { Q_EMIT statusLine->linkActivated(QString()); };
        // Following the notification or the link reveals the file last written.
        const auto follow = [&](const std::function<void()> &action, const QString &name) {
            f.desktop.calls.clear();
            action();
            QCOMPARE(f.desktop.calls, QStringList{u"revealFile(\"%1/%2\", \"%1\")"_s.arg(f.out, name)});
        };

        // The main window was never shown. One dialog takes the whole batch,
        // Keynote presentations offered first; the last file's URL text stays behind.
        batch({"Plain.key", "Newer.key", "My Talk.key", "Three.v2.key"});
        QCOMPARE(f.panels.size(), 1);
        QVERIFY(f.panels[0].allowsMultipleSelection() && QDir::cleanPath(f.panels[0].directory()) != f.in({}));
        QCOMPARE(f.panels[0].nameFilters().value(0), u"Keynote Presentations (*.key)"_s);
        QCOMPARE(f.outputs(), QStringList({"My Talk.key", "Plain.key", "Three.v2.key"}));
        QCOMPARE(SettingsStore::standard().string(Key::prezPath, {}), FileUrl::absoluteString(f.in("Three.v2.key")));
        QCOMPARE(window->statusText(), u"3 presentations converted, 1 skipped · Show in Files · Show Results"_s);
        QCOMPARE(outcomes(app), u"Converted Skipped Converted Converted"_s);
        QCOMPARE(app.report()->results()[2].name, u"My Talk.key"_s); // decoded
        QTRY_COMPARE_WITH_TIMEOUT(
            notifications(),
            QStringList{u"notify(\"Deckwright\", \"3 presentations converted, 1 skipped\", \"Show in Files\")"_s},
            BatchFixture::patience);
        follow(f.desktop.notificationAction, u"Three.v2.key"_s);
        follow(followLink, u"Three.v2.key"_s);

        // The name really written, not the package's; nothing for whoever looks at the window.
        app.showMainWindow();
        batch({"Plain.key"});
        // The dialog opens where the last batch came from.
        QCOMPARE(QDir::cleanPath(f.panels.last().directory()), QDir::cleanPath(f.in({})));
        // The desktop hands the focus back once the progress window is gone.
        window->activateWindow();
        QCOMPARE(window->statusText(), u"1 presentation converted · Show in Files · Show Results"_s);
        // Timers of one interval fire in the order they were started: when
        // this one fires, the report has decided.
        bool decided = false;
        QTimer::singleShot(BatchReport::notificationDelay, [&] { decided = true; });
        QTRY_VERIFY_WITH_TIMEOUT(decided, BatchFixture::patience);
        QVERIFY(window->isActiveWindow());
        QCOMPARE(notifications(), QStringList());
        follow(followLink, u"Plain.1.key"_s);

        // The results, from the line's second link: each row shown, opened, and all copied as text.
        Q_EMIT statusLine->linkActivated(u"1"_s);
        ResultsWindow *results = app.report()->resultsWindow();
        QVERIFY(results->isVisible());
        results->table()->selectRow(0);
        f.desktop.calls.clear();
        results->revealSelected(), results->openSelected(), results->copyAll();
        const QString written = f.out + u"/Plain.1.key"_s;
        QCOMPARE(f.desktop.calls, QStringList({u"revealFile(\"%1\", \"%2\")"_s.arg(written, f.out),
                                               u"openFile(\"%1\", \"Keynote\")"_s.arg(written)}));
        QCOMPARE(QApplication::clipboard()->text(),
                 u"File\tOutcome\tSaved As\tReason\nPlain.key\tConverted\tPlain.1.key (numbered)\t\n"_s);

        // A new batch clears the line when it starts; one that converts nothing still has results.
        QString atStart = u"not started"_s;
        NotificationCenter::defaultCenter().addObserver(this, Events::progress,
                                                        [&](const Notification &) { atStart = window->statusText(); });
        batch({"Newer.key"});
        QCOMPARE(atStart, QString());
        QCOMPARE(window->statusText(), u"0 presentations converted, 1 skipped · Show Results"_s);
        QCOMPARE(results->table()->item(0, 3)->text(), app.report()->results()[0].reason);
        window->menuItem(MainWindow::MenuItem::Results)->trigger();
        QCOMPARE(results->table()->item(0, 1)->text(), u"Skipped"_s);
    }

    void completionActions_data()
    {
        QTest::addColumn<QVariantMap>("settings");
        QTest::addColumn<QStringList>("calls");
        const auto row = [](const char *tag, const QVariantMap &settings, const QStringList &calls) {
            QTest::newRow(tag) << settings << calls;
        };
        const QString sound = "playSound(\"Glass\")", action = Key::completedAction, quiet = "false";
        row("nothing stored", {}, {sound});
        row("quiet unless exactly true", {{Key::playSound, "True"}}, {});
        row("quiet for a number", {{Key::playSound, qint64(1)}}, {});
        row("unknown action", {{action, "Print It"}, {Key::playSound, quiet}}, {});
        row("show", {{action, "Show in Finder"}}, {sound, u"revealFile(\"OUT/My Talk.key\", \"ROOT/My Talk.key\")"_s});
        row("open", {{action, "Open in Keynote"}, {Key::playSound, quiet}},
            {"openFile(\"OUT/My Talk.key\", \"Keynote\")"});
    }

    void completionActions()
    {
        QFETCH(QVariantMap, settings);
        QFETCH(QStringList, calls);
        f.reset(settings);
        f.runBatch({"My Talk.key"});
        // The folder has blanks: the file's path decodes them, the reveal's root keeps them escaped.
        const QString escaped = QString(f.out).replace(u' ', u"%20"_s);
        QCOMPARE(f.desktop.calls, calls.replaceInStrings("OUT", f.out).replaceInStrings("ROOT", escaped));
    }
};

QTEST_MAIN(TestBatch)
#include "TestBatch.moc"
