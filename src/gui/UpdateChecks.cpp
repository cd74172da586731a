#include "gui/UpdateChecks.h"

#include "gui/SoftwareUpdateDialog.h"
#include "gui/SoftwareUpdater.h"

SoftwareUpdater *UpdateChecks::create(QObject *parent)
{
    auto *updater = new SoftwareUpdater(parent);
    new SoftwareUpdateDialog(updater);
    return updater;
}

void UpdateChecks::configure(SoftwareUpdater *updater, double interval, bool automatic)
{
    updater->setUpdateCheckInterval(interval);
    updater->setAutomaticallyChecksForUpdates(automatic);
}

void UpdateChecks::start(SoftwareUpdater *updater)
{
    updater->start();
}

void UpdateChecks::checkNow(SoftwareUpdater *updater, QObject *sender)
{
    updater->checkForUpdates(sender);
}
