#include "KernelFileCopy.h"

#include <QtGlobal>

#if defined(Q_OS_LINUX)
#include <cerrno>
#include <unistd.h>
#endif

KernelFileCopy::Result KernelFileCopy::copyRest(int fromDescriptor, int toDescriptor)
{
#if defined(Q_OS_LINUX)
    bool copiedAny = false;
    for (;;) {
        const ssize_t n = ::copy_file_range(fromDescriptor, nullptr, toDescriptor, nullptr, 1 << 30, 0);
        if (n > 0) {
            copiedAny = true;
            continue;
        }
        if (n == 0)
            return Done;
        if (errno == EINTR)
            continue;
        if (!copiedAny && (errno == ENOSYS || errno == EXDEV || errno == EINVAL || errno == EOPNOTSUPP || errno == EBADF))
            return Unsupported;
        return Failed;
    }
#else
    Q_UNUSED(fromDescriptor)
    Q_UNUSED(toDescriptor)
    return Unsupported;
#endif
}
