#pragma once

#include <functional>

// Copies the rest of one open file into another. Inside the kernel where it
// can (copy_file_range: an archive of hundreds of megabytes never passes
// through our memory, and shares blocks where the file system allows),
// through a 128 KiB buffer where it cannot (across file systems, tmpfs),
// which is as fast as cp there. A stop request (StopRequest) ends it early.
class KernelFileCopy
{
public:
    enum Result {
        Done,    // everything copied
        Failed,  // stopped part way by an error; error() tells which
        Stopped, // a stop was requested
    };

    // copied, when given, hears of every piece as it lands: its bytes.
    static Result copyRest(int fromDescriptor, int toDescriptor, int *error = nullptr,
                           const std::function<void(long long bytes)> &copied = {});

    static constexpr long long bufferSize = 128 * 1024;
};
