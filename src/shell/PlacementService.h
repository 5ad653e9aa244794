#pragma once

#include <QList>
#include <QObject>
#include <QString>

class ModelContext;
class WidgetPlacement;

// The one writer of widget placements: whether a widget shows as a tray item or a
// floating panel, and where its panel was left. Every change is saved at once.
class PlacementService final : public QObject
{
    Q_OBJECT

public:
    explicit PlacementService(ModelContext& context, QObject* parent = nullptr);

    // A widget's placement, created (all off) and saved when there is none; a
    // legacy mode is migrated in memory.
    WidgetPlacement* placement(const QString& widgetId);
    // Every stored placement, legacy modes migrated (and saved): start-up.
    QList<WidgetPlacement*> restore();
    // The hub's switches.
    void setInStatusBar(const QString& widgetId, bool on);
    void setFloating(const QString& widgetId, bool on);
    // A panel came to rest: its frame (see DesktopFrame) is kept, floating.
    void setFrame(const QString& widgetId, const QString& frameJSON);
    // The stored frame of a widget's panel; null when there is none.
    QString frame(const QString& widgetId);
    // The user closed a panel: floating off, its frame forgotten.
    void panelClosed(const QString& widgetId);

signals:
    // A placement changed, here or in the store (an import, a restore).
    void changed();

private:
    ModelContext& m_context;
};
