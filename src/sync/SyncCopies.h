#pragma once

#include "SyncMerge.h"

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QString>
#include <QStringList>

#include <optional>

class Clock;
class DataStore;
class ModelContext;
struct SyncBase;

// The copies of each synced resource as the wire carries them: this computer's,
// read from the store, and the server's, applied to it or merged with it.
class SyncCopies
{
public:
    static const QString habitsName;
    static const QString tasksName;
    static const QString pomodoroName;
    static const QStringList resources;
    // The error of a local copy that could not be read.
    static const QString unreadable;

    struct LocalCopy
    {
        QByteArray body;
        QByteArray ids;
    };

    SyncCopies(DataStore& store, const Clock& clock);

    // Absent when the store could not be read.
    std::optional<LocalCopy> localCopy(const QString& resource);
    // The body as this app encodes it, so that copies compare byte for byte.
    std::optional<QByteArray> canonical(const QString& resource, const QByteArray& envelope,
                                        QString* why);
    // Whether the records a copy replaces can be read.
    bool readable();
    // Writes `body` over the local records and saves; false with `why` otherwise.
    bool apply(const QString& resource, const QByteArray& body, QString* why);
    // The three-way merge of the base, the local copy and the server's, the
    // server's changes dated from `storedAt`.
    std::optional<QByteArray> merged(const QString& resource, const SyncBase& base,
                                     const LocalCopy& local, const QByteArray& server,
                                     const QDateTime& storedAt, SyncMerge::Origins* origins);
    // The local identities of the server's copy's records after a merge.
    QByteArray serverIds(const QString& resource, const SyncMerge::Origins& origins,
                         const QByteArray& server);
    // When this computer last changed `resource`: the merge weighs it against
    // the server's changes.
    void noteLocalChange(const QString& resource, const QDateTime& when);

private:
    ModelContext& context();

    DataStore& m_store;
    const Clock& m_clock;
    QHash<QString, QDateTime> m_localChangedAt;
};
