#include "gui/AppDelegate.h"

#include "core/ConversionEvents.h"
#include "core/Converter.h"
#include "core/FileUrl.h"
#include "core/Logging.h"
#include "core/NotificationCenter.h"
#include "core/PackageSearch.h"
#include "core/SettingsStore.h"
#include "core/Waiting.h"
#include "gui/AboutDialog.h"
#include "gui/Alert.h"
#include "gui/BatchReport.h"
#include "gui/BuildConfig.h"
#include "gui/OpenPanel.h"
#include "gui/OutputFolderChooser.h"
#include "gui/Preferences.h"
#include "gui/ProgressBarWindowController.h"
#include "gui/TrayIcon.h"
#include "gui/UpdateChecks.h"
#include "platform/DesktopServices.h"
#include "widgets/PanelButton.h"
#include "widgets/PreferencesWindowController.h"

#include <QApplication>
#include <QDebug>
#include <QDir>
#include <QFileInfo>
#include <QTimer>

AppDelegate::AppDelegate(QObject *parent)
    : QObject(parent)
    , m_prezPath(QStringLiteral(""))
    , m_testWindow(std::make_unique<ProgressBarWindowController>(QStringLiteral("ProgressBarView")))
    , m_prefs(std::make_unique<PreferencesWindowController>())
    , m_preferencesWindowController(std::make_unique<ProgressBarWindowController>())
{
    m_preferencesWindowController->window();

    m_window = new MainWindow;
    m_window->setAttribute(Qt::WA_QuitOnClose, false);
    m_testWindow->setParentWindow(m_window);
    m_report = new BatchReport(m_window, this);
    m_tray = new TrayIcon(this);
    connect(m_tray, &TrayIcon::showWindowRequested, this, [this] { applicationShouldHandleReopen(false); });
    connect(m_tray, &TrayIcon::openRequested, this, &AppDelegate::openFileMenuItem);
    connect(m_tray, &TrayIcon::preferencesRequested, this, &AppDelegate::showPreferencesPane);
    connect(m_tray, &TrayIcon::quitRequested, qApp, &QCoreApplication::quit, Qt::QueuedConnection);
    // The windows keep painting and answering while a file converts.
    Waiting::setKeepsEventsTurning(true);
    m_updater = UpdateChecks::create(this);

    connect(m_window, &MainWindow::windowWillClose, this, &AppDelegate::windowWillClose);
    connect(m_window, &MainWindow::preferencesHeaderClicked, this, &AppDelegate::clickOnPreferencesText);
    connect(m_window, &MainWindow::packagesDropped, this, &AppDelegate::openPackages);
    connect(m_window->menuItem(MainWindow::MenuItem::Open), &QAction::triggered, this, &AppDelegate::openFileMenuItem);
    connect(m_window->menuItem(MainWindow::MenuItem::Close), &QAction::triggered, this, &AppDelegate::closeMainWindow);
    connect(m_window->menuItem(MainWindow::MenuItem::Preferences), &QAction::triggered, this,
            &AppDelegate::showPreferencesPane);
    connect(m_window->menuItem(MainWindow::MenuItem::Quit), &QAction::triggered, qApp, &QCoreApplication::quit,
            Qt::QueuedConnection);
    connect(m_window->menuItem(MainWindow::MenuItem::ShowMainWindow), &QAction::triggered, this,
            &AppDelegate::showMainWindow);
    connect(m_window->menuItem(MainWindow::MenuItem::Results), &QAction::triggered, m_report,
            &BatchReport::showResults);
    connect(m_window->menuItem(MainWindow::MenuItem::Support), &QAction::triggered, this,
            &AppDelegate::openSupportMenuItem);
    connect(m_window->menuItem(MainWindow::MenuItem::Website), &QAction::triggered, this,
            &AppDelegate::openWebsiteMenuItem);
    connect(m_window->menuItem(MainWindow::MenuItem::CheckForUpdates), &QAction::triggered, this,
            &AppDelegate::checkForUpdatesMenuItem);
    m_window->menuItem(MainWindow::MenuItem::CheckForUpdates)->setVisible(m_updater != nullptr);
    connect(m_window->menuItem(MainWindow::MenuItem::About), &QAction::triggered, this, &AppDelegate::showAboutPanel);
    connect(m_window->panel(MainWindow::Panel::Preferences), &QAbstractButton::clicked, this,
            &AppDelegate::showPreferencesPaneFromButton);
    connect(m_window->panel(MainWindow::Panel::Open), &QAbstractButton::clicked, this, &AppDelegate::showOpenDialog);
    connect(m_window->panel(MainWindow::Panel::MoreInfo), &QAbstractButton::clicked, this,
            &AppDelegate::openSupportLink);
}

