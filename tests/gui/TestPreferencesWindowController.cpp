#include "PreferencesWindow.h"
#include "PreferencesWindowController.h"
#include "SettingsStore.h"

#include <QAbstractButton>
#include <QAction>
#include <QApplication>
#include <QButtonGroup>
#include <QFontMetricsF>
#include <QLabel>
#include <QSignalSpy>
#include <QStyle>
#include <QTemporaryDir>
#include <QTest>
#include <QToolBar>

#include <QtMath>

namespace {

// A pane whose view has a fixed content size.
class DummyPane : public PreferencesWindowControllerProtocol
{
public:
    DummyPane(const QString &identifier, const QString &title, const QSize &size, const QString &toolTip)
        : m_identifier(identifier), m_title(title), m_toolTip(toolTip), m_view(new QLabel(title))
    {
        m_view->resize(size);
    }

    QWidget *preferenceView() override { return m_view.get(); }
    QString preferenceIdentifier() const override { return m_identifier; }
    QString preferenceTitle() const override { return m_title; }
    QIcon preferenceIcon() const override { return QApplication::style()->standardIcon(QStyle::SP_ComputerIcon); }
    bool hasPreferenceToolTip() const override { return !m_toolTip.isEmpty(); }
    QString preferenceToolTip() const override { return m_toolTip; }

private:
    QString m_identifier, m_title, m_toolTip;
    std::unique_ptr<QWidget> m_view;
};

PreferencesPane pane(const QString &identifier, const QString &title, const QSize &size = QSize(420, 200),
                     const QString &toolTip = QString())
{
    return std::make_shared<DummyPane>(identifier, title, size, toolTip);
}

QStringList toolbarItemNames(const QToolBar *toolbar)
{
    QStringList names;
    const auto items = toolbar->actions();
    for (const QAction *item : items)
        names << item->objectName();
    return names;
}

const QString flex = PreferencesWindowController::flexibleSpaceIdentifier();

} // namespace

class TestPreferencesWindowController : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void startsWithTheDefaults();
    void singlePaneShowsNoToolbarUnlessAsked();
    void toolbarItemsFollowThePanes();
    void segmentsAreAsWideAsTheWidestTitle();
    void settingTheSamePanesAgainAddsNone();
    void switchingPanesKeepsTheTopEdge_data();
    void switchingPanesKeepsTheTopEdge();
    void segmentClickSwitchesPanes();
    void escapeClosesAndReopeningShowsTheFirstPane();
    void frameComesBackInANewController();
    void unusableSavedFramesAreIgnored();

private:
    QTemporaryDir *m_dir = nullptr;
    QString settingsFile() const { return m_dir->filePath(QStringLiteral("settings.json")); }
};

void TestPreferencesWindowController::init()
{
    m_dir = new QTemporaryDir;
    QVERIFY(m_dir->isValid());
    SettingsStore::standard().useFile(settingsFile());
}

void TestPreferencesWindowController::cleanup()
{
    SettingsStore::standard().useMemory();
    delete m_dir;
    m_dir = nullptr;
}

void TestPreferencesWindowController::startsWithTheDefaults()
{
    PreferencesWindowController controller;
    QVERIFY(!controller.toolbar());
    QVERIFY(controller.centerToolbarItems());
    QVERIFY(controller.toolbarDefaultItemIdentifiers().isEmpty());
    QCOMPARE(controller.maxSegmentSizeForCurrentViewControllers(), QSizeF(42.0, 0.0));

    // The window starts with a 420 x 230 content area in the middle of the screen.
    const QRect frame = controller.window()->geometry();
    QCOMPARE(frame.size(), QSize(420, 230));
    const QRect screen = QGuiApplication::primaryScreen()->availableGeometry();
    QVERIFY(qAbs(frame.center().x() - screen.center().x()) <= 1);
    QVERIFY(qAbs(frame.center().y() - screen.center().y()) <= 1);

    // The transparent title bar reaches the window only.
    controller.setTitlebarAppearsTransparent(true);
    QVERIFY(controller.window()->titlebarAppearsTransparent());
    QVERIFY(!controller.titlebarAppearsTransparent());
}

