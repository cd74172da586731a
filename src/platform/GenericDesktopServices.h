#pragma once

#include "platform/DesktopServices.h"

#include <QPointer>

class QSoundEffect;

// Desktop services from portable Qt alone: the desktop's default handlers and
// the program's own chimes. Also the base of the platform-specific services.
class GenericDesktopServices : public DesktopServices
{
public:
    GenericDesktopServices();
    ~GenericDesktopServices() override;

    void playSound(const QString &name) override;
    // Selects the file where the platform has a way to; elsewhere opens its folder.
    bool revealFile(const QString &path, const QString &rootPath) override;
    bool openFile(const QString &path, const QString &applicationName) override;
    bool openUrl(const QUrl &url) override;
    // Portable Qt has no notifications of its own: never shown.
    bool notify(const QString &title, const QString &body, const QString &actionLabel,
                std::function<void()> onAction) override;

    // The resource of the chime called name (":/sounds/Glass.wav"), or empty when there is none.
    static QString soundResource(const QString &name);

protected:
    // Whether there is somewhere to play a sound.
    virtual bool soundOutputAvailable();
    // Hands a URL to the desktop's default handler. Tests record it instead.
    virtual bool openWithDefaultHandler(const QUrl &url);
    // Opens the folder holding path with the default handler.
    bool openContainingFolder(const QString &path);

private:
#ifdef DECKWRIGHT_HAVE_MULTIMEDIA
    // Reused, and kept until it has played; the application owns it so it
    // never outlives the audio system.
    QPointer<QSoundEffect> m_soundEffect;
#endif
};
