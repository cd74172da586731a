#pragma once

#include <QAbstractButton>

// A clickable panel of the main window: its labels and icon are child
// widgets, and it draws a border only while it is "bordered" (the pointer is
// over it), as the main window's hover tracking decides.
class PanelButton : public QAbstractButton
{
    Q_OBJECT
    Q_PROPERTY(bool bordered READ isBordered WRITE setBordered)

public:
    explicit PanelButton(QWidget *parent = nullptr);

    bool isBordered() const { return m_bordered; }
    void setBordered(bool bordered);

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    // Enter and Return press a focused panel, as Space does.
    void keyPressEvent(QKeyEvent *event) override;

private:
    bool m_bordered = false;
};