void TestPreferencesWindowController::singlePaneShowsNoToolbarUnlessAsked()
{
    {
        PreferencesWindowController controller;
        const PreferencesPane general = pane(QStringLiteral("GeneralPreferencesIdentifier"), QStringLiteral("General"),
                                             QSize(480, 260));
        controller.setPreferencesViewControllers({general});
        // Turning the flag on afterwards only stores it: still no toolbar.
        controller.setShowToolbarWithSingleViewController(true);
        QVERIFY(!controller.toolbar());
        controller.setShowToolbarWithSingleViewController(false);

        controller.showPreferencesWindow();
        QVERIFY(controller.window()->isVisible());
        QCOMPARE(controller.window()->windowOpacity(), 1.0);
        QCOMPARE(controller.activeViewController(), general);
        QCOMPARE(controller.window()->windowTitle(), QStringLiteral("General"));
        // The window holds exactly the pane's content.
        QCOMPARE(controller.window()->geometry().size(), QSize(480, 260));
        QCOMPARE(controller.window()->centralWidget()->size(), QSize(480, 260));
        QCOMPARE(general->preferenceView()->geometry(), QRect(0, 0, 480, 260));
    }
    {
        PreferencesWindowController controller;
        controller.setShowToolbarWithSingleViewController(true);
        const PreferencesPane general = pane(QStringLiteral("general"), QStringLiteral("General"));
        controller.setPreferencesViewControllers({general});
        QVERIFY(controller.toolbar());
        QCOMPARE(controller.toolbar()->objectName(), QStringLiteral("PreferencesMainToolbar"));
        const QStringList expected = {flex, QStringLiteral("general"), flex};
        QCOMPARE(controller.toolbarDefaultItemIdentifiers(), expected);
        QCOMPARE(toolbarItemNames(controller.toolbar()), expected);

        controller.showPreferencesWindow();
        QVERIFY(controller.toolbarItem(QStringLiteral("general"))->isChecked());
        // The toolbar sits above the content, which still gets its full size.
        QCOMPARE(controller.window()->centralWidget()->size(), QSize(420, 200));
        QCOMPARE(controller.window()->geometry().height(), 200 + controller.toolbar()->height());
    }
}

void TestPreferencesWindowController::toolbarItemsFollowThePanes()
{
    PreferencesWindowController controller;
    const PreferencesPane general = pane(QStringLiteral("general"), QStringLiteral("General"));
    const PreferencesPane advanced = pane(QStringLiteral("advanced"), QStringLiteral("Advanced"), QSize(420, 200),
                                          QStringLiteral("Settings for experts"));
    controller.setPreferencesViewControllers({general, advanced});

    QStringList expected = {flex, QStringLiteral("general"), QStringLiteral("advanced"), flex};
    QCOMPARE(controller.toolbarDefaultItemIdentifiers(), expected);
    QCOMPARE(controller.toolbarAllowedItemIdentifiers(), expected);
    QCOMPARE(controller.toolbarSelectableItemIdentifiers(), expected);
    QCOMPARE(toolbarItemNames(controller.toolbar()), expected);

    QAction *advancedItem = controller.toolbarItem(QStringLiteral("advanced"));
    QCOMPARE(advancedItem->text(), QStringLiteral("Advanced"));
    QCOMPARE(advancedItem->toolTip(), QStringLiteral("Settings for experts"));
    QVERIFY(!advancedItem->icon().isNull());
    QVERIFY(advancedItem->isCheckable());

    // Setting the same value again changes nothing; a new value rebuilds.
    QToolBar *before = controller.toolbar();
    controller.setCenterToolbarItems(true);
    QCOMPARE(controller.toolbar(), before);
    controller.setCenterToolbarItems(false);
    expected = QStringList{QStringLiteral("general"), QStringLiteral("advanced")};
    QCOMPARE(controller.toolbarDefaultItemIdentifiers(), expected);
    QCOMPARE(toolbarItemNames(controller.toolbar()), expected);
    QCOMPARE(controller.window()->findChildren<QToolBar *>().size(), 1);

    // Without centring, the first entry is the one selected on showing.
    controller.showPreferencesWindow();
    QVERIFY(controller.toolbarItem(QStringLiteral("general"))->isChecked());
    QVERIFY(!controller.toolbarItem(QStringLiteral("advanced"))->isChecked());
    QCOMPARE(controller.window()->windowTitle(), QStringLiteral("General"));

    // Segmented mode puts the control between two flexible spaces and centres again.
    controller.setShowToolbarItemsAsSegmentedControl(true);
    QVERIFY(controller.centerToolbarItems());
    expected = QStringList{flex, QStringLiteral("PreferencesToolbarSegmentedControl"), flex};
    QCOMPARE(controller.toolbarDefaultItemIdentifiers(), expected);
    QCOMPARE(toolbarItemNames(controller.toolbar()), expected);
    QCOMPARE(controller.segmentedControl()->objectName(), QStringLiteral("PreferencesToolbarSegmentedControl"));
}

