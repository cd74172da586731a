#include "core/PackageSearch.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

bool isPackageBytes(const std::string &name)
{
    static const std::string suffix = ".key";
    return name.size() >= suffix.size() && name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// A folder in a folder: a package to list or a subfolder to search.
struct Item
{
    std::string name;
    bool package = false;
};

// One folder on the way down: its name, who it is (to know it again), and
// what is left to do in it, taken from the back.
struct Folder
{
    std::string name;
    dev_t device = 0;
    ino_t inode = 0;
    std::vector<Item> pending;
};

// The folders in an open folder, by name. Links, files and entries that
// cannot be looked at are left out; a folder that cannot be read has none.
std::vector<Item> foldersIn(int folder)
{
    std::vector<Item> items;
    const int dup = ::fcntl(folder, F_DUPFD_CLOEXEC, 0);
    if (dup < 0)
        return items;
    DIR *dir = ::fdopendir(dup);
    if (!dir) {
        ::close(dup);
        return items;
    }
    while (const dirent *entry = ::readdir(dir)) {
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0)
            continue;
        struct stat st = {};
        if (::fstatat(folder, entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISDIR(st.st_mode))
            continue;
        items.push_back({entry->d_name, isPackageBytes(entry->d_name)});
    }
    ::closedir(dir);
    std::sort(items.begin(), items.end(), [](const Item &a, const Item &b) { return a.name < b.name; });
    return items;
}

// Depth first with one folder open at a time, so neither depth nor width
// runs out of descriptors or stack; going up is "..", checked to be the
// folder we came from.
void search(const QString &root, const std::function<void(const QString &)> &found)
{
    QByteArray prefix = QFile::encodeName(root);
    if (!prefix.endsWith('/'))
        prefix += '/';
    // The folder as the person named it, through a link if so; below it no link is followed.
    int current = ::open(prefix.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (current < 0)
        return;
    std::vector<Folder> path;

    const auto enter = [&](const std::string &name) {
        struct stat st = {};
        if (::fstat(current, &st) != 0)
            return false;
        // A folder already on the way down (a mount of one of its parents) would never end.
        for (const Folder &folder : path) {
            if (folder.device == st.st_dev && folder.inode == st.st_ino)
                return false;
        }
        std::vector<Item> items = foldersIn(current);
        std::reverse(items.begin(), items.end());
        path.push_back({name, st.st_dev, st.st_ino, std::move(items)});
        return true;
    };
    const auto pathOf = [&](const std::string &name) {
        QByteArray bytes = prefix;
        for (size_t i = 1; i < path.size(); ++i) // path[0] is the root itself
            bytes += QByteArray::fromStdString(path[i].name) + '/';
        return QFile::decodeName(bytes + QByteArray::fromStdString(name));
    };

    if (!enter(std::string())) {
        ::close(current);
        return;
    }
    while (!path.empty()) {
        Folder &folder = path.back();
        if (!folder.pending.empty()) {
            const Item item = std::move(folder.pending.back());
            folder.pending.pop_back();
            if (item.package) {
                found(pathOf(item.name));
                continue;
            }
            const int next = ::openat(current, item.name.c_str(), kFolderFlags);
            if (next < 0)
                continue; // unreadable, gone, or turned into a link since it was listed
            const int parent = current;
            current = next;
            if (enter(item.name)) {
                ::close(parent);
            } else {
                ::close(next);
                current = parent;
            }
            continue;
        }
        path.pop_back();
        if (path.empty())
            break;
        const int parent = ::openat(current, "..", kFolderFlags);
        ::close(current);
        current = parent;
        struct stat st = {};
        // Moved elsewhere while we were inside: what is left would not be where we listed it.
        if (current < 0 || ::fstat(current, &st) != 0 || st.st_dev != path.back().device
            || st.st_ino != path.back().inode)
            break;
    }
    if (current >= 0)
        ::close(current);
}
} // namespace

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
