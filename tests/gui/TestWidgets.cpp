#include "core/SettingsStore.h"
#include "support/PackageFactory.h"
#include "support/gui/RecordingDesktopServices.h"
#include "widgets/HyperlinkTextField.h"
#include "widgets/PackageFileDialog.h"
#include "widgets/PreferencesWindow.h"
#include "widgets/PreferencesWindowController.h"

#include <QtTest>
#include <QtWidgets>

using namespace Qt::StringLiterals;
using LinkRecord = HyperlinkTextField::LinkRecord;

namespace {
// A pane whose view has a fixed content size; its identifier is its title in lower case.
struct DummyPane : PreferencesWindowControllerProtocol
{
    QLabel view;
    QWidget *preferenceView() override { return &view; }
    QString preferenceIdentifier() const override { return view.text().toLower(); }
    QString preferenceTitle() const override { return view.text(); }
    QIcon preferenceIcon() const override { return QApplication::style()->standardIcon(QStyle::SP_ComputerIcon); }
};

PreferencesPane pane(const QString &title, const QSize &size = QSize(420, 200))
{
    auto pane = std::make_shared<DummyPane>();
    pane->view.setText(title);
    pane->view.resize(size);
    return pane;
}

// The toolbar's items by name, or "no toolbar" when there is none at all.
QStringList toolbarItemNames(const QToolBar *toolbar)
{
    QStringList names;
    for (const QAction *item : toolbar ? toolbar->actions() : QList<QAction *>())
        names << item->objectName();
    return toolbar ? names : QStringList{u"no toolbar"_s};
}

const QString flex = PreferencesWindowController::flexibleSpaceIdentifier();
} // namespace

// The reusable widgets: the preferences window and its panes, the text field
// whose links open, and the file dialog that takes packages as files.
class TestWidgets : public QObject
{
    Q_OBJECT

    RecordingDesktopServices desktop;

    // Where the label shows the middle of a record.
    static QPoint shownCentre(const HyperlinkTextField &field, const LinkRecord &record)
    {
        return record.rect.translated(field.layoutOrigin(*field.layoutDocument())).center().toPoint();
    }
    // Each link record as "linked text -> url".
    static QStringList records(const HyperlinkTextField &field)
    {
        QStringList records;
        for (const LinkRecord &record : field.hyperlinkInfos().value_or(QList<LinkRecord>()))
            records << field.layoutDocument()->toPlainText().mid(record.range.location, record.range.length) + " -> "
                           + record.url;
        return records;
    }

private Q_SLOTS:
    void init()
    {
        SettingsStore::standard().useMemory();
        desktop.calls.clear();
    }

    void toolbarItemsInOrder_data()
    {
        QTest::addColumn<int>("panes");
        QTest::addColumn<bool>("singlePaneToolbar");
        QTest::addColumn<bool>("centred");
        QTest::addColumn<QStringList>("items");
        QTest::newRow("one pane") << 1 << false << true << QStringList{"no toolbar"};
        QTest::newRow("one pane, toolbar asked for") << 1 << true << true << QStringList{flex, "general", flex};
        QTest::newRow("two panes, centred") << 2 << false << true << QStringList{flex, "general", "advanced", flex};
        QTest::newRow("two panes from the left") << 2 << false << false << QStringList{"general", "advanced"};
    }

    void toolbarItemsInOrder()
    {
        QFETCH(int, panes);
        QFETCH(bool, singlePaneToolbar);
        QFETCH(bool, centred);
        PreferencesWindowController controller;
        controller.setShowToolbarWithSingleViewController(singlePaneToolbar);
        controller.setCenterToolbarItems(centred);
        controller.setPreferencesViewControllers(
            QVector<PreferencesPane>{pane(u"General"_s), pane(u"Advanced"_s)}.mid(0, panes));
        controller.showPreferencesWindow();
        QCOMPARE(controller.window()->windowTitle(), u"General"_s);
        QTEST(toolbarItemNames(controller.toolbar()), "items");
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
        QCOMPARE(controller.window()->geometry(), before.adjusted(-50, 0, 50, 160));
        QCOMPARE(controller.window()->windowTitle(), u"Tall"_s);
    }

    void escapeClosesAndTheFrameComesBackInANewController_data()
    {
        QTest::addColumn<bool>("afterTheTimer");
        QTest::addColumn<QPoint>("movedTo");
        QTest::addColumn<QPoint>("shownAt"); // on the screen, moved no further than it must be
        const QPoint rightEdge(QGuiApplication::primaryScreen()->availableGeometry().right() + 1 - 380, 150);
        QTest::newRow("closed at once") << false << QPoint(37, 51) << QPoint(37, 51);
        // The timed save, not the one on closing, keeps it.
        QTest::newRow("closed after the timed save") << true << QPoint(37, 51) << QPoint(37, 51);
        // As a frame saved under a smaller scale factor comes back under a larger one.
        QTest::newRow("past the right edge") << false << rightEdge + QPoint(100, 0) << rightEdge;
    }

