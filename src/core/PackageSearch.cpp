#include "core/PackageSearch.h"

#include "core/FileTree.h"

#include <QCollator>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

namespace {
// A name that ends in ".key" in any case: ".KEY" is a package the converter
// refuses by its name, not a folder to look into.
bool isPackageBytes(const char *name)
{
    const size_t length = std::strlen(name);
    return length >= 4 && qstrnicmp(name + length - 4, ".key", 4) == 0;
}

// Name order within each folder as a file manager shows it, numbers by their
// value, a subfolder's packages where its name falls: paths compared one "/"
// piece after the other. Names the collator holds equal keep byte order.
bool comesBefore(const QCollator &collator, const QByteArray &a, const QByteArray &b)
{
    const QList<QByteArray> left = a.split('/'), right = b.split('/');
    for (qsizetype i = 0; i < left.size() && i < right.size(); ++i) {
        if (left[i] == right[i])
            continue;
        const int order = collator.compare(QFile::decodeName(left[i]), QFile::decodeName(right[i]));
        return order != 0 ? order < 0 : left[i] < right[i];
    }
    return left.size() < right.size();
}

// given: the folder as the person gave it; root: its clean absolute path.
QList<PackageSearch::Item> searchFolder(const QString &given, const QString &root)
{
    using Item = PackageSearch::Item;
    // The folder as the person named it, through a link if so; below it no link is followed.
    const QString folder = QFileInfo(root).canonicalFilePath();
    if (folder.isEmpty())
        return {Item{Item::Unreadable, given, ENOENT, QString()}};
    // Relative to the folder: packages with 0, folders that could not be read with why.
    std::vector<std::pair<QByteArray, int>> found;
    const FileTree::WalkResult walk = FileTree::walk(folder, [&found](FileTree::Entry &entry) {
        if (entry.kind == FileTree::Kind::Folder && isPackageBytes(entry.name)) {
            found.emplace_back(entry.relativePath, 0);
            entry.descend = false;
        }
        return true;
    });
    found.insert(found.end(), walk.unreadFolders.begin(), walk.unreadFolders.end());
    if (found.empty())
        return {Item{Item::NoPackages, given, 0, QString()}};
    // The C locale compares code points and knows no numbers: English, whose
    // order is the common one, serves there.
    QCollator collator(QLocale().language() == QLocale::C ? QLocale(QLocale::English) : QLocale());
    collator.setNumericMode(true);
    std::stable_sort(found.begin(), found.end(),
                     [&collator](const auto &a, const auto &b) { return comesBefore(collator, a.first, b.first); });
    QList<Item> items;
    for (const auto &[relative, error] : found) {
        const QString path = relative.isEmpty() ? given : root + QLatin1Char('/') + QFile::decodeName(relative);
        const qsizetype slash = relative.lastIndexOf('/');
        items.append({error ? Item::Unreadable : Item::Package, path, error,
                      slash < 0 ? QString() : QFile::decodeName(relative.left(slash))});
    }
    return items;
}
} // namespace

QString PackageSearch::problem(Item::Kind kind, int error)
{
    switch (kind) {
    case Item::Package:
        return QString();
    case Item::NoPackages:
        return QStringLiteral("no Keynote packages in it");
    case Item::Unreadable:
        return QStringLiteral("a folder that could not be read (%1)").arg(QString::fromLocal8Bit(std::strerror(error)));
    }
    return QString();
}

QString PackageSearch::shownPath(const QString &given, const QString &found)
{
    const QString folder = QDir::cleanPath(QFileInfo(given).absoluteFilePath());
    if (found == given || !found.startsWith(folder))
        return found;
    QString base = given;
    while (base.size() > 1 && base.endsWith(QLatin1Char('/')))
        base.chop(1);
    QString rest = found.mid(folder.size());
    while (rest.startsWith(QLatin1Char('/')))
        rest.remove(0, 1);
    return base.endsWith(QLatin1Char('/')) ? base + rest : base + QLatin1Char('/') + rest;
}

bool PackageSearch::isPackageName(const QString &name)
{
    return name.endsWith(QLatin1String(".key"), Qt::CaseInsensitive);
}

QList<PackageSearch::Item> PackageSearch::search(const QString &path)
{
    if (path.isEmpty())
        return {Item{Item::Package, path, 0, QString()}};
    const QFileInfo info(QDir::cleanPath(QFileInfo(path).absoluteFilePath()));
    // A package named through a link is still a package, whatever the link is called.
    const bool folder = info.isDir() && !isPackageName(info.fileName())
                        && !isPackageName(QFileInfo(info.canonicalFilePath()).fileName());
    if (!folder)
        return {Item{Item::Package, path, 0, QString()}};
    return searchFolder(path, info.filePath());
}

QStringList PackageSearch::expand(const QStringList &paths, QStringList *folders)
{
    if (folders)
        folders->clear();
    QStringList packages;
    QSet<QString> seen;
    for (const QString &path : paths) {
        for (const Item &item : search(path)) {
            // An item given is known by where it is, however it was written.
            const QString key = item.path == path && !path.isEmpty()
                                    ? QDir::cleanPath(QFileInfo(path).absoluteFilePath())
                                    : item.path;
            if (item.kind == Item::Package && !seen.contains(key)) {
                seen.insert(key);
                packages.append(item.path);
                if (folders)
                    folders->append(item.folder);
            }
        }
    }
    return packages;
}
