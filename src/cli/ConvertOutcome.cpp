#include "cli/ConvertOutcome.h"

#include "core/ConversionEvents.h"
#include "core/Converter.h"
#include "core/NotificationCenter.h"
#include "core/PackageSearch.h"

#include <QFile>
#include <QUrl>

#include <cerrno>

#include <sys/stat.h>

ConvertOutcome::ConvertOutcome(Kind kind, const QString &detail)
    : m_kind(kind)
    , m_detail(detail)
{
}

QString ConvertOutcome::line(const QString &item, const QString &outputFolder) const
{
    switch (m_kind) {
    case Converted:
        return QStringLiteral("converted: %1 -> %2").arg(item, outputFolder + QLatin1Char('/') + m_detail);
    case NotFound:
        return QStringLiteral("skipped: %1: not found").arg(item);
    case NotKeynote:
        return QStringLiteral("skipped: %1: not a Keynote file (%2)").arg(item, m_detail);
    case NotKeynoteFour:
        return QStringLiteral("skipped: %1: not a Keynote 4 file (%2)").arg(item, m_detail);
    case Failed:
        return QStringLiteral("failed: %1: %2").arg(item, m_detail);
    case NoPackages:
        return QStringLiteral("skipped: %1: %2")
            .arg(item, m_detail.isEmpty() ? PackageSearch::problem(PackageSearch::Item::NoPackages) : m_detail);
    }
    return QString();
}

ConvertOutcome ConvertOutcome::convert(Converter &converter, const QString &outputFolder)
{
    const QString path = converter.prezOrigPath();
    // A name that is not UTF-8 names nothing on disk either, and a path too
    // long to open may name a package: the converter says which it is.
    struct stat st = {};
    if (::stat(QFile::encodeName(path).constData(), &st) != 0 && (errno == ENOENT || errno == ENOTDIR)
        && !Converter::cannotRepresent(path))
        return ConvertOutcome(NotFound);

    ConvertOutcome outcome(Failed, QStringLiteral("the conversion told no outcome"));
    NotificationCenter &center = NotificationCenter::defaultCenter();
    center.addObserver(&converter, ConversionEvents::finished,
                       [&](const Notification &) { outcome = ConvertOutcome(Converted, converter.outputPrezName()); });
    center.addObserver(&converter, ConversionEvents::finishedWithErrorNotKeynote,
                       [&](const Notification &) { outcome = ConvertOutcome(NotKeynote, converter.errorReason()); });
    center.addObserver(&converter, ConversionEvents::finishedWithErrorNotKeynoteFour, [&](const Notification &) {
        const bool notWritten = converter.errorOccurred() == Converter::OutputNotWritten
                                || converter.errorOccurred() == Converter::Stopped;
        outcome = ConvertOutcome(notWritten ? Failed : NotKeynoteFour, converter.errorReason());
    });
    converter.doConvert(outputFolder);
    center.removeObserver(&converter);
    return outcome;
}

QByteArray ConvertOutcome::encode() const
{
    return QByteArray::number(int(m_kind)) + ':' + QUrl::toPercentEncoding(m_detail);
}

std::optional<ConvertOutcome> ConvertOutcome::decode(const QByteArray &text)
{
    const qsizetype colon = text.indexOf(':');
    bool isNumber = false;
    const int kind = text.left(colon).toInt(&isNumber);
    if (colon < 0 || !isNumber || kind < Converted || kind > NoPackages)
        return std::nullopt;
    const QByteArray detail = text.mid(colon + 1);
    for (const char c : detail) {
        if (c <= ' ' || c > '~')
            return std::nullopt;
    }
    return ConvertOutcome(Kind(kind), QString::fromUtf8(QByteArray::fromPercentEncoding(detail)));
}

bool ConvertOutcome::operator==(const ConvertOutcome &other) const
{
    return m_kind == other.m_kind && m_detail == other.m_detail;
}
