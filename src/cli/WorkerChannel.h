#pragma once

#include "cli/ConvertOutcome.h"

#include <QByteArray>
#include <QString>

#include <optional>

// The line protocol between `deckwright convert` and the workers it starts
// (`deckwright convert --worker`), and the worker's end of it:
//
//   to a worker:   "convert PATH [FOLDER]"  convert this package next (into
//                                           that folder below the output folder)
//                  "go"                     give the file waiting in the output folder its name now
//   from a worker: "progress N"             the conversion is N thousandths done
//                  "ready"                  the file is whole in the output folder and waits for "go"
//                  "outcome OUTCOME"        the package is done; ready for the next
//
// A worker ends when its input ends. Paths and outcomes travel encoded, so a
// name holding line breaks or any other bytes cannot break a line.
class WorkerChannel
{
public:
    WorkerChannel(int inDescriptor, int outDescriptor);

    // The next line, without its end. None at the end of the input, after
    // an error, or once a stop is pending (StopRequest): a signal that comes
    // during the wait ends it.
    std::optional<QByteArray> readLine();
    // False when the other end is gone.
    bool writeLine(const QByteArray &line);

    struct Request
    {
        QString path;
        QString subfolder; // below the output folder; empty: the folder itself
        bool operator==(const Request &other) const { return path == other.path && subfolder == other.subfolder; }
    };
    static QByteArray convertRequest(const QString &path, const QString &subfolder = {});
    static std::optional<Request> request(const QByteArray &line);
    static QByteArray progressReport(double share);
    static std::optional<double> reportedProgress(const QByteArray &line);
    static QByteArray outcomeReport(const ConvertOutcome &outcome);
    static std::optional<ConvertOutcome> reportedOutcome(const QByteArray &line);
    static QByteArray readyMessage() { return QByteArrayLiteral("ready"); }
    static QByteArray goMessage() { return QByteArrayLiteral("go"); }

    // No message is longer: a reason or path of a few kilobytes, encoded.
    static constexpr qsizetype maxLineLength = 1 << 20;

private:
    int m_in;
    int m_out;
    QByteArray m_buffer;
};
