#pragma once

#include <QString>
#include <QUrl>

// What the program asks of the desktop: a named sound, showing a file in the
// file manager, opening a file with an application, opening a web page.
// One implementation per platform; tests install a recording one.
class DesktopServices
{
public:
    virtual ~DesktopServices();

    // The services of this platform, or the one a test installed.
    static DesktopServices &instance();
    // Replaces the services (not owned); nullptr goes back to the platform's.
    static void setInstance(DesktopServices *services);

    // A short named sound ("Glass"); nothing happens where there is no audio device.
    virtual void playSound(const QString &name) = 0;
    // Shows the file selected in a file-manager window rooted at rootPath.
    virtual bool revealFile(const QString &path, const QString &rootPath) = 0;
    // Opens the file with the named application, or with the default one when none has that name.
    virtual bool openFile(const QString &path, const QString &applicationName) = 0;
    // Opens a web page or other URL with its default handler.
    virtual bool openUrl(const QUrl &url) = 0;
};
