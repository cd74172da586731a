#include "gui/BatchReport.h"

#include "core/ConversionEvents.h"
#include "core/Converter.h"
#include "core/FileUrl.h"
#include "core/FileUtils.h"
#include "core/NotificationCenter.h"
#include "core/SettingsStore.h"
#include "gui/MainWindow.h"
#include "platform/DesktopServices.h"

#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QTimer>

namespace {
const QString kShowResults = QStringLiteral("Show Results");

BatchResult::Outcome outcomeOf(qint64 code)
{
    switch (code) {
    case Converter::NoError:
        return BatchResult::Converted;
    case Converter::Stopped:
        return BatchResult::Stopped;
    case Converter::OutputNotWritten:
        return BatchResult::Failed;
    case Converter::AlreadyDone:
        return BatchResult::AlreadyDone;
    default:
        return BatchResult::Skipped;
    }
}

// The name of a URL text's last piece, escapes undone where they can be.
QString decodedName(const QString &urlText)
{
    const QString name = FileUtils::lastPathPiece(urlText);
    return FileUrl::removingPercentEncoding(name).value_or(name);
}
} // namespace

BatchReport::BatchReport(MainWindow *window, QObject *parent)
    : QObject(parent)
    , m_window(window)
{
    connect(window, &MainWindow::statusLinkActivated, this, &BatchReport::followStatusLink);
}

BatchReport::~BatchReport()
{
    NotificationCenter::defaultCenter().removeObserver(this);
    delete m_resultsWindow;
}

void BatchReport::begin(const QStringList &prezPaths)
{
    m_converted = 0;
    m_alreadyDone = 0;
    m_batch = prezPaths;
    m_results.clear();
    // What the line said was about the last batch.
    if (m_window)
        m_window->clearStatus();
    refreshResults();
    NotificationCenter &center = NotificationCenter::defaultCenter();
    for (const QString &event : {ConversionEvents::finished, ConversionEvents::finishedWithErrorNotKeynote,
                                 ConversionEvents::finishedWithErrorNotKeynoteFour})
        center.addObserver(this, event, [this](const Notification &told) { record(told.object); });
}

void BatchReport::record(Converter *converter)
{
    if (!converter)
        return;
    const QString prezPath = SettingsStore::standard().string(SettingKey::prezPath, QString());
    BatchResult result;
    result.name = decodedName(prezPath);
    result.path = FileUrl::toPath(prezPath).value_or(converter->prezOrigPath());
    result.outcome = outcomeOf(converter->errorOccurred());
    result.reason = converter->errorReason();
    if (result.outcome == BatchResult::Converted || result.outcome == BatchResult::AlreadyDone) {
        const QString outputPath = SettingsStore::standard().string(SettingKey::outputPath, QString());
        result.subfolder = converter->outputSubfolder();
        QDir folder(FileUrl::toPath(outputPath).value_or(QString()));
        if (!result.subfolder.isEmpty())
            folder.setPath(folder.filePath(result.subfolder));
        result.outputPath = folder.filePath(converter->outputPrezName());
    }
    if (result.outcome == BatchResult::AlreadyDone)
        ++m_alreadyDone;
    if (result.outcome == BatchResult::Converted) {
        ++m_converted;
        m_lastFolder = QFileInfo(result.outputPath).path();
        m_lastFile = result.outputPath;
        // Named after the package the converter copied, a link's target included.
        result.numbered = converter->outputPrezName() != FileUtils(converter->prezOrigPath()).getPrezName();
    }
    m_results.append(result);
    refreshResults();
}

