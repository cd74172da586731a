#include "widgets/ScreenFit.h"

#include <QGuiApplication>
#include <QScreen>
#include <QStyle>
#include <QWidget>

#include <algorithm>

QRect ScreenFit::fitted(const QRect &frame, const QRect &available, int titleBarHeight)
{
    const QRect room = available.adjusted(0, std::min(titleBarHeight, available.height() / 2), 0, 0);
    QRect result(frame.topLeft(), frame.size().boundedTo(room.size()));
    result.moveLeft(std::clamp(result.left(), room.left(), room.right() + 1 - result.width()));
    result.moveTop(std::clamp(result.top(), room.top(), room.bottom() + 1 - result.height()));
    return result;
}

QRect ScreenFit::availableAround(const QRect &frame)
{
    const QScreen *screen = QGuiApplication::screenAt(frame.center());
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    return screen ? screen->availableGeometry() : frame;
}

QRect ScreenFit::fittedOnScreen(const QWidget *window, const QRect &frame)
{
    // The window manager's title bar is not known before the window is shown;
    // the style's own is a fair guess of its height.
    return fitted(frame, availableAround(frame),
                  window->style()->pixelMetric(QStyle::PM_TitleBarHeight, nullptr, window));
}
