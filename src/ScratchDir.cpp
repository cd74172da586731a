#include "ScratchDir.h"

#include "Fatal.h"

#include <QDir>
#include <QTemporaryDir>

#include <memory>

#if defined(Q_OS_UNIX)
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {
QString withSlash(QString path)
{
    if (!path.endsWith(QLatin1Char('/')))
        path += QLatin1Char('/');
    return path;
}

QString fallbackPath()
{
    static std::unique_ptr<QTemporaryDir> dir;
    if (!dir) {
        dir = std::make_unique<QTemporaryDir>(QDir::tempPath() + QLatin1String("/deckwright-run-XXXXXX"));
        if (!dir->isValid())
            Fatal::fail(QStringLiteral("no private scratch folder could be made in %1: %2")
                            .arg(QDir::tempPath(), dir->errorString()));
        const QString made = dir->path();
        Fatal::addCleanup([made] { QDir(made).removeRecursively(); });
    }
    return withSlash(dir->path());
}
} // namespace

QString ScratchDir::preferredPath()
{
#if defined(Q_OS_UNIX) && !defined(Q_OS_MACOS)
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty())
        return withSlash(runtime) + QLatin1String("deckwright/");
    return withSlash(QDir::tempPath()) + QStringLiteral("deckwright-%1/").arg(::getuid());
#else
    // macOS and Windows give every user a temporary folder of their own.
    return withSlash(QDir::tempPath());
#endif
}

bool ScratchDir::isPrivate(const QString &folder)
{
#if defined(Q_OS_UNIX)
    struct stat st {};
    if (::lstat(QFile::encodeName(folder).constData(), &st) != 0)
        return false;
    return S_ISDIR(st.st_mode) && st.st_uid == ::getuid() && (st.st_mode & 077) == 0;
#else
    return QFileInfo(folder).isDir();
#endif
}

QString ScratchDir::path()
{
#if defined(Q_OS_UNIX) && !defined(Q_OS_MACOS)
    static bool useFallback = false;
    if (!useFallback) {
        const QString preferred = preferredPath();
        ::mkdir(QFile::encodeName(preferred).constData(), 0700); // an existing one is checked below
        if (isPrivate(preferred))
            return preferred;
        useFallback = true;
    }
    return fallbackPath();
#else
    return preferredPath();
#endif
}
