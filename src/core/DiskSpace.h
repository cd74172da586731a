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

    // Sizes added up, stopping at the largest qint64: what a stranger's
    // sparse files add up to must not wrap round to a size that fits.
    static qint64 sum(qint64 a, qint64 b);

    // Whether a failed write means that the disk (or its owner's share of it) is full.
    static bool isFull(int error);
    // Whether a tool's messages (zip's on its standard output) say so.
    static bool saysFull(const QByteArray &toolMessages);
    // The reason a conversion gives when the disk it works on filled up: the
    // scratch folder's, or the output folder's for a run placed there.
    static QString fullReason(bool outputFolder = false);
};