AppDelegate::~AppDelegate()
{
    NotificationCenter::defaultCenter().removeObserver(this);
    delete m_window;
}

// ---- Lifecycle ---------------------------------------------------------

void AppDelegate::applicationDidFinishLaunching()
{
    SettingsStore &settings = SettingsStore::standard();
    const qint64 interval = settings.integer(SettingKey::updateInterval, 86400);
    const QString checkForUpdatesPref = settings.switchText(SettingKey::checkUpdates);
    DW_LOG(QLatin1String("checkForUpdatesPref : ") + checkForUpdatesPref);
    UpdateChecks::configure(m_updater, double(interval), checkForUpdatesPref == QLatin1String("true"));

    m_prefs->setPreferencesViewControllers({std::make_shared<Preferences>(m_updater)});
    m_prefs->setShowToolbarWithSingleViewController(false);
    m_window->buildContent();
    DW_LOG(QLatin1String("applicationDidFinishLaunching"));

    // The settings are in place: automatic checks may begin.
    UpdateChecks::start(m_updater);
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
    m_window->menuItem(MainWindow::MenuItem::Close)->setEnabled(false);
    windowHidden();
}

void AppDelegate::applicationWillTerminate() {}

// ---- Actions -----------------------------------------------------------

void AppDelegate::showMainWindow()
{
    m_window->present();
    m_window->menuItem(MainWindow::MenuItem::Close)->setEnabled(true);
    m_tray->hide();
}

void AppDelegate::closeMainWindow()
{
    m_window->setVisible(false);
    windowHidden();
}

void AppDelegate::windowHidden()
{
    SettingsStore &settings = SettingsStore::standard();
    // Once ever: whoever has learnt it needs no telling at every close. Not
    // shown (no notifications here), it is tried again at the next close.
    if (m_tray->showIfAvailable() || settings.isOn(SettingKey::toldHowToReopen, false))
        return;
    const auto show = [self = QPointer<AppDelegate>(this)] {
        if (self)
            self->showMainWindow();
    };
    if (DesktopServices::instance().notify(QStringLiteral("Deckwright is still running"),
                                           QStringLiteral("Start Deckwright again to bring its window back."),
                                           QStringLiteral("Show Deckwright"), show)) {
        settings.setObject(SettingKey::toldHowToReopen, QStringLiteral("true"));
        settings.synchronize();
    }
}

void AppDelegate::showOpenDialog()
{
    doOpenDialog();
}

void AppDelegate::openFileMenuItem()
{
    doOpenDialog();
}

bool AppDelegate::showOutputPathDialog()
{
    return OutputFolderChooser::run(OutputFolderChooser::Batch, m_window);
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
    UpdateChecks::checkNow(m_updater, this);
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
    panel.setNameFilters({QStringLiteral("Keynote Presentations (*.key)"), QStringLiteral("All Files (*)")});
    // Where the last batch came from: decks usually live together.
    SettingsStore &settings = SettingsStore::standard();
    if (const std::optional<QString> folder = FileUrl::toPath(settings.string(SettingKey::lastBatchFolder, QString()));
        folder && QFileInfo(*folder).isDir())
        panel.setDirectory(*folder);
    if (panel.runModal(m_window) != OpenPanel::OKResponse)
        return;
    const QString first = panel.url().toLocalFile();
    if (!first.isEmpty()) {
        settings.setObject(SettingKey::lastBatchFolder,
                           FileUrl::absoluteString(QFileInfo(QDir::cleanPath(first)).absolutePath()));
        settings.synchronize();
    }
    convertBatch(panel.urls());
}

