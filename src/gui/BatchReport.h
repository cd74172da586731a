#pragma once

#include "gui/ResultsWindow.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>

class Converter;
class MainWindow;

// What a batch leaves on screen: a status line in the main window ("3
// presentations converted, 1 skipped · Show in Files · Show Results", or
// after a stop "Stopped: 3 converted, 24 not converted · Show Results"), the
// results of every file (ResultsWindow, filled as the files are done and kept
// until the next batch) and, when the person is looking elsewhere, a desktop
// notification. Only files really written into the output folder count as
// converted; files found converted before are counted apart ("…, 2 already
// converted").
class BatchReport : public QObject
{
    Q_OBJECT

public:
    explicit BatchReport(MainWindow *window, QObject *parent = nullptr);
    ~BatchReport() override;

    // A batch of these files (their URL texts, as prezPath holds them)
    // begins: the old status line goes, and each file's outcome is recorded
    // as it is told.
    void begin(const QStringList &prezPaths = {});
    // Stops recording and shows the result; skipped is the number of rejected
    // files. Files the batch did not reach (after a stop) are listed as not converted.
    void end(qsizetype skipped);

    static QString text(int converted, qsizetype skipped);

    const QList<BatchResult> &results() const { return m_results; }
    // Every file that was skipped or failed, one a line with its reason.
    QString rejectedDetails() const;
    // The window of results, made on first use.
    ResultsWindow *resultsWindow();
    void showResults();

    // How long after a batch the notification is decided: the progress window
    // has just closed, and the desktop hands the focus back in its own time.
    static constexpr int notificationDelay = 1000;

private:
    void record(Converter *converter);
    void refreshResults();
    bool mainWindowInView() const;
    void followStatusLink(const QString &link);
    void revealShownFile() const;

    QPointer<MainWindow> m_window;
    QPointer<ResultsWindow> m_resultsWindow;
    QStringList m_batch; // the URL texts of the batch under way
    QList<BatchResult> m_results;
    QString m_summary;
    int m_converted = 0;
    int m_alreadyDone = 0; // skipping files converted before: found there
    QString m_lastFile;
    QString m_lastFolder;
    QString m_shownFile; // what the status line's link reveals
    QString m_shownFolder;
};
