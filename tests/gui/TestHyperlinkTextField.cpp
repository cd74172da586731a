#include "HyperlinkTextField.h"
#include "RecordingDesktopServices.h"

#include <QApplication>
#include <QImage>
#include <QMouseEvent>
#include <QTextDocument>
#include <QtTest>

using LinkRecord = HyperlinkTextField::LinkRecord;

namespace {
// Where the label shows a record's rectangle.
QRectF shownRect(const HyperlinkTextField &field, const LinkRecord &record)
{
    const auto document = field.layoutDocument();
    return record.rect.translated(field.layoutOrigin(*document));
}

QPoint shownCentre(const HyperlinkTextField &field, const LinkRecord &record)
{
    return shownRect(field, record).center().toPoint();
}

QString plainText(const HyperlinkTextField &field)
{
    return field.layoutDocument()->toPlainText();
}

void moveMouse(QWidget *widget, const QPoint &position)
{
    QMouseEvent move(QEvent::MouseMove, position, widget->mapToGlobal(position), Qt::NoButton, Qt::NoButton, Qt::NoModifier);
    QApplication::sendEvent(widget, &move);
}

const QString oneLink = QStringLiteral("Visit <a href=\"https://example.org/docs?x=1&amp;y=2\">our site</a> today");
const QString wrappingLink = QStringLiteral("See <a href=\"https://example.org/long\">the rather long linked phrase here</a>.");
} // namespace

