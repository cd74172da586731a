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
            switch (entry.kind) {
            case FileTree::Kind::File:
                // cp keeps the source's bits: a read-only document could not be
                // rewritten, and a file only others may read would stop zip.
                if (entry.ours && (entry.mode & (S_IRUSR | S_IWUSR)) != (S_IRUSR | S_IWUSR))
                    ::fchmodat(entry.folderDescriptor, entry.name, entry.mode | S_IRUSR | S_IWUSR, 0);
                result.bytes += entry.size;
                ++result.files;
                return true;
            case FileTree::Kind::Folder:
                return true;
            case FileTree::Kind::Link: {
                char target[PATH_MAX];
                const ssize_t n = ::readlinkat(entry.folderDescriptor, entry.name, target, sizeof target);
                const QByteArray to = n > 0 ? QByteArray(target, int(n)) : QByteArray();
                result.problem = pointsOutside(entry.relativePath, to)
                                     ? QStringLiteral("it holds a link to a file outside the package: %1")
                                     : QStringLiteral("it holds a symbolic link: %1");
                result.problem = result.problem.arg(displayPath(entry.relativePath));
                return false;
            }
            default:
                result.problem = QStringLiteral("it holds %1: %2")
                                     .arg(FileTree::kindName(entry.kind), displayPath(entry.relativePath));
                return false;
            }
        },
        true);
    if (result.problem.isEmpty() && !walk.complete)
        result.problem
            = QStringLiteral("it holds a folder that could not be read: %1").arg(displayPath(walk.failedPath));
    return result;
}

QString PackageScan::whyNotCopied(const QString &packagePath, const QString &destinationPath)
{
    QString reason;
    // cp names every file by its whole path, on both sides.
    const qsizetype prefixLength
        = qMax(QFile::encodeName(destinationPath).size(), QFile::encodeName(packagePath).size());
    const FileTree::WalkResult walk = FileTree::walk(packagePath, [&](const FileTree::Entry &entry) {
        if (prefixLength + 1 + entry.relativePath.size() >= PATH_MAX) {
            reason = QStringLiteral("a path in it is too long to copy: %1").arg(displayPath(entry.relativePath));
            return false;
        }
        if (entry.kind == FileTree::Kind::File) {
            const int fd = ::openat(entry.folderDescriptor, entry.name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
            if (fd < 0) {
                reason
                    = QStringLiteral("it holds a file that could not be read: %1").arg(displayPath(entry.relativePath));
                return false;
            }
            ::close(fd);
        }
        return true;
    });
    if (reason.isEmpty() && !walk.complete && !walk.stopped && walk.error != ENOENT)
        reason = walk.failedPath.isEmpty()
                     ? QStringLiteral("it could not be read")
                     : QStringLiteral("it holds a folder that could not be read: %1").arg(displayPath(walk.failedPath));
    return reason;
}
