#include "StopRequest.h"

#include <csignal>

#include <sys/types.h>
#include <unistd.h>

namespace {
volatile sig_atomic_t g_converting = 0;
volatile sig_atomic_t g_stop = 0;        // 1 + signal number, or 1 for the person
volatile sig_atomic_t g_childGroup = 0;

const int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

void killChildGroup()
{
    const pid_t group = pid_t(g_childGroup);
    if (group > 0)
        ::kill(-group, SIGKILL);
}

// Async-signal-safe: flags, kill, and the default action when idle.
void onSignal(int signalNumber)
{
    if (!g_converting) {
        std::signal(signalNumber, SIG_DFL);
        ::raise(signalNumber);
        return;
    }
    if (!g_stop)
        g_stop = 1 + signalNumber;
    killChildGroup();
}
} // namespace

void StopRequest::installSignalHandlers()
{
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0; // no SA_RESTART: a blocked copy returns and sees the stop
    for (int signalNumber : kSignals) {
        struct sigaction old {};
        // A signal someone chose to ignore (nohup) stays ignored.
        if (::sigaction(signalNumber, nullptr, &old) == 0 && old.sa_handler == SIG_IGN)
            continue;
        ::sigaction(signalNumber, &action, nullptr);
    }
}

bool StopRequest::pending()
{
    return g_stop != 0;
}

int StopRequest::signalNumber()
{
    return g_stop > 1 ? int(g_stop) - 1 : 0;
}

void StopRequest::request()
{
    if (!g_stop)
        g_stop = 1;
    killChildGroup();
}

void StopRequest::beginConversion()
{
    g_stop = 0;
    g_childGroup = 0;
    g_converting = 1;
}

void StopRequest::endConversion()
{
    g_converting = 0;
    g_childGroup = 0;
    g_stop = 0; // the converter has told its outcome
}

void StopRequest::setChildGroup(qint64 processGroup)
{
    g_childGroup = sig_atomic_t(processGroup);
    if (processGroup > 0 && g_stop)
        killChildGroup(); // the stop came just before the child started
}

void StopRequest::finishSignal()
{
    const int signalNumber = StopRequest::signalNumber();
    if (!signalNumber)
        return;
    g_stop = 0;
    std::signal(signalNumber, SIG_DFL);
    ::raise(signalNumber);
    // Blocked or ignored after all: end with the status a shell gives that signal.
    ::_exit(128 + signalNumber);
}
