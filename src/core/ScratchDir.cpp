#include "core/ScratchDir.h"

#include <QDir>
#include <QFile>

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

QString tempFolderPath()
{
    return withSlash(QDir::tempPath()) + QStringLiteral("deckwright-%1/").arg(::getuid());
}
} // namespace

QString ScratchDir::preferredPath()
{
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty())
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

QString ScratchDir::path()
{
    // The runtime folder first; the temporary folder when that one is unusable.
    for (const QString &base : {preferredPath(), tempFolderPath()}) {
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
