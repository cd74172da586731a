#pragma once

#include <QStringList>
#include <QTableWidget>

// A read-only table of text, row by row, that can be copied as text: the
// selected rows with Ctrl+C, or all of them, each a line of tab-separated
// cells under a line of headers, ready for a spreadsheet or a message. A cell
// holding a tab or a line break is copied with it escaped (\t, \n, \r), so
// that no cell can make a line of its own. Enter or a double click activates
// the current row.
class TextTable : public QTableWidget
{
    Q_OBJECT

public:
    explicit TextTable(const QStringList &headers, QWidget *parent = nullptr);

    // Adds a row at the end; toolTips, where given, go with the cells.
    void addRow(const QStringList &cells, const QStringList &toolTips = {});
    void clearRows() { setRowCount(0); }

    // The headers and every row; selectedText: the headers and the selected rows.
    QString text() const;
    QString selectedText() const;
    // Puts text(), or selectedText() when rows are selected, on the clipboard.
    void copy() const;

    // The row of the current cell; -1 when none.
    int currentRowIndex() const { return currentIndex().isValid() ? currentIndex().row() : -1; }

Q_SIGNALS:
    void rowActivated(int row);

protected:
    void keyPressEvent(QKeyEvent *event) override;

private:
    QString textOf(const QList<int> &rows) const;
};
