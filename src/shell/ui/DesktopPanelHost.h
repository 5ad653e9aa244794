#pragma once

#include <QObject>
#include <QPointer>
#include <QRect>
#include <QTimer>

class DraggablePanel;
class FloatingContainer;
class PlacementService;
class QPropertyAnimation;
class QWidget;

// One floated widget: its panel, the hover fade, and the remembered frame
// (saved 0.3 s after the last move or resize, restored when the panel opens).
class DesktopPanelHost final : public QObject
{
    Q_OBJECT

public:
    static constexpr qreal RestingOpacity = 0.75;

    // `content` is the widget view in its view-only form; the host takes it.
    DesktopPanelHost(PlacementService& placements, const QString& widgetId,
                     const QSize& defaultSize, QWidget* content, QObject* parent = nullptr);
    ~DesktopPanelHost() override;

    QString widgetId() const { return m_widgetId; }
    DraggablePanel* panel() const;
    FloatingContainer* container() const { return m_container; }
    bool isHovering() const { return m_hovering; }
    bool isDragging() const { return m_dragging; }

    // Stops pending work and detaches from the panel so its closing is not
    // reported as the user closing it; the stored frame is kept.
    void tearDown();
    void applyHover(bool hovering);

    // Frames as stored: origin at the bottom left of the primary screen, y up.
    static QRect toStoredFrame(const QRect& screenFrame);
    static QRect fromStoredFrame(const QRect& storedFrame);
    // A new panel's frame: centred in `area`, unless that covers one of `taken`
    // (other panels, the hub); then the nearest spot in `area` that covers none.
    // A window over more than half of `area` does not count.
    static QRect firstFrame(const QSize& size, const QRect& area, const QList<QRect>& taken);

signals:
    // The user closed the panel (its close button or the window manager).
    void closedByUser(const QString& widgetId);

private:
    void applyPersistedFrame(const QSize& defaultSize);
    void markDragging();
    void schedulePersist();
    void persist();

    PlacementService& m_placements;
    QString m_widgetId;
    QPointer<DraggablePanel> m_panel;
    FloatingContainer* m_container = nullptr;
    QPropertyAnimation* m_fade = nullptr;
    QTimer m_saveTimer;
    QTimer m_dragEndTimer;
    QRect m_pendingFrame;
    bool m_hovering = false;
    bool m_dragging = false;
    bool m_tornDown = false;
};
