#include "core/ChildProcess.h"

#include "core/StopRequest.h"
#include "core/Waiting.h"
#include "system/SystemCalls.h"

#include <QEventLoop>
#include <QProcess>
#include <QTimer>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {
constexpr int kStartAttempts = 60; // about a minute

// Qt tells why a start failed only in words: the system's own words for a
// shortage that passes as other work ends (processes, open files, memory).
bool isPassingShortage(const QString &why)
{
    for (const int error : {EAGAIN, ENOMEM, ENFILE}) {
        if (why.contains(QString::fromLocal8Bit(std::strerror(error))))
            return true;
    }
    return false;
}

// Waits a while before another try; a stop ends the wait.
void pause(int milliseconds)
{
    if (Waiting::keepsEventsTurning()) {
        QEventLoop loop;
        QTimer::singleShot(milliseconds, &loop, &QEventLoop::quit);
        loop.exec();
    } else {
        pollfd stop = {StopRequest::signalDescriptor(), POLLIN, 0};
        ::poll(&stop, stop.fd >= 0 ? 1 : 0, milliseconds);
    }
}
} // namespace

QProcessEnvironment ChildProcess::toolEnvironment()
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const char *name : {"ZIPOPT", "ZIP", "GZIP", "UNZIP", "UNZIPOPT"})
        environment.remove(QLatin1String(name));
    return environment;
}

ChildProcess::Result ChildProcess::run(const QString &program, const QStringList &arguments, qint64 fileSizeLimit,
                                       const Watcher &watcher, const QString &workingDirectory)
{
    Result result;
    QProcess process;
    process.setProgram(program);
    process.setArguments(arguments);
    process.setProcessEnvironment(toolEnvironment());
    process.setStandardInputFile(QProcess::nullDevice());
    if (!workingDirectory.isEmpty())
        process.setWorkingDirectory(workingDirectory);
    const pid_t parent = ::getpid();
    process.setChildProcessModifier([parent, fileSizeLimit] {
        // Runs in the child between fork and exec: async-signal-safe calls only.
        ::setpgid(0, 0);
        // The command ignores SIGPIPE for itself; a tool gets the usual behaviour.
        ::signal(SIGPIPE, SIG_DFL);
        if (!SystemCalls::dieWithParent(parent))
            ::_exit(127);
        if (fileSizeLimit > 0) {
            rlimit limit = {};
            limit.rlim_cur = limit.rlim_max = rlim_t(fileSizeLimit);
            ::setrlimit(RLIMIT_FSIZE, &limit);
        }
    });
    // A tool that could not start for want of the machine's resources is
    // tried again for a while: the shortage is no fault of the package.
    for (int attempt = 0;; ++attempt) {
        process.start(QIODevice::ReadOnly);
        if (process.waitForStarted(-1))
            break;
        if (attempt + 1 >= kStartAttempts || StopRequest::pending() || !isPassingShortage(process.errorString()))
            return result;
        pause(std::min(1000, 20 << std::min(attempt, 6)));
    }
    result.started = true;
    StopRequest::setChildGroup(process.processId());
    // Both streams are drained while waiting, so a chatty standard error cannot stall the child.
    const auto watch = [&] {
        result.standardOutput += process.readAllStandardOutput();
        if (watcher)
            watcher(result.standardOutput, process.processId());
    };
    if (Waiting::keepsEventsTurning()) {
        // The window keeps painting; a stop kills the child, which ends the wait.
        QEventLoop loop;
        QTimer ticks;
        QObject::connect(&process, &QProcess::finished, &loop, &QEventLoop::quit);
        QObject::connect(&process, &QProcess::readyReadStandardOutput, &loop, watch);
        QObject::connect(&ticks, &QTimer::timeout, &loop, watch);
        ticks.start(watchInterval);
        if (process.state() != QProcess::NotRunning)
            loop.exec();
    } else if (watcher) {
        while (!process.waitForFinished(watchInterval) && process.state() != QProcess::NotRunning)
            watch();
    } else {
        process.waitForFinished(-1);
    }
    StopRequest::setChildGroup(0);
    result.crashed = process.exitStatus() == QProcess::CrashExit;
    result.exitCode = process.exitCode();
    result.standardOutput += process.readAllStandardOutput();
    result.standardError = process.readAllStandardError();
    return result;
}
