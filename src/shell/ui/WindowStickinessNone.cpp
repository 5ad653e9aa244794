#include "WindowStickiness.h"

// No window manager to ask: windows stay where the toolkit puts them.
void WindowStickiness::apply(QWidget*) {}

void WindowStickiness::request(QWidget*, const QPoint&) {}

void WindowStickiness::keepAt(QWidget*, const QPoint&) {}

void WindowStickiness::keepFloating(QWidget*, const QRect&) {}

// The screen's own available geometry is all there is to know.
void WindowStickiness::workArea(QObject*, std::function<void(const QRect&)>) {}

// Nothing says a compositor blends, so windows are drawn opaque rather than risk
// transparent corners showing black.
bool WindowStickiness::canBlend()
{
    return false;
}
