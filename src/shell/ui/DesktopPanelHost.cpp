#include "DesktopPanelHost.h"

#include "DesktopFrame.h"
#include "DraggablePanel.h"
#include "FloatingContainer.h"
#include "PlacementService.h"
#include "WidgetRegistry.h"

#include <QApplication>
#include <QPropertyAnimation>
#include <QScreen>
#include <QVBoxLayout>

#include <algorithm>
#include <limits>

DesktopPanelHost::DesktopPanelHost(PlacementService& placements, const QString& widgetId,
                                   const QSize& defaultSize, QWidget* content, QObject* parent)
    : QObject(parent)
    , m_placements(placements)
    , m_widgetId(widgetId)
{
    m_panel = new DraggablePanel;
    const WidgetMeta* meta = WidgetRegistry::find(widgetId);
    m_panel->setWindowTitle(meta ? meta->name : widgetId);
    m_panel->setObjectName(QStringLiteral("floatingPanel_") + widgetId);
    m_container = new FloatingContainer(content, m_panel);
    auto* layout = new QVBoxLayout(m_panel);
    layout->setContentsMargins(0, 0, 0, 0);
    // The content never sizes the panel: the user's frame (or the default) holds.
    layout->setSizeConstraint(QLayout::SetNoConstraint);
    layout->addWidget(m_container);

    m_fade = new QPropertyAnimation(m_panel, "windowOpacity", this);
    m_fade->setDuration(180);

    m_saveTimer.setSingleShot(true);
    m_saveTimer.setInterval(300);
    connect(&m_saveTimer, &QTimer::timeout, this, &DesktopPanelHost::persist);
    m_dragEndTimer.setSingleShot(true);
    m_dragEndTimer.setInterval(250);
    connect(&m_dragEndTimer, &QTimer::timeout, this, [this] {
        m_dragging = false;
        m_container->setDragging(false);
    });

    connect(m_panel, &DraggablePanel::hoverChanged, this, &DesktopPanelHost::applyHover);
    connect(m_panel, &DraggablePanel::moved, this, [this] {
        markDragging();
        schedulePersist();
    });
    connect(m_panel, &DraggablePanel::resized, this, [this] {
        markDragging();
        schedulePersist();
    });
    connect(m_container, &FloatingContainer::closeRequested, this, [this] {
        if (!m_tornDown)
            emit closedByUser(m_widgetId);
    });

    applyPersistedFrame(defaultSize);
    m_panel->show();
}

DesktopPanelHost::~DesktopPanelHost()
{
    m_tornDown = true;
    delete m_panel;
}

void DesktopPanelHost::tearDown()
{
    m_tornDown = true;
    m_saveTimer.stop();
    m_dragEndTimer.stop();
}

QRect DesktopPanelHost::toStoredFrame(const QRect& f)
{
    const QScreen* screen = QGuiApplication::primaryScreen();
    const QRect main = screen ? screen->geometry() : QRect();
    return {f.x() - main.x(), main.y() + main.height() - (f.y() + f.height()), f.width(),
            f.height()};
}

QRect DesktopPanelHost::fromStoredFrame(const QRect& s)
{
    const QScreen* screen = QGuiApplication::primaryScreen();
    const QRect main = screen ? screen->geometry() : QRect();
    return {s.x() + main.x(), main.y() + main.height() - s.y() - s.height(), s.width(), s.height()};
}

void DesktopPanelHost::applyPersistedFrame(const QSize& defaultSize)
{
    if (const auto stored = DesktopFrame::decode(m_placements.frame(m_widgetId))) {
        // Used as stored, even if that screen is gone.
        m_panel->setGeometry(fromStoredFrame(stored->toRect()));
        return;
    }
    m_panel->resize(defaultSize);
    const QScreen* screen = QGuiApplication::primaryScreen();
    if (!screen)
        return;
    // Panels opened together, or over the hub, must not hide each other.
    QList<QRect> taken;
    for (const QWidget* window : QApplication::topLevelWidgets()) {
        if (window == m_panel || !window->isVisible() || window->isMinimized())
            continue;
        const auto* panel = qobject_cast<const DraggablePanel*>(window);
        taken.append(panel ? panel->placedFrame() : window->frameGeometry());
    }
    m_panel->move(firstFrame(defaultSize, screen->availableGeometry(), taken).topLeft());
}

QRect DesktopPanelHost::firstFrame(const QSize& size, const QRect& area, const QList<QRect>& taken)
{
    const QRect centred(QPoint(qRound(area.x() + (area.width() - size.width()) / 2.0),
                               qRound(area.y() + (area.height() - size.height()) / 2.0)),
                        size);
    // A maximised or tiled window (a tiling window manager's hub) leaves no spot
    // beside it: the panels then only keep clear of each other.
    QList<QRect> others;
    const qint64 half = qint64(area.width()) * area.height() / 2;
    for (const QRect& t : taken) {
        const QRect inside = t.intersected(area);
        if (qint64(inside.width()) * inside.height() <= half)
            others.append(t);
    }
    const auto free = [&others](const QRect& r) {
        return std::none_of(others.cbegin(), others.cend(),
                            [&r](const QRect& t) { return t.intersects(r); });
    };
    if (free(centred))
        return centred;
    // The nearest free spot, looking on a 16-point grid around the centre.
    constexpr int step = 16;
    QRect best;
    qint64 bestDistance = std::numeric_limits<qint64>::max();
    for (int y = area.top(); y + size.height() <= area.bottom() + 1; y += step) {
        for (int x = area.left(); x + size.width() <= area.right() + 1; x += step) {
            const QRect candidate(QPoint(x, y), size);
            const qint64 dx = x - centred.x(), dy = y - centred.y();
            if (dx * dx + dy * dy < bestDistance && free(candidate)) {
                best = candidate;
                bestDistance = dx * dx + dy * dy;
            }
        }
    }
    // A screen too full for another panel: centred after all.
    return best.isValid() ? best : centred;
}

void DesktopPanelHost::applyHover(bool hovering)
{
    if (m_hovering != hovering) {
        m_hovering = hovering;
        m_container->setHovering(hovering);
    }
    m_fade->stop();
    m_fade->setStartValue(m_panel->windowOpacity());
    m_fade->setEndValue(hovering ? 1.0 : RestingOpacity);
    m_fade->start();
}

void DesktopPanelHost::markDragging()
{
    if (!m_dragging) {
        m_dragging = true;
        m_container->setDragging(true);
    }
    m_dragEndTimer.start();
}

void DesktopPanelHost::schedulePersist()
{
    m_pendingFrame = m_panel->geometry();
    m_saveTimer.start();
}

void DesktopPanelHost::persist()
{
    m_placements.setFrame(m_widgetId, DesktopFrame::encode(toStoredFrame(m_pendingFrame)));
}

DraggablePanel* DesktopPanelHost::panel() const
{
    return m_panel;
}
