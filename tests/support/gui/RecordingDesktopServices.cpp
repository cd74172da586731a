#include "support/gui/RecordingDesktopServices.h"

RecordingDesktopServices::RecordingDesktopServices()
{
    DesktopServices::setInstance(this);
}

RecordingDesktopServices::~RecordingDesktopServices()
{
    if (&DesktopServices::instance() == this)
        DesktopServices::setInstance(nullptr);
}

QString RecordingDesktopServices::Call::toString() const
{
    QStringList quoted;
    for (const QString &argument : arguments)
        quoted.append(QLatin1Char('"') + argument + QLatin1Char('"'));
    return kind + QLatin1Char('(') + quoted.join(QLatin1String(", ")) + QLatin1Char(')');
}

void RecordingDesktopServices::playSound(const QString &name)
{
    m_calls.append({QStringLiteral("playSound"), {name}});
}

bool RecordingDesktopServices::revealFile(const QString &path, const QString &rootPath)
{
    m_calls.append({QStringLiteral("revealFile"), {path, rootPath}});
    return true;
}

bool RecordingDesktopServices::openFile(const QString &path, const QString &applicationName)
{
    m_calls.append({QStringLiteral("openFile"), {path, applicationName}});
    return true;
}

bool RecordingDesktopServices::openUrl(const QUrl &url)
{
    m_calls.append({QStringLiteral("openUrl"), {url.toString()}});
    return true;
}

QList<RecordingDesktopServices::Call> RecordingDesktopServices::calls(const QString &kind) const
{
    QList<Call> result;
    for (const Call &call : m_calls) {
        if (call.kind == kind)
            result.append(call);
    }
    return result;
}

QStringList RecordingDesktopServices::describe() const
{
    QStringList result;
    for (const Call &call : m_calls)
        result.append(call.toString());
    return result;
}
