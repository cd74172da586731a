#include "cli/WorkerChannel.h"

#include "core/StopRequest.h"

#include <QUrl>

#include <cerrno>

#include <poll.h>
#include <unistd.h>

namespace {
const QByteArray kConvert = QByteArrayLiteral("convert ");
const QByteArray kOutcome = QByteArrayLiteral("outcome ");
const QByteArray kProgress = QByteArrayLiteral("progress ");

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

QByteArray WorkerChannel::convertRequest(const QString &path, const QString &subfolder)
{
    const QByteArray request = kConvert + QUrl::toPercentEncoding(path);
    return subfolder.isEmpty() ? request : request + ' ' + QUrl::toPercentEncoding(subfolder);
}

std::optional<WorkerChannel::Request> WorkerChannel::request(const QByteArray &line)
{
    const QList<QByteArray> words = line.mid(kConvert.size()).split(' ');
    if (!line.startsWith(kConvert) || words.size() > 2 || !isOneWord(words.first()) || !isOneWord(words.last()))
        return std::nullopt;
    const auto decoded
        = [](const QByteArray &word) { return QString::fromUtf8(QByteArray::fromPercentEncoding(word)); };
    return Request{decoded(words.first()), words.size() > 1 ? decoded(words.last()) : QString()};
}

QByteArray WorkerChannel::progressReport(double share)
{
    return kProgress + QByteArray::number(qBound(0, qRound(share * 1000), 1000));
}

std::optional<double> WorkerChannel::reportedProgress(const QByteArray &line)
{
    bool isNumber = false;
    const QByteArray number = line.mid(kProgress.size());
    const int thousandths = number.toInt(&isNumber);
    if (!line.startsWith(kProgress) || !isNumber || !isOneWord(number) || thousandths < 0 || thousandths > 1000)
        return std::nullopt;
    return thousandths / 1000.0;
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
