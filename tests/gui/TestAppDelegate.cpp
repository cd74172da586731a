#include "gui/Alert.h"
#include "support/gui/AlertRecorder.h"
#include "gui/AppDelegate.h"
#include "gui/BuildConfig.h"
#include "core/Converter.h"
#include "core/NotificationCenter.h"
#include "support/FatalTrap.h"
#include "gui/OpenPanel.h"
#include "support/PackageFactory.h"
#include "widgets/PreferencesWindow.h"
#include "widgets/PreferencesWindowController.h"
#include "gui/ProgressBarWindowController.h"
#include "support/gui/RecordingDesktopServices.h"
#include "core/SettingsStore.h"
#include "gui/SingleInstance.h"
#include "gui/SoftwareUpdater.h"
#include "support/TestSettings.h"
#include "ui_MainWindow.h"

#include <QApplication>
#include <QDir>
#include <QEnterEvent>
#include <QFontDatabase>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

// The application as a whole: start-up, the main window's panels, closing and
// reopening, the menus, and a second start handing over its packages.
class TestAppDelegate : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_work;
    AlertRecorder m_recorder;
    QList<Alert> &m_alerts = m_recorder.alerts;

    static QLabel *child(QWidget *panel, int index) { return panel->findChildren<QLabel *>(QString(), Qt::FindDirectChildrenOnly).value(index); }

