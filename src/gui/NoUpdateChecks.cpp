#include "gui/UpdateChecks.h"

// A build without update checks: no updater is made, so nothing is ever asked of one.

SoftwareUpdater *UpdateChecks::create(QObject *)
{
    return nullptr;
}

void UpdateChecks::configure(SoftwareUpdater *, double, bool) {}

void UpdateChecks::start(SoftwareUpdater *) {}

void UpdateChecks::checkNow(SoftwareUpdater *, QObject *) {}
