#pragma once

#include "ModelContext.h"
#include "StoreSchema.h"

#include <QObject>
#include <QString>

#include <memory>

class StoreConnection;

// The local store: one SQLite file and the main context over it.
class DataStore final : public QObject
{
    Q_OBJECT

public:
    static constexpr int SchemaVersion = StoreSchema::Version;

    // Opens or creates the store at `path` (":memory:" for a throwaway one), upgrading
    // a store of an earlier version in place. Refuses
    // (null, and the reason) a file that is not ours, newer, damaged or read-only;
    // nothing is written then.
    static std::unique_ptr<DataStore> open(const QString& path, QString* error);

    // Starts checking `path` on a thread of its own; the next open() of that path
    // takes the answer. Lets start-up check a large store while Qt starts.
    static void probeInBackground(const QString& path);

    // <data dir>/<bundle identifier>/store.sqlite, creating the folder when missing;
    // empty (with `error` set) when there is no data directory.
    static QString defaultPath(QString* error);

    ~DataStore() override;

    ModelContext& mainContext() { return *m_context; }
    // The connection, for read-only queries too large to go through records (years
    // of history). Everything written goes through the context.
    StoreConnection& connection() const { return *m_connection; }
    // Reads through a mapping of the file from now on instead of a system call per
    // page, for years of history in a few milliseconds. Not at open: the mapped
    // pages would stay resident in every run that never reads history.
    void mapForLargeReads();
    QString path() const { return m_path; }
    // Whether this open created the store: a first start on this computer.
    bool isNew() const { return m_isNew; }

private:
    explicit DataStore(const QString& path);
    bool initialise(QString* error);
    // Runs `statements` and sets the schema version, in one transaction.
    bool migrate(const QList<const char*>& statements, QString* error);

    QString m_path;
    std::unique_ptr<StoreConnection> m_connection;
    ModelContext* m_context = nullptr;
    bool m_isNew = false;
    bool m_mapped = false;
};
