#pragma once

#include "ExportDocument.h"

#include <QObject>
#include <QStringList>

#include <optional>

class Clock;
class DataStore;
class PomodoroService;
class SyncEngine;

// Export and import of everything the store holds: a JSON backup (and CSV files for
// spreadsheets) out, a backup in, replacing or merging. The running app, its bus
// interface and the command line all go through here.
class DataTransfer final : public QObject
{
    Q_OBJECT

public:
    // `timer` and `sync` are absent when no Tidewell runs (the command line alone):
    // there is then no timer to bring up to date and nothing is pushed.
    DataTransfer(DataStore& store, const Clock& clock, PomodoroService* timer = nullptr,
                 SyncEngine* sync = nullptr, QObject* parent = nullptr);

    // The document in the file at `path`, checked completely; nothing, and why, when
    // it cannot be read or is not a whole, valid export.
    static std::optional<ExportDocument> readFile(const QString& path, QString* error);

    // Writes the backup to `path` (replacing it only once it is complete) and, with a
    // `csvDirectory`, habit_history.csv and focus_sessions.csv there.
    bool exportTo(const QString& path, const QString& csvDirectory, QString* error);

    // Applies `document` in one transaction, then brings the timer up to date and,
    // when signed in, pushes habits, lists and timer once. `summary` says what changed.
    bool importDocument(const ExportDocument& document, ExportDocument::Mode mode,
                        QStringList* summary, QString* error);

    // Checks the store file `path` and asks the running app to restore it (which
    // restarts it); false, and why, when the file is not a store it can use.
    bool requestRestore(const QString& path, QString* error);

signals:
    void imported();
    void restoreRequested(const QString& path);

private:
    DataStore& m_store;
    const Clock& m_clock;
    PomodoroService* m_timer;
    SyncEngine* m_sync;
};
