#include "core/DiskSpace.h"

#include <QFile>

#include <cerrno>
#include <cstring>
#include <limits>

#include <sys/stat.h>
#include <sys/statvfs.h>

qint64 DiskSpace::available(const QString &folder)
{
    struct statvfs fs = {};
    if (::statvfs(QFile::encodeName(folder).constData(), &fs) != 0)
        return -1;
    return qint64(fs.f_bavail) * qint64(fs.f_frsize);
}

bool DiskSpace::sameFileSystem(const QString &a, const QString &b)
{
    struct stat first = {};
    struct stat second = {};
    return ::lstat(QFile::encodeName(a).constData(), &first) == 0
           && ::lstat(QFile::encodeName(b).constData(), &second) == 0 && first.st_dev == second.st_dev;
}

QString DiskSpace::describe(qint64 bytes)
{
    if (bytes < 1024)
        return bytes == 1 ? QStringLiteral("1 byte") : QStringLiteral("%1 bytes").arg(bytes);
    static const char *const units[] = {"KB", "MB", "GB", "TB", "PB", "EB"};
    double value = double(bytes) / 1024;
    int unit = 0;
    // Up a unit before one decimal would round to 1024.0.
    while (value >= 1023.95 && unit < 5) {
        value /= 1024;
        ++unit;
    }
    return QString::number(value, 'f', 1) + QLatin1Char(' ') + QLatin1String(units[unit]);
}

qint64 DiskSpace::sum(qint64 a, qint64 b)
{
    qint64 total = 0;
    if (!qAddOverflow(a, b, &total))
        return total;
    return b > 0 ? std::numeric_limits<qint64>::max() : std::numeric_limits<qint64>::min();
}

bool DiskSpace::isFull(int error)
{
    return error == ENOSPC || error == EDQUOT;
}

bool DiskSpace::saysFull(const QByteArray &toolMessages)
{
    // The tools speak the person's language, as we do; and English when they have no translation.
    for (const int error : {ENOSPC, EDQUOT}) {
        if (toolMessages.contains(std::strerror(error)))
            return true;
    }
    return toolMessages.contains("No space left on device") || toolMessages.contains("Disk quota exceeded");
}

QString DiskSpace::fullReason(bool outputFolder)
{
    return outputFolder ? QStringLiteral("the output folder's disk is full")
                        : QStringLiteral("the scratch folder's disk is full");
}
