#pragma once

#include <QByteArray>
#include <QString>

// The converted file on its way into the output folder. It is filled while
// it has no name (an O_TMPFILE file, or a short hidden name where the file
// system has none), flushed to disk, and only then given its name, by an
// operation that fails rather than replaces and never follows a link. So the
// folder shows the whole file or nothing, a kill leaves nothing (or, without
// O_TMPFILE, at most the hidden file), and nothing already there is touched.
class OutputFile
{
public:
    // Opens the folder; a link in the folder's own path is followed (the
    // person chose that path), nothing below it is.
    explicit OutputFile(const QString &folder);
    ~OutputFile(); // discards the file if it never got its name
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    enum Result { Ok, Taken, Failed, Stopped };

    // Copies the whole file at archivePath in and flushes it to disk.
    Result fill(const QString &archivePath);
    // Gives the file its name in the folder. Taken: something is there already.
    Result publish(const QString &name);

    // The reason of the last failure, as the system words it.
    QString errorString() const { return m_error; }

    // Whether unnamed files are tried at all; tests turn them off to try
    // the hidden-name way that file systems without them get.
    static void setUnnamedFilesTried(bool tried);

private:
    Result failed(int error);

    int m_folderFd = -1;
    int m_fd = -1;
    QByteArray m_hiddenName; // empty for an unnamed file
    bool m_published = false;
    QString m_error;
};
