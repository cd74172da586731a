#include "widgets/PreferencesWindowController.h"

#include "core/Fatal.h"
#include "widgets/PreferencesWindow.h"

#include <QAction>
#include <QActionGroup>
#include <QButtonGroup>
#include <QEasingCurve>
#include <QFontMetricsF>
#include <QGraphicsOpacityEffect>
#include <QGuiApplication>
#include <QParallelAnimationGroup>
#include <QPropertyAnimation>
#include <QToolBar>
#include <QToolButton>

#include <QtMath>

namespace {
constexpr int toolbarIconSize = 32;

// A thin line under the toolbar, as the separator flag asks.
const char *const toolbarWithSeparatorStyle
    = "QToolBar#PreferencesMainToolbar { border: none; border-bottom: 1px solid palette(mid);"
      " padding: 3px 6px; spacing: 4px; }";
const char *const toolbarWithoutSeparatorStyle
    = "QToolBar#PreferencesMainToolbar { border: none; padding: 3px 6px; spacing: 4px; }";

// Segments share one rounded outline; the control's own background shows
// through the one-point gaps between them as dividers.
const char *const segmentedControlStyle
    = "#PreferencesToolbarSegmentedControl { background: palette(mid); border-radius: 4px; }"
      "#PreferencesToolbarSegmentedControl > QToolButton { border: none; padding: 0;"
      " background: palette(button); color: palette(button-text); }"
      "#PreferencesToolbarSegmentedControl > QToolButton:hover { background: palette(light); }"
      "#PreferencesToolbarSegmentedControl > QToolButton:checked { background: palette(highlight);"
      " color: palette(highlighted-text); }"
      "#PreferencesToolbarSegmentedControl > QToolButton[segment=\"first\"] {"
      " border-top-left-radius: 3px; border-bottom-left-radius: 3px; }"
      "#PreferencesToolbarSegmentedControl > QToolButton[segment=\"last\"] {"
      " border-top-right-radius: 3px; border-bottom-right-radius: 3px; }"
      "#PreferencesToolbarSegmentedControl > QToolButton[segment=\"only\"] { border-radius: 3px; }";
} // namespace

PreferencesWindowController::PreferencesWindowController(QObject *parent)
    : QObject(parent)
{
    setupDefaults();
}

PreferencesWindowController::~PreferencesWindowController()
{
    delete m_animation;
    // The panes own their views; take them out before the window deletes its children.
    m_window->releaseContentViews();
    m_window.reset();
}

void PreferencesWindowController::setupDefaults()
{
    m_titlebarAppearsTransparent = false;
    m_showToolbarSeparator = true;
    m_showToolbarWithSingleViewController = false;
    m_showToolbarItemsAsSegmentedControl = false;
    m_centerToolbarItems = true;
    m_allowsVibrancy = false;
    m_window = std::make_unique<PreferencesWindow>();
}

QToolBar *PreferencesWindowController::toolbar() const
{
    return m_toolbar;
}

QWidget *PreferencesWindowController::segmentedControl() const
{
    return m_segmentedControl;
}

QButtonGroup *PreferencesWindowController::segmentedControlButtons() const
{
    return m_segmentButtons;
}

void PreferencesWindowController::setTitlebarAppearsTransparent(bool transparent)
{
    m_window->setTitlebarAppearsTransparent(transparent);
}

void PreferencesWindowController::setShowToolbarItemsAsSegmentedControl(bool segmented)
{
    if (m_showToolbarItemsAsSegmentedControl == segmented)
        return;
    m_showToolbarItemsAsSegmentedControl = segmented;
    m_toolbarDefaultItemIdentifiers.reset();
    setCenterToolbarItems(true);
    setupToolbar();
}

void PreferencesWindowController::setCenterToolbarItems(bool center)
{
    if (m_centerToolbarItems == center)
        return;
    m_centerToolbarItems = center;
    m_toolbarDefaultItemIdentifiers.reset();
    setupToolbar();
}

void PreferencesWindowController::setPreferencesViewControllers(const QVector<PreferencesPane> &panes)
{
    for (const PreferencesPane &pane : panes)
        addPreferencesViewController(pane);
    setupToolbar();
}

