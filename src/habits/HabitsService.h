#pragma once

#include "DebouncedPush.h"

#include <QObject>
#include <QString>

#include <functional>

class AudioService;
class Clock;
class DailyResetService;
class DataStore;
class Habit;
class ModelContext;

// Every change to the daily habits goes through here: counting, resets, edits,
// one history record per habit and day, and the midnight rollover. User changes
// are saved and pushed once per burst (500 ms after the last).
class HabitsService final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool bootstrapped READ isBootstrapped NOTIFY bootstrappedChanged)

public:
    static constexpr int SaveDelayMs = 500;

    // `push` runs after each debounced save (the sync engine's habits push in the app).
    HabitsService(DataStore& store, const Clock& clock, AudioService& audio,
                  DailyResetService& dayReset, DebouncedPush::Push push, QObject* parent = nullptr);

    Habit* createHabit(const QString& icon, const QString& name, const QString& colorHex,
                       qint64 maxValue, ModelContext& context);
    void increment(Habit* habit, ModelContext& context);
    void reset(Habit* habit, ModelContext& context);
    // The row's one action: counts up to the target, and at the target starts over.
    void countOrReset(Habit* habit, ModelContext& context);
    void updateHabit(Habit* habit, const QString& icon, const QString& name,
                     const QString& colorHex, qint64 maxValue, ModelContext& context);
    void deleteHabit(Habit* habit, ModelContext& context);
    // Closes finished counting days into history and restarts their counters;
    // `force` closes every habit's day (the midnight rollover).
    void checkDayReset(ModelContext& context, bool force);
    // The habits in the widget's order.
    static QList<Habit*> habitsInOrder(ModelContext& context);
    // The first habit in that order with exactly this name, or null.
    static Habit* findByName(const QString& name, ModelContext& context);
    // First call only: the start-of-day check and the midnight handler.
    void bootstrap();
    bool isBootstrapped() const { return m_bootstrapped; }

signals:
    void bootstrappedChanged();

private:
    void archiveToday(Habit* habit, ModelContext& context);
    void save(ModelContext& context);

    DataStore& m_store;
    const Clock& m_clock;
    AudioService& m_audio;
    DailyResetService& m_dayReset;
    DebouncedPush* m_saver;
    bool m_bootstrapped = false;
};
