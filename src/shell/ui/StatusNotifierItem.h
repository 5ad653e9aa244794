#pragma once

#include <QObject>
#include <QPoint>

class QIcon;
class QMenu;

// A tray item of the app's own, as desktop trays publish them (KDE Plasma,
// GNOME with the AppIndicator extension, waybar and most others): its id and
// title, icon, tooltip and menu, and where the host says it was clicked. It is
// "hosted" while a tray has taken it; when none has, the caller shows an
// XEmbed icon instead.
class StatusNotifierItem : public QObject
{
    Q_OBJECT

public:
    // Null where the platform has no such trays (the fallback build).
    static StatusNotifierItem* create(const QString& id, const QString& title, QMenu* menu,
                                      QObject* parent);

    virtual void setIcon(const QIcon& icon, const QString& themeName) = 0;
    virtual void setToolTip(const QString& text) = 0;
    virtual bool isHosted() const = 0;

signals:
    // A tray took the item, or none has (any more). The first comes soon after
    // creation, either way.
    void hostedChanged(bool hosted);
    // The host's click, at screen coordinates; a null point when it gave none.
    void activated(const QPoint& at);
    void contextMenuRequested(const QPoint& at);
    void scrolled(int delta, Qt::Orientation orientation);

protected:
    using QObject::QObject;
};
