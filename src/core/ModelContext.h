#pragma once

#include "FetchRequest.h"
#include "Record.h"

#include <QHash>
#include <QObject>
#include <QSet>

#include <array>
#include <functional>

class RecordTable;
class StoreConnection;

// The one context through which records are read and written. Records are loaded
// on demand and kept (one object per stored record), changes stay pending until
// save() writes them all in one transaction. Unsaved inserts are visible to
// fetches; deleted records are not. Main thread only.
class ModelContext final : public QObject
{
    Q_OBJECT

public:
    explicit ModelContext(StoreConnection& db, QObject* parent = nullptr);
    ~ModelContext() override;

    template <typename T>
    QList<T*> fetch(const FetchRequest& request = {},
                    const std::function<bool(const T*)>& predicate = {})
    {
        QList<T*> out;
        for (Record* r : fetchRecords(T::Kind, request)) {
            auto* t = static_cast<T*>(r);
            if (!predicate || predicate(t))
                out.append(t);
        }
        return out;
    }

    template <typename T> qsizetype count(const FetchRequest& request = {}) const
    {
        return const_cast<ModelContext*>(this)->fetchRecords(T::Kind, request).size();
    }

    // The record with that key (UUID text, or the widget id), or null.
    template <typename T> T* find(const QString& key)
    {
        return static_cast<T*>(findRecord(T::Kind, key));
    }

    // The same, for code that handles every kind alike (export and import).
    QList<Record*> records(RecordKind kind) { return fetchRecords(kind, {}); }
    Record* find(RecordKind kind, const QString& key) { return findRecord(kind, key); }

    // Takes ownership. Inserting a record whose key is already live is refused.
    bool insert(Record* record);
    // Deletes the record and, by cascade, a habit's history or a list's tasks.
    void remove(Record* record);
    // Lets go of a saved record that nothing keeps in memory (an entry of an
    // append-only log); a later fetch loads it again. A record with unsaved
    // changes is kept. True when it was let go (the pointer is then dangling).
    bool release(Record* record);

    // Writes every pending change in one transaction. On failure nothing is
    // written, the changes stay pending and `error` says why.
    bool save(QString* error = nullptr);
    bool hasChanges() const;
    // How many reads of the store have failed so far. A fetch that failed returns
    // only what is in memory, so whoever must not act on a partial picture (a push
    // that replaces the server's copy) compares this before and after reading.
    quint64 readFailures() const { return m_readFailures; }

    // Damage to the store file, found by a statement or by the full check. From
    // then on nothing is written to it: saves are refused and changes stay in
    // memory, so a damaged file is never made worse. Empty while whole.
    QString damage() const { return m_damage; }
    void markDamaged(const QString& problem);

signals:
    // Records of that kind were inserted, deleted or changed (also by a pull).
    void changed(RecordKind kind);
    void saved();
    // A save could not write; the changes stay pending for the next one.
    void saveFailed(const QString& reason);
    // The store was found damaged (once).
    void damaged(const QString& problem);

private:
    friend class Record;

    struct Slot
    {
        QHash<QString, Record*> live;
        QHash<Record*, quint64> sequence; // load/insert order, for deterministic fetches
        QSet<QString> deletedKeys;        // stored rows deleted but not yet saved
        QSet<QString> loadedFilters;      // "field=value" answered by SQL once already
        bool fullyLoaded = false;
    };

    QList<Record*> fetchRecords(RecordKind kind, const FetchRequest& request);
    Record* findRecord(RecordKind kind, const QString& key);
    bool ensureLoaded(RecordKind kind, const FetchRequest& request);
    void adopt(Record* record);
    void recordTouched(Record* record);

    StoreConnection& m_db;
    std::array<Slot, RecordKindCount> m_slots;
    quint64 m_nextSequence = 0;
    quint64 m_readFailures = 0;
    QString m_damage;
    QSet<Record*> m_inserted;
    QSet<Record*> m_updated;
    QList<std::pair<RecordKind, QString>> m_deleted;
};
