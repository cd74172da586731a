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
// Watches the bar from inside the conversion, after the controller has moved it.
class WatchingController : public ProgressBarWindowController
{
public:
    WatchingController()
        : ProgressBarWindowController(QStringLiteral("ProgressBarView"))
    {
    }
    QList<double> values;
    QList<bool> visible;
    void moveProgressBar() override
    {
        visible.append(window()->isVisible());
        ProgressBarWindowController::moveProgressBar();
        values.append(progressIndy()->doubleValue());
    }
};

// Runs one tool through a shell that first takes its time: `script` runs
// before the real tool, with $P the folder zip packs (less its leading "/").
class SlowFileUtils : public FileUtils
{
public:
    SlowFileUtils(const QString &path, QString tool, QString script)
        : FileUtils(path)
        , m_tool(std::move(tool))
        , m_script(std::move(script))
    {
    }
    QString runCommand(const QString &launchPath, const QStringList &arguments) override
    {
        if (launchPath != m_tool)
            return FileUtils::runCommand(launchPath, arguments);
        const QString packed = arguments.last().mid(1);
        return FileUtils::runCommand(
            QStringLiteral("/bin/sh"),
            QStringList{QStringLiteral("-c"),
                        QStringLiteral("P='%1'; %2; exec %3 \"$@\"").arg(packed, m_script, launchPath),
                        QStringLiteral("sh")}
                + arguments);
    }

private:
    QString m_tool, m_script;
};

class SlowConverter : public Converter
{
public:
    SlowConverter(const QString &path, QString tool, QString script)
        : Converter(path)
        , m_tool(std::move(tool))
        , m_script(std::move(script))
    {
    }

protected:
    std::unique_ptr<FileUtils> createFileUtils(const QString &path) override
    {
        return std::make_unique<SlowFileUtils>(path, m_tool, m_script);
    }

private:
    QString m_tool, m_script;
};

// Keeps every value the bar takes, and each time the event loop turned meanwhile.
class SlowController : public ProgressBarWindowController
{
public:
    SlowController(QString tool, QString script)
        : ProgressBarWindowController(QStringLiteral("ProgressBarView"))
        , m_tool(std::move(tool))
        , m_script(std::move(script))
    {
    }
    QList<double> values;
    void moveProgressBar() override
    {
        ProgressBarWindowController::moveProgressBar();
        values.append(progressIndy()->doubleValue());
    }
    void moveWithinStage() override
    {
        ProgressBarWindowController::moveWithinStage();
        values.append(progressIndy()->doubleValue());
    }

protected:
    std::unique_ptr<Converter> makeConverter(const QString &path) override
    {
        return std::make_unique<SlowConverter>(path, m_tool, m_script);
    }

private:
    QString m_tool, m_script;
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
    void init() { f.reset(); }

    void showsTheFileAndMovesTheBarOnlyDuringTheConversion()
    {
        SettingsStore::standard().setObject(SettingKey::prezPath,
                                            FileUrl::absoluteString(f.in(QStringLiteral("My Talk.key"))));
        WatchingController controller;
        // A second run must not find the first one's observers still there.
        controller.showWindow(nullptr);
        controller.showWindow(nullptr);
        QCOMPARE(controller.exTextField()->text(), QStringLiteral("My Talk.key"));
        QVERIFY(f.outputs().contains(QStringLiteral("My Talk.key")));
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
        SettingsStore::standard().setObject(SettingKey::prezPath,
                                            FileUrl::absoluteString(f.in(QStringLiteral("Plain.key"))));
        // zip names the two large files slowly, one after the other.
        SlowController controller(
            QStringLiteral("/usr/bin/zip"),
            QStringLiteral("printf '  adding: %s/Data/photo one.jpg' \"$P\"; sleep 0.4; "
                           "printf ' (stored 0%%)\\n  adding: %s/Data/movie.v2.mov' \"$P\"; sleep 0.4; "
                           "printf ' (stored 0%%)\\n'"));
        int turns = 0;
        QTimer ticks;
        connect(&ticks, &QTimer::timeout, [&] { ++turns; });
        ticks.start(20);
        controller.showWindow(nullptr);
        QVERIFY2(turns >= 20, qPrintable(QString::number(turns)));
        QVERIFY(f.outputs().contains(QStringLiteral("Plain.key")));
        // Between the zip's own events (75 and 87.5) the bar went on, never back and never past them.
        QList<double> within;
        for (double value : controller.values)
            if (value > 75 && value < 87.5)
                within.append(value);
        QVERIFY2(within.size() >= 2, qPrintable(QString::number(within.size())));
        QList<double> sorted = controller.values;
        std::sort(sorted.begin(), sorted.end());
        QCOMPARE(controller.values, sorted);
        QCOMPARE(controller.values.last(), 100.0);
    }

    void stopUndoesTheFileAtOnce_data()
    {
        QTest::addColumn<QString>("how");
        QTest::newRow("Stop button") << QStringLiteral("button");
        QTest::newRow("Escape") << QStringLiteral("escape");
        QTest::newRow("close button") << QStringLiteral("close");
    }

