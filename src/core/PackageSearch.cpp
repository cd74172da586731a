#include "core/PackageSearch.h"

#include "core/FileTree.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <algorithm>
#include <cstring>
#include <functional>
#include <vector>

namespace {
bool isPackageBytes(const char *name)
{
    const size_t length = std::strlen(name);
    return length >= 4 && std::strcmp(name + length - 4, ".key") == 0;
}

// Name order within each folder, a subfolder's packages where its name falls:
// paths compared one "/" piece after the other.
bool comesBefore(const QByteArray &a, const QByteArray &b)
{
    const QList<QByteArray> left = a.split('/'), right = b.split('/');
    return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end());
}

void search(const QString &root, const std::function<void(const QString &)> &found)
{
    // The folder as the person named it, through a link if so; below it no link is followed.
    const QString folder = QFileInfo(root).canonicalFilePath();
    if (folder.isEmpty())
        return;
    std::vector<QByteArray> packages;
    FileTree::walk(folder, [&packages](FileTree::Entry &entry) {
        if (entry.kind == FileTree::Kind::Folder && isPackageBytes(entry.name)) {
            packages.push_back(entry.relativePath);
            entry.descend = false;
        }
        return true;
    });
    std::sort(packages.begin(), packages.end(), comesBefore);
    const QString prefix = QFileInfo(root).absoluteFilePath() + QLatin1Char('/');
    for (const QByteArray &package : packages)
        found(prefix + QFile::decodeName(package));
}
} // namespace

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
    return name.endsWith(QLatin1String(".key"));
}

QStringList PackageSearch::expand(const QStringList &paths)
{
    QStringList packages;
    QSet<QString> seen;
    const auto add = [&](const QString &path, const QString &key) {
        if (!seen.contains(key)) {
            seen.insert(key);
            packages.append(path);
        }
    };
    for (const QString &path : paths) {
        if (path.isEmpty()) {
            add(path, path);
            continue;
        }
        const QFileInfo info(QDir::cleanPath(QFileInfo(path).absoluteFilePath()));
        // A package named through a link is still a package, whatever the link is called.
        const bool folder = info.isDir() && !isPackageName(info.fileName())
                            && !isPackageName(QFileInfo(info.canonicalFilePath()).fileName());
        if (folder)
            search(info.filePath(), [&add](const QString &found) { add(found, found); });
        else
            add(path, info.filePath());
    }
    return packages;
}
