#include "gui/TrayIcon.h"

#include <QApplication>
#include <QSystemTrayIcon>

namespace {
std::optional<bool> testedAvailability;
}

TrayIcon::TrayIcon(QObject *parent)
    : QObject(parent)
{
    connect(m_menu.addAction(QStringLiteral("Show Deckwright")), &QAction::triggered, this,
            &TrayIcon::showWindowRequested);
    connect(m_menu.addAction(QStringLiteral("Open…")), &QAction::triggered, this, &TrayIcon::openRequested);
    connect(m_menu.addAction(QStringLiteral("Preferences…")), &QAction::triggered, this,
            &TrayIcon::preferencesRequested);
    m_menu.addSeparator();
    connect(m_menu.addAction(QStringLiteral("Quit")), &QAction::triggered, this, &TrayIcon::quitRequested);
}

TrayIcon::~TrayIcon() = default;

bool TrayIcon::isAvailable() const
{
    return testedAvailability ? *testedAvailability : QSystemTrayIcon::isSystemTrayAvailable();
}

void TrayIcon::setAvailability(std::optional<bool> available)
{
    testedAvailability = available;
}

bool TrayIcon::showIfAvailable()
{
    if (!isAvailable())
        return false;
    if (!m_icon) {
        m_icon.reset(new QSystemTrayIcon(QApplication::windowIcon()));
        m_icon->setToolTip(QStringLiteral("Deckwright"));
        m_icon->setContextMenu(&m_menu);
        connect(m_icon.get(), &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
            if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::DoubleClick)
                Q_EMIT showWindowRequested();
        });
    }
    m_icon->show();
    return true;
}

void TrayIcon::hide()
{
    if (m_icon)
        m_icon->hide();
}

bool TrayIcon::isShown() const
{
    return m_icon && m_icon->isVisible();
}
