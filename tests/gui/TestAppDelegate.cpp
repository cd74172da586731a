#include "core/ConversionEvents.h"
#include "core/Converter.h"
#include "core/NotificationCenter.h"
#include "core/SettingsStore.h"
#include "gui/AppDelegate.h"
#include "gui/BuildConfig.h"
#include "gui/SingleInstance.h"
#include "gui/SoftwareUpdater.h"
#include "gui/TrayIcon.h"
#include "support/FatalTrap.h"
#include "support/PackageFactory.h"
#include "support/gui/BatchFixture.h"
#include "ui_MainWindow.h"
#include "widgets/PreferencesWindow.h"
#include "widgets/PreferencesWindowController.h"

#include <QApplication>
#include <QDir>
#include <QDragEnterEvent>
#include <QEnterEvent>
#include <QMimeData>
#include <QProcess>
#include <QTest>

// The application as a whole: start-up, the main window's panels, closing and
// reopening, the menus, drops, and a second start handing over its packages.
class TestAppDelegate : public QObject
{
    Q_OBJECT

    BatchFixture f;
    std::unique_ptr<AppDelegate> m_app;

    // A fresh application, launched with the store as it stands.
    AppDelegate &launch(bool showWindow = false)
    {
        m_app.reset();
        m_app = std::make_unique<AppDelegate>();
        m_app->applicationDidFinishLaunching();
        if (showWindow)
            m_app->showMainWindow();
        return *m_app;
    }
    static QLabel *child(QWidget *panel, int index)
    {
        return panel->findChildren<QLabel *>(QString(), Qt::FindDirectChildrenOnly).value(index);
    }

