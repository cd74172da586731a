#include "system/SystemCalls.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <dirent.h>

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

long SystemCalls::tasksOfUser(uid_t user)
{
    DIR *proc = ::opendir("/proc");
    if (!proc)
        return -1;
    long tasks = 0;
    while (const dirent *entry = ::readdir(proc)) {
        if (entry->d_name[0] < '1' || entry->d_name[0] > '9')
            continue;
        char path[300], text[4096];
        std::snprintf(path, sizeof path, "/proc/%s/status", entry->d_name);
        const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
        if (fd < 0)
            continue; // ended meanwhile
        const ssize_t n = ::read(fd, text, sizeof text - 1);
        ::close(fd);
        text[n > 0 ? n : 0] = '\0';
        // "Uid:" gives the real id first; "Threads:" counts what the limit counts.
        const char *uid = std::strstr(text, "\nUid:");
        const char *threads = std::strstr(text, "\nThreads:");
        if (uid && threads && uid_t(std::strtoul(uid + 5, nullptr, 10)) == user)
            tasks += std::strtol(threads + 9, nullptr, 10);
    }
    ::closedir(proc);
    return tasks;
}

long long SystemCalls::bytesReadBy(pid_t process)
{
    // "rchar" counts what read calls returned, from the page cache too,
    // where "read_bytes" counts only what came from the disk.
    char path[64], text[1024];
    std::snprintf(path, sizeof path, "/proc/%d/io", int(process));
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return -1;
    const ssize_t n = ::read(fd, text, sizeof text - 1);
    ::close(fd);
    text[n > 0 ? n : 0] = '\0';
    const char *rchar = std::strstr(text, "rchar:");
    return rchar ? std::strtoll(rchar + 6, nullptr, 10) : -1;
}
