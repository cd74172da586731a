#pragma once

#include <QMenu>
#include <QObject>
#include <QScopedPointer>

#include <optional>

class QSystemTrayIcon;

// The way back to a hidden main window on a desktop without a dock: an icon
// in the system tray, shown only while the main window is hidden and only
// where the desktop has a tray. Activating it shows the window; its menu
// offers Open…, Preferences… and Quit.
class TrayIcon : public QObject
{
    Q_OBJECT

public:
    explicit TrayIcon(QObject *parent = nullptr);
    ~TrayIcon() override;

    // Shows the icon where a tray exists; returns whether it is shown.
    bool showIfAvailable();
    void hide();
    bool isShown() const;

    QMenu *menu() { return &m_menu; }

    // Whether the desktop has a system tray, or what a test said.
    virtual bool isAvailable() const;
    // Makes isAvailable answer this; nullopt asks the desktop again.
    static void setAvailability(std::optional<bool> available);

Q_SIGNALS:
    void showWindowRequested();
    void openRequested();
    void preferencesRequested();
    void quitRequested();

private:
    QMenu m_menu;
    QScopedPointer<QSystemTrayIcon> m_icon;
};
