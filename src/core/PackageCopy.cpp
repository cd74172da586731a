#include "core/PackageCopy.h"

#include "core/DiskSpace.h"
#include "core/KernelFileCopy.h"
#include "core/KeynoteDocument.h"
#include "core/PackageScan.h"
#include "core/StopRequest.h"
#include "core/Waiting.h"
#include "system/SystemCalls.h"

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
// Non-blocking: a FIFO swapped in for a file must not hold the open.
constexpr int kFileFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

// An open descriptor, closed when it goes.
struct Descriptor
{
    int fd = -1;

    explicit Descriptor(int descriptor = -1)
        : fd(descriptor)
    {
    }
    ~Descriptor() { reset(); }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    void reset(int descriptor = -1)
    {
        if (fd >= 0)
            ::close(fd);
        fd = descriptor;
    }
    int release() { return std::exchange(fd, -1); }
};

// A folder on the way down: the folders in it still to visit (taken from
// the back), and who it is, to know it again on the way up.
struct Frame
{
    std::vector<std::string> pending;
    dev_t device = 0;
    ino_t inode = 0;
};

QByteArray parentOf(const QByteArray &relative)
{
    const qsizetype slash = relative.lastIndexOf('/');
    return slash < 0 ? QByteArray() : relative.left(slash);
}

QByteArray joined(const QByteArray &folder, const std::string &name)
{
    return folder.isEmpty() ? QByteArray::fromStdString(name) : folder + '/' + QByteArray::fromStdString(name);
}

// "it holds a folder that could not be read: Data"; the package itself: "it could not be read".
QString unreadable(const char *kind, const QByteArray &relative)
{
    if (relative.isEmpty())
        return QStringLiteral("it could not be read");
    return QStringLiteral("it holds a %1 that could not be read: %2")
        .arg(QLatin1String(kind), PackageScan::displayPath(relative));
}

// Gives the owner the rights the tools need in our copy, whatever the source's were.
void ownerMay(int fd, mode_t rights)
{
    struct stat st = {};
    if (::fstat(fd, &st) == 0 && (st.st_mode & rights) != rights)
        ::fchmod(fd, (st.st_mode & 07777) | rights);
}

class Walk
{
public:
    Walk(bool writing, qsizetype copyPathLength, const PackageCopy::Progress &progress)
        : m_writing(writing)
        , m_copyPathLength(copyPathLength)
        , m_progress(progress)
    {
    }

    PackageCopy::Result run(const QByteArray &package, const QByteArray &destinationFolder, const QByteArray &name)
    {
        struct stat st = {};
        if (::lstat(package.constData(), &st) != 0)
            return refused(PackageCopy::openProblem(errno));
        FileTree::Kind kind = FileTree::kindOf(st.st_mode);
        Descriptor root;
        if (kind == FileTree::Kind::File || kind == FileTree::Kind::Folder) {
            root.reset(::open(package.constData(), kind == FileTree::Kind::Folder ? kFolderFlags : kFileFlags));
            if (root.fd < 0)
                return refused(PackageCopy::openProblem(errno));
            // What was opened is what counts, whatever the name showed a moment ago.
            if (::fstat(root.fd, &st) != 0)
                return refused(unreadable("", {}));
            kind = FileTree::kindOf(st.st_mode);
        }
        m_result.kind = kind;
        if (kind != FileTree::Kind::File && kind != FileTree::Kind::Folder)
            return refused(QStringLiteral("it is %1").arg(FileTree::kindName(kind)));
        m_device = st.st_dev;
        m_knowsMount = SystemCalls::mountId(root.fd, &m_mount);

        // Our own run folder, where the copy goes.
        Descriptor into(m_writing ? ::open(destinationFolder.constData(), kFolderFlags) : -1), copy;
        if (m_writing && into.fd < 0)
            failedWrite(errno);
        else if (kind == FileTree::Kind::File)
            file(root.fd, into.fd, name.constData(), {}, false);
        else if (!m_writing || makeFolder(into.fd, name.constData(), st.st_mode, &copy))
            tree(root, copy);
        return m_result;
    }

private:
    PackageCopy::Result refused(const QString &problem)
    {
        m_result.problem = problem;
        return m_result;
    }
    bool refuse(const QString &problem)
    {
        m_result.problem = problem;
        return false;
    }
    bool failedWrite(int error)
    {
        return refuse(DiskSpace::isFull(error) ? DiskSpace::fullReason()
                                               : QStringLiteral("it could not be copied to the scratch folder (%1)")
                                                     .arg(QString::fromLocal8Bit(std::strerror(error))));
    }

