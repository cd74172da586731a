#pragma once

#include "core/FileTree.h"

#include <QString>

#include <functional>

// Copies a package into a folder of ours so that nothing can redirect the
// copy: every folder and file is opened by descriptor, relative to the open
// folder that holds it, never through a link and never off the package's own
// mount. What a package may not hold (a link, a FIFO, a device, a socket, a
// mount point, something we may not read, a path too long for the tools) is
// refused as the walk meets it, before anything of it is read. So a folder
// swapped for a link between two looks at it is either the folder, already
// open, or refused as the link it has become: a copy made through cp, which
// checks a folder and then opens it by name, could be sent into the person's
// own folders that way.
//
// The same walk, copying nothing, tells what the copy would refuse, so that
// `deckwright check` and the converter say the same about a package.
class PackageCopy
{
public:
    struct Result
    {
        QString problem; // why the package is not copied, in the converter's words; empty when it is whole
        bool stopped = false;
        FileTree::Kind kind = FileTree::Kind::Other; // of the package itself: a folder or a single file
        qint64 bytes = 0;                            // its files' sizes, added up (at most the largest qint64)
        int files = 0;
    };
    // Hears how many bytes have landed in the copy so far.
    using Progress = std::function<void(qint64 bytes)>;

    // Copies the package at packagePath (a folder, or a single file) to
    // destinationFolder + name, which must not exist yet. Folders of the copy
    // get their owner's rights to read, enter and write and files to read
    // and write, so that the tools can work in a copy of a read-only package.
    // A stop request (StopRequest) ends it early.
    static Result copy(const QString &packagePath, const QString &destinationFolder, const QString &name,
                       const Progress &progress = {});

    // The walk of copy, opening nothing for writing and copying nothing:
    // what copy would say of the package, copied to copyPath.
    static Result scan(const QString &packagePath, const QString &copyPath);

    // Why a path could not be opened, as errno tells it.
    static QString openProblem(int error);
};