void BatchReport::end(qsizetype skipped)
{
    NotificationCenter::defaultCenter().removeObserver(this);
    bool stopped = false;
    for (const BatchResult &result : std::as_const(m_results))
        stopped = stopped || result.outcome == BatchResult::Stopped;
    for (qsizetype i = m_results.size(); i < m_batch.size(); ++i) {
        BatchResult result;
        result.name = decodedName(m_batch.at(i));
        result.path = FileUrl::toPath(m_batch.at(i)).value_or(QString());
        result.reason = QStringLiteral("the batch was stopped before this file");
        m_results.append(result);
    }
    m_batch.clear();
    const QString alreadyDone = m_alreadyDone ? QStringLiteral(", %1 already converted").arg(m_alreadyDone) : QString();
    m_summary = stopped ? QStringLiteral("Stopped: %1 converted%2, %3 not converted")
                              .arg(m_converted)
                              .arg(alreadyDone)
                              .arg(m_results.size() - m_converted - m_alreadyDone)
                        : text(m_converted, skipped) + alreadyDone;
    refreshResults();
    if (!m_window)
        return;
    if (m_window->menuItem(MainWindow::MenuItem::Results))
        m_window->menuItem(MainWindow::MenuItem::Results)->setEnabled(!m_results.isEmpty());
    if (m_results.isEmpty()) {
        m_window->clearStatus();
        return;
    }
    // After a stop the person is at the window, and has seen what was converted as it went.
    if (stopped || m_converted == 0) {
        m_window->showStatus(m_summary, {kShowResults});
        return;
    }
    m_shownFile = m_lastFile;
    m_shownFolder = m_lastFolder;
    const QString summary = m_summary;
    // The reveal in the desktop's words, as the completion action names it.
    const QString showInFiles = DesktopServices::instance().actionTitle(QStringLiteral("Show in Finder"));
    m_window->showStatus(summary, {showInFiles, kShowResults});
    QTimer::singleShot(
        notificationDelay, this, [this, summary, showInFiles, file = m_shownFile, folder = m_shownFolder] {
            if (mainWindowInView())
                return;
            DesktopServices::instance().notify(QStringLiteral("Deckwright"), summary, showInFiles, [file, folder] {
                DesktopServices::instance().revealFile(file, folder);
            });
        });
}

QString BatchReport::text(int converted, qsizetype skipped)
{
    QString text
        = QString::number(converted)
          + (converted == 1 ? QStringLiteral(" presentation converted") : QStringLiteral(" presentations converted"));
    if (skipped > 0)
        text += QStringLiteral(", %1 skipped").arg(skipped);
    return text;
}

QString BatchReport::rejectedDetails() const
{
    QString details;
    for (const BatchResult &result : m_results) {
        if (result.outcome == BatchResult::Skipped || result.outcome == BatchResult::Failed)
            details += result.name + QStringLiteral(": ") + result.reason + QLatin1Char('\n');
    }
    details.chop(1);
    return details;
}

ResultsWindow *BatchReport::resultsWindow()
{
    if (!m_resultsWindow) {
        m_resultsWindow = new ResultsWindow(m_window);
        refreshResults();
    }
    return m_resultsWindow;
}

void BatchReport::showResults()
{
    ResultsWindow *window = resultsWindow();
    window->show();
    window->raise();
    window->activateWindow();
}

void BatchReport::refreshResults()
{
    if (!m_resultsWindow)
        return;
    // While a batch runs, those done so far.
    const QString summary = m_batch.isEmpty()
                                ? m_summary
                                : QStringLiteral("Converting: %1 of %2 done").arg(m_results.size()).arg(m_batch.size());
    m_resultsWindow->setResults(summary, m_results);
}

bool BatchReport::mainWindowInView() const
{
    // The window on screen and the program in front; an alert or the next
    // file's progress window in front of it is as good.
    return m_window && m_window->isVisible() && !m_window->isMinimized() && QApplication::activeWindow();
}

void BatchReport::followStatusLink(const QString &link)
{
    if (link == kShowResults)
        showResults();
    else
        revealShownFile();
}

void BatchReport::revealShownFile() const
{
    DesktopServices::instance().revealFile(m_shownFile, m_shownFolder);
}
