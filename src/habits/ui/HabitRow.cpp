#include "HabitRow.h"

#include "ElidedLabel.h"
#include "EmojiCoding.h"
#include "Habit.h"
#include "HabitColor.h"
#include "HabitsService.h"
#include "ModelContext.h"
#include "SymbolIcon.h"
#include "Theme.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>

namespace {
// A row is a group named after its habit, so assistive tools can find the
// buttons of one particular habit.
QAccessibleInterface* rowAccessible(const QString& className, QObject* object)
{
    if (className == QLatin1String("HabitRow") && object && object->isWidgetType())
        return new QAccessibleWidget(static_cast<QWidget*>(object), QAccessible::Grouping);
    return nullptr;
}
} // namespace

HabitRow::HabitRow(HabitsService& habits, ModelContext& context, Habit* habit, bool viewOnly,
                   QWidget* parent)
    : QWidget(parent)
    , m_habits(habits)
    , m_context(context)
    , m_habit(habit)
    , m_viewOnly(viewOnly)
{
    static const bool factoryInstalled = [] {
        QAccessible::installFactory(rowAccessible);
        return true;
    }();
    Q_UNUSED(factoryInstalled);
    setObjectName(QStringLiteral("habitRow"));
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(8, 6, 8, 6);
    row->setSpacing(10);

    m_icon = new QLabel(this);
    m_icon->setObjectName(QStringLiteral("habitIcon"));
    m_icon->setFont(Theme::font(Theme::Font::Title3));
    m_icon->setTextFormat(Qt::PlainText);
    row->addWidget(m_icon);

    auto* column = new QVBoxLayout;
    column->setSpacing(4);
    auto* line = new QHBoxLayout;
    m_name = new ElidedLabel(this);
    m_name->setObjectName(QStringLiteral("habitName"));
    m_name->setFont(Theme::font(Theme::Font::Callout));
    m_count = new QLabel(this);
    m_count->setObjectName(QStringLiteral("habitCount"));
    m_count->setFont(
        Theme::monospacedDigits(Theme::font(Theme::Font::Caption).pointSize(), QFont::Normal));
    Theme::makeSecondary(m_count);
    line->addWidget(m_name, 1);
    line->addWidget(m_count);
    column->addLayout(line);
    // The bar is painted by the row over this strip.
    m_bar = new QWidget(this);
    m_bar->setObjectName(QStringLiteral("habitProgress"));
    m_bar->setFixedHeight(6);
    m_bar->setAttribute(Qt::WA_TransparentForMouseEvents);
    column->addWidget(m_bar);
    row->addLayout(column, 1);

    if (!m_viewOnly) {
        m_action = new QToolButton(this);
        m_action->setObjectName(QStringLiteral("habitAction"));
        m_action->setAutoRaise(true);
        m_action->setFixedWidth(28);
        m_action->setIconSize(QSize(18, 18));
        connect(m_action, &QToolButton::clicked, this, [this] {
            if (!m_habit)
                return;
            m_habits.countOrReset(m_habit, m_context);
        });
        row->addWidget(m_action);

        m_edit = new QToolButton(this);
        m_edit->setObjectName(QStringLiteral("habitEdit"));
        m_edit->setAutoRaise(true);
        m_edit->setIconSize(QSize(11, 11));
        m_edit->setIcon(SymbolIcon::icon(QStringLiteral("gearshape"), Theme::secondary(0.6)));
        connect(m_edit, &QToolButton::clicked, this, [this] {
            if (m_habit)
                emit editRequested(m_habit);
        });
        row->addWidget(m_edit);
    }

    for (auto signal : {&Habit::iconChanged, &Habit::nameChanged, &Habit::colorHexChanged,
                        &Habit::maxValueChanged, &Habit::currentValueChanged})
        connect(habit, signal, this, &HabitRow::refresh);
    refresh();
}

double HabitRow::progress(qint64 current, qint64 max)
{
    if (max < 1)
        return 0.0;
    return std::clamp(double(current) / double(max), 0.0, 1.0);
}

QColor HabitRow::color() const
{
    return m_habit ? HabitColor::orFallback(m_habit->colorHex(), Theme::accent()) : Theme::accent();
}

void HabitRow::refresh()
{
    if (!m_habit)
        return;
    const QString icon = EmojiCoding::decode(m_habit->icon());
    m_icon->setText(icon);
    m_name->setFullText(m_habit->name());
    m_count->setText(QStringLiteral("%1/%2").arg(m_habit->currentValue()).arg(m_habit->maxValue()));
    setAccessibleName(m_habit->name());
    m_count->setAccessibleName(m_count->text());
    if (m_action) {
        const bool done = m_habit->currentValue() >= m_habit->maxValue();
        const QString tip = done ? QStringLiteral("Reset") : QStringLiteral("Add one");
        m_action->setIcon(
            SymbolIcon::icon(done ? QStringLiteral("arrow.counterclockwise.circle.fill")
                                  : QStringLiteral("plus.circle.fill"),
                             color()));
        m_action->setToolTip(tip);
        m_action->setAccessibleName(tip); // the row, a group named after the habit, tells which
    }
    if (m_edit) {
        m_edit->setToolTip(QStringLiteral("Edit habit"));
        m_edit->setAccessibleName(QStringLiteral("Edit habit"));
    }
    update();
}

void HabitRow::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(Theme::secondary(0.06));
    p.drawRoundedRect(rect(), 8, 8);
    const QRectF track = m_bar->geometry();
    p.setBrush(Theme::secondary(0.15));
    p.drawRoundedRect(track, 3, 3);
    if (!m_habit)
        return;
    const double fraction = progress(m_habit->currentValue(), m_habit->maxValue());
    if (fraction > 0) {
        QRectF bar = track;
        bar.setWidth(track.width() * fraction);
        p.setBrush(color());
        p.drawRoundedRect(bar, 3, 3);
    }
}
