#include "core/PackageScan.h"

#include "core/FileTree.h"

#include <QFile>

#include <cerrno>
#include <climits>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
constexpr int kShownLength = 80;

// What a package may not hold, whether in place or in a copy: anything but
// folders and regular files. Empty for those.
QString kindProblem(const FileTree::Entry &entry)
{
    switch (entry.kind) {
    case FileTree::Kind::File:
    case FileTree::Kind::Folder:
        return QString();
    case FileTree::Kind::Link: {
        char target[PATH_MAX];
        const ssize_t n = ::readlinkat(entry.folderDescriptor, entry.name, target, sizeof target);
        const QByteArray to = n > 0 ? QByteArray(target, int(n)) : QByteArray();
        const QString problem = PackageScan::pointsOutside(entry.relativePath, to)
                                    ? QStringLiteral("it holds a link to a file outside the package: %1")
                                    : QStringLiteral("it holds a symbolic link: %1");
        return problem.arg(PackageScan::displayPath(entry.relativePath));
    }
    default:
        return QStringLiteral("it holds %1: %2")
            .arg(FileTree::kindName(entry.kind), PackageScan::displayPath(entry.relativePath));
    }
}

// cp names every file by its whole path, on both sides.
qsizetype copyPrefixLength(const QString &packagePath, const QString &copyPath)
{
    return qMax(QFile::encodeName(copyPath).size(), QFile::encodeName(packagePath).size());
}

// Why cp cannot copy this entry of the package: its path would be too long,
// or it is a file we may not read. Opening it for reading changes nothing.
QString copyProblem(const FileTree::Entry &entry, qsizetype prefixLength)
{
    if (prefixLength + 1 + entry.relativePath.size() >= PATH_MAX)
        return QStringLiteral("a path in it is too long to copy: %1").arg(PackageScan::displayPath(entry.relativePath));
    if (entry.kind == FileTree::Kind::File) {
        const int fd = ::openat(entry.folderDescriptor, entry.name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0)
            return QStringLiteral("it holds a file that could not be read: %1")
                .arg(PackageScan::displayPath(entry.relativePath));
        ::close(fd);
    }
    return QString();
}

// Why a walk of the package that could not read all of it leaves a copy incomplete.
QString unreadFolderProblem(const FileTree::WalkResult &walk)
{
    if (walk.complete || walk.stopped || walk.error == ENOENT)
        return QString();
    return walk.failedPath.isEmpty() ? QStringLiteral("it could not be read")
                                     : QStringLiteral("it holds a folder that could not be read: %1")
                                           .arg(PackageScan::displayPath(walk.failedPath));
}
} // namespace

bool PackageScan::pointsOutside(const QByteArray &relativePath, const QByteArray &target)
{
    if (target.startsWith('/') || target.isEmpty())
        return true;
    // Depth of the folder that holds the link, then walk the target's pieces.
    int depth = int(relativePath.count('/'));
    for (const QByteArray &piece : target.split('/')) {
        if (piece.isEmpty() || piece == ".")
            continue;
        depth += piece == ".." ? -1 : 1;
        if (depth < 0)
            return true;
    }
    return false;
}

QString PackageScan::displayPath(const QByteArray &relativePath)
{
    QString text = QString::fromUtf8(relativePath); // replacement characters for bytes that are not UTF-8
    if (text.size() > kShownLength)
        text = text.left(kShownLength / 2 - 1) + QStringLiteral("…") + text.right(kShownLength / 2);
    return text;
}

PackageScan::Result PackageScan::scanCopy(const QString &copyPath)
{
    Result result;
    const FileTree::WalkResult walk = FileTree::walk(
        copyPath,
        [&](const FileTree::Entry &entry) {
            result.problem = kindProblem(entry);
            if (!result.problem.isEmpty())
                return false;
            if (entry.kind == FileTree::Kind::File) {
                // cp keeps the source's bits: a read-only document could not be
                // rewritten, and a file only others may read would stop zip.
                if (entry.ours && (entry.mode & (S_IRUSR | S_IWUSR)) != (S_IRUSR | S_IWUSR))
                    ::fchmodat(entry.folderDescriptor, entry.name, entry.mode | S_IRUSR | S_IWUSR, 0);
                result.bytes += entry.size;
                ++result.files;
            }
            return true;
        },
        true);
    if (result.problem.isEmpty() && !walk.complete)
        result.problem
            = QStringLiteral("it holds a folder that could not be read: %1").arg(displayPath(walk.failedPath));
    return result;
}

PackageScan::Result PackageScan::scanInPlace(const QString &packagePath, const QString &copyPath)
{
    // The converter first copies the package, and what cp cannot copy ends
    // it there; only a whole copy is scanned for what it may not hold. So a
    // fault of the first kind anywhere outranks one of the second.
    Result result;
    QString notCopied, notHeld;
    const qsizetype prefixLength = copyPrefixLength(packagePath, copyPath);
    const FileTree::WalkResult walk = FileTree::walk(packagePath, [&](const FileTree::Entry &entry) {
        notCopied = copyProblem(entry, prefixLength);
        if (!notCopied.isEmpty())
            return false;
        if (notHeld.isEmpty())
            notHeld = kindProblem(entry);
        if (entry.kind == FileTree::Kind::File) {
            result.bytes += entry.size;
            ++result.files;
        }
        return true;
    });
    if (notCopied.isEmpty())
        notCopied = unreadFolderProblem(walk);
    result.problem = notCopied.isEmpty() ? notHeld : notCopied;
    return result;
}

QString PackageScan::whyNotCopied(const QString &packagePath, const QString &destinationPath)
{
    QString reason;
    const qsizetype prefixLength = copyPrefixLength(packagePath, destinationPath);
    const FileTree::WalkResult walk = FileTree::walk(packagePath, [&](const FileTree::Entry &entry) {
        reason = copyProblem(entry, prefixLength);
        return reason.isEmpty();
    });
    return reason.isEmpty() ? unreadFolderProblem(walk) : reason;
}
