#pragma once

#include <QProgressBar>

// A determinate bar that counts in fractions (12.5 of 100, say) the way the
// conversion reports progress, on top of QProgressBar's integer steps. The
// value is clamped to the maximum, and each change reaches the screen at once,
// even while the main thread is busy converting.
class ProgressIndicator : public QProgressBar
{
    Q_OBJECT

public:
    explicit ProgressIndicator(QWidget *parent = nullptr);

    double doubleValue() const { return m_value; }
    double maxValue() const { return m_max; }
    void setDoubleValue(double value);
    void setMaxValue(double max);
    void incrementBy(double delta);
    // Paints now if anything changed, and lets the window system show it.
    void displayIfNeeded();

    static constexpr int unitsPerStep = 10; // one decimal place of the fractional value

private:
    void apply();

    double m_value = 0.0;
    double m_max = 100.0;
};
