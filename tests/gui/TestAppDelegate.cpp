#include "core/ConversionEvents.h"
#include "core/Converter.h"
#include "core/NotificationCenter.h"
#include "core/SettingsStore.h"
#include "gui/AppDelegate.h"
#include "gui/BuildConfig.h"
#include "gui/SingleInstance.h"
#include "gui/SoftwareUpdater.h"
#include "gui/TrayIcon.h"
#include "support/PackageFactory.h"
#include "support/Program.h"
#include "support/gui/BatchFixture.h"
#include "widgets/PanelButton.h"
#include "widgets/PreferencesWindow.h"
#include "widgets/PreferencesWindowController.h"

#include <QtTest>
#include <QtWidgets>

#include <functional>

using namespace Qt::StringLiterals;
using Item = MainWindow::MenuItem;
using Panel = MainWindow::Panel;

// The application as a whole: start-up, the main window's panels, closing and
// reopening, the menus, drops, and a second start handing over its packages.
class TestAppDelegate : public QObject
{
    Q_OBJECT

    BatchFixture f;
    std::unique_ptr<AppDelegate> m_app;
    QStringList m_finished; // the names of the files converted, in order
    std::function<void()> m_afterFinished;

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
    void init()
    {
        // Automatic update checks go nowhere: nothing listens on the discard port.
        qputenv("DECKWRIGHT_APPCAST_URL", "http://127.0.0.1:9/appcast.xml");
        f.reset({{SettingKey::playSound, "false"}});
        m_finished.clear();
        m_afterFinished = [] {};
        NotificationCenter::defaultCenter().addObserver(this, ConversionEvents::finished,
                                                        [this](const Notification &n) {
                                                            m_finished.append(n.object->outputPrezName());
                                                            m_afterFinished();
                                                        });
    }
    void cleanup()
    {
        NotificationCenter::defaultCenter().removeObserver(this);
        m_app.reset();
    }

    void theApplicationIconDraws()
    {
        // Without the SVG image plugin it is empty, and every secondary window shows a generic icon.
        QVERIFY(!AppDelegate::applicationIcon().pixmap(48).isNull());
    }

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

    void launchBuildsTheMainWindow()
    {
        MainWindow *window = launch().window();
        QVERIFY(!window->findChild<QLabel *>(u"backgroundImage"_s)->pixmap().isNull());
        // Each panel: a header, a text and a picture, the Open panel's from the application's own.
        for (Panel panel : {Panel::Preferences, Panel::Open, Panel::MoreInfo})
            QVERIFY(!child(window->panel(panel), 0)->text().isEmpty()
                    && !child(window->panel(panel), 1)->text().isEmpty()
                    && !child(window->panel(panel), 2)->pixmap().isNull());
        // Any other name shows the information image.
        std::unique_ptr<QLabel> other(MainWindow::makeImageFromPath(u"Elsewhere"_s));
        QCOMPARE(other->pixmap().toImage(), child(window->panel(Panel::MoreInfo), 2)->pixmap().toImage());
        QVERIFY(other->pixmap().toImage() != child(window->panel(Panel::Open), 2)->pixmap().toImage());
    }

    void hoverBordersThePanelUnderThePointer()
    {
        MainWindow *window = launch(true).window();
        const auto borders = [window] {
            QList<bool> bordered;
            for (Panel panel : {Panel::Preferences, Panel::Open, Panel::MoreInfo})
                bordered.append(window->panel(panel)->isBordered());
            return bordered;
        };
        PanelButton *open = window->panel(Panel::Open);
        const QPointF inside(20, 20);
        QEnterEvent enter(inside, open->mapTo(window, inside), open->mapToGlobal(inside));
        QApplication::sendEvent(open, &enter);
        QCOMPARE(borders(), QList<bool>({false, true, false}));
        // An exit from any panel clears every border.
        window->panel(Panel::Preferences)->setBordered(true);
        QEvent leave(QEvent::Leave);
        QApplication::sendEvent(window->panel(Panel::MoreInfo), &leave);
        QCOMPARE(borders(), QList<bool>({false, false, false}));
    }

    void panelsAndMenusReachTheirActions()
    {
        SettingsStore::standard().useMemory({});
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
        for (const OpenPanel &panel : f.panels)
            QVERIFY(panel.canChooseFiles());
        QVERIFY(!SettingsStore::standard().contains(SettingKey::errorPrezzes));
        QVERIFY(!SettingsStore::standard().contains(SettingKey::prezPath));
        QVERIFY(f.alerts.isEmpty());
    }

