#include "core/ConversionEvents.h"
#include "core/Converter.h"
#include "core/FileUrl.h"
#include "core/FileUtils.h"
#include "core/NotificationCenter.h"
#include "core/SettingsStore.h"
#include "core/StopRequest.h"
#include "core/Waiting.h"
#include "gui/ProgressBarWindowController.h"
#include "support/FatalTrap.h"
#include "support/gui/BatchFixture.h"

#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <utility>

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
        const QString script
            = QStringLiteral("P='%1'; %2; exec %3 \"$@\"").arg(arguments.last().mid(1), slowScript, launchPath);
        return FileUtils::runCommand("/bin/sh", QStringList{"-c", script, "sh"} + arguments);
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
        : ProgressBarWindowController("ProgressBarView")
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

QStringList runFolders(const QString &under)
{
    QStringList found;
    QDirIterator it(under, QDir::Dirs | QDir::Hidden | QDir::NoDotAndDotDot, QDirIterator::Subdirectories);
    while (it.hasNext())
        if (QFileInfo(it.next()).fileName().startsWith(QLatin1String("run-")))
            found.append(it.filePath());
    return found;
}
} // namespace

class TestProgressBarWindowController : public QObject
{
    Q_OBJECT

    BatchFixture f;

private Q_SLOTS:
    // As in the application: the windows answer while a tool runs.
    void initTestCase() { Waiting::setKeepsEventsTurning(true); }
    void init()
    {
        f.reset();
        slowTool.clear();
    }

