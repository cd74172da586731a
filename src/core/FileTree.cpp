#include "core/FileTree.h"

#include "core/DiskSpace.h"

#include <QFile>
#include <QRandomGenerator>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
constexpr int kDirFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

FileTree::Kind kindOf(mode_t mode)
{
    if (S_ISREG(mode))
        return FileTree::Kind::File;
    if (S_ISDIR(mode))
        return FileTree::Kind::Folder;
    if (S_ISLNK(mode))
        return FileTree::Kind::Link;
    if (S_ISFIFO(mode))
        return FileTree::Kind::Fifo;
    if (S_ISCHR(mode) || S_ISBLK(mode))
        return FileTree::Kind::Device;
    if (S_ISSOCK(mode))
        return FileTree::Kind::Socket;
    return FileTree::Kind::Other;
}

// Opens a folder inside another without following a link. A folder of ours
// that we may not enter gets the owner's rights first, when asked.
int openFolder(int parent, const char *name, bool makeEnterable)
{
    int fd = ::openat(parent, name, kDirFlags);
    if (fd < 0 && errno == EACCES && makeEnterable) {
        struct stat st = {};
        if (::fstatat(parent, name, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode) && st.st_uid == ::geteuid()
            && ::fchmodat(parent, name, (st.st_mode & 07777) | S_IRWXU, AT_SYMLINK_NOFOLLOW) == 0)
            fd = ::openat(parent, name, kDirFlags);
    }
    // A folder we could open but not write (copied from a read-only
    // package) would keep its contents; ours, it gets the owner's rights.
    struct stat st = {};
    if (fd >= 0 && makeEnterable && ::fstat(fd, &st) == 0 && st.st_uid == ::geteuid()
        && (st.st_mode & S_IRWXU) != S_IRWXU)
        ::fchmod(fd, (st.st_mode & 07777) | S_IRWXU);
    return fd;
}

// The names in an open folder, read through a duplicate so the folder stays open.
// A folder on the way down a tree: its name, the folders in it still to
// visit (taken from the back), and who it is, to know it again.
struct Frame
{
    std::string name;
    std::vector<std::string> pending;
    dev_t device = 0;
    ino_t inode = 0;
};

bool readNames(int folder, std::vector<std::string> *names, int *error)
{
    const int dup = ::fcntl(folder, F_DUPFD_CLOEXEC, 0);
    if (dup < 0) {
        *error = errno;
        return false;
    }
    DIR *dir = ::fdopendir(dup);
    if (!dir) {
        *error = errno;
        ::close(dup);
        return false;
    }
    ::rewinddir(dir);
    errno = 0;
    while (const dirent *entry = ::readdir(dir)) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            names->emplace_back(entry->d_name);
        errno = 0;
    }
    const int readError = errno;
    ::closedir(dir);
    if (readError) {
        *error = readError;
        return false;
    }
    std::sort(names->begin(), names->end()); // the same walk, and the same first fault, everywhere
    return true;
}

QByteArray joined(const std::vector<std::string> &stack, const std::string &name)
{
    QByteArray path;
    for (size_t i = 1; i < stack.size(); ++i) // stack[0] is the root itself
        path += QByteArray::fromStdString(stack[i]) + '/';
    return path + QByteArray::fromStdString(name);
}
} // namespace

