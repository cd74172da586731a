#include "gui/AppDelegate.h"

#include "gui/AboutDialog.h"
#include "gui/Alert.h"
#include "gui/BuildConfig.h"
#include "platform/DesktopServices.h"
#include "core/Fatal.h"
#include "core/Logging.h"
#include "gui/MainWindow.h"
#include "gui/OpenPanel.h"
#include "gui/OutputFolderChooser.h"
#include "widgets/PanelButton.h"
#include "gui/Preferences.h"
#include "widgets/PreferencesWindowController.h"
#include "gui/ProgressBarWindowController.h"
#include "core/SettingsStore.h"
#include "gui/SoftwareUpdater.h"
#include "ui_MainWindow.h"

#include <QApplication>
#include <QDebug>
#include <QEnterEvent>
#include <QFile>
#include <QFontDatabase>
#include <QImageReader>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QStyle>
#include <QTimer>

namespace {
AppDelegate *sharedDelegate = nullptr;

const QString kAdvancedImageName = QStringLiteral("NSAdvanced");
const QString kKeynoteIcon = QStringLiteral("KeynoteIcon");

template <typename T>
T *required(const QPointer<T> &outlet, const char *name)
{
    return Fatal::requireOutlet(outlet.data(), QStringLiteral("main window"), name);
}

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
} // namespace

AppDelegate *AppDelegate::shared()
{
    return sharedDelegate;
}

AppDelegate::AppDelegate(QObject *parent)
    : QObject(parent)
    , m_prezPath(QStringLiteral(""))
    , m_testWindow(std::make_unique<ProgressBarWindowController>(QStringLiteral("ProgressBarView")))
    , m_prefs(std::make_unique<PreferencesWindowController>())
    , m_preferencesWindowController(std::make_unique<ProgressBarWindowController>())
{
    m_preferencesWindowController->window();
    sharedDelegate = this;

    // The main window and its outlets, as its form connects them.
    m_window = new MainWindow;
    m_window->setAttribute(Qt::WA_QuitOnClose, false);
    Ui::MainWindow &ui = m_window->ui();
    m_openButton = ui.openButton;
    m_preferencesLabel = ui.preferencesLabel;
    m_preferencesButton = ui.preferencesButton;
    m_openFileButton = ui.openFileButton;
    m_moreInfoButton = ui.moreInfoButton;
    m_backgroundImage = ui.backgroundImage;
    m_closeMenuItem = ui.closeMenuItem;
    m_updater = new SoftwareUpdater(this);

    connect(m_window, &MainWindow::windowWillClose, this, &AppDelegate::windowWillClose);
    connect(ui.openMenuItem, &QAction::triggered, this, &AppDelegate::openFileMenuItem);
    connect(ui.closeMenuItem, &QAction::triggered, this, &AppDelegate::closeMainWindow);
    connect(ui.preferencesMenuItem, &QAction::triggered, this, &AppDelegate::showPreferencesPane);
    connect(ui.quitMenuItem, &QAction::triggered, qApp, &QCoreApplication::quit, Qt::QueuedConnection);
    connect(ui.showMainWindowMenuItem, &QAction::triggered, this, &AppDelegate::showMainWindow);
    connect(ui.supportMenuItem, &QAction::triggered, this, &AppDelegate::openSupportMenuItem);
    connect(ui.websiteMenuItem, &QAction::triggered, this, &AppDelegate::openWebsiteMenuItem);
    connect(ui.checkForUpdatesMenuItem, &QAction::triggered, this, &AppDelegate::checkForUpdatesMenuItem);
    connect(ui.aboutMenuItem, &QAction::triggered, this, &AppDelegate::showAboutPanel);
    connect(ui.preferencesButton, &QAbstractButton::clicked, this, &AppDelegate::showPreferencesPaneFromButton);
    connect(ui.openFileButton, &QAbstractButton::clicked, this, &AppDelegate::showOpenDialog);
    connect(ui.moreInfoButton, &QAbstractButton::clicked, this, &AppDelegate::openSupportLink);
}

AppDelegate::~AppDelegate()
{
    if (sharedDelegate == this)
        sharedDelegate = nullptr;
    delete m_window;
}

// ---- Lifecycle ---------------------------------------------------------

