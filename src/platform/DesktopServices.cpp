#include "platform/DesktopServices.h"

namespace {
DesktopServices *installedServices = nullptr;
}

DesktopServices::~DesktopServices() = default;

DesktopServices &DesktopServices::instance()
{
    if (installedServices)
        return *installedServices;
    return platformServices();
}

QString DesktopServices::actionTitle(const QString &storedAction)
{
    return storedAction;
}

void DesktopServices::setInstance(DesktopServices *services)
{
    installedServices = services;
}
