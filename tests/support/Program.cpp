#include "support/Program.h"

#include <QtCore>

#include <csignal>

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

Program::Program(const QString &folder)
    : env(QProcessEnvironment::systemEnvironment())
    , m_folder(folder)
{
    QDir().mkpath(runtime());
    ::chmod(QFile::encodeName(runtime()).constData(), 0700);
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime());
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), config());
    // As on a server: a mistake must be a usage error, never an attempt at a window.
    for (const char *name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
        env.remove(QString::fromLatin1(name));
}

QStringList Program::deckwright(const QStringList &arguments)
{
    return QStringList{QStringLiteral(DECKWRIGHT_BINARY)} + arguments;
}

bool Program::canRunAsNobody()
{
    return ::geteuid() != 0
           || (!QStandardPaths::findExecutable(QStringLiteral("setpriv")).isEmpty() && ::getpwnam("nobody")
               && ::getgrnam("nogroup"));
}

const char *Program::whyNotAsNobody()
{
    return "root reads everything: running as someone else needs setpriv, the user nobody and the group nogroup";
}

bool Program::giveToNobody(const QString &path)
{
    const passwd *user = ::getpwnam("nobody");
    const group *nogroup = ::getgrnam("nogroup");
    return ::geteuid() != 0
           || (user && nogroup && ::lchown(QFile::encodeName(path).constData(), user->pw_uid, nogroup->gr_gid) == 0);
}

std::unique_ptr<QProcess> Program::start(const QStringList &command, As as) const
{
    QStringList line = command;
    if (as == Nobody && ::geteuid() == 0)
        line = QStringList{QStringLiteral("setpriv"), QStringLiteral("--reuid=nobody"),
                           QStringLiteral("--regid=nogroup"), QStringLiteral("--clear-groups")}
               + command;
    auto process = std::make_unique<QProcess>();
    process->setProcessEnvironment(env);
    process->setWorkingDirectory(workingFolder);
    // A group of its own, as a shell starts a job: a hang goes away whole.
    process->setChildProcessModifier([] { ::setpgid(0, 0); });
    process->start(line.first(), line.mid(1));
    process->waitForStarted();
    return process;
}

Finished Program::run(const QStringList &command, As as, int limitMs) const
{
    return finish(*start(command, as), limitMs);
}

Finished Program::finish(QProcess &process, int limitMs)
{
    Finished result;
    if (!(result.ended = process.waitForFinished(limitMs)) && process.processId() > 0) {
        ::kill(-pid_t(process.processId()), SIGKILL);
        process.waitForFinished(10000);
    }
    const bool exited = result.ended && process.exitStatus() == QProcess::NormalExit;
    (exited ? result.status : result.signal) = result.ended ? process.exitCode() : 0;
    result.out = process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    return result;
}

bool Program::sh(const QString &script, const QString &folder, const QMap<QString, QString> &variables)
{
    QProcess shell;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (auto it = variables.begin(); it != variables.end(); ++it)
        env.insert(it.key(), it.value());
    shell.setProcessEnvironment(env);
    shell.setWorkingDirectory(folder);
    shell.start(QStringLiteral("sh"), {QStringLiteral("-ec"), script});
    if (shell.waitForFinished(-1) && shell.exitStatus() == QProcess::NormalExit && shell.exitCode() == 0)
        return true;
    qWarning("%s: %s", qPrintable(script), shell.readAllStandardError().constData());
    return false;
}

bool Program::waitUntil(QProcess &process, const std::function<bool()> &condition)
{
    QElapsedTimer waited;
    waited.start();
    while (!condition()) {
        if (waited.elapsed() > 240000 || process.waitForFinished(20))
            return condition();
    }
    return true;
}

QList<RunningProcess> Program::mentioning(const QByteArray &text)
{
    QList<RunningProcess> found;
    for (const QString &pid : QDir(QStringLiteral("/proc")).entryList({QStringLiteral("[0-9]*")}, QDir::Dirs)) {
        QFile cmdline(QStringLiteral("/proc/%1/cmdline").arg(pid)), stat(QStringLiteral("/proc/%1/stat").arg(pid));
        const QByteArray line = cmdline.open(QIODevice::ReadOnly) ? cmdline.readAll() : QByteArray();
        if (pid.toLongLong() == ::getpid() || !line.contains(text) || !stat.open(QIODevice::ReadOnly))
            continue;
        // The state and the parent follow the name in parentheses.
        const QByteArray fields = stat.readAll();
        const QString exe = QFile::symLinkTarget(QStringLiteral("/proc/%1/exe").arg(pid));
        found.append({pid.toLongLong(), fields.mid(fields.lastIndexOf(')') + 2).split(' ').value(1).toLongLong(),
                      QFileInfo(exe).fileName(), line});
    }
    return found;
}

QList<RunningProcess> Program::leftovers() const
{
    QElapsedTimer waited;
    for (waited.start(); !mentioning(QFile::encodeName(m_folder)).isEmpty() && waited.elapsed() < 60000;)
        QThread::msleep(50);
    return mentioning(QFile::encodeName(m_folder));
}
