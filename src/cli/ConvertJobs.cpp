#include "cli/ConvertJobs.h"

#include "cli/ConvertReport.h"
#include "cli/WorkerChannel.h"
#include "core/OutputFolder.h"
#include "core/ScratchRun.h"
#include "core/StopRequest.h"

#include <QEventLoop>
#include <QFileInfo>
#include <QProcess>
#include <QSocketNotifier>
#include <QTimer>

#include <algorithm>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace {
constexpr int kStartAttempts = 60; // in a row, about a minute
} // namespace

struct ConvertJobs::Worker
{
    std::unique_ptr<QProcess> process;
    int item = -1;      // the item it converts; -1 between two
    bool ready = false; // its file waits in the output folder for its turn to be named
    QByteArray received;
    QString complaint; // why it was abandoned, if it was
};

ConvertJobs::ConvertJobs(const QString &program, const QStringList &workerArguments,
                         std::shared_ptr<const OutputFolder> outputFolder, ConvertReport &report)
    : m_program(program)
    , m_workerArguments(workerArguments)
    , m_outputFolder(std::move(outputFolder))
    , m_report(report)
{
}

ConvertJobs::~ConvertJobs() = default;

void ConvertJobs::startWorker(QProcess &process)
{
    process.setProgram(m_program);
    process.setArguments(m_workerArguments);
    // The worker inherits the output folder as this process opened it, and only the worker does.
    if (m_outputFolder->isOpen()) {
        const int folder = m_outputFolder->descriptor();
        process.setArguments(m_workerArguments + QStringList{QStringLiteral("--output-descriptor=%1").arg(folder)});
        process.setChildProcessModifier([folder] { ::fcntl(folder, F_SETFD, 0); });
    }
    // Its complaints reach the person as ours would; its answers come to us.
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start();
}

void ConvertJobs::run(const QList<Item> &items, int jobs)
{
    m_items = items;
    m_jobs = std::max(1, jobs);
    m_next = 0;
    m_printed = 0;
    m_stopping = false;
    m_unstarted.clear();
    m_failedStarts = 0;

    QEventLoop loop;
    m_loop = &loop;
    // A signal now waits for the workers: it is deferred, and stops them all.
    StopRequest::beginConversion();
    std::unique_ptr<QSocketNotifier> signals;
    if (StopRequest::signalDescriptor() >= 0) {
        signals = std::make_unique<QSocketNotifier>(StopRequest::signalDescriptor(), QSocketNotifier::Read);
        QObject::connect(signals.get(), &QSocketNotifier::activated, &loop, [this] {
            char bytes[64];
            while (::read(StopRequest::signalDescriptor(), bytes, sizeof bytes) > 0) {}
            stopAll();
        });
    }

    printKnownLines();
    refill();
    if (!m_workers.empty())
        loop.exec();
    m_loop = nullptr;
    signals.reset();
    m_ended.clear();
    // Ends the process by the signal, if one came; every worker has ended by now.
    StopRequest::endConversion();
}

void ConvertJobs::refill()
{
    // Not again from within: a worker that fails to start at once ends inside launch.
    if (m_refilling)
        return;
    m_refilling = true;
    while (!m_stopping && int(m_workers.size()) < m_jobs) {
        const int item = takeNextItem();
        if (item < 0)
            break;
        launch(item);
    }
    m_refilling = false;
    finishIfDone();
}

void ConvertJobs::finishIfDone()
{
    if (m_workers.empty() && (m_unstarted.isEmpty() || m_stopping) && !m_refilling && m_loop)
        m_loop->quit();
}

int ConvertJobs::takeNextItem()
{
    if (!m_unstarted.isEmpty())
        return m_unstarted.takeFirst();
    while (m_next < m_items.size() && m_items[m_next].outcome)
        ++m_next;
    return m_next < m_items.size() ? m_next++ : -1;
}

