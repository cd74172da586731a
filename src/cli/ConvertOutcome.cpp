#include "cli/ConvertOutcome.h"

#include "core/ConversionEvents.h"
#include "core/Converter.h"
#include "core/KeynoteDocument.h"
#include "core/NotificationCenter.h"
#include "core/PackageSearch.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUrl>

#include <algorithm>
#include <cerrno>

#include <sys/stat.h>

namespace {
// Where a conversion is, from 0 to 1, after this many progress events and
// with the stage under way this far: as its time goes, nearly all of it in
// the copy (after the first event) and far the most in the zip (after the sixth).
double conversionShare(int steps, double stage)
{
    constexpr double copy = 0.05, zip = 0.9;
    if (steps <= 1)
        return steps * copy * stage;
    if (steps < 6)
        return copy;
    if (steps == 6)
        return copy + zip * stage;
    return steps == 7 ? copy + zip : 0.99;
}

bool isControl(char32_t c)
{
    return c < 0x20 || (c >= 0x7f && c < 0xa0);
}
} // namespace

ConvertOutcome::ConvertOutcome(Kind kind, const QString &detail)
    : m_kind(kind)
    , m_detail(detail)
{
}

bool ConvertOutcome::done() const
{
    return m_kind == Converted || m_kind == AlreadyDone
           || (m_kind == NotKeynoteFour
               && m_detail == KeynoteDocument::versionProblem(KeynoteDocument::Version::KeynoteFive));
}

QString ConvertOutcome::quoted(const QString &text)
{
    const QList<uint> characters = text.toUcs4();
    if (std::none_of(characters.begin(), characters.end(), [](uint c) { return isControl(c); }))
        return text;
    // Quoted throughout; each run of control characters as $'...' with C escapes, or octal bytes.
    QString out = QStringLiteral("'");
    bool quoting = true, escaping = false;
    for (const uint c : characters) {
        if (isControl(c)) {
            if (quoting)
                out += QLatin1Char('\'');
            if (!escaping)
                out += QStringLiteral("$'");
            quoting = false;
            escaping = true;
            static const char named[] = "abtnvfr";
            if (c >= 7 && c <= 13) {
                out += QStringLiteral("\\") + QLatin1Char(named[c - 7]);
                continue;
            }
            for (const char byte : QString::fromUcs4(reinterpret_cast<const char32_t *>(&c), 1).toUtf8())
                out += QStringLiteral("\\%1").arg(uint(uchar(byte)), 3, 8, QLatin1Char('0'));
            continue;
        }
        if (escaping)
            out += QLatin1Char('\'');
        if (!quoting)
            out += QLatin1Char('\'');
        quoting = true;
        escaping = false;
        out += c == '\'' ? QStringLiteral("'\\''") : QString::fromUcs4(reinterpret_cast<const char32_t *>(&c), 1);
    }
    return out + QLatin1Char('\'');
}

QString ConvertOutcome::line(const QString &item, const QString &outputFolder) const
{
    const QString shown = quoted(item), detail = quoted(m_detail);
    const QString output = quoted(outputFolder + QLatin1Char('/') + m_detail);
    switch (m_kind) {
    case Converted:
        return QStringLiteral("converted: %1 -> %2").arg(shown, output);
    case AlreadyDone:
        return QStringLiteral("already-done: %1: %2 exists").arg(shown, output);
    case NotFound:
        return QStringLiteral("skipped: %1: not found").arg(shown);
    case NotKeynote:
        return QStringLiteral("skipped: %1: not a Keynote file (%2)").arg(shown, detail);
    case NotKeynoteFour:
        return QStringLiteral("skipped: %1: not a Keynote 4 file (%2)").arg(shown, detail);
    case Failed:
        return QStringLiteral("failed: %1: %2").arg(shown, detail);
    case NoPackages:
        return QStringLiteral("skipped: %1: %2")
            .arg(shown, m_detail.isEmpty() ? PackageSearch::problem(PackageSearch::Item::NoPackages) : detail);
    }
    return QString();
}

QString ConvertOutcome::word() const
{
    switch (m_kind) {
    case Converted:
        return QStringLiteral("converted");
    case AlreadyDone:
        return QStringLiteral("already-done");
    case Failed:
        return QStringLiteral("failed");
    default:
        return QStringLiteral("skipped");
    }
}

