#pragma once

#include <sys/types.h>

// The few system calls that only some kernels have. Each build compiles one
// implementation, chosen in CMake: linux/ has them all, posix/ answers ENOSYS
// (or does nothing) so that the callers take their portable way instead.
// Every function keeps errno as the call left it.
class SystemCalls
{
public:
    // Run in a child between fork and exec (async-signal-safe): the child is
    // killed when parent ends. Returns false when parent has already gone.
    static bool dieWithParent(pid_t parent);
    // This process receives signalNumber when the one that started it ends.
    // Does nothing where the kernel cannot; the caller has another way to notice.
    static void signalWhenParentEnds(int signalNumber);
    // Copies up to length bytes from one descriptor to the other inside the
    // kernel, from and to their current offsets: the bytes copied, 0 at the
    // end of the source, -1 on failure.
    static ssize_t copyFileRange(int fromDescriptor, int toDescriptor, size_t length);
    // A regular file in folderDescriptor's folder with no name yet, open for
    // writing; a name is given later by linking /proc/self/fd/N. -1 when the
    // file system (or kernel) has no such files.
    static int openUnnamedFile(int folderDescriptor, mode_t mode);
    // Renames (within one file system), failing with EEXIST rather than
    // replacing anything, a dangling link included.
    static int renameNoReplace(int fromFolder, const char *from, int toFolder, const char *to);
    // The mount an open file or folder lies on, which tells a bind mount from
    // the folder around it where the device number cannot. False where the
    // kernel cannot tell; the caller then goes by the device number alone.
    static bool mountId(int descriptor, unsigned long long *id);
    // How many processes (threads, as the kernel counts them against
    // RLIMIT_NPROC) the user with this real id has now; -1 when unknown.
    static long tasksOfUser(uid_t user);
    // How many bytes the process has read so far through read calls, files
    // and pipes alike (a tool working through its input); -1 when unknown.
    static long long bytesReadBy(pid_t process);
};
