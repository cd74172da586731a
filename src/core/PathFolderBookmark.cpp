#include "core/PathFolderBookmark.h"

#include <QDir>
#include <QFileInfo>

const QByteArray PathFolderBookmark::magic = QByteArrayLiteral("DWFB");

// Folders are named by their path on every platform this builds for so far.
FolderBookmark &FolderBookmark::platform()
{
    static PathFolderBookmark bookmarks;
    return bookmarks;
}

std::optional<QByteArray> PathFolderBookmark::create(const QUrl &folder)
{
    if (!folder.isLocalFile())
        return std::nullopt;
    const QFileInfo info(folder.toLocalFile());
    if (!info.isDir())
        return std::nullopt;
    QByteArray token = magic;
    token.append(version);
    token.append(QDir::cleanPath(info.absoluteFilePath()).toUtf8());
    return token;
}

std::optional<QUrl> PathFolderBookmark::resolve(const QByteArray &bookmark)
{
    if (bookmark.size() <= magic.size() + 1 || !bookmark.startsWith(magic) || bookmark.at(magic.size()) != version)
        return std::nullopt;
    const QString path = QString::fromUtf8(bookmark.mid(magic.size() + 1));
    if (!QDir::isAbsolutePath(path) || !QFileInfo(path).isDir())
        return std::nullopt;
    QString withSlash = path;
    if (!withSlash.endsWith(QLatin1Char('/')))
        withSlash += QLatin1Char('/');
    return QUrl::fromLocalFile(withSlash);
}
