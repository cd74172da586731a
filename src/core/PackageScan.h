#pragma once

#include "core/FileTree.h"

#include <QString>

// What a Keynote '08 package may hold, and how a refusal names what it found.
// Keynote writes only folders and regular files into a package; anything
// else (a symbolic link, a FIFO, a device, a socket) could make the tools
// read or write outside it, or wait forever, so such a package is refused.
// PackageCopy meets the entries; this says what is wrong with them.
class PackageScan
{
public:
    // Why a package may not hold an entry of this kind at relativePath;
    // empty for files and folders. A link's target is read from the entry
    // `name` in the open folder `folderDescriptor`.
    static QString kindProblem(FileTree::Kind kind, int folderDescriptor, const char *name,
                               const QByteArray &relativePath);

    // Whether a link target, read from a link at relativePath inside the
    // package, names something outside the package (absolute, or climbing out with "..").
    static bool pointsOutside(const QByteArray &relativePath, const QByteArray &target);

    // A name or path inside a package, as a person reads it; long ones
    // shortened in the middle, between two characters as a person sees them.
    static QString displayPath(const QByteArray &relativePath);
};