    void escapeClosesAndTheFrameComesBackInANewController()
    {
        QFETCH(bool, afterTheTimer);
        QFETCH(QPoint, movedTo);
        QFETCH(QPoint, shownAt);
        QTemporaryDir dir;
        SettingsStore::standard().useFile(dir.filePath(u"settings.json"_s));
        auto controller = std::make_unique<PreferencesWindowController>();
        controller->setPreferencesViewControllers({pane(u"A"_s, QSize(380, 210))});
        controller->showPreferencesWindow();
        controller->window()->setGeometry(QRect(movedTo, QSize(380, 210)));
        if (afterTheTimer)
            QTRY_VERIFY(SettingsStore::standard().contains(PreferencesWindow::frameAutosaveKey()));
        QTest::keyClick(controller->window(), Qt::Key_Return);
        QVERIFY(controller->window()->isVisible());
        QTest::keyClick(controller->window(), Qt::Key_Escape);
        QVERIFY(!controller->window()->isVisible());

        controller.reset(); // gone before the next run reads the file
        SettingsStore::standard().useFile(dir.filePath(u"settings.json"_s));
        controller = std::make_unique<PreferencesWindowController>();
        controller->setPreferencesViewControllers({pane(u"A"_s, QSize(380, 210))});
        controller->showPreferencesWindow();
        QCOMPARE(controller->window()->geometry(), QRect(shownAt, QSize(380, 210)));
    }

    void noLinkGivesNoRecordsAndOpensNothing_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("plain words") << "Just some words";
        QTest::newRow("named anchor, no target") << "<a name=\"here\">a place</a> to jump to";
    }
    void noLinkGivesNoRecordsAndOpensNothing()
    {
        QFETCH(QString, text);
        HyperlinkTextField field(text);
        field.resize(300, 40);
        field.show();
        QVERIFY(!field.hyperlinkInfos().has_value()); // none, not an empty list
        QTest::mouseClick(&field, Qt::LeftButton, {}, QPoint(20, 20));
        QVERIFY(desktop.calls.isEmpty());
    }

    void oneLinkPointsAndOpensOnlyFromTheLink()
    {
        HyperlinkTextField field("Visit <a href=\"https://example.org/docs?x=1&amp;y=2\">our site</a> today");
        field.resize(300, 40);
        field.show();
        QCOMPARE(records(field), QStringList{u"our site -> https://example.org/docs?x=1&y=2"_s});

        const QPoint link = shownCentre(field, field.hyperlinkInfos()->first());
        QTest::mouseMove(&field, link);
        QCOMPARE(field.cursor().shape(), Qt::PointingHandCursor);
        QTest::mouseMove(&field, link - QPoint(30, 0)); // on "Visit"
        QCOMPARE(field.cursor().shape(), Qt::ArrowCursor);
        QTest::mouseClick(&field, Qt::LeftButton, {}, link - QPoint(30, 0));
        QVERIFY(desktop.calls.isEmpty());
        QTest::mouseClick(&field, Qt::LeftButton, {}, link);
        QCOMPARE(desktop.calls, QStringList{"openUrl(\"https://example.org/docs?x=1&y=2\")"});
    }

    void wrappedLinkHasARecordPerLineAndOpensOncePerRecord()
    {
        HyperlinkTextField field("See <a href=\"https://example.org/w\">the long linked phrase</a>.");
        field.setWordWrap(true);
        field.setFixedWidth(120);
        field.adjustSize();
        field.show();
        const QStringList described = records(field);
        QVERIFY2(described.size() >= 2, "the link should wrap at this width");
        QCOMPARE(described, QStringList(described.size(), u"the long linked phrase -> https://example.org/w"_s));
        const QList<LinkRecord> infos = *field.hyperlinkInfos();
        QVERIFY(infos.at(1).rect.top() >= infos.at(0).rect.bottom());

        QTest::mouseClick(&field, Qt::LeftButton, {}, shownCentre(field, infos.at(1)));
        QCOMPARE(desktop.calls, QStringList(infos.size(), u"openUrl(\"https://example.org/w\")"_s));
    }

    // A folder typed into the name field and entered leaves no row of its own
    // selected out of sight: packages picked there are all taken, and the
    // default button keeps its label with packages selected.
    void severalPackagesAreTakenInAFolderReachedByItsTypedPath()
    {
        QTemporaryDir dir;
        const QString folder = dir.filePath(u"Talks"_s);
        const QStringList packages{PackageFactory(folder).make("A.key"), PackageFactory(folder).make("B.key")};
        PackageFileDialog dialog(PackageFileDialog::FilesAndPackages);
        dialog.setAcceptLabel("Convert");
        dialog.setDirectory(dir.path());
        dialog.show();
        QVERIFY(QTest::qWaitForWindowActive(&dialog));
        auto *name = dialog.findChild<QLineEdit *>("fileNameEdit");
        name->setFocus(); // where typing goes
        QTest::keyClicks(name, folder);
        QTest::keyClick(name, Qt::Key_Return);
        QTRY_COMPARE(dialog.directory().absolutePath(), folder);

        auto *files = dialog.findChild<QFileSystemModel *>();
        auto *view = dialog.findChild<QAbstractItemView *>(u"treeView"_s);
        QTRY_VERIFY(!view->visualRect(files->index(packages.at(1))).isEmpty());
        for (const QString &package : packages) // picked one by one, as several are picked
            QTest::mouseClick(view->viewport(), Qt::LeftButton, Qt::ControlModifier,
                              view->visualRect(files->index(package)).center());
        QPushButton *accept = dialog.findChild<QDialogButtonBox *>("buttonBox")->button(QDialogButtonBox::Open);
        QTRY_COMPARE(accept->text(), QStringLiteral("Convert"));
        accept->click();
        QCOMPARE(dialog.chosenPaths(), packages);
    }
};

QTEST_MAIN(TestWidgets)
#include "TestWidgets.moc"
