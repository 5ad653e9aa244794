#include "ControlSurface.h"

// Nothing to publish on: the app is driven through its windows alone.
void ControlSurface::publish(AppServices&, QObject*, std::function<void()>) {}