FileTree::WalkResult FileTree::walk(const QString &rootPath, const Visitor &visit, bool makeEnterable)
{
    WalkResult result;
    const auto fail = [&result](const QByteArray &path, int error) {
        if (result.complete) {
            result.complete = false;
            result.error = error;
            result.failedPath = path;
        }
        if (result.unreadFolders.empty() || result.unreadFolders.back().first != path)
            result.unreadFolders.emplace_back(path, error);
    };
    const QByteArray root = QFile::encodeName(rootPath);
    int current = ::open(root.constData(), kDirFlags);
    if (current < 0 && errno == EACCES && makeEnterable) {
        struct stat st = {};
        if (::lstat(root.constData(), &st) == 0 && S_ISDIR(st.st_mode) && st.st_uid == ::geteuid()
            && ::chmod(root.constData(), (st.st_mode & 07777) | S_IRWXU) == 0)
            current = ::open(root.constData(), kDirFlags);
    }
    if (current < 0) {
        fail(QByteArray(), errno);
        return result;
    }
    if (makeEnterable) {
        struct stat st = {};
        if (::fstat(current, &st) == 0 && st.st_uid == ::geteuid() && (st.st_mode & S_IRWXU) != S_IRWXU)
            ::fchmod(current, (st.st_mode & 07777) | S_IRWXU);
    }

    // One frame per folder on the way down. Only the deepest folder is open;
    // going up is "..", checked to lead back to the folder we came from.
    std::vector<Frame> frames;
    std::vector<std::string> names; // the path of the open folder, for relative paths

    auto enter = [&](const std::string &name) -> bool {
        std::vector<std::string> entries;
        int error = 0;
        struct stat self = {};
        ::fstat(current, &self);
        names.push_back(name);
        frames.push_back({name, {}, self.st_dev, self.st_ino});
        if (!readNames(current, &entries, &error)) {
            fail(joined(names, std::string()).chopped(names.size() > 1 ? 1 : 0), error);
            return true;
        }
        std::vector<std::string> folders;
        for (auto it = entries.begin(); it != entries.end(); ++it) {
            struct stat st = {};
            Entry entry;
            entry.relativePath = joined(names, *it);
            entry.folderDescriptor = current;
            entry.name = it->c_str();
            if (::fstatat(current, it->c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
                // Gone since the folder was read, or in a folder we may list but not enter.
                if (const int error = errno; error != ENOENT)
                    fail(joined(names, std::string()).chopped(names.size() > 1 ? 1 : 0), error);
                continue;
            }
            entry.kind = kindOf(st.st_mode);
            entry.size = entry.kind == Kind::File ? qint64(st.st_size) : 0;
            entry.mode = unsigned(st.st_mode & 07777);
            entry.ours = st.st_uid == ::geteuid();
            if (!visit(entry)) {
                result.stopped = true;
                result.complete = false;
                return false;
            }
            if (entry.kind == Kind::Folder && entry.descend)
                folders.push_back(*it);
        }
        frames.back().pending.assign(folders.rbegin(), folders.rend()); // taken from the back: in order
        return true;
    };

    bool go = enter(std::string());
    while (go && !frames.empty()) {
        Frame &frame = frames.back();
        if (!frame.pending.empty()) {
            const std::string child = frame.pending.back();
            frame.pending.pop_back();
            const int next = openFolder(current, child.c_str(), makeEnterable);
            if (next < 0) {
                if (const int error = errno; error != ENOENT)
                    fail(joined(names, child), error);
                continue;
            }
            // A folder already on the way down (a mount of one of its parents) would never end.
            struct stat st = {};
            const bool onTheWay
                = ::fstat(next, &st) == 0 && std::any_of(frames.begin(), frames.end(), [&](const Frame &f) {
                      return f.device == st.st_dev && f.inode == st.st_ino;
                  });
            if (onTheWay) {
                ::close(next);
                continue;
            }
            ::close(current);
            current = next;
            go = enter(child);
            continue;
        }
        frames.pop_back();
        names.pop_back();
        if (frames.empty())
            break;
        const int parent = ::openat(current, "..", kDirFlags);
        ::close(current);
        current = parent;
        // Moved elsewhere while we were inside: what is left is not where we listed it.
        struct stat st = {};
        if (current < 0 || ::fstat(current, &st) != 0 || st.st_dev != frames.back().device
            || st.st_ino != frames.back().inode) {
            result.complete = false;
            result.error = current < 0 ? errno : ESTALE;
            break;
        }
    }
    if (current >= 0)
        ::close(current);
    return result;
}

int FileTree::emptyFolder(int folder)
{
    int firstError = 0;
    auto note = [&](int e) {
        if (!firstError && e != ENOENT)
            firstError = e;
    };
    // Depth first, one folder open at a time; a folder is emptied of its
    // files when entered and removed once its last subfolder is gone. Each
    // is opened without following a link, and going back up must lead to
    // the very folder we came down from, so that nothing moved meanwhile
    // can lead the removal out of the tree.
    std::vector<Frame> frames;
    struct stat top = {};
    if (::fstat(folder, &top) == 0 && top.st_uid == ::geteuid() && (top.st_mode & S_IRWXU) != S_IRWXU)
        ::fchmod(folder, (top.st_mode & 07777) | S_IRWXU);
    int current = ::fcntl(folder, F_DUPFD_CLOEXEC, 0);
    if (current < 0)
        return errno;
    auto empty = [&](const std::string &folderName) {
        struct stat self = {};
        ::fstat(current, &self);
        Frame frame{folderName, {}, self.st_dev, self.st_ino};
        std::vector<std::string> entries;
        int readError = 0;
        if (!readNames(current, &entries, &readError))
            note(readError);
        for (const std::string &entry : entries) {
            struct stat est = {};
            if (::fstatat(current, entry.c_str(), &est, AT_SYMLINK_NOFOLLOW) != 0)
                continue;
            if (S_ISDIR(est.st_mode))
                frame.pending.push_back(entry);
            else if (::unlinkat(current, entry.c_str(), 0) != 0)
                note(errno);
        }
        frames.push_back(std::move(frame));
    };
    empty(std::string());
    while (!frames.empty()) {
        Frame &frame = frames.back();
        if (!frame.pending.empty()) {
            const std::string child = frame.pending.back();
            frame.pending.pop_back();
            const int next = openFolder(current, child.c_str(), true);
            struct stat st = {};
            if (next < 0 || ::fstat(next, &st) != 0 || st.st_dev != frames.front().device) {
                // Another file system mounted here is not ours to empty.
                note(next < 0 ? errno : EBUSY);
                if (next >= 0)
                    ::close(next);
                continue;
            }
            ::close(current);
            current = next;
            empty(child);
            continue;
        }
        const std::string done = frame.name;
        frames.pop_back();
        if (frames.empty())
            break;
        const int parent
            = frames.size() == 1 ? ::fcntl(folder, F_DUPFD_CLOEXEC, 0) : ::openat(current, "..", kDirFlags);
        ::close(current);
        current = parent;
        struct stat st = {};
        if (current < 0 || ::fstat(current, &st) != 0 || st.st_dev != frames.back().device
            || st.st_ino != frames.back().inode) {
            note(current < 0 ? errno : ESTALE);
            break;
        }
        if (::unlinkat(current, done.c_str(), AT_REMOVEDIR) != 0)
            note(errno);
    }
    if (current >= 0)
        ::close(current);
    return firstError;
}

bool FileTree::removeFolder(int parentDescriptor, const QByteArray &name, int folderDescriptor, int *error)
{
    int e = emptyFolder(folderDescriptor);
    // The name goes only while it still names this folder: one renamed away
    // and replaced meanwhile leaves the replacement alone.
    struct stat self = {};
    struct stat named = {};
    if (::fstat(folderDescriptor, &self) != 0
        || ::fstatat(parentDescriptor, name.constData(), &named, AT_SYMLINK_NOFOLLOW) != 0)
        e = e ? e : errno == ENOENT ? ESTALE : errno;
    else if (self.st_dev != named.st_dev || self.st_ino != named.st_ino)
        e = e ? e : ESTALE;
    else if (::unlinkat(parentDescriptor, name.constData(), AT_REMOVEDIR) != 0 && errno != ENOENT)
        e = e ? e : errno;
    if (error)
        *error = e;
    return e == 0;
}

bool FileTree::removeAt(int folderDescriptor, const QByteArray &name, int *error)
{
    struct stat st = {};
    if (::fstatat(folderDescriptor, name.constData(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
        if (error)
            *error = errno == ENOENT ? 0 : errno;
        return errno == ENOENT;
    }
    if (!S_ISDIR(st.st_mode)) {
        const bool removed = ::unlinkat(folderDescriptor, name.constData(), 0) == 0 || errno == ENOENT;
        if (error)
            *error = removed ? 0 : errno;
        return removed;
    }
    const int folder = openFolder(folderDescriptor, name.constData(), true);
    if (folder < 0) {
        if (error)
            *error = errno;
        return false;
    }
    const bool removed = removeFolder(folderDescriptor, name, folder, error);
    ::close(folder);
    return removed;
}

bool FileTree::remove(const QString &path, QString *error)
{
    QByteArray bytes = QFile::encodeName(path);
    while (bytes.size() > 1 && bytes.endsWith('/'))
        bytes.chop(1);
    const qsizetype slash = bytes.lastIndexOf('/');
    const QByteArray folder = slash < 0 ? QByteArray(".") : slash == 0 ? QByteArray("/") : bytes.left(slash);
    const QByteArray name = bytes.mid(slash + 1);
    if (name.isEmpty() || name == "." || name == "..") {
        if (error)
            *error = QString::fromLocal8Bit(std::strerror(EINVAL));
        return false;
    }
    // Neither the item nor the folder that holds it is reached through a
    // link there: a run folder swapped for one would lead us elsewhere.
    const int holder = ::open(folder.constData(), kDirFlags);
    if (holder < 0) {
        const int e = errno;
        if (error)
            *error = e == ENOENT ? QString() : QString::fromLocal8Bit(std::strerror(e));
        return e == ENOENT;
    }
    int e = 0;
    const bool removed = removeAt(holder, name, &e);
    ::close(holder);
    if (error)
        *error = removed ? QString() : QString::fromLocal8Bit(std::strerror(e));
    return removed;
}

bool FileTree::kindAt(const QString &path, Kind *kind, qint64 *size)
{
    QByteArray bytes = QFile::encodeName(path);
    while (bytes.size() > 1 && bytes.endsWith('/'))
        bytes.chop(1);
    struct stat st = {};
    if (::lstat(bytes.constData(), &st) != 0)
        return false;
    if (kind)
        *kind = kindOf(st.st_mode);
    if (size)
        *size = qint64(st.st_size);
    return true;
}

QString FileTree::kindName(Kind kind)
{
    switch (kind) {
    case Kind::File:
        return QStringLiteral("a file");
    case Kind::Folder:
        return QStringLiteral("a folder");
    case Kind::Link:
        return QStringLiteral("a symbolic link");
    case Kind::Fifo:
        return QStringLiteral("a FIFO");
    case Kind::Device:
        return QStringLiteral("a device");
    case Kind::Socket:
        return QStringLiteral("a socket");
    case Kind::Other:
        break;
    }
    return QStringLiteral("a special file");
}

bool FileTree::readFile(const QString &path, qint64 maxBytes, QByteArray *bytes, int *error, bool *tooLarge)
{
    *tooLarge = false;
    *error = 0;
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        *error = errno;
        return false;
    }
    struct stat st = {};
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        *error = errno ? errno : EINVAL;
        ::close(fd);
        return false;
    }
    if (st.st_size > maxBytes) {
        *tooLarge = true;
        ::close(fd);
        return false;
    }
    bytes->resize(qsizetype(st.st_size));
    qsizetype done = 0;
    while (done < bytes->size()) {
        const ssize_t got = ::read(fd, bytes->data() + done, size_t(bytes->size() - done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0) {
            *error = got < 0 ? errno : EIO;
            ::close(fd);
            return false;
        }
        done += got;
    }
    ::close(fd);
    return true;
}

bool FileTree::rewriteFile(const QString &path, const QByteArray &bytes, int *error)
{
    *error = 0;
    const int fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
    struct stat st = {};
    if (fd < 0 || ::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || ::ftruncate(fd, 0) != 0) {
        *error = errno ? errno : EINVAL;
        if (fd >= 0)
            ::close(fd);
        return false;
    }
    qsizetype done = 0;
    while (done < bytes.size()) {
        const ssize_t put = ::write(fd, bytes.constData() + done, size_t(bytes.size() - done));
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0) {
            *error = put < 0 ? errno : EIO;
            ::close(fd);
            return false;
        }
        done += put;
    }
    if (::close(fd) != 0) {
        *error = errno;
        return false;
    }
    return true;
}

QByteArray FileTree::randomName(const QByteArray &prefix)
{
    static const char letters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    QByteArray name = prefix;
    for (int i = 0; i < 6; ++i)
        name += letters[QRandomGenerator::system()->bounded(int(sizeof letters - 1))];
    return name;
}

qint64 FileTree::bytesOfFiles(const QString &rootPath)
{
    Kind kind;
    qint64 bytes = 0;
    if (kindAt(rootPath, &kind, &bytes) && kind == Kind::File)
        return bytes;
    bytes = 0;
    walk(rootPath, [&](const Entry &entry) {
        if (entry.kind == Kind::File)
            bytes = DiskSpace::sum(bytes, entry.size);
        return true;
    });
    return bytes;
}

FileTree::Kind FileTree::kindOf(unsigned mode)
{
    return ::kindOf(mode_t(mode));
}

bool FileTree::readNames(int folderDescriptor, std::vector<std::string> *names, int *error)
{
    return ::readNames(folderDescriptor, names, error);
}
