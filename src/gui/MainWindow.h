#pragma once

#include <QMainWindow>
#include <QPointer>
#include <QScopedPointer>

class PanelButton;
class QAction;
class QLabel;

namespace Ui {
class MainWindow;
}

// The small main window: a background picture and three panels (preferences,
// open, feedback and support), each a header, a line of text and an image,
// bordered while the pointer is over it. Closing it only hides it; the
// application goes on until the person quits. The menus live in its form;
// what they do is the application delegate's business. Local files and
// folders dropped on it are handed on as they are; while a drag that carries
// any hovers, a frame in the highlight colour shows where they will land.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit MainWindow(QWidget *parent = nullptr);
    ~MainWindow() override;

    // What the menus and the panels hold, for the delegate to connect.
    enum class MenuItem {
        Open,
        Close,
        Preferences,
        Quit,
        ShowMainWindow,
        Results,
        Support,
        Website,
        CheckForUpdates,
        About
    };
    enum class Panel { Preferences, Open, MoreInfo };
    QAction *menuItem(MenuItem item) const;
    PanelButton *panel(Panel panel) const;

    // Puts in the background picture and fills the three panels.
    void buildContent();
    // Shows the window, centred on its screen the first time.
    void present();

    // One line under the panels, such as the outcome of the last batch, ending
    // in links; it stays until replaced or cleared.
    void showStatus(const QString &text, const QStringList &links);
    void clearStatus();
    // The line as it reads, link included; empty when there is none.
    QString statusText() const;

    // The pieces of a panel.
    static QLabel *makeHeaderLabel(const QString &text);
    static QLabel *makeBodyTextLabel(const QString &text);
    // The image named by filePath: "NSAdvanced", "KeynoteIcon", or the information image for any other name.
    static QLabel *makeImageFromPath(const QString &filePath);

    bool isShowingDropHighlight() const;

Q_SIGNALS:
    void windowWillClose();
    // A click on the preferences panel's header text (the panel gets the click too).
    void preferencesHeaderClicked();
    // Local files and folders dropped on the window, in the order the drag gave them.
    void packagesDropped(const QStringList &paths);
    // One of the status line's links was followed: its text.
    void statusLinkActivated(const QString &link);

protected:
    void closeEvent(QCloseEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dragMoveEvent(QDragMoveEvent *event) override;
    void dragLeaveEvent(QDragLeaveEvent *event) override;
    void dropEvent(QDropEvent *event) override;

private:
    void buildPanel(PanelButton *panel, const QString &header, const QString &body, const QString &icon);
    void mouseEntered(const QPointF &globalPosition);
    void mouseExited();
    QList<PanelButton *> panels() const;
    bool acceptDrag(QDropEvent *event) const;
    void showDropHighlight(bool shown);

    QScopedPointer<Ui::MainWindow> m_ui;
    QPointer<QLabel> m_preferencesHeaderLabel;
    QWidget *m_dropHighlight = nullptr;
    QString m_statusText;
    QStringList m_statusLinks;
    bool m_placed = false;
};
