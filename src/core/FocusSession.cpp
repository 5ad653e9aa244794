#include "FocusSession.h"

FocusSession::FocusSession(const QString& phase, const QDateTime& startedAt,
                           const QDateTime& endedAt, qint64 plannedSeconds, qint64 elapsedSeconds,
                           const QString& outcome)
    : m_id(QUuid::createUuid())
    , m_phase(phase)
    , m_startedAt(startedAt)
    , m_day(startedAt.toLocalTime().date().toString(Qt::ISODate))
    , m_endedAt(endedAt)
    , m_plannedSeconds(plannedSeconds)
    , m_elapsedSeconds(elapsedSeconds)
    , m_outcome(outcome)
{}

bool FocusSession::isPhase(const QString& text)
{
    return text == Focus || text == ShortBreak || text == LongBreak;
}

bool FocusSession::isOutcome(const QString& text)
{
    return text == Completed || text == Skipped || text == Reset || text == Abandoned;
}