void TestPreferencesWindowController::segmentsAreAsWideAsTheWidestTitle()
{
    PreferencesWindowController controller;
    // The second title is a little wider than the first, but not by the margin:
    // the first one's width is kept.
    const QString first = QStringLiteral("Network");
    const QString second = QStringLiteral("Networks");
    const QFontMetricsF metrics(QApplication::font());
    QVERIFY(metrics.horizontalAdvance(second) > metrics.horizontalAdvance(first));
    QVERIFY(metrics.horizontalAdvance(second) < qCeil(metrics.horizontalAdvance(first)) + 36.0);
    const int width = qCeil(metrics.horizontalAdvance(first)) + 36;
    const int height = qCeil(metrics.height()) + 12;

    controller.setPreferencesViewControllers({pane(QStringLiteral("one"), first), pane(QStringLiteral("two"), second)});
    QCOMPARE(controller.maxSegmentSizeForCurrentViewControllers(), QSizeF(width, height));

    controller.setShowToolbarItemsAsSegmentedControl(true);
    QWidget *control = controller.segmentedControl();
    QVERIFY(control);
    QCOMPARE(control->size(), QSize(2 * width + 3, height));
    const auto buttons = controller.segmentedControlButtons()->buttons();
    QCOMPARE(buttons.size(), 2);
    for (int tag = 0; tag < 2; ++tag) {
        QAbstractButton *segment = controller.segmentedControlButtons()->button(tag);
        QCOMPARE(segment->width(), width);
        QCOMPARE(segment->text(), tag == 0 ? first : second);
    }

    // A title that beats the margin wins, and sets the height with it.
    const QString wide = QStringLiteral("A much longer pane title");
    controller.setPreferencesViewControllers({pane(QStringLiteral("three"), wide)});
    QCOMPARE(controller.maxSegmentSizeForCurrentViewControllers(),
             QSizeF(qCeil(metrics.horizontalAdvance(wide)) + 36, height));
    QCOMPARE(controller.segmentedControl()->width(), 3 * (qCeil(metrics.horizontalAdvance(wide)) + 36) + 4);

    controller.showPreferencesWindow();
    QVERIFY(controller.segmentedControlButtons()->button(0)->isChecked());
    QCOMPARE(controller.window()->windowTitle(), QStringLiteral("Preferences"));
}

void TestPreferencesWindowController::settingTheSamePanesAgainAddsNone()
{
    PreferencesWindowController controller;
    const PreferencesPane a = pane(QStringLiteral("a"), QStringLiteral("A"));
    const PreferencesPane b = pane(QStringLiteral("b"), QStringLiteral("B"));
    const PreferencesPane c = pane(QStringLiteral("c"), QStringLiteral("C"));
    controller.setPreferencesViewControllers({a, b});
    QToolBar *first = controller.toolbar();
    controller.setPreferencesViewControllers({a, b, a});
    QCOMPARE(controller.viewControllers(), (QVector<PreferencesPane>{a, b}));
    QVERIFY(controller.toolbar() != first);

    // Panes already held stay; new ones go after them.
    controller.setPreferencesViewControllers({c, b});
    QCOMPARE(controller.viewControllers(), (QVector<PreferencesPane>{a, b, c}));
    QCOMPARE(toolbarItemNames(controller.toolbar()), (QStringList{flex, "a", "b", "c", flex}));

    // Adding one pane does not rebuild: the toolbar and its cached list stay as they were.
    const PreferencesPane d = pane(QStringLiteral("d"), QStringLiteral("D"));
    controller.addPreferencesViewController(d);
    QCOMPARE(controller.viewControllers().size(), 4);
    QCOMPARE(controller.toolbarDefaultItemIdentifiers(), (QStringList{flex, "a", "b", "c", flex}));
    QCOMPARE(toolbarItemNames(controller.toolbar()), (QStringList{flex, "a", "b", "c", flex}));

    QCOMPARE(controller.viewControllerWithIdentifier(QStringLiteral("d")), d);
    QVERIFY(!controller.viewControllerWithIdentifier(QStringLiteral("D")));
}

