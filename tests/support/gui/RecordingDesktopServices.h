#pragma once

#include "platform/DesktopServices.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

// Stands in for the desktop while it lives: records every call, in order,
// and answers true. Installs itself on construction, uninstalls on destruction.
class RecordingDesktopServices : public DesktopServices
{
public:
    struct Call
    {
        QString kind;          // "playSound", "revealFile", "openFile" or "openUrl"
        QStringList arguments; // as given; a URL as its text

        bool operator==(const Call &other) const { return kind == other.kind && arguments == other.arguments; }
        bool operator!=(const Call &other) const { return !(*this == other); }
        QString toString() const; // e.g. openFile("/out/My Talk.key", "Keynote")
        // Readable QCOMPARE failures, found by argument-dependent lookup.
        friend char *toString(const Call &call) { return qstrdup(call.toString().toUtf8().constData()); }
    };

    RecordingDesktopServices();
    ~RecordingDesktopServices() override;
    RecordingDesktopServices(const RecordingDesktopServices &) = delete;
    RecordingDesktopServices &operator=(const RecordingDesktopServices &) = delete;

    void playSound(const QString &name) override;
    bool revealFile(const QString &path, const QString &rootPath) override;
    bool openFile(const QString &path, const QString &applicationName) override;
    bool openUrl(const QUrl &url) override;

    const QList<Call> &calls() const { return m_calls; }
    // The calls of one kind, in order.
    QList<Call> calls(const QString &kind) const;
    // All calls, one toString() each: handy in QCOMPARE.
    QStringList describe() const;
    void clear() { m_calls.clear(); }

private:
    QList<Call> m_calls;
};
