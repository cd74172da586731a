#include "gui/MainWindow.h"

#include "core/Fatal.h"
#include "core/Logging.h"
#include "ui_MainWindow.h"
#include "widgets/PanelButton.h"
#include "widgets/ScreenFit.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDragEnterEvent>
#include <QEnterEvent>
#include <QFile>
#include <QFontDatabase>
#include <QKeyEvent>
#include <QLabel>
#include <QLayout>
#include <QMimeData>
#include <QPainter>
#include <QScreen>
#include <QStyle>
#include <QUrl>

namespace {
const QString kAdvancedImageName = QStringLiteral("NSAdvanced");
const QString kKeynoteIcon = QStringLiteral("KeynoteIcon");

// The platform's standard images: the desktop theme's, or Qt's own.
QIcon standardImage(const QString &name)
{
    if (name == kAdvancedImageName)
        return QIcon::fromTheme(QStringLiteral("preferences-system"),
                                QIcon::fromTheme(QStringLiteral("preferences-other"),
                                                 qApp->style()->standardIcon(QStyle::SP_FileDialogDetailedView)));
    return QIcon::fromTheme(QStringLiteral("dialog-information"),
                            qApp->style()->standardIcon(QStyle::SP_MessageBoxInformation));
}

// The frame shown over the window's contents while a drop would be taken.
// It lets the pointer through, so the panels below still see it.
class DropHighlight : public QWidget
{
public:
    explicit DropHighlight(QWidget *parent)
        : QWidget(parent)
    {
        setAttribute(Qt::WA_TransparentForMouseEvents);
        setObjectName(QStringLiteral("dropHighlight"));
        hide();
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        QColor fill = palette().color(QPalette::Highlight);
        fill.setAlpha(40);
        painter.setBrush(fill);
        painter.setPen(QPen(palette().color(QPalette::Highlight), kWidth));
        painter.drawRoundedRect(QRectF(rect()).adjusted(kWidth / 2, kWidth / 2, -kWidth / 2, -kWidth / 2), 8, 8);
    }

private:
    static constexpr qreal kWidth = 3;
};

QStringList localPaths(const QMimeData *data)
{
    QStringList paths;
    if (!data)
        return paths;
    for (const QUrl &url : data->urls()) {
        if (url.isLocalFile())
            paths.append(url.toLocalFile());
    }
    return paths;
}
} // namespace

MainWindow::MainWindow(QWidget *parent)
    : QMainWindow(parent)
    , m_ui(new Ui::MainWindow)
{
    m_ui->setupUi(this);
    setWindowIcon(QIcon(QStringLiteral(":/icons/hicolor/256x256/apps/deckwright.png")));
    layout()->setSizeConstraint(QLayout::SetFixedSize);
    // Exactly these buttons: a window of fixed size has nothing to maximize.
    setWindowFlags(Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowSystemMenuHint
                   | Qt::WindowMinimizeButtonHint | Qt::WindowCloseButtonHint);
    setAcceptDrops(true);
    m_dropHighlight = new DropHighlight(m_ui->centralWidget);
    m_ui->statusLine->installEventFilter(this);
    // Each link of the line is named by its place.
    connect(m_ui->statusLine, &QLabel::linkActivated, this,
            [this](const QString &href) { Q_EMIT statusLinkActivated(m_statusLinks.value(href.toInt())); });
}

MainWindow::~MainWindow() = default;

void MainWindow::buildContent()
{
    const QString background = QStringLiteral(":/MainBackground3.tiff");
    if (QFile::exists(background)) {
        QPixmap picture(background);
        if (!picture.isNull()) {
            // Shown at 475 x 305 points, whatever its pixel size.
            picture.setDevicePixelRatio(picture.width() / 475.0);
            m_ui->backgroundImage->setPixmap(picture);
        }
    }
    buildPanel(m_ui->preferencesButton, QStringLiteral("Preferences"), QStringLiteral("Configure ouput and settings."),
               kAdvancedImageName);
    buildPanel(m_ui->openFileButton, QStringLiteral("Open"), QStringLiteral("Choose file or files to convert."),
               kKeynoteIcon);
    buildPanel(m_ui->moreInfoButton, QStringLiteral("Feedback & Support"),
               QStringLiteral("Send feedback, ask questions, report problems."), QStringLiteral("NSInfo"));
}

