#include "core/Regex.h"

#include <QtTest>

using namespace Qt::StringLiterals;

// Telling tags apart in any case is checked through the converter, whose
// documents carry them in capitals; here is what only the text's length decides.
class TestRegex : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void searchesAsManyUnitsAsTheTextHasCharacters_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("characters"); // user-perceived ones
        QTest::newRow("empty") << QString() << 0;
        QTest::newRow("ascii") << u"<a b=\"c\">text</a>\n"_s << 18;
        // CR LF is one character; LF CR are two.
        QTest::newRow("crlf") << u"a\r\nb\n\rc\r\n\r\n"_s << 8;
        QTest::newRow("controls") << u"\t\x01\x7f"_s << 3;
        QTest::newRow("accents") << u"Cafe\u0301 na\u00efve"_s << 10;
        // Each emoji is one character but two UTF-16 units or more.
        QTest::newRow("emoji") << u"\U0001F469\u200D\U0001F4BB and \U0001F1E9\U0001F1EA"_s << 7;
    }

    void searchesAsManyUnitsAsTheTextHasCharacters()
    {
        QFETCH(QString, text);
        QFETCH(int, characters);
        QCOMPARE(Regex::graphemeCount(text), characters);
        // A tag after the text is found only where each character is one unit; before it, always.
        const QString tag = u"key:version=\"72007061400\""_s;
        QCOMPARE(Regex(tag).hasMatch(text + tag), text.size() == characters);
        QVERIFY(Regex(tag).hasMatch(tag + text));
    }
};

QTEST_GUILESS_MAIN(TestRegex)
#include "TestRegex.moc"
