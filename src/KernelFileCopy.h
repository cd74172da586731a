#pragma once

// Copies the rest of one open file into another inside the kernel, so that
// an archive of hundreds of megabytes never passes through our memory.
class KernelFileCopy
{
public:
    enum Result {
        Done,        // everything copied
        Unsupported, // nothing copied: the kernel or the filesystems cannot do it
        Failed,      // stopped part way
    };

    static Result copyRest(int fromDescriptor, int toDescriptor);
};
