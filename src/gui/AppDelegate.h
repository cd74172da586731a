#pragma once

#include "gui/MainWindow.h"

#include <QIcon>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <memory>

class BatchReport;
class TrayIcon;
class PreferencesWindowController;
class ProgressBarWindowController;
class SoftwareUpdater;

// The application's delegate: owns the main window, the progress window
// controller, the preferences window controller and the updater; answers the
// lifecycle calls and the menus; drives the batch from the open dialog to the
// summary.
class AppDelegate : public QObject
{
    Q_OBJECT

public:
    explicit AppDelegate(QObject *parent = nullptr);
    ~AppDelegate() override;

    MainWindow *window() const { return m_window; }
    // None in a build without update checks.
    SoftwareUpdater *updater() const { return m_updater; }

    ProgressBarWindowController *testWindow() const { return m_testWindow.get(); }
    PreferencesWindowController *prefs() const { return m_prefs.get(); }
    TrayIcon *tray() const { return m_tray; }
    BatchReport *report() const { return m_report; }
    // Kept by the name it has always had, though it is a second progress window's controller.
    ProgressBarWindowController *preferencesWindowController() const { return m_preferencesWindowController.get(); }

    // Lifecycle.
    void applicationDidFinishLaunching();
    bool applicationShouldHandleReopen(bool hasVisibleWindows);
    void windowWillClose();
    void applicationWillTerminate();

    // The batch: pick packages, make sure there is an output folder, convert each, sum up.
    void doOpenDialog();
    // Converts the given URLs as one batch, as if chosen in the open dialog;
    // folders, in step with them, are the subfolders of the output folder
    // they go to (none for a file from the open dialog).
    void convertBatch(const QList<QUrl> &urls, const QStringList &folders = {});
    // Packages and folders handed over by a drop, the command line or a later
    // start; queued while a batch runs, folders searched when their turn comes.
    void openPackages(const QStringList &paths);
    bool isConverting() const { return m_converting; }
    // Asks for the output folder; returns whether one was chosen.
    bool showOutputPathDialog();
    void doOpenSupportLink();
    void doOpenWebsite();

    // The icon every window shows unless it has its own.
    static QIcon applicationIcon();

    // The informative text of the summary alert for these rejected names.
    static QString summaryText(const QStringList &errorPrezzes);

    // The developers' message-only log of the delegate; emits nothing.
    void DLog(const QString &message) { Q_UNUSED(message) }

public Q_SLOTS:
    void showMainWindow();
    void closeMainWindow();
    void showOpenDialog();
    void openFileMenuItem();
    void showPreferencesPane();
    void showPreferencesPaneFromButton();
    void showProgressBar();
    void openSupportMenuItem();
    void openSupportLink();
    void openWebsiteMenuItem();
    void clickOnPreferencesText();
    void checkForUpdatesMenuItem();
    void showAboutPanel();

private:
    void runPendingBatches();
    void showNoPackagesFound();
    // Lets the next queued batch start.
    void endBatch();
    // The main window went out of sight: the tray icon leads back to it, or
    // where there is no tray a notification tells once how to bring it back.
    void windowHidden();

    QPointer<MainWindow> m_window;
    SoftwareUpdater *m_updater = nullptr;
    QString m_prezPath;
    std::unique_ptr<ProgressBarWindowController> m_testWindow;
    std::unique_ptr<PreferencesWindowController> m_prefs;
    std::unique_ptr<ProgressBarWindowController> m_preferencesWindowController;
    bool m_converting = false;
    QList<QStringList> m_pendingBatches;
    BatchReport *m_report = nullptr;
    TrayIcon *m_tray = nullptr;
};
