#pragma once

#include <QString>

#include <functional>

// The one way a fatal condition ends the process: a value the program requires
// and does not find. The cause is named, written to standard error, shown in a
// critical alert when a window system is up, and the process ends.
class Fatal
{
public:
    using Handler = std::function<void(const QString &reason)>;

    [[noreturn]] static void fail(const QString &reason);

    // Shows the cause to a person; installed by the desktop application.
    static void setAlertHandler(Handler handler);
    // Replaces the ending itself. Tests install one that unwinds instead of exiting.
    static void setTerminator(Handler terminator);
    // Work that must still happen before the process ends (removing scratch folders).
    static void addCleanup(std::function<void()> cleanup);

    // An outlet a form must connect: its absence is a broken build, not something to work around.
    template <typename T>
    static T *requireOutlet(T *outlet, const QString &owner, const char *name)
    {
        if (!outlet)
            fail(QStringLiteral("the %1's %2 is not connected").arg(owner, QLatin1String(name)));
        return outlet;
    }

    static constexpr int exitStatus = 70;
};
