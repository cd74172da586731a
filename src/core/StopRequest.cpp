#include "core/StopRequest.h"

#include "system/SystemCalls.h"

#include <csignal>

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

namespace {
volatile sig_atomic_t g_converting = 0;
volatile sig_atomic_t g_stop = 0; // 1 + signal number, or 1 for the person
volatile sig_atomic_t g_childGroup = 0;
int g_pipe[2] = {-1, -1};
std::function<void()> g_beforeSignalEnds;

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
    if (g_pipe[1] >= 0) {
        const char byte = 1;
        [[maybe_unused]] const ssize_t n = ::write(g_pipe[1], &byte, 1);
    }
}
} // namespace

void StopRequest::installSignalHandlers()
{
    if (g_pipe[0] < 0 && ::pipe2(g_pipe, O_CLOEXEC | O_NONBLOCK) != 0)
        g_pipe[0] = g_pipe[1] = -1;
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0; // no SA_RESTART: a blocked copy returns and sees the stop
    for (int signalNumber : kSignals) {
        struct sigaction old = {};
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
    g_childGroup = 0;
    // A signal the converter did not get to (it came while an alert about
    // the file was open) takes effect now that the run is cleaned up.
    finishSignal();
    g_converting = 0;
    g_stop = 0; // the converter has told its outcome
}

int StopRequest::signalDescriptor()
{
    return g_pipe[0];
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
    if (g_beforeSignalEnds)
        g_beforeSignalEnds();
    std::signal(signalNumber, SIG_DFL);
    ::raise(signalNumber);
    // Blocked or ignored after all: end with the status a shell gives that signal.
    ::_exit(128 + signalNumber);
}

void StopRequest::setBeforeSignalEnds(std::function<void()> action)
{
    g_beforeSignalEnds = std::move(action);
}

void StopRequest::stopWhenParentEnds()
{
    SystemCalls::signalWhenParentEnds(SIGTERM);
}
