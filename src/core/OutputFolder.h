#pragma once

#include <QString>

#include <functional>
#include <memory>

struct stat;

// The output folder, opened once when a conversion (or a batch of them)
// starts: the path the person gave is resolved there, a link they made on it
// followed once, and from then on every name in the folder is looked up,
// written and linked relative to the folder itself. Moving the folder away
// and putting a link in its place meanwhile redirects nothing; the folder is
// named by the path it was opened at.
class OutputFolder
{
public:
    // Resolves and opens the folder at path; see isOpen.
    static std::shared_ptr<OutputFolder> open(const QString &path);
    // A folder already open (handed down by the process that opened it),
    // named path. Takes the descriptor, and keeps it from the tools we start.
    OutputFolder(int descriptor, const QString &path);
    ~OutputFolder();
    OutputFolder(const OutputFolder &) = delete;
    OutputFolder &operator=(const OutputFolder &) = delete;

    bool isOpen() const { return m_fd >= 0; }
    // Why it could not be opened (errno).
    int error() const { return m_error; }
    int descriptor() const { return m_fd; }
    // The folder as it was opened, no link in it, no "/" at the end.
    QString path() const { return m_path; }

    // Whether it still has a name: a folder removed meanwhile has none.
    bool exists() const;
    // Bytes an unprivileged writer may still use on its disk; -1 when it cannot be told.
    qint64 available() const;
    // The first folder, from this one up to "/", in which another user may
    // rename (and so replace) what we put there; empty when there is none.
    QString openToOthersAt() const;
    // Whether the folder at this path, however it is reached (a link, a bind
    // mount, another name), is this one or one of the folders above it.
    bool isInside(const QString &folder) const;

    // The folder at relative ("2008/Misc") below this one, each level opened
    // from the one above it and never through a link, so nothing put in the
    // way can send a file elsewhere. With create, the levels missing are made
    // (0777 less the person's umask). None when it cannot be had: problem
    // says why ("OUT/2008 is a symbolic link"), or is empty when a level is
    // missing and create is false.
    std::shared_ptr<OutputFolder> subfolder(const QString &relative, bool create, QString *problem) const;

private:
    OutputFolder() = default;
    // Calls visit with this folder, then with each one above it up to "/",
    // until visit returns true; whether one did.
    bool anyUpward(const std::function<bool(const struct stat &, const QString &)> &visit) const;

    int m_fd = -1;
    int m_error = 0;
    QString m_path;
};