void PreferencesWindowController::addPreferencesViewController(const PreferencesPane &pane)
{
    if (!pane || m_viewControllers.contains(pane))
        return;
    m_viewControllers.append(pane);
}

PreferencesPane PreferencesWindowController::viewControllerWithIdentifier(const QString &identifier) const
{
    for (const PreferencesPane &pane : m_viewControllers) {
        if (pane->preferenceIdentifier() == identifier)
            return pane;
    }
    return nullptr;
}

void PreferencesWindowController::showPreferencesWindow()
{
    // Hidden while it takes the first pane's size, so the old size never flashes.
    m_window->setWindowOpacity(0.0);
    m_window->show();
    m_window->raise();
    m_window->activateWindow();

    if (!m_viewControllers.isEmpty())
        activateViewController(m_viewControllers.first(), false);

    if (m_toolbar) {
        if (m_showToolbarItemsAsSegmentedControl) {
            if (m_segmentButtons && m_segmentButtons->button(0))
                m_segmentButtons->button(0)->setChecked(true);
        } else {
            // With centred items entry 0 is the leading flexible space.
            const QStringList identifiers = toolbarDefaultItemIdentifiers();
            const int index = m_centerToolbarItems ? 1 : 0;
            if (index < identifiers.size()) {
                if (QAction *item = toolbarItem(identifiers.at(index)))
                    item->setChecked(true);
            }
        }
    }

    m_window->setWindowOpacity(1.0);
}

void PreferencesWindowController::dismissPreferencesWindow()
{
    m_window->close();
}

QSize PreferencesWindowController::contentSizeFor(const PreferencesPane &pane)
{
    const auto known = m_contentSizes.constFind(pane.get());
    if (known != m_contentSizes.constEnd())
        return *known;
    const QWidget *view = pane->preferenceView();
    QSize size
        = view->testAttribute(Qt::WA_Resized) ? view->size() : view->sizeHint().expandedTo(view->minimumSizeHint());
    if (!size.isValid() || size.isEmpty())
        size = QSize(PreferencesWindow::initialContentWidth, PreferencesWindow::initialContentHeight);
    size = size.expandedTo(view->minimumSize()).boundedTo(view->maximumSize());
    m_contentSizes.insert(pane.get(), size);
    return size;
}

void PreferencesWindowController::activateViewController(const PreferencesPane &pane, bool animate)
{
    if (!pane)
        Fatal::fail(QStringLiteral("there is no preferences pane to show"));
    QWidget *view = pane->preferenceView();
    if (!view)
        Fatal::fail(QStringLiteral("the preferences pane %1 has no view").arg(pane->preferenceIdentifier()));

    // Keep the top edge; keep the window centred on its old middle, or its left edge.
    const QRect current = m_window->geometry();
    const QSize target = m_window->frameSizeForContentSize(contentSizeFor(pane));
    const int shift = m_centerToolbarItems ? (current.width() - target.width()) / 2 : 0;
    const QRect frame(QPoint(current.x() + shift, current.y()), target);

    m_window->setWindowTitle(m_showToolbarItemsAsSegmentedControl ? tr("Preferences") : pane->preferenceTitle());

    // A switch that is still running is overtaken; its pane never becomes the active one.
    if (m_animation) {
        m_animation->disconnect(this);
        m_animation->stop();
        delete m_animation;
    }

    auto *fade = new QGraphicsOpacityEffect(view);
    fade->setOpacity(0.0);
    view->setGraphicsEffect(fade);
    m_window->setContentView(view);

    // The window has a fixed size between switches; let it change during one.
    m_window->setMinimumSize(0, 0);
    m_window->setMaximumSize(QWIDGETSIZE_MAX, QWIDGETSIZE_MAX);

    if (!animate) {
        m_window->setGeometry(frame);
        completeActivation(pane, frame);
        return;
    }

    auto *group = new QParallelAnimationGroup(this);
    auto *resize = new QPropertyAnimation(m_window.get(), "geometry", group);
    resize->setDuration(animationDurationMs);
    resize->setEasingCurve(QEasingCurve::InOutQuad);
    resize->setEndValue(frame);
    auto *fadeIn = new QPropertyAnimation(fade, "opacity", group);
    fadeIn->setDuration(animationDurationMs);
    fadeIn->setEasingCurve(QEasingCurve::InOutQuad);
    fadeIn->setStartValue(0.0);
    fadeIn->setEndValue(1.0);
    connect(group, &QAbstractAnimation::finished, this, [this, pane, frame] {
        m_animation->deleteLater();
        m_animation = nullptr;
        completeActivation(pane, frame);
    });
    m_animation = group;
    group->start();
}

