#include "core/ConversionEvents.h"
#include "core/Converter.h"
#include "core/FileUrl.h"
#include "core/FileUtils.h"
#include "core/NotificationCenter.h"
#include "core/SettingsStore.h"
#include "core/StopRequest.h"
#include "core/Waiting.h"
#include "gui/AppDelegate.h"
#include "gui/BatchReport.h"
#include "gui/ProgressBarWindowController.h"
#include "support/FatalTrap.h"
#include "support/Program.h"
#include "support/gui/BatchFixture.h"
#include "widgets/ProgressIndicator.h"

#include <QtTest>
#include <QtWidgets>

#include <algorithm>
#include <functional>
#include <utility>

using namespace Qt::StringLiterals;

// The batch from the open dialog to the summary, driven through the dialog
// and alert seams, and the progress window that follows each file.
namespace {
// The tool that takes its time, and the shell run before it, with $P the folder
// zip packs (less its leading "/"); no tool: every tool runs as it is.
QString slowTool, slowScript;

class SlowFileUtils : public FileUtils
{
public:
    using FileUtils::FileUtils;
    QString runCommand(const QString &launchPath, const QStringList &arguments) override
    {
        if (launchPath != slowTool)
            return FileUtils::runCommand(launchPath, arguments);
        const QString script = u"P='%1'; %2; exec %3 \"$@\""_s.arg(arguments.last().mid(1), slowScript, launchPath);
        return FileUtils::runCommand(u"/bin/sh"_s, QStringList{u"-c"_s, script, u"sh"_s} + arguments);
    }
};

class SlowConverter : public Converter
{
public:
    using Converter::Converter;

protected:
    std::unique_ptr<FileUtils> createFileUtils(const QString &path) override
    {
        return std::make_unique<SlowFileUtils>(path);
    }
};

// Keeps the values the bar takes at each event (and whether the window showed
// then), and all of them, those within a stage too.
class Controller : public ProgressBarWindowController
{
public:
    Controller()
        : ProgressBarWindowController(u"ProgressBarView"_s)
    {
    }
    QList<double> values, all;
    QList<bool> visible;
    void moveProgressBar() override
    {
        visible.append(window()->isVisible());
        ProgressBarWindowController::moveProgressBar();
        values.append(progressIndy()->doubleValue());
        all.append(values.last());
    }
    void moveWithinStage() override
    {
        ProgressBarWindowController::moveWithinStage();
        all.append(progressIndy()->doubleValue());
    }

protected:
    std::unique_ptr<Converter> makeConverter(const QString &path) override
    {
        return std::make_unique<SlowConverter>(path);
    }
};

} // namespace

class TestBatch : public QObject
{
    Q_OBJECT

    BatchFixture f;

    void useFile(const QString &name)
    {
        SettingsStore::standard().setObject(SettingKey::prezPath, FileUrl::absoluteString(f.in(name)));
    }

private Q_SLOTS:
    // As in the application: the windows answer while a tool runs.
    void initTestCase() { Waiting::setKeepsEventsTurning(true); }
    void init()
    {
        f.reset({{SettingKey::playSound, "false"}});
        slowTool.clear();
    }

