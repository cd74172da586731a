#include "DesktopServices.h"

// The one place that picks the platform's services.
#if defined(Q_OS_LINUX) || defined(Q_OS_FREEBSD) || defined(Q_OS_NETBSD) || defined(Q_OS_OPENBSD)
#include "FreedesktopDesktopServices.h"
using PlatformDesktopServices = FreedesktopDesktopServices;
#else
#include "GenericDesktopServices.h"
using PlatformDesktopServices = GenericDesktopServices;
#endif

namespace {
DesktopServices *installedServices = nullptr;
}

DesktopServices::~DesktopServices() = default;

DesktopServices &DesktopServices::instance()
{
    if (installedServices)
        return *installedServices;
    static PlatformDesktopServices platformServices;
    return platformServices;
}

void DesktopServices::setInstance(DesktopServices *services)
{
    installedServices = services;
}
