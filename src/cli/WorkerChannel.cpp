#include "cli/WorkerChannel.h"

#include "core/StopRequest.h"

#include <QUrl>

#include <cerrno>

#include <poll.h>
#include <unistd.h>

namespace {
const QByteArray kConvert = QByteArrayLiteral("convert ");
const QByteArray kOutcome = QByteArrayLiteral("outcome ");

bool isOneWord(const QByteArray &text)
{
    for (const char c : text) {
        if (c <= ' ' || c > '~')
            return false;
    }
    return true;
}
} // namespace

WorkerChannel::WorkerChannel(int inDescriptor, int outDescriptor)
    : m_in(inDescriptor)
    , m_out(outDescriptor)
{
}

std::optional<QByteArray> WorkerChannel::readLine()
{
    const int stopDescriptor = StopRequest::signalDescriptor();
    for (;;) {
        const qsizetype end = m_buffer.indexOf('\n');
        if (end >= 0) {
            const QByteArray line = m_buffer.left(end);
            m_buffer.remove(0, end + 1);
            return line;
        }
        if (m_buffer.size() > maxLineLength || StopRequest::pending())
            return std::nullopt;
        // The signal's descriptor wakes the wait even when the signal came
        // just before it began.
        pollfd waits[2] = {{m_in, POLLIN, 0}, {stopDescriptor, POLLIN, 0}};
        if (::poll(waits, stopDescriptor >= 0 ? 2 : 1, -1) < 0) {
            if (errno == EINTR)
                continue;
            return std::nullopt;
        }
        if (stopDescriptor >= 0 && waits[1].revents) {
            // Emptied, so that a byte with no stop behind it cannot keep waking us.
            char bytes[64];
            while (::read(stopDescriptor, bytes, sizeof bytes) > 0) {}
            continue;
        }
        if (!waits[0].revents)
            continue;
        char chunk[4096];
        const ssize_t n = ::read(m_in, chunk, sizeof chunk);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return std::nullopt;
        m_buffer.append(chunk, n);
    }
}

bool WorkerChannel::writeLine(const QByteArray &line)
{
    const QByteArray bytes = line + '\n';
    qsizetype done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(m_out, bytes.constData() + done, size_t(bytes.size() - done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += n;
    }
    return true;
}

QByteArray WorkerChannel::convertRequest(const QString &path)
{
    return kConvert + QUrl::toPercentEncoding(path);
}

std::optional<QString> WorkerChannel::requestedPath(const QByteArray &line)
{
    if (!line.startsWith(kConvert) || !isOneWord(line.mid(kConvert.size())))
        return std::nullopt;
    return QString::fromUtf8(QByteArray::fromPercentEncoding(line.mid(kConvert.size())));
}

QByteArray WorkerChannel::outcomeReport(const ConvertOutcome &outcome)
{
    return kOutcome + outcome.encode();
}

std::optional<ConvertOutcome> WorkerChannel::reportedOutcome(const QByteArray &line)
{
    if (!line.startsWith(kOutcome))
        return std::nullopt;
    return ConvertOutcome::decode(line.mid(kOutcome.size()));
}
