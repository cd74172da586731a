#pragma once

#include <QString>
#include <QStringList>
#include <QVariantMap>

class Converter;

// Test scaffolding around the process-wide singletons.
class TestSettings
{
public:
    // An in-memory store holding the folder as outputPath and its bookmark, plus extras.
    static void useOutputFolder(const QString &folder, const QVariantMap &extra = {});
};

// Records the conversion events, in order, while it lives.
class EventRecorder
{
public:
    EventRecorder();
    ~EventRecorder();
    QStringList names;       // short names: progress, finished, notKeynote, notKeynoteFour
    QList<Converter *> objects;
};