QByteArray ConvertOutcome::json(const QString &item, const QString &outputFolder, qint64 bytes) const
{
    const bool wrote = m_kind == Converted || m_kind == AlreadyDone;
    QJsonValue reason = m_detail;
    if (m_kind == Converted)
        reason = QJsonValue::Null;
    else if (m_kind == AlreadyDone)
        reason = QStringLiteral("%1/%2 exists").arg(outputFolder, m_detail);
    else if (m_kind == NotFound)
        reason = QStringLiteral("it was not found");
    else if (m_kind == NoPackages && m_detail.isEmpty())
        reason = PackageSearch::problem(PackageSearch::Item::NoPackages);
    const QJsonObject object{
        {QStringLiteral("input"), item},
        {QStringLiteral("outcome"), word()},
        {QStringLiteral("output"), wrote ? QJsonValue(outputFolder + QLatin1Char('/') + m_detail) : QJsonValue()},
        {QStringLiteral("reason"), reason},
        {QStringLiteral("code"), m_code ? QJsonValue(*m_code) : QJsonValue()},
        {QStringLiteral("bytes"), bytes},
        {QStringLiteral("seconds"), qRound64(m_seconds * 1000) / 1000.0},
    };
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

ConvertOutcome ConvertOutcome::convert(Converter &converter, const QString &outputFolder,
                                       const std::function<void(double)> &share)
{
    const QString path = converter.prezOrigPath();
    // A name that is not UTF-8 names nothing on disk either, and a path too
    // long to open may name a package: the converter says which it is.
    struct stat st = {};
    if (::stat(QFile::encodeName(path).constData(), &st) != 0 && (errno == ENOENT || errno == ENOTDIR)
        && !Converter::cannotRepresent(path))
        return ConvertOutcome(NotFound);

    QElapsedTimer clock;
    clock.start();
    // The file's name below the output folder.
    const auto written = [&converter] {
        const QString folder = converter.outputSubfolder();
        return folder.isEmpty() ? converter.outputPrezName() : folder + QLatin1Char('/') + converter.outputPrezName();
    };
    ConvertOutcome outcome(Failed, QStringLiteral("the conversion told no outcome"));
    NotificationCenter &center = NotificationCenter::defaultCenter();
    center.addObserver(&converter, ConversionEvents::finished,
                       [&](const Notification &) { outcome = ConvertOutcome(Converted, written()); });
    center.addObserver(&converter, ConversionEvents::finishedWithErrorNotKeynote,
                       [&](const Notification &) { outcome = ConvertOutcome(NotKeynote, converter.errorReason()); });
    center.addObserver(&converter, ConversionEvents::finishedWithErrorNotKeynoteFour, [&](const Notification &) {
        const qint64 code = converter.errorOccurred();
        if (code == Converter::AlreadyDone)
            outcome = ConvertOutcome(AlreadyDone, written());
        else
            outcome = ConvertOutcome(code == Converter::OutputNotWritten || code == Converter::Stopped ? Failed
                                                                                                       : NotKeynoteFour,
                                     converter.errorReason());
    });
    int steps = 0;
    if (share) {
        center.addObserver(&converter, ConversionEvents::progress,
                           [&](const Notification &) { share(conversionShare(++steps, 0.0)); });
        center.addObserver(&converter, ConversionEvents::stageProgress,
                           [&](const Notification &) { share(conversionShare(steps, converter.stageShare())); });
    }
    converter.doConvert(outputFolder);
    center.removeObserver(&converter);
    outcome.m_code = converter.errorOccurred();
    outcome.m_seconds = double(clock.nsecsElapsed()) / 1e9;
    return outcome;
}

QByteArray ConvertOutcome::encode() const
{
    return QByteArray::number(int(m_kind)) + ':' + QByteArray::number(m_code.value_or(-1)) + ':'
           + QByteArray::number(qRound64(m_seconds * 1000)) + ':' + QUrl::toPercentEncoding(m_detail);
}

std::optional<ConvertOutcome> ConvertOutcome::decode(const QByteArray &text)
{
    const QList<QByteArray> fields = text.split(':');
    if (fields.size() != 4)
        return std::nullopt;
    bool numbers[3] = {};
    const int kind = fields[0].toInt(&numbers[0]);
    const qint64 code = fields[1].toLongLong(&numbers[1]);
    const qint64 milliseconds = fields[2].toLongLong(&numbers[2]);
    if (!numbers[0] || !numbers[1] || !numbers[2] || kind < Converted || kind > AlreadyDone || code < -1
        || milliseconds < 0)
        return std::nullopt;
    for (const char c : fields[3]) {
        if (c <= ' ' || c > '~')
            return std::nullopt;
    }
    ConvertOutcome outcome(Kind(kind), QString::fromUtf8(QByteArray::fromPercentEncoding(fields[3])));
    if (code >= 0)
        outcome.m_code = code;
    outcome.m_seconds = double(milliseconds) / 1000.0;
    return outcome;
}

bool ConvertOutcome::operator==(const ConvertOutcome &other) const
{
    return m_kind == other.m_kind && m_detail == other.m_detail && m_code == other.m_code
           && qRound64(m_seconds * 1000) == qRound64(other.m_seconds * 1000);
}
