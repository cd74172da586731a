#include "core/OutputFile.h"

#include "core/FileTree.h"
#include "core/KernelFileCopy.h"
#include "system/SystemCalls.h"

#include <QFile>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
constexpr mode_t kMode = 0644; // narrowed by the person's umask, as any new file

bool g_unnamedFilesTried = true;

constexpr char kHiddenPrefix[] = ".dw-";

// The name a hidden file of ours has: the prefix and six letters or digits.
bool isHiddenName(const char *name)
{
    if (std::strncmp(name, kHiddenPrefix, sizeof kHiddenPrefix - 1) != 0)
        return false;
    const char *rest = name + sizeof kHiddenPrefix - 1;
    for (int i = 0; i < 6; ++i) {
        if (!std::isalnum(static_cast<unsigned char>(rest[i])))
            return false;
    }
    return rest[6] == '\0';
}

bool sameFile(const struct stat &a, const struct stat &b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}
} // namespace

OutputFile::OutputFile(int folderDescriptor)
{
    // A descriptor of our own: its lock is not that of the one shared with other processes.
    m_folderFd = ::openat(folderDescriptor, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (m_folderFd < 0)
        failed(errno);
}

bool OutputFile::create()
{
    if (m_folderFd < 0)
        return false;
    if (g_unnamedFilesTried) {
        m_fd = SystemCalls::openUnnamedFile(m_folderFd, kMode);
        if (m_fd >= 0)
            return true;
        // Only a file system without unnamed files falls through to a hidden name.
        if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL && errno != ENOENT) {
            failed(errno);
            return false;
        }
    }
    // A short name, so that names of 255 bytes still fit when it is renamed.
    // It is locked as long as it is written, and made and locked under the
    // folder's lock, so that a sweep never takes it for a killed write's.
    while (::flock(m_folderFd, LOCK_EX) != 0 && errno == EINTR) {}
    int error = 0;
    for (int attempt = 0; attempt < 100; ++attempt) {
        const QByteArray name = FileTree::randomName(kHiddenPrefix);
        m_fd = ::openat(m_folderFd, name.constData(), O_CREAT | O_EXCL | O_WRONLY | O_NOFOLLOW | O_CLOEXEC, kMode);
        if (m_fd >= 0) {
            m_hiddenName = name;
            ::flock(m_fd, LOCK_EX | LOCK_NB);
            break;
        }
        error = errno;
        if (error != EEXIST)
            break;
    }
    ::flock(m_folderFd, LOCK_UN);
    if (m_fd < 0)
        failed(error);
    return m_fd >= 0;
}

