#include "gui/SoftwareUpdateDialog.h"

#include "gui/Alert.h"
#include "gui/BuildConfig.h"
#include "platform/DesktopServices.h"

#include <QWidget>

namespace {
const QString productName = QStringLiteral("Deckwright");

// The alerts belong to the window of the control that asked, if any.
QWidget *windowOf(QObject *sender)
{
    QWidget *widget = qobject_cast<QWidget *>(sender);
    return widget ? widget->window() : nullptr;
}
} // namespace

SoftwareUpdateDialog::SoftwareUpdateDialog(SoftwareUpdater *updater, QObject *parent)
    : QObject(parent ? parent : updater)
    , m_updater(updater)
{
    // Direct, so that the check is still running while its alert is open.
    connect(updater, &SoftwareUpdater::answerReady, this, &SoftwareUpdateDialog::show, Qt::DirectConnection);
}

void SoftwareUpdateDialog::show(const SoftwareUpdater::Answer &answer)
{
    QWidget *parent = windowOf(answer.sender);
    switch (answer.result) {
    case SoftwareUpdater::UpdateAvailable:
        showUpdateAvailable(answer.item, parent);
        break;
    case SoftwareUpdater::UpToDate:
        if (answer.userInitiated)
            showUpToDate(parent);
        break;
    case SoftwareUpdater::NetworkError:
    case SoftwareUpdater::FeedError:
        if (answer.userInitiated)
            showError(answer.problem, parent);
        break;
    }
}

void SoftwareUpdateDialog::showUpdateAvailable(const SoftwareUpdater::FeedItem &item, QWidget *parent)
{
    Alert alert;
    alert.setStyle(Alert::Informational);
    alert.setParent(parent);
    alert.setMessageText(QStringLiteral("A new version of %1 is available!").arg(productName));
    alert.setInformativeText(QStringLiteral("%1 %2 is now available (you have %3). Would you like to download it now?")
                                 .arg(productName, item.version, m_updater->currentVersion()));
    alert.addButton(QStringLiteral("Download"));
    alert.addButton(QStringLiteral("Remind Me Later"));
    if (alert.runModal() != Alert::firstButtonReturn)
        return;
    // An item without a page of its own still leads somewhere useful.
    const QUrl page = item.pageUrl.isEmpty() ? QUrl(QString::fromUtf8(BuildConfig::websiteUrl)) : item.pageUrl;
    DesktopServices::instance().openUrl(page);
}

void SoftwareUpdateDialog::showUpToDate(QWidget *parent)
{
    Alert::show(Alert::Informational, QStringLiteral("You're up to date."),
                QStringLiteral("%1 %2 is currently the newest version available.")
                    .arg(productName, m_updater->currentVersion()),
                parent);
}

void SoftwareUpdateDialog::showError(const QString &problem, QWidget *parent)
{
    Alert::show(Alert::Warning, QStringLiteral("%1 couldn't check for updates.").arg(productName), problem, parent);
}
