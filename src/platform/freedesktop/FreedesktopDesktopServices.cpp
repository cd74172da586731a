#include "platform/freedesktop/FreedesktopDesktopServices.h"

#include "core/Logging.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QProcess>
#include <QSet>
#include <QStandardPaths>
#include <QTextStream>

#ifdef Q_OS_UNIX
#include <unistd.h>
#endif

#include <functional>

#ifdef DECKWRIGHT_HAVE_DBUS
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#endif

// Hears the notification server's signals and runs the action of the
// notification they name.
class NotificationActions : public QObject
{
    Q_OBJECT

public:
    QHash<uint, std::function<void()>> actions;
    bool listening = false;

public Q_SLOTS:
    void actionInvoked(uint id, const QString &)
    {
        // Copied: the action may well lead to another notification.
        const std::function<void()> action = actions.value(id);
        if (action)
            action();
    }
    void notificationClosed(uint id, uint) { actions.remove(id); }
};

namespace {

struct DesktopEntry
{
    QString type;
    QString name;
    QString exec;
    QString tryExec;
    bool hidden = false;
};

// The escapes of a desktop entry's string values: \s \n \t \r \\.
QString unescapeValue(const QString &value)
{
    QString result;
    result.reserve(value.size());
    for (qsizetype i = 0; i < value.size(); ++i) {
        const QChar c = value.at(i);
        if (c != QLatin1Char('\\') || i + 1 == value.size()) {
            result.append(c);
            continue;
        }
        const QChar next = value.at(++i);
        switch (next.unicode()) {
        case 's':
            result.append(QLatin1Char(' '));
            break;
        case 'n':
            result.append(QLatin1Char('\n'));
            break;
        case 't':
            result.append(QLatin1Char('\t'));
            break;
        case 'r':
            result.append(QLatin1Char('\r'));
            break;
        case '\\':
            result.append(QLatin1Char('\\'));
            break;
        default:
            result.append(c).append(next);
            break;
        }
    }
    return result;
}

// Reads the keys this program needs from the [Desktop Entry] group; localised keys are ignored.
DesktopEntry readDesktopEntry(const QString &fileName)
{
    DesktopEntry entry;
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return entry;
    QTextStream in(&file);
    bool inMainGroup = false;
    QString line;
    while (in.readLineInto(&line)) {
        const QString trimmed = line.trimmed();
        if (trimmed.isEmpty() || trimmed.startsWith(QLatin1Char('#')))
            continue;
        if (trimmed.startsWith(QLatin1Char('['))) {
            inMainGroup = trimmed == QLatin1String("[Desktop Entry]");
            continue;
        }
        if (!inMainGroup)
            continue;
        const qsizetype equals = trimmed.indexOf(QLatin1Char('='));
        if (equals < 0)
            continue;
        const QString key = trimmed.left(equals).trimmed();
        const QString value = unescapeValue(trimmed.mid(equals + 1).trimmed());
        if (key == QLatin1String("Type"))
            entry.type = value;
        else if (key == QLatin1String("Name"))
            entry.name = value;
        else if (key == QLatin1String("Exec"))
            entry.exec = value;
        else if (key == QLatin1String("TryExec"))
            entry.tryExec = value;
        else if (key == QLatin1String("Hidden"))
            entry.hidden = value == QLatin1String("true");
    }
    return entry;
}

bool tryExecFound(const QString &tryExec)
{
    if (tryExec.isEmpty())
        return true;
    if (QDir::isAbsolutePath(tryExec))
        return QFileInfo(tryExec).isExecutable();
    return !QStandardPaths::findExecutable(tryExec).isEmpty();
}

} // namespace

FreedesktopDesktopServices::FreedesktopDesktopServices(const QString &busConnectionName)
    : m_busConnectionName(busConnectionName)
    , m_notificationActions(std::make_unique<NotificationActions>())
{
}

FreedesktopDesktopServices::~FreedesktopDesktopServices() = default;

