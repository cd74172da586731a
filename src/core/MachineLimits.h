#pragma once

#include <QString>

// How much of the machine a batch may take at once. Each conversion run in a
// process of its own needs a share of what the user may hold: a few open files
// in the command that talks to it, and two processes (itself and the tool it
// runs). Asking for more than there is would only make conversions fail.
class MachineLimits
{
public:
    // The most conversions to run at once: four per processor, fewer when the
    // limits on open files (RLIMIT_NOFILE) or on the user's processes
    // (RLIMIT_NPROC, less what already runs) leave no room for more; at least 1.
    static int parallelConversions();
    // The same, said for a person: "8 at once, four per processor", or the limit that bounds it.
    static QString describeParallelConversions();

private:
    enum class Bound { Processors, OpenFiles, Processes };
    static int parallelConversions(Bound *bound);
};
