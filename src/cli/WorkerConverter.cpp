#include "cli/WorkerConverter.h"

#include "cli/WorkerChannel.h"
#include "core/StopRequest.h"

WorkerConverter::WorkerConverter(const QString &prezOrigPath, WorkerChannel &channel)
    : Converter(prezOrigPath)
    , m_channel(channel)
{
}

void WorkerConverter::waitForTurnToName()
{
    if (m_channel.writeLine(WorkerChannel::readyMessage())) {
        const std::optional<QByteArray> answer = m_channel.readLine();
        if (answer == WorkerChannel::goMessage())
            return;
    }
    if (!StopRequest::pending())
        StopRequest::request();
}
