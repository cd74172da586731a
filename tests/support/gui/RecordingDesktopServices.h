#pragma once

#include "platform/DesktopServices.h"

#include <QStringList>
#include <QVariantMap>

// Stands in for the desktop while it lives: records every call, in order, as
// text such as openFile("/out/My Talk.key", "Keynote"), and answers true.
class RecordingDesktopServices : public DesktopServices
{
    Q_DISABLE_COPY(RecordingDesktopServices)

public:
    RecordingDesktopServices() { DesktopServices::setInstance(this); }
    ~RecordingDesktopServices() override
    {
        if (&DesktopServices::instance() == this)
            DesktopServices::setInstance(nullptr);
    }

    void playSound(const QString &name) override { record("playSound", {name}); }
    bool revealFile(const QString &path, const QString &root) override { return record("revealFile", {path, root}); }
    bool openFile(const QString &path, const QString &app) override { return record("openFile", {path, app}); }
    bool openUrl(const QUrl &url) override { return record("openUrl", {url.toString()}); }
    bool notify(const QString &title, const QString &body, const QString &actionLabel,
                std::function<void()> onAction) override
    {
        notificationAction = std::move(onAction);
        return record("notify", {title, body, actionLabel});
    }

    // The desktop's words for the completion actions: a Linux desktop without Keynote's unless a test says otherwise.
    QString actionTitle(const QString &action) override { return titles.value(action, action).toString(); }

    QStringList calls;
    QVariantMap titles{{"Show in Finder", "Show in Files"}, {"Open in Keynote", "Open with the Default Application"}};
    // What the last notification's action would do.
    std::function<void()> notificationAction;

private:
    bool record(const char *kind, const QStringList &arguments)
    {
        calls.append(QStringLiteral("%1(\"%2\")").arg(QLatin1String(kind), arguments.join(QStringLiteral("\", \""))));
        return true;
    }
};
