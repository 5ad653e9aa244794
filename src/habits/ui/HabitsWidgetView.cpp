#include "HabitsWidgetView.h"

#include "EditorWindowHost.h"
#include "Habit.h"
#include "HabitEditorWindowContent.h"
#include "HabitRow.h"
#include "HabitsService.h"
#include "ModelContext.h"
#include "SymbolIcon.h"
#include "Theme.h"

#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <QToolButton>
#include <QVBoxLayout>

HabitsWidgetView::HabitsWidgetView(HabitsService& habits, ModelContext& context, bool viewOnly,
                                   QWidget* parent)
    : QWidget(parent)
    , m_habits(habits)
    , m_context(context)
    , m_viewOnly(viewOnly)
{
    setObjectName(QStringLiteral("habitsWidget"));
    setAccessibleName(QStringLiteral("Daily habits"));
    const int padding = viewOnly ? 8 : 12;
    setMinimumSize(viewOnly ? QSize(240, 180) : QSize(280, 320));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(padding, padding, padding, padding);
    column->setSpacing(8);

    auto* header = new QHBoxLayout;
    auto* title = new QLabel(QStringLiteral("Daily habits"), this);
    title->setObjectName(QStringLiteral("habitsTitle"));
    title->setFont(Theme::font(Theme::Font::Subheadline, QFont::DemiBold));
    header->addWidget(title);
    header->addStretch();
    if (!viewOnly) {
        auto* add = new QToolButton(this);
        add->setObjectName(QStringLiteral("newHabitButton"));
        add->setAutoRaise(true);
        add->setIcon(SymbolIcon::icon(QStringLiteral("plus.circle.fill"), Theme::accent()));
        add->setToolTip(QStringLiteral("New habit"));
        add->setAccessibleName(QStringLiteral("New habit"));
        connect(add, &QToolButton::clicked, this, [this] { openEditor(nullptr); });
        header->addWidget(add);
    }
    column->addLayout(header);

    auto* divider = new QFrame(this);
    divider->setFrameShape(QFrame::HLine);
    divider->setFrameShadow(QFrame::Plain);
    Theme::tint(divider, divider->palette().color(QPalette::Mid));
    column->addWidget(divider);

    auto* scroll = new QScrollArea(this);
    scroll->setObjectName(QStringLiteral("habitsScroll"));
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    auto* content = new QWidget(scroll);
    m_list = new QVBoxLayout(content);
    m_list->setContentsMargins(0, 4, 0, 4);
    m_list->setSpacing(6);

    m_empty = new QWidget(content);
    m_empty->setObjectName(QStringLiteral("habitsEmpty"));
    m_empty->setMinimumHeight(160);
    auto* empty = new QVBoxLayout(m_empty);
    empty->setSpacing(8);
    empty->addStretch();
    auto* drop = new QLabel(m_empty);
    drop->setPixmap(SymbolIcon::icon(QStringLiteral("drop.circle"), Theme::secondary()).pixmap(28));
    drop->setAlignment(Qt::AlignCenter);
    auto* none = new QLabel(QStringLiteral("No habits yet"), m_empty);
    none->setObjectName(QStringLiteral("habitsEmptyLabel"));
    none->setFont(Theme::font(Theme::Font::Callout));
    none->setAlignment(Qt::AlignCenter);
    Theme::makeSecondary(none);
    auto* first = new QPushButton(QStringLiteral("Add your first habit"), m_empty);
    first->setObjectName(QStringLiteral("addFirstHabitButton"));
    first->setAccessibleName(QStringLiteral("Add your first habit"));
    connect(first, &QPushButton::clicked, this, [this] { openEditor(nullptr); });
    empty->addWidget(drop);
    empty->addWidget(none);
    empty->addWidget(first, 0, Qt::AlignHCenter);
    empty->addStretch();
    m_list->addWidget(m_empty);
    m_list->addStretch();
    scroll->setWidget(content);
    column->addWidget(scroll, 1);

    connect(&m_context, &ModelContext::changed, this, [this](RecordKind kind) {
        if (kind == RecordKind::Habit)
            reload();
    });
    reload();
}

bool HabitsWidgetView::isShowingEmptyState() const
{
    return !m_empty->isHidden();
}

void HabitsWidgetView::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    m_habits.bootstrap();
}

void HabitsWidgetView::reload()
{
    const QList<Habit*> habits = HabitsService::habitsInOrder(m_context);
    QList<QString> keys;
    for (const Habit* h : habits)
        keys << h->key();
    // Same habits in the same order: the rows follow their habits by themselves.
    if (keys == m_shownKeys && m_rows.size() == habits.size())
        return;
    m_shownKeys = keys;
    qDeleteAll(m_rows);
    m_rows.clear();
    for (Habit* habit : habits) {
        auto* row = new HabitRow(m_habits, m_context, habit, m_viewOnly, m_empty->parentWidget());
        connect(row, &HabitRow::editRequested, this, [this](Habit* h) { openEditor(h); });
        connect(habit, &Habit::orderChanged, this, &HabitsWidgetView::reload, Qt::UniqueConnection);
        m_list->insertWidget(m_list->count() - 1, row);
        m_rows << row;
    }
    m_empty->setHidden(!habits.isEmpty());
}

void HabitsWidgetView::openEditor(Habit* habit)
{
    EditorWindowHost::open(habit ? QStringLiteral("Edit habit") : QStringLiteral("New habit"),
                           QSize(480, 540),
                           new HabitEditorWindowContent(m_habits, m_context, habit), this);
}
