#pragma once

#include <QString>
#include <QVariantMap>

// Test scaffolding around the process-wide singletons.
class TestSettings
{
public:
    // An in-memory store holding the folder as outputPath and its bookmark, plus extras.
    static void useOutputFolder(const QString &folder, const QVariantMap &extra = {});
    // Gives this test process a scratch folder of its own, so parallel runs
    // (and real conversions on the machine) never meet. Call before any conversion.
    static QString isolateScratch(const QString &underFolder);
};
