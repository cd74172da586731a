#include "support/EventRecorder.h"

#include "core/ConversionEvents.h"
#include "core/NotificationCenter.h"

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