    void showsTheFileAndMovesTheBarOnlyDuringTheConversion()
    {
        SettingsStore::standard().setObject(SettingKey::prezPath, FileUrl::absoluteString(f.in("My Talk.key")));
        Controller controller;
        // A second run must not find the first one's observers still there.
        controller.showWindow(nullptr);
        controller.showWindow(nullptr);
        QCOMPARE(controller.exTextField()->text(), QStringLiteral("My Talk.key"));
        QVERIFY(f.outputs().contains("My Talk.key"));
        const QList<double> eight = {12.5, 25, 37.5, 50, 62.5, 75, 87.5, 100};
        QCOMPARE(controller.values, eight + eight);
        QCOMPARE(controller.visible, QList<bool>(16, true));
        QVERIFY(!controller.window()->isVisible()); // closed by the completion

        // Outside a conversion the events reach nobody.
        f.desktop.calls.clear();
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

    void aLongToolKeepsTheWindowAliveAndTheBarMoving()
    {
        SettingsStore::standard().setObject(SettingKey::prezPath, FileUrl::absoluteString(f.in("Plain.key")));
        // zip names the two large files slowly, one after the other.
        slowTool = "/usr/bin/zip";
        slowScript = QStringLiteral(
            "printf '  adding: %s/Data/photo one.jpg' \"$P\"; sleep 0.6; "
            "printf ' (stored 0%%)\\n  adding: %s/Data/movie.v2.mov' \"$P\"; sleep 0.6; "
            "printf ' (stored 0%%)\\n'");
        Controller controller;
        int turns = 0;
        QTimer ticks;
        connect(&ticks, &QTimer::timeout, [&] { ++turns; });
        ticks.start(20);
        controller.showWindow(nullptr);
        QVERIFY2(turns >= 20, qPrintable(QString::number(turns)));
        QVERIFY(f.outputs().contains("Plain.key"));
        // Between the zip's own events (75 and 87.5) the bar went on, never back and never past them.
        QList<double> within;
        for (double value : controller.all)
            if (value > 75 && value < 87.5)
                within.append(value);
        QVERIFY2(!within.isEmpty(), qPrintable(QString::number(within.size())));
        QList<double> sorted = controller.all;
        std::sort(sorted.begin(), sorted.end());
        QCOMPARE(controller.all, sorted);
        QCOMPARE(controller.all.last(), 100.0);
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
        SettingsStore::standard().setObject(SettingKey::prezPath, FileUrl::absoluteString(f.in("Plain.key")));
        slowTool = "/bin/cp";
        slowScript = "sleep 30";
        Controller controller;
        controller.beginBatch(3);
        QElapsedTimer sinceStop;
        QTimer::singleShot(300, &controller, [&] {
            QWidget *window = controller.window();
            QCOMPARE(window->windowTitle(), QStringLiteral("Converting 1 of 3"));
            sinceStop.start();
            if (how == QLatin1String("button"))
                window->findChild<QPushButton *>("stopButton")->click();
            else if (how == QLatin1String("escape"))
                QTest::keyClick(window, Qt::Key_Escape);
            else
                window->close();
        });
        controller.showWindow(nullptr);
        QVERIFY(sinceStop.isValid());
        QVERIFY2(sinceStop.elapsed() < 1000, qPrintable(QString::number(sinceStop.elapsed())));
        QCOMPARE(controller.converter().errorOccurred(), qint64(Converter::Stopped));
        QVERIFY(f.alerts.isEmpty());
        QCOMPARE(f.rejected(), QStringList());
        QCOMPARE(f.outputs(), QStringList());
        QCOMPARE(runFolders(f.work(QStringLiteral("runtime"))), QStringList());
        controller.endBatch();
        QVERIFY(!controller.window()->isVisible());
    }

    void namesAreDecoded()
    {
        QCOMPARE(ProgressBarWindowController::displayName(QStringLiteral("Caf%C3%A9.key")), QStringLiteral("Café.key"));
        QVERIFY_FATAL(ProgressBarWindowController::displayName("file:///a/Bad%ZZ.key"), "percent escapes");
        QVERIFY_FATAL(ProgressBarWindowController::convertFileUrlToPath("file:///a b/"), "not a URL");
    }

    void missingSettingsAreFatal()
    {
        SettingsStore &settings = SettingsStore::standard();
        ProgressBarWindowController controller("ProgressBarView");
        settings.useMemory({});
        QVERIFY_FATAL(controller.showWindow(nullptr), "the setting prezPath is missing");
        settings.useMemory({{SettingKey::prezPath, "file:///a/T.key/"}});
        QVERIFY_FATAL(controller.showWindow(nullptr), "no output folder was chosen");
        settings.setObject(SettingKey::outputPath, "file:///nowhere/");
        QVERIFY_FATAL(controller.finishedConversion(), "bookmarkData is missing");
        settings.useMemory({{SettingKey::prezPath, "///"}});
        QVERIFY_FATAL(controller.finishedConversion(), "has no file name");
    }

    void aFileThatCannotBeSavedIsToldSoAndAStoppedOneNotAtAll()
    {
        // Gone while the file converts: a batch asks again for a folder gone before it starts.
        NotificationCenter::defaultCenter().addObserver(
            this, ConversionEvents::progress, [this](const Notification &) { QDir(f.out).removeRecursively(); });
        f.runBatch({"My Talk.key"});
        NotificationCenter::defaultCenter().removeObserver(this);
        QCOMPARE(f.rejected(), QStringList{"My%20Talk.key"});
        QCOMPARE(f.alerts.size(), 2); // the file's own, then the summary
        QVERIFY2(f.alerts.first().informativeText().contains(
                     QLatin1String("\"My%20Talk.key\" was converted but could not be saved")),
                 qPrintable(f.alerts.first().informativeText()));
        QVERIFY(f.alerts.first().detailedText().contains(f.out));
        QVERIFY(f.desktop.calls.isEmpty());

        // Stopped half way: nothing to report, nothing recorded, nothing left.
        QVERIFY(QDir().mkpath(f.out));
        f.alerts.clear();
        // Stopped once: the batch ends there, and the next file is not converted.
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
        escapedOut.replace(QLatin1Char(' '), "%20");
        QCOMPARE(f.desktop.calls, calls.replaceInStrings("OUT", f.out).replaceInStrings("ROOT", escapedOut));
    }
};

QTEST_MAIN(TestProgressBarWindowController)
#include "TestProgressBarWindowController.moc"
