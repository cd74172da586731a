#pragma once

#include <QLabel>
#include <QList>
#include <QPointF>
#include <QRectF>
#include <QString>

#include <memory>
#include <optional>

class QTextDocument;

// A read-only rich-text label whose links can be clicked: the pointer becomes
// a pointing hand over linked text, and releasing the button there opens the
// link with the desktop's default handler. It keeps no state of its own; every
// question lays the current text out afresh.
class HyperlinkTextField : public QLabel
{
    Q_OBJECT

public:
    // One rectangle that a linked run of text occupies; a run that wraps has
    // one record per line, each with the same range and url.
    struct LinkRecord
    {
        struct Range
        {
            int location = 0;
            int length = 0;
            bool contains(int index) const { return location <= index && index < location + length; }
        };
        Range range; // in the label's plain text
        QString url; // the link target as the text stores it
        QRectF rect; // in the layout's own coordinates (see layoutOrigin)
    };

    explicit HyperlinkTextField(QWidget *parent = nullptr);
    explicit HyperlinkTextField(const QString &text, QWidget *parent = nullptr);

    // The link records of the current text; none (not an empty list) when it has no links.
    std::optional<QList<LinkRecord>> hyperlinkInfos() const;

    // A fresh document holding the label's text, laid out as the label shows it.
    std::unique_ptr<QTextDocument> layoutDocument() const;
    // Where the layout's (0, 0) lies in the label, for a document from layoutDocument().
    QPointF layoutOrigin(const QTextDocument &document) const;

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void leaveEvent(QEvent *event) override;

private:
    void hyperlinkTextFieldInit();
    QRectF documentRect() const;
    void updateCursor(const QPointF &position);
};