    void stopUndoesTheFileAtOnce()
    {
        QFETCH(QString, how);
        SettingsStore::standard().setObject(SettingKey::prezPath,
                                            FileUrl::absoluteString(f.in(QStringLiteral("Plain.key"))));
        SlowController controller(QStringLiteral("/bin/cp"), QStringLiteral("sleep 30"));
        controller.beginBatch(3);
        QElapsedTimer sinceStop;
        QTimer::singleShot(300, &controller, [&] {
            QWidget *window = controller.window();
            QCOMPARE(window->windowTitle(), QStringLiteral("Converting 1 of 3"));
            sinceStop.start();
            if (how == QLatin1String("button"))
                window->findChild<QPushButton *>(QStringLiteral("stopButton"))->click();
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
        QVERIFY_FATAL(ProgressBarWindowController::displayName(QStringLiteral("file:///a/Bad%ZZ.key")),
                      "percent escapes");
        QVERIFY_FATAL(ProgressBarWindowController::convertFileUrlToPath(QStringLiteral("file:///a b/")), "not a URL");
    }

    void missingSettingsAreFatal_data()
    {
        QTest::addColumn<QVariantMap>("stored");
        QTest::addColumn<bool>("atCompletion");
        QTest::addColumn<QString>("reason");
        const QString file = QStringLiteral("file:///a/T.key/");
        QTest::newRow("no file") << QVariantMap() << false << "the setting prezPath is missing";
        QTest::newRow("no output folder")
            << QVariantMap{{SettingKey::prezPath, file}} << false << "no output folder was chosen";
        QTest::newRow("completion without the folder's bookmark")
            << QVariantMap{{SettingKey::prezPath, file}, {SettingKey::outputPath, QStringLiteral("file:///nowhere/")}}
            << true << "bookmarkData is missing";
        QTest::newRow("completion, file without a name")
            << QVariantMap{{SettingKey::prezPath, QStringLiteral("///")}} << true << "has no file name";
    }

    void missingSettingsAreFatal()
    {
        QFETCH(QVariantMap, stored);
        QFETCH(bool, atCompletion);
        QFETCH(QString, reason);
        SettingsStore::standard().useMemory(stored);
        ProgressBarWindowController controller(QStringLiteral("ProgressBarView"));
        try {
            atCompletion ? controller.finishedConversion() : controller.showWindow(nullptr);
            QFAIL("expected a fatal condition");
        } catch (const FatalError &error) {
            QVERIFY2(error.reason.contains(reason), qPrintable(error.reason));
        }
    }

    void aFileThatCannotBeSavedIsToldSoAndAStoppedOneNotAtAll()
    {
        // Gone while the file converts: a batch asks again for a folder gone before it starts.
        NotificationCenter::defaultCenter().addObserver(
            this, ConversionEvents::progress, [this](const Notification &) { QDir(f.out).removeRecursively(); });
        f.runBatch({QStringLiteral("My Talk.key")});
        NotificationCenter::defaultCenter().removeObserver(this);
        QCOMPARE(f.rejected(), QStringList{QStringLiteral("My%20Talk.key")});
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
        f.runBatch({QStringLiteral("My Talk.key"), QStringLiteral("Plain.key")});
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
        const QString sound = QStringLiteral("playSound(\"Glass\")");
        const QString quiet = QStringLiteral("false");
        QTest::newRow("nothing stored") << QVariantMap() << QStringList{sound};
        QTest::newRow("quiet unless exactly true")
            << QVariantMap{{SettingKey::playSound, QStringLiteral("True")}} << QStringList();
        QTest::newRow("unknown action") << QVariantMap{{SettingKey::completedAction, QStringLiteral("Print It")},
                                                       {SettingKey::playSound, quiet}}
                                        << QStringList();
        QTest::newRow("show") << QVariantMap{{SettingKey::completedAction, QStringLiteral("Show in Finder")}}
                              << QStringList{sound,
                                             QStringLiteral("revealFile(\"OUT/My Talk.key\", \"ROOT/My Talk.key\")")};
        QTest::newRow("open") << QVariantMap{{SettingKey::completedAction, QStringLiteral("Open in Keynote")},
                                             {SettingKey::playSound, quiet}}
                              << QStringList{QStringLiteral("openFile(\"OUT/My Talk.key\", \"Keynote\")")};
    }

    void completionActions()
    {
        QFETCH(QVariantMap, settings);
        QFETCH(QStringList, calls);
        f.reset(settings);
        f.runBatch({QStringLiteral("My Talk.key")});
        // The folder has blanks: the file's path decodes them, the reveal's root keeps them escaped.
        QString escapedOut = f.out;
        escapedOut.replace(QLatin1Char(' '), QStringLiteral("%20"));
        QCOMPARE(
            f.desktop.calls,
            calls.replaceInStrings(QStringLiteral("OUT"), f.out).replaceInStrings(QStringLiteral("ROOT"), escapedOut));
    }
};

QTEST_MAIN(TestProgressBarWindowController)
#include "TestProgressBarWindowController.moc"
