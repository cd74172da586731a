#include "cli/Usage.h"

#include <QCoreApplication>
#include <QFileDevice>
#include <QString>
#include <QTextStream>

#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <unistd.h>

int usageError(QTextStream &err, const QString &command, const QString &reason)
{
    const QString program = command.isEmpty() ? QStringLiteral("deckwright") : QStringLiteral("deckwright ") + command;
    err << program << ": " << reason << "\n"
        << "Try '" << program << " --help' for more information.\n";
    err.flush();
    return 2;
}

QString versionText()
{
    return QStringLiteral("Deckwright %1\n").arg(QCoreApplication::applicationVersion());
}

bool printLine(QTextStream &out, const QString &line)
{
    if (out.status() != QTextStream::Ok)
        return false;
    out << line << '\n';
    out.flush();
    return out.status() == QTextStream::Ok;
}

int outputError(QTextStream &err, const QString &command, const QTextStream &out)
{
    const auto *device = qobject_cast<const QFileDevice *>(out.device());
    err << "deckwright " << command << ": could not write to standard output ("
        << (device ? device->errorString() : QStringLiteral("the write failed")) << ")\n";
    err.flush();
    return 3;
}

void prepareStandardStreams()
{
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (::fcntl(descriptor, F_GETFD) >= 0 || errno != EBADF)
            continue;
        const int held = ::open("/dev/null", descriptor == STDERR_FILENO ? O_WRONLY : O_RDONLY);
        if (held >= 0 && held != descriptor) {
            ::dup2(held, descriptor);
            ::close(held);
        }
    }
    std::signal(SIGPIPE, SIG_IGN);
}
