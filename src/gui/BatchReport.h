#pragma once

#include <QObject>
#include <QPointer>
#include <QString>

class MainWindow;

// What a batch leaves on screen once it is over: a status line in the main
// window ("3 presentations converted, 1 skipped · Show in Files") and, when
// the person is looking elsewhere, a desktop notification saying the same.
// Only files really written into the output folder count as converted.
class BatchReport : public QObject
{
    Q_OBJECT

public:
    explicit BatchReport(MainWindow *window, QObject *parent = nullptr);
    ~BatchReport() override;

    // Starts counting the files the batch converts.
    void begin();
    // Stops counting and shows the result; skipped is the number of rejected files.
    void end(qsizetype skipped);

    static QString text(int converted, qsizetype skipped);

    // How long after a batch the notification is decided: the progress window
    // has just closed, and the desktop hands the focus back in its own time.
    static constexpr int notificationDelay = 1000;

private:
    bool mainWindowInView() const;
    void revealShownFile() const;

    QPointer<MainWindow> m_window;
    int m_converted = 0;
    QString m_lastFile;
    QString m_lastFolder;
    QString m_shownFile; // what the status line's link reveals
    QString m_shownFolder;
};