void AppDelegate::applicationDidFinishLaunching()
{
    SettingsStore &settings = SettingsStore::standard();
    SoftwareUpdater *updater = required(QPointer<SoftwareUpdater>(m_updater), "updater");
    updater->setUpdateCheckInterval(double(settings.integer(SettingKey::updateInterval, 86400)));
    const QString checkForUpdatesPref = settings.string(SettingKey::checkUpdates, QStringLiteral("true"));
    DW_LOG(QLatin1String("checkForUpdatesPref : ") + checkForUpdatesPref);
    updater->setAutomaticallyChecksForUpdates(checkForUpdatesPref == QLatin1String("true"));

    const QString background = QStringLiteral(":/MainBackground3.tiff");
    if (QFile::exists(background)) {
        QPixmap picture(background);
        if (!picture.isNull()) {
            // Shown at 475 x 305 points, whatever its pixel size.
            picture.setDevicePixelRatio(picture.width() / 475.0);
            required(m_backgroundImage, "backgroundImage")->setPixmap(picture);
        }
    }

    m_prefs->setPreferencesViewControllers({std::make_shared<Preferences>()});
    m_prefs->setShowToolbarWithSingleViewController(false);

    buildPanel(required(m_preferencesButton, "preferencesButton"), QStringLiteral("Preferences"),
               QStringLiteral("Configure ouput and settings."), kAdvancedImageName);
    buildPanel(required(m_openFileButton, "openFileButton"), QStringLiteral("Open"),
               QStringLiteral("Choose file or files to convert."), kKeynoteIcon);
    buildPanel(required(m_moreInfoButton, "moreInfoButton"), QStringLiteral("Feedback & Support"),
               QStringLiteral("Send feedback, ask questions, report problems."), QStringLiteral("NSInfo"));
    required(m_closeMenuItem, "closeMenuItem");
    required(m_window, "window");
    DW_LOG(QLatin1String("applicationDidFinishLaunching"));

    // The settings are in place: automatic checks may begin.
    updater->start();
}

bool AppDelegate::applicationShouldHandleReopen(bool hasVisibleWindows)
{
    Q_UNUSED(hasVisibleWindows)
    showMainWindow();
    return true;
}

void AppDelegate::windowWillClose()
{
    DW_LOG(QLatin1String("window is closing"));
    required(m_closeMenuItem, "closeMenuItem")->setEnabled(false);
}

void AppDelegate::applicationWillTerminate()
{
}

// ---- Actions -----------------------------------------------------------

void AppDelegate::showMainWindow()
{
    MainWindow *window = required(m_window, "window");
    if (!m_windowPlaced) {
        m_windowPlaced = true;
        window->adjustSize();
        window->move(window->screen()->availableGeometry().center() - window->rect().center());
    }
    window->show();
    window->raise();
    window->activateWindow();
    required(m_closeMenuItem, "closeMenuItem")->setEnabled(true);
}

void AppDelegate::closeMainWindow()
{
    required(m_window, "window")->setVisible(false);
}

void AppDelegate::showOpenDialog()
{
    doOpenDialog();
}

void AppDelegate::openFileMenuItem()
{
    doOpenDialog();
}

void AppDelegate::showOutputPathDialog()
{
    OutputFolderChooser::run(OutputFolderChooser::ApplicationCopy);
}

void AppDelegate::showPreferencesPane()
{
    m_prefs->showPreferencesWindow();
}

void AppDelegate::showPreferencesPaneFromButton()
{
    m_prefs->showPreferencesWindow();
}

void AppDelegate::showProgressBar()
{
    DW_LOG(QLatin1String("showing progress bar"));
    m_testWindow->showWindow(this);
}

void AppDelegate::openSupportMenuItem()
{
    doOpenSupportLink();
}

void AppDelegate::openSupportLink()
{
    doOpenSupportLink();
}

void AppDelegate::doOpenSupportLink()
{
    DW_LOG(QLatin1String("open support"));
    DesktopServices::instance().openUrl(QUrl(QString::fromUtf8(BuildConfig::supportUrl)));
}

void AppDelegate::openWebsiteMenuItem()
{
    doOpenWebsite();
}

void AppDelegate::doOpenWebsite()
{
    DesktopServices::instance().openUrl(QUrl(QString::fromUtf8(BuildConfig::websiteUrl)));
}

void AppDelegate::clickOnPreferencesText()
{
    DW_LOG(QLatin1String("Click made"));
}

void AppDelegate::checkForUpdatesMenuItem()
{
    m_updater->checkForUpdates(this);
}

void AppDelegate::showAboutPanel()
{
    static QPointer<AboutDialog> about;
    if (!about)
        about = new AboutDialog(m_window);
    about->show();
    about->raise();
    about->activateWindow();
}

// ---- The batch ---------------------------------------------------------

void AppDelegate::doOpenDialog()
{
    OpenPanel panel;
    panel.setPrompt(QStringLiteral("Convert"));
    panel.setWorksWhenModal(true);
    panel.setAllowsMultipleSelection(true);
    panel.setCanChooseDirectories(false);
    panel.setResolvesAliases(true);
    panel.setTitle(QStringLiteral("Choose File To Convert"));
    panel.setMessage(QStringLiteral("Locate file"));
    if (panel.runModal(m_window) != OpenPanel::OKResponse)
        return;
    convertBatch(panel.urls());
}

