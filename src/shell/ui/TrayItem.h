#pragma once

#include <QIcon>
#include <QObject>
#include <QPointer>
#include <QRect>

class QMenu;
class QSystemTrayIcon;
class StatusNotifierItem;

// One icon in the desktop's tray: a StatusNotifierItem of the app's own wherever
// a tray speaks that protocol (with an id and title per widget, the host's click
// coordinates and a countdown tooltip), else an XEmbed icon; it switches when a
// tray starts or goes away.
class TrayItem final : public QObject
{
    Q_OBJECT

public:
    // `id` like "tidewell-pomodoro", `title` like "Tidewell Pomodoro". Nothing is
    // published before show().
    TrayItem(const QString& id, const QString& title, QMenu* menu, QObject* parent = nullptr);
    ~TrayItem() override;

    void setIcon(const QIcon& icon, const QString& themeName = {});
    void setToolTip(const QString& text);
    void show();
    void hide();

    // Where the icon is on screen when the tray says (XEmbed); empty otherwise.
    QRect geometry() const;

signals:
    // A click that should open the popup; `at` is where the tray said it was,
    // a null point when it did not say.
    void activated(const QPoint& at);

private:
    void useXEmbed(bool on);

    QString m_id;
    QString m_title;
    QMenu* m_menu;
    StatusNotifierItem* m_item = nullptr; // while shown, where the platform has them
    QPointer<QSystemTrayIcon> m_xembed;   // while shown and no tray took the item
    QIcon m_icon;
    QString m_themeName;
    QString m_toolTip;
    bool m_shown = false;
};