int OutputFile::sweepStale(int folderDescriptor)
{
    const int dup = ::fcntl(folderDescriptor, F_DUPFD_CLOEXEC, 0);
    DIR *dir = dup >= 0 ? ::fdopendir(dup) : nullptr;
    if (!dir) {
        if (dup >= 0)
            ::close(dup);
        return 0;
    }
    std::vector<QByteArray> names;
    ::rewinddir(dir);
    while (const dirent *entry = ::readdir(dir)) {
        if (isHiddenName(entry->d_name))
            names.emplace_back(entry->d_name);
    }
    ::closedir(dir);

    int removed = 0;
    for (const QByteArray &name : names) {
        // Ours and a regular file (never a link), opened as the very file
        // looked at, and held by no live writer: then, and only while the
        // name is still that file, it goes.
        struct stat named = {};
        struct stat opened = {};
        if (::fstatat(folderDescriptor, name.constData(), &named, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(named.st_mode)
            || named.st_uid != ::getuid())
            continue;
        const int fd = ::openat(folderDescriptor, name.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0)
            continue;
        if (::fstat(fd, &opened) == 0 && sameFile(named, opened) && ::flock(fd, LOCK_EX | LOCK_NB) == 0
            && ::fstatat(folderDescriptor, name.constData(), &named, AT_SYMLINK_NOFOLLOW) == 0
            && sameFile(named, opened) && ::unlinkat(folderDescriptor, name.constData(), 0) == 0)
            ++removed;
        ::close(fd);
    }
    return removed;
}

OutputFile::Result OutputFile::adopt(const QString &archivePath)
{
    if (m_folderFd < 0 || m_fd >= 0 || m_adoptedFolderFd >= 0)
        return Failed;
    const QByteArray path = QFile::encodeName(archivePath);
    const qsizetype slash = path.lastIndexOf('/');
    const QByteArray folder = slash > 0 ? path.left(slash) : QByteArray("/");
    const QByteArray name = path.mid(slash + 1);
    const int folderFd = ::open(folder.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (folderFd < 0)
        return failed(errno);
    const int in = ::openat(folderFd, name.constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    struct stat source = {};
    struct stat target = {};
    int error = 0;
    if (in < 0 || ::fstat(in, &source) != 0 || ::fstat(m_folderFd, &target) != 0)
        error = errno;
    else if (!S_ISREG(source.st_mode))
        error = EINVAL;
    else if (source.st_dev != target.st_dev)
        error = EXDEV;
    else if (::fsync(in) != 0)
        error = errno; // named only once it is on the disk, as a copy would be
    if (in >= 0)
        ::close(in);
    if (error != 0) {
        ::close(folderFd);
        return failed(error);
    }
    m_adoptedFolderFd = folderFd;
    m_adoptedName = name;
    return Ok;
}

void OutputFile::setUnnamedFilesTried(bool tried)
{
    g_unnamedFilesTried = tried;
}

OutputFile::~OutputFile()
{
    if (m_adoptedFolderFd >= 0)
        ::close(m_adoptedFolderFd);
    if (m_fd >= 0)
        ::close(m_fd);
    if (!m_published && !m_hiddenName.isEmpty() && m_folderFd >= 0)
        ::unlinkat(m_folderFd, m_hiddenName.constData(), 0);
    if (m_folderFd >= 0)
        ::close(m_folderFd);
}

OutputFile::Result OutputFile::failed(int error)
{
    m_errno = error;
    m_error = QString::fromLocal8Bit(std::strerror(error));
    return Failed;
}

OutputFile::Result OutputFile::fill(const QString &archivePath)
{
    if (m_fd >= 0 || m_adoptedFolderFd >= 0 || !create())
        return Failed;
    const int in = ::open(QFile::encodeName(archivePath).constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (in < 0)
        return failed(errno);
    struct stat source = {};
    if (::fstat(in, &source) != 0 || !S_ISREG(source.st_mode)) {
        const int error = errno ? errno : EINVAL;
        ::close(in);
        return failed(error);
    }
    int error = 0;
    const KernelFileCopy::Result copied = KernelFileCopy::copyRest(in, m_fd, &error);
    ::close(in);
    if (copied == KernelFileCopy::Stopped)
        return Stopped;
    if (copied == KernelFileCopy::Failed)
        return failed(error);
    // Short of the source means something went wrong quietly: not a smaller file.
    struct stat written = {};
    if (::fstat(m_fd, &written) != 0)
        return failed(errno);
    if (written.st_size != source.st_size)
        return failed(EIO);
    if (::fsync(m_fd) != 0)
        return failed(errno);
    return Ok;
}

OutputFile::Result OutputFile::publish(const QString &name)
{
    if (m_published)
        return Failed;
    const QByteArray target = QFile::encodeName(name);
    if (m_adoptedFolderFd >= 0)
        return moveIn(m_adoptedFolderFd, m_adoptedName, target);
    if (m_fd < 0)
        return Failed;
    if (m_hiddenName.isEmpty()) {
        char self[64];
        std::snprintf(self, sizeof self, "/proc/self/fd/%d", m_fd);
        // linkat never replaces: an existing name, a dangling link included, is EEXIST.
        if (::linkat(AT_FDCWD, self, m_folderFd, target.constData(), AT_SYMLINK_FOLLOW) != 0)
            return errno == EEXIST ? Taken : failed(errno);
        m_published = true;
        return Ok;
    }
    return moveIn(m_folderFd, m_hiddenName, target);
}

OutputFile::Result OutputFile::moveIn(int fromFolder, const QByteArray &fromName, const QByteArray &target)
{
    if (SystemCalls::renameNoReplace(fromFolder, fromName.constData(), m_folderFd, target.constData()) == 0) {
        m_published = true;
        return Ok;
    }
    if (errno == EEXIST)
        return Taken;
    if (errno != EINVAL && errno != ENOSYS)
        return failed(errno);
    // No exclusive rename here: a second name, then the first one goes.
    if (::linkat(fromFolder, fromName.constData(), m_folderFd, target.constData(), 0) != 0)
        return errno == EEXIST ? Taken : failed(errno);
    m_published = true;
    ::unlinkat(fromFolder, fromName.constData(), 0);
    return Ok;
}
