#include "gui/Alert.h"
#include "support/gui/AlertRecorder.h"
#include "core/ConversionEvents.h"
#include "core/Converter.h"
#include "support/FatalTrap.h"
#include "core/FileUrl.h"
#include "core/NotificationCenter.h"
#include "support/PackageFactory.h"
#include "gui/ProgressBarWindowController.h"
#include "support/gui/RecordingDesktopServices.h"
#include "core/SettingsStore.h"
#include "core/StopRequest.h"
#include "support/TestSettings.h"

#include <QApplication>
#include <QDir>
#include <QTemporaryDir>
#include <QTest>

namespace {
// Watches the bar from inside the conversion, after the controller has moved it.
class WatchingController : public ProgressBarWindowController
{
public:
    WatchingController() : ProgressBarWindowController(QStringLiteral("ProgressBarView")) {}
    QList<double> values;
    QStringList convertedPaths;
    bool visibleAtFirstStep = false;
    void moveProgressBar() override
    {
        if (values.isEmpty())
            visibleAtFirstStep = window()->isVisible();
        ProgressBarWindowController::moveProgressBar();
        values.append(progressIndy()->doubleValue());
    }

protected:
    std::unique_ptr<Converter> makeConverter(const QString &path) override
    {
        convertedPaths.append(path);
        return ProgressBarWindowController::makeConverter(path);
    }
};
} // namespace

class TestProgressBarWindowController : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_work;
    QString m_in;
    QString m_out;
    AlertRecorder m_recorder;
    QList<Alert> &m_alerts = m_recorder.alerts;

    void useSettings(const QString &package, const QVariantMap &extra = {})
    {
        QVariantMap values = extra;
        values.insert(SettingKey::prezPath, FileUrl::absoluteString(package));
        TestSettings::useOutputFolder(m_out, values);
    }

