#pragma once

#include "Record.h"

#include <QUuid>

class Habit;

// One day's result of one habit, under that day's key ("yyyy-MM-dd").
class HabitHistory final : public Record
{
    Q_OBJECT
    Q_PROPERTY(QUuid id READ id WRITE setId NOTIFY idChanged)
    Q_PROPERTY(QString date READ date WRITE setDate NOTIFY dateChanged)
    Q_PROPERTY(qint64 value READ value WRITE setValue NOTIFY valueChanged)
    Q_PROPERTY(qint64 maxValue READ maxValue WRITE setMaxValue NOTIFY maxValueChanged)
    Q_PROPERTY(bool completed READ completed WRITE setCompleted NOTIFY completedChanged)
    // The owner, by id: the relationship as the store keeps it.
    Q_PROPERTY(QUuid habitId READ habitId WRITE setHabitId NOTIFY habitChanged)

public:
    static constexpr RecordKind Kind = RecordKind::HabitHistory;

    // A new record of `habit`'s day `date`; `completed` follows value >= maxValue.
    HabitHistory(const QString& date, qint64 value, qint64 maxValue, Habit* habit);
    HabitHistory() = default;

    RecordKind kind() const override { return Kind; }
    QString key() const override { return m_id.toString(QUuid::WithoutBraces); }

    QUuid id() const { return m_id; }
    QString date() const { return m_date; }
    qint64 value() const { return m_value; }
    qint64 maxValue() const { return m_maxValue; }
    bool completed() const { return m_completed; }
    QUuid habitId() const { return m_habitId; }
    // The owning habit, looked up in the context; null when there is none.
    Habit* habit() const;

    void setId(const QUuid& v) { assign(m_id, v, &HabitHistory::idChanged); }
    void setDate(const QString& v) { assign(m_date, v, &HabitHistory::dateChanged); }
    void setValue(qint64 v) { assign(m_value, v, &HabitHistory::valueChanged); }
    void setMaxValue(qint64 v) { assign(m_maxValue, v, &HabitHistory::maxValueChanged); }
    void setCompleted(bool v) { assign(m_completed, v, &HabitHistory::completedChanged); }
    void setHabitId(const QUuid& v) { assign(m_habitId, v, &HabitHistory::habitChanged); }
    void setHabit(Habit* habit);

signals:
    void idChanged();
    void dateChanged();
    void valueChanged();
    void maxValueChanged();
    void completedChanged();
    void habitChanged();

private:
    QUuid m_id;
    QString m_date;
    qint64 m_value = 0;
    qint64 m_maxValue = 0;
    bool m_completed = false;
    QUuid m_habitId;
};
