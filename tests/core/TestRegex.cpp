#include "core/Regex.h"

#include <QtTest>

// Telling tags apart in any case is checked through the converter, whose
// documents carry them in capitals; here is what only the text's length decides.
class TestRegex : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void searchesAsManyUnitsAsTheTextHasCharacters()
    {
        const Regex tag(QStringLiteral("key:version=\"72007061400\""));
        const QString tagText = QStringLiteral("key:version=\"72007061400\"");
        // Each emoji is one character but two UTF-16 units: the tail falls outside.
        QVERIFY(!tag.hasMatch(QStringLiteral("\U0001F600\U0001F600") + tagText));
        QVERIFY(tag.hasMatch(tagText + QStringLiteral("\U0001F600\U0001F600")));
        // CR LF is one character too.
        QVERIFY(!tag.hasMatch(QStringLiteral("\r\n") + tagText));
        QVERIFY(tag.hasMatch(QStringLiteral("\r\n") + tagText + QStringLiteral(" ")));
    }

    void graphemeCountAgreesWithTheBoundaryFinder_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("empty") << QString();
        QTest::newRow("ascii") << QStringLiteral("<a b=\"c\">text</a>\n");
        QTest::newRow("crlf") << QStringLiteral("a\r\nb\n\rc\r\n\r\n");
        QTest::newRow("controls") << QStringLiteral("\t\x01\x7f");
        QTest::newRow("accents") << QStringLiteral("Cafe\u0301 na\u00efve");
        QTest::newRow("emoji") << QStringLiteral("\U0001F469\u200D\U0001F4BB and \U0001F1E9\U0001F1EA");
    }

    void graphemeCountAgreesWithTheBoundaryFinder()
    {
        QFETCH(QString, text);
        QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
        qsizetype expected = 0;
        while (finder.toNextBoundary() != -1)
            ++expected;
        QCOMPARE(Regex::graphemeCount(text), expected);
    }
};

QTEST_GUILESS_MAIN(TestRegex)
#include "TestRegex.moc"