void ConvertJobs::launch(int item)
{
    m_workers.push_back(std::make_unique<Worker>());
    Worker &worker = *m_workers.back();
    worker.process = std::make_unique<QProcess>();
    QProcess &process = *worker.process;
    QObject::connect(&process, &QProcess::readyReadStandardOutput, m_loop, [this, &worker] { readFrom(worker); });
    QObject::connect(&process, &QProcess::finished, m_loop, [this, &worker](int code, QProcess::ExitStatus status) {
        if (status == QProcess::CrashExit)
            ended(worker, QStringLiteral("the process converting it ended unexpectedly (signal %1, %2)")
                              .arg(code)
                              .arg(QString::fromLocal8Bit(::strsignal(code))));
        else
            ended(worker, QStringLiteral("the process converting it ended unexpectedly (exit status %1)").arg(code));
    });
    QObject::connect(&process, &QProcess::started, m_loop, [this] { m_failedStarts = 0; });
    QObject::connect(&process, &QProcess::errorOccurred, m_loop, [this, &worker](QProcess::ProcessError error) {
        if (error != QProcess::FailedToStart)
            return;
        // The program is there: what it lacked was processes, files or memory, which other workers free.
        if (!m_stopping && ++m_failedStarts < kStartAttempts && QFileInfo(m_program).isExecutable())
            startLater(worker);
        else
            ended(worker,
                  QStringLiteral("no process could be started to convert it (%1)").arg(worker.process->errorString()));
    });
    // The item is its own before it starts, so that a start that fails settles it.
    worker.item = item;
    startWorker(process);
    if (process.state() != QProcess::NotRunning)
        assign(worker, item);
}

void ConvertJobs::assign(Worker &worker, int item)
{
    worker.item = item;
    worker.ready = false;
    // It waits in the pipe until the worker reads it.
    worker.process->write(WorkerChannel::convertRequest(m_items[item].path, m_items[item].subfolder) + '\n');
    m_report.advance(item, 0.0);
}

void ConvertJobs::dispatch(Worker &worker)
{
    if (m_stopping)
        return;
    const int item = takeNextItem();
    if (item >= 0)
        assign(worker, item);
    else
        worker.process->closeWriteChannel(); // nothing left: it ends
}

void ConvertJobs::readFrom(Worker &worker)
{
    const QByteArray said = worker.process->readAllStandardOutput();
    if (!worker.complaint.isEmpty())
        return; // abandoned: nothing it says counts any more
    worker.received += said;
    for (qsizetype end; worker.complaint.isEmpty() && (end = worker.received.indexOf('\n')) >= 0;) {
        const QByteArray line = worker.received.left(end);
        worker.received.remove(0, end + 1);
        hear(worker, line);
    }
    if (worker.complaint.isEmpty() && worker.received.size() > WorkerChannel::maxLineLength)
        abandon(worker, QStringLiteral("the process converting it said more than it should"));
}

void ConvertJobs::hear(Worker &worker, const QByteArray &line)
{
    if (line == WorkerChannel::readyMessage() && worker.item >= 0 && !worker.ready) {
        worker.ready = true;
        grantTurn();
        return;
    }
    const std::optional<double> share = WorkerChannel::reportedProgress(line);
    if (share && worker.item >= 0) {
        m_report.advance(worker.item, *share);
        return;
    }
    const std::optional<ConvertOutcome> outcome = WorkerChannel::reportedOutcome(line);
    if (outcome && worker.item >= 0) {
        const int item = worker.item;
        worker.item = -1;
        worker.ready = false;
        settle(item, *outcome);
        dispatch(worker);
        return;
    }
    abandon(worker, QStringLiteral("the process converting it said something unexpected"));
}

void ConvertJobs::abandon(Worker &worker, const QString &why)
{
    // It is told to stop as a signal would, and so undoes its conversion;
    // its item fails once it has ended.
    worker.complaint = why;
    worker.received.clear();
    if (worker.process->processId() > 0)
        ::kill(pid_t(worker.process->processId()), SIGTERM);
}

