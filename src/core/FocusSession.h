#pragma once

#include "Record.h"

#include <QDateTime>
#include <QUuid>

// One run of a timer phase, from its first start to its end: finished, cut short
// or abandoned. Written once when the run ends; local history, never synced.
class FocusSession final : public Record
{
    Q_OBJECT
    Q_PROPERTY(QUuid id READ id WRITE setId NOTIFY idChanged)
    // "focus", "shortBreak" or "longBreak".
    Q_PROPERTY(QString phase READ phase WRITE setPhase NOTIFY phaseChanged)
    Q_PROPERTY(QDateTime startedAt READ startedAt WRITE setStartedAt NOTIFY startedAtChanged)
    // The local day it started on ("yyyy-MM-dd"), kept as it was then: statistics
    // group by it, and a later change of time zone does not move past sessions.
    Q_PROPERTY(QString day READ day WRITE setDay NOTIFY dayChanged)
    Q_PROPERTY(QDateTime endedAt READ endedAt WRITE setEndedAt NOTIFY endedAtChanged)
    // The phase's length when it started, and how long it actually ran (pauses excluded).
    Q_PROPERTY(qint64 plannedSeconds READ plannedSeconds WRITE setPlannedSeconds NOTIFY
                   plannedSecondsChanged)
    Q_PROPERTY(qint64 elapsedSeconds READ elapsedSeconds WRITE setElapsedSeconds NOTIFY
                   elapsedSecondsChanged)
    // "completed", "skipped", "reset" or "abandoned" (the app quit before the end).
    Q_PROPERTY(QString outcome READ outcome WRITE setOutcome NOTIFY outcomeChanged)

public:
    static constexpr RecordKind Kind = RecordKind::FocusSession;

    static inline const QString Focus = QStringLiteral("focus");
    static inline const QString ShortBreak = QStringLiteral("shortBreak");
    static inline const QString LongBreak = QStringLiteral("longBreak");
    static inline const QString Completed = QStringLiteral("completed");
    static inline const QString Skipped = QStringLiteral("skipped");
    static inline const QString Reset = QStringLiteral("reset");
    static inline const QString Abandoned = QStringLiteral("abandoned");

    static bool isPhase(const QString& text);
    static bool isOutcome(const QString& text);

    // A new record, of the local day `startedAt` falls on.
    FocusSession(const QString& phase, const QDateTime& startedAt, const QDateTime& endedAt,
                 qint64 plannedSeconds, qint64 elapsedSeconds, const QString& outcome);
    FocusSession() = default;

    RecordKind kind() const override { return Kind; }
    QString key() const override { return m_id.toString(QUuid::WithoutBraces); }

    QUuid id() const { return m_id; }
    QString phase() const { return m_phase; }
    QDateTime startedAt() const { return m_startedAt; }
    QString day() const { return m_day; }
    QDateTime endedAt() const { return m_endedAt; }
    qint64 plannedSeconds() const { return m_plannedSeconds; }
    qint64 elapsedSeconds() const { return m_elapsedSeconds; }
    QString outcome() const { return m_outcome; }
    bool isCompletedFocus() const { return m_phase == Focus && m_outcome == Completed; }

    void setId(const QUuid& v) { assign(m_id, v, &FocusSession::idChanged); }
    void setPhase(const QString& v) { assign(m_phase, v, &FocusSession::phaseChanged); }
    void setStartedAt(const QDateTime& v)
    {
        assign(m_startedAt, v, &FocusSession::startedAtChanged);
    }
    void setDay(const QString& v) { assign(m_day, v, &FocusSession::dayChanged); }
    void setEndedAt(const QDateTime& v) { assign(m_endedAt, v, &FocusSession::endedAtChanged); }
    void setPlannedSeconds(qint64 v)
    {
        assign(m_plannedSeconds, v, &FocusSession::plannedSecondsChanged);
    }
    void setElapsedSeconds(qint64 v)
    {
        assign(m_elapsedSeconds, v, &FocusSession::elapsedSecondsChanged);
    }
    void setOutcome(const QString& v) { assign(m_outcome, v, &FocusSession::outcomeChanged); }

signals:
    void idChanged();
    void phaseChanged();
    void startedAtChanged();
    void dayChanged();
    void endedAtChanged();
    void plannedSecondsChanged();
    void elapsedSecondsChanged();
    void outcomeChanged();

private:
    QUuid m_id;
    QString m_phase;
    QDateTime m_startedAt;
    QString m_day;
    QDateTime m_endedAt;
    qint64 m_plannedSeconds = 0;
    qint64 m_elapsedSeconds = 0;
    QString m_outcome;
};