class TestHyperlinkTextField : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void noLinks_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("empty") << QString();
        QTest::newRow("plain words") << QStringLiteral("Just some words");
        QTest::newRow("styled, no link") << QStringLiteral("<b>bold</b> and <i>italic</i>");
        QTest::newRow("named anchor, no target") << QStringLiteral("<a name=\"here\">a place</a> to jump to");
    }

    void noLinks()
    {
        QFETCH(QString, text);
        RecordingDesktopServices desktop;
        HyperlinkTextField field(text);
        field.resize(300, 40);
        field.show();

        QVERIFY(!field.hyperlinkInfos().has_value());
        const QPoint middle = field.rect().center();
        moveMouse(&field, middle);
        QCOMPARE(field.cursor().shape(), Qt::ArrowCursor);
        QTest::mouseClick(&field, Qt::LeftButton, {}, middle);
        QTest::mouseClick(&field, Qt::LeftButton, {}, QPoint(3, 20));
        QVERIFY(desktop.calls().isEmpty());
    }

    void oneShortLink()
    {
        RecordingDesktopServices desktop;
        HyperlinkTextField field(oneLink);
        field.resize(300, 40);
        field.show();

        const auto infos = field.hyperlinkInfos();
        QVERIFY(infos.has_value());
        QCOMPARE(infos->size(), 1);
        const LinkRecord record = infos->first();
        QCOMPARE(plainText(field).mid(record.range.location, record.range.length), QStringLiteral("our site"));
        QCOMPARE(record.range.location, 6);
        QCOMPARE(record.url, QStringLiteral("https://example.org/docs?x=1&y=2"));
        QVERIFY(!record.rect.isEmpty());

        QTest::mouseClick(&field, Qt::LeftButton, {}, shownCentre(field, record));
        QCOMPARE(desktop.describe(), QStringList{QStringLiteral("openUrl(\"https://example.org/docs?x=1&y=2\")")});

        // Plain text beside the link, and the empty space after the text.
        desktop.clear();
        const QRectF link = shownRect(field, record);
        QTest::mouseClick(&field, Qt::LeftButton, {}, QPoint(int(link.left()) - 20, int(link.center().y())));
        QTest::mouseClick(&field, Qt::LeftButton, {}, QPoint(field.width() - 3, int(link.center().y())));
        QTest::mouseClick(&field, Qt::RightButton, {}, shownCentre(field, record));
        QVERIFY(desktop.calls().isEmpty());
    }

    void styledPartsFormOneRun()
    {
        HyperlinkTextField field(QStringLiteral("<a href=\"help/index.html\">read <b>the</b> <i>manual</i></a> first"));
        field.resize(300, 40);
        const auto infos = field.hyperlinkInfos();
        QVERIFY(infos.has_value());
        QCOMPARE(infos->size(), 1);
        QCOMPARE(infos->first().range.location, 0);
        QCOMPARE(infos->first().range.length, 15);
        // Kept as stored, not made absolute.
        QCOMPARE(infos->first().url, QStringLiteral("help/index.html"));
    }

    void twoLinks()
    {
        RecordingDesktopServices desktop;
        HyperlinkTextField field(QStringLiteral("<a href=\"https://a.example/\">first</a> or <a href=\"https://b.example/\">second</a>"));
        field.resize(300, 40);
        field.show();
        const auto infos = field.hyperlinkInfos();
        QVERIFY(infos.has_value());
        QCOMPARE(infos->size(), 2);
        QCOMPARE(infos->at(0).url, QStringLiteral("https://a.example/"));
        QCOMPARE(infos->at(1).url, QStringLiteral("https://b.example/"));
        QVERIFY(infos->at(0).rect.right() <= infos->at(1).rect.left());

        QTest::mouseClick(&field, Qt::LeftButton, {}, shownCentre(field, infos->at(1)));
        QCOMPARE(desktop.describe(), QStringList{QStringLiteral("openUrl(\"https://b.example/\")")});
    }

    void wrappedLinkOpensOncePerLine()
    {
        RecordingDesktopServices desktop;
        HyperlinkTextField field(wrappingLink);
        field.setWordWrap(true);
        field.setFixedWidth(120);
        field.adjustSize();
        field.show();

        const auto infos = field.hyperlinkInfos();
        QVERIFY(infos.has_value());
        QVERIFY2(infos->size() >= 2, "the link should wrap at this width");
        for (const LinkRecord &record : *infos) {
            QCOMPARE(record.range.location, infos->first().range.location);
            QCOMPARE(record.range.length, infos->first().range.length);
            QCOMPARE(record.url, QStringLiteral("https://example.org/long"));
            QVERIFY(record.rect.right() <= 120);
        }
        QVERIFY(infos->at(1).rect.top() >= infos->at(0).rect.bottom());

        // Wherever it is clicked, every record of the run answers.
        QTest::mouseClick(&field, Qt::LeftButton, {}, shownCentre(field, infos->at(1)));
        QCOMPARE(desktop.calls().size(), infos->size());
        for (const auto &call : desktop.calls())
            QCOMPARE(call.arguments, QStringList{QStringLiteral("https://example.org/long")});
    }

    void measuredInTheLabelsFont()
    {
        HyperlinkTextField small(oneLink);
        HyperlinkTextField large(oneLink);
        QFont font = small.font();
        font.setPointSize(9);
        small.setFont(font);
        font.setPointSize(27);
        large.setFont(font);
        small.resize(800, 100);
        large.resize(800, 100);
        const qreal smallWidth = small.hyperlinkInfos()->first().rect.width();
        const qreal largeWidth = large.hyperlinkInfos()->first().rect.width();
        QVERIFY2(largeWidth > 2 * smallWidth, qPrintable(QStringLiteral("%1 vs %2").arg(largeWidth).arg(smallWidth)));
    }

    void neverCached()
    {
        HyperlinkTextField field(oneLink);
        field.resize(300, 40);
        QCOMPARE(field.hyperlinkInfos()->first().url, QStringLiteral("https://example.org/docs?x=1&y=2"));
        field.setText(QStringLiteral("<a href=\"https://other.example/\">elsewhere</a>"));
        QCOMPARE(field.hyperlinkInfos()->first().url, QStringLiteral("https://other.example/"));
        QCOMPARE(field.hyperlinkInfos()->first().range.length, 9);
        field.setText(QStringLiteral("no more links"));
        QVERIFY(!field.hyperlinkInfos().has_value());
    }

    // The records must describe what is painted: every pixel of the (red)
    // link text lies inside a record's rectangle as the label shows it.
    void rectanglesCoverThePaintedLink_data()
    {
        QTest::addColumn<bool>("wrap");
        QTest::addColumn<int>("alignment");
        QTest::addColumn<int>("margin");
        QTest::addColumn<QSize>("size");
        QTest::newRow("one line, centred vertically") << false << int(Qt::AlignLeft | Qt::AlignVCenter) << 0 << QSize(320, 90);
        QTest::newRow("wrapped") << true << int(Qt::AlignLeft | Qt::AlignVCenter) << 0 << QSize(120, 120);
        QTest::newRow("bottom right with margin") << false << int(Qt::AlignRight | Qt::AlignBottom) << 8 << QSize(420, 90);
        QTest::newRow("centred, wrapped") << true << int(Qt::AlignCenter) << 4 << QSize(130, 140);
    }

    void rectanglesCoverThePaintedLink()
    {
        QFETCH(bool, wrap);
        QFETCH(int, alignment);
        QFETCH(int, margin);
        QFETCH(QSize, size);
        HyperlinkTextField field(QStringLiteral("See <a href=\"https://example.org/\"><span style=\"color:#ff0000\">"
                                                "the rather long linked phrase</span></a> here."));
        field.setWordWrap(wrap);
        field.setAlignment(Qt::Alignment(alignment));
        field.setMargin(margin);
        field.setFixedSize(size);
        field.show();

        const QImage picture = field.grab().toImage();
        const auto infos = field.hyperlinkInfos();
        QVERIFY(infos.has_value());
        QList<QRectF> shown;
        for (const LinkRecord &record : *infos)
            shown.append(shownRect(field, record).adjusted(-1, -1, 1, 1));
        int red = 0;
        for (int y = 0; y < picture.height(); ++y) {
            for (int x = 0; x < picture.width(); ++x) {
                const QColor colour = picture.pixelColor(x, y);
                if (colour.red() < 150 || colour.green() > 100 || colour.blue() > 100)
                    continue;
                ++red;
                const QPointF pixel(x + 0.5, y + 0.5);
                const bool covered = std::any_of(shown.cbegin(), shown.cend(), [&](const QRectF &r) { return r.contains(pixel); });
                QVERIFY2(covered, qPrintable(QStringLiteral("link pixel (%1, %2) outside the records").arg(x).arg(y)));
            }
        }
        QVERIFY2(red > 50, "the link was not painted");
    }

    void pointerOverAndOffTheLink()
    {
        HyperlinkTextField field(oneLink);
        field.setFixedSize(300, 60);
        field.show();
        const LinkRecord record = field.hyperlinkInfos()->first();
        const QRectF link = shownRect(field, record);

        moveMouse(&field, shownCentre(field, record));
        QCOMPARE(field.cursor().shape(), Qt::PointingHandCursor);
        moveMouse(&field, QPoint(int(link.left()) - 20, int(link.center().y())));
        QCOMPARE(field.cursor().shape(), Qt::ArrowCursor);
        // Just above the line, still over the label.
        moveMouse(&field, QPoint(int(link.center().x()), int(link.top()) - 4));
        QCOMPARE(field.cursor().shape(), Qt::ArrowCursor);
        moveMouse(&field, shownCentre(field, record));
        QCOMPARE(field.cursor().shape(), Qt::PointingHandCursor);
        QEvent leave(QEvent::Leave);
        QApplication::sendEvent(&field, &leave);
        QCOMPARE(field.cursor().shape(), Qt::ArrowCursor);
    }
};

QTEST_MAIN(TestHyperlinkTextField)
#include "TestHyperlinkTextField.moc"
