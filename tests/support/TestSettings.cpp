#include "support/TestSettings.h"

#include "core/FileUrl.h"
#include "core/FolderBookmark.h"
#include "core/SettingsStore.h"

#include <QtCore>

void TestSettings::useOutputFolder(const QString &folder, const QVariantMap &extra)
{
    QVariantMap values = extra;
    values.insert(SettingKey::outputPath, FileUrl::absoluteString(folder));
    values.insert(SettingKey::bookmarkData, *FolderBookmark::platform().create(QUrl::fromLocalFile(folder)));
    SettingsStore::standard().useMemory(values);
}

QString TestSettings::isolateScratch(const QString &underFolder)
{
    const QString runtime = underFolder + QStringLiteral("/runtime");
    QDir().mkpath(runtime);
    QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime));
    return runtime;
}
