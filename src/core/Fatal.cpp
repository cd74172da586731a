#include "core/Fatal.h"

#include <QByteArray>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {
Fatal::Handler &alertHandler()
{
    static Fatal::Handler handler;
    return handler;
}

Fatal::Handler &terminator()
{
    static Fatal::Handler handler;
    return handler;
}

std::vector<std::function<void()>> &cleanups()
{
    static std::vector<std::function<void()>> list;
    return list;
}
} // namespace

void Fatal::fail(const QString &reason)
{
    if (terminator())
        terminator()(reason); // a test's terminator does not return

    const QByteArray text = "deckwright: fatal: " + reason.toUtf8() + '\n';
    std::fwrite(text.constData(), 1, size_t(text.size()), stderr);
    std::fflush(stderr);
    if (alertHandler()) {
        // Guard against a fatal condition raised while the alert itself is shown.
        Handler alert = std::move(alertHandler());
        alertHandler() = nullptr;
        alert(reason);
    }
    for (auto &cleanup : cleanups())
        cleanup();
    std::fflush(stdout);
    std::_Exit(exitStatus);
}

void Fatal::setAlertHandler(Handler handler)
{
    alertHandler() = std::move(handler);
}

void Fatal::setTerminator(Handler handler)
{
    terminator() = std::move(handler);
}

void Fatal::addCleanup(std::function<void()> cleanup)
{
    cleanups().push_back(std::move(cleanup));
}
