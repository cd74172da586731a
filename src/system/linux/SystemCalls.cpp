#include "system/SystemCalls.h"

#include <cerrno>
#include <csignal>
#include <cstdio>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

bool SystemCalls::dieWithParent(pid_t parent)
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    // The parent may have died before the line above took effect.
    return ::getppid() == parent;
}

void SystemCalls::signalWhenParentEnds(int signalNumber)
{
    ::prctl(PR_SET_PDEATHSIG, signalNumber);
}

ssize_t SystemCalls::copyFileRange(int fromDescriptor, int toDescriptor, size_t length)
{
    return ::copy_file_range(fromDescriptor, nullptr, toDescriptor, nullptr, length, 0);
}

int SystemCalls::openUnnamedFile(int folderDescriptor, mode_t mode)
{
    // The name is given through /proc, so without /proc the file could never be named.
    if (::access("/proc/self/fd", X_OK) != 0) {
        errno = EOPNOTSUPP;
        return -1;
    }
    return ::openat(folderDescriptor, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, mode);
}

int SystemCalls::renameNoReplace(int fromFolder, const char *from, int toFolder, const char *to)
{
    return ::renameat2(fromFolder, from, toFolder, to, RENAME_NOREPLACE);
}

bool SystemCalls::mountId(int descriptor, unsigned long long *id)
{
    struct statx st = {};
    if (::statx(descriptor, "", AT_EMPTY_PATH, STATX_MNT_ID, &st) != 0 || !(st.stx_mask & STATX_MNT_ID))
        return false;
    *id = st.stx_mnt_id;
    return true;
}
