#include "StatusItemHost.h"

#include "Countdown.h"
#include "PomodoroService.h"
#include "SymbolIcon.h"
#include "TrayItem.h"
#include "TrayPopup.h"
#include "WidgetRegistry.h"

#include <QApplication>
#include <QFont>
#include <QGlyphRun>
#include <QHash>
#include <QMenu>
#include <QPainter>
#include <QPalette>
#include <QRawFont>
#include <QTextLayout>

namespace {
// Whether `symbol` is drawn in the pen's colour, as "✓" is, rather than in colours
// of its own, as emoji are. Colour glyphs come from fonts with colour bitmaps
// (CBLC) or colour layers (COLR); asking the fonts that would draw it costs no
// rendering, where drawing it twice to compare cost a glyph cache of its own.
bool followsPen(const QFont& font, const QString& symbol)
{
    static QHash<QString, bool> known;
    const auto found = known.constFind(symbol);
    if (found != known.cend())
        return *found;
    QTextLayout layout(symbol, font);
    layout.beginLayout();
    layout.createLine();
    layout.endLayout();
    bool colored = false;
    const QList<QGlyphRun> runs = layout.glyphRuns();
    for (const QGlyphRun& run : runs) {
        const QRawFont raw = run.rawFont();
        colored = colored || !raw.fontTable("CBLC").isEmpty() || !raw.fontTable("COLR").isEmpty();
    }
    return *known.insert(symbol, !colored);
}

// A glyph in the text colour vanishes on a panel of that colour, and panels are
// dark or light whatever the app's palette says: a halo of the opposite colour
// keeps it legible on both. Colour emoji stand out on either and stay as they are.
void drawSymbol(QPainter& p, const QRect& box, const QString& symbol)
{
    const QColor ink = QApplication::palette().color(QPalette::WindowText);
    if (followsPen(p.font(), symbol)) {
        p.setPen(ink.lightness() < 128 ? QColor(Qt::white) : QColor(Qt::black));
        constexpr int halo = 3;
        for (int dx = -halo; dx <= halo; dx += halo)
            for (int dy = -halo; dy <= halo; dy += halo)
                if (dx != 0 || dy != 0)
                    p.drawText(box.translated(dx, dy), Qt::AlignCenter, symbol);
    }
    p.setPen(ink);
    p.drawText(box, Qt::AlignCenter, symbol);
}

// The emoji alone, or with the running countdown's minutes drawn under it so the
// tray shows progress even where tooltips are hard to reach.
QIcon renderIcon(const QString& symbol, const QString& countdown)
{
    constexpr int side = 64;
    QPixmap pm(side, side);
    pm.fill(Qt::transparent);
    QPainter p(&pm);
    p.setRenderHint(QPainter::Antialiasing);
    p.setRenderHint(QPainter::TextAntialiasing);
    QFont emoji = QApplication::font();
    emoji.setPixelSize(countdown.isEmpty() ? 48 : 30);
    p.setFont(emoji);
    const QRect top = countdown.isEmpty() ? pm.rect() : QRect(0, 0, side, 34);
    drawSymbol(p, top, symbol);
    if (!countdown.isEmpty()) {
        const QRect band(0, 34, side, 30);
        p.setPen(Qt::NoPen);
        p.setBrush(QColor(20, 20, 20, 220));
        p.drawRoundedRect(band, 6, 6);
        QFont digits = QApplication::font();
        digits.setPixelSize(countdown.size() > 2 ? 24 : 28);
        digits.setBold(true);
        p.setFont(digits);
        p.setPen(Qt::white);
        p.drawText(band, Qt::AlignCenter, countdown);
    }
    return QIcon(pm);
}

} // namespace

