#include "widgets/HyperlinkTextField.h"

#include "platform/DesktopServices.h"

#include <QAbstractTextDocumentLayout>
#include <QMouseEvent>
#include <QStyle>
#include <QTextBlock>
#include <QTextDocument>
#include <QTextFrame>
#include <QTextLayout>
#include <QUrl>

#include <algorithm>

namespace {
using LinkRecord = HyperlinkTextField::LinkRecord;

struct LinkRun
{
    int start = 0;
    int end = 0;
    QString url;
};

// Runs of text sharing one link target, in text order.
QList<LinkRun> linkRuns(const QTextBlock &block)
{
    QList<LinkRun> runs;
    for (QTextBlock::iterator it = block.begin(); !it.atEnd(); ++it) {
        const QTextFragment fragment = it.fragment();
        const QTextCharFormat format = fragment.charFormat();
        if (!format.isAnchor() || format.anchorHref().isEmpty())
            continue;
        const int start = fragment.position();
        const int end = start + fragment.length();
        // A link with styled parts inside it arrives as several fragments.
        if (!runs.isEmpty() && runs.last().end == start && runs.last().url == format.anchorHref())
            runs.last().end = end;
        else
            runs.append({start, end, format.anchorHref()});
    }
    return runs;
}

QList<LinkRecord> collectRecords(const QTextDocument &document)
{
    QList<LinkRecord> records;
    QAbstractTextDocumentLayout *documentLayout = document.documentLayout();
    for (QTextBlock block = document.begin(); block.isValid(); block = block.next()) {
        const QList<LinkRun> runs = linkRuns(block);
        if (runs.isEmpty())
            continue;
        const QTextLayout *layout = block.layout();
        const QPointF blockOrigin = documentLayout->blockBoundingRect(block).topLeft();
        for (const LinkRun &run : runs) {
            const int runStart = run.start - block.position();
            const int runEnd = run.end - block.position();
            for (int i = 0; i < layout->lineCount(); ++i) {
                const QTextLine line = layout->lineAt(i);
                const int from = std::max(runStart, line.textStart());
                const int to = std::min(runEnd, line.textStart() + line.textLength());
                if (from >= to)
                    continue;
                const qreal x1 = line.cursorToX(from);
                const qreal x2 = line.cursorToX(to);
                LinkRecord record;
                record.range = {run.start, run.end - run.start};
                record.url = run.url;
                record.rect
                    = QRectF(std::min(x1, x2), line.y(), std::abs(x2 - x1), line.height()).translated(blockOrigin);
                records.append(record);
            }
        }
    }
    return records;
}
} // namespace

HyperlinkTextField::HyperlinkTextField(QWidget *parent)
    : QLabel(parent)
{
    hyperlinkTextFieldInit();
}

HyperlinkTextField::HyperlinkTextField(const QString &text, QWidget *parent)
    : QLabel(text, parent)
{
    hyperlinkTextFieldInit();
}

void HyperlinkTextField::hyperlinkTextFieldInit()
{
    setTextFormat(Qt::RichText);
    // The label answers the mouse itself: no editing, no selection, no link handling of QLabel's.
    setTextInteractionFlags(Qt::NoTextInteraction);
    setOpenExternalLinks(false);
    setMouseTracking(true);
}

std::unique_ptr<QTextDocument> HyperlinkTextField::layoutDocument() const
{
    // Mirrors how QLabel lays out rich text, so that positions match what is painted.
    auto document = std::make_unique<QTextDocument>();
    document->setUndoRedoEnabled(false);
    document->setDefaultFont(font());
    const Qt::TextFormat format
        = textFormat() == Qt::AutoText ? (Qt::mightBeRichText(text()) ? Qt::RichText : Qt::PlainText) : textFormat();
    if (format == Qt::RichText)
        document->setHtml(text());
    else if (format == Qt::MarkdownText)
        document->setMarkdown(text());
    else
        document->setPlainText(text());

    QTextOption option = document->defaultTextOption();
    option.setAlignment(alignment());
    option.setWrapMode(wordWrap() ? QTextOption::WordWrap : QTextOption::ManualWrap);
    document->setDefaultTextOption(option);
    QTextFrameFormat frameFormat = document->rootFrame()->frameFormat();
    frameFormat.setMargin(0);
    document->rootFrame()->setFrameFormat(frameFormat);
    document->setTextWidth(documentRect().width());
    return document;
}