void AppDelegate::convertBatch(const QList<QUrl> &chosenFiles, const QStringList &folders)
{
    m_converting = true;
    QString printed;
    QDebug(&printed) << chosenFiles;
    DW_LOG(QLatin1String("chosenfiles ") + printed);
    DW_LOG(QLatin1String("parentDir ") + printed);

    SettingsStore &settings = SettingsStore::standard();
    // Without a folder to write into, the person chooses one or the batch is off.
    if (!OutputFolderChooser::readyForBatch(m_window) && !showOutputPathDialog()) {
        DW_LOG(QLatin1String("no output folder: batch cancelled"));
        endBatch();
        return;
    }
    QStringList prezPaths;
    for (const QUrl &url : chosenFiles)
        prezPaths.append(url.toString(QUrl::FullyEncoded));
    m_report->begin(prezPaths);

    settings.setObject(SettingKey::errorPrezzes, QStringList());
    settings.synchronize();

    // Read once: a change made while the batch runs counts from the next one.
    m_testWindow->setSkipExisting(settings.isOn(SettingKey::skipExisting, false));
    m_testWindow->beginBatch(int(chosenFiles.size()));
    for (qsizetype i = 0; i < prezPaths.size(); ++i) {
        const QString &absoluteString = prezPaths.at(i);
        DW_LOG(QLatin1String("prezPath ") + absoluteString);
        DW_LOG(QLatin1String("absoluteString ") + absoluteString);
        settings.setObject(SettingKey::prezPath, absoluteString);
        m_testWindow->setOutputSubfolder(folders.value(i));
        m_testWindow->showWindow(nullptr);
        // The person's stop ends the batch; the files after it are left as they are.
        if (m_testWindow->converter().errorOccurred() == Converter::Stopped)
            break;
    }
    m_testWindow->endBatch();

    const QStringList errorPrezzes = settings.stringList(SettingKey::errorPrezzes, {});
    DW_LOG(QLatin1String("errorPrezzes ") + QString::number(errorPrezzes.size()));
    m_report->end(errorPrezzes.size());
    // Show Details gives every rejected file with its reason, names decoded.
    if (!errorPrezzes.isEmpty())
        Alert::show(Alert::Warning, QStringLiteral("Some problems occurred."), summaryText(errorPrezzes), m_window,
                    m_report->rejectedDetails());
    endBatch();
}

void AppDelegate::endBatch()
{
    m_converting = false;
    if (!m_pendingBatches.isEmpty())
        QTimer::singleShot(0, this, &AppDelegate::runPendingBatches);
}

QIcon AppDelegate::applicationIcon()
{
    return QIcon(QStringLiteral(":/icons/deckwright.svg"));
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
    text += QStringLiteral(
        "\nThis converter will only convert Keynote 4 (iWork '08) files to Keynote 5 (iWork '09) "
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
    while (!m_converting && !m_pendingBatches.isEmpty()) {
        // Folders become the packages in them here, whichever way they came:
        // a drop, the command line or a later start.
        QStringList folders;
        const QStringList packages = PackageSearch::expand(m_pendingBatches.takeFirst(), &folders);
        if (packages.isEmpty()) {
            showNoPackagesFound();
            continue;
        }
        QList<QUrl> urls;
        for (const QString &path : packages)
            urls.append(OpenPanel::urlForPath(path, true));
        if (!SettingsStore::standard().isOn(SettingKey::keepFolders, false))
            folders.clear();
        convertBatch(urls, folders);
    }
}

void AppDelegate::showNoPackagesFound()
{
    // Requests that come while the alert is up wait for it, as they wait for a batch.
    m_converting = true;
    Alert::show(
        Alert::Warning, QStringLiteral("No Keynote packages were found."),
        QStringLiteral("Neither the folders given nor the folders in them hold a package whose name ends in .key."),
        m_window);
    m_converting = false;
}
