#pragma once

// How the engine waits for slow work. A command line simply blocks; a window
// must go on painting and answering the window manager while a child tool
// runs or a large file is copied, so the application asks for the event loop
// to keep turning. Everything still happens on the one main thread.
class Waiting
{
public:
    static void setKeepsEventsTurning(bool on);
    static bool keepsEventsTurning();

    // Between two pieces of work done in this process: lets the waiting
    // events through, at most every few hundredths of a second.
    static void turnEvents();
};
