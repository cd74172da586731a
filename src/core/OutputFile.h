#pragma once

#include <QByteArray>
#include <QString>

// The converted file on its way into the output folder. It is filled while
// it has no name (an O_TMPFILE file, or a short hidden name where the file
// system has none), flushed to disk, and only then given its name, by an
// operation that fails rather than replaces and never follows a link. So the
// folder shows the whole file or nothing, a kill leaves nothing (or, without
// O_TMPFILE, at most the hidden file, which the next run removes: it is
// locked while it is written), and nothing already there is touched.
// An archive already on the folder's file system is moved in the same way
// instead of copied.
class OutputFile
{
public:
    // Works in the open folder (OutputFolder); nothing below it is reached through a link.
    explicit OutputFile(int folderDescriptor);
    ~OutputFile(); // discards the file if it never got its name
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    enum Result { Ok, Taken, Failed, Stopped };

    // Copies the whole file at archivePath in and flushes it to disk.
    Result fill(const QString &archivePath);
    // Takes the file at archivePath itself, flushed to disk, to be moved in
    // by publish instead of copied: for a file of ours on the folder's file
    // system. Failed (EXDEV) when it lies on another one.
    Result adopt(const QString &archivePath);
    // Gives the file its name in the folder (or moves the adopted one in
    // under it). Taken: something is there already.
    Result publish(const QString &name);

    // The reason of the last failure, as the system words it.
    QString errorString() const { return m_error; }
    int errorNumber() const { return m_errno; }

    // Whether unnamed files are tried at all; tests turn them off to try
    // the hidden-name way that file systems without them get.
    static void setUnnamedFilesTried(bool tried);

    // Removes the hidden files that writes killed meanwhile left in the open
    // folder: regular files of ours named as ours are, that no live process
    // holds. Called under the folder's lock, which a write takes to make its
    // file and lock it. Returns how many.
    static int sweepStale(int folderDescriptor);

private:
    Result failed(int error);
    // Opens the file to fill: unnamed, or under a hidden name.
    bool create();
    // Renames fromName in fromFolder to target in the folder, never over anything.
    Result moveIn(int fromFolder, const QByteArray &fromName, const QByteArray &target);

    int m_folderFd = -1;
    int m_fd = -1;
    QByteArray m_hiddenName;    // empty for an unnamed file
    int m_adoptedFolderFd = -1; // the folder of an adopted file, and its name there
    QByteArray m_adoptedName;
    bool m_published = false;
    QString m_error;
    int m_errno = 0;
};
