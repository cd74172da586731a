#include "widgets/PreferencesWindow.h"

#include "core/SettingsStore.h"
#include "widgets/ScreenFit.h"

#include <QAction>
#include <QCloseEvent>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QScreen>
#include <QToolBar>

PreferencesWindow::PreferencesWindow(QWidget *parent)
    : QMainWindow(parent)
{
    // Titled, closable, minimisable and exactly that: the size follows the
    // pane, not the user, so there is nothing to maximize.
    setWindowFlags(Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowSystemMenuHint
                   | Qt::WindowMinimizeButtonHint | Qt::WindowCloseButtonHint);
    // Closing the preferences must never end the program.
    setAttribute(Qt::WA_QuitOnClose, false);

    // No layout on purpose: a layout would hold the window at the size of the
    // largest pane it has ever shown and spoil the resize animation.
    m_contentHost = new QWidget(this);
    m_contentHost->setObjectName(QStringLiteral("PreferencesContentHost"));
    m_contentHost->installEventFilter(this);
    setCentralWidget(m_contentHost);

    m_frameSaveTimer.setSingleShot(true);
    m_frameSaveTimer.setInterval(frameSaveDelayMs);
    connect(&m_frameSaveTimer, &QTimer::timeout, this, &PreferencesWindow::saveFrameNow);

    QRect frame(QPoint(0, 0), frameSizeForContentSize(QSize(initialContentWidth, initialContentHeight)));
    if (const QScreen *screen = QGuiApplication::primaryScreen())
        frame.moveCenter(screen->availableGeometry().center());
    setGeometry(frame);

    setFrameAutosaveName(frameAutosaveKey());

    // The desktop's close-window keys (Ctrl+W) close it too. A shortcut, not a
    // key press: a focused combo box takes Ctrl+W as a letter to search for,
    // and the main window's Close item only reaches the main window.
    auto *closeWindow = new QAction(this);
    closeWindow->setShortcuts(QKeySequence::Close);
    connect(closeWindow, &QAction::triggered, this, &QWidget::close);
    addAction(closeWindow);
}

PreferencesWindow::~PreferencesWindow()
{
    saveFrameNow();
    releaseContentViews();
}

void PreferencesWindow::setContentView(QWidget *view)
{
    if (m_contentView == view)
        return;
    if (m_contentView) {
        m_contentView->setGraphicsEffect(nullptr);
        m_contentView->hide();
    }
    m_contentView = view;
    if (!view)
        return;
    if (view->parentWidget() != m_contentHost)
        view->setParent(m_contentHost);
    view->setGeometry(m_contentHost->rect());
    view->show();
}

void PreferencesWindow::releaseContentViews()
{
    const auto views = m_contentHost->findChildren<QWidget *>(QString(), Qt::FindDirectChildrenOnly);
    for (QWidget *view : views) {
        view->hide();
        view->setParent(nullptr);
    }
    m_contentView = nullptr;
}

QSize PreferencesWindow::frameSizeForContentSize(const QSize &contentSize) const
{
    int toolbarHeight = 0;
    const auto toolbars = findChildren<QToolBar *>(QString(), Qt::FindDirectChildrenOnly);
    for (const QToolBar *toolbar : toolbars) {
        if (toolBarArea(const_cast<QToolBar *>(toolbar)) == Qt::TopToolBarArea && !toolbar->isHidden())
            toolbarHeight += toolbar->sizeHint().height();
    }
    return QSize(contentSize.width(), contentSize.height() + toolbarHeight);
}

void PreferencesWindow::setFrameAutosaveName(const QString &name)
{
    saveFrameNow();
    m_frameAutosaveName = name;
    if (name.isEmpty())
        return;
    const QString saved = SettingsStore::standard().string(name, QString());
    if (!saved.isEmpty())
        setFrameFromString(saved);
    // Restoring is not a change worth writing back.
    m_frameSaveTimer.stop();
}

QString PreferencesWindow::frameString() const
{
    const QRect frame = geometry();
    return QStringLiteral("%1 %2 %3 %4").arg(frame.x()).arg(frame.y()).arg(frame.width()).arg(frame.height());
}

bool PreferencesWindow::setFrameFromString(const QString &frame)
{
    const QStringList parts = frame.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    if (parts.size() != 4)
        return false;
    int values[4];
    for (int i = 0; i < 4; ++i) {
        bool ok = false;
        values[i] = parts.at(i).toInt(&ok);
        if (!ok)
            return false;
    }
    const QRect rect(values[0], values[1], values[2], values[3]);
    if (rect.width() <= 0 || rect.height() <= 0)
        return false;
    // A frame saved under another scale factor, or on a screen that is gone,
    // would put the window out of reach: it comes back within the screen it lands on.
    setGeometry(ScreenFit::fittedOnScreen(this, rect));
    return true;
}

void PreferencesWindow::saveFrameNow()
{
    // Pending rather than "the timer runs": a single-shot timer is already
    // stopped when it calls this.
    if (!m_frameSavePending)
        return;
    m_frameSavePending = false;
    m_frameSaveTimer.stop();
    if (m_frameAutosaveName.isEmpty())
        return;
    SettingsStore &store = SettingsStore::standard();
    store.setObject(m_frameAutosaveName, frameString());
    store.synchronize();
}

void PreferencesWindow::frameChanged()
{
    if (m_frameAutosaveName.isEmpty())
        return;
    m_frameSavePending = true;
    m_frameSaveTimer.start();
}

QMenu *PreferencesWindow::createPopupMenu()
{
    // The toolbar is the controller's to show or hide, not the user's.
    return nullptr;
}

void PreferencesWindow::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape) {
        hide();
        close();
        return;
    }
    QMainWindow::keyPressEvent(event);
}

void PreferencesWindow::moveEvent(QMoveEvent *event)
{
    QMainWindow::moveEvent(event);
    frameChanged();
}

void PreferencesWindow::resizeEvent(QResizeEvent *event)
{
    QMainWindow::resizeEvent(event);
    frameChanged();
}

void PreferencesWindow::hideEvent(QHideEvent *event)
{
    saveFrameNow();
    QMainWindow::hideEvent(event);
}

void PreferencesWindow::closeEvent(QCloseEvent *event)
{
    saveFrameNow();
    QMainWindow::closeEvent(event);
}

bool PreferencesWindow::eventFilter(QObject *watched, QEvent *event)
{
    // The shown view fills the area below the toolbar, as the window grows or shrinks.
    if (watched == m_contentHost && event->type() == QEvent::Resize && m_contentView)
        m_contentView->setGeometry(m_contentHost->rect());
    return QMainWindow::eventFilter(watched, event);
}
