#include "core/OutputFolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {
// A group of which we are the only member: the private group each user gets
// on Debian, which leaves a person's own folders writable by their group.
bool groupOfOurOwn(gid_t gid)
{
    const passwd *me = ::getpwuid(::getuid());
    const group *found = ::getgrgid(gid);
    if (!me || !found || gid != me->pw_gid || std::strcmp(found->gr_name, me->pw_name) != 0)
        return false;
    for (char **member = found->gr_mem; *member; ++member) {
        if (std::strcmp(*member, me->pw_name) != 0)
            return false;
    }
    return true;
}

// Whether another user may rename what the folder holds: its owner may (root
// may anyway), and so may anyone who can write into it, unless the sticky
// bit keeps each entry to whoever owns it.
bool othersMayRename(const struct stat &st)
{
    if (!S_ISDIR(st.st_mode) || (st.st_uid != ::getuid() && st.st_uid != 0))
        return true;
    if (st.st_mode & S_ISVTX)
        return false;
    return (st.st_mode & S_IWOTH) || ((st.st_mode & S_IWGRP) && !groupOfOurOwn(st.st_gid));
}
} // namespace

std::shared_ptr<OutputFolder> OutputFolder::open(const QString &path)
{
    std::shared_ptr<OutputFolder> folder(new OutputFolder);
    // Links on the person's path are theirs, followed here once; the folder
    // opened is then the one the resolved path names, itself no link.
    const QFileInfo info(path);
    const QString resolved = info.canonicalFilePath();
    folder->m_path = resolved.isEmpty() ? QDir::cleanPath(info.absoluteFilePath()) : resolved;
    folder->m_fd
        = ::open(QFile::encodeName(folder->m_path).constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    folder->m_error = folder->m_fd < 0 ? errno : 0;
    return folder;
}

OutputFolder::OutputFolder(int descriptor, const QString &path)
    : m_fd(descriptor)
    , m_path(path)
{
    struct stat st = {};
    if (m_fd < 0 || ::fcntl(m_fd, F_SETFD, FD_CLOEXEC) != 0 || ::fstat(m_fd, &st) != 0 || !S_ISDIR(st.st_mode)) {
        m_error = m_fd < 0 ? EBADF : errno ? errno : ENOTDIR;
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = -1;
    }
}

OutputFolder::~OutputFolder()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

bool OutputFolder::exists() const
{
    struct stat st = {};
    return m_fd >= 0 && ::fstat(m_fd, &st) == 0 && st.st_nlink > 0;
}

qint64 OutputFolder::available() const
{
    struct statvfs fs = {};
    if (m_fd < 0 || ::fstatvfs(m_fd, &fs) != 0)
        return -1;
    return qint64(fs.f_bavail) * qint64(fs.f_frsize);
}

bool OutputFolder::anyUpward(const std::function<bool(const struct stat &, const QString &)> &visit) const
{
    struct stat st = {};
    if (m_fd < 0 || ::fstat(m_fd, &st) != 0)
        return false;
    // The path was resolved when the folder was opened: no link on the way up.
    QString path = m_path;
    for (;;) {
        if (visit(st, path))
            return true;
        const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
        if (slash < 0 || path == QLatin1String("/"))
            return false;
        path = slash == 0 ? QStringLiteral("/") : path.left(slash);
        // One that cannot be looked at counts as open to others, and as no folder we look for.
        if (::lstat(QFile::encodeName(path).constData(), &st) != 0)
            st = {};
    }
}

QString OutputFolder::openToOthersAt() const
{
    QString found;
    anyUpward([&](const struct stat &st, const QString &path) {
        if (othersMayRename(st))
            found = path;
        return !found.isEmpty();
    });
    return found;
}

bool OutputFolder::isInside(const QString &folder) const
{
    struct stat target = {};
    if (::stat(QFile::encodeName(folder).constData(), &target) != 0 || !S_ISDIR(target.st_mode))
        return false;
    return anyUpward([&](const struct stat &st, const QString &) {
        return st.st_dev == target.st_dev && st.st_ino == target.st_ino;
    });
}

std::shared_ptr<OutputFolder> OutputFolder::subfolder(const QString &relative, bool create, QString *problem) const
{
    problem->clear();
    int fd = m_fd < 0 ? -1 : ::fcntl(m_fd, F_DUPFD_CLOEXEC, 0);
    if (fd < 0) {
        *problem = QStringLiteral("could not open %1: %2").arg(m_path, QString::fromLocal8Bit(std::strerror(EBADF)));
        return nullptr;
    }
    QString path = m_path;
    for (const QString &level : relative.split(QLatin1Char('/'), Qt::SkipEmptyParts)) {
        path += QLatin1Char('/') + level;
        const QByteArray name = QFile::encodeName(level);
        int error = 0;
        int next = -1;
        // Only ever downward: a name that climbs or stays would leave the folder.
        if (level == QLatin1String(".") || level == QLatin1String("..")) {
            *problem = QStringLiteral("%1 is not a folder below the output folder").arg(path);
        } else {
            if (create && ::mkdirat(fd, name.constData(), 0777) != 0 && errno != EEXIST)
                error = errno;
            if (!error && (next = ::openat(fd, name.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)) < 0)
                error = errno;
            // Missing and not to be made yet is no problem: there is nothing in it.
            struct stat st = {};
            const bool found = next < 0 && ::fstatat(fd, name.constData(), &st, AT_SYMLINK_NOFOLLOW) == 0;
            if (next >= 0 || (error == ENOENT && !create))
                error = 0;
            else if (found && S_ISLNK(st.st_mode))
                *problem = QStringLiteral("%1 is a symbolic link").arg(path);
            else if (found && !S_ISDIR(st.st_mode))
                *problem = QStringLiteral("%1 is not a folder").arg(path);
            else
                *problem = (found ? QStringLiteral("could not open %1: %2") : QStringLiteral("could not make %1: %2"))
                               .arg(path, QString::fromLocal8Bit(std::strerror(error)));
        }
        ::close(fd);
        if (next < 0)
            return nullptr;
        fd = next;
    }
    return std::make_shared<OutputFolder>(fd, path);
}
