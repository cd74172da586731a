#include "core/ScratchDir.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
QString withSlash(QString path)
{
    if (!path.endsWith(QLatin1Char('/')))
        path += QLatin1Char('/');
    return path;
}

QString withoutSlash(QString path)
{
    while (path.size() > 1 && path.endsWith(QLatin1Char('/')))
        path.chop(1);
    return path;
}

constexpr int kMaxAlternatives = 20;

// A folder to make ours in: an absolute path to a folder that exists, and
// never the root, where nothing of a user's belongs. QDir::tempPath() is
// empty when $TMPDIR names a folder that does not exist, and
// $XDG_RUNTIME_DIR may hold anything at all.
bool isUsableBase(const QString &folder)
{
    const QString real = QFileInfo(folder).canonicalFilePath();
    return folder.startsWith(QLatin1Char('/')) && !real.isEmpty() && real != QLatin1String("/");
}

QString tempFolderPath(const QString &temp)
{
    return withSlash(temp) + QStringLiteral("deckwright-%1/").arg(::getuid());
}

QString tempFolderPath()
{
    const QString temp = QDir::tempPath();
    return tempFolderPath(isUsableBase(temp) ? temp : QStringLiteral("/tmp"));
}
} // namespace

QString ScratchDir::preferredPath()
{
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (isUsableBase(runtime))
        return withSlash(runtime) + QLatin1String("deckwright/");
    return tempFolderPath();
}

bool ScratchDir::isPrivate(int folderDescriptor)
{
    struct stat st = {};
    if (::fstat(folderDescriptor, &st) != 0)
        return false;
    return S_ISDIR(st.st_mode) && st.st_uid == ::getuid() && (st.st_mode & 077) == 0;
}

bool ScratchDir::isPrivate(const QString &folder)
{
    // No trailing "/": it would make the kernel follow a link in the last place.
    const int fd
        = ::open(QFile::encodeName(withoutSlash(folder)).constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool ok = isPrivate(fd);
    ::close(fd);
    return ok;
}

bool ScratchDir::isOwnSocket(const QString &path, QString *otherwise)
{
    otherwise->clear();
    struct stat st = {};
    if (::lstat(QFile::encodeName(path).constData(), &st) != 0) {
        if (errno != ENOENT)
            *otherwise = QString::fromLocal8Bit(std::strerror(errno));
        return false;
    }
    if (st.st_uid != ::getuid())
        *otherwise = QStringLiteral("it belongs to another user");
    else if (S_ISDIR(st.st_mode))
        *otherwise = QStringLiteral("it is a folder");
    else if (S_ISLNK(st.st_mode))
        *otherwise = QStringLiteral("it is a symbolic link");
    else if (!S_ISSOCK(st.st_mode))
        *otherwise = QStringLiteral("it is a file, not a socket");
    return otherwise->isEmpty();
}

QString ScratchDir::path()
{
    // The runtime folder first; the temporary folder when that one is
    // unusable, and the system's own when $TMPDIR leads nowhere we may write.
    for (const QString &base : {preferredPath(), tempFolderPath(), tempFolderPath(QStringLiteral("/tmp"))}) {
        const QString preferred = withoutSlash(base);
        for (int n = 0; n <= kMaxAlternatives; ++n) {
            const QString candidate = n == 0 ? preferred : preferred + QLatin1Char('-') + QString::number(n);
            // An existing one is checked below; mkdir never follows a link.
            ::mkdir(QFile::encodeName(candidate).constData(), 0700);
            if (isPrivate(candidate))
                return withSlash(candidate);
        }
    }
    return QString();
}
