#include "WidgetTogglesView.h"

#include "PlacementService.h"
#include "RoundedPanel.h"
#include "Switch.h"
#include "Theme.h"
#include "WidgetPlacement.h"
#include "WidgetRegistry.h"
#include "WindowManager.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSystemTrayIcon>
#include <QVBoxLayout>

namespace {
constexpr int statusColumn = 76;
constexpr int floatingColumn = 64;

QWidget* centred(QWidget* child, int width, QWidget* parent)
{
    auto* cell = new QWidget(parent);
    cell->setFixedWidth(width);
    auto* layout = new QHBoxLayout(cell);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(child, 0, Qt::AlignCenter);
    return cell;
}

QLabel* columnTitle(const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    label->setFont(Theme::font(Theme::Font::Caption2));
    Theme::makeSecondary(label);
    return label;
}
} // namespace

WidgetTogglesView::WidgetTogglesView(PlacementService& placements, WindowManager& windows,
                                     QWidget* parent)
    : QWidget(parent)
    , m_placements(placements)
    , m_windows(windows)
{
    setObjectName(QStringLiteral("widgetToggles"));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(8);

    auto* header = new QHBoxLayout;
    auto* title = new QLabel(QStringLiteral("Widgets"), this);
    title->setFont(Theme::font(Theme::Font::Subheadline, QFont::DemiBold));
    header->addWidget(title);
    header->addStretch();
    header->addWidget(centred(columnTitle(QStringLiteral("Status bar"), this), statusColumn, this));
    header->addWidget(centred(columnTitle(QStringLiteral("Floating"), this), floatingColumn, this));
    header->setContentsMargins(10, 0, 10, 0);
    column->addLayout(header);

    auto* block = new RoundedPanel(Theme::secondary(0.06), 8, this);
    auto* rows = new QVBoxLayout(block);
    rows->setContentsMargins(10, 10, 10, 10);
    rows->setSpacing(6);
    for (const WidgetMeta& meta : WidgetRegistry::all()) {
        auto* row = new QHBoxLayout;
        row->setSpacing(10);
        row->setContentsMargins(0, 2, 0, 2);
        auto* icon = new QLabel(meta.icon, block);
        icon->setFont(Theme::font(Theme::Font::Title3));
        auto* name = new QLabel(meta.name, block);
        auto* status = new Switch(block);
        status->setObjectName(meta.id + QStringLiteral("StatusBarSwitch"));
        status->setAccessibleName(meta.name + QStringLiteral(" in status bar"));
        auto* floating = new Switch(block);
        floating->setObjectName(meta.id + QStringLiteral("FloatingSwitch"));
        floating->setAccessibleName(meta.name + QStringLiteral(" floating"));
        auto* open = new QPushButton(QStringLiteral("Open"), block);
        open->setObjectName(meta.id + QStringLiteral("OpenButton"));
        open->setAccessibleName(QStringLiteral("Open ") + meta.name);
        open->setToolTip(QStringLiteral("Open %1 in a window").arg(meta.name));
        row->addWidget(icon);
        row->addWidget(name);
        row->addStretch();
        row->addWidget(open);
        row->addWidget(centred(status, statusColumn, block));
        row->addWidget(centred(floating, floatingColumn, block));
        rows->addLayout(row);
        m_statusSwitches.insert(meta.id, status);
        m_floatingSwitches.insert(meta.id, floating);
        const QString id = meta.id;
        connect(status, &Switch::toggled, this, [this, id](bool on) { toggle(id, true, on); });
        connect(floating, &Switch::toggled, this, [this, id](bool on) { toggle(id, false, on); });
        connect(open, &QPushButton::clicked, this, [this, id] { emit openRequested(id); });
    }
    column->addWidget(block);

    m_noTrayNote = new QLabel(
        QStringLiteral("This desktop shows no system tray, so status bar items stay hidden. "
                       "Open a widget here instead, or add a tray: on GNOME, install "
                       "gnome-shell-extension-appindicator, log in again and turn on "
                       "AppIndicator and KStatusNotifierItem Support in Extensions."),
        this);
    m_noTrayNote->setObjectName(QStringLiteral("noTrayNote"));
    m_noTrayNote->setWordWrap(true);
    m_noTrayNote->setFont(Theme::font(Theme::Font::Caption));
    Theme::makeSecondary(m_noTrayNote);
    column->addWidget(m_noTrayNote);

    connect(&m_placements, &PlacementService::changed, this, &WidgetTogglesView::refresh);
    refresh();
}

void WidgetTogglesView::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    m_noTrayNote->setVisible(!QSystemTrayIcon::isSystemTrayAvailable());
    refresh();
}

void WidgetTogglesView::refresh()
{
    for (const WidgetMeta& meta : WidgetRegistry::all()) {
        const WidgetPlacement* p = m_placements.placement(meta.id);
        for (auto [sw, on] : {std::pair{m_statusSwitches.value(meta.id), p->inStatusBar()},
                              std::pair{m_floatingSwitches.value(meta.id), p->inFloating()}}) {
            const QSignalBlocker block(sw);
            sw->setChecked(on);
        }
    }
}

void WidgetTogglesView::toggle(const QString& widgetId, bool statusBar, bool on)
{
    if (statusBar)
        m_placements.setInStatusBar(widgetId, on);
    else
        m_placements.setFloating(widgetId, on);
    const WidgetPlacement* p = m_placements.placement(widgetId);
    m_windows.sync(widgetId, p->inStatusBar(), p->inFloating());
}