    void closingHidesAndReopeningShows()
    {
        AppDelegate &delegate = launch(true);
        MainWindow *window = delegate.window();
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
        const QString name = f.work(u"instance.sock"_s);
        SingleInstance first(name);
        QVERIFY(!first.forwardToRunningInstance({}));
        QVERIFY(first.isListening());
        QObject::connect(&first, &SingleInstance::activated, &delegate, [&delegate](const QStringList &paths) {
            delegate.applicationShouldHandleReopen(delegate.window()->isVisible());
            delegate.openPackages(paths);
        });
        // One path relative to the second start's folder, one absolute, and a folder to search.
        const QString folder = f.work(u"Handed Over"_s);
        PackageFactory(folder + u"/Inner"_s).make(u"Found.key"_s);
        Program second(f.work(u"second"_s));
        second.env.insert(u"DECKWRIGHT_INSTANCE_NAME"_s, name);
        second.env.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
        second.workingFolder = f.in(QString());
        const auto process = second.start(Program::deckwright({u"My Talk.key"_s, f.in(u"Plain.key"_s), folder}));
        // The first one answers only while its event loop turns.
        QTRY_VERIFY_WITH_TIMEOUT(process->state() == QProcess::NotRunning, BatchFixture::patience);
        QCOMPARE(process->exitCode(), 0);
        QTRY_COMPARE_WITH_TIMEOUT(f.outputs(), QStringList({"Found.key", "My Talk.key", "Plain.key"}),
                                  BatchFixture::patience);
        QVERIFY(delegate.window()->isVisible());
        QVERIFY(f.alerts.isEmpty());
    }

    void aDropShowsWhereItLandsAndConvertsWhatItsFoldersHold()
    {
        MainWindow *window = launch(true).window();
        QWidget *contents = window->centralWidget();
        const QColor highlight = window->palette().color(QPalette::Highlight);
        const auto edge = [contents] { return contents->grab().toImage().pixelColor(1, contents->height() / 2); };
        // Nothing on this disk: no highlight, and the drag is refused.
        QVERIFY(!send<QDragEnterEvent>(window, {QUrl(u"https://example.com/Web.key"_s)}));
        QVERIFY(!window->isShowingDropHighlight() && edge() != highlight);
        const QString folder = f.work(u"Dropped Decks"_s);
        PackageFactory(folder).make(u"Zeta.key"_s);
        PackageFactory(folder).make(u"Alpha.key"_s);
        PackageFactory(folder + u"/More"_s).make(u"Beta.key"_s);
        const QList<QUrl> urls{QUrl::fromLocalFile(f.in(u"Plain.key"_s)), QUrl(u"https://example.com/Web.key"_s),
                               QUrl::fromLocalFile(f.in(u"My Talk.key"_s)), QUrl::fromLocalFile(folder)};
        QVERIFY(send<QDragEnterEvent>(window, urls));
        QVERIFY(window->isShowingDropHighlight() && edge() == highlight);
        QDragLeaveEvent leave;
        QApplication::sendEvent(window, &leave);
        QVERIFY(!window->isShowingDropHighlight() && edge() != highlight);
        QVERIFY(send<QDragEnterEvent>(window, urls) && send<QDropEvent>(window, urls));
        QVERIFY(!window->isShowingDropHighlight());
        QTRY_COMPARE_WITH_TIMEOUT(m_finished,
                                  QStringList({"Plain.key", "My Talk.key", "Alpha.key", "Beta.key", "Zeta.key"}),
                                  BatchFixture::patience);
        QVERIFY(f.alerts.isEmpty());
    }

    // A folder without packages is told and holds nothing up; a request that
    // arrives while a file converts starts no nested batch but waits for it.
    void requestsAreTakenOneAtATime()
    {
        AppDelegate &delegate = launch();
        const QString empty = f.work(u"No Decks"_s);
        QVERIFY(QDir().mkpath(empty + u"/Inside"_s));
        delegate.openPackages({empty});
        QTRY_COMPARE(f.alerts.size(), 1);
        QCOMPARE(f.alerts.first().messageText(), u"No Keynote packages were found."_s);
        QVERIFY(!SettingsStore::standard().contains(SettingKey::errorPrezzes));
        m_afterFinished = [&] {
            if (m_finished.size() == 1) {
                QVERIFY(delegate.isConverting());
                delegate.openPackages({f.in(u"Three.v2.key"_s)});
            }
        };
        delegate.openPackages({f.in(u"Plain.key"_s)});
        QTRY_COMPARE_WITH_TIMEOUT(m_finished, QStringList({"Plain.key", "Three.v2.key"}), BatchFixture::patience);
    }
};

QTEST_MAIN(TestAppDelegate)
#include "TestAppDelegate.moc"