private Q_SLOTS:
    void initTestCase()
    {
        FatalTrap::install();
        TestSettings::isolateScratch(m_work.path());
        m_in = m_work.filePath(QStringLiteral("in"));
        QDir().mkpath(m_in);
        const PackageFactory factory(m_in);
        factory.make(QStringLiteral("My Talk.key"));
        factory.make(QStringLiteral("Newer.key"), PackageFactory::keynoteFiveDocument());
        factory.make(QStringLiteral("Plain.key"));
    }

    void init()
    {
        m_alerts.clear();
        m_out = m_work.filePath(QStringLiteral("My Out %1 %2").arg(QTest::currentTestFunction(), QTest::currentDataTag()));
        QDir().mkpath(m_out);
    }

    void namesTheFileDecodedAndConvertsItsPath()
    {
        RecordingDesktopServices desktop;
        useSettings(m_in + QStringLiteral("/My Talk.key"));
        WatchingController controller;
        controller.showWindow(nullptr);
        QCOMPARE(controller.exTextField()->text(), QStringLiteral("My Talk.key"));
        QCOMPARE(controller.convertedPaths, QStringList{m_in + QStringLiteral("/My Talk.key")});
        QVERIFY(QFileInfo::exists(m_out + QStringLiteral("/My Talk.key")));
        QCOMPARE(ProgressBarWindowController::displayName(QStringLiteral("file:///Users/a/My%20Talk.key/")), QStringLiteral("My Talk.key"));
        QCOMPARE(ProgressBarWindowController::displayName(QStringLiteral("Caf%C3%A9.key")), QStringLiteral("Café.key"));
        QCOMPARE(ProgressBarWindowController::convertFileUrlToPath(QStringLiteral("file:///Users/a/My%20Talk.key/")),
                 QStringLiteral("/Users/a/My Talk.key"));
        QVERIFY_FATAL(ProgressBarWindowController::displayName(QStringLiteral("file:///a/Bad%ZZ.key")), "percent escapes");
        QVERIFY_FATAL(ProgressBarWindowController::convertFileUrlToPath(QStringLiteral("file:///a b/")), "not a URL");
    }

    void eightStepsFillTheBarWhileTheWindowShows()
    {
        RecordingDesktopServices desktop;
        useSettings(m_in + QStringLiteral("/Plain.key"));
        WatchingController controller;
        controller.showWindow(nullptr);
        QCOMPARE(controller.values, (QList<double>{12.5, 25, 37.5, 50, 62.5, 75, 87.5, 100}));
        QVERIFY(controller.visibleAtFirstStep);
        QCOMPARE(controller.progressIndy()->value(), controller.progressIndy()->maximum());
        QVERIFY(!controller.window()->isVisible()); // closed by the completion

        // A ninth step stays at the maximum; a step outside a conversion reaches nobody.
        controller.moveProgressBar();
        QCOMPARE(controller.progressIndy()->doubleValue(), 100.0);
        controller.progressIndy()->setDoubleValue(50);
        NotificationCenter::defaultCenter().post(ConversionEvents::progress, nullptr);
        QCOMPARE(controller.progressIndy()->doubleValue(), 50.0);
    }

    void observesOnlyDuringTheConversion()
    {
        RecordingDesktopServices desktop;
        useSettings(m_in + QStringLiteral("/Plain.key"));
        ProgressBarWindowController controller(QStringLiteral("ProgressBarView"));
        NotificationCenter &center = NotificationCenter::defaultCenter();
        const QStringList names = {ConversionEvents::progress, ConversionEvents::finished,
                                   ConversionEvents::finishedWithErrorNotKeynote, ConversionEvents::finishedWithErrorNotKeynoteFour};
        int observedInside = 0;
        center.addObserver(this, ConversionEvents::finished, [&](const Notification &) {
            for (const QString &name : names)
                observedInside += center.isObserving(&controller, name) ? 1 : 0;
        });
        for (int round = 0; round < 2; ++round) {
            controller.showWindow(nullptr);
            for (const QString &name : names)
                QVERIFY(!center.isObserving(&controller, name));
        }
        center.removeObserver(this);
        QCOMPARE(observedInside, 8);
        QCOMPARE(center.observerCount(ConversionEvents::progress), 0);
    }

    void missingSettingsAreFatal()
    {
        ProgressBarWindowController controller(QStringLiteral("ProgressBarView"));
        SettingsStore::standard().useMemory({});
        QVERIFY_FATAL(controller.showWindow(nullptr), "the setting prezPath is missing");
        SettingsStore::standard().useMemory({{SettingKey::prezPath, FileUrl::absoluteString(m_in + QStringLiteral("/Plain.key"))}});
        QVERIFY_FATAL(controller.showWindow(nullptr), "no output folder was chosen");
    }

    void rejectedFilesAreReportedAndRecorded_data()
    {
        QTest::addColumn<QVariant>("stopForErrors");
        QTest::addColumn<bool>("reported");
        QTest::newRow("missing") << QVariant() << true;
        QTest::newRow("true") << QVariant(QStringLiteral("true")) << true;
        QTest::newRow("false") << QVariant(QStringLiteral("false")) << false;
        QTest::newRow("TRUE") << QVariant(QStringLiteral("TRUE")) << false;
    }

    void rejectedFilesAreReportedAndRecorded()
    {
        QFETCH(QVariant, stopForErrors);
        QFETCH(bool, reported);
        RecordingDesktopServices desktop;
        QVariantMap extra;
        if (stopForErrors.isValid())
            extra.insert(SettingKey::stopForErrors, stopForErrors);
        // A file whose URL text has an escape: the alert and the record keep it.
        QDir().mkpath(m_in + QStringLiteral("/Not Keynote.key"));
        useSettings(m_in + QStringLiteral("/Not Keynote.key"), extra);
        ProgressBarWindowController controller(QStringLiteral("ProgressBarView"));
        controller.showWindow(nullptr);
        controller.showWindow(nullptr);
        QCOMPARE(SettingsStore::standard().stringList(SettingKey::errorPrezzes, {}),
                 QStringList({QStringLiteral("Not%20Keynote.key"), QStringLiteral("Not%20Keynote.key")}));
        QCOMPARE(m_alerts.size(), reported ? 2 : 0);
        if (reported) {
            QCOMPARE(m_alerts.first().buttons(), QStringList{QStringLiteral("OK")});
            QCOMPARE(m_alerts.first().messageText(), QStringLiteral("A problem occurred."));
            QCOMPARE(m_alerts.first().informativeText(),
                     QStringLiteral("The file \"Not%20Keynote.key\" is not a Keynote 4 file.\n\nThis converter will only "
                                    "convert Keynote 4 (iWork '08) files to Keynote 5 (iWork '09) files. This file will be skipped."));
            QCOMPARE(m_alerts.first().detailedText(), QStringLiteral("Index.apxl.gz is missing."));
        }
        QVERIFY(!controller.window()->isVisible());
        QVERIFY(desktop.calls().isEmpty());

        // A path without the extension gets the same words.
        m_alerts.clear();
        SettingsStore::standard().setObject(SettingKey::prezPath, FileUrl::absoluteString(m_in + QStringLiteral("/My Talk.key/index.apxl.gz")));
        controller.showWindow(nullptr);
        QCOMPARE(SettingsStore::standard().stringList(SettingKey::errorPrezzes, {}).last(), QStringLiteral("index.apxl.gz"));
        QCOMPARE(m_alerts.size(), reported ? 1 : 0);
    }

    void aFileThatCannotBeSavedIsToldSoAndAStoppedOneNotAtAll()
    {
        RecordingDesktopServices desktop;
        useSettings(m_in + QStringLiteral("/My Talk.key"));
        QVERIFY(QDir(m_out).removeRecursively());
        ProgressBarWindowController controller(QStringLiteral("ProgressBarView"));
        controller.showWindow(nullptr);
        QCOMPARE(controller.converter().errorOccurred(), qint64(Converter::OutputNotWritten));
        QCOMPARE(m_alerts.size(), 1);
        QCOMPARE(m_alerts.first().informativeText(),
                 QStringLiteral("The file \"My%20Talk.key\" was converted but could not be saved in the output folder.\n\n"
                                "Check that the folder still exists, that you may write in it and that its disk has room. "
                                "This file will be skipped."));
        QCOMPARE(m_alerts.first().detailedText(),
                 QStringLiteral("Could not write %1/My Talk.key (the output folder no longer exists).").arg(m_out));
        QCOMPARE(SettingsStore::standard().stringList(SettingKey::errorPrezzes, {}), QStringList{QStringLiteral("My%20Talk.key")});
        QVERIFY(desktop.calls().isEmpty());

        // Stopped half way: nothing to report, nothing recorded, the window gone.
        QVERIFY(QDir().mkpath(m_out));
        SettingsStore::standard().setObject(SettingKey::errorPrezzes, QStringList());
        m_alerts.clear();
        NotificationCenter::defaultCenter().addObserver(this, ConversionEvents::progress,
                                                        [](const Notification &) { StopRequest::request(); });
        controller.showWindow(nullptr);
        NotificationCenter::defaultCenter().removeObserver(this);
        QCOMPARE(controller.converter().errorOccurred(), qint64(Converter::Stopped));
        QVERIFY(m_alerts.isEmpty());
        QCOMPARE(SettingsStore::standard().stringList(SettingKey::errorPrezzes, {}), QStringList());
        QVERIFY(!controller.window()->isVisible());
        QCOMPARE(QDir(m_out).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden), QStringList());
    }

    void completionActions_data()
    {
        QTest::addColumn<QVariantMap>("settings");
        QTest::addColumn<QStringList>("calls");
        const QString out = QStringLiteral("OUT");
        QTest::newRow("nothing stored") << QVariantMap() << QStringList{QStringLiteral("playSound(\"Glass\")")};
        QTest::newRow("quiet") << QVariantMap{{SettingKey::playSound, QStringLiteral("false")}} << QStringList();
        QTest::newRow("quiet, capital True") << QVariantMap{{SettingKey::playSound, QStringLiteral("True")}} << QStringList();
        QTest::newRow("do nothing") << QVariantMap{{SettingKey::completedAction, QStringLiteral("Do Nothing")}, {SettingKey::playSound, QStringLiteral("false")}} << QStringList();
        QTest::newRow("unknown action") << QVariantMap{{SettingKey::completedAction, QStringLiteral("Print It")}, {SettingKey::playSound, QStringLiteral("false")}} << QStringList();
        QTest::newRow("show") << QVariantMap{{SettingKey::completedAction, QStringLiteral("Show in Finder")}}
                              << QStringList{QStringLiteral("playSound(\"Glass\")"), QStringLiteral("revealFile(\"OUT/My Talk.key\", \"ROOT/My Talk.key\")")};
        QTest::newRow("open") << QVariantMap{{SettingKey::completedAction, QStringLiteral("Open in Keynote")}, {SettingKey::playSound, QStringLiteral("false")}}
                              << QStringList{QStringLiteral("openFile(\"OUT/My Talk.key\", \"Keynote\")")};
    }

    void completionActions()
    {
        QFETCH(QVariantMap, settings);
        QFETCH(QStringList, calls);
        RecordingDesktopServices desktop;
        useSettings(m_in + QStringLiteral("/My Talk.key"), settings);
        ProgressBarWindowController controller(QStringLiteral("ProgressBarView"));
        controller.showWindow(nullptr);
        QVERIFY(!controller.window()->isVisible());
        // The folder has a blank: the file's path decodes it, the reveal's root keeps its escape.
        QString escapedOut = m_out;
        escapedOut.replace(QLatin1Char(' '), QStringLiteral("%20"));
        QCOMPARE(desktop.describe(), calls.replaceInStrings(QStringLiteral("OUT"), m_out).replaceInStrings(QStringLiteral("ROOT"), escapedOut));
    }

    void completionPathsFollowTheStoredFolderText()
    {
        // Without a blank both paths agree.
        RecordingDesktopServices desktop;
        const QString plainOut = m_work.filePath(QStringLiteral("Plain"));
        QDir().mkpath(plainOut);
        QVariantMap values{{SettingKey::completedAction, QStringLiteral("Show in Finder")},
                           {SettingKey::playSound, QStringLiteral("false")},
                           {SettingKey::prezPath, FileUrl::absoluteString(m_in + QStringLiteral("/My Talk.key"))}};
        TestSettings::useOutputFolder(plainOut, values);
        QVERIFY(SettingsStore::standard().string(SettingKey::outputPath, {}).endsWith(QLatin1String("/Plain/")));
        ProgressBarWindowController controller(QStringLiteral("ProgressBarView"));
        controller.showWindow(nullptr);
        const QString file = plainOut + QStringLiteral("/My Talk.key");
        QCOMPARE(desktop.describe(), QStringList{QStringLiteral("revealFile(\"%1\", \"%1\")").arg(file)});
    }

    void completionNeedsTheOutputFolder()
    {
        RecordingDesktopServices desktop;
        ProgressBarWindowController controller(QStringLiteral("ProgressBarView"));
        SettingsStore::standard().useMemory({{SettingKey::prezPath, QStringLiteral("file:///a/T.key/")},
                                             {SettingKey::outputPath, QStringLiteral("file:///nowhere/")}});
        QVERIFY_FATAL(controller.finishedConversion(), "bookmarkData is missing");
        TestSettings::useOutputFolder(m_out, {{SettingKey::prezPath, QStringLiteral("///")}});
        QVERIFY_FATAL(controller.finishedConversion(), "has no file name");
    }
};

QTEST_MAIN(TestProgressBarWindowController)
#include "TestProgressBarWindowController.moc"