private Q_SLOTS:
    void initTestCase()
    {
        FatalTrap::install();
        TestSettings::isolateScratch(m_work.path());
        // Automatic update checks go nowhere: nothing listens on the discard port.
        qputenv("DECKWRIGHT_APPCAST_URL", "http://127.0.0.1:9/appcast.xml");
        OpenPanel::setResponder([](OpenPanel &) { return OpenPanel::CancelResponse; });
    }

    void init()
    {
        m_alerts.clear();
        SettingsStore::standard().useMemory({});
    }

    void launchPushesTheUpdateSettings_data()
    {
        QTest::addColumn<QVariantMap>("stored");
        QTest::addColumn<double>("interval");
        QTest::addColumn<bool>("automatic");
        QTest::newRow("empty store") << QVariantMap() << 86400.0 << true;
        QTest::newRow("checks off") << QVariantMap{{SettingKey::checkUpdates, QStringLiteral("false")}} << 86400.0 << false;
        QTest::newRow("capital TRUE") << QVariantMap{{SettingKey::checkUpdates, QStringLiteral("TRUE")}} << 86400.0 << false;
        QTest::newRow("a week") << QVariantMap{{SettingKey::updateInterval, QVariant::fromValue<qint64>(604800)},
                                               {SettingKey::checkUpdates, QStringLiteral("true")}} << 604800.0 << true;
        QTest::newRow("an hour") << QVariantMap{{SettingKey::updateInterval, QVariant::fromValue<qint64>(3600)}} << 3600.0 << true;
    }

    void launchPushesTheUpdateSettings()
    {
        QFETCH(QVariantMap, stored);
        SettingsStore::standard().useMemory(stored);
        AppDelegate delegate;
        delegate.applicationDidFinishLaunching();
        QTEST(delegate.updater()->updateCheckInterval(), "interval");
        QTEST(delegate.updater()->automaticallyChecksForUpdates(), "automatic");
    }

    void settingsOfTheWrongKindAreFatalAtLaunch()
    {
        SettingsStore::standard().useMemory({{SettingKey::updateInterval, QStringLiteral("86400")}});
        AppDelegate first;
        QVERIFY_FATAL(first.applicationDidFinishLaunching(), "updateInterval");
        SettingsStore::standard().useMemory({{SettingKey::checkUpdates, QVariant::fromValue<qint64>(1)}});
        AppDelegate second;
        QVERIFY_FATAL(second.applicationDidFinishLaunching(), "checkUpdates");
    }

    void launchBuildsTheMainWindow()
    {
        AppDelegate delegate;
        delegate.applicationDidFinishLaunching();

        const QPixmap background = delegate.window()->ui().backgroundImage->pixmap();
        QVERIFY(!background.isNull());
        QCOMPARE(background.deviceIndependentSize(), QSizeF(475, 305));

        struct Expected { PanelButton *panel; QString header; QString body; QString image; };
        const QList<Expected> panels = {
            {delegate.window()->ui().preferencesButton, QStringLiteral("Preferences"), QStringLiteral("Configure ouput and settings."), QStringLiteral("NSAdvanced")},
            {delegate.window()->ui().openFileButton, QStringLiteral("Open"), QStringLiteral("Choose file or files to convert."), QStringLiteral("KeynoteIcon")},
            {delegate.window()->ui().moreInfoButton, QStringLiteral("Feedback & Support"), QStringLiteral("Send feedback, ask questions, report problems."), QStringLiteral("NSInfo")},
        };
        for (const Expected &e : panels) {
            QLabel *header = child(e.panel, 0);
            QLabel *body = child(e.panel, 1);
            QLabel *image = child(e.panel, 2);
            QVERIFY(header && body && image);
            QCOMPARE(header->text(), e.header);
            QCOMPARE(header->geometry(), QRect(50, 5, 220, 40));
            QCOMPARE(header->font().family(), QStringLiteral("Helvetica"));
            QCOMPARE(header->font().pixelSize(), 14);
            QVERIFY(header->font().bold());
            QCOMPARE(body->text(), e.body);
            QCOMPARE(body->geometry(), QRect(50, 23, 280, 40));
            QCOMPARE(body->font().pointSizeF(), QFontDatabase::systemFont(QFontDatabase::GeneralFont).pointSizeF());
            QVERIFY(!body->font().bold());
            QCOMPARE(body->palette().color(QPalette::WindowText), QColor(Qt::black));
            QCOMPARE(image->geometry(), QRect(5, 5, 34, 38));
            QCOMPARE(image->property("imageName").toString(), e.image);
            QVERIFY(!image->pixmap().isNull());
            QVERIFY(!e.panel->isBordered());
        }
        // Any other name shows the information image.
        std::unique_ptr<QLabel> other(MainWindow::makeImageFromPath(QStringLiteral("Elsewhere")));
        std::unique_ptr<QLabel> info(MainWindow::makeImageFromPath(QStringLiteral("NSInfo")));
        QCOMPARE(other->pixmap().toImage(), info->pixmap().toImage());

        // The preferences window holds the General pane without a toolbar.
        QCOMPARE(delegate.prefs()->viewControllers().size(), 1);
        QCOMPARE(delegate.prefs()->viewControllers().first()->preferenceTitle(), QStringLiteral("General"));
        QVERIFY(!delegate.prefs()->showToolbarWithSingleViewController());
    }

    void hoverBordersThePanelUnderThePointer()
    {
        AppDelegate delegate;
        delegate.applicationDidFinishLaunching();
        delegate.showMainWindow();
        PanelButton *open = delegate.window()->ui().openFileButton;
        PanelButton *prefs = delegate.window()->ui().preferencesButton;
        PanelButton *support = delegate.window()->ui().moreInfoButton;

        const QPointF inside = open->mapToGlobal(QPointF(20, 20));
        QEnterEvent enter(QPointF(20, 20), open->mapTo(open->window(), QPointF(20, 20)), inside);
        QApplication::sendEvent(open, &enter);
        QVERIFY(open->isBordered());
        QVERIFY(!prefs->isBordered());
        QVERIFY(!support->isBordered());

        // An exit from any panel clears every border.
        prefs->setBordered(true);
        QEvent leave(QEvent::Leave);
        QApplication::sendEvent(support, &leave);
        QVERIFY(!open->isBordered());
        QVERIFY(!prefs->isBordered());
    }

    void panelsAndMenusReachTheirActions()
    {
        RecordingDesktopServices desktop;
        AppDelegate delegate;
        delegate.applicationDidFinishLaunching();
        delegate.showMainWindow();
        Ui::MainWindow &ui = delegate.window()->ui();

        QTest::mouseClick(delegate.window()->ui().moreInfoButton, Qt::LeftButton, {}, QPoint(200, 26));
        ui.supportMenuItem->trigger();
        ui.websiteMenuItem->trigger();
        QCOMPARE(desktop.calls(QStringLiteral("openUrl")).size(), 3);
        QCOMPARE(desktop.calls().at(0).arguments, QStringList{QString::fromUtf8(BuildConfig::supportUrl)});
        QVERIFY(desktop.calls().at(0).arguments.first().contains(QLatin1String("src=kapp")));
        QCOMPARE(desktop.calls().at(2).arguments, QStringList{QString::fromUtf8(BuildConfig::websiteUrl)});

        // The preferences panel, even clicked on its header text, opens the preferences.
        QLabel *header = child(delegate.window()->ui().preferencesButton, 0);
        QTest::mouseClick(header, Qt::LeftButton, {}, QPoint(10, 8));
        QTRY_VERIFY(delegate.prefs()->window()->isVisible());
        QCOMPARE(delegate.prefs()->window()->windowTitle(), QStringLiteral("General"));
        delegate.prefs()->dismissPreferencesWindow();

        // Open reaches the open dialog (answered with a cancel here).
        int panels = 0;
        OpenPanel::setResponder([&panels](OpenPanel &panel) {
            ++panels;
            return panel.title() == QLatin1String("Choose File To Convert") ? OpenPanel::CancelResponse : OpenPanel::OKResponse;
        });
        QTest::mouseClick(delegate.window()->ui().openFileButton, Qt::LeftButton, {}, QPoint(200, 26));
        ui.openMenuItem->trigger();
        QCOMPARE(panels, 2);
        OpenPanel::setResponder([](OpenPanel &) { return OpenPanel::CancelResponse; });
    }

    void closingHidesAndReopeningShows()
    {
        AppDelegate delegate;
        delegate.applicationDidFinishLaunching();
        delegate.showMainWindow();
        QVERIFY(delegate.window()->isVisible());
        QVERIFY(delegate.window()->ui().closeMenuItem->isEnabled());

        delegate.window()->close();
        QVERIFY(!delegate.window()->isVisible());
        QVERIFY(!delegate.window()->ui().closeMenuItem->isEnabled());

        QVERIFY(delegate.applicationShouldHandleReopen(false));
        QVERIFY(delegate.window()->isVisible());
        QVERIFY(delegate.window()->ui().closeMenuItem->isEnabled());

        // The Close item hides the window without touching its own state.
        delegate.window()->ui().closeMenuItem->trigger();
        QVERIFY(!delegate.window()->isVisible());
        QVERIFY(delegate.window()->ui().closeMenuItem->isEnabled());
        delegate.window()->ui().showMainWindowMenuItem->trigger();
        QVERIFY(delegate.window()->isVisible());
    }

    void aSecondStartHandsItsPackagesToTheFirst()
    {
        const QString in = m_work.filePath(QStringLiteral("in"));
        const QString out = m_work.filePath(QStringLiteral("out"));
        QDir().mkpath(out);
        const PackageFactory factory(in);
        factory.make(QStringLiteral("Handed Over.key"));
        factory.make(QStringLiteral("Second.key"));
        TestSettings::useOutputFolder(out, {{SettingKey::playSound, QStringLiteral("false")}});

        RecordingDesktopServices desktop;
        AppDelegate delegate;
        delegate.applicationDidFinishLaunching();
        const QString name = m_work.filePath(QStringLiteral("instance.sock"));
        SingleInstance first(name);
        QVERIFY(!first.forwardToRunningInstance({}));
        QVERIFY(first.isListening());
        QObject::connect(&first, &SingleInstance::activated, &delegate, [&delegate](const QStringList &paths) {
            delegate.applicationShouldHandleReopen(delegate.window()->isVisible());
            delegate.openPackages(paths);
        });

        QProcess second;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("DECKWRIGHT_INSTANCE_NAME"), name);
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        second.setProcessEnvironment(env);
        second.setWorkingDirectory(in);
        second.start(QStringLiteral(DECKWRIGHT_BINARY), {QStringLiteral("Handed Over.key"), in + QStringLiteral("/Second.key")});
        QVERIFY(second.waitForFinished(30000));
        QCOMPARE(second.exitCode(), 0);

        QTRY_COMPARE(QDir(out).entryList(QDir::Files),
                     QStringList({QStringLiteral("Handed Over.key"), QStringLiteral("Second.key")}));
        QVERIFY(delegate.window()->isVisible());
        QVERIFY(delegate.window()->ui().closeMenuItem->isEnabled());
        QVERIFY(m_alerts.isEmpty());
    }

    void requestsDuringABatchWaitForIt()
    {
        const QString in = m_work.filePath(QStringLiteral("queued"));
        const QString out = m_work.filePath(QStringLiteral("queued-out"));
        QDir().mkpath(out);
        const PackageFactory factory(in);
        factory.make(QStringLiteral("A.key"));
        factory.make(QStringLiteral("B.key"));
        TestSettings::useOutputFolder(out, {{SettingKey::playSound, QStringLiteral("false")}});
        RecordingDesktopServices desktop;
        AppDelegate delegate;
        delegate.applicationDidFinishLaunching();

        // A request that arrives while the first file converts starts no nested batch.
        bool asked = false;
        QStringList finishedOrder;
        NotificationCenter::defaultCenter().addObserver(this, QStringLiteral("com.bramblefox.deckwright.finished"),
                                                        [&](const Notification &n) {
            finishedOrder.append(n.object->outputPrezName());
            if (!asked) {
                asked = true;
                QVERIFY(delegate.isConverting());
                delegate.openPackages({in + QStringLiteral("/B.key")});
            }
        });
        delegate.openPackages({in + QStringLiteral("/A.key")});
        QTRY_COMPARE(finishedOrder, QStringList({QStringLiteral("A.key"), QStringLiteral("B.key")}));
        NotificationCenter::defaultCenter().removeObserver(this);
    }
};

QTEST_MAIN(TestAppDelegate)
#include "TestAppDelegate.moc"