    // zip names the first large file, then waits until the window has shown
    // it (a minute at most): the windows must go on answering meanwhile.
    void theBarMovesWithTheWorkAndOnlyDuringIt()
    {
        useFile(u"My Talk.key"_s);
        const QString go = f.work(u"go"_s);
        slowTool = u"/usr/bin/zip"_s;
        slowScript
            = u"printf '  adding: %s/Data/photo one.jpg (stored 0%%)\\n' \"$P\"; i=0; "
              "while [ ! -e '%1' ] && [ $i -lt 600 ]; do sleep 0.1; i=$((i+1)); done; "
              "printf '  adding: %s/Data/movie.v2.mov (stored 0%%)\\n' \"$P\""_s.arg(go);
        Controller controller;
        // Between the zip's own events (75 and 87.5) the bar goes on.
        QTimer ticks;
        connect(&ticks, &QTimer::timeout, [&] {
            if (std::any_of(controller.all.begin(), controller.all.end(), [](double v) { return v > 75 && v < 87.5; }))
                QFile(go).open(QIODevice::WriteOnly);
        });
        ticks.start(20);
        controller.showWindow(nullptr);
        QVERIFY2(QFile::exists(go), "the bar never moved while zip worked");
        // Never back, and never past the events' own values.
        QList<double> sorted = controller.all;
        std::sort(sorted.begin(), sorted.end());
        QCOMPARE(controller.all, sorted);
        // A second run must not find the first one's observers still there.
        slowTool.clear();
        controller.showWindow(nullptr);
        QCOMPARE(controller.exTextField()->text(), u"My Talk.key"_s);
        QCOMPARE(f.outputs(), QStringList({"My Talk.1.key", "My Talk.key"}));
        const QList<double> eight = {12.5, 25, 37.5, 50, 62.5, 75, 87.5, 100};
        QCOMPARE(controller.values, eight + eight);
        QCOMPARE(controller.visible, QList<bool>(16, true));
        QVERIFY(!controller.window()->isVisible()); // closed by the completion

        // Outside a conversion the events reach nobody.
        controller.progressIndy()->setDoubleValue(50);
        for (const QString &event :
             {ConversionEvents::progress, ConversionEvents::finished, ConversionEvents::finishedWithErrorNotKeynote,
              ConversionEvents::finishedWithErrorNotKeynoteFour})
            NotificationCenter::defaultCenter().post(event, nullptr);
        QCOMPARE(controller.progressIndy()->doubleValue(), 50.0);
        QVERIFY(f.desktop.calls.isEmpty());
        QVERIFY(f.alerts.isEmpty());
        QCOMPARE(f.rejected(), QStringList());
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
        useFile(u"Plain.key"_s);
        // The copy takes half a minute, once it has said it started.
        const QString started = f.work(u"copying-"_s + how);
        slowTool = u"/bin/cp"_s;
        slowScript = u": > '%1'; sleep 30"_s.arg(started);
        Controller controller;
        controller.beginBatch(3);
        QElapsedTimer sinceStop;
        QString title;
        QTimer ticks;
        connect(&ticks, &QTimer::timeout, [&] {
            QWidget *window = controller.window();
            if (sinceStop.isValid() || !QFile::exists(started))
                return;
            title = window->windowTitle();
            sinceStop.start();
            if (how == u"button"_s)
                window->findChild<QPushButton *>(u"stopButton"_s)->click();
            else if (how == u"escape"_s)
                QTest::keyClick(window, Qt::Key_Escape);
            else
                window->close();
        });
        ticks.start(20);
        controller.showWindow(nullptr);
        QCOMPARE(title, u"Converting 1 of 3"_s);
        // The tool is gone at once, not waited for.
        QVERIFY2(sinceStop.elapsed() < 20000, qPrintable(QString::number(sinceStop.elapsed())));
        QCOMPARE(Program::mentioning(QFile::encodeName(started)).size(), 0);
        QCOMPARE(controller.converter().errorOccurred(), qint64(Converter::Stopped));
        QVERIFY(f.alerts.isEmpty());
        QCOMPARE(f.rejected(), QStringList());
        QCOMPARE(f.outputs(), QStringList());
        QCOMPARE(QDir(f.work(u"runtime/deckwright"_s)).entryList({u"run-*"_s}, QDir::Dirs | QDir::Hidden),
                 QStringList());
        controller.endBatch();
        QVERIFY(!controller.window()->isVisible());
    }

