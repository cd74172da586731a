#include "widgets/PanelButton.h"

#include <QKeyEvent>
#include <QPainter>
#include <QPainterPath>
#include <QStyleOptionFocusRect>

PanelButton::PanelButton(QWidget *parent)
    : QAbstractButton(parent)
{
    setFocusPolicy(Qt::StrongFocus);
    setCursor(Qt::ArrowCursor);
}

void PanelButton::setBordered(bool bordered)
{
    if (m_bordered == bordered)
        return;
    m_bordered = bordered;
    update();
}

QSize PanelButton::sizeHint() const
{
    return {340, 52};
}

void PanelButton::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF box = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    QPainterPath path;
    path.addRoundedRect(box, 8, 8);
    if (m_bordered || isDown()) {
        painter.fillPath(path, QColor(255, 255, 255, isDown() ? 235 : 170));
        painter.setPen(QPen(QColor(90, 110, 140, isDown() ? 200 : 140), 1));
        painter.drawPath(path);
    }
    // The focus ring shows once the keyboard moves focus, not for the focus a window starts with.
    if (hasFocus() && window()->testAttribute(Qt::WA_KeyboardFocusChange)) {
        QPainterPath focus;
        focus.addRoundedRect(box.adjusted(1.5, 1.5, -1.5, -1.5), 7, 7);
        painter.setPen(QPen(palette().color(QPalette::Highlight), 2));
        painter.drawPath(focus);
    }
}

void PanelButton::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        animateClick();
        event->accept();
        return;
    }
    QAbstractButton::keyPressEvent(event);
}
