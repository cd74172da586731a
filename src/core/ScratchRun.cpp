#include "core/ScratchRun.h"

#include "core/Fatal.h"
#include "core/FileTree.h"
#include "core/OutputFile.h"
#include "core/OutputFolder.h"
#include "core/ScratchDir.h"

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
constexpr int kDirFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// The live runs of this process, for a fatal ending.
std::vector<ScratchRun *> &liveRuns()
{
    static std::vector<ScratchRun *> runs;
    return runs;
}

void registerFatalCleanup()
{
    static bool registered = false;
    if (registered)
        return;
    registered = true;
    Fatal::addCleanup(&ScratchRun::removeAll);
}

QString errnoText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}
} // namespace

ScratchRun::ScratchRun()
{
    const QString root = ScratchDir::path();
    if (root.isEmpty()) {
        m_error = QStringLiteral("no private scratch folder can be made");
        return;
    }
    QByteArray rootBytes = QFile::encodeName(root);
    rootBytes.chop(1);
    m_rootFd = ::open(rootBytes.constData(), kDirFlags);
    // Checked again on what was opened: the name could have changed in between.
    if (m_rootFd < 0 || !ScratchDir::isPrivate(m_rootFd)) {
        m_error = QStringLiteral("the scratch folder %1 is not private").arg(root);
        return;
    }
    makeRun(root, "run-");
}

