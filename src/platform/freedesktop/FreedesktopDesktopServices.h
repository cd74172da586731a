#pragma once

#include "platform/GenericDesktopServices.h"

#include <QObject>
#include <QStringList>

#include <memory>

class NotificationActions;

// Desktop services on Linux and the BSDs: the file manager is asked over
// D-Bus (org.freedesktop.FileManager1) to show a file selected, notifications
// go to org.freedesktop.Notifications, and a named application is found among
// the XDG desktop entries.
class FreedesktopDesktopServices : public GenericDesktopServices
{
public:
    // busConnectionName names a connection made with QDBusConnection::connectToBus
    // (tests bring a private bus); empty means the session bus.
    explicit FreedesktopDesktopServices(const QString &busConnectionName = QString());
    ~FreedesktopDesktopServices() override;

    // Asks the file manager and returns at once; when it turns out that no file
    // manager answers, the containing folder is opened instead.
    bool revealFile(const QString &path, const QString &rootPath) override;
    // Starts the installed application with that Name, else the default one.
    bool openFile(const QString &path, const QString &applicationName) override;
    // Shown by the desktop's notification server when one runs or can be
    // started; returns without waiting for it.
    bool notify(const QString &title, const QString &body, const QString &actionLabel,
                std::function<void()> onAction) override;

    // The file manager is "Files" here, and Keynote is named only when an
    // application of that name is installed: the one openFile would start.
    QString actionTitle(const QString &storedAction) override;

    // The Exec line of the installed application whose Name is name, or empty.
    // Desktop entries are looked up in the XDG applications folders, earlier
    // folders hiding entries of the same id in later ones.
    static QString findApplicationExec(const QString &name);
    // A desktop entry's Exec value as program and arguments, the file given to
    // %f %F %u %U (or appended when there is none of them) and the other field
    // codes dropped. Empty when the line cannot be parsed.
    static QStringList expandExec(const QString &exec, const QString &file);

protected:
    // Only with a sound server to talk to: without one, Qt's audio backend
    // complains on the console when asked for devices.
    bool soundOutputAvailable() override;

private:
    QString m_busConnectionName;
    // Owns the pending file-manager calls, so that none outlives these services.
    QObject m_replyContext;
    // The actions of the notifications still on screen, by their id.
    std::unique_ptr<NotificationActions> m_notificationActions;
};
