#include "HabitsService.h"

#include "AudioService.h"
#include "Clock.h"
#include "DailyResetService.h"
#include "DataStore.h"
#include "DebouncedPush.h"
#include "Habit.h"
#include "HabitHistory.h"
#include "ModelContext.h"

#include <QPointer>

#include <algorithm>

namespace {
HabitHistory* recordFor(const Habit* habit, const QString& day)
{
    const QList<HabitHistory*> history = habit->history();
    const auto it = std::find_if(history.begin(), history.end(),
                                 [&](const HabitHistory* h) { return h->date() == day; });
    return it == history.end() ? nullptr : *it;
}
} // namespace

HabitsService::HabitsService(DataStore& store, const Clock& clock, AudioService& audio,
                             DailyResetService& dayReset, DebouncedPush::Push push, QObject* parent)
    : QObject(parent)
    , m_store(store)
    , m_clock(clock)
    , m_audio(audio)
    , m_dayReset(dayReset)
    , m_saver(new DebouncedPush(QStringLiteral("habits"), std::chrono::milliseconds(SaveDelayMs),
                                std::move(push), this))
{}

Habit* HabitsService::createHabit(const QString& icon, const QString& name, const QString& colorHex,
                                  qint64 maxValue, ModelContext& context)
{
    qint64 next = 0;
    for (const Habit* h : habitsInOrder(context))
        next = std::max(next, h->order() + 1);
    auto* habit = new Habit(icon, name, colorHex, std::max<qint64>(1, maxValue), next);
    habit->setFirstTrackerDate(m_clock.now());
    context.insert(habit);
    save(context);
    return habit;
}

void HabitsService::increment(Habit* habit, ModelContext& context)
{
    if (!habit || habit->currentValue() >= habit->maxValue())
        return;
    if (habit->currentValue() == 0)
        habit->setFirstTrackerDate(m_clock.now());
    habit->setCurrentValue(habit->currentValue() + 1);
    m_audio.play(AudioService::Sound::WaterTrackCount);
    archiveToday(habit, context);
    save(context);
}

QList<Habit*> HabitsService::habitsInOrder(ModelContext& context)
{
    return context.fetch<Habit>(FetchRequest::sortedBy(QStringLiteral("order")));
}

Habit* HabitsService::findByName(const QString& name, ModelContext& context)
{
    for (Habit* habit : habitsInOrder(context)) {
        if (habit->name() == name)
            return habit;
    }
    return nullptr;
}

void HabitsService::countOrReset(Habit* habit, ModelContext& context)
{
    if (!habit)
        return;
    if (habit->currentValue() >= habit->maxValue())
        reset(habit, context);
    else
        increment(habit, context);
}

void HabitsService::reset(Habit* habit, ModelContext& context)
{
    if (!habit)
        return;
    archiveToday(habit, context);
    habit->setCurrentValue(0);
    habit->setFirstTrackerDate(m_clock.now());
    m_audio.play(AudioService::Sound::WaterTrackReset);
    save(context);
}

void HabitsService::updateHabit(Habit* habit, const QString& icon, const QString& name,
                                const QString& colorHex, qint64 maxValue, ModelContext& context)
{
    if (!habit)
        return;
    habit->setIcon(icon);
    habit->setName(name);
    habit->setColorHex(colorHex);
    habit->setMaxValue(std::max<qint64>(1, maxValue));
    if (habit->maxValue() < habit->currentValue())
        habit->setCurrentValue(habit->maxValue());
    save(context);
}

void HabitsService::deleteHabit(Habit* habit, ModelContext& context)
{
    if (!habit)
        return;
    context.remove(habit);
    save(context);
}

void HabitsService::archiveToday(Habit* habit, ModelContext& context)
{
    const QString today = DailyResetService::dateString(m_clock.now());
    const bool done = habit->currentValue() >= habit->maxValue();
    if (HabitHistory* record = recordFor(habit, today)) {
        record->setValue(habit->currentValue());
        record->setMaxValue(habit->maxValue());
        record->setCompleted(done);
        return;
    }
    context.insert(new HabitHistory(today, habit->currentValue(), habit->maxValue(), habit));
}

void HabitsService::checkDayReset(ModelContext& context, bool force)
{
    const QDateTime now = m_clock.now();
    bool changed = false;
    for (Habit* habit : habitsInOrder(context)) {
        if (!force && habit->firstTrackerDate().toLocalTime().date() == now.toLocalTime().date())
            continue;
        // The day being closed is the habit's own counting day, not today.
        const QString closedDay = DailyResetService::dateString(habit->firstTrackerDate());
        if (!recordFor(habit, closedDay)) {
            context.insert(
                new HabitHistory(closedDay, habit->currentValue(), habit->maxValue(), habit));
        }
        habit->setCurrentValue(0);
        habit->setFirstTrackerDate(now);
        changed = true;
    }
    if (changed)
        context.save();
}

void HabitsService::bootstrap()
{
    if (m_bootstrapped)
        return;
    m_bootstrapped = true;
    emit bootstrappedChanged();
    checkDayReset(m_store.mainContext(), false);
    m_dayReset.registerHandler([self = QPointer<HabitsService>(this)] {
        if (self)
            self->checkDayReset(self->m_store.mainContext(), true);
    });
}

void HabitsService::save(ModelContext& context)
{
    m_saver->request(context);
}
