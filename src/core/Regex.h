#pragma once

#include <QRegularExpression>
#include <QString>

// One compiled, case-insensitive pattern and one question about a text.
class Regex
{
public:
    explicit Regex(const QString &pattern);
    virtual ~Regex();

    // True when the pattern matches within the first n UTF-16 units of the
    // input, n being its count of user-perceived characters. For plain ASCII
    // text that is the whole text; where characters take more than one unit,
    // the tail of the text is not searched. The converter's rewrite covers the
    // whole text on its own. Half a surrogate pair, where the range cuts one
    // or where it stands alone, is a character that nothing matches.
    virtual bool hasMatch(const QString &input) const;

    const QString &pattern() const { return m_pattern; }
    const QRegularExpression &internalExpression() const { return m_internalExpression; }

    // Extended grapheme clusters in the text.
    static qsizetype graphemeCount(const QString &text);

private:
    QRegularExpression m_internalExpression;
    QString m_pattern;
};
