#pragma once

#include <QMainWindow>
#include <QPointer>
#include <QRect>
#include <QString>
#include <QTimer>

// The preferences window: a toolbar (when there is one) above the shown pane.
// It starts with a 420 x 230 content area in the middle of the screen, comes
// back where the user left it (its frame is kept in the settings store), and
// closes on Escape or Ctrl+W. Closing only hides it.
class PreferencesWindow : public QMainWindow
{
    Q_OBJECT

public:
    // A moved or resized window keeps its frame this long after the last
    // change: long enough for a drag or an animation to settle.
    static constexpr int frameSaveDelayMs = 300;
    static QString frameAutosaveKey() { return QStringLiteral("PreferencesWindowFrameAutoSaveName"); }
    static constexpr int initialContentWidth = 420;
    static constexpr int initialContentHeight = 230;

    explicit PreferencesWindow(QWidget *parent = nullptr);
    ~PreferencesWindow() override;

    // The pane's view shown below the toolbar; the window borrows it, the pane keeps it.
    // The previous view is hidden and left in the window until the pane takes it back.
    void setContentView(QWidget *view);
    QWidget *contentView() const { return m_contentView; }
    // Gives every borrowed view back to its pane (no parent) before the window goes.
    void releaseContentViews();

    // The window size that holds content of the given size below the toolbar.
    QSize frameSizeForContentSize(const QSize &contentSize) const;

    // Frame persistence. Setting a name restores the frame saved under it (if any)
    // and from then on writes the frame there whenever the window moves or resizes.
    QString frameAutosaveName() const { return m_frameAutosaveName; }
    void setFrameAutosaveName(const QString &name);
    // "x y w h" of the area inside the window's decorations.
    QString frameString() const;
    bool setFrameFromString(const QString &frame);
    // Writes a pending frame change to the store now.
    void saveFrameNow();

    // Has no visible effect off macOS; kept so callers can ask.
    bool titlebarAppearsTransparent() const { return m_titlebarAppearsTransparent; }
    void setTitlebarAppearsTransparent(bool transparent) { m_titlebarAppearsTransparent = transparent; }

    QMenu *createPopupMenu() override;

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void moveEvent(QMoveEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void closeEvent(QCloseEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void frameChanged();

    QWidget *m_contentHost = nullptr;
    QPointer<QWidget> m_contentView;
    QString m_frameAutosaveName;
    QTimer m_frameSaveTimer;
    bool m_frameSavePending = false; // moved or resized since the frame was last saved
    bool m_titlebarAppearsTransparent = false;
};
