#include "PomodoroWidgetView.h"

#include "Countdown.h"
#include "PomodoroService.h"
#include "PomodoroSettingsSheet.h"
#include "SymbolIcon.h"
#include "Theme.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QShortcut>
#include <QToolButton>
#include <QVBoxLayout>

namespace {
// The row of dots showing focus phases done towards the long break.
class Pips final : public QWidget
{
public:
    using QWidget::QWidget;
    qint64 total = 4;
    qint64 filled = 0;

    QSize sizeHint() const override { return {int(qMax<qint64>(total, 1) * 14 - 6), 8}; }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(Qt::NoPen);
        const qreal x0 = (width() - sizeHint().width()) / 2.0;
        for (qint64 i = 0; i < total; ++i) {
            p.setBrush(i < filled ? Theme::accent() : Theme::secondary(0.25));
            p.drawEllipse(QRectF(x0 + i * 14, 0, 8, 8));
        }
    }
};

QToolButton* controlButton(const QString& symbol, const QString& name, int side, QWidget* parent)
{
    auto* b = new QToolButton(parent);
    b->setIcon(SymbolIcon::icon(symbol));
    b->setIconSize(QSize(side / 2, side / 2));
    b->setFixedSize(side, side);
    b->setToolTip(name);
    b->setAccessibleName(name);
    return b;
}
} // namespace

PomodoroWidgetView::PomodoroWidgetView(PomodoroService& timer, bool viewOnly, QWidget* parent)
    : QWidget(parent)
    , m_timer(timer)
    , m_viewOnly(viewOnly)
{
    setObjectName(QStringLiteral("pomodoroWidget"));
    auto* column = new QVBoxLayout(this);
    if (viewOnly) {
        column->setContentsMargins(14, 10, 14, 10);
        column->addStretch();
        column->addLayout(buildLabels());
        column->addStretch();
    } else {
        setMinimumSize(260, 280);
        column->setContentsMargins(18, 18, 18, 18);
        column->setSpacing(14);
        m_pips = new Pips(this);
        m_pips->setObjectName(QStringLiteral("phasePips"));
        m_pips->setMinimumHeight(8);
        column->addWidget(m_pips);
        column->addLayout(buildLabels());
        column->addLayout(buildControls());
        column->addStretch();
        column->addLayout(buildFooter());
        setFocusPolicy(Qt::StrongFocus);
    }
    followTimer();
    refresh();
}

QLayout* PomodoroWidgetView::buildLabels()
{
    auto* labels = new QVBoxLayout;
    labels->setSpacing(4);
    m_phase = new QLabel(this);
    m_phase->setObjectName(QStringLiteral("phaseLabel"));
    m_phase->setAlignment(Qt::AlignCenter);
    m_phase->setFont(
        Theme::font(m_viewOnly ? Theme::Font::Caption2 : Theme::Font::Caption, QFont::Medium));
    Theme::makeSecondary(m_phase);
    m_time = new QLabel(this);
    m_time->setObjectName(QStringLiteral("timeLabel"));
    m_time->setAlignment(Qt::AlignCenter);
    m_time->setFont(Theme::monospacedDigits(m_viewOnly ? 30 : 40));
    labels->addWidget(m_phase);
    labels->addWidget(m_time);
    return labels;
}

QLayout* PomodoroWidgetView::buildControls()
{
    auto* controls = new QHBoxLayout;
    controls->setSpacing(12);
    auto* reset =
        controlButton(QStringLiteral("arrow.counterclockwise"), QStringLiteral("Reset"), 36, this);
    reset->setObjectName(QStringLiteral("resetButton"));
    m_startPause = controlButton(QStringLiteral("play.fill"), QStringLiteral("Start"), 44, this);
    m_startPause->setObjectName(QStringLiteral("startPauseButton"));
    auto* skip = controlButton(QStringLiteral("forward.fill"), QStringLiteral("Skip"), 36, this);
    skip->setObjectName(QStringLiteral("skipButton"));
    controls->addStretch();
    controls->addWidget(reset);
    controls->addWidget(m_startPause);
    controls->addWidget(skip);
    controls->addStretch();
    connect(reset, &QToolButton::clicked, &m_timer, &PomodoroService::reset);
    connect(skip, &QToolButton::clicked, &m_timer, &PomodoroService::skip);
    connect(m_startPause, &QToolButton::clicked, &m_timer, &PomodoroService::toggle);
    auto* space = new QShortcut(QKeySequence(Qt::Key_Space), this);
    space->setContext(Qt::WidgetWithChildrenShortcut);
    connect(space, &QShortcut::activated, m_startPause, &QToolButton::click);
    return controls;
}

