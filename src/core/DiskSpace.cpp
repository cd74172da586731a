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
    constexpr double kilo = 1000.0;
    if (bytes < kilo * kilo)
        return QStringLiteral("%1 KB").arg(qMax<qint64>(1, qint64(bytes / kilo + 0.5)));
    if (bytes < kilo * kilo * kilo)
        return QStringLiteral("%1 MB").arg(qint64(bytes / (kilo * kilo) + 0.5));
    return QStringLiteral("%1 GB").arg(bytes / (kilo * kilo * kilo), 0, 'f', 1);
}
