#include "system/SystemCalls.h"

#include <cerrno>

// Kernels without these calls: every caller has a portable way round.

bool SystemCalls::dieWithParent(pid_t)
{
    // Children are killed with their process group when the program ends instead.
    return true;
}

void SystemCalls::signalWhenParentEnds(int) {}

ssize_t SystemCalls::copyFileRange(int, int, size_t)
{
    errno = ENOSYS;
    return -1;
}

int SystemCalls::openUnnamedFile(int, mode_t)
{
    errno = EOPNOTSUPP;
    return -1;
}

int SystemCalls::renameNoReplace(int, const char *, int, const char *)
{
    errno = ENOSYS;
    return -1;
}

bool SystemCalls::mountId(int, unsigned long long *)
{
    return false;
}

long SystemCalls::tasksOfUser(uid_t)
{
    return -1;
}

long long SystemCalls::bytesReadBy(pid_t)
{
    return -1;
}