void MainWindow::present()
{
    if (!m_placed) {
        m_placed = true;
        adjustSize();
        const QRect centred(screen()->availableGeometry().center() - rect().center(), size());
        move(ScreenFit::fittedOnScreen(this, centred).topLeft()); // a scaled screen may be smaller than the window
    }
    show();
    raise();
    activateWindow();
}

void MainWindow::showStatus(const QString &text, const QStringList &links)
{
    const QString separator = QStringLiteral(" · ");
    m_statusLinks = links;
    m_statusText = QStringList(QStringList{text} + links).join(separator);
    QString rich = text.toHtmlEscaped();
    for (qsizetype i = 0; i < links.size(); ++i)
        rich += separator + QStringLiteral("<a href=\"%1\">%2</a>").arg(i).arg(links.at(i).toHtmlEscaped());
    m_ui->statusLine->setText(rich);
    m_ui->statusLine->setAccessibleName(m_statusText);
    m_ui->statusLine->show();
}

void MainWindow::clearStatus()
{
    m_statusText.clear();
    m_statusLinks.clear();
    m_ui->statusLine->clear();
    m_ui->statusLine->hide();
}

QString MainWindow::statusText() const
{
    return m_statusText;
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    Q_EMIT windowWillClose();
    event->accept(); // the window hides; nothing is destroyed
}

QLabel *MainWindow::makeHeaderLabel(const QString &text)
{
    auto *label = new QLabel;
    // Sized as the desktop the layout was drawn for measures it: 14 units, one unit a pixel.
    QFont font(QStringLiteral("Helvetica"));
    font.setPixelSize(14);
    font.setBold(true);
    label->setFont(font);
    label->setGeometry(50, 5, 220, 40);
    label->setTextInteractionFlags(Qt::NoTextInteraction);
    label->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    label->setTextFormat(Qt::PlainText);
    label->setText(text);
    QPalette palette = label->palette();
    palette.setColor(QPalette::WindowText, Qt::black);
    label->setPalette(palette);
    label->setAutoFillBackground(false);
    return label;
}

QLabel *MainWindow::makeBodyTextLabel(const QString &text)
{
    QLabel *label = makeHeaderLabel(text);
    QFont font(QStringLiteral("Helvetica"));
    font.setPointSizeF(QFontDatabase::systemFont(QFontDatabase::GeneralFont).pointSizeF());
    label->setFont(font);
    label->setGeometry(50, 23, 280, 40);
    return label;
}

QLabel *MainWindow::makeImageFromPath(const QString &filePath)
{
    DW_LOG(QLatin1String("filePath ") + filePath);
    QIcon image = standardImage(QStringLiteral("NSInfo"));
    if (filePath == kAdvancedImageName)
        image = standardImage(kAdvancedImageName);
    if (filePath == kKeynoteIcon) {
        const QString resource = QStringLiteral(":/KeynoteIcon.png");
        if (!QFile::exists(resource))
            Fatal::fail(QStringLiteral("the picture KeynoteIcon.png is missing from the application"));
        image = QIcon(resource);
    }
    auto *view = new QLabel;
    view->setGeometry(5, 5, 34, 38);
    view->setAlignment(Qt::AlignCenter);
    view->setPixmap(image.pixmap(QSize(34, 38)));
    view->setProperty("imageName", filePath);
    return view;
}

void MainWindow::buildPanel(PanelButton *panel, const QString &header, const QString &body, const QString &icon)
{
    QLabel *headerLabel = makeHeaderLabel(header);
    QLabel *bodyLabel = makeBodyTextLabel(body);
    QLabel *image = makeImageFromPath(icon);
    for (QLabel *child : {headerLabel, bodyLabel, image}) {
        child->setParent(panel);
        child->show();
    }
    if (panel == m_ui->preferencesButton) {
        m_preferencesHeaderLabel = headerLabel;
        headerLabel->installEventFilter(this);
    }
    // Hover tracking over the panel, for as long as the window lives.
    panel->setAttribute(Qt::WA_Hover);
    panel->installEventFilter(this);
}

