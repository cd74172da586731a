#pragma once

#include <QString>

// What a Keynote '08 package may hold, checked without trusting it. Keynote
// writes only folders and regular files into a package; anything else (a
// symbolic link, a FIFO, a device, a socket) could make the tools read or
// write outside it, or wait forever, so such a package is refused.
class PackageScan
{
public:
    struct Result
    {
        QString problem;  // empty: only folders and regular files
        qint64 bytes = 0; // the files' sizes, added up
        int files = 0;
    };

    // Scans a copy of ours. Its folders get the owner's rights to read,
    // enter and write, so that the tools can work in a copy of a read-only
    // package (from a disk image, a CD, a share).
    static Result scanCopy(const QString &copyPath);

    // Scans the package itself, changing nothing in it and opening nothing
    // for writing, and finds what whyNotCopied and scanCopy would find, in
    // that order, about a copy of it made at copyPath.
    static Result scanInPlace(const QString &packagePath, const QString &copyPath);

    // Why a copy of the package came out incomplete: the first file or
    // folder in it that cannot be read, or a path too long to copy to
    // destinationPath. Empty when nothing there explains it.
    static QString whyNotCopied(const QString &packagePath, const QString &destinationPath);

    // Whether a link target, read from a link at relativePath inside the
    // package, names something outside the package (absolute, or climbing out with "..").
    static bool pointsOutside(const QByteArray &relativePath, const QByteArray &target);

    // A name or path inside a package, as a person reads it; long ones shortened.
    static QString displayPath(const QByteArray &relativePath);
};
