#pragma once

#include "Record.h"

#include <QDateTime>
#include <QUuid>

// The single record of focus-timer settings and today's counters.
class PomodoroConfig final : public Record
{
    Q_OBJECT
    Q_PROPERTY(QUuid id READ id WRITE setId NOTIFY idChanged)
    Q_PROPERTY(qint64 pomodoroDuration READ pomodoroDuration WRITE setPomodoroDuration NOTIFY
                   pomodoroDurationChanged)
    Q_PROPERTY(qint64 shortBreakDuration READ shortBreakDuration WRITE setShortBreakDuration NOTIFY
                   shortBreakDurationChanged)
    Q_PROPERTY(qint64 longBreakDuration READ longBreakDuration WRITE setLongBreakDuration NOTIFY
                   longBreakDurationChanged)
    Q_PROPERTY(qint64 pomodorosForLongBreak READ pomodorosForLongBreak WRITE
                   setPomodorosForLongBreak NOTIFY pomodorosForLongBreakChanged)
    Q_PROPERTY(bool autoStart READ autoStart WRITE setAutoStart NOTIFY autoStartChanged)
    Q_PROPERTY(
        qint64 pomodoroCount READ pomodoroCount WRITE setPomodoroCount NOTIFY pomodoroCountChanged)
    Q_PROPERTY(qint64 pomodoroTotalCount READ pomodoroTotalCount WRITE setPomodoroTotalCount NOTIFY
                   pomodoroTotalCountChanged)
    Q_PROPERTY(qint64 shortBreakCount READ shortBreakCount WRITE setShortBreakCount NOTIFY
                   shortBreakCountChanged)
    Q_PROPERTY(qint64 longBreakCount READ longBreakCount WRITE setLongBreakCount NOTIFY
                   longBreakCountChanged)
    Q_PROPERTY(bool isBreak READ isBreak WRITE setIsBreak NOTIFY isBreakChanged)
    Q_PROPERTY(bool isShortBreak READ isShortBreak WRITE setIsShortBreak NOTIFY isShortBreakChanged)
    Q_PROPERTY(bool isLongBreak READ isLongBreak WRITE setIsLongBreak NOTIFY isLongBreakChanged)
    Q_PROPERTY(QDateTime firstPomodoroCountDate READ firstPomodoroCountDate WRITE
                   setFirstPomodoroCountDate NOTIFY firstPomodoroCountDateChanged)

public:
    static constexpr RecordKind Kind = RecordKind::PomodoroConfig;

    // A record with the defaults: 25/5/15 minutes, long break after 4, counters at 0,
    // counting from `countingFrom`.
    static PomodoroConfig* createDefault(const QDateTime& countingFrom);
    PomodoroConfig() = default;

    // The first config a fetch returns; when there is none, a new one is inserted
    // and saved (a failed save is ignored).
    static PomodoroConfig* singleton(ModelContext& context, const QDateTime& now);

    RecordKind kind() const override { return Kind; }
    QString key() const override { return m_id.toString(QUuid::WithoutBraces); }

    QUuid id() const { return m_id; }
    qint64 pomodoroDuration() const { return m_pomodoroDuration; }
    qint64 shortBreakDuration() const { return m_shortBreakDuration; }
    qint64 longBreakDuration() const { return m_longBreakDuration; }
    qint64 pomodorosForLongBreak() const { return m_pomodorosForLongBreak; }
    bool autoStart() const { return m_autoStart; }
    qint64 pomodoroCount() const { return m_pomodoroCount; }
    qint64 pomodoroTotalCount() const { return m_pomodoroTotalCount; }
    qint64 shortBreakCount() const { return m_shortBreakCount; }
    qint64 longBreakCount() const { return m_longBreakCount; }
    bool isBreak() const { return m_isBreak; }
    bool isShortBreak() const { return m_isShortBreak; }
    bool isLongBreak() const { return m_isLongBreak; }
    QDateTime firstPomodoroCountDate() const { return m_firstPomodoroCountDate; }

    void setId(const QUuid& v) { assign(m_id, v, &PomodoroConfig::idChanged); }
    void setPomodoroDuration(qint64 v)
    {
        assign(m_pomodoroDuration, v, &PomodoroConfig::pomodoroDurationChanged);
    }
    void setShortBreakDuration(qint64 v)
    {
        assign(m_shortBreakDuration, v, &PomodoroConfig::shortBreakDurationChanged);
    }
    void setLongBreakDuration(qint64 v)
    {
        assign(m_longBreakDuration, v, &PomodoroConfig::longBreakDurationChanged);
    }
    void setPomodorosForLongBreak(qint64 v)
    {
        assign(m_pomodorosForLongBreak, v, &PomodoroConfig::pomodorosForLongBreakChanged);
    }
    void setAutoStart(bool v) { assign(m_autoStart, v, &PomodoroConfig::autoStartChanged); }
    void setPomodoroCount(qint64 v)
    {
        assign(m_pomodoroCount, v, &PomodoroConfig::pomodoroCountChanged);
    }
    void setPomodoroTotalCount(qint64 v)
    {
        assign(m_pomodoroTotalCount, v, &PomodoroConfig::pomodoroTotalCountChanged);
    }
    void setShortBreakCount(qint64 v)
    {
        assign(m_shortBreakCount, v, &PomodoroConfig::shortBreakCountChanged);
    }
    void setLongBreakCount(qint64 v)
    {
        assign(m_longBreakCount, v, &PomodoroConfig::longBreakCountChanged);
    }
    void setIsBreak(bool v) { assign(m_isBreak, v, &PomodoroConfig::isBreakChanged); }
    void setIsShortBreak(bool v)
    {
        assign(m_isShortBreak, v, &PomodoroConfig::isShortBreakChanged);
    }
    void setIsLongBreak(bool v) { assign(m_isLongBreak, v, &PomodoroConfig::isLongBreakChanged); }
    void setFirstPomodoroCountDate(const QDateTime& v)
    {
        assign(m_firstPomodoroCountDate, v, &PomodoroConfig::firstPomodoroCountDateChanged);
    }

signals:
    void idChanged();
    void pomodoroDurationChanged();
    void shortBreakDurationChanged();
    void longBreakDurationChanged();
    void pomodorosForLongBreakChanged();
    void autoStartChanged();
    void pomodoroCountChanged();
    void pomodoroTotalCountChanged();
    void shortBreakCountChanged();
    void longBreakCountChanged();
    void isBreakChanged();
    void isShortBreakChanged();
    void isLongBreakChanged();
    void firstPomodoroCountDateChanged();

private:
    QUuid m_id;
    qint64 m_pomodoroDuration = 25;
    qint64 m_shortBreakDuration = 5;
    qint64 m_longBreakDuration = 15;
    qint64 m_pomodorosForLongBreak = 4;
    bool m_autoStart = false;
    qint64 m_pomodoroCount = 0;
    qint64 m_pomodoroTotalCount = 0;
    qint64 m_shortBreakCount = 0;
    qint64 m_longBreakCount = 0;
    bool m_isBreak = false;
    bool m_isShortBreak = false;
    bool m_isLongBreak = false;
    QDateTime m_firstPomodoroCountDate;
};
