#pragma once

#include "core/ConversionEvents.h"
#include "core/NotificationCenter.h"

#include <QStringList>

class Converter;

// Records the conversion events, in order, while it lives: their short names
// (progress, finished, notKeynote, notKeynoteFour) and their objects.
struct EventRecorder
{
    EventRecorder()
    {
        for (const auto &[event, name] : {std::pair{ConversionEvents::progress, "progress"},
                                          {ConversionEvents::finished, "finished"},
                                          {ConversionEvents::finishedWithErrorNotKeynote, "notKeynote"},
                                          {ConversionEvents::finishedWithErrorNotKeynoteFour, "notKeynoteFour"}})
            NotificationCenter::defaultCenter().addObserver(this, event, [this, name = name](const Notification &n) {
                names.append(QString::fromLatin1(name));
                objects.append(n.object);
            });
    }
    ~EventRecorder() { NotificationCenter::defaultCenter().removeObserver(this); }
    EventRecorder(const EventRecorder &) = delete;
    EventRecorder &operator=(const EventRecorder &) = delete;

    QStringList names;
    QList<Converter *> objects;
};
