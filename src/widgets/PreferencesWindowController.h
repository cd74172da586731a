#pragma once

#include "widgets/PreferencesWindowControllerProtocol.h"

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QSizeF>
#include <QStringList>
#include <QVector>

#include <memory>
#include <optional>

class PreferencesWindow;
class QAction;
class QButtonGroup;
class QParallelAnimationGroup;
class QToolBar;
class QWidget;

// A general preferences window: one toolbar entry (or one segment of a
// segmented control) per pane, the window's content swapped when the user
// picks an entry, and the window resized to the pane with a short animation
// that keeps its top edge in place.
// Its names (the panes as view controllers, the toolbar item identifiers) are
// kept as they have always been written.
class PreferencesWindowController : public QObject
{
    Q_OBJECT

public:
    static QString mainToolbarIdentifier() { return QStringLiteral("PreferencesMainToolbar"); }
    static QString segmentedControlIdentifier() { return QStringLiteral("PreferencesToolbarSegmentedControl"); }
    static QString flexibleSpaceIdentifier() { return QStringLiteral("PreferencesToolbarFlexibleSpace"); }
    static constexpr qreal segmentWidthMargin = 36.0;
    static constexpr qreal segmentHeightMargin = 12.0;
    static constexpr qreal minimumSegmentWidth = 42.0;
    static constexpr int animationDurationMs = 250;

    explicit PreferencesWindowController(QObject *parent = nullptr);
    ~PreferencesWindowController() override;

    // Flags. Only the two that change the toolbar's shape rebuild it.
    bool titlebarAppearsTransparent() const { return m_titlebarAppearsTransparent; }
    // Passed to the window only: this property keeps reading false.
    void setTitlebarAppearsTransparent(bool transparent);
    bool showToolbarSeparator() const { return m_showToolbarSeparator; }
    void setShowToolbarSeparator(bool show) { m_showToolbarSeparator = show; }
    bool showToolbarWithSingleViewController() const { return m_showToolbarWithSingleViewController; }
    void setShowToolbarWithSingleViewController(bool show) { m_showToolbarWithSingleViewController = show; }
    bool showToolbarItemsAsSegmentedControl() const { return m_showToolbarItemsAsSegmentedControl; }
    // When changed: forces centred items and rebuilds the toolbar.
    void setShowToolbarItemsAsSegmentedControl(bool segmented);
    bool centerToolbarItems() const { return m_centerToolbarItems; }
    // When changed: rebuilds the toolbar.
    void setCenterToolbarItems(bool center);
    // Has no visible effect off macOS.
    bool allowsVibrancy() const { return m_allowsVibrancy; }
    void setAllowsVibrancy(bool allows) { m_allowsVibrancy = allows; }

    PreferencesWindow *window() const { return m_window.get(); }
    QToolBar *toolbar() const;
    QWidget *segmentedControl() const;
    // The segments' buttons; each button's id is its segment's tag, the pane's index.
    QButtonGroup *segmentedControlButtons() const;

    // Panes, in the order they were added, each once.
    const QVector<PreferencesPane> &viewControllers() const { return m_viewControllers; }
    // The pane shown; set when its switch animation has finished.
    PreferencesPane activeViewController() const { return m_activeViewController; }

    // Adds the panes not held yet, in list order, then rebuilds the toolbar.
    void setPreferencesViewControllers(const QVector<PreferencesPane> &panes);
    // Adds one pane; the toolbar is not rebuilt.
    void addPreferencesViewController(const PreferencesPane &pane);
    PreferencesPane viewControllerWithIdentifier(const QString &identifier) const;

    // Shows the window on the first pane, without animation.
    void showPreferencesWindow();
    void dismissPreferencesWindow();

    virtual void activateViewController(const PreferencesPane &pane, bool animate);
    // The size given to every segment: the widest title as measured, plus margins.
    QSizeF maxSegmentSizeForCurrentViewControllers() const;

    // The toolbar's contents, by identifier, in order. Allowed and selectable are the same list.
    QStringList toolbarDefaultItemIdentifiers();
    QStringList toolbarAllowedItemIdentifiers() { return toolbarDefaultItemIdentifiers(); }
    QStringList toolbarSelectableItemIdentifiers() { return toolbarDefaultItemIdentifiers(); }
    // Makes the item for the identifier and appends it to the toolbar, which owns
    // it. Null for a flexible space: setupToolbar puts in a stretching spacer.
    QAction *toolbarItemForItemIdentifier(const QString &identifier, QToolBar *toolbar);
    // The toolbar's item with the identifier, or null.
    QAction *toolbarItem(const QString &identifier) const;

    void setupToolbar();

    // For tests and shutdown: whether a switch is animating, and ending it at once
    // (the animation's end state is reached and the pane becomes the active one).
    bool isAnimating() const;
    void finishAnimation();

public Q_SLOTS:
    void toolbarItemAction(QAction *item);
    void segmentedControlAction();

Q_SIGNALS:
    void activeViewControllerChanged(const PreferencesPane &pane);

private:
    void setupDefaults();
    void setupSegmentedControl();
    QSize contentSizeFor(const PreferencesPane &pane);
    void completeActivation(const PreferencesPane &pane, const QRect &frame);

    bool m_titlebarAppearsTransparent = false;
    bool m_showToolbarSeparator = true;
    bool m_showToolbarWithSingleViewController = false;
    bool m_showToolbarItemsAsSegmentedControl = false;
    bool m_centerToolbarItems = true;
    bool m_allowsVibrancy = false;
    std::unique_ptr<PreferencesWindow> m_window;
    QPointer<QToolBar> m_toolbar;
    QPointer<QWidget> m_segmentedControl;
    QPointer<QButtonGroup> m_segmentButtons;
    std::optional<QStringList> m_toolbarDefaultItemIdentifiers;
    QVector<PreferencesPane> m_viewControllers;
    PreferencesPane m_activeViewController;
    QPointer<QParallelAnimationGroup> m_animation;
    // Each pane's content size, taken the first time it is shown: once shown,
    // a view is stretched with the window and no longer tells its own size.
    QHash<const PreferencesWindowControllerProtocol *, QSize> m_contentSizes;
};
