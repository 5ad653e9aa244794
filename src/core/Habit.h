#pragma once

#include "Record.h"

#include <QDateTime>
#include <QUuid>

class HabitHistory;

// One tracked daily habit: a counter with a daily target.
class Habit final : public Record
{
    Q_OBJECT
    Q_PROPERTY(QUuid id READ id WRITE setId NOTIFY idChanged)
    Q_PROPERTY(QString icon READ icon WRITE setIcon NOTIFY iconChanged)
    Q_PROPERTY(QString name READ name WRITE setName NOTIFY nameChanged)
    Q_PROPERTY(QString colorHex READ colorHex WRITE setColorHex NOTIFY colorHexChanged)
    Q_PROPERTY(qint64 maxValue READ maxValue WRITE setMaxValue NOTIFY maxValueChanged)
    Q_PROPERTY(
        qint64 currentValue READ currentValue WRITE setCurrentValue NOTIFY currentValueChanged)
    Q_PROPERTY(QDateTime firstTrackerDate READ firstTrackerDate WRITE setFirstTrackerDate NOTIFY
                   firstTrackerDateChanged)
    Q_PROPERTY(qint64 order READ order WRITE setOrder NOTIFY orderChanged)

public:
    static constexpr RecordKind Kind = RecordKind::Habit;

    // A new habit: fresh id, counter 0, tracking from `firstTrackerDate`.
    Habit(const QString& icon, const QString& name, const QString& colorHex, qint64 maxValue,
          qint64 order, const QDateTime& firstTrackerDate = QDateTime::currentDateTime());
    Habit() = default;

    RecordKind kind() const override { return Kind; }
    QString key() const override { return m_id.toString(QUuid::WithoutBraces); }

    QUuid id() const { return m_id; }
    QString icon() const { return m_icon; }
    QString name() const { return m_name; }
    QString colorHex() const { return m_colorHex; }
    qint64 maxValue() const { return m_maxValue; }
    qint64 currentValue() const { return m_currentValue; }
    QDateTime firstTrackerDate() const { return m_firstTrackerDate; }
    qint64 order() const { return m_order; }

    void setId(const QUuid& v) { assign(m_id, v, &Habit::idChanged); }
    void setIcon(const QString& v) { assign(m_icon, v, &Habit::iconChanged); }
    void setName(const QString& v) { assign(m_name, v, &Habit::nameChanged); }
    void setColorHex(const QString& v) { assign(m_colorHex, v, &Habit::colorHexChanged); }
    void setMaxValue(qint64 v) { assign(m_maxValue, v, &Habit::maxValueChanged); }
    void setCurrentValue(qint64 v) { assign(m_currentValue, v, &Habit::currentValueChanged); }
    void setFirstTrackerDate(const QDateTime& v)
    {
        assign(m_firstTrackerDate, v, &Habit::firstTrackerDateChanged);
    }
    void setOrder(qint64 v) { assign(m_order, v, &Habit::orderChanged); }

    // This habit's history records, fetched from its context (empty when not inserted).
    QList<HabitHistory*> history() const;

signals:
    void idChanged();
    void iconChanged();
    void nameChanged();
    void colorHexChanged();
    void maxValueChanged();
    void currentValueChanged();
    void firstTrackerDateChanged();
    void orderChanged();

private:
    QUuid m_id;
    QString m_icon;
    QString m_name;
    QString m_colorHex;
    qint64 m_maxValue = 0;
    qint64 m_currentValue = 0;
    QDateTime m_firstTrackerDate;
    qint64 m_order = 0;
};
