#pragma once

#include <QString>

// The private folder where conversions copy, unpack and zip packages.
//
// The shared temporary folder on Linux is open to every local user, who could
// plant a symbolic link or a folder under a name we are about to write into or
// remove. So the folder is $XDG_RUNTIME_DIR/deckwright/ or, without that
// variable, <temp>/deckwright-<uid>/, made with mode 0700, and used only while
// it is a real folder of ours that nobody else can enter. Otherwise a fresh
// private folder is made for this run and removed when the program ends.
class ScratchDir
{
public:
    // The folder, ending in "/". Checked again on every call.
    static QString path();

    // The preferred location, before any check.
    static QString preferredPath();
    // Whether a folder may serve as scratch: a folder (not a link), ours, closed to others.
    static bool isPrivate(const QString &folder);
};