QList<PanelButton *> MainWindow::panels() const
{
    return {m_ui->preferencesButton, m_ui->openFileButton, m_ui->moreInfoButton};
}

bool MainWindow::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_preferencesHeaderLabel && event->type() == QEvent::MouseButtonRelease) {
        Q_EMIT preferencesHeaderClicked(); // the panel still gets the click
        return false;
    }
    // Space follows the status line's focused link, as Enter does (and as Space presses a button).
    if (watched == m_ui->statusLine && event->type() == QEvent::KeyPress
        && static_cast<QKeyEvent *>(event)->key() == Qt::Key_Space) {
        QKeyEvent enter(QEvent::KeyPress, Qt::Key_Return, Qt::NoModifier);
        QCoreApplication::sendEvent(watched, &enter);
        return true;
    }
    auto *panel = qobject_cast<PanelButton *>(watched);
    if (panel && panels().contains(panel)) {
        if (event->type() == QEvent::Enter)
            mouseEntered(static_cast<QEnterEvent *>(event)->globalPosition());
        else if (event->type() == QEvent::Leave)
            mouseExited();
    }
    return QMainWindow::eventFilter(watched, event);
}

void MainWindow::mouseEntered(const QPointF &globalPosition)
{
    for (PanelButton *panel : panels()) {
        if (panel->rect().contains(panel->mapFromGlobal(globalPosition).toPoint()))
            panel->setBordered(true);
    }
}

void MainWindow::mouseExited()
{
    for (PanelButton *panel : panels())
        panel->setBordered(false);
}

QAction *MainWindow::menuItem(MenuItem item) const
{
    switch (item) {
    case MenuItem::Open:
        return m_ui->openMenuItem;
    case MenuItem::Close:
        return m_ui->closeMenuItem;
    case MenuItem::Preferences:
        return m_ui->preferencesMenuItem;
    case MenuItem::Quit:
        return m_ui->quitMenuItem;
    case MenuItem::ShowMainWindow:
        return m_ui->showMainWindowMenuItem;
    case MenuItem::Results:
        return m_ui->resultsMenuItem;
    case MenuItem::Support:
        return m_ui->supportMenuItem;
    case MenuItem::Website:
        return m_ui->websiteMenuItem;
    case MenuItem::CheckForUpdates:
        return m_ui->checkForUpdatesMenuItem;
    case MenuItem::About:
        return m_ui->aboutMenuItem;
    }
    return nullptr;
}

PanelButton *MainWindow::panel(Panel panel) const
{
    switch (panel) {
    case Panel::Preferences:
        return m_ui->preferencesButton;
    case Panel::Open:
        return m_ui->openFileButton;
    case Panel::MoreInfo:
        return m_ui->moreInfoButton;
    }
    return nullptr;
}

bool MainWindow::isShowingDropHighlight() const
{
    return m_dropHighlight->isVisible();
}

bool MainWindow::acceptDrag(QDropEvent *event) const
{
    // Never a move: the file manager would take the dropped files away.
    const Qt::DropActions possible = event->possibleActions();
    if (localPaths(event->mimeData()).isEmpty() || !(possible & (Qt::CopyAction | Qt::LinkAction))) {
        event->ignore();
        return false;
    }
    event->setDropAction(possible & Qt::CopyAction ? Qt::CopyAction : Qt::LinkAction);
    event->accept();
    return true;
}

void MainWindow::showDropHighlight(bool shown)
{
    if (shown) {
        m_dropHighlight->setGeometry(m_ui->centralWidget->rect());
        m_dropHighlight->raise();
    }
    m_dropHighlight->setVisible(shown);
}

void MainWindow::dragEnterEvent(QDragEnterEvent *event)
{
    showDropHighlight(acceptDrag(event));
}

void MainWindow::dragMoveEvent(QDragMoveEvent *event)
{
    acceptDrag(event);
}

void MainWindow::dragLeaveEvent(QDragLeaveEvent *event)
{
    showDropHighlight(false);
    event->accept();
}

void MainWindow::dropEvent(QDropEvent *event)
{
    showDropHighlight(false);
    if (acceptDrag(event))
        Q_EMIT packagesDropped(localPaths(event->mimeData()));
}
