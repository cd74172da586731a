#include "core/Regex.h"

#include "core/Fatal.h"

#include <QTextBoundaryFinder>

namespace {
// A noncharacter: valid UTF-16 that no document holds and our patterns never name.
constexpr char16_t kUnmatchable = 0xFFFF;
} // namespace

Regex::Regex(const QString &pattern)
    : m_internalExpression(pattern, QRegularExpression::CaseInsensitiveOption)
    , m_pattern(pattern)
{
    if (!m_internalExpression.isValid())
        Fatal::fail(
            QStringLiteral("the pattern \"%1\" does not compile: %2").arg(pattern, m_internalExpression.errorString()));
}

Regex::~Regex() = default;

qsizetype Regex::graphemeCount(const QString &text)
{
    // Documents are mostly ASCII, where each character is one cluster except
    // that CR LF forms one; counting that way avoids a slow walk over megabytes.
    const QChar *data = text.constData();
    const qsizetype length = text.size();
    qsizetype count = 0;
    bool ascii = true;
    for (qsizetype i = 0; i < length; ++i) {
        const char16_t c = data[i].unicode();
        if (c >= 0x80) {
            ascii = false;
            break;
        }
        if (!(c == u'\n' && i > 0 && data[i - 1].unicode() == u'\r'))
            ++count;
    }
    if (ascii)
        return count;

    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    count = 0;
    while (finder.toNextBoundary() != -1)
        ++count;
    return count;
}

bool Regex::hasMatch(const QString &input) const
{
    const QStringView range = QStringView(input).left(graphemeCount(input));
    // The range may end inside a surrogate pair, and a text may hold half a
    // pair alone. Qt's matcher refuses such text outright and finds nothing at
    // all, where a UTF-16 matcher takes the half for a character of its own
    // that our patterns never match: a noncharacter in its place does the same.
    QString mended;
    for (qsizetype i = 0; i < range.size(); ++i) {
        if (!range[i].isSurrogate())
            continue;
        if (range[i].isHighSurrogate() && i + 1 < range.size() && range[i + 1].isLowSurrogate()) {
            ++i; // a whole pair
            continue;
        }
        if (mended.isNull())
            mended = range.toString();
        mended[i] = QChar(kUnmatchable);
    }
    return m_internalExpression.match(mended.isNull() ? range : QStringView(mended)).hasMatch();
}
