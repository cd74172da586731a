#include "support/gui/RecordingDesktopServices.h"
#include "widgets/HyperlinkTextField.h"

#include <QtGui>
#include <QtTest>

using namespace Qt::StringLiterals;
using LinkRecord = HyperlinkTextField::LinkRecord;

class TestHyperlinkTextField : public QObject
{
    Q_OBJECT

    RecordingDesktopServices desktop;

    // Where the label shows the middle of a record.
    static QPoint shownCentre(const HyperlinkTextField &field, const LinkRecord &record)
    {
        return record.rect.translated(field.layoutOrigin(*field.layoutDocument())).center().toPoint();
    }
    // Each link record as "linked text -> url".
    static QStringList records(const HyperlinkTextField &field)
    {
        QStringList records;
        for (const LinkRecord &record : field.hyperlinkInfos().value_or(QList<LinkRecord>()))
            records << field.layoutDocument()->toPlainText().mid(record.range.location, record.range.length) + " -> "
                           + record.url;
        return records;
    }

private Q_SLOTS:
    void init() { desktop.calls.clear(); }

    void noLinkGivesNoRecordsAndOpensNothing_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("plain words") << "Just some words";
        QTest::newRow("named anchor, no target") << "<a name=\"here\">a place</a> to jump to";
    }
    void noLinkGivesNoRecordsAndOpensNothing()
    {
        QFETCH(QString, text);
        HyperlinkTextField field(text);
        field.resize(300, 40);
        field.show();
        QVERIFY(!field.hyperlinkInfos().has_value()); // none, not an empty list
        QTest::mouseClick(&field, Qt::LeftButton, {}, QPoint(20, 20));
        QVERIFY(desktop.calls.isEmpty());
    }

    void oneLinkPointsAndOpensOnlyFromTheLink()
    {
        HyperlinkTextField field("Visit <a href=\"https://example.org/docs?x=1&amp;y=2\">our site</a> today");
        field.resize(300, 40);
        field.show();
        QCOMPARE(records(field), QStringList{u"our site -> https://example.org/docs?x=1&y=2"_s});

        const QPoint link = shownCentre(field, field.hyperlinkInfos()->first());
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
        HyperlinkTextField field("See <a href=\"https://example.org/w\">the long linked phrase</a>.");
        field.setWordWrap(true);
        field.setFixedWidth(120);
        field.adjustSize();
        field.show();
        const QStringList described = records(field);
        QVERIFY2(described.size() >= 2, "the link should wrap at this width");
        QCOMPARE(described, QStringList(described.size(), u"the long linked phrase -> https://example.org/w"_s));
        const QList<LinkRecord> infos = *field.hyperlinkInfos();
        QVERIFY(infos.at(1).rect.top() >= infos.at(0).rect.bottom());

        QTest::mouseClick(&field, Qt::LeftButton, {}, shownCentre(field, infos.at(1)));
        QCOMPARE(desktop.calls, QStringList(infos.size(), u"openUrl(\"https://example.org/w\")"_s));
    }
};

QTEST_MAIN(TestHyperlinkTextField)
#include "TestHyperlinkTextField.moc"
