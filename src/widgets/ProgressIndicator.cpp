#include "widgets/ProgressIndicator.h"

#include <QCoreApplication>

#include <algorithm>
#include <cmath>

ProgressIndicator::ProgressIndicator(QWidget *parent)
    : QProgressBar(parent)
{
    setTextVisible(false);
    apply();
}

void ProgressIndicator::setDoubleValue(double value)
{
    m_value = std::clamp(value, 0.0, m_max);
    apply();
}

void ProgressIndicator::setMaxValue(double max)
{
    m_max = std::max(0.0, max);
    m_value = std::min(m_value, m_max);
    apply();
}

void ProgressIndicator::incrementBy(double delta)
{
    setDoubleValue(m_value + delta);
    // The conversion holds the main thread between steps; show this step now.
    displayIfNeeded();
}

void ProgressIndicator::displayIfNeeded()
{
    if (!isVisible())
        return;
    repaint();
    // Expose and paint events only: a click must not start anything mid-conversion.
    QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
}

void ProgressIndicator::apply()
{
    setMaximum(int(std::lround(m_max * unitsPerStep)));
    setValue(int(std::lround(m_value * unitsPerStep)));
}
