#include "LimitedSpinBox.h"

#include <algorithm>
#include <limits>

namespace {
int shown(qint64 value)
{
    return int(std::clamp<qint64>(value, std::numeric_limits<int>::min(),
                                  std::numeric_limits<int>::max()));
}
} // namespace

LimitedSpinBox::LimitedSpinBox(int minimum, int maximum, QWidget* parent)
    : QSpinBox(parent)
    , m_minimum(minimum)
    , m_maximum(maximum)
    , m_loaded(minimum)
{
    setRange(minimum, maximum);
}

void LimitedSpinBox::setLoadedValue(qint64 value)
{
    m_loaded = value;
    setRange(std::min(m_minimum, shown(value)), std::max(m_maximum, shown(value)));
    setValue(shown(value));
}

qint64 LimitedSpinBox::currentValue() const
{
    return value() == shown(m_loaded) ? m_loaded : value();
}

void LimitedSpinBox::stepBy(int steps)
{
    const int v = value();
    if (v > m_maximum)
        setValue(steps < 0 ? m_maximum : v);
    else if (v < m_minimum)
        setValue(steps > 0 ? m_minimum : v);
    else
        setValue(std::clamp(v + steps, m_minimum, m_maximum));
    selectAll();
}

QAbstractSpinBox::StepEnabled LimitedSpinBox::stepEnabled() const
{
    const int v = value();
    StepEnabled enabled = StepNone;
    if (v > m_minimum)
        enabled |= StepDownEnabled;
    if (v < m_maximum)
        enabled |= StepUpEnabled;
    return enabled;
}

QValidator::State LimitedSpinBox::validate(QString& text, int& position) const
{
    const QValidator::State state = QSpinBox::validate(text, position);
    if (state != QValidator::Acceptable)
        return state;
    const int typed = valueFromText(text);
    // Only the limits, or the value that was loaded.
    if ((typed >= m_minimum && typed <= m_maximum) || typed == shown(m_loaded))
        return QValidator::Acceptable;
    return QValidator::Intermediate;
}
