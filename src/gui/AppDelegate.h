#pragma once

#include "gui/MainWindow.h"
#include "widgets/PanelButton.h"

#include <QAction>
#include <QLabel>
#include <QList>
#include <QObject>
#include <QPushButton>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <memory>

class PreferencesWindowController;
class ProgressBarWindowController;
class SoftwareUpdater;

// The application's delegate: owns the main window, the progress window
// controller, the preferences window controller and the updater; answers the
// lifecycle calls; drives the batch from the open dialog to the summary.
class AppDelegate : public QObject
{
    Q_OBJECT

public:
    explicit AppDelegate(QObject *parent = nullptr);
    ~AppDelegate() override;

    // The application's delegate, while one exists.
    static AppDelegate *shared();

    // Outlets, from the main window's form.
    MainWindow *window() const { return m_window; }
    QPushButton *openButton() const { return m_openButton; }
    QLabel *preferencesLabel() const { return m_preferencesLabel; }
    PanelButton *preferencesButton() const { return m_preferencesButton; }
    PanelButton *openFileButton() const { return m_openFileButton; }
    PanelButton *moreInfoButton() const { return m_moreInfoButton; }
    QLabel *backgroundImage() const { return m_backgroundImage; }
    QAction *closeMenuItem() const { return m_closeMenuItem; }
    SoftwareUpdater *updater() const { return m_updater; }

    ProgressBarWindowController *testWindow() const { return m_testWindow.get(); }
    PreferencesWindowController *prefs() const { return m_prefs.get(); }
    ProgressBarWindowController *preferencesWindowController() const { return m_preferencesWindowController.get(); }

    // Lifecycle.
    void applicationDidFinishLaunching();
    bool applicationShouldHandleReopen(bool hasVisibleWindows);
    void windowWillClose();
    void applicationWillTerminate();

    // The batch: pick packages, make sure there is an output folder, convert each, sum up.
    void doOpenDialog();
    // Converts the given URLs as one batch, as if chosen in the open dialog.
    void convertBatch(const QList<QUrl> &urls);
    // Packages handed over from the command line or a later start; queued while a batch runs.
    void openPackages(const QStringList &paths);
    bool isConverting() const { return m_converting; }
    void showOutputPathDialog();
    void doOpenSupportLink();
    void doOpenWebsite();

    // The informative text of the summary alert for these rejected names.
    static QString summaryText(const QStringList &errorPrezzes);

    // The main window's panels.
    QLabel *makeHeaderLabel(const QString &text);
    QLabel *makeBodyTextLabel(const QString &text);
    QLabel *makeImageFromPath(const QString &filePath);
    void mouseEntered(const QPointF &globalPosition);
    void mouseExited();

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

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void buildPanel(PanelButton *panel, const QString &header, const QString &body, const QString &icon);
    void runPendingBatches();

    QPointer<MainWindow> m_window;
    QPointer<QPushButton> m_openButton;
    QPointer<QLabel> m_preferencesLabel;
    QPointer<PanelButton> m_preferencesButton;
    QPointer<PanelButton> m_openFileButton;
    QPointer<PanelButton> m_moreInfoButton;
    QPointer<QLabel> m_backgroundImage;
    QPointer<QAction> m_closeMenuItem;
    SoftwareUpdater *m_updater = nullptr;
    QString m_prezPath;
    std::unique_ptr<ProgressBarWindowController> m_testWindow;
    std::unique_ptr<PreferencesWindowController> m_prefs;
    std::unique_ptr<ProgressBarWindowController> m_preferencesWindowController;
    QPointer<QLabel> m_preferencesHeaderLabel;
    bool m_converting = false;
    bool m_windowPlaced = false;
    QList<QStringList> m_pendingBatches;
};
