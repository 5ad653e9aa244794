#include "WindowActivation.h"

// No launch tokens to pass on: raising is left to the toolkit.
void WindowActivation::prepare(QWidget*, const QString&) {}
