#pragma once

#include "cli/ConvertOutcome.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <memory>
#include <optional>
#include <vector>

class ConvertReport;
class OutputFolder;
class QEventLoop;
class QProcess;

// Converts the items of one `deckwright convert` batch in up to N worker
// processes at once (ConvertWorker, over a WorkerChannel each) and prints
// every item's result (ConvertReport) in the order given, as soon as it and
// all the results before it are known, telling the report how far each is. The output is the same as converting one
// item after another: the same lines, and the same files under the same names.
class ConvertJobs
{
public:
    struct Item
    {
        QString shown;                         // as printed
        QString path;                          // what a worker is asked to convert
        QString subfolder;                     // below the output folder, where it goes
        std::optional<ConvertOutcome> outcome; // known from the start for a folder without packages
    };

    // program and workerArguments start one worker, which is handed the
    // output folder open (--output-descriptor).
    ConvertJobs(const QString &program, const QStringList &workerArguments,
                std::shared_ptr<const OutputFolder> outputFolder, ConvertReport &report);
    virtual ~ConvertJobs();
    ConvertJobs(const ConvertJobs &) = delete;
    ConvertJobs &operator=(const ConvertJobs &) = delete;

    // Prints every item's result through the report, which was begun with
    // these items. SIGINT, SIGTERM or SIGHUP stop every
    // worker (each undoes its conversion); once they have all ended, nothing
    // more is printed and the process ends by that signal. A result that cannot
    // be printed stops them the same way (the output stream then tells why). A worker that
    // cannot start for want of processes, files or memory is started again
    // once some are free, with no more workers at once from then on than
    // were running.
    void run(const QList<Item> &items, int jobs);

protected:
    // Starts the process of one worker.
    virtual void startWorker(QProcess &process);

private:
    struct Worker;

    void refill();
    void finishIfDone();
    void launch(int item);
    void assign(Worker &worker, int item);
    void dispatch(Worker &worker);
    void readFrom(Worker &worker);
    void hear(Worker &worker, const QByteArray &line);
    void abandon(Worker &worker, const QString &why);
    void ended(Worker &worker, const QString &why);
    void settle(int item, const ConvertOutcome &outcome);
    void printKnownLines();
    void grantTurn();
    void stopAll();
    void stopWorkers(int signalNumber);
    void startLater(Worker &worker);
    void startAgain();
    int takeNextItem();

    QString m_program;
    QStringList m_workerArguments;
    std::shared_ptr<const OutputFolder> m_outputFolder;
    ConvertReport &m_report;

    QList<Item> m_items;
    int m_jobs = 1;
    int m_next = 0;    // the first item no worker was given yet
    int m_printed = 0; // the lines printed so far: the first item not yet known
    bool m_stopping = false;
    bool m_refilling = false;
    QList<int> m_unstarted; // items whose worker could not start, to be started again
    int m_failedStarts = 0; // in a row
    std::vector<std::unique_ptr<Worker>> m_workers;
    std::vector<std::unique_ptr<Worker>> m_ended; // kept until the batch is over: their signals may still be running
    QEventLoop *m_loop = nullptr;
};
