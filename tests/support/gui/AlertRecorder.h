#pragma once

#include "gui/Alert.h"

#include <QList>

// Answers every alert with its first button and keeps a copy, while it lives.
class AlertRecorder
{
    Q_DISABLE_COPY(AlertRecorder)

public:
    AlertRecorder()
    {
        Alert::setResponder([this](const Alert &alert) {
            alerts.append(alert);
            return Alert::firstButtonReturn;
        });
    }
    ~AlertRecorder() { Alert::setResponder(nullptr); }

    QList<Alert> alerts;
};