void TestPreferencesWindowController::switchingPanesKeepsTheTopEdge_data()
{
    QTest::addColumn<bool>("centred");
    QTest::newRow("centred items") << true;
    QTest::newRow("items from the left") << false;
}

void TestPreferencesWindowController::switchingPanesKeepsTheTopEdge()
{
    QFETCH(bool, centred);
    PreferencesWindowController controller;
    controller.setCenterToolbarItems(centred);
    const PreferencesPane small = pane(QStringLiteral("small"), QStringLiteral("Small"), QSize(400, 180));
    const PreferencesPane tall = pane(QStringLiteral("tall"), QStringLiteral("Tall"), QSize(500, 340));
    controller.setPreferencesViewControllers({small, tall});
    controller.showPreferencesWindow();
    QCOMPARE(controller.activeViewController(), small);
    const QRect before = controller.window()->geometry();
    const int toolbarHeight = controller.toolbar()->height();
    QCOMPARE(before.size(), QSize(400, 180 + toolbarHeight));

    QSignalSpy changed(&controller, &PreferencesWindowController::activeViewControllerChanged);
    controller.toolbarItem(QStringLiteral("tall"))->trigger();
    QVERIFY(controller.isAnimating());
    // The pane becomes the active one only when the animation is over.
    QCOMPARE(controller.activeViewController(), small);
    QCOMPARE(controller.window()->contentView(), tall->preferenceView());
    QTRY_COMPARE(changed.count(), 1);
    QCOMPARE(controller.activeViewController(), tall);
    QCOMPARE(controller.window()->windowTitle(), QStringLiteral("Tall"));

    const QRect after = controller.window()->geometry();
    QCOMPARE(after.top(), before.top());
    QCOMPARE(after.size(), QSize(500, 340 + toolbarHeight));
    QCOMPARE(after.left(), before.left() + (centred ? (400 - 500) / 2 : 0));
    QCOMPARE(tall->preferenceView()->geometry(), QRect(0, 0, 500, 340));
    QVERIFY(!tall->preferenceView()->graphicsEffect());
    QVERIFY(small->preferenceView()->isHidden());

    // Clicking the shown pane again does nothing.
    controller.toolbarItem(QStringLiteral("tall"))->trigger();
    QVERIFY(!controller.isAnimating());

    // And back, ended at once: the smaller pane shrinks the window upwards.
    controller.toolbarItem(QStringLiteral("small"))->trigger();
    controller.finishAnimation();
    QCOMPARE(controller.activeViewController(), small);
    QCOMPARE(controller.window()->geometry().top(), before.top());
    QCOMPARE(controller.window()->geometry().size(), before.size());
    QCOMPARE(changed.count(), 2);
}

void TestPreferencesWindowController::segmentClickSwitchesPanes()
{
    PreferencesWindowController controller;
    controller.setShowToolbarItemsAsSegmentedControl(true);
    const PreferencesPane one = pane(QStringLiteral("one"), QStringLiteral("One"), QSize(440, 200));
    const PreferencesPane two = pane(QStringLiteral("two"), QStringLiteral("Two"), QSize(360, 300));
    controller.setPreferencesViewControllers({one, two});
    controller.showPreferencesWindow();
    const QRect before = controller.window()->geometry();

    // Titles narrower than the minimum keep the minimum width and a usable height.
    QCOMPARE(controller.maxSegmentSizeForCurrentViewControllers(), QSizeF(42.0, 0.0));
    QCOMPARE(controller.segmentedControl()->width(), 2 * 42 + 3);
    QVERIFY(controller.segmentedControl()->height() > 12);

    QAbstractButton *second = controller.segmentedControlButtons()->button(1);
    QTest::mouseClick(second, Qt::LeftButton);
    QVERIFY(second->isChecked());
    QVERIFY(controller.isAnimating());
    controller.finishAnimation();
    QCOMPARE(controller.activeViewController(), two);
    QCOMPARE(controller.window()->windowTitle(), QStringLiteral("Preferences"));
    const QRect after = controller.window()->geometry();
    QCOMPARE(after.top(), before.top());
    QCOMPARE(after.left(), before.left() + (440 - 360) / 2);
    QCOMPARE(controller.window()->centralWidget()->size(), QSize(360, 300));

    // The selected segment again: no switch.
    QTest::mouseClick(second, Qt::LeftButton);
    QVERIFY(!controller.isAnimating());
}

