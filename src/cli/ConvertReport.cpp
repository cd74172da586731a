#include "cli/ConvertReport.h"

#include "cli/Usage.h"
#include "core/DiskSpace.h"

#include <QTextStream>

#include <cmath>

namespace {
constexpr qint64 kDrawEveryMs = 100;
// Before a second of work, or with nothing done yet, a rate says nothing.
constexpr qint64 kEstimateAfterMs = 1000;

QString timeLeft(double seconds)
{
    if (seconds < 60)
        return QStringLiteral("%1 s").arg(std::max(1, int(std::ceil(seconds))));
    if (seconds < 3600)
        return QStringLiteral("%1 min").arg(int(std::lround(seconds / 60)));
    return ConvertReport::duration(seconds);
}
} // namespace

ConvertReport::ConvertReport(QTextStream &out, QTextStream &err, const QString &outputFolder, const Options &options)
    : m_out(out)
    , m_err(err)
    , m_outputFolder(outputFolder)
    , m_options(options)
{
}

QString ConvertReport::duration(double seconds)
{
    if (seconds < 10)
        return QStringLiteral("%1 s").arg(seconds, 0, 'f', 1);
    const qint64 whole = std::llround(seconds);
    if (whole < 60)
        return QStringLiteral("%1 s").arg(whole);
    if (whole < 3600)
        return QStringLiteral("%1 min %2 s").arg(whole / 60).arg(whole % 60);
    return QStringLiteral("%1 h %2 min").arg(whole / 3600).arg(whole % 3600 / 60);
}

void ConvertReport::begin(const QList<Item> &items)
{
    m_items = items;
    m_shares.assign(size_t(items.size()), -1.0);
    m_counted.assign(size_t(items.size()), true);
    m_clock.start();
}

void ConvertReport::advance(int item, double share)
{
    if (item < 0 || item >= int(m_shares.size()))
        return;
    m_shares[size_t(item)] = std::max(m_shares[size_t(item)], share);
    draw(false);
}

bool ConvertReport::print(int item, const ConvertOutcome &outcome)
{
    m_shares[size_t(item)] = 1.0;
    // What was not converted took no work worth counting toward the time left.
    m_counted[size_t(item)] = outcome.converted();
    m_printed = item + 1;
    m_allDone = m_allDone && outcome.done();
    switch (outcome.kind()) {
    case ConvertOutcome::Converted:
        ++m_converted;
        break;
    case ConvertOutcome::AlreadyDone:
        ++m_alreadyDone;
        break;
    case ConvertOutcome::Failed:
        ++m_failed;
        break;
    default:
        ++m_skipped;
    }
    clear();
    const Item &shown = m_items[item];
    const bool printed
        = printLine(m_out, m_options.json ? QString::fromUtf8(outcome.json(shown.shown, m_outputFolder, shown.bytes))
                                          : outcome.line(shown.shown, m_outputFolder));
    if (printed)
        draw(true);
    return printed;
}

void ConvertReport::end()
{
    clear();
    if (!m_options.summary)
        return;
    QString counts = QStringLiteral("%1 converted").arg(m_converted);
    if (m_options.skipExisting)
        counts += QStringLiteral(", %1 already done").arg(m_alreadyDone);
    m_err << counts
          << QStringLiteral(", %1 skipped, %2 failed in %3\n")
                 .arg(m_skipped)
                 .arg(m_failed)
                 .arg(duration(double(m_clock.nsecsElapsed()) / 1e9));
    m_err.flush();
}

int ConvertReport::currentItem() const
{
    // The first item under way, as its result comes next (an item done waits only for those before it).
    int current = m_printed;
    while (current < m_items.size() && m_shares[size_t(current)] >= 1.0)
        ++current;
    return current < m_items.size() && m_shares[size_t(current)] >= 0 ? current : -1;
}

QString ConvertReport::progressLine(int current) const
{
    double left = 0, done = 0;
    for (size_t i = 0; i < m_shares.size(); ++i) {
        if (!m_counted[i])
            continue;
        const double share = std::max(0.0, m_shares[i]);
        left += double(m_items[int(i)].bytes) * (1 - share);
        done += double(m_items[int(i)].bytes) * share;
    }
    QString tail = QStringLiteral(" %1% · %2 left")
                       .arg(int(m_shares[size_t(current)] * 100))
                       .arg(DiskSpace::describe(qint64(left)));
    const qint64 elapsed = m_clock.elapsed();
    if (elapsed >= kEstimateAfterMs && done > 0)
        tail += QStringLiteral(" · about %1 left").arg(timeLeft(left / (done / (double(elapsed) / 1000))));
    const QString head = QStringLiteral("%1/%2 ").arg(current + 1).arg(m_items.size());
    // The name gives way from its start, keeping the package's own name, so
    // that the line never wraps and can rewrite itself.
    QString name = ConvertOutcome::quoted(m_items[current].shown);
    const qsizetype room = std::max<qsizetype>(8, m_options.width - 1 - head.size() - tail.size());
    if (name.size() > room)
        name = QStringLiteral("…") + name.right(room - 1);
    return (head + name + tail).left(std::max(1, m_options.width - 1));
}

void ConvertReport::draw(bool now)
{
    if (!m_options.progress)
        return;
    const int current = currentItem();
    // A new item is shown at once; its progress at most every tenth of a second.
    if (current < 0 || (!now && current == m_drawnItem && m_sinceDraw.elapsed() < kDrawEveryMs))
        return;
    m_err << '\r' << progressLine(current) << "\x1b[K";
    m_err.flush();
    m_lineShown = true;
    m_drawnItem = current;
    m_sinceDraw.start();
}

void ConvertReport::clear()
{
    if (!m_lineShown)
        return;
    m_err << "\r\x1b[K";
    m_err.flush();
    m_lineShown = false;
}