    // A drag event as a file manager sends it: copy or move offered, never a move taken.
    static bool drag(QWidget *window, QEvent::Type type, const QList<QUrl> &urls)
    {
        QMimeData data;
        data.setUrls(urls);
        const QPoint where(200, 150);
        const Qt::DropActions offered = Qt::CopyAction | Qt::MoveAction;
        std::unique_ptr<QDropEvent> event;
        if (type == QEvent::DragEnter)
            event = std::make_unique<QDragEnterEvent>(where, offered, &data, Qt::LeftButton, Qt::NoModifier);
        else
            event = std::make_unique<QDropEvent>(where, offered, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(window, event.get());
        return event->isAccepted() && event->dropAction() == Qt::CopyAction;
    }

private Q_SLOTS:
    void init()
    {
        // Automatic update checks go nowhere: nothing listens on the discard port.
        qputenv("DECKWRIGHT_APPCAST_URL", "http://127.0.0.1:9/appcast.xml");
        f.reset({{SettingKey::playSound, "false"}});
    }

    void theApplicationIconDraws()
    {
        // Without the SVG image plugin it is empty, and every secondary window shows a generic icon.
        QVERIFY(!AppDelegate::applicationIcon().pixmap(48).isNull());
    }
    void cleanup() { m_app.reset(); }

    void launchPushesTheUpdateSettings_data()
    {
        QTest::addColumn<QVariantMap>("stored");
        QTest::addColumn<double>("interval");
        QTest::addColumn<bool>("automatic");
        QTest::newRow("empty store") << QVariantMap() << 86400.0 << true;
        QTest::newRow("checks off") << QVariantMap{{SettingKey::checkUpdates, "false"}} << 86400.0 << false;
        QTest::newRow("capital TRUE") << QVariantMap{{SettingKey::checkUpdates, "TRUE"}} << 86400.0 << false;
        QTest::newRow("a week") << QVariantMap{{SettingKey::updateInterval, QVariant::fromValue<qint64>(604800)},
                                               {SettingKey::checkUpdates, "true"}}
                                << 604800.0 << true;
    }

    void launchPushesTheUpdateSettings()
    {
        QFETCH(QVariantMap, stored);
        SettingsStore::standard().useMemory(stored);
        QTEST(launch().updater()->updateCheckInterval(), "interval");
        QTEST(m_app->updater()->automaticallyChecksForUpdates(), "automatic");
    }

    void settingsOfTheWrongKindAreFatalAtLaunch()
    {
        SettingsStore::standard().useMemory({{SettingKey::updateInterval, "86400"}});
        QVERIFY_FATAL(launch(), "updateInterval");
        SettingsStore::standard().useMemory({{SettingKey::checkUpdates, QVariant::fromValue<qint64>(1)}});
        QVERIFY_FATAL(launch(), "checkUpdates");
    }

    void launchBuildsTheMainWindow()
    {
        AppDelegate &delegate = launch();
        const Ui::MainWindow &ui = delegate.window()->ui();
        QVERIFY(!ui.backgroundImage->pixmap().isNull());
        // Each panel: a header, a text and a picture, the Open panel's from the application's own.
        for (PanelButton *panel : {ui.preferencesButton, ui.openFileButton, ui.moreInfoButton})
            QVERIFY(!child(panel, 0)->text().isEmpty() && !child(panel, 1)->text().isEmpty()
                    && !child(panel, 2)->pixmap().isNull());
        // Any other name shows the information image.
        std::unique_ptr<QLabel> other(MainWindow::makeImageFromPath("Elsewhere"));
        QCOMPARE(other->pixmap().toImage(), child(ui.moreInfoButton, 2)->pixmap().toImage());
        QVERIFY(other->pixmap().toImage() != child(ui.openFileButton, 2)->pixmap().toImage());
        // The preferences window holds the General pane without a toolbar.
        QCOMPARE(delegate.prefs()->viewControllers().size(), 1);
        QVERIFY(!delegate.prefs()->showToolbarWithSingleViewController());
    }

    void hoverBordersThePanelUnderThePointer()
    {
        const Ui::MainWindow &ui = launch(true).window()->ui();
        const auto borders = [&ui] {
            return QList<bool>{ui.preferencesButton->isBordered(), ui.openFileButton->isBordered(),
                               ui.moreInfoButton->isBordered()};
        };
        const QPointF inside(20, 20);
        QEnterEvent enter(inside, ui.openFileButton->mapTo(ui.openFileButton->window(), inside),
                          ui.openFileButton->mapToGlobal(inside));
        QApplication::sendEvent(ui.openFileButton, &enter);
        QCOMPARE(borders(), QList<bool>({false, true, false}));
        // An exit from any panel clears every border.
        ui.preferencesButton->setBordered(true);
        QEvent leave(QEvent::Leave);
        QApplication::sendEvent(ui.moreInfoButton, &leave);
        QCOMPARE(borders(), QList<bool>({false, false, false}));
    }

    void panelsAndMenusReachTheirActions()
    {
        SettingsStore::standard().useMemory({});
        AppDelegate &delegate = launch(true);
        const Ui::MainWindow &ui = delegate.window()->ui();

        QTest::mouseClick(ui.moreInfoButton, Qt::LeftButton, {}, QPoint(200, 26));
        ui.supportMenuItem->trigger();
        ui.websiteMenuItem->trigger();
        const QString support = QStringLiteral("openUrl(\"%1\")").arg(QString::fromUtf8(BuildConfig::supportUrl));
        QCOMPARE(f.desktop.calls,
                 QStringList({support, support,
                              QStringLiteral("openUrl(\"%1\")").arg(QString::fromUtf8(BuildConfig::websiteUrl))}));

        // The preferences panel, even clicked on its header text, opens the preferences.
        QTest::mouseClick(child(ui.preferencesButton, 0), Qt::LeftButton, {}, QPoint(10, 8));
        QTRY_VERIFY(delegate.prefs()->window()->isVisible());
        delegate.prefs()->dismissPreferencesWindow();

        // Open reaches the open dialog, by a click, the menu, or Return on the focused panel;
        // a cancel there asks for no folder and writes nothing.
        QTest::mouseClick(ui.openFileButton, Qt::LeftButton, {}, QPoint(200, 26));
        ui.openMenuItem->trigger();
        QTest::keyClick(ui.openFileButton, Qt::Key_Return);
        QTRY_COMPARE(f.panels.size(), 3);
        for (const OpenPanel &panel : f.panels)
            QVERIFY(panel.canChooseFiles());
        QVERIFY(!SettingsStore::standard().contains(SettingKey::errorPrezzes));
        QVERIFY(!SettingsStore::standard().contains(SettingKey::prezPath));
        QVERIFY(f.alerts.isEmpty());
    }

    void menuShortcutsWorkFromThePreferencesWindow()
    {
        AppDelegate &delegate = launch(true);
        delegate.showPreferencesPane();
        QWidget *preferences = delegate.prefs()->window();
        preferences->activateWindow();
        QTRY_VERIFY(preferences->isActiveWindow());
        QTest::keyClick(preferences, Qt::Key_O, Qt::ControlModifier);
        QTRY_COMPARE(f.panels.size(), 1);
        // Under a window manager only an application-wide shortcut reaches the menus from another window.
        const Ui::MainWindow &ui = delegate.window()->ui();
        for (const QAction *action : {ui.openMenuItem, ui.preferencesMenuItem, ui.quitMenuItem})
            QCOMPARE(action->shortcutContext(), Qt::ApplicationShortcut);
        delegate.prefs()->dismissPreferencesWindow();
    }

    void closingHidesAndReopeningShows()
    {
        AppDelegate &delegate = launch(true);
        MainWindow *window = delegate.window();
        QAction *close = window->ui().closeMenuItem;
        QVERIFY(window->isVisible() && close->isEnabled());
        window->close();
        QVERIFY(!window->isVisible() && !close->isEnabled());
        QVERIFY(delegate.applicationShouldHandleReopen(false));
        QVERIFY(window->isVisible() && close->isEnabled());

        // The Close item hides the window without touching its own state.
        close->trigger();
        QVERIFY(!window->isVisible() && close->isEnabled());
        window->ui().showMainWindowMenuItem->trigger();
        QVERIFY(window->isVisible());

        // The tray icon, where the desktop has a tray, leads back the same way.
        window->close();
        QCOMPARE(delegate.tray()->isShown(), delegate.tray()->isAvailable());
        Q_EMIT delegate.tray()->showWindowRequested();
        QVERIFY(window->isVisible() && close->isEnabled() && !delegate.tray()->isShown());
        const QList<QAction *> items = delegate.tray()->menu()->actions();
        items.at(0)->trigger(); // Open…
        QCOMPARE(f.panels.size(), 1);
        items.at(1)->trigger(); // Preferences…
        QTRY_VERIFY(delegate.prefs()->window()->isVisible());
        delegate.prefs()->dismissPreferencesWindow();
    }

    void aSecondStartHandsItsPackagesToTheFirst()
    {
        AppDelegate &delegate = launch();
        const QString name = f.work("instance.sock");
        SingleInstance first(name);
        QVERIFY(!first.forwardToRunningInstance({}));
        QVERIFY(first.isListening());
        QObject::connect(&first, &SingleInstance::activated, &delegate, [&delegate](const QStringList &paths) {
            delegate.applicationShouldHandleReopen(delegate.window()->isVisible());
            delegate.openPackages(paths);
        });

        QProcess second;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("DECKWRIGHT_INSTANCE_NAME", name);
        env.insert("QT_QPA_PLATFORM", "offscreen");
        second.setProcessEnvironment(env);
        // One path relative to the second start's folder, one absolute, and a folder to search.
        const QString folder = f.work("Handed Over");
        PackageFactory(folder + QStringLiteral("/Inner")).make("Found.key");
        second.setWorkingDirectory(f.in(QString()));
        second.start(QStringLiteral(DECKWRIGHT_BINARY), {"My Talk.key", f.in("Plain.key"), folder});
        QVERIFY(second.waitForFinished(30000));
        QCOMPARE(second.exitCode(), 0);

        QTRY_COMPARE(f.outputs(), QStringList({"Found.key", "My Talk.key", "Plain.key"}));
        QVERIFY(delegate.window()->isVisible());
        QVERIFY(f.alerts.isEmpty());
    }

    void aDropConvertsThePackagesAndWhatItsFoldersHold()
    {
        MainWindow *window = launch(true).window();
        const QString folder = f.work("Dropped Decks");
        PackageFactory(folder).make("Zeta.key");
        PackageFactory(folder).make("Alpha.key");
        PackageFactory(folder + QStringLiteral("/More")).make("Beta.key");
        QStringList finished;
        NotificationCenter::defaultCenter().addObserver(this, ConversionEvents::finished, [&](const Notification &n) {
            finished.append(n.object->outputPrezName());
        });
        const QList<QUrl> urls{QUrl::fromLocalFile(f.in("Plain.key")), QUrl("https://example.com/Web.key"),
                               QUrl::fromLocalFile(f.in("My Talk.key")), QUrl::fromLocalFile(folder)};
        QVERIFY(drag(window, QEvent::DragEnter, urls));
        QVERIFY(drag(window, QEvent::Drop, urls));
        QTRY_COMPARE(finished, QStringList({"Plain.key", "My Talk.key", "Alpha.key", "Beta.key", "Zeta.key"}));
        NotificationCenter::defaultCenter().removeObserver(this);
        QVERIFY(f.alerts.isEmpty());
    }

    void aDragShowsWhereItWouldLand()
    {
        MainWindow *window = launch(true).window();
        QWidget *contents = window->centralWidget();
        const QColor highlight = window->palette().color(QPalette::Highlight);
        const auto edge = [contents] { return contents->grab().toImage().pixelColor(1, contents->height() / 2); };
        QVERIFY(edge() != highlight);

        QVERIFY(drag(window, QEvent::DragEnter, {QUrl::fromLocalFile(f.in("Plain.key"))}));
        QVERIFY(window->isShowingDropHighlight());
        QCOMPARE(edge(), highlight);
        QDragLeaveEvent leave;
        QApplication::sendEvent(window, &leave);
        QVERIFY(!window->isShowingDropHighlight());
        QVERIFY(edge() != highlight);

        // Nothing on this disk: no highlight, and the drag is refused.
        QVERIFY(!drag(window, QEvent::DragEnter, {QUrl("https://example.com/Web.key")}));
        QVERIFY(!window->isShowingDropHighlight());
    }

    void foldersWithoutPackagesStartNoBatch()
    {
        AppDelegate &delegate = launch();
        const QString empty = f.work("No Decks");
        QVERIFY(QDir().mkpath(empty + QStringLiteral("/Inside")));
        delegate.openPackages({empty});
        QTRY_COMPARE(f.alerts.size(), 1);
        QCOMPARE(f.alerts.first().messageText(), QStringLiteral("No Keynote packages were found."));
        QVERIFY(!SettingsStore::standard().contains(SettingKey::errorPrezzes));
        // The next request is not held up by it.
        delegate.openPackages({f.in("Plain.key")});
        QTRY_COMPARE(f.outputs(), QStringList{"Plain.key"});
    }

    void requestsDuringABatchWaitForIt()
    {
        AppDelegate &delegate = launch();
        // A request that arrives while the first file converts starts no nested batch.
        QStringList finishedOrder;
        NotificationCenter::defaultCenter().addObserver(this, ConversionEvents::finished, [&](const Notification &n) {
            finishedOrder.append(n.object->outputPrezName());
            if (finishedOrder.size() == 1) {
                QVERIFY(delegate.isConverting());
                delegate.openPackages({f.in("Three.v2.key")});
            }
        });
        delegate.openPackages({f.in("Plain.key")});
        QTRY_COMPARE(finishedOrder, QStringList({"Plain.key", "Three.v2.key"}));
        NotificationCenter::defaultCenter().removeObserver(this);
    }
};

QTEST_MAIN(TestAppDelegate)
#include "TestAppDelegate.moc"