void TestPreferencesWindowController::escapeClosesAndReopeningShowsTheFirstPane()
{
    PreferencesWindowController controller;
    const PreferencesPane a = pane(QStringLiteral("a"), QStringLiteral("A"));
    const PreferencesPane b = pane(QStringLiteral("b"), QStringLiteral("B"), QSize(420, 300));
    controller.setPreferencesViewControllers({a, b});
    controller.showPreferencesWindow();
    controller.toolbarItem(QStringLiteral("b"))->trigger();
    controller.finishAnimation();
    QCOMPARE(controller.activeViewController(), b);

    PreferencesWindow *window = controller.window();
    QTest::keyClick(window, Qt::Key_A);
    QTest::keyClick(window, Qt::Key_Return);
    QVERIFY(window->isVisible());
    QTest::keyClick(window, Qt::Key_Escape);
    QVERIFY(!window->isVisible());

    controller.showPreferencesWindow();
    QVERIFY(window->isVisible());
    QCOMPARE(controller.activeViewController(), a);
    QVERIFY(controller.toolbarItem(QStringLiteral("a"))->isChecked());
    QCOMPARE(window->centralWidget()->size(), QSize(420, 200));

    controller.dismissPreferencesWindow();
    QVERIFY(!window->isVisible());
    // The panes keep their views when the window closes.
    QVERIFY(a->preferenceView() && b->preferenceView());
}

void TestPreferencesWindowController::frameComesBackInANewController()
{
    const QString key = QStringLiteral("PreferencesWindowFrameAutoSaveName");
    QVERIFY(!SettingsStore::standard().contains(key));
    QRect moved;
    {
        PreferencesWindowController controller;
        controller.setPreferencesViewControllers({pane(QStringLiteral("a"), QStringLiteral("A"), QSize(380, 210))});
        controller.showPreferencesWindow();
        controller.window()->move(37, 51);
        moved = controller.window()->geometry();
        QCOMPARE(moved.size(), QSize(380, 210));
        // Written by the time the window is closed.
        controller.dismissPreferencesWindow();
        QCOMPARE(SettingsStore::standard().string(key, QString()),
                 QStringLiteral("%1 %2 380 210").arg(moved.x()).arg(moved.y()));
    }

    // Read back from the file, as the next run of the program would.
    SettingsStore::standard().useFile(settingsFile());
    PreferencesWindowController next;
    QCOMPARE(next.window()->geometry(), moved);
    next.setPreferencesViewControllers({pane(QStringLiteral("a"), QStringLiteral("A"), QSize(380, 210))});
    next.showPreferencesWindow();
    QCOMPARE(next.window()->geometry(), moved);
}

void TestPreferencesWindowController::unusableSavedFramesAreIgnored()
{
    const QString key = QStringLiteral("PreferencesWindowFrameAutoSaveName");
    const QStringList frames = {QStringLiteral("PreferencesWindowFrameAutoSaveName"), QStringLiteral("10 20 abc 40"),
                                QStringLiteral("10 20 0 40"), QStringLiteral("90000 90000 300 200")};
    for (const QString &frame : frames) {
        SettingsStore::standard().setObject(key, frame);
        PreferencesWindowController controller;
        QCOMPARE(controller.window()->geometry().size(), QSize(420, 230));
        const QRect screen = QGuiApplication::primaryScreen()->availableGeometry();
        QVERIFY2(qAbs(controller.window()->geometry().center().x() - screen.center().x()) <= 1, qPrintable(frame));
    }
}

QTEST_MAIN(TestPreferencesWindowController)
#include "TestPreferencesWindowController.moc"
