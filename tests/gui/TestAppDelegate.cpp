#include "core/ConversionEvents.h"
#include "core/Converter.h"
#include "core/NotificationCenter.h"
#include "gui/AppDelegate.h"
#include "gui/BuildConfig.h"
#include "gui/SingleInstance.h"
#include "gui/SoftwareUpdater.h"
#include "gui/TrayIcon.h"
#include "support/PackageFactory.h"
#include "support/Program.h"
#include "support/Tree.h"
#include "support/gui/BatchFixture.h"
#include "widgets/PanelButton.h"
#include "widgets/PreferencesWindow.h"
#include "widgets/PreferencesWindowController.h"

#include <QtTest>
#include <QtWidgets>

using namespace Qt::StringLiterals;
using Item = MainWindow::MenuItem;
using Panel = MainWindow::Panel;
namespace Key = SettingKey;

// The application as a whole: start-up, the main window's panels, closing and
// reopening, the menus, drops, and a second start handing over its packages.
class TestAppDelegate : public QObject
{
    Q_OBJECT

    BatchFixture f;
    std::unique_ptr<AppDelegate> m_app;
    QStringList m_finished; // the names of the files converted, in order

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
    template <typename Event>
    static bool send(QWidget *window, const QList<QUrl> &urls)
    {
        QMimeData data;
        data.setUrls(urls);
        Event event(QPoint(200, 150), Qt::CopyAction | Qt::MoveAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(window, &event);
        return event.isAccepted() && event.dropAction() == Qt::CopyAction;
    }

private Q_SLOTS:
    // Automatic update checks go nowhere: nothing listens on the discard port.
    void initTestCase() { qputenv("DECKWRIGHT_APPCAST_URL", "http://127.0.0.1:9/appcast.xml"); }
    void init()
    {
        f.reset({{Key::playSound, "false"}});
        m_finished.clear();
        NotificationCenter::defaultCenter().addObserver(
            this, ConversionEvents::finished,
            [this](const Notification &n) { m_finished.append(n.object->outputPrezName()); });
    }
    void cleanup()
    {
        NotificationCenter::defaultCenter().removeObserver(this);
        m_app.reset();
    }

    void launchPushesTheUpdateSettings_data()
    {
        QTest::addColumn<QVariantMap>("stored");
        QTest::addColumn<double>("interval");
        QTest::addColumn<bool>("automatic");
        QTest::newRow("empty store") << QVariantMap() << 86400.0 << true;
        QTest::newRow("checks off") << QVariantMap{{Key::checkUpdates, "false"}} << 86400.0 << false;
        QTest::newRow("capital TRUE") << QVariantMap{{Key::checkUpdates, "TRUE"}} << 86400.0 << false;
        QTest::newRow("a number") << QVariantMap{{Key::checkUpdates, qint64(1)}} << 86400.0 << false;
        QTest::newRow("a week") << QVariantMap{{Key::updateInterval, qint64(604800)}, {Key::checkUpdates, "true"}}
                                << 604800.0 << true;
    }

    void launchPushesTheUpdateSettings()
    {
        QFETCH(QVariantMap, stored);
        SettingsStore::standard().useMemory(stored);
        if (!launch().updater())
            QSKIP("this build has no update checks");
        QTEST(m_app->updater()->updateCheckInterval(), "interval");
        QTEST(m_app->updater()->automaticallyChecksForUpdates(), "automatic");
    }

    void theMainWindowIsBuiltAndBordersThePanelUnderThePointer()
    {
        // Without the SVG image plugin the icon is empty, and every secondary window shows a generic icon.
        QVERIFY(!AppDelegate::applicationIcon().pixmap(48).isNull());
        MainWindow *window = launch(true).window();
        QVERIFY(!window->findChild<QLabel *>(u"backgroundImage"_s)->pixmap().isNull());
        const QList<PanelButton *> panels{window->panel(Panel::Preferences), window->panel(Panel::Open),
                                          window->panel(Panel::MoreInfo)};
        // Each panel: a header, a text and a picture, the Open panel's from the application's own.
        for (PanelButton *panel : panels)
            QVERIFY(!child(panel, 0)->text().isEmpty() && !child(panel, 1)->text().isEmpty()
                    && !child(panel, 2)->pixmap().isNull());
        // Any other name shows the information image.
        std::unique_ptr<QLabel> other(MainWindow::makeImageFromPath(u"Elsewhere"_s));
        QCOMPARE(other->pixmap().toImage(), child(panels[2], 2)->pixmap().toImage());
        QVERIFY(other->pixmap().toImage() != child(panels[1], 2)->pixmap().toImage());

        const auto borders = [&] {
            return QList<bool>{panels[0]->isBordered(), panels[1]->isBordered(), panels[2]->isBordered()};
        };
        const QPointF inside(20, 20);
        QEnterEvent enter(inside, panels[1]->mapTo(window, inside), panels[1]->mapToGlobal(inside));
        QApplication::sendEvent(panels[1], &enter);
        QCOMPARE(borders(), QList<bool>({false, true, false}));
        // An exit from any panel clears every border.
        panels[0]->setBordered(true);
        QEvent leave(QEvent::Leave);
        QApplication::sendEvent(panels[2], &leave);
        QCOMPARE(borders(), QList<bool>({false, false, false}));
    }

    void panelsMenusAndTheTrayReachTheirActionsAndClosingHides()
    {
        SettingsStore::standard().useMemory({});
        TrayIcon::setAvailability(false); // as offscreen, whatever this desktop has; its menu is there all the same
        AppDelegate &delegate = launch(true);
        MainWindow *window = delegate.window();
        QTest::mouseClick(window->panel(Panel::MoreInfo), Qt::LeftButton, {}, QPoint(200, 26));
        window->menuItem(Item::Support)->trigger();
        window->menuItem(Item::Website)->trigger();
        const QString support = u"openUrl(\"%1\")"_s.arg(QString::fromUtf8(BuildConfig::supportUrl));
        QCOMPARE(f.desktop.calls,
                 QStringList({support, support, u"openUrl(\"%1\")"_s.arg(QString::fromUtf8(BuildConfig::websiteUrl))}));

        // The preferences panel, even clicked on its header text, opens the preferences.
        QTest::mouseClick(child(window->panel(Panel::Preferences), 0), Qt::LeftButton, {}, QPoint(10, 8));
        QWidget *preferences = delegate.prefs()->window();
        QTRY_VERIFY(preferences->isVisible());
        // Open reaches the open dialog: from the preferences window by its shortcut (under a
        // window manager only an application-wide shortcut reaches the menus from another
        // window), by a click, the menu, or Return on the focused panel; a cancel there asks
        // for no folder and writes nothing.
        preferences->activateWindow();
        QTRY_VERIFY(preferences->isActiveWindow());
        QTest::keyClick(preferences, Qt::Key_O, Qt::ControlModifier);
        QTRY_COMPARE(f.panels.size(), 1);
        delegate.prefs()->dismissPreferencesWindow();
        QTest::mouseClick(window->panel(Panel::Open), Qt::LeftButton, {}, QPoint(200, 26));
        window->menuItem(Item::Open)->trigger();
        QTest::keyClick(window->panel(Panel::Open), Qt::Key_Return);
        QTRY_COMPARE(f.panels.size(), 4);
        QVERIFY(std::all_of(f.panels.begin(), f.panels.end(), [](const OpenPanel &p) { return p.canChooseFiles(); }));
        QVERIFY(!SettingsStore::standard().contains(Key::errorPrezzes)
                && !SettingsStore::standard().contains(Key::prezPath));
        QVERIFY(f.alerts.isEmpty());

        // Closing hides the window, and reopening shows it.
        QAction *close = window->menuItem(Item::Close);
        QVERIFY(window->isVisible() && close->isEnabled());
        window->close();
        QVERIFY(!window->isVisible() && !close->isEnabled());
        QVERIFY(delegate.applicationShouldHandleReopen(false));
        QVERIFY(window->isVisible() && close->isEnabled());
        // The Close item hides the window without touching its own state.
        close->trigger();
        QVERIFY(!window->isVisible() && close->isEnabled());
        window->menuItem(Item::ShowMainWindow)->trigger();
        QVERIFY(window->isVisible());
        // The tray icon's menu leads back the same way.
        window->close();
        delegate.tray()->menu()->actions().at(0)->trigger(); // Show Deckwright
        QVERIFY(window->isVisible() && close->isEnabled() && !delegate.tray()->isShown());
        delegate.tray()->menu()->actions().at(1)->trigger(); // Open…
        QCOMPARE(f.panels.size(), 5);
        delegate.tray()->menu()->actions().at(2)->trigger(); // Preferences…
        QTRY_VERIFY(preferences->isVisible());
        // Without a tray, a notification said once ever how to come back, and its action does.
        window->close();
        f.desktop.notificationAction();
        QVERIFY(window->isVisible());
        launch(true).window()->close();
        QCOMPARE(f.desktop.calls.filter(u"notify(\"Deckwright is still running\""_s).size(), 1);
    }

    void aSecondStartHandsItsPackagesToTheFirst_data()
    {
        QTest::addColumn<QString>("planted"); // at the socket's name, $N, before either start
        QTest::newRow("nothing there") << QString();
        // Not ours: left alone, another name serves.
        QTest::newRow("a folder") << u"mkdir -p \"$N/inner\""_s;
        QTest::newRow("another user's file") << u"printf theirs > \"$N\"; [ $(id -u) != 0 ] || chown nobody \"$N\""_s;
        // Neither start can listen: the second one says why and ends.
        QTest::newRow("no folder for it") << u"cd ..; rmdir \"$OLDPWD\""_s;
    }

    void aSecondStartHandsItsPackagesToTheFirst()
    {
        QFETCH(QString, planted);
        AppDelegate &delegate = launch();
        const QString folder = f.work(QString::fromUtf8(QTest::currentDataTag())), name = folder + u"/instance.sock"_s;
        QVERIFY(QDir().mkpath(folder) && Program::sh(planted, folder, {{u"N"_s, name}}));
        const Tree theirs = Tree::of(name, Tree::WithTimes);
        const bool listens = !planted.contains(u"rmdir"_s);
        SingleInstance first(name);
        QVERIFY(!first.forwardToRunningInstance({}) && first.isListening() == listens);
        QObject::connect(&first, &SingleInstance::activated, &delegate, [&delegate](const QStringList &paths) {
            delegate.applicationShouldHandleReopen(delegate.window()->isVisible());
            delegate.openPackages(paths);
        });
        // One path relative to the second start's folder, one absolute, and a folder to search.
        const QString handed = f.work(u"Handed Over"_s);
        PackageFactory(handed + u"/Inner"_s).make(u"Found.key"_s);
        Program second(f.work(u"second"_s));
        second.env.insert(u"DECKWRIGHT_INSTANCE_NAME"_s, name);
        second.env.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
        second.workingFolder = f.in({});
        const auto process = second.start(Program::deckwright({u"My Talk.key"_s, f.in(u"Plain.key"_s), handed}));
        // The first one answers only while its event loop turns.
        QTRY_VERIFY_WITH_TIMEOUT(process->state() == QProcess::NotRunning, BatchFixture::patience);
        QCOMPARE(process->exitCode(), listens ? 0 : 1);
        QVERIFY(listens || process->readAllStandardError().startsWith("deckwright: there may be another Deckwright"));
        QTRY_COMPARE_WITH_TIMEOUT(f.outputs(),
                                  listens ? QStringList({"Found.key", "My Talk.key", "Plain.key"}) : QStringList(),
                                  BatchFixture::patience);
        QVERIFY(delegate.window()->isVisible() == listens && f.alerts.isEmpty());
        QVERIFY(planted.isEmpty() || Tree::of(name, Tree::WithTimes) == theirs);
    }

    // A drop converts what its folders hold, in order. A folder without
    // packages is told and holds nothing up; a request that arrives while a
    // file converts starts no nested batch but waits for it.
    void aDropShowsWhereItLandsAndRequestsAreTakenOneAtATime()
    {
        // A dropped folder's subfolders are kept below the output folder.
        SettingsStore::standard().setObject(Key::keepFolders, "true");
        AppDelegate &delegate = launch(true);
        MainWindow *window = delegate.window();
        const QColor highlight = window->palette().color(QPalette::Highlight);
        const auto edge = [w = window->centralWidget()] { return w->grab().toImage().pixelColor(1, w->height() / 2); };
        // Nothing on this disk: no highlight, and the drag is refused.
        QVERIFY(!send<QDragEnterEvent>(window, {QUrl(u"https://example.com/Web.key"_s)}));
        QVERIFY(!window->isShowingDropHighlight() && edge() != highlight);
        const QString folder = f.work(u"Dropped Decks"_s), empty = f.work(u"No Decks"_s);
        for (const QString &package : {u"Zeta.key"_s, u"Alpha.key"_s, u"More/Beta.key"_s})
            PackageFactory(folder).make(package);
        const QList<QUrl> urls{QUrl::fromLocalFile(f.in(u"Plain.key"_s)), QUrl(u"https://example.com/Web.key"_s),
                               QUrl::fromLocalFile(f.in(u"My Talk.key"_s)), QUrl::fromLocalFile(folder)};
        QVERIFY(send<QDragEnterEvent>(window, urls));
        QVERIFY(window->isShowingDropHighlight() && edge() == highlight);
        QDragLeaveEvent leave;
        QApplication::sendEvent(window, &leave);
        QVERIFY(!window->isShowingDropHighlight() && edge() != highlight);

        QVERIFY(QDir().mkpath(empty + u"/Inside"_s));
        delegate.openPackages({empty});
        QTRY_COMPARE(f.alerts.size(), 1);
        QCOMPARE(f.alerts.first().messageText(), u"No Keynote packages were found."_s);
        QVERIFY(!SettingsStore::standard().contains(Key::errorPrezzes));
        // After the observer that keeps the names.
        NotificationCenter::defaultCenter().addObserver(this, ConversionEvents::finished, [&](const Notification &) {
            if (m_finished.size() == 1) {
                QVERIFY(delegate.isConverting());
                delegate.openPackages({f.in(u"Three.v2.key"_s)});
            }
        });
        QVERIFY(send<QDragEnterEvent>(window, urls) && send<QDropEvent>(window, urls));
        QVERIFY(!window->isShowingDropHighlight());
        QTRY_COMPARE_WITH_TIMEOUT(
            m_finished, QStringList({"Plain.key", "My Talk.key", "Alpha.key", "Beta.key", "Zeta.key", "Three.v2.key"}),
            BatchFixture::patience);
        QCOMPARE(f.alerts.size(), 1);
        QVERIFY(QFileInfo(f.out + u"/More/Beta.key"_s).isFile() && !f.outputs().contains(u"Beta.key"_s));
    }
};

QTEST_MAIN(TestAppDelegate)
#include "TestAppDelegate.moc"
