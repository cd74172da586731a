#pragma once

#include <QObject>
#include <QString>

#include <memory>

class ProgressBarWindowController;
class SoftwareUpdater;

// Owns what the person sees first and drives the batch: the open dialog, the
// output folder chooser, one conversion after another through the progress
// window, and the summary of the files that were turned down.
class AppDelegate : public QObject
{
    Q_OBJECT

public:
    explicit AppDelegate(QObject *parent = nullptr);
    ~AppDelegate() override;

    // The application's delegate, while one exists.
    static AppDelegate *shared();

    SoftwareUpdater *updater() const { return m_updater; }
    ProgressBarWindowController *testWindow() const { return m_testWindow.get(); }
    ProgressBarWindowController *preferencesWindowController() const { return m_preferencesWindowController.get(); }

    // The batch: pick packages, make sure there is an output folder, convert each, sum up.
    void doOpenDialog();
    // Converts the given URLs as one batch, as if chosen in the open dialog.
    void convertBatch(const QList<QUrl> &urls);
    void showOutputPathDialog();

    // The informative text of the summary alert for these rejected names.
    static QString summaryText(const QStringList &errorPrezzes);

public Q_SLOTS:
    void showOpenDialog();
    void openFileMenuItem();

private:
    QString m_prezPath;
    SoftwareUpdater *m_updater = nullptr;
    std::unique_ptr<ProgressBarWindowController> m_testWindow;
    std::unique_ptr<ProgressBarWindowController> m_preferencesWindowController;
};
