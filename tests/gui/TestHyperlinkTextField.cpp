#include "support/gui/RecordingDesktopServices.h"
#include "widgets/HyperlinkTextField.h"

#include <QtGui>
#include <QtTest>

using LinkRecord = HyperlinkTextField::LinkRecord;

namespace {

// Where the label shows the middle of a record.
QPoint shownCentre(const HyperlinkTextField &field, const LinkRecord &record)
{
    return record.rect.translated(field.layoutOrigin(*field.layoutDocument())).center().toPoint();
}

} // namespace

class TestHyperlinkTextField : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void noLinkGivesNoRecordsAndOpensNothing_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("plain words") << "Just some words";
        QTest::newRow("named anchor, no target") << "<a name=\"here\">a place</a> to jump to";
    }

    void noLinkGivesNoRecordsAndOpensNothing()
    {
        QFETCH(QString, text);
        RecordingDesktopServices desktop;
        HyperlinkTextField field(text);
        field.resize(300, 40);
        field.show();
        QVERIFY(!field.hyperlinkInfos().has_value());
        QTest::mouseClick(&field, Qt::LeftButton, {}, QPoint(20, 20));
        QVERIFY(desktop.calls.isEmpty());
    }

    void oneLinkPointsAndOpensOnlyFromTheLink()
    {
        RecordingDesktopServices desktop;
        HyperlinkTextField field("Visit <a href=\"https://example.org/docs?x=1&amp;y=2\">our site</a> today");
        field.resize(300, 40);
        field.show();
        const auto infos = field.hyperlinkInfos();
        QVERIFY(infos.has_value());
        QCOMPARE(infos->size(), 1);
        const LinkRecord record = infos->first();
        QCOMPARE(field.layoutDocument()->toPlainText().mid(record.range.location, record.range.length),
                 QStringLiteral("our site"));
        QCOMPARE(record.url, QStringLiteral("https://example.org/docs?x=1&y=2"));

        const QPoint link = shownCentre(field, record);
        QTest::mouseMove(&field, link);
        QCOMPARE(field.cursor().shape(), Qt::PointingHandCursor);
        QTest::mouseMove(&field, link - QPoint(30, 0)); // on "Visit"
        QCOMPARE(field.cursor().shape(), Qt::ArrowCursor);
        QTest::mouseClick(&field, Qt::LeftButton, {}, link - QPoint(30, 0));
        QVERIFY(desktop.calls.isEmpty());
        QTest::mouseClick(&field, Qt::LeftButton, {}, link);
        QCOMPARE(desktop.calls, QStringList{"openUrl(\"https://example.org/docs?x=1&y=2\")"});
    }

    void wrappedLinkHasARecordPerLineAndOpensOncePerRecord()
    {
        RecordingDesktopServices desktop;
        HyperlinkTextField field("See <a href=\"https://example.org/w\">the long linked phrase</a>.");
        field.setWordWrap(true);
        field.setFixedWidth(120);
        field.adjustSize();
        field.show();
        const auto infos = field.hyperlinkInfos();
        QVERIFY2(infos.has_value() && infos->size() >= 2, "the link should wrap at this width");
        for (const LinkRecord &record : *infos) {
            QCOMPARE(record.range.location, infos->first().range.location);
            QCOMPARE(record.range.length, infos->first().range.length);
            QCOMPARE(record.url, QStringLiteral("https://example.org/w"));
        }
        QVERIFY(infos->at(1).rect.top() >= infos->at(0).rect.bottom());

        QTest::mouseClick(&field, Qt::LeftButton, {}, shownCentre(field, infos->at(1)));
        QCOMPARE(desktop.calls, QStringList(infos->size(), QStringLiteral("openUrl(\"https://example.org/w\")")));
    }
};

QTEST_MAIN(TestHyperlinkTextField)
#include "TestHyperlinkTextField.moc"
