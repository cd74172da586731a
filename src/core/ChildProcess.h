#pragma once

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <functional>

// One run of a system tool, kept on a short leash: it reads nothing from our
// standard input, it does not see the variables through which zip and gzip
// take options from the person's environment (the output must not depend on
// them), it runs in a process group of its own that a stop kills whole, and
// it never outlives us.
class ChildProcess
{
public:
    struct Result
    {
        bool started = false;
        bool crashed = false; // ended by a signal, whose number is exitCode
        int exitCode = -1;
        QByteArray standardOutput;
        QByteArray standardError;

        bool succeeded() const { return started && !crashed && exitCode == 0; }
    };

    // Called while the tool runs, with its standard output so far and its
    // process id: whenever some output arrives, and every watchInterval
    // milliseconds, since a tool's output may come in blocks long apart.
    using Watcher = std::function<void(const QByteArray &outputSoFar, qint64 processId)>;
    static constexpr int watchInterval = 200;

    // fileSizeLimit > 0: no file the tool writes may grow beyond it (the tool
    // is stopped). workingDirectory: where the tool starts (empty: ours).
    // The wait blocks, or keeps the event loop turning where the application
    // asked for it (Waiting).
    static Result run(const QString &program, const QStringList &arguments, qint64 fileSizeLimit = 0,
                      const Watcher &watcher = {}, const QString &workingDirectory = {});

    // The inherited environment without ZIPOPT, ZIP, GZIP, UNZIP and UNZIPOPT.
    static QProcessEnvironment toolEnvironment();
};
