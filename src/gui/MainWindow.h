#pragma once

#include <QMainWindow>
#include <QPointer>
#include <QScopedPointer>

class PanelButton;
class QLabel;

namespace Ui {
class MainWindow;
}

// The small main window: a background picture and three panels (preferences,
// open, feedback and support), each a header, a line of text and an image,
// bordered while the pointer is over it. Closing it only hides it; the
// application goes on until the person quits. The menus live in its form;
// what they do is the application delegate's business.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit MainWindow(QWidget *parent = nullptr);
    ~MainWindow() override;

    Ui::MainWindow &ui() { return *m_ui; }

    // Puts in the background picture and fills the three panels.
    void buildContent();
    // Shows the window, centred on its screen the first time.
    void present();

    // The pieces of a panel.
    static QLabel *makeHeaderLabel(const QString &text);
    static QLabel *makeBodyTextLabel(const QString &text);
    // The image named by filePath: "NSAdvanced", "KeynoteIcon", or the information image for any other name.
    static QLabel *makeImageFromPath(const QString &filePath);

Q_SIGNALS:
    void windowWillClose();
    // A click on the preferences panel's header text (the panel gets the click too).
    void preferencesHeaderClicked();

protected:
    void closeEvent(QCloseEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void buildPanel(PanelButton *panel, const QString &header, const QString &body, const QString &icon);
    void mouseEntered(const QPointF &globalPosition);
    void mouseExited();
    QList<PanelButton *> panels() const;

    QScopedPointer<Ui::MainWindow> m_ui;
    QPointer<QLabel> m_preferencesHeaderLabel;
    bool m_placed = false;
};