    // The walk keeps to the package's own mount: another disk, or a folder
    // mounted over one of the package's, is no part of it. The mount tells
    // where the kernel can: an overlay gives its files the device number of
    // the layer below, while its folders have its own.
    bool onOwnMount(int fd, const struct stat &st) const
    {
        unsigned long long mount = 0;
        return m_knowsMount ? SystemCalls::mountId(fd, &mount) && mount == m_mount : st.st_dev == m_device;
    }

    bool makeFolder(int into, const char *name, mode_t mode, Descriptor *made)
    {
        if (::mkdirat(into, name, (mode & 0777) | S_IRWXU) != 0)
            return failedWrite(errno);
        made->reset(::openat(into, name, kFolderFlags));
        if (made->fd < 0)
            return failedWrite(errno);
        ownerMay(made->fd, S_IRWXU);
        return true;
    }

    // One entry of an open folder: a file is copied at once, a folder is
    // noted for later, anything else ends the walk with its reason.
    bool entry(int folder, int copyFolder, const std::string &name, const QByteArray &relative,
               std::vector<std::string> *folders)
    {
        Waiting::turnEvents();
        if (StopRequest::pending()) {
            m_result.stopped = true;
            return false;
        }
        struct stat st = {};
        // Gone since the folder was read: not part of the package any more.
        // Otherwise the folder may be listed but not entered.
        if (::fstatat(folder, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
            return errno == ENOENT || refuse(unreadable("folder", parentOf(relative)));
        if (m_copyPathLength + 1 + relative.size() >= PATH_MAX)
            return refuse(
                QStringLiteral("a path in it is too long to copy: %1").arg(PackageScan::displayPath(relative)));
        const FileTree::Kind kind = FileTree::kindOf(st.st_mode);
        const bool atRoot = relative.size() == qsizetype(name.size());
        if (kind == FileTree::Kind::Folder) {
            // gunzip could not put the document in its place.
            if (atRoot && name == "index.apxl")
                return refuse(QStringLiteral("index.apxl is a folder"));
            folders->push_back(name);
            return true;
        }
        if (kind != FileTree::Kind::File)
            return refuse(PackageScan::kindProblem(kind, folder, name.c_str(), relative));
        Descriptor in(::openat(folder, name.c_str(), kFileFlags));
        if (in.fd < 0)
            return errno == ENOENT || refuse(changed(errno, folder, name, relative, "file"));
        return file(in.fd, copyFolder, name.c_str(), relative, atRoot && name == "index.apxl.gz");
    }

    // Why an entry seen a moment ago as a file or folder could not be opened as one.
    QString changed(int error, int folder, const std::string &name, const QByteArray &relative, const char *was)
    {
        if (error == ELOOP)
            return PackageScan::kindProblem(FileTree::Kind::Link, folder, name.c_str(), relative);
        struct stat st = {};
        if (error == ENOTDIR || error == ENXIO) {
            if (::fstatat(folder, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0)
                return PackageScan::kindProblem(FileTree::kindOf(st.st_mode), folder, name.c_str(), relative);
        }
        return unreadable(was, relative);
    }

    bool file(int in, int copyFolder, const char *name, const QByteArray &relative, bool document)
    {
        struct stat st = {};
        if (::fstat(in, &st) != 0)
            return refuse(unreadable("file", relative));
        if (!S_ISREG(st.st_mode))
            return refuse(relative.isEmpty()
                              ? QStringLiteral("it is %1").arg(FileTree::kindName(FileTree::kindOf(st.st_mode)))
                              : PackageScan::kindProblem(FileTree::kindOf(st.st_mode), -1, name, relative));
        if (!onOwnMount(in, st))
            return refuse(QStringLiteral("it holds a mount point: %1").arg(PackageScan::displayPath(relative)));
        // Nothing of a document far beyond any real one is copied.
        if (document && KeynoteDocument::compressedTooLarge(st.st_size))
            return refuse(KeynoteDocument::tooLargeReason());
        m_result.bytes = DiskSpace::sum(m_result.bytes, st.st_size);
        ++m_result.files;
        if (!m_writing)
            return true;
        Descriptor out(::openat(copyFolder, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                (st.st_mode & 0777) | S_IRUSR | S_IWUSR));
        if (out.fd < 0)
            return failedWrite(errno);
        ownerMay(out.fd, S_IRUSR | S_IWUSR);
        int error = 0;
        const KernelFileCopy::Result copied = KernelFileCopy::copyRest(in, out.fd, &error, [this](long long bytes) {
            m_landed += bytes;
            if (m_progress)
                m_progress(m_landed);
        });
        if (copied == KernelFileCopy::Stopped) {
            m_result.stopped = true;
            return false;
        }
        if (::close(out.release()) != 0 && copied == KernelFileCopy::Done)
            error = errno;
        return error == 0 || failedWrite(error);
    }

    // The folders below the root, one open at a time on either side, so that
    // no depth runs out of descriptors; the way back up is "..", checked to
    // be the folder we came down from.
    void tree(Descriptor &source, Descriptor &copy)
    {
        std::vector<Frame> frames;
        QByteArray path;
        const auto enter = [&] {
            struct stat self = {};
            ::fstat(source.fd, &self);
            frames.push_back({{}, self.st_dev, self.st_ino});
            std::vector<std::string> names, folders;
            int error = 0;
            if (!FileTree::readNames(source.fd, &names, &error))
                return refuse(unreadable("folder", path));
            for (const std::string &entryName : names)
                if (!entry(source.fd, copy.fd, entryName, joined(path, entryName), &folders))
                    return false;
            frames.back().pending.assign(folders.rbegin(), folders.rend());
            return true;
        };
        if (!enter())
            return;
        while (!frames.empty()) {
            if (!frames.back().pending.empty()) {
                const std::string child = frames.back().pending.back();
                frames.back().pending.pop_back();
                const QByteArray relative = joined(path, child);
                Descriptor next(::openat(source.fd, child.c_str(), kFolderFlags));
                if (next.fd < 0 && errno == ENOENT)
                    continue;
                if (next.fd < 0)
                    return void(refuse(changed(errno, source.fd, child, relative, "folder")));
                // A folder on another mount, or one already on the way down (mounted inside itself).
                struct stat st = {};
                if (::fstat(next.fd, &st) != 0 || !onOwnMount(next.fd, st)
                    || std::any_of(frames.begin(), frames.end(),
                                   [&](const Frame &f) { return f.device == st.st_dev && f.inode == st.st_ino; }))
                    return void(
                        refuse(QStringLiteral("it holds a mount point: %1").arg(PackageScan::displayPath(relative))));
                Descriptor made;
                if (m_writing && !makeFolder(copy.fd, child.c_str(), st.st_mode, &made))
                    return;
                source.reset(next.release());
                copy.reset(made.release());
                path = relative;
                if (!enter())
                    return;
                continue;
            }
            frames.pop_back();
            if (frames.empty())
                break;
            Descriptor parent(::openat(source.fd, "..", kFolderFlags));
            struct stat st = {};
            if (parent.fd < 0 || ::fstat(parent.fd, &st) != 0 || st.st_dev != frames.back().device
                || st.st_ino != frames.back().inode)
                return void(refuse(QStringLiteral("it changed while it was copied")));
            source.reset(parent.release());
            if (m_writing)
                copy.reset(::openat(copy.fd, "..", kFolderFlags));
            path = parentOf(path);
        }
    }

    const bool m_writing;
    const qsizetype m_copyPathLength;
    const PackageCopy::Progress m_progress;
    PackageCopy::Result m_result;
    dev_t m_device = 0;
    unsigned long long m_mount = 0;
    bool m_knowsMount = false;
    qint64 m_landed = 0;
};

QByteArray withoutTrailingSlashes(const QString &path)
{
    QByteArray bytes = QFile::encodeName(path);
    while (bytes.size() > 1 && bytes.endsWith('/'))
        bytes.chop(1);
    return bytes;
}
} // namespace

PackageCopy::Result PackageCopy::copy(const QString &packagePath, const QString &destinationFolder, const QString &name,
                                      const Progress &progress)
{
    const QByteArray folder = QFile::encodeName(destinationFolder), bytes = QFile::encodeName(name);
    Walk walk(true, folder.size() + bytes.size(), progress);
    return walk.run(withoutTrailingSlashes(packagePath), folder, bytes);
}

PackageCopy::Result PackageCopy::scan(const QString &packagePath, const QString &copyPath)
{
    Walk walk(false, QFile::encodeName(copyPath).size(), {});
    return walk.run(withoutTrailingSlashes(packagePath), {}, {});
}

QString PackageCopy::openProblem(int error)
{
    switch (error) {
    case ENOENT:
    case ENOTDIR:
        return QStringLiteral("it was not found");
    case ENAMETOOLONG:
        return QStringLiteral("its path is too long to open");
    case ELOOP:
        return QStringLiteral("it is %1").arg(FileTree::kindName(FileTree::Kind::Link));
    default:
        return QStringLiteral("it could not be read");
    }
}
