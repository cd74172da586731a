#pragma once

#include <QByteArray>
#include <QString>

#include <functional>
#include <string>
#include <utility>
#include <vector>

// Walks and removes folder trees that may hold anything a stranger could put
// in a package: symbolic links (never followed), FIFOs, devices, names that
// are not UTF-8, folders we may not enter, nesting thousands of levels deep.
// Names are handled as the bytes the file system holds, and one folder is
// open at a time, so neither the names nor the depth can defeat it.
class FileTree
{
public:
    enum class Kind { File, Folder, Link, Fifo, Device, Socket, Other };

    struct Entry
    {
        QByteArray relativePath; // from the root of the walk, "/"-separated bytes
        Kind kind = Kind::Other;
        qint64 size = 0;            // of a file
        unsigned mode = 0;          // permission bits
        bool ours = false;          // owned by this process's user
        int folderDescriptor = -1;  // the open folder that holds the entry
        const char *name = nullptr; // its name in that folder
        bool descend = true;        // for a folder: the visitor may clear it to leave it unvisited
    };

    // Returns false to end the walk early.
    using Visitor = std::function<bool(Entry &)>;

    struct WalkResult
    {
        bool complete = true;  // every folder was read and entered, and the visitor never stopped it
        bool stopped = false;  // the visitor ended it
        int error = 0;         // errno of the first folder that could not be read
        QByteArray failedPath; // that folder, relative to the root ("" for the root)
        // Every folder that could not be read or entered, in the order met, with its errno.
        std::vector<std::pair<QByteArray, int>> unreadFolders;
    };

    // Visits every entry below the folder at rootPath, parents before their
    // contents, without following any link (the root itself included). A
    // folder already on the way down (mounted inside itself) is not entered
    // again, and a walk that finds itself elsewhere on the way up ends there. With
    // makeEnterable, folders we own but may not read, enter or write get those
    // rights for their owner first, which is how a scratch copy is made workable.
    static WalkResult walk(const QString &rootPath, const Visitor &visit, bool makeEnterable = false);

    // Removes the item at the path and, for a folder, everything in it. A link
    // is removed, never what it points to. True when nothing is left; a path
    // that does not exist counts as removed. error gets the reason otherwise.
    static bool remove(const QString &path, QString *error = nullptr);
    // The same for the item `name` in the open folder `folderDescriptor`.
    static bool removeAt(int folderDescriptor, const QByteArray &name, int *error = nullptr);
    // Empties the folder open at folderDescriptor, wherever it lies now, then
    // removes its name in the parent only if that still names this very
    // folder (same device and inode): a folder of ours renamed away and
    // replaced by a link or another folder leaves the replacement alone.
    static bool removeFolder(int parentDescriptor, const QByteArray &name, int folderDescriptor, int *error = nullptr);

    // The sizes of the regular files below the folder, added up (at most the
    // largest qint64), links not followed; of a regular file, its size.
    static qint64 bytesOfFiles(const QString &rootPath);

    // What is at the path, without following a link there; nothing there: false, errno saying why.
    static bool kindAt(const QString &path, Kind *kind, qint64 *size = nullptr);

    static QString kindName(Kind kind); // "a symbolic link", "a FIFO", ...
    static Kind kindOf(unsigned mode);  // of an lstat's st_mode

    // The names in an open folder but "." and "..", in byte order, so that
    // every walk meets a tree's entries, and its first fault, in one order.
    // The folder stays open and is read from its start.
    static bool readNames(int folderDescriptor, std::vector<std::string> *names, int *error);

    // prefix + six random letters and digits, for names we make beside others.
    static QByteArray randomName(const QByteArray &prefix);

    // Reads a regular file, never through a link. tooLarge: it holds more than maxBytes (nothing read).
    static bool readFile(const QString &path, qint64 maxBytes, QByteArray *bytes, int *error, bool *tooLarge);
    // Replaces the contents of an existing regular file, never through a link.
    static bool rewriteFile(const QString &path, const QByteArray &bytes, int *error);

private:
    // Removes everything in the open folder; the first error, 0 when all went.
    static int emptyFolder(int folderDescriptor);
};
