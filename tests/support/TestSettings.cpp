#include "TestSettings.h"

#include "ConversionEvents.h"
#include "FileUrl.h"
#include "FolderBookmark.h"
#include "NotificationCenter.h"
#include "SettingsStore.h"

#include <QDir>
#include <QFile>
#include <QUrl>

void TestSettings::useOutputFolder(const QString &folder, const QVariantMap &extra)
{
    QVariantMap values = extra;
    values.insert(SettingKey::outputPath, FileUrl::absoluteString(folder));
    values.insert(SettingKey::bookmarkData, *FolderBookmark::platform().create(QUrl::fromLocalFile(folder)));
    SettingsStore::standard().useMemory(values);
}

EventRecorder::EventRecorder()
{
    const QList<QPair<QString, QString>> events = {
        {ConversionEvents::progress, QStringLiteral("progress")},
        {ConversionEvents::finished, QStringLiteral("finished")},
        {ConversionEvents::finishedWithErrorNotKeynote, QStringLiteral("notKeynote")},
        {ConversionEvents::finishedWithErrorNotKeynoteFour, QStringLiteral("notKeynoteFour")},
    };
    for (const auto &event : events) {
        const QString shortName = event.second;
        NotificationCenter::defaultCenter().addObserver(this, event.first, [this, shortName](const Notification &n) {
            names.append(shortName);
            objects.append(n.object);
        });
    }
}

EventRecorder::~EventRecorder()
{
    NotificationCenter::defaultCenter().removeObserver(this);
}

QString TestSettings::isolateScratch(const QString &underFolder)
{
    const QString runtime = underFolder + QStringLiteral("/runtime");
    QDir().mkpath(runtime);
    QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime));
    return runtime;
}