QRectF HyperlinkTextField::documentRect() const
{
    QRectF rect = contentsRect().adjusted(margin(), margin(), -margin(), -margin());
    const Qt::Alignment align = QStyle::visualAlignment(layoutDirection(), alignment());
    int inset = indent();
    if (inset < 0 && frameWidth() > 0)
        inset = fontMetrics().horizontalAdvance(QLatin1Char('x')) / 2 - margin();
    if (inset > 0) {
        if (align & Qt::AlignLeft)
            rect.setLeft(rect.left() + inset);
        if (align & Qt::AlignRight)
            rect.setRight(rect.right() - inset);
        if (align & Qt::AlignTop)
            rect.setTop(rect.top() + inset);
        if (align & Qt::AlignBottom)
            rect.setBottom(rect.bottom() - inset);
    }
    return rect;
}

QPointF HyperlinkTextField::layoutOrigin(const QTextDocument &document) const
{
    const QRectF rect = documentRect();
    const qreal textHeight = document.documentLayout()->documentSize().height();
    qreal top = 0;
    if (alignment() & Qt::AlignVCenter)
        top = std::max((rect.height() - textHeight) / 2, qreal(0));
    else if (alignment() & Qt::AlignBottom)
        top = std::max(rect.height() - textHeight, qreal(0));
    return QPointF(rect.x(), rect.y() + top);
}

std::optional<QList<HyperlinkTextField::LinkRecord>> HyperlinkTextField::hyperlinkInfos() const
{
    if (text().isEmpty())
        return std::nullopt;
    const QList<LinkRecord> records = collectRecords(*layoutDocument());
    if (records.isEmpty())
        return std::nullopt;
    return records;
}

void HyperlinkTextField::mousePressEvent(QMouseEvent *event)
{
    event->accept();
}

void HyperlinkTextField::mouseMoveEvent(QMouseEvent *event)
{
    QLabel::mouseMoveEvent(event);
    updateCursor(event->position());
}

void HyperlinkTextField::leaveEvent(QEvent *event)
{
    unsetCursor();
    QLabel::leaveEvent(event);
}

void HyperlinkTextField::updateCursor(const QPointF &position)
{
    bool overLink = false;
    if (!text().isEmpty()) {
        const std::unique_ptr<QTextDocument> document = layoutDocument();
        const QPointF origin = layoutOrigin(*document);
        const QList<LinkRecord> records = collectRecords(*document);
        overLink = std::any_of(records.cbegin(), records.cend(), [&](const LinkRecord &record) {
            return record.rect.translated(origin).contains(position);
        });
    }
    if (overLink)
        setCursor(Qt::PointingHandCursor);
    else
        unsetCursor();
}

void HyperlinkTextField::mouseReleaseEvent(QMouseEvent *event)
{
    // Handled here, never by QLabel.
    event->accept();
    if (event->button() != Qt::LeftButton || text().isEmpty())
        return;
    const std::unique_ptr<QTextDocument> document = layoutDocument();
    const QPointF point = event->position() - layoutOrigin(*document);
    const int index = document->documentLayout()->hitTest(point, Qt::ExactHit);
    if (index < 0)
        return;
    // Every record is asked, so a link that wraps opens once per line: kept on purpose.
    const QList<LinkRecord> records = collectRecords(*document);
    for (const LinkRecord &record : records) {
        if (record.range.contains(index))
            DesktopServices::instance().openUrl(QUrl(record.url));
    }
}
