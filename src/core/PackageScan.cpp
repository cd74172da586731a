#include "core/PackageScan.h"

#include <QList>
#include <QTextBoundaryFinder>

#include <climits>

#include <unistd.h>

namespace {
constexpr int kShownLength = 80;
} // namespace

QString PackageScan::kindProblem(FileTree::Kind kind, int folderDescriptor, const char *name,
                                 const QByteArray &relativePath)
{
    switch (kind) {
    case FileTree::Kind::File:
    case FileTree::Kind::Folder:
        return QString();
    case FileTree::Kind::Link: {
        char target[PATH_MAX];
        const ssize_t n = ::readlinkat(folderDescriptor, name, target, sizeof target);
        const QByteArray to = n > 0 ? QByteArray(target, int(n)) : QByteArray();
        const QString problem = pointsOutside(relativePath, to)
                                    ? QStringLiteral("it holds a link to a file outside the package: %1")
                                    : QStringLiteral("it holds a symbolic link: %1");
        return problem.arg(displayPath(relativePath));
    }
    default:
        return QStringLiteral("it holds %1: %2").arg(FileTree::kindName(kind), displayPath(relativePath));
    }
}

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
    const QString text = QString::fromUtf8(relativePath); // replacement characters for bytes that are not UTF-8
    // Cut only where one character as a person sees it (an emoji, a letter
    // with its accents) ends and the next begins.
    QList<qsizetype> ends;
    QTextBoundaryFinder characters(QTextBoundaryFinder::Grapheme, text);
    for (qsizetype at = characters.toNextBoundary(); at > 0; at = characters.toNextBoundary())
        ends.append(at);
    if (ends.size() <= kShownLength)
        return text;
    const qsizetype headEnd = ends.at(kShownLength / 2 - 2), tailStart = ends.at(ends.size() - kShownLength / 2 - 1);
    return text.left(headEnd) + QStringLiteral("…") + text.mid(tailStart);
}