bool FreedesktopDesktopServices::revealFile(const QString &path, const QString &rootPath)
{
#ifdef DECKWRIGHT_HAVE_DBUS
    QDBusConnection bus
        = m_busConnectionName.isEmpty() ? QDBusConnection::sessionBus() : QDBusConnection(m_busConnectionName);
    if (bus.isConnected()) {
        const QString uri = QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()).toString(QUrl::FullyEncoded);
        QDBusMessage call = QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("/org/freedesktop/FileManager1"),
            QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
        call << QStringList{uri} << QString();
        // Not waited for: starting the file manager can take a while, and the
        // window that asked should not freeze meanwhile.
        auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), &m_replyContext);
        QObject::connect(watcher, &QDBusPendingCallWatcher::finished, &m_replyContext,
                         [this, path, rootPath](QDBusPendingCallWatcher *finished) {
                             finished->deleteLater();
                             if (!finished->isError())
                                 return;
                             DW_LOG(QStringLiteral("file manager : ") + finished->error().message());
                             GenericDesktopServices::revealFile(path, rootPath);
                         });
        return true;
    }
#endif
    return GenericDesktopServices::revealFile(path, rootPath);
}

bool FreedesktopDesktopServices::notify(const QString &title, const QString &body, const QString &actionLabel,
                                        std::function<void()> onAction)
{
#ifdef DECKWRIGHT_HAVE_DBUS
    QDBusConnection bus
        = m_busConnectionName.isEmpty() ? QDBusConnection::sessionBus() : QDBusConnection(m_busConnectionName);
    QDBusConnectionInterface *names = bus.isConnected() ? bus.interface() : nullptr;
    const QString service = QStringLiteral("org.freedesktop.Notifications");
    const QString path = QStringLiteral("/org/freedesktop/Notifications");
    // Asked of the bus, not of the server: a server that hangs must not freeze the window.
    if (!names
        || !(names->isServiceRegistered(service).value() || names->activatableServiceNames().value().contains(service)))
        return false;
    NotificationActions *actions = m_notificationActions.get();
    if (!actions->listening) {
        // Before the first notification, so that no click can come unheard.
        actions->listening = bus.connect(service, path, service, QStringLiteral("ActionInvoked"), actions,
                                         SLOT(actionInvoked(uint, QString)))
                             && bus.connect(service, path, service, QStringLiteral("NotificationClosed"), actions,
                                            SLOT(notificationClosed(uint, uint)));
    }
    QStringList actionList;
    if (onAction && !actionLabel.isEmpty())
        actionList = {QStringLiteral("default"), actionLabel, QStringLiteral("show"), actionLabel};
    QDBusMessage call = QDBusMessage::createMethodCall(service, path, service, QStringLiteral("Notify"));
    call << QStringLiteral("Deckwright") << uint(0) << QStringLiteral("deckwright") << title << body << actionList
         << QVariantMap{{QStringLiteral("desktop-entry"), QStringLiteral("com.bramblefox.Deckwright")}} << qint32(-1);
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), &m_replyContext);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, &m_replyContext,
                     [actions, onAction](QDBusPendingCallWatcher *finished) {
                         finished->deleteLater();
                         const QDBusPendingReply<uint> reply = *finished;
                         if (reply.isError()) {
                             DW_LOG(QStringLiteral("notification : ") + reply.error().message());
                             return;
                         }
                         if (onAction)
                             actions->actions.insert(reply.value(), onAction);
                     });
    return true;
#else
    return GenericDesktopServices::notify(title, body, actionLabel, std::move(onAction));
#endif
}

bool FreedesktopDesktopServices::soundOutputAvailable()
{
    // PulseAudio, or PipeWire speaking its protocol: a server named in the
    // environment, or the socket in the user's runtime folder.
    bool reachable = !qEnvironmentVariableIsEmpty("PULSE_SERVER");
    if (!reachable) {
        QString runtimeFolder = qEnvironmentVariable("XDG_RUNTIME_DIR");
#ifdef Q_OS_UNIX
        if (runtimeFolder.isEmpty())
            runtimeFolder = QStringLiteral("/run/user/%1").arg(::getuid());
#endif
        reachable = !runtimeFolder.isEmpty() && QFileInfo::exists(runtimeFolder + QStringLiteral("/pulse/native"));
    }
    return reachable && GenericDesktopServices::soundOutputAvailable();
}

