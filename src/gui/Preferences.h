#pragma once

#include "widgets/PreferencesWindowControllerProtocol.h"

#include <QIcon>
#include <QObject>
#include <QPointer>
#include <QScopedPointer>
#include <QString>
#include <QWidget>

class SoftwareUpdater;

namespace Ui {
class Preferences;
}

// The General pane of the preferences window: what happens when a file is
// done, the sound, reporting refused files, update checks, the output folder
// and how a batch fills it (subfolders kept, files converted before skipped). Every control writes straight into the
// settings store and synchronises it; the pane keeps no state of its own. Its view comes from the form "Preferences"
// and is built, and filled from the store, the first time it is needed.
class Preferences : public QObject, public PreferencesWindowControllerProtocol
{
    Q_OBJECT

public:
    // updater runs the checks that "check now" asks for; without one (a build
    // without update checks) the pane shows no update controls.
    explicit Preferences(SoftwareUpdater *updater, QObject *parent = nullptr);
    ~Preferences() override;

    // The pane's view; loads it (and runs viewDidLoad) on the first call.
    QWidget *preferenceView() override;
    QString preferenceIdentifier() const override;
    QString preferenceTitle() const override;
    // The desktop theme's Bluetooth icon, looked up on every call.
    QIcon preferenceIcon() const override;

    bool isViewLoaded() const { return m_viewLoaded; }

    // The form's controls, once the view is loaded; null before that.
    Ui::Preferences *ui() const { return m_ui.data(); }

    // Titles the output folder button after the last piece of outputPath,
    // marked "(missing)" with a warning icon when the folder is gone; its tool
    // tip gives the whole path.
    virtual void updatePathButton();

public Q_SLOTS:
    // The actions; each takes the control that sent it.
    virtual void pickedCompletionAction(QObject *sender);
    virtual void pickedIntervalAction(QObject *sender);
    virtual void pickedArchiveLayout(QObject *sender);
    virtual void soundCheckBox(QObject *sender);
    virtual void checkStopForErrorsAction(QObject *sender);
    virtual void checkKeepFoldersAction(QObject *sender);
    virtual void checkSkipExistingAction(QObject *sender);
    virtual void checkUpdatesAction(QObject *sender);
    virtual void checkForUpdates(QObject *sender);
    virtual void showOutputPathDialog(QObject *sender);

protected:
    // Refreshes the output folder button each time the pane is shown.
    bool eventFilter(QObject *watched, QEvent *event) override;
    // Builds the view from the form.
    virtual void loadView();
    // Fills the controls from the store.
    virtual void viewDidLoad();

private:
    // Leaves the update rows out of the view, for a build without update checks.
    void hideUpdateControls(QWidget *view);
    // Shows the stored update interval in its combo box.
    void showInterval();
    void connectActions();
    // The shape every check box action shares: its state stored as "true" or
    // "false" under key, between the action's own log lines.
    void storeCheckBox(QObject *sender, const char *action, const QString &key, const QString &firstLine,
                       const QString &onLine, const QString &offLine);

    SoftwareUpdater *m_updater;
    bool m_viewLoaded = false;
    QPointer<QWidget> m_view;
    QScopedPointer<Ui::Preferences> m_ui;
    QIcon m_folderIcon;
    QString m_chooseToolTip;
};