QLayout* PomodoroWidgetView::buildFooter()
{
    auto* footer = new QHBoxLayout;
    m_footer = new QLabel(this);
    m_footer->setObjectName(QStringLiteral("todayLabel"));
    m_footer->setFont(Theme::font(Theme::Font::Caption));
    Theme::makeSecondary(m_footer);
    auto* gear = controlButton(QStringLiteral("gearshape"), QStringLiteral("Settings"), 32, this);
    gear->setObjectName(QStringLiteral("settingsButton"));
    gear->setAutoRaise(true);
    footer->addWidget(m_footer);
    footer->addStretch();
    footer->addWidget(gear);
    connect(gear, &QToolButton::clicked, this, &PomodoroWidgetView::openSettings);
    return footer;
}

void PomodoroWidgetView::followTimer()
{
    // The countdown changes five times a second, what it shows once: only the time
    // is looked at then, so a running timer repaints once a second.
    connect(&m_timer, &PomodoroService::remainingMsChanged, this, [this] {
        const PomodoroService& t = m_timer;
        const QString shown = timeText(t.remainingMs());
        if (shown == m_time->text())
            return;
        m_time->setText(shown);
        m_time->setAccessibleName(t.phaseLabel() + u' ' + shown);
    });
    for (auto signal :
         {&PomodoroService::isActiveChanged, &PomodoroService::phaseChanged,
          &PomodoroService::pomodoroCountChanged, &PomodoroService::pomodoroTotalCountChanged,
          &PomodoroService::shortBreakCountChanged, &PomodoroService::longBreakCountChanged,
          &PomodoroService::pomodorosForLongBreakChanged})
        connect(&m_timer, signal, this, &PomodoroWidgetView::refresh);
}

QString PomodoroWidgetView::timeText(qint64 remainingMs)
{
    return Countdown::text(remainingMs);
}

void PomodoroWidgetView::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    m_timer.bootstrap();
    refresh();
}

void PomodoroWidgetView::refresh()
{
    const PomodoroService& timer = m_timer;
    m_phase->setText(timer.phaseLabel().toUpper());
    m_time->setText(timeText(timer.remainingMs()));
    m_time->setAccessibleName(timer.phaseLabel() + u' ' + m_time->text());
    if (m_viewOnly)
        return;
    auto* pips = static_cast<Pips*>(m_pips);
    pips->total = timer.pomodorosForLongBreak();
    pips->filled = timer.pomodoroCount();
    pips->updateGeometry();
    pips->update();
    const bool active = timer.isActive();
    m_startPause->setIcon(
        SymbolIcon::icon(active ? QStringLiteral("pause.fill") : QStringLiteral("play.fill")));
    m_startPause->setToolTip(active ? QStringLiteral("Pause") : QStringLiteral("Start"));
    m_startPause->setAccessibleName(m_startPause->toolTip());
    m_footer->setText(QStringLiteral("Today: %1 🍅 · %2 ☕ · %3 🛌")
                          .arg(timer.pomodoroTotalCount())
                          .arg(timer.shortBreakCount())
                          .arg(timer.longBreakCount()));
}

PomodoroSettingsSheet* PomodoroWidgetView::settingsSheet() const
{
    return findChild<PomodoroSettingsSheet*>();
}

void PomodoroWidgetView::openSettings()
{
    if (settingsSheet())
        return;
    auto* sheet = new PomodoroSettingsSheet(m_timer, this);
    sheet->open();
}