void PreferencesWindowController::completeActivation(const PreferencesPane &pane, const QRect &frame)
{
    QWidget *view = pane->preferenceView();
    // Painting through an effect costs on every update; the fade is over.
    if (m_window->contentView() == view)
        view->setGraphicsEffect(nullptr);
    m_window->setFixedSize(frame.size());
    m_activeViewController = pane;
    Q_EMIT activeViewControllerChanged(pane);
}

bool PreferencesWindowController::isAnimating() const
{
    return m_animation && m_animation->state() == QAbstractAnimation::Running;
}

void PreferencesWindowController::finishAnimation()
{
    if (isAnimating())
        m_animation->setCurrentTime(m_animation->totalDuration());
}

QSizeF PreferencesWindowController::maxSegmentSizeForCurrentViewControllers() const
{
    const QFontMetricsF metrics(QGuiApplication::font());
    qreal width = minimumSegmentWidth;
    qreal height = 0.0;
    for (const PreferencesPane &pane : m_viewControllers) {
        const QSizeF title = metrics.size(Qt::TextSingleLine, pane->preferenceTitle());
        // Compared with the width that already has its margin, so a later title
        // must beat the margin too before it wins.
        if (title.width() > width) {
            width = qCeil(title.width()) + segmentWidthMargin;
            height = qCeil(title.height()) + segmentHeightMargin;
        }
    }
    return QSizeF(width, height);
}

QStringList PreferencesWindowController::toolbarDefaultItemIdentifiers()
{
    if (m_toolbarDefaultItemIdentifiers)
        return *m_toolbarDefaultItemIdentifiers;
    if (m_viewControllers.isEmpty())
        return QStringList();
    QStringList identifiers;
    if (m_showToolbarItemsAsSegmentedControl) {
        identifiers << flexibleSpaceIdentifier() << segmentedControlIdentifier() << flexibleSpaceIdentifier();
    } else {
        if (m_centerToolbarItems)
            identifiers << flexibleSpaceIdentifier();
        for (const PreferencesPane &pane : m_viewControllers)
            identifiers << pane->preferenceIdentifier();
        if (m_centerToolbarItems)
            identifiers << flexibleSpaceIdentifier();
    }
    m_toolbarDefaultItemIdentifiers = identifiers;
    return identifiers;
}

void PreferencesWindowController::setupToolbar()
{
    if (m_toolbar) {
        m_window->removeToolBar(m_toolbar);
        delete m_toolbar;
    }
    m_toolbar = nullptr;
    m_toolbarDefaultItemIdentifiers.reset();

    if (!m_showToolbarWithSingleViewController && !m_showToolbarItemsAsSegmentedControl && m_viewControllers.size() < 2)
        return;

    auto *toolbar = new QToolBar(m_window.get());
    toolbar->setObjectName(mainToolbarIdentifier());
    toolbar->setMovable(false);
    toolbar->setFloatable(false);
    toolbar->setIconSize(QSize(toolbarIconSize, toolbarIconSize));
    toolbar->setStyleSheet(
        QLatin1String(m_showToolbarSeparator ? toolbarWithSeparatorStyle : toolbarWithoutSeparatorStyle));
    m_toolbar = toolbar;

    if (m_showToolbarItemsAsSegmentedControl) {
        toolbar->setToolButtonStyle(Qt::ToolButtonIconOnly);
        setupSegmentedControl();
    } else {
        toolbar->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
    }

    const QStringList identifiers = toolbarDefaultItemIdentifiers();
    for (const QString &identifier : identifiers) {
        if (identifier == flexibleSpaceIdentifier()) {
            auto *space = new QWidget(toolbar);
            space->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
            toolbar->addWidget(space)->setObjectName(identifier);
        } else {
            toolbarItemForItemIdentifier(identifier, toolbar);
        }
    }
    m_window->addToolBar(Qt::TopToolBarArea, toolbar);
}

