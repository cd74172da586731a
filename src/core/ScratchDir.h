#pragma once

#include <QString>

// The private folder that holds the conversions' run folders (ScratchRun).
//
// The shared temporary folder on Linux is open to every local user, who could
// plant a symbolic link or a folder under a name we are about to write into or
// remove. So the folder is $XDG_RUNTIME_DIR/deckwright/ or, without that
// variable, <temp>/deckwright-<uid>/ (<temp> is $TMPDIR, or /tmp where that
// names no folder: never the root), made with mode 0700, and used only while
// it is a real folder of ours that nobody else can enter. When something else
// holds that name, it is left alone and the next free name is used instead
// (deckwright-1, deckwright-2, ...), a folder of ours like the first.
class ScratchDir
{
public:
    // The folder, ending in "/"; empty when no private folder can be had.
    // Checked again on every call.
    static QString path();

    // The preferred location, before any check.
    static QString preferredPath();
    // Whether a folder may serve as scratch: the folder itself (never a link
    // to one), ours, closed to others.
    static bool isPrivate(const QString &folder);
    // The same test on an open folder.
    static bool isPrivate(int folderDescriptor);
    // Whether the item at the path, a link not followed, is a socket of ours.
    // If not, otherwise says what is there instead ("it is a folder", "it
    // belongs to another user", ...), and is left empty when nothing is.
    static bool isOwnSocket(const QString &path, QString *otherwise);
};
