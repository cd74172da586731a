#include "cli/ConvertWorker.h"

#include "cli/ConvertOutcome.h"
#include "cli/WorkerChannel.h"
#include "cli/WorkerConverter.h"
#include "core/OutputFolder.h"
#include "core/StopRequest.h"

#include <csignal>

#include <fcntl.h>
#include <unistd.h>

int ConvertWorker::run(const std::shared_ptr<const OutputFolder> &outputFolder, const Options &options)
{
    // The protocol gets descriptors of its own that no tool inherits; a stray
    // print to standard output lands on standard error instead of in it.
    const int in = ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
    const int out = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    const int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (in < 0 || out < 0 || nothing < 0 || ::dup2(nothing, STDIN_FILENO) < 0
        || ::dup2(STDERR_FILENO, STDOUT_FILENO) < 0)
        return 1;
    ::close(nothing);
    // A command that is gone shows as a failed write, not as a signal mid-answer.
    std::signal(SIGPIPE, SIG_IGN);
    // A command killed outright still has its workers stop cleanly.
    StopRequest::stopWhenParentEnds();
    return serve(in, out, outputFolder, options);
}

int ConvertWorker::serve(int inDescriptor, int outDescriptor, const std::shared_ptr<const OutputFolder> &outputFolder,
                         const Options &options)
{
    WorkerChannel channel(inDescriptor, outDescriptor);
    while (const std::optional<QByteArray> line = channel.readLine()) {
        const std::optional<WorkerChannel::Request> request = WorkerChannel::request(*line);
        if (!request)
            return 1;
        WorkerConverter converter(request->path, channel);
        converter.useOutputFolder(outputFolder);
        converter.setOutputSubfolder(request->subfolder);
        converter.setSkipExisting(options.skipExisting);
        // Each thousandth once; a command that is gone shows when the outcome cannot be told.
        int told = -1;
        const auto tell = [&](double share) {
            if (qRound(share * 1000) != told)
                channel.writeLine(WorkerChannel::progressReport(share));
            told = qRound(share * 1000);
        };
        const ConvertOutcome outcome = ConvertOutcome::convert(converter, outputFolder->path(),
                                                               options.progress ? tell : std::function<void(double)>());
        if (!channel.writeLine(WorkerChannel::outcomeReport(outcome)))
            return 1;
    }
    return 0;
}
