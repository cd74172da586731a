#pragma once

#include <QString>

// Room on the disks a conversion works on, asked before any byte is copied,
// so that a package too large for the scratch folder is placed elsewhere or
// refused with its reason instead of failing after minutes of work.
class DiskSpace
{
public:
    // Bytes an unprivileged writer may still use on the file system that
    // holds the folder; -1 when it cannot be told.
    static qint64 available(const QString &folder);
    // Whether two existing paths lie on one file system, so that a rename
    // between them moves the file without copying it.
    static bool sameFileSystem(const QString &a, const QString &b);
    // "1.4 GB", "820.0 MB", "12.4 KB", "17 bytes": for messages, in units of 1024.
    static QString describe(qint64 bytes);
};
