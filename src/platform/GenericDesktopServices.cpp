#include "platform/GenericDesktopServices.h"

#include "core/Logging.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

#ifdef DECKWRIGHT_HAVE_MULTIMEDIA
#include <QAudioDevice>
#include <QMediaDevices>
#include <QSoundEffect>
#endif

GenericDesktopServices::GenericDesktopServices() = default;

GenericDesktopServices::~GenericDesktopServices() = default;

QString GenericDesktopServices::soundResource(const QString &name)
{
    if (name.isEmpty() || name.contains(QLatin1Char('/')) || name.contains(QLatin1Char('\\')))
        return QString();
    const QString resource = QStringLiteral(":/sounds/%1.wav").arg(name);
    return QFile::exists(resource) ? resource : QString();
}

void GenericDesktopServices::playSound(const QString &name)
{
#ifdef DECKWRIGHT_HAVE_MULTIMEDIA
    // Quietly nothing: an unknown sound, no application, or no speaker to play it on.
    const QString resource = soundResource(name);
    if (resource.isEmpty() || !QCoreApplication::instance() || !soundOutputAvailable())
        return;
    if (!m_soundEffect)
        m_soundEffect = new QSoundEffect(QCoreApplication::instance());
    const QUrl source(QLatin1String("qrc") + resource);
    if (m_soundEffect->source() != source)
        m_soundEffect->setSource(source);
    m_soundEffect->play();
#else
    Q_UNUSED(name);
#endif
}

bool GenericDesktopServices::soundOutputAvailable()
{
#ifdef DECKWRIGHT_HAVE_MULTIMEDIA
    return !QMediaDevices::audioOutputs().isEmpty();
#else
    return false;
#endif
}

bool GenericDesktopServices::revealFile(const QString &path, const QString &rootPath)
{
    // The file's own folder is the root that matters; rootPath is only a hint.
    Q_UNUSED(rootPath);
#if defined(Q_OS_WIN)
    QProcess explorer;
    explorer.setProgram(QStringLiteral("explorer.exe"));
    // Explorer wants the quotes around the path only, which QProcess would not do.
    explorer.setNativeArguments(
        QStringLiteral("/select,\"%1\"").arg(QDir::toNativeSeparators(QFileInfo(path).absoluteFilePath())));
    if (explorer.startDetached())
        return true;
#elif defined(Q_OS_MACOS)
    if (QProcess::startDetached(QStringLiteral("/usr/bin/open"), {QStringLiteral("-R"), path}))
        return true;
#endif
    return openContainingFolder(path);
}

bool GenericDesktopServices::openFile(const QString &path, const QString &applicationName)
{
#if defined(Q_OS_MACOS)
    // open -a fails at once when no application has that name; then the default one is used.
    if (!applicationName.isEmpty()) {
        QProcess open;
        open.start(QStringLiteral("/usr/bin/open"), {QStringLiteral("-a"), applicationName, path});
        if (open.waitForFinished(10000) && open.exitStatus() == QProcess::NormalExit && open.exitCode() == 0)
            return true;
    }
#else
    Q_UNUSED(applicationName);
#endif
    return openWithDefaultHandler(QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()));
}

bool GenericDesktopServices::openUrl(const QUrl &url)
{
    return openWithDefaultHandler(url);
}

bool GenericDesktopServices::notify(const QString &, const QString &, const QString &, std::function<void()>)
{
    return false;
}

bool GenericDesktopServices::openWithDefaultHandler(const QUrl &url)
{
    return QDesktopServices::openUrl(url);
}

bool GenericDesktopServices::openContainingFolder(const QString &path)
{
    const QString folder = QFileInfo(path).absolutePath();
    DW_LOG(QStringLiteral("opening folder : ") + folder);
    return openWithDefaultHandler(QUrl::fromLocalFile(folder));
}
