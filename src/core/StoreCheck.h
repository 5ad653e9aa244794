#pragma once

#include <QDate>
#include <QObject>
#include <QString>

class Clock;
class QThread;

// The full check of the store, kept off the start path: the whole file read on a
// read-only connection of its own, on a low-priority thread, at most once a day,
// and always after a run that did not end cleanly. Each day's first passing check
// also writes that day's backup and lets go of the ones no longer kept.
class StoreCheck final : public QObject
{
    Q_OBJECT

public:
    StoreCheck(const QString& storePath, const Clock& clock, QObject* parent = nullptr);
    // Waits for a check under way: its thread reads the store.
    ~StoreCheck() override;

    // A run of the app begins: marks the store in use, and learns whether the
    // previous run ended without end().
    void begin();
    // The run ends cleanly.
    void end();
    bool uncleanStart() const { return m_unclean; }

    // The day of the last check that passed (invalid when none did).
    QDate lastPassed() const;
    bool isDue() const;
    bool isRunning() const { return m_thread != nullptr; }
    // Starts the check when it is due and none runs.
    void runIfDue();
    // Starts it regardless (unless one runs).
    void run();

signals:
    void passed();
    // The store is damaged; `problem` says how.
    void damaged(const QString& problem);
    void backupWritten(const QString& path);
    void backupFailed(const QString& reason);
    // After each check, whatever its outcome.
    void finished();

private:
    struct Outcome
    {
        QString damage;
        QString backup;
        QString backupError;
    };
    static Outcome work(const QString& storePath, QDate day, bool backUp);
    void conclude(const Outcome& outcome, QDate day);

    QString m_storePath;
    const Clock& m_clock;
    bool m_unclean = false;
    QThread* m_thread = nullptr;
};
