#include "core/MachineLimits.h"

#include "system/SystemCalls.h"

#include <QThread>

#include <algorithm>

#include <sys/resource.h>
#include <unistd.h>

namespace {
constexpr int kPerProcessor = 4;
constexpr rlim_t kOwnFiles = 16;      // the command's own descriptors, and those a start holds for a moment
constexpr rlim_t kFilesPerWorker = 4; // the two ends of its pipes, its process descriptor, and one spare
constexpr rlim_t kTasksPerWorker = 2; // itself and the tool it runs

// The soft limit, or none when there is none.
bool softLimit(int resource, rlim_t *limit)
{
    rlimit value = {};
    if (::getrlimit(resource, &value) != 0 || value.rlim_cur == RLIM_INFINITY)
        return false;
    *limit = value.rlim_cur;
    return true;
}
} // namespace

int MachineLimits::parallelConversions(Bound *bound)
{
    rlim_t most = rlim_t(std::max(1, QThread::idealThreadCount())) * kPerProcessor;
    *bound = Bound::Processors;
    const auto lower = [&](rlim_t room, Bound why) {
        if (room < most) {
            most = room;
            *bound = why;
        }
    };
    rlim_t limit = 0;
    if (softLimit(RLIMIT_NOFILE, &limit))
        lower(limit > kOwnFiles ? (limit - kOwnFiles) / kFilesPerWorker : 0, Bound::OpenFiles);
    // The kernel holds no user but root to this limit.
    if (::getuid() != 0 && softLimit(RLIMIT_NPROC, &limit)) {
        const long running = std::max(1L, SystemCalls::tasksOfUser(::getuid()));
        lower(limit > rlim_t(running) ? (limit - rlim_t(running)) / kTasksPerWorker : 0, Bound::Processes);
    }
    return int(std::max<rlim_t>(1, most));
}

int MachineLimits::parallelConversions()
{
    Bound bound;
    return parallelConversions(&bound);
}

QString MachineLimits::describeParallelConversions()
{
    Bound bound;
    const int most = parallelConversions(&bound);
    switch (bound) {
    case Bound::Processors:
        return QStringLiteral("%1 at once, four per processor").arg(most);
    case Bound::OpenFiles:
        return QStringLiteral("%1 at once, as the limit on open files allows").arg(most);
    case Bound::Processes:
        return QStringLiteral("%1 at once, as the limit on your processes allows").arg(most);
    }
    return QString::number(most);
}
