#pragma once

#include <QRect>

class QWidget;

// Keeps windows within the screen they land on: a frame saved under one scale
// factor, or a size chosen for a roomy screen, may not fit another.
class ScreenFit
{
public:
    // The frame (a window's geometry, inside its decorations) moved, and shrunk
    // if it must be, so that it and a title bar of this height above it lie
    // within the available area. A frame that fits is returned as it is.
    static QRect fitted(const QRect &frame, const QRect &available, int titleBarHeight);
    // The available area of the screen that holds the frame's centre, or of
    // the primary screen when none does.
    static QRect availableAround(const QRect &frame);
    // Both, for a window that is to take this frame.
    static QRect fittedOnScreen(const QWidget *window, const QRect &frame);
};