QAction *PreferencesWindowController::toolbarItemForItemIdentifier(const QString &identifier, QToolBar *toolbar)
{
    if (identifier == flexibleSpaceIdentifier())
        return nullptr;

    if (identifier == segmentedControlIdentifier()) {
        if (!m_segmentedControl)
            return nullptr;
        QAction *item = toolbar->addWidget(m_segmentedControl);
        item->setObjectName(identifier);
        return item;
    }

    const PreferencesPane pane = viewControllerWithIdentifier(identifier);
    if (!pane)
        return nullptr;
    auto *item = new QAction(pane->preferenceIcon(), pane->preferenceTitle(), toolbar);
    item->setObjectName(pane->preferenceIdentifier());
    item->setIconText(pane->preferenceTitle());
    if (pane->hasPreferenceToolTip())
        item->setToolTip(pane->preferenceToolTip());
    item->setCheckable(true);
    // One group per toolbar: the items of a rebuilt toolbar start a new one.
    auto *group = toolbar->findChild<QActionGroup *>(QString(), Qt::FindDirectChildrenOnly);
    if (!group)
        group = new QActionGroup(toolbar);
    group->addAction(item);
    connect(item, &QAction::triggered, this, [this, item] { toolbarItemAction(item); });
    toolbar->addAction(item);
    return item;
}

QAction *PreferencesWindowController::toolbarItem(const QString &identifier) const
{
    if (!m_toolbar)
        return nullptr;
    const auto items = m_toolbar->actions();
    for (QAction *item : items) {
        if (item->objectName() == identifier)
            return item;
    }
    return nullptr;
}

void PreferencesWindowController::setupSegmentedControl()
{
    const int count = int(m_viewControllers.size());
    const QSizeF segment = maxSegmentSizeForCurrentViewControllers();
    const int width = qCeil(segment.width());
    int height = qCeil(segment.height());
    // When no title is wider than the minimum the measurement leaves the height
    // at zero; the segments still need room for a line of text.
    if (height <= 0)
        height = qCeil(QFontMetricsF(QGuiApplication::font()).height() + segmentHeightMargin);

    auto *control = new QWidget(m_toolbar);
    control->setObjectName(segmentedControlIdentifier());
    control->setAttribute(Qt::WA_StyledBackground);
    control->setStyleSheet(QLatin1String(segmentedControlStyle));
    control->setFixedSize(count * width + count + 1, height);

    auto *buttons = new QButtonGroup(control);
    buttons->setExclusive(true);
    for (int i = 0; i < count; ++i) {
        auto *button = new QToolButton(control);
        button->setText(m_viewControllers.at(i)->preferenceTitle());
        button->setCheckable(true);
        button->setFocusPolicy(Qt::NoFocus);
        if (count == 1)
            button->setProperty("segment", QStringLiteral("only"));
        else if (i == 0)
            button->setProperty("segment", QStringLiteral("first"));
        else if (i == count - 1)
            button->setProperty("segment", QStringLiteral("last"));
        // One point of outline before each segment and after the last; the
        // outline is also drawn above and below the segments.
        button->setGeometry(1 + i * (width + 1), 1, width, qMax(0, height - 2));
        buttons->addButton(button, i);
    }
    connect(buttons, &QButtonGroup::idClicked, this, [this] { segmentedControlAction(); });

    m_segmentedControl = control;
    m_segmentButtons = buttons;
}

void PreferencesWindowController::toolbarItemAction(QAction *item)
{
    const QString identifier = item->objectName();
    if (m_activeViewController && m_activeViewController->preferenceIdentifier() == identifier)
        return;
    activateViewController(viewControllerWithIdentifier(identifier), true);
}

void PreferencesWindowController::segmentedControlAction()
{
    if (!m_segmentButtons)
        return;
    const int tag = m_segmentButtons->checkedId();
    if (tag < 0 || tag >= m_viewControllers.size())
        return;
    const PreferencesPane &pane = m_viewControllers.at(tag);
    if (m_activeViewController && m_activeViewController->preferenceIdentifier() == pane->preferenceIdentifier())
        return;
    activateViewController(pane, true);
}
