#pragma once

#include "widgets/ProgressIndicator.h"

#include <QElapsedTimer>
#include <QLabel>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QWidget>

#include <deque>
#include <memory>
#include <utility>

class Converter;

// Owns the small window shown while one presentation converts, and starts
// that conversion: showWindow reads the file from the setting prezPath, runs a
// fresh Converter to the end, and handles its events on the way: the bar
// advances, a rejected file is reported and recorded, a finished one gets the
// completion action the person chose.
class ProgressBarWindowController : public QObject
{
    Q_OBJECT

public:
    // With a layout name ("ProgressBarView") the window is built from that form;
    // without one it is an empty window.
    explicit ProgressBarWindowController(const QString &windowLayoutName = QString(), QObject *parent = nullptr);
    ~ProgressBarWindowController() override;

    QWidget *mainW() const { return m_mainW; }
    ProgressIndicator *progressIndy() const { return m_progressIndy; }
    QLabel *exTextField() const { return m_exTextField; }
    // The line under the bar: "600 MB of 1.5 GB · about 20 s left".
    QLabel *detailLine() const { return m_detailLine; }
    Converter &converter() const { return *m_converter; }

    // The window it belongs to (set before the window is first loaded): it
    // stays above that window and has no task bar entry of its own.
    void setParentWindow(QWidget *parent) { m_parentWindow = parent; }

    // Loads the window on first use.
    QWidget *window();
    bool isWindowLoaded() const { return m_windowLoaded; }
    // Within a batch the window closes once the next file has not taken it
    // over, so that it is shown once for the whole batch.
    void close();

    // A batch of fileCount files: the title counts them ("Converting 2 of 5").
    void beginBatch(int fileCount);
    // Where the next file goes below the output folder ("2008/Misc"; empty: into it).
    void setOutputSubfolder(const QString &relative) { m_subfolder = relative; }
    // Whether a file whose name its folder already holds is taken as converted
    // before: nothing to do, so no alert and no entry in errorPrezzes.
    void setSkipExisting(bool on) { m_skipExisting = on; }
    // Closes the window for good.
    void endBatch();

    // The person's stop (the Stop button, Escape, the close button): the
    // file under way is undone and the batch goes no further.
    void stop();

    // The file-system path of a URL text such as file:///Users/a/My%20Talk.key/.
    static QString convertFileUrlToPath(const QString &urlText);
    // The name shown for a prezPath: its last "/" piece, percent escapes undone.
    static QString displayName(const QString &prezPath);
    // The line under the bar; secondsLeft < 0: no estimate yet.
    static QString detailText(qint64 doneBytes, qint64 totalBytes, double secondsLeft);

    virtual void showWindow(QObject *sender);

    virtual void moveProgressBar();
    // Within the copy or the zip: the bar moves in proportion, never past
    // where that stage's progress event will put it.
    virtual void moveWithinStage();
    // Where the bar stands, from 0 to 1, after this many progress events and
    // this share of the stage after them. Each step weighs its share of the
    // time: the copy and the zip by the package's bytes, the others alike.
    static double fileShare(int events, double stageShare, qint64 packageBytes);
    virtual void finishedWithErrorNotKeynoteFour();
    virtual void saveErrorPrez(const QString &name);
    virtual void finishedWithErrorNotKeynote();
    virtual void finishedConversion();

protected:
    virtual void awakeFromNib();
    virtual void windowWillLoad();
    virtual void loadWindow();
    virtual void windowDidLoad();
    virtual std::unique_ptr<Converter> makeConverter(const QString &prezOrigPath);

    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void rejectCurrentFile();
    void closeNow();
    void waitUntilShown();
    void reportRejectedFile(const QString &name, qint64 code, const QString &reason);
    ProgressIndicator *requiredProgressIndy() const;
    void showProgress(double share);
    double secondsLeft(double share);
    QLabel *requiredExTextField() const;

    QString m_windowLayoutName;
    QPointer<QWidget> m_mainW;
    std::unique_ptr<Converter> m_converter;
    QPointer<ProgressIndicator> m_progressIndy;
    QPointer<QLabel> m_exTextField;
    QPointer<QLabel> m_detailLine;
    QPointer<QWidget> m_parentWindow;
    bool m_windowLoaded = false;
    bool m_placed = false;
    int m_events = 0; // progress events of the file under way
    // When the bar stood where, over the last few seconds: the pace of the time left.
    QElapsedTimer m_clock;
    std::deque<std::pair<qint64, double>> m_pace;
    QString m_subfolder;
    bool m_skipExisting = false;
    int m_batchSize = 0;
    int m_batchPosition = 0;
    bool m_converting = false;
    bool m_closePending = false;
    bool m_closingItself = false;
};
