#pragma once

#include <QDialog>
#include <QList>
#include <QString>
#include <QWidget>

class QLabel;
class QPushButton;
class TextTable;

// What became of one file of a batch.
struct BatchResult
{
    // AlreadyDone: skipping files converted before, its name was there already.
    enum Outcome { Converted, Skipped, Failed, Stopped, NotReached, AlreadyDone };
    QString name; // the package's name, escapes undone
    QString path; // the package
    Outcome outcome = NotReached;
    QString outputPath;    // the file written, or found there when already done
    QString subfolder;     // where that is below the output folder, when its folders were kept
    bool numbered = false; // its name was taken, so it got a number
    QString reason;

    static QString outcomeText(Outcome outcome);
    // "Talk.1.key (numbered)", "2008/Talk.key"; empty when there is no such file.
    QString outputText() const;
    // A converted file to open: written now, or found from before.
    bool canOpen() const { return outcome == Converted || outcome == AlreadyDone; }
};

// The results of the last batch, file by file: its outcome, the name it was
// saved under and why it was not converted. A row is shown in the file
// manager (the converted file, or the package that was not) or opened; the
// whole list is copied as text. A dialog to a screen reader, and Escape closes it.
class ResultsWindow : public QDialog
{
    Q_OBJECT

public:
    explicit ResultsWindow(QWidget *parent = nullptr);

    // summary: a line above the list, such as the batch's status line.
    void setResults(const QString &summary, const QList<BatchResult> &results);
    const QList<BatchResult> &results() const { return m_results; }
    TextTable *table() const { return m_table; }

    // On the selected row, as its buttons do.
    void revealSelected();
    void openSelected();
    void copyAll() const;

protected:
    void showEvent(QShowEvent *event) override;

private:
    void updateButtons();
    const BatchResult *selected() const;

    QList<BatchResult> m_results;
    QLabel *m_summary = nullptr;
    TextTable *m_table = nullptr;
    QPushButton *m_reveal = nullptr;
    QPushButton *m_open = nullptr;
    bool m_placed = false;
};
