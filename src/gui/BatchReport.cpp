#include "gui/BatchReport.h"

#include "core/ConversionEvents.h"
#include "core/Converter.h"
#include "core/FileUrl.h"
#include "core/NotificationCenter.h"
#include "core/SettingsStore.h"
#include "gui/MainWindow.h"
#include "platform/DesktopServices.h"

#include <QApplication>
#include <QDir>
#include <QTimer>

BatchReport::BatchReport(MainWindow *window, QObject *parent)
    : QObject(parent)
    , m_window(window)
{
    connect(window, &MainWindow::statusLinkActivated, this, &BatchReport::revealShownFile);
}

BatchReport::~BatchReport()
{
    NotificationCenter::defaultCenter().removeObserver(this);
}

void BatchReport::begin()
{
    m_converted = 0;
    NotificationCenter::defaultCenter().addObserver(
        this, ConversionEvents::finished, [this](const Notification &event) {
            if (!event.object || event.object->errorOccurred() != Converter::NoError)
                return;
            ++m_converted;
            const QString outputPath = SettingsStore::standard().string(SettingKey::outputPath, QString());
            m_lastFolder = FileUrl::toPath(outputPath).value_or(QString());
            m_lastFile = QDir(m_lastFolder).filePath(event.object->outputPrezName());
        });
}

void BatchReport::end(qsizetype skipped)
{
    NotificationCenter::defaultCenter().removeObserver(this, ConversionEvents::finished);
    if (!m_window)
        return;
    if (m_converted == 0) {
        m_window->clearStatus();
        return;
    }
    m_shownFile = m_lastFile;
    m_shownFolder = m_lastFolder;
    const QString summary = text(m_converted, skipped);
    const QString showInFiles = QStringLiteral("Show in Files");
    m_window->showStatus(summary, showInFiles);
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

bool BatchReport::mainWindowInView() const
{
    // The window on screen and the program in front; an alert or the next
    // file's progress window in front of it is as good.
    return m_window && m_window->isVisible() && !m_window->isMinimized() && QApplication::activeWindow();
}

void BatchReport::revealShownFile() const
{
    DesktopServices::instance().revealFile(m_shownFile, m_shownFolder);
}
