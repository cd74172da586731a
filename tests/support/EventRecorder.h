#pragma once

#include <QList>
#include <QStringList>

class Converter;

// Records the conversion events, in order, while it lives.
class EventRecorder
{
public:
    EventRecorder();
    ~EventRecorder();
    QStringList names; // short names: progress, finished, notKeynote, notKeynoteFour
    QList<Converter *> objects;
};
