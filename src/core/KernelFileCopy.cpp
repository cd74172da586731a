#include "core/KernelFileCopy.h"

#include "core/StopRequest.h"
#include "core/Waiting.h"
#include "system/SystemCalls.h"

#include <QtGlobal>

#include <cerrno>
#include <memory>

#include <unistd.h>

namespace {
// Small enough that a stop is seen within a fraction of a second.
constexpr size_t kKernelChunk = 64 * 1024 * 1024;

KernelFileCopy::Result fail(int *error, int code)
{
    if (error)
        *error = code;
    return KernelFileCopy::Failed;
}
} // namespace

KernelFileCopy::Result KernelFileCopy::copyRest(int fromDescriptor, int toDescriptor, int *error,
                                                const std::function<void(long long)> &copied)
{
    if (error)
        *error = 0;
    for (bool copiedAny = false;;) {
        Waiting::turnEvents();
        if (StopRequest::pending())
            return Stopped;
        const ssize_t n = SystemCalls::copyFileRange(fromDescriptor, toDescriptor, kKernelChunk);
        if (n > 0) {
            copiedAny = true;
            if (copied)
                copied(n);
            continue;
        }
        if (n == 0)
            return Done;
        if (errno == EINTR)
            continue;
        // Nothing copied yet and the kernel cannot do it here: copy it ourselves.
        if (!copiedAny
            && (errno == ENOSYS || errno == EXDEV || errno == EINVAL || errno == EOPNOTSUPP || errno == EBADF))
            break;
        return fail(error, errno);
    }
    const std::unique_ptr<char[]> buffer(new char[bufferSize]);
    for (;;) {
        Waiting::turnEvents();
        if (StopRequest::pending())
            return Stopped;
        const ssize_t got = ::read(fromDescriptor, buffer.get(), size_t(bufferSize));
        if (got < 0) {
            if (errno == EINTR)
                continue;
            return fail(error, errno);
        }
        if (got == 0)
            return Done;
        for (ssize_t done = 0; done < got;) {
            const ssize_t put = ::write(toDescriptor, buffer.get() + done, size_t(got - done));
            if (put < 0) {
                if (errno == EINTR)
                    continue;
                return fail(error, errno);
            }
            done += put;
        }
        if (copied)
            copied(got);
    }
}
