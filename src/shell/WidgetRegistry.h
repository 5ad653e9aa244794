#pragma once

#include <QList>
#include <QSize>
#include <QString>

// One widget the user can place: its identifier, emoji icon and display name.
struct WidgetMeta
{
    QString id;
    QString icon;
    QString name;
};

// The three widgets, in display order, and what depends only on an identifier.
class WidgetRegistry
{
public:
    static const QList<WidgetMeta>& all();
    // Null when the identifier is not a known widget.
    static const WidgetMeta* find(const QString& id);
    // Size of a new floating panel (240 x 200 for an unknown identifier).
    static QSize defaultPanelSize(const QString& id);
    // The tray item's title: the widget's emoji, or "•" when unknown.
    static QString statusTitle(const QString& id);
};
