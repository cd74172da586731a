#pragma once

#include <QString>
#include <QStringList>

#include <functional>

class QWidget;

// Every alert of the program: buttons, a message, an informative text, run
// modally. Tests answer through the responder instead of a window.
class Alert
{
public:
    enum Style { Informational, Warning, Critical };
    // runModal's answer for the first, second, ... button.
    static constexpr int firstButtonReturn = 1000;

    Alert() = default;

    void addButton(const QString &title) { m_buttons.append(title); }
    void setMessageText(const QString &text) { m_messageText = text; }
    void setInformativeText(const QString &text) { m_informativeText = text; }
    // Shown on request (a Show Details button): the particulars behind the message.
    void setDetailedText(const QString &text) { m_detailedText = text; }
    void setStyle(Style style) { m_style = style; }
    void setParent(QWidget *parent) { m_parent = parent; }

    const QStringList &buttons() const { return m_buttons; }
    const QString &messageText() const { return m_messageText; }
    const QString &informativeText() const { return m_informativeText; }
    const QString &detailedText() const { return m_detailedText; }
    Style style() const { return m_style; }

    // Shows the alert and waits for a button; returns firstButtonReturn + its index.
    int runModal();
    // The common case: one button, shown and waited for.
    static void show(Style style, const QString &message, const QString &informative, QWidget *parent = nullptr,
                     const QString &detail = {}, const QString &button = QStringLiteral("OK"));

    // Test seam: when set, runModal hands the alert to the responder and returns its answer.
    using Responder = std::function<int(const Alert &)>;
    static void setResponder(Responder responder);

    // Whether a person could see and answer a dialog: not so on the offscreen
    // and minimal platforms, where nothing must ever wait for an answer.
    static bool hasScreen();

private:
    QStringList m_buttons;
    QString m_messageText;
    QString m_informativeText;
    QString m_detailedText;
    Style m_style = Warning;
    QWidget *m_parent = nullptr;
};
