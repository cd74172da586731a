#include "AppDelegate.h"

#include "Alert.h"
#include "Logging.h"
#include "OpenPanel.h"
#include "OutputFolderChooser.h"
#include "ProgressBarWindowController.h"
#include "SettingsStore.h"
#include "SoftwareUpdater.h"

#include <QDebug>
#include <QUrl>

namespace {
AppDelegate *sharedDelegate = nullptr;
}

AppDelegate *AppDelegate::shared()
{
    return sharedDelegate;
}

AppDelegate::AppDelegate(QObject *parent)
    : QObject(parent)
    , m_prezPath(QStringLiteral(""))
    , m_updater(new SoftwareUpdater(this))
    , m_testWindow(std::make_unique<ProgressBarWindowController>(QStringLiteral("ProgressBarView")))
    , m_preferencesWindowController(std::make_unique<ProgressBarWindowController>())
{
    m_preferencesWindowController->window();
    sharedDelegate = this;
}

AppDelegate::~AppDelegate()
{
    if (sharedDelegate == this)
        sharedDelegate = nullptr;
}

void AppDelegate::showOpenDialog()
{
    doOpenDialog();
}

void AppDelegate::openFileMenuItem()
{
    doOpenDialog();
}

void AppDelegate::showOutputPathDialog()
{
    OutputFolderChooser::run(OutputFolderChooser::ApplicationCopy);
}

void AppDelegate::doOpenDialog()
{
    OpenPanel panel;
    panel.setPrompt(QStringLiteral("Convert"));
    panel.setWorksWhenModal(true);
    panel.setAllowsMultipleSelection(true);
    panel.setCanChooseDirectories(false);
    panel.setResolvesAliases(true);
    panel.setTitle(QStringLiteral("Choose File To Convert"));
    panel.setMessage(QStringLiteral("Locate file"));
    if (panel.runModal() != OpenPanel::OKResponse)
        return;
    convertBatch(panel.urls());
}

void AppDelegate::convertBatch(const QList<QUrl> &chosenFiles)
{
    QString printed;
    QDebug(&printed) << chosenFiles;
    DW_LOG(QLatin1String("chosenfiles ") + printed);
    DW_LOG(QLatin1String("parentDir ") + printed);

    SettingsStore &settings = SettingsStore::standard();
    if (!settings.contains(SettingKey::bookmarkData)) {
        DW_LOG(QLatin1String("need a save location"));
        showOutputPathDialog();
    }

    settings.setObject(SettingKey::errorPrezzes, QStringList());
    settings.synchronize();

    for (const QUrl &url : chosenFiles) {
        const QString absoluteString = url.toString(QUrl::FullyEncoded);
        DW_LOG(QLatin1String("prezPath ") + absoluteString);
        DW_LOG(QLatin1String("absoluteString ") + absoluteString);
        settings.setObject(SettingKey::prezPath, absoluteString);
        m_testWindow->showWindow(nullptr);
    }

    const QStringList errorPrezzes = settings.stringList(SettingKey::errorPrezzes, {});
    DW_LOG(QLatin1String("errorPrezzes ") + QString::number(errorPrezzes.size()));
    if (errorPrezzes.isEmpty())
        return;
    Alert alert;
    alert.addButton(QStringLiteral("OK"));
    alert.setMessageText(QStringLiteral("Some problems occurred."));
    alert.setInformativeText(summaryText(errorPrezzes));
    alert.runModal();
}

QString AppDelegate::summaryText(const QStringList &errorPrezzes)
{
    const qsizetype count = errorPrezzes.size();
    QString text = QStringLiteral("The following files were not Keynote files.\n\n");
    for (qsizetype i = 0; i < qMin<qsizetype>(count, 5); ++i)
        text += QStringLiteral("• ") + errorPrezzes.at(i) + QLatin1Char('\n');
    if (count > 5) {
        const qsizetype others = count - 5;
        text += QStringLiteral("• and ") + QString::number(others) + QStringLiteral(" other")
                + (others > 1 ? QStringLiteral("s") : QString()) + QStringLiteral(".\n");
    }
    text += QStringLiteral("\nThis converter will only convert Keynote 4 (iWork '08) files to Keynote 5 (iWork '09) "
                           "files. Please check the files listed and try again.");
    return text;
}
