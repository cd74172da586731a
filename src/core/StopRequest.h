#pragma once

#include <QtGlobal>

#include <functional>

// Ends a conversion early without leaving anything behind. Two things ask
// for it: SIGINT, SIGTERM or SIGHUP arriving while a conversion runs, and the
// person (a Stop button). The running child tool and its own children are
// killed at once; the converter notices at its next step, removes its
// scratch folder and unfinished output, and for a signal the process then
// ends by that signal, with the status a shell expects (130, 143, 129).
// Outside a conversion the signals keep their usual, immediate effect.
class StopRequest
{
public:
    // Installs the handlers for SIGINT, SIGTERM and SIGHUP. Once per process.
    static void installSignalHandlers();

    // Whether the current conversion has been asked to stop, and by which signal (0: by the person).
    static bool pending();
    static int signalNumber();
    // The person's stop; kills the running child tool at once.
    static void request();

    // Brackets one conversion: a signal in between is deferred to its end,
    // where it takes effect.
    static void beginConversion();
    static void endConversion();

    // The process group of the child tool now running (0: none), killed on a stop.
    static void setChildGroup(qint64 processGroup);

    // Ends the process by the signal that stopped it; returns when there was none.
    static void finishSignal();
    // What is to be tidied just before a signal ends the process that way (a
    // line drawn on a terminal); empty for nothing.
    static void setBeforeSignalEnds(std::function<void()> action);

    // For a process that works for another: SIGTERM arrives when that one
    // ends, even by SIGKILL, so that this one stops as cleanly as for any
    // signal. Where the system cannot, the worker must notice by other means.
    static void stopWhenParentEnds();

    // Readable when a signal was deferred, for an event loop that runs
    // inside a conversion (an alert about the file is open): it can end the
    // process at once instead of when the alert is answered. -1 without handlers.
    static int signalDescriptor();
};