void AppDelegate::convertBatch(const QList<QUrl> &chosenFiles)
{
    m_converting = true;
    QString printed;
    QDebug(&printed) << chosenFiles;
    DW_LOG(QLatin1String("chosenfiles ") + printed);
    DW_LOG(QLatin1String("parentDir ") + printed);

    SettingsStore &settings = SettingsStore::standard();
    if (!settings.contains(SettingKey::bookmarkData)) {
        DW_LOG(QLatin1String("need a save location"));
        showOutputPathDialog();
    }

    settings.setObject(SettingKey::errorPrezzes, QStringList());
    settings.synchronize();

    for (const QUrl &url : chosenFiles) {
        const QString absoluteString = url.toString(QUrl::FullyEncoded);
        DW_LOG(QLatin1String("prezPath ") + absoluteString);
        DW_LOG(QLatin1String("absoluteString ") + absoluteString);
        settings.setObject(SettingKey::prezPath, absoluteString);
        m_testWindow->showWindow(nullptr);
    }

    const QStringList errorPrezzes = settings.stringList(SettingKey::errorPrezzes, {});
    DW_LOG(QLatin1String("errorPrezzes ") + QString::number(errorPrezzes.size()));
    if (!errorPrezzes.isEmpty()) {
        Alert alert;
        alert.setParent(m_window);
        alert.addButton(QStringLiteral("OK"));
        alert.setMessageText(QStringLiteral("Some problems occurred."));
        alert.setInformativeText(summaryText(errorPrezzes));
        alert.runModal();
    }
    m_converting = false;
    if (!m_pendingBatches.isEmpty())
        QTimer::singleShot(0, this, &AppDelegate::runPendingBatches);
}

QString AppDelegate::summaryText(const QStringList &errorPrezzes)
{
    const qsizetype count = errorPrezzes.size();
    QString text = QStringLiteral("The following files were not Keynote files.\n\n");
    for (qsizetype i = 0; i < qMin<qsizetype>(count, 5); ++i)
        text += QStringLiteral("• ") + errorPrezzes.at(i) + QLatin1Char('\n');
    if (count > 5) {
        const qsizetype others = count - 5;
        text += QStringLiteral("• and ") + QString::number(others) + QStringLiteral(" other")
                + (others > 1 ? QStringLiteral("s") : QString()) + QStringLiteral(".\n");
    }
    text += QStringLiteral("\nThis converter will only convert Keynote 4 (iWork '08) files to Keynote 5 (iWork '09) "
                           "files. Please check the files listed and try again.");
    return text;
}

void AppDelegate::openPackages(const QStringList &paths)
{
    if (paths.isEmpty())
        return;
    // A request that arrives mid-batch (the progress window lets the event
    // loop breathe) waits for that batch to end.
    m_pendingBatches.append(paths);
    if (!m_converting)
        QTimer::singleShot(0, this, &AppDelegate::runPendingBatches);
}

void AppDelegate::runPendingBatches()
{
    if (m_converting || m_pendingBatches.isEmpty())
        return;
    const QStringList paths = m_pendingBatches.takeFirst();
    QList<QUrl> urls;
    for (const QString &path : paths)
        urls.append(OpenPanel::urlForPath(path, true));
    convertBatch(urls);
}

// ---- The panels --------------------------------------------------------

QLabel *AppDelegate::makeHeaderLabel(const QString &text)
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

QLabel *AppDelegate::makeBodyTextLabel(const QString &text)
{
    QLabel *label = makeHeaderLabel(text);
    QFont font(QStringLiteral("Helvetica"));
    font.setPointSizeF(QFontDatabase::systemFont(QFontDatabase::GeneralFont).pointSizeF());
    label->setFont(font);
    label->setGeometry(50, 23, 280, 40);
    return label;
}

QLabel *AppDelegate::makeImageFromPath(const QString &filePath)
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

void AppDelegate::buildPanel(PanelButton *panel, const QString &header, const QString &body, const QString &icon)
{
    QLabel *headerLabel = makeHeaderLabel(header);
    QLabel *bodyLabel = makeBodyTextLabel(body);
    QLabel *image = makeImageFromPath(icon);
    for (QLabel *child : {headerLabel, bodyLabel, image}) {
        child->setParent(panel);
        child->show();
    }
    if (panel == m_preferencesButton) {
        m_preferencesHeaderLabel = headerLabel;
        headerLabel->installEventFilter(this);
    }
    // Hover tracking over the panel, for as long as the window lives.
    panel->setAttribute(Qt::WA_Hover);
    panel->installEventFilter(this);
}

bool AppDelegate::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_preferencesHeaderLabel && event->type() == QEvent::MouseButtonRelease) {
        clickOnPreferencesText(); // the panel still gets the click
        return false;
    }
    if (watched == m_preferencesButton || watched == m_openFileButton || watched == m_moreInfoButton) {
        if (event->type() == QEvent::Enter)
            mouseEntered(static_cast<QEnterEvent *>(event)->globalPosition());
        else if (event->type() == QEvent::Leave)
            mouseExited();
    }
    return QObject::eventFilter(watched, event);
}

void AppDelegate::mouseEntered(const QPointF &globalPosition)
{
    for (PanelButton *panel : {m_preferencesButton.data(), m_openFileButton.data(), m_moreInfoButton.data()}) {
        if (panel && panel->rect().contains(panel->mapFromGlobal(globalPosition).toPoint()))
            panel->setBordered(true);
    }
}

void AppDelegate::mouseExited()
{
    for (PanelButton *panel : {m_preferencesButton.data(), m_openFileButton.data(), m_moreInfoButton.data()}) {
        if (panel)
            panel->setBordered(false);
    }
}
