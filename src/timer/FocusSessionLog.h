#pragma once

#include <QDateTime>
#include <QString>

#include <optional>

class ModelContext;

// The run of the timer's current phase: opened by its first start, counting only
// while the countdown runs, and written as a focus session when it finishes, is
// skipped, reset or abandoned.
class FocusSessionLog
{
public:
    explicit FocusSessionLog(ModelContext& context);

    bool isOpen() const { return m_run.has_value(); }
    // Opens a run of `phase` ("focus", "shortBreak", "longBreak") planned for
    // `plannedMs` unless one is open, and counts from `now`.
    void resume(const QString& phase, qint64 plannedMs, const QDateTime& now);
    // Stops counting at `until` (a pause).
    void accrue(const QDateTime& until);
    // Writes the open run, ended at `at`, with `outcome`.
    void close(const QString& outcome, const QDateTime& at);

private:
    struct Run
    {
        QString phase;
        QDateTime startedAt;
        qint64 plannedMs = 0;
        qint64 ranMs = 0;                 // while counting down; pauses excluded
        std::optional<QDateTime> resumed; // set while counting down
    };

    ModelContext& m_context;
    std::optional<Run> m_run;
};
