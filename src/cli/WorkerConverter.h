#pragma once

#include "core/Converter.h"

class WorkerChannel;

// The converter of a worker: before its file takes a name in the output
// folder, it tells the command that started it and waits for its turn, so
// that the command can have the files of a batch named in the order given.
class WorkerConverter : public Converter
{
public:
    WorkerConverter(const QString &prezOrigPath, WorkerChannel &channel);

protected:
    // Without "go" (the command is gone, it said something else, or a
    // signal came) the conversion stops and leaves nothing.
    void waitForTurnToName() override;

private:
    WorkerChannel &m_channel;
};
