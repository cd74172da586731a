#include "core/ConversionEvents.h"
#include "core/Converter.h"
#include "core/FileUrl.h"
#include "core/NotificationCenter.h"
#include "core/SettingsStore.h"
#include "core/StopRequest.h"
#include "gui/ProgressBarWindowController.h"
#include "support/FatalTrap.h"
#include "support/gui/BatchFixture.h"

#include <QDir>
#include <QTest>

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
} // namespace

class TestProgressBarWindowController : public QObject
{
    Q_OBJECT

    BatchFixture f;

private Q_SLOTS:
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
        QVERIFY(QDir(f.out).removeRecursively());
        f.runBatch({QStringLiteral("My Talk.key")});
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
        NotificationCenter::defaultCenter().addObserver(this, ConversionEvents::progress,
                                                        [](const Notification &) { StopRequest::request(); });
        f.runBatch({QStringLiteral("My Talk.key")});
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
