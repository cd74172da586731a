#include "core/DiskSpace.h"

#include <QFile>

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
    static const char *const units[] = {"KB", "MB", "GB", "TB"};
    double value = double(bytes) / 1024;
    int unit = 0;
    // Up a unit before one decimal would round to 1024.0.
    while (value >= 1023.95 && unit < 3) {
        value /= 1024;
        ++unit;
    }
    return QString::number(value, 'f', 1) + QLatin1Char(' ') + QLatin1String(units[unit]);
}
