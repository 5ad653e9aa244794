#include "PlacementService.h"

#include "ModelContext.h"
#include "WidgetPlacement.h"

PlacementService::PlacementService(ModelContext& context, QObject* parent)
    : QObject(parent)
    , m_context(context)
{
    connect(&m_context, &ModelContext::changed, this, [this](RecordKind kind) {
        if (kind == RecordKind::WidgetPlacement)
            emit changed();
    });
}

WidgetPlacement* PlacementService::placement(const QString& widgetId)
{
    if (auto* existing = m_context.find<WidgetPlacement>(widgetId)) {
        existing->migrateFromLegacyModeIfNeeded();
        return existing;
    }
    auto* created = new WidgetPlacement(widgetId);
    m_context.insert(created);
    m_context.save();
    return created;
}

QList<WidgetPlacement*> PlacementService::restore()
{
    const QList<WidgetPlacement*> placements = m_context.fetch<WidgetPlacement>();
    for (WidgetPlacement* placement : placements)
        placement->migrateFromLegacyModeIfNeeded();
    // The hub's toggles may have migrated a placement in memory already: what
    // counts is whether anything is still unsaved.
    if (m_context.hasChanges())
        m_context.save();
    return placements;
}

void PlacementService::setInStatusBar(const QString& widgetId, bool on)
{
    placement(widgetId)->setInStatusBar(on);
    m_context.save();
}

void PlacementService::setFloating(const QString& widgetId, bool on)
{
    placement(widgetId)->setInFloating(on);
    m_context.save();
}

void PlacementService::setFrame(const QString& widgetId, const QString& frameJSON)
{
    auto* placement = m_context.find<WidgetPlacement>(widgetId);
    if (!placement) {
        placement = new WidgetPlacement(widgetId, true);
        m_context.insert(placement);
    }
    placement->setDesktopFrameJSON(frameJSON);
    m_context.save();
}

QString PlacementService::frame(const QString& widgetId)
{
    const auto* placement = m_context.find<WidgetPlacement>(widgetId);
    return placement ? placement->desktopFrameJSON() : QString();
}

void PlacementService::panelClosed(const QString& widgetId)
{
    auto* placement = m_context.find<WidgetPlacement>(widgetId);
    if (!placement)
        return;
    placement->setInFloating(false);
    placement->setDesktopFrameJSON(QString());
    m_context.save();
}
