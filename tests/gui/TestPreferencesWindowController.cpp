#include "core/SettingsStore.h"
#include "widgets/PreferencesWindow.h"
#include "widgets/PreferencesWindowController.h"

#include <QtTest>
#include <QtWidgets>

using namespace Qt::StringLiterals;

namespace {
// A pane whose view has a fixed content size; its identifier is its title in lower case.
class DummyPane : public PreferencesWindowControllerProtocol
{
public:
    DummyPane(const QString &title, const QSize &size)
        : m_title(title)
        , m_view(new QLabel(title))
    {
        m_view->resize(size);
    }
    QWidget *preferenceView() override { return m_view.get(); }
    QString preferenceIdentifier() const override { return m_title.toLower(); }
    QString preferenceTitle() const override { return m_title; }
    QIcon preferenceIcon() const override { return QApplication::style()->standardIcon(QStyle::SP_ComputerIcon); }

private:
    QString m_title;
    std::unique_ptr<QWidget> m_view;
};

PreferencesPane pane(const QString &title, const QSize &size = QSize(420, 200))
{
    return std::make_shared<DummyPane>(title, size);
}

QStringList toolbarItemNames(const QToolBar *toolbar)
{
    QStringList names;
    for (const QAction *item : toolbar->actions())
        names << item->objectName();
    return names;
}

const QString flex = PreferencesWindowController::flexibleSpaceIdentifier();
} // namespace

class TestPreferencesWindowController : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { SettingsStore::standard().useMemory(); }

    void toolbarItemsInOrder_data()
    {
        QTest::addColumn<QStringList>("titles");
        QTest::addColumn<bool>("singlePaneToolbar");
        QTest::addColumn<bool>("centred");
        QTest::addColumn<QStringList>("items"); // empty: no toolbar at all
        const QStringList one{"General"}, two{"General", "Advanced"};
        QTest::newRow("one pane") << one << false << true << QStringList();
        QTest::newRow("one pane, toolbar asked for") << one << true << true << QStringList{flex, "general", flex};
        QTest::newRow("two panes, centred") << two << false << true << QStringList{flex, "general", "advanced", flex};
        QTest::newRow("two panes from the left") << two << false << false << QStringList{"general", "advanced"};
    }

    void toolbarItemsInOrder()
    {
        QFETCH(QStringList, titles);
        QFETCH(bool, singlePaneToolbar);
        QFETCH(bool, centred);
        QFETCH(QStringList, items);
        PreferencesWindowController controller;
        controller.setShowToolbarWithSingleViewController(singlePaneToolbar);
        controller.setCenterToolbarItems(centred);
        QVector<PreferencesPane> panes;
        for (const QString &title : titles)
            panes << pane(title);
        controller.setPreferencesViewControllers(panes);
        controller.showPreferencesWindow();
        QCOMPARE(controller.window()->windowTitle(), u"General"_s);
        QCOMPARE(bool(controller.toolbar()), !items.isEmpty());
        if (controller.toolbar())
            QCOMPARE(toolbarItemNames(controller.toolbar()), items);
    }

    void segmentsAreAllAsWideAsTheWidestTitle()
    {
        PreferencesWindowController controller;
        controller.setShowToolbarItemsAsSegmentedControl(true);
        controller.setPreferencesViewControllers({pane(u"One"_s), pane(u"A longer title"_s)});
        const QButtonGroup *segments = controller.segmentedControlButtons();
        QCOMPARE(segments->button(0)->width(), segments->button(1)->width());
        QVERIFY(segments->button(0)->width() > QFontMetrics(QApplication::font()).horizontalAdvance("A longer title"));
        QVERIFY(controller.segmentedControl()->width() >= 2 * segments->button(0)->width());
    }

    void settingThePanesAgainAddsOnlyNewOnes()
    {
        PreferencesWindowController controller;
        const PreferencesPane a = pane(u"A"_s), b = pane(u"B"_s), c = pane(u"C"_s);
        controller.setPreferencesViewControllers({a, b});
        controller.setPreferencesViewControllers({a, c, b, a});
        QCOMPARE(controller.viewControllers(), (QVector<PreferencesPane>{a, b, c}));
        QCOMPARE(toolbarItemNames(controller.toolbar()), (QStringList{flex, "a", "b", "c", flex}));
        QCOMPARE(controller.window()->findChildren<QToolBar *>().size(), 1);
    }

    void switchingToATallerPaneKeepsTheTopEdge()
    {
        PreferencesWindowController controller; // items centred: the window grows to both sides
        const PreferencesPane tall = pane(u"Tall"_s, QSize(500, 340));
        controller.setPreferencesViewControllers({pane(u"Small"_s, QSize(400, 180)), tall});
        controller.showPreferencesWindow();
        const QRect before = controller.window()->geometry();
        controller.toolbarItem("tall")->trigger();
        QTRY_COMPARE(controller.activeViewController(), tall);
        const QRect after = controller.window()->geometry();
        QCOMPARE(after.top(), before.top());
        QCOMPARE(after.left(), before.left() - 50);
        QCOMPARE(after.size(), before.size() + QSize(100, 160));
        QCOMPARE(controller.window()->windowTitle(), u"Tall"_s);
    }

    void escapeClosesAndTheFrameComesBackInANewController_data()
    {
        QTest::addColumn<bool>("afterTheTimer");
        QTest::newRow("closed at once") << false;
        // The timed save, not the one on closing, keeps it.
        QTest::newRow("closed after the timed save") << true;
    }

    void escapeClosesAndTheFrameComesBackInANewController()
    {
        QFETCH(bool, afterTheTimer);
        QTemporaryDir dir;
        SettingsStore::standard().useFile(dir.filePath(u"settings.json"_s));
        QRect moved;
        {
            PreferencesWindowController controller;
            controller.setPreferencesViewControllers({pane(u"A"_s, QSize(380, 210))});
            controller.showPreferencesWindow();
            controller.window()->move(37, 51);
            moved = controller.window()->geometry();
            if (afterTheTimer)
                QTRY_VERIFY(SettingsStore::standard().contains(PreferencesWindow::frameAutosaveKey()));
            QTest::keyClick(controller.window(), Qt::Key_Return);
            QVERIFY(controller.window()->isVisible());
            QTest::keyClick(controller.window(), Qt::Key_Escape);
            QVERIFY(!controller.window()->isVisible());
        }
        SettingsStore::standard().useFile(dir.filePath(u"settings.json"_s)); // read back, as the next run would
        PreferencesWindowController next;
        next.setPreferencesViewControllers({pane(u"A"_s, QSize(380, 210))});
        next.showPreferencesWindow();
        QCOMPARE(next.window()->geometry(), moved);
    }
};

QTEST_MAIN(TestPreferencesWindowController)
#include "TestPreferencesWindowController.moc"
