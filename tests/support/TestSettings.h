#pragma once

#include "core/FileUrl.h"
#include "core/FolderBookmark.h"
#include "core/SettingsStore.h"

#include <QtCore>

// Test scaffolding around the process-wide singletons.
struct TestSettings
{
    // An in-memory store holding the folder as outputPath and its bookmark, plus extras.
    static void useOutputFolder(const QString &folder, QVariantMap extra = {})
    {
        extra.insert(SettingKey::outputPath, FileUrl::absoluteString(folder));
        extra.insert(SettingKey::bookmarkData, *FolderBookmark::platform().create(QUrl::fromLocalFile(folder)));
        SettingsStore::standard().useMemory(extra);
    }
    // Gives this test process a scratch folder of its own, so parallel runs
    // (and real conversions on the machine) never meet. Call before any conversion.
    static QString isolateScratch(const QString &underFolder)
    {
        const QString runtime = underFolder + QStringLiteral("/runtime");
        QDir().mkpath(runtime);
        QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime));
        return runtime;
    }
};