ScratchRun::ScratchRun(const OutputFolder &outputFolder)
{
    // The folder as opened, locked through a descriptor of our own: one shared
    // with other processes (workers inherit the command's) shares its lock.
    m_rootFd = ::openat(outputFolder.descriptor(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (m_rootFd < 0) {
        m_error
            = QStringLiteral("the output folder %1 cannot be opened (%2)").arg(outputFolder.path(), errnoText(errno));
        return;
    }
    const QString open = outputFolder.openToOthersAt();
    if (!open.isEmpty()) {
        m_error = QStringLiteral("other users may rename what is in %1").arg(open);
        return;
    }
    makeRun(outputFolder.path() + QLatin1Char('/'), outputRunPrefix);
}

void ScratchRun::makeRun(const QString &root, const QByteArray &prefix)
{
    // Runs are made and swept under a lock on the root folder, so a sweep
    // never meets a run that is being made.
    while (::flock(m_rootFd, LOCK_EX) != 0 && errno == EINTR) {}
    sweep(m_rootFd, prefix == outputRunPrefix);
    int error = 0;
    for (int attempt = 0; attempt < 100; ++attempt) {
        const QByteArray name = FileTree::randomName(prefix);
        if (::mkdirat(m_rootFd, name.constData(), 0700) == 0) {
            m_runFd = ::openat(m_rootFd, name.constData(), kDirFlags);
            if (m_runFd >= 0 && ::flock(m_runFd, LOCK_EX | LOCK_NB) == 0) {
                m_name = name;
                break;
            }
            error = errno;
            if (m_runFd >= 0)
                ::close(m_runFd);
            m_runFd = -1;
            ::unlinkat(m_rootFd, name.constData(), AT_REMOVEDIR);
            break;
        }
        error = errno;
        if (error != EEXIST)
            break;
    }
    ::flock(m_rootFd, LOCK_UN);
    if (m_runFd < 0) {
        m_error = QStringLiteral("no folder can be made in %1 (%2)").arg(root, errnoText(error));
        return;
    }
    m_path = root + QFile::decodeName(m_name) + QLatin1Char('/');
    registerFatalCleanup();
    liveRuns().push_back(this);
}

ScratchRun::~ScratchRun()
{
    remove();
    if (m_rootFd >= 0)
        ::close(m_rootFd);
}

void ScratchRun::remove()
{
    auto &runs = liveRuns();
    runs.erase(std::remove(runs.begin(), runs.end(), this), runs.end());
    if (m_runFd < 0)
        return;
    FileTree::removeFolder(m_rootFd, m_name, m_runFd);
    ::close(m_runFd); // releases the lock, after the folder is gone
    m_runFd = -1;
}

bool ScratchRun::removeEntry(const QString &name)
{
    return m_runFd >= 0 && FileTree::removeAt(m_runFd, QFile::encodeName(name));
}

void ScratchRun::removeAll()
{
    const std::vector<ScratchRun *> runs = liveRuns();
    for (ScratchRun *run : runs)
        run->remove();
}

int ScratchRun::sweepStale(const OutputFolder &outputFolder)
{
    int removed = 0;
    const QString root = ScratchDir::path();
    QByteArray rootBytes = QFile::encodeName(root);
    rootBytes.chop(1);
    const int rootFd = root.isEmpty() ? -1 : ::open(rootBytes.constData(), kDirFlags);
    // Under the scratch folder's lock, as a new run sweeps.
    if (rootFd >= 0 && ScratchDir::isPrivate(rootFd)) {
        while (::flock(rootFd, LOCK_EX) != 0 && errno == EINTR) {}
        removed += sweepStale(rootFd);
        ::flock(rootFd, LOCK_UN);
    }
    if (rootFd >= 0)
        ::close(rootFd);
    if (outputFolder.isOpen())
        removed += sweepStaleInOutputFolder(outputFolder.descriptor());
    return removed;
}

int ScratchRun::sweepStale(int scratchFolderDescriptor)
{
    return sweep(scratchFolderDescriptor, false);
}

int ScratchRun::sweepStaleInOutputFolder(int outputFolderDescriptor)
{
    // Under the folder's lock, so a run or a hidden file being made there is
    // never taken for a stale one; taken through a descriptor of our own.
    const int folder = ::openat(outputFolderDescriptor, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0)
        return 0;
    while (::flock(folder, LOCK_EX) != 0 && errno == EINTR) {}
    const int removed = sweep(folder, true) + OutputFile::sweepStale(folder);
    ::flock(folder, LOCK_UN);
    ::close(folder);
    return removed;
}

int ScratchRun::sweep(int scratchFolderDescriptor, bool outputFolder)
{
    std::vector<std::string> names;
    const int dup = ::fcntl(scratchFolderDescriptor, F_DUPFD_CLOEXEC, 0);
    DIR *dir = dup >= 0 ? ::fdopendir(dup) : nullptr;
    if (!dir) {
        if (dup >= 0)
            ::close(dup);
        return 0;
    }
    ::rewinddir(dir);
    while (const dirent *entry = ::readdir(dir)) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            names.emplace_back(entry->d_name);
    }
    ::closedir(dir);

    int removed = 0;
    for (const std::string &name : names) {
        // A live run keeps its folder locked; a run folder nobody holds was
        // left by a killed run. Besides those, only what older versions of
        // Deckwright left here goes (copies, folders, zips); anything else,
        // such as the running application's socket, is not scratch.
        struct stat st = {};
        if (::fstatat(scratchFolderDescriptor, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        if (outputFolder) {
            // The person's folder: only a run folder of ours, closed to others, is ours to remove.
            const bool ourRun = name.compare(0, std::strlen(outputRunPrefix), outputRunPrefix) == 0
                                && S_ISDIR(st.st_mode) && st.st_uid == ::getuid() && (st.st_mode & 077) == 0;
            if (!ourRun)
                continue;
        }
        const bool isRun = outputFolder || name.compare(0, 4, "run-") == 0;
        const bool oldLeftover
            = S_ISDIR(st.st_mode)
              || (S_ISREG(st.st_mode) && name.size() > 4
                  && (name.compare(name.size() - 4, 4, ".key") == 0 || name.compare(name.size() - 4, 4, ".zip") == 0));
        if (!isRun && !oldLeftover)
            continue;
        const int fd = S_ISDIR(st.st_mode) ? ::openat(scratchFolderDescriptor, name.c_str(), kDirFlags) : -1;
        if (fd >= 0 && ::flock(fd, LOCK_EX | LOCK_NB) != 0) {
            ::close(fd);
            continue;
        }
        // The folder locked is the folder removed, whatever takes its name meanwhile.
        const QByteArray entry = QByteArray::fromStdString(name);
        if (fd >= 0 ? FileTree::removeFolder(scratchFolderDescriptor, entry, fd)
                    : FileTree::removeAt(scratchFolderDescriptor, entry))
            ++removed;
        if (fd >= 0)
            ::close(fd);
    }
    return removed;
}
