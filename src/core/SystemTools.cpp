#include "core/SystemTools.h"

#include <QFile>

#include <cerrno>
#include <cstring>

#include <unistd.h>

QString SystemTools::problem(const QString &path)
{
    if (::access(QFile::encodeName(path).constData(), X_OK) == 0)
        return QString();
    if (errno == ENOENT || errno == ENOTDIR)
        return QStringLiteral("the tool %1 is not installed").arg(path);
    return QStringLiteral("the tool %1 cannot be run (%2)").arg(path, QString::fromLocal8Bit(std::strerror(errno)));
}

QString SystemTools::conversionProblem()
{
    for (const QString &tool : {gunzip(), zip(), mv()}) {
        const QString why = problem(tool);
        if (!why.isEmpty())
            return why;
    }
    return QString();
}