void ConvertJobs::ended(Worker &worker, const QString &why)
{
    // What it said before it ended counts.
    readFrom(worker);
    const auto it = std::find_if(m_workers.begin(), m_workers.end(),
                                 [&worker](const std::unique_ptr<Worker> &w) { return w.get() == &worker; });
    if (it == m_workers.end())
        return; // already ended: a failed start, then finished
    m_ended.push_back(std::move(*it));
    m_workers.erase(it);

    if (!m_stopping) {
        if (worker.item >= 0) {
            // A worker that was killed leaves its run folder, and no run may come after it to sweep it.
            ScratchRun::sweepStale(*m_outputFolder);
            settle(worker.item,
                   ConvertOutcome(ConvertOutcome::Failed, worker.complaint.isEmpty() ? why : worker.complaint));
        }
        refill();
    }
    finishIfDone();
}

void ConvertJobs::startLater(Worker &worker)
{
    const auto it = std::find_if(m_workers.begin(), m_workers.end(),
                                 [&worker](const std::unique_ptr<Worker> &w) { return w.get() == &worker; });
    if (it == m_workers.end())
        return;
    m_unstarted.append(worker.item);
    std::sort(m_unstarted.begin(), m_unstarted.end());
    m_ended.push_back(std::move(*it));
    m_workers.erase(it);
    // No more at once than the machine could start; the item goes to the
    // first worker free, or to a new one once there may be room.
    m_jobs = std::max(1, int(m_workers.size()));
    QTimer::singleShot(std::min(1000, 20 << std::min(m_failedStarts, 6)), m_loop, [this] { startAgain(); });
}

void ConvertJobs::startAgain()
{
    // Even beyond the number of jobs: the workers running may all be
    // waiting for their turn behind this item.
    if (!m_stopping && !m_unstarted.isEmpty())
        launch(m_unstarted.takeFirst());
    finishIfDone();
}

void ConvertJobs::settle(int item, const ConvertOutcome &outcome)
{
    m_items[item].outcome = outcome;
    m_report.advance(item, 1.0);
    printKnownLines();
    grantTurn();
}

void ConvertJobs::printKnownLines()
{
    while (m_printed < m_items.size() && m_items[m_printed].outcome) {
        if (!m_report.print(m_printed, *m_items[m_printed].outcome)) {
            // Nothing more can be told: what is under way is undone, as for a signal.
            stopWorkers(SIGTERM);
            return;
        }
        ++m_printed;
    }
}

void ConvertJobs::grantTurn()
{
    // Only the first item whose outcome is unknown may name its file, so
    // files are named one at a time in the order given, each after every
    // item before it is done, as one after another would. The converter
    // tries the name it found free, then the next numbers, until one is not
    // taken. During a batch names are only ever taken, never freed: what
    // was taken when a worker found its name free still is when its turn
    // comes, and what was taken meanwhile is exactly what the items before
    // it took. So each file gets the first free name the sequential batch
    // would have given it: Talk.key for the first Talk.key given, Talk.1.key
    // for the second, whichever finishes first.
    if (m_stopping)
        return;
    for (const std::unique_ptr<Worker> &worker : m_workers) {
        if (worker->item == m_printed && worker->ready) {
            worker->ready = false;
            worker->process->write(WorkerChannel::goMessage() + '\n');
            return;
        }
    }
}

void ConvertJobs::stopAll()
{
    // Ctrl+C reaches the workers too; a signal sent to this process alone is passed on.
    if (StopRequest::pending())
        stopWorkers(StopRequest::signalNumber());
}

void ConvertJobs::stopWorkers(int signalNumber)
{
    if (m_stopping)
        return;
    m_stopping = true;
    for (const std::unique_ptr<Worker> &worker : m_workers) {
        if (worker->process->processId() > 0)
            ::kill(pid_t(worker->process->processId()), signalNumber);
    }
}
