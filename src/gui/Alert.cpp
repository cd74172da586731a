#include "gui/Alert.h"

#include <QAbstractButton>
#include <QGuiApplication>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>

namespace {
Alert::Responder &responder()
{
    static Alert::Responder r;
    return r;
}
} // namespace

void Alert::setResponder(Responder r)
{
    responder() = std::move(r);
}

bool Alert::hasScreen()
{
    const QString platform = QGuiApplication::platformName();
    return platform != QLatin1String("offscreen") && platform != QLatin1String("minimal");
}

void Alert::show(Style style, const QString &message, const QString &informative, QWidget *parent,
                 const QString &detail, const QString &button)
{
    Alert alert;
    alert.setStyle(style);
    alert.setParent(parent);
    alert.addButton(button);
    alert.setMessageText(message);
    alert.setInformativeText(informative);
    alert.setDetailedText(detail);
    alert.runModal();
}

int Alert::runModal()
{
    if (responder())
        return responder()(*this);
    if (!hasScreen()) {
        qWarning("Alert without a screen: %s %s", qPrintable(m_messageText), qPrintable(m_informativeText));
        return firstButtonReturn;
    }

    QMessageBox box(m_parent);
    box.setIcon(m_style == Critical        ? QMessageBox::Critical
                : m_style == Informational ? QMessageBox::Information
                                           : QMessageBox::Warning);
    box.setWindowTitle(QGuiApplication::applicationDisplayName());
    box.setText(m_messageText);
    box.setInformativeText(m_informativeText);
    box.setDetailedText(m_detailedText);
    // The message reads as a heading above the details, and the details get room to breathe.
    if (auto *message = box.findChild<QLabel *>(QStringLiteral("qt_msgbox_label"))) {
        QFont font = message->font();
        font.setBold(true);
        message->setFont(font);
    }
    if (auto *details = box.findChild<QLabel *>(QStringLiteral("qt_msgbox_informativelabel")))
        details->setMinimumWidth(380);
    QStringList titles = m_buttons.isEmpty() ? QStringList{QStringLiteral("OK")} : m_buttons;
    QList<QAbstractButton *> made;
    for (int i = 0; i < titles.size(); ++i)
        made.append(box.addButton(titles.at(i), i == 0 ? QMessageBox::AcceptRole : QMessageBox::RejectRole));
    box.setDefaultButton(qobject_cast<QPushButton *>(made.first()));
    // Escape gives the safe answer, chosen here rather than left to the box's
    // guess from the buttons' roles: the one button, or of several the last,
    // which declines.
    box.setEscapeButton(made.last());
    box.exec();
    const int index = int(made.indexOf(box.clickedButton()));
    return firstButtonReturn + (index < 0 ? 0 : index);
}
