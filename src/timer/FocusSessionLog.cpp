#include "FocusSessionLog.h"

#include "FocusSession.h"
#include "ModelContext.h"

#include <algorithm>

FocusSessionLog::FocusSessionLog(ModelContext& context)
    : m_context(context)
{}

void FocusSessionLog::resume(const QString& phase, qint64 plannedMs, const QDateTime& now)
{
    if (!m_run)
        m_run = Run{phase, now, plannedMs, 0, std::nullopt};
    m_run->resumed = now;
}

void FocusSessionLog::accrue(const QDateTime& until)
{
    if (!m_run || !m_run->resumed)
        return;
    m_run->ranMs += std::max<qint64>(0, m_run->resumed->msecsTo(until));
    m_run->resumed.reset();
}

void FocusSessionLog::close(const QString& outcome, const QDateTime& at)
{
    if (!m_run)
        return;
    accrue(at);
    const Run run = *m_run;
    m_run.reset();
    auto* session = new FocusSession(run.phase, run.startedAt, std::max(at, run.startedAt),
                                     run.plannedMs / 1000, run.ranMs / 1000, outcome);
    m_context.insert(session);
    // Written once and read back only by history and export, which ask the store:
    // a long-running timer need not keep every past phase in memory.
    if (m_context.save())
        m_context.release(session);
}
