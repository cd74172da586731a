#include "core/Regex.h"

#include "core/Fatal.h"

#include <QTextBoundaryFinder>

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
    const qsizetype n = graphemeCount(input);
    return m_internalExpression.match(QStringView(input).left(n)).hasMatch();
}
