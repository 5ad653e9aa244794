#include "WidgetRegistry.h"

const QList<WidgetMeta>& WidgetRegistry::all()
{
    static const QList<WidgetMeta> widgets{
        {QStringLiteral("pomodoro"), QStringLiteral("🍅"), QStringLiteral("Pomodoro")},
        {QStringLiteral("tasks"), QStringLiteral("✓"), QStringLiteral("Tasks")},
        {QStringLiteral("habits"), QStringLiteral("💧"), QStringLiteral("Habits")},
    };
    return widgets;
}

const WidgetMeta* WidgetRegistry::find(const QString& id)
{
    for (const WidgetMeta& meta : all()) {
        if (meta.id == id)
            return &meta;
    }
    return nullptr;
}

QSize WidgetRegistry::defaultPanelSize(const QString& id)
{
    if (id == u"pomodoro")
        return {200, 120};
    if (id == u"tasks" || id == u"habits")
        return {260, 220};
    return {240, 200};
}

QString WidgetRegistry::statusTitle(const QString& id)
{
    const WidgetMeta* meta = find(id);
    return meta ? meta->icon : QStringLiteral("•");
}