    void aStopEndsTheBatchWithNothingToReport()
    {
        bool stopped = false;
        NotificationCenter::defaultCenter().addObserver(this, ConversionEvents::progress, [&](const Notification &) {
            if (!std::exchange(stopped, true))
                StopRequest::request();
        });
        f.runBatch({"My Talk.key", "Plain.key"});
        NotificationCenter::defaultCenter().removeObserver(this);
        QVERIFY(f.alerts.isEmpty());
        QCOMPARE(f.rejected(), QStringList());
        QCOMPARE(QDir(f.out).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden), QStringList());
        QVERIFY(f.desktop.calls.isEmpty());
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
        settings.useMemory({{SettingKey::prezPath, "file:///a/T.key/"}});
        QVERIFY_FATAL(controller.showWindow(nullptr), "no output folder was chosen");
        settings.setObject(SettingKey::outputPath, "file:///nowhere/");
        QVERIFY_FATAL(controller.finishedConversion(), "bookmarkData is missing");
        settings.useMemory({{SettingKey::prezPath, "///"}});
        QVERIFY_FATAL(controller.finishedConversion(), "has no file name");
    }

    void gathersRejectedFilesIntoOneSummary_data()
    {
        QTest::addColumn<QVariant>("stopForErrors");
        QTest::addColumn<int>("perFileAlerts");
        QTest::newRow("not stored: reported one by one") << QVariant() << 5;
        QTest::newRow("false: only summed up") << QVariant("false") << 0;
    }

    void gathersRejectedFilesIntoOneSummary()
    {
        QFETCH(QVariant, stopForErrors);
        QFETCH(int, perFileAlerts);
        if (stopForErrors.isValid())
            SettingsStore::standard().setObject(SettingKey::stopForErrors, stopForErrors);
        // A document chosen inside a package is rejected under its own name.
        f.runBatch(
            {"Newer.key", "Plain.key", "notes.txt", "Not Keynote.key", "My Talk.key/index.apxl.gz", "Newer.key"});
        QCOMPARE(f.outputs(), QStringList{"Plain.key"});
        // Names as in the URL text, escapes kept.
        const QStringList rejected = {"Newer.key", "notes.txt", "Not%20Keynote.key", "index.apxl.gz", "Newer.key"};
        QCOMPARE(f.rejected(), rejected);
        QCOMPARE(f.alerts.size(), perFileAlerts + 1);
        QCOMPARE(f.alerts.last().informativeText(), AppDelegate::summaryText(rejected));
        if (perFileAlerts) {
            const Alert &hollow = f.alerts.at(2);
            QVERIFY2(hollow.informativeText().contains(u"\"Not%20Keynote.key\" is not a Keynote 4 file"_s),
                     qPrintable(hollow.informativeText()));
            // The converter's reason, as a sentence.
            QCOMPARE(hollow.detailedText(), "Index.apxl.gz is missing.");
        }
    }

    void summaryListsAtMostFiveNames_data()
    {
        QTest::addColumn<int>("count");
        QTest::addColumn<QString>("list");
        const QString five = "• f1.key\n• f2.key\n• f3.key\n• f4.key\n• f5.key";
        QTest::newRow("one") << 1 << "• f1.key";
        QTest::newRow("five") << 5 << five;
        QTest::newRow("six") << 6 << five + u"\n• and 1 other."_s;
        QTest::newRow("twelve") << 12 << five + u"\n• and 7 others."_s;
    }

    void summaryListsAtMostFiveNames()
    {
        QFETCH(int, count);
        QFETCH(QString, list);
        QStringList names;
        for (int i = 1; i <= count; ++i)
            names.append(u"f%1.key"_s.arg(i));
        // The list stands between the two paragraphs.
        QCOMPARE(AppDelegate::summaryText(names).section(u"\n\n"_s, 1, 1), list);
    }

    void theOutputFolderIsAskedForWhenItIsNotThere_data()
    {
        QTest::addColumn<QString>("folder");        // what became of the folder chosen once
        QTest::addColumn<QString>("answer");        // to the folder chooser: choose, cancel, or cancel holding one
        QTest::addColumn<QStringList>("alerts");    // message|start of the informative text|part of the detail
        QTest::addColumn<QStringList>("converted"); // into the folder chosen then
        QTest::addColumn<QStringList>("rejected");
        const auto row = [](const char *tag, const char *folder, const char *answer, const QStringList &alerts,
                            const QStringList &converted, const QStringList &rejected = {}) {
            QTest::newRow(tag) << folder << answer << alerts << converted << rejected;
        };
        const QStringList gone{u"The output folder \"NAME\" is no longer there.|It was at OUT. "_s},
            talk{u"My Talk.key"_s};
        row("never chosen, one chosen", "never chosen", "choose", {}, talk);
        row("never chosen, cancelled", "never chosen", "cancel", {}, {});
        // A batch goes by the folder in hand, whatever the button.
        row("never chosen, cancelled holding one", "never chosen", "holding", {}, talk);
        row("deleted, another chosen", "deleted", "choose", gone, talk);
        row("deleted, cancelled", "deleted", "cancel", gone, {});
        row("a file in its place, cancelled", "a file", "cancel", gone, {});
        // Gone while the file converts: the file is told, not the folder asked for.
        row("deleted while converting", "deleted while converting", "none",
            {u"A problem occurred.|The file \"My%20Talk.key\" was converted but could not be saved|OUT"_s,
             u"Some problems occurred.|"_s},
            {}, {u"My%20Talk.key"_s});
    }

    void theOutputFolderIsAskedForWhenItIsNotThere()
    {
        QFETCH(QString, folder);
        QFETCH(QString, answer);
        QFETCH(QStringList, alerts);
        QFETCH(QStringList, converted);
        QFETCH(QStringList, rejected);
        SettingsStore &settings = SettingsStore::standard();
        if (folder == u"never chosen"_s)
            settings.useMemory({{SettingKey::playSound, "false"}});
        const QString stored = settings.string(SettingKey::outputPath, {});
        if (folder == u"deleted"_s || folder == u"a file"_s)
            QVERIFY(QDir(f.out).removeRecursively());
        QVERIFY(folder != u"a file"_s || QFile(f.out).open(QIODevice::WriteOnly));
        if (folder == u"deleted while converting"_s)
            NotificationCenter::defaultCenter().addObserver(
                this, ConversionEvents::progress, [this](const Notification &) { QDir(f.out).removeRecursively(); });
        const QString another = f.work(u"Another Output %1"_s.arg(QTest::currentDataTag()));
        QDir().mkpath(another);
        answer == u"choose"_s ? f.choose({another}) : f.cancel(answer == u"holding"_s ? another : QString());
        f.runBatch({"My Talk.key"});
        NotificationCenter::defaultCenter().removeObserver(this);

        QCOMPARE(f.alerts.size(), alerts.size());
        for (qsizetype i = 0; i < alerts.size(); ++i) {
            const QStringList want = QString(alerts[i])
                                         .replace(u"NAME"_s, QFileInfo(f.out).fileName())
                                         .replace(u"OUT"_s, f.out)
                                         .split(u'|');
            const Alert &alert = f.alerts[i];
            QCOMPARE(alert.messageText(), want[0]);
            QVERIFY2(alert.informativeText().startsWith(want[1]) && alert.detailedText().contains(want.value(2)),
                     qPrintable(alert.informativeText() + u'|' + alert.detailedText()));
        }
        const bool asked = rejected.isEmpty();
        QCOMPARE(f.panels.size(), asked ? 2 : 1);
        QVERIFY(!asked || f.panels.at(1).canChooseDirectories());
        QCOMPARE(QDir(another).entryList(QDir::Files), converted);
        // Kept as the folder chosen; called off: nothing recorded, nothing made where the folder was.
        QCOMPARE(settings.string(SettingKey::outputPath, {}),
                 converted.isEmpty() ? stored : FileUrl::absoluteString(another));
        QCOMPARE(settings.contains(SettingKey::prezPath), !converted.isEmpty() || !asked);
        QCOMPARE(f.rejected(), rejected);
        QCOMPARE(QFileInfo(f.out).isFile(), folder == u"a file"_s);
        QVERIFY(asked || f.desktop.calls.isEmpty());
    }

    // A line under the panels, and a notification for whoever is away from the window.
    void aBatchTellsWhatItDid()
    {
        AppDelegate app;
        MainWindow *window = app.window();
        const auto batch = [&](const QStringList &names) {
            f.desktop.calls.clear();
            f.choose(names);
            app.openFileMenuItem();
        };
        const auto notifications = [&] { return f.desktop.calls.filter(QRegularExpression(u"^notify"_s)); };
        const auto followed = [&](const std::function<void()> &follow) {
            f.desktop.calls.clear();
            follow();
            return f.desktop.calls;
        };
        const auto revealed
            = [&](const QString &name) { return QStringList{u"revealFile(\"%1/%2\", \"%1\")"_s.arg(f.out, name)}; };
        QLabel *statusLine = window->findChild<QLabel *>(u"statusLine"_s);
        const auto followLink = [&] { Q_EMIT statusLine->linkActivated(QString()); };

        // The main window was never shown. One dialog takes the whole batch,
        // Keynote presentations offered first; the last file's URL text stays behind.
        batch({"Plain.key", "Newer.key", "My Talk.key", "Three.v2.key"});
        QCOMPARE(f.panels.size(), 1);
        QVERIFY(f.panels[0].allowsMultipleSelection() && f.panels[0].directory() != f.in(""));
        QCOMPARE(f.panels[0].nameFilters().value(0), u"Keynote Presentations (*.key)"_s);
        QCOMPARE(f.outputs(), QStringList({"My Talk.key", "Plain.key", "Three.v2.key"}));
        QCOMPARE(SettingsStore::standard().string(SettingKey::prezPath, {}),
                 FileUrl::absoluteString(f.in("Three.v2.key")));
        QCOMPARE(window->statusText(), u"3 presentations converted, 1 skipped · Show in Files"_s);
        QTRY_COMPARE_WITH_TIMEOUT(
            notifications(),
            QStringList{u"notify(\"Deckwright\", \"3 presentations converted, 1 skipped\", \"Show in Files\")"_s},
            BatchFixture::patience);
        QCOMPARE(followed(f.desktop.notificationAction), revealed(u"Three.v2.key"_s));
        QCOMPARE(followed(followLink), revealed(u"Three.v2.key"_s));

        // The name really written, not the package's; nothing for whoever looks at the window.
        app.showMainWindow();
        batch({"Plain.key"});
        // The dialog opens where the last batch came from.
        QCOMPARE(QDir::cleanPath(f.panels.last().directory()), QDir::cleanPath(f.in("")));
        // The desktop hands the focus back once the progress window is gone.
        window->activateWindow();
        QCOMPARE(window->statusText(), u"1 presentation converted · Show in Files"_s);
        // Timers of one interval fire in the order they were started: when
        // this one fires, the report has decided.
        bool decided = false;
        QTimer::singleShot(BatchReport::notificationDelay, [&] { decided = true; });
        QTRY_VERIFY_WITH_TIMEOUT(decided, BatchFixture::patience);
        QVERIFY(window->isActiveWindow());
        QCOMPARE(notifications(), QStringList());
        QCOMPARE(followed(followLink), revealed(u"Plain.1.key"_s));

        // The line stays until a batch that converts nothing.
        batch({"Newer.key"});
        QCOMPARE(window->statusText(), QString());
        QVERIFY(statusLine->isHidden());
    }

    void completionActions_data()
    {
        QTest::addColumn<QVariantMap>("settings");
        QTest::addColumn<QStringList>("calls");
        const QString sound = "playSound(\"Glass\")";
        const QString quiet = "false";
        QTest::newRow("nothing stored") << QVariantMap() << QStringList{sound};
        QTest::newRow("quiet unless exactly true") << QVariantMap{{SettingKey::playSound, "True"}} << QStringList();
        QTest::newRow("unknown action") << QVariantMap{{SettingKey::completedAction, "Print It"},
                                                       {SettingKey::playSound, quiet}}
                                        << QStringList();
        QTest::newRow("show") << QVariantMap{{SettingKey::completedAction, "Show in Finder"}}
                              << QStringList{sound, "revealFile(\"OUT/My Talk.key\", \"ROOT/My Talk.key\")"};
        QTest::newRow("open") << QVariantMap{{SettingKey::completedAction, "Open in Keynote"},
                                             {SettingKey::playSound, quiet}}
                              << QStringList{"openFile(\"OUT/My Talk.key\", \"Keynote\")"};
    }

    void completionActions()
    {
        QFETCH(QVariantMap, settings);
        QFETCH(QStringList, calls);
        f.reset(settings);
        f.runBatch({"My Talk.key"});
        // The folder has blanks: the file's path decodes them, the reveal's root keeps them escaped.
        QString escapedOut = f.out;
        escapedOut.replace(u' ', u"%20"_s);
        QCOMPARE(f.desktop.calls, calls.replaceInStrings("OUT", f.out).replaceInStrings("ROOT", escapedOut));
    }
};

QTEST_MAIN(TestBatch)
#include "TestBatch.moc"
