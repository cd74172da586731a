#include "gui/ResultsWindow.h"

#include "platform/DesktopServices.h"
#include "widgets/TextTable.h"

#include <QApplication>
#include <QClipboard>
#include <QDialogButtonBox>
#include <QFileInfo>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include <algorithm>

QString BatchResult::outcomeText(Outcome outcome)
{
    switch (outcome) {
    case Converted:
        return QStringLiteral("Converted");
    case Skipped:
        return QStringLiteral("Skipped");
    case Failed:
        return QStringLiteral("Failed");
    case Stopped:
        return QStringLiteral("Stopped");
    case AlreadyDone:
        return QStringLiteral("Already converted");
    case NotReached:
        break;
    }
    return QStringLiteral("Not converted");
}

QString BatchResult::outputText() const
{
    if (outputPath.isEmpty())
        return QString();
    const QString name = QFileInfo(outputPath).fileName();
    return (subfolder.isEmpty() ? name : subfolder + QLatin1Char('/') + name)
           + (numbered ? QStringLiteral(" (numbered)") : QString());
}

ResultsWindow::ResultsWindow(QWidget *parent)
    : QDialog(parent, Qt::Window)
{
    setWindowTitle(QStringLiteral("Results"));
    setAttribute(Qt::WA_QuitOnClose, false);
    auto *layout = new QVBoxLayout(this);
    m_summary = new QLabel(this);
    m_summary->setTextFormat(Qt::PlainText);
    m_summary->setObjectName(QStringLiteral("summary"));
    layout->addWidget(m_summary);

    m_table = new TextTable(
        {QStringLiteral("File"), QStringLiteral("Outcome"), QStringLiteral("Saved As"), QStringLiteral("Reason")},
        this);
    m_table->setAccessibleName(QStringLiteral("Results of the last batch"));
    m_table->horizontalHeader()->setSectionResizeMode(QHeaderView::Interactive);
    m_table->horizontalHeader()->setStretchLastSection(true);
    m_summary->setBuddy(m_table);
    layout->addWidget(m_table);

    auto *buttons = new QDialogButtonBox(this);
    m_reveal = buttons->addButton(QLatin1Char('&')
                                      + DesktopServices::instance().actionTitle(QStringLiteral("Show in Finder")),
                                  QDialogButtonBox::ActionRole);
    m_open = buttons->addButton(QStringLiteral("&Open"), QDialogButtonBox::ActionRole);
    QPushButton *copy = buttons->addButton(QStringLiteral("&Copy All"), QDialogButtonBox::ActionRole);
    QPushButton *close = buttons->addButton(QDialogButtonBox::Close);
    m_reveal->setAccessibleDescription(QStringLiteral("Shows the selected file in the file manager"));
    m_open->setAccessibleDescription(QStringLiteral("Opens the selected converted file"));
    copy->setAccessibleDescription(QStringLiteral("Copies the whole list as text"));
    for (QPushButton *button : {m_reveal, m_open, copy})
        button->setAutoDefault(false);
    layout->addWidget(buttons);

    connect(m_reveal, &QPushButton::clicked, this, &ResultsWindow::revealSelected);
    connect(m_open, &QPushButton::clicked, this, &ResultsWindow::openSelected);
    connect(copy, &QPushButton::clicked, this, &ResultsWindow::copyAll);
    connect(close, &QPushButton::clicked, this, &QWidget::close);
    connect(m_table, &QTableWidget::itemSelectionChanged, this, &ResultsWindow::updateButtons);
    // Enter or a double click opens a converted file and shows any other.
    connect(m_table, &TextTable::rowActivated, this, [this](int) {
        const BatchResult *result = selected();
        if (result && result->canOpen())
            openSelected();
        else
            revealSelected();
    });
    resize(760, 360);
    updateButtons();
}

void ResultsWindow::setResults(const QString &summary, const QList<BatchResult> &results)
{
    // The row in hand stays in hand as rows are added; the first one otherwise, for the keyboard.
    const int current = std::max(0, m_table->currentRowIndex());
    m_results = results;
    m_summary->setText(summary);
    m_table->clearRows();
    for (const BatchResult &result : results)
        m_table->addRow({result.name, BatchResult::outcomeText(result.outcome), result.outputText(), result.reason},
                        {result.path, QString(), result.outputPath, result.reason});
    // The reason takes the room that is left.
    for (int column = 0; column + 1 < m_table->columnCount(); ++column)
        m_table->resizeColumnToContents(column);
    if (current < m_table->rowCount())
        m_table->selectRow(current);
    updateButtons();
}

void ResultsWindow::showEvent(QShowEvent *event)
{
    // Centred on the main window the first time; afterwards where the person left it.
    if (!m_placed && parentWidget()) {
        m_placed = true;
        move(parentWidget()->frameGeometry().center() - rect().center());
    }
    QDialog::showEvent(event);
}

const BatchResult *ResultsWindow::selected() const
{
    const int row = m_table->currentRowIndex();
    if (row < 0 || row >= m_results.size() || !m_table->selectionModel()->isRowSelected(row, QModelIndex()))
        return nullptr;
    return &m_results.at(row);
}

void ResultsWindow::updateButtons()
{
    const BatchResult *result = selected();
    m_reveal->setEnabled(result);
    m_open->setEnabled(result && result->canOpen());
}

void ResultsWindow::revealSelected()
{
    // The converted file, or the package itself when nothing was written.
    if (const BatchResult *result = selected()) {
        const QString path = result->outputPath.isEmpty() ? result->path : result->outputPath;
        DesktopServices::instance().revealFile(path, QFileInfo(path).absolutePath());
    }
}

void ResultsWindow::openSelected()
{
    const BatchResult *result = selected();
    if (result && result->canOpen())
        DesktopServices::instance().openFile(result->outputPath, QStringLiteral("Keynote"));
}

void ResultsWindow::copyAll() const
{
    QApplication::clipboard()->setText(m_table->text());
}
