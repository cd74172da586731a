#include "core/Waiting.h"

#include <QCoreApplication>
#include <QElapsedTimer>

namespace {
bool g_keepsEventsTurning = false;
constexpr qint64 kTurnEveryMs = 30;
} // namespace

void Waiting::setKeepsEventsTurning(bool on)
{
    g_keepsEventsTurning = on;
}

bool Waiting::keepsEventsTurning()
{
    return g_keepsEventsTurning;
}

void Waiting::turnEvents()
{
    if (!g_keepsEventsTurning)
        return;
    static QElapsedTimer sinceLastTurn;
    if (sinceLastTurn.isValid() && sinceLastTurn.elapsed() < kTurnEveryMs)
        return;
    sinceLastTurn.start();
    QCoreApplication::processEvents(QEventLoop::AllEvents, int(kTurnEveryMs));
}
