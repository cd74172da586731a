#pragma once

#include "widgets/PreferencesWindowControllerProtocol.h"

#include <QCheckBox>
#include <QComboBox>
#include <QObject>
#include <QPointer>
#include <QPushButton>
#include <QString>
#include <QWidget>

// The General pane of the preferences window: what happens when a file is
// done, the sound, reporting refused files, update checks and the output
// folder. Every control writes straight into the settings store and
// synchronises it; the pane keeps no state of its own. Its view comes from the
// form "Preferences" and is built, and filled from the store, the first time
// it is needed.
class Preferences : public QObject, public PreferencesWindowControllerProtocol
{
    Q_OBJECT

public:
    explicit Preferences(QObject *parent = nullptr);
    ~Preferences() override;

    // The pane's view; loads it (and runs viewDidLoad) on the first call.
    QWidget *preferenceView() override;
    QString preferenceIdentifier() const override;
    QString preferenceTitle() const override;
    // The desktop theme's Bluetooth icon, looked up on every call.
    QIcon preferenceIcon() const override;

    bool isViewLoaded() const { return m_viewLoaded; }

    // Outlets, set when the form is loaded; null before that.
    QComboBox *finishedActionCombo() const { return m_finishedActionCombo; }
    QComboBox *intervalCombo() const { return m_intervalCombo; }
    QCheckBox *checkForUpdatesBox() const { return m_checkForUpdates; }
    QCheckBox *stopForErrorsBox() const { return m_stopForErrors; }
    QPushButton *outputPathChooserButton() const { return m_outputPathChooserButton; }
    QCheckBox *sendSoundButton() const { return m_sendSoundButton; }
    QPushButton *checkNowButton() const { return m_checkNowButton; }

    // Titles the output folder button after the last piece of outputPath.
    virtual void updatePathButton();

public Q_SLOTS:
    // The actions; each takes the control that sent it.
    virtual void pickedCompletionAction(QObject *sender);
    virtual void pickedIntervalAction(QObject *sender);
    virtual void soundCheckBox(QObject *sender);
    virtual void checkStopForErrorsAction(QObject *sender);
    virtual void checkUpdatesAction(QObject *sender);
    virtual void checkForUpdates(QObject *sender);
    virtual void showOutputPathDialog(QObject *sender);

protected:
    // Builds the view from the form and sets the outlets.
    virtual void loadView();
    // Fills the controls from the store.
    virtual void viewDidLoad();

private:
    void connectActions();

    bool m_viewLoaded = false;
    QPointer<QWidget> m_view;
    QPointer<QComboBox> m_finishedActionCombo;
    QPointer<QComboBox> m_intervalCombo;
    QPointer<QCheckBox> m_checkForUpdates;
    QPointer<QCheckBox> m_stopForErrors;
    QPointer<QPushButton> m_outputPathChooserButton;
    QPointer<QCheckBox> m_sendSoundButton;
    QPointer<QPushButton> m_checkNowButton;
};
