#include "widgets/TextTable.h"

#include <QApplication>
#include <QClipboard>
#include <QHeaderView>
#include <QKeyEvent>

#include <algorithm>

namespace {
QString escapedCell(QString text)
{
    return text.replace(QLatin1Char('\t'), QLatin1String("\\t"))
        .replace(QLatin1Char('\n'), QLatin1String("\\n"))
        .replace(QLatin1Char('\r'), QLatin1String("\\r"));
}
} // namespace

TextTable::TextTable(const QStringList &headers, QWidget *parent)
    : QTableWidget(0, int(headers.size()), parent)
{
    setHorizontalHeaderLabels(headers);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setAlternatingRowColors(true);
    setWordWrap(false);
    setTabKeyNavigation(false); // Tab leaves the table for the next control
    verticalHeader()->hide();
    horizontalHeader()->setStretchLastSection(true);
    horizontalHeader()->setHighlightSections(false);
    connect(this, &QAbstractItemView::activated, this, [this](const QModelIndex &index) {
        if (index.isValid())
            Q_EMIT rowActivated(index.row());
    });
}

void TextTable::addRow(const QStringList &cells, const QStringList &toolTips)
{
    const int row = rowCount();
    insertRow(row);
    for (int column = 0; column < columnCount(); ++column) {
        auto *item = new QTableWidgetItem(cells.value(column));
        item->setToolTip(toolTips.value(column));
        setItem(row, column, item);
    }
}

QString TextTable::textOf(const QList<int> &rows) const
{
    QStringList line;
    for (int column = 0; column < columnCount(); ++column)
        line.append(escapedCell(horizontalHeaderItem(column)->text()));
    QString text = line.join(QLatin1Char('\t')) + QLatin1Char('\n');
    for (const int row : rows) {
        line.clear();
        for (int column = 0; column < columnCount(); ++column)
            line.append(escapedCell(item(row, column) ? item(row, column)->text() : QString()));
        text += line.join(QLatin1Char('\t')) + QLatin1Char('\n');
    }
    return text;
}

QString TextTable::text() const
{
    QList<int> rows;
    for (int row = 0; row < rowCount(); ++row)
        rows.append(row);
    return textOf(rows);
}

QString TextTable::selectedText() const
{
    QList<int> rows;
    for (const QModelIndex &index : selectionModel()->selectedRows())
        rows.append(index.row());
    std::sort(rows.begin(), rows.end());
    return textOf(rows);
}

void TextTable::copy() const
{
    QApplication::clipboard()->setText(selectionModel()->hasSelection() ? selectedText() : text());
}

void TextTable::keyPressEvent(QKeyEvent *event)
{
    if (event == QKeySequence::Copy) {
        copy();
        return;
    }
    QTableWidget::keyPressEvent(event);
}