bool FreedesktopDesktopServices::openFile(const QString &path, const QString &applicationName)
{
    const QString file = QFileInfo(path).absoluteFilePath();
    if (!applicationName.isEmpty()) {
        const QStringList command = expandExec(findApplicationExec(applicationName), file);
        if (!command.isEmpty() && QProcess::startDetached(command.first(), command.mid(1)))
            return true;
        DW_LOG(QStringLiteral("no application : ") + applicationName);
    }
    return openWithDefaultHandler(QUrl::fromLocalFile(file));
}

QString FreedesktopDesktopServices::actionTitle(const QString &storedAction)
{
    if (storedAction == QLatin1String("Show in Finder"))
        return QStringLiteral("Show in Files");
    if (storedAction == QLatin1String("Open in Keynote") && findApplicationExec(QStringLiteral("Keynote")).isEmpty())
        return QStringLiteral("Open with the Default Application");
    return storedAction;
}

QString FreedesktopDesktopServices::findApplicationExec(const QString &name)
{
    QSet<QString> seenIds;
    const QStringList folders = QStandardPaths::standardLocations(QStandardPaths::ApplicationsLocation);
    for (const QString &folder : folders) {
        QStringList files;
        QDirIterator it(folder, {QStringLiteral("*.desktop")}, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext())
            files.append(it.next());
        files.sort();
        const QDir base(folder);
        for (const QString &fileName : std::as_const(files)) {
            // The desktop file id: its path below the folder, with dashes for slashes.
            const QString id = base.relativeFilePath(fileName).replace(QLatin1Char('/'), QLatin1Char('-'));
            if (seenIds.contains(id))
                continue;
            seenIds.insert(id);
            const DesktopEntry entry = readDesktopEntry(fileName);
            if (entry.hidden || entry.name != name || entry.exec.isEmpty())
                continue;
            if (!entry.type.isEmpty() && entry.type != QLatin1String("Application"))
                continue;
            if (!tryExecFound(entry.tryExec))
                continue;
            return entry.exec;
        }
    }
    return QString();
}

QStringList FreedesktopDesktopServices::expandExec(const QString &exec, const QString &file)
{
    QStringList arguments;
    QString current;
    bool inArgument = false; // something, if only a pair of quotes, belongs to the current argument
    bool inQuotes = false;
    bool fileGiven = false;
    const auto finishArgument = [&] {
        if (inArgument)
            arguments.append(current);
        current.clear();
        inArgument = false;
    };
    for (qsizetype i = 0; i < exec.size(); ++i) {
        const QChar c = exec.at(i);
        if (inQuotes) {
            if (c == QLatin1Char('"')) {
                inQuotes = false;
            } else if (c == QLatin1Char('\\') && i + 1 < exec.size()) {
                current.append(exec.at(++i));
            } else if (c == QLatin1Char('%') && i + 1 < exec.size()) {
                // Field codes have no place inside quotes; only %% is honoured there.
                const QChar code = exec.at(++i);
                current.append(QLatin1Char('%'));
                if (code != QLatin1Char('%'))
                    current.append(code);
            } else {
                current.append(c);
            }
            continue;
        }
        if (c == QLatin1Char(' ') || c == QLatin1Char('\t') || c == QLatin1Char('\n')) {
            finishArgument();
        } else if (c == QLatin1Char('"')) {
            inQuotes = true;
            inArgument = true;
        } else if (c == QLatin1Char('\\') && i + 1 < exec.size()) {
            current.append(exec.at(++i));
            inArgument = true;
        } else if (c == QLatin1Char('%') && i + 1 < exec.size()) {
            const QChar code = exec.at(++i);
            if (code == QLatin1Char('%')) {
                current.append(QLatin1Char('%'));
                inArgument = true;
            } else if (QStringLiteral("fFuU").contains(code)) {
                // One file: a path is fine for the URL codes too.
                current.append(file);
                inArgument = true;
                fileGiven = true;
            }
            // Any other code (%i %c %k and the deprecated ones) is dropped.
        } else {
            current.append(c);
            inArgument = true;
        }
    }
    if (inQuotes)
        return QStringList();
    finishArgument();
    if (arguments.isEmpty())
        return QStringList();
    if (!fileGiven)
        arguments.append(file);
    return arguments;
}

#include "FreedesktopDesktopServices.moc"