StatusItemHost::StatusItemHost(const QString& widgetId, ContentFactory content,
                               const PomodoroService& timer, QObject* parent)
    : QObject(parent)
    , m_widgetId(widgetId)
    , m_timer(timer)
    , m_content(std::move(content))
{
    const WidgetMeta* meta = WidgetRegistry::find(widgetId);
    const QString name = meta ? meta->name : widgetId;

    m_menu = new QMenu;
    QAction* show = m_menu->addAction(QStringLiteral("Show ") + name);
    QAction* history = m_menu->addAction(QStringLiteral("History…"));
    connect(history, &QAction::triggered, this, &StatusItemHost::historyRequested);
    m_menu->addSeparator();
    QAction* open = m_menu->addAction(QStringLiteral("Open Tidewell"));
    QAction* quit = m_menu->addAction(QStringLiteral("Quit Tidewell"));
    connect(show, &QAction::triggered, this, [this] { showPopover(); });
    connect(open, &QAction::triggered, this, &StatusItemHost::openHubRequested);
    connect(quit, &QAction::triggered, this, &StatusItemHost::quitRequested);
    // An id and title of its own per widget, so trays can tell the three apart.
    m_tray = new TrayItem(u"tidewell-" + widgetId, u"Tidewell " + name, m_menu, this);
    connect(m_tray, &TrayItem::activated, this, [this](const QPoint& at) { togglePopover(at); });
    setTitle(WidgetRegistry::statusTitle(widgetId));
    m_tray->show();

    if (widgetId == u"pomodoro") {
        // The title follows the timer's changes; it is redrawn only when its text
        // changes (once a second while running), and nothing runs while stopped.
        const PomodoroService& timer = m_timer;
        connect(&timer, &PomodoroService::remainingMsChanged, this,
                &StatusItemHost::refreshPomodoroTitle);
        connect(&timer, &PomodoroService::isActiveChanged, this,
                &StatusItemHost::refreshPomodoroTitle);
        connect(&timer, &PomodoroService::phaseChanged, this,
                &StatusItemHost::refreshPomodoroTitle);
        refreshPomodoroTitle();
    }
}

StatusItemHost::~StatusItemHost()
{
    delete m_popup;
    delete m_menu;
}

QString StatusItemHost::pomodoroTitle(PomodoroService::Phase phase, bool isActive,
                                      qint64 remainingMs)
{
    const QString symbol = Countdown::symbol(phase);
    return isActive ? symbol + u' ' + Countdown::text(remainingMs) : symbol;
}

void StatusItemHost::refreshPomodoroTitle()
{
    const PomodoroService& timer = m_timer;
    setTitle(pomodoroTitle(timer.currentPhase(), timer.isActive(), timer.remainingMs()));
}

void StatusItemHost::setTitle(const QString& title)
{
    if (title == m_title)
        return;
    m_title = title;
    const qsizetype space = title.indexOf(u' ');
    const QString symbol = space < 0 ? title : title.left(space);
    QString countdown;
    if (space >= 0) {
        const QString time = title.mid(space + 1);
        // Minutes while there are any, then the seconds.
        const QString minutes = time.section(u':', 0, 0);
        countdown = minutes == u"00" ? time.section(u':', 1, 1) : QString::number(minutes.toInt());
    }
    // The theme's symbolic check mark, where it has one, is recoloured by the tray
    // to suit its panel.
    const QIcon themed =
        countdown.isEmpty() && symbol == u"✓"
            ? SymbolIcon::fromDesktopTheme(QStringLiteral("object-select-symbolic"))
            : QIcon();
    m_tray->setIcon(themed.isNull() ? renderIcon(symbol, countdown) : themed,
                    themed.isNull() ? QString() : QStringLiteral("object-select-symbolic"));
    m_tray->setToolTip(title);
}

void StatusItemHost::ensurePopup()
{
    if (m_popup)
        return;
    const WidgetMeta* meta = WidgetRegistry::find(m_widgetId);
    m_popup = new TrayPopup(meta ? meta->name : m_widgetId);
    m_popup->setContent(m_content());
}

bool StatusItemHost::isPopupShown() const
{
    return m_popup && m_popup->isVisible();
}

void StatusItemHost::togglePopover(const QPoint& at)
{
    if (isPopupShown()) {
        m_popup->hide();
        return;
    }
    if (m_popup && m_popup->justClosed())
        return; // this click already closed it by taking the focus away
    showPopover(at);
}

void StatusItemHost::showPopover(const QPoint& at)
{
    ensurePopup();
    const QRect icon = m_tray->geometry();
    m_popup->showNear(icon.isValid() ? icon : at.isNull() ? QRect() : QRect(at, QSize(1, 1)));
}

void StatusItemHost::tearDown()
{
    disconnect(&m_timer, nullptr, this, nullptr);
    if (m_popup)
        m_popup->hide();
    m_tray->hide();
}

TrayPopup* StatusItemHost::popup() const
{
    return m_popup;
}
