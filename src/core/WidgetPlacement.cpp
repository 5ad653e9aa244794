#include "WidgetPlacement.h"

WidgetPlacement::WidgetPlacement(const QString& widgetId, bool inFloating)
    : m_widgetId(widgetId)
    , m_inFloating(inFloating)
{}

void WidgetPlacement::migrateFromLegacyModeIfNeeded()
{
    if (m_inStatusBar || m_inFloating)
        return;
    if (m_mode == QLatin1String("statusbar"))
        setInStatusBar(true);
    else if (m_mode == QLatin1String("desktop"))
        setInFloating(true);
}
