#include "ResourceStore.h"

#include "Clock.h"
#include "ServerDatabase.h"

#include <QVariant>

ResourceStore::ResourceStore(ServerDatabase& db, const Clock& clock)
    : m_db(db)
    , m_clock(clock)
{}

std::optional<ResourceStore::Kind> ResourceStore::kindNamed(QStringView name)
{
    if (name == u"habits")
        return Kind::Habits;
    if (name == u"tasks")
        return Kind::Tasks;
    if (name == u"pomodoro")
        return Kind::Pomodoro;
    return std::nullopt;
}

QString ResourceStore::nameOf(Kind kind)
{
    switch (kind) {
    case Kind::Habits:
        return QStringLiteral("habits");
    case Kind::Tasks:
        return QStringLiteral("tasks");
    case Kind::Pomodoro:
        break;
    }
    return QStringLiteral("pomodoro");
}

bool ResourceStore::current(qint64 userId, Kind kind, std::optional<QByteArray>* body,
                            QString* error)
{
    const auto q = m_db.exec(
        QStringLiteral(
            "SELECT r.body FROM resource_heads h JOIN resources r ON r.user_id = h.user_id "
            "AND r.kind = h.kind AND r.version = h.version WHERE h.user_id = ? AND h.kind = ?"),
        {userId, nameOf(kind)}, error);
    if (!q)
        return false;
    if (!q->rows.isEmpty())
        *body = q->rows[0][0].toByteArray();
    else
        body->reset();
    return true;
}

Lookup<ResourceStore::Owned> ResourceStore::currentByToken(const QString& tokenHash, Kind kind)
{
    const auto q = m_db.exec(
        QStringLiteral("SELECT t.id, t.user_id, t.last_used_at, r.body, h.version, r.created_at "
                       "FROM tokens t "
                       "LEFT JOIN resource_heads h ON h.user_id = t.user_id AND h.kind = ? "
                       "LEFT JOIN resources r ON r.user_id = h.user_id AND r.kind = h.kind "
                       "AND r.version = h.version WHERE t.token_hash = ?"),
        {nameOf(kind), tokenHash});
    if (!q)
        return Lookup<Owned>::failed();
    if (q->rows.isEmpty())
        return Lookup<Owned>::missing();
    const QVariantList& row = q->rows.first();
    Owned out{row[0].toLongLong(), row[1].toLongLong(), row[2], std::nullopt, 0, {}};
    if (!row[3].isNull()) {
        out.body = row[3].toByteArray();
        out.version = row[4].toLongLong();
        out.storedAt = QDateTime::fromMSecsSinceEpoch(row[5].toLongLong(), Qt::UTC);
    }
    return Lookup<Owned>::found(std::move(out));
}

Lookup<ResourceStore::OwnedVersions> ResourceStore::versionsByToken(const QString& tokenHash)
{
    const auto q = m_db.exec(
        QStringLiteral("SELECT t.id, t.user_id, t.last_used_at, h.kind, h.version FROM tokens t "
                       "LEFT JOIN resource_heads h ON h.user_id = t.user_id "
                       "WHERE t.token_hash = ?"),
        {tokenHash});
    if (!q)
        return Lookup<OwnedVersions>::failed();
    if (q->rows.isEmpty())
        return Lookup<OwnedVersions>::missing();
    const QVariantList& first = q->rows.first();
    OwnedVersions out{first[0].toLongLong(), first[1].toLongLong(), first[2], {}};
    for (const QVariantList& row : q->rows) {
        if (const std::optional<Kind> kind = kindNamed(row[3].toString()))
            out.versions[size_t(*kind)] = row[4].toLongLong();
    }
    return Lookup<OwnedVersions>::found(std::move(out));
}

std::optional<qint64> ResourceStore::headVersion(ServerDatabase& db, qint64 userId, Kind kind,
                                                 QString* error)
{
    const auto q =
        db.exec(QStringLiteral("SELECT version FROM resource_heads WHERE user_id = ? AND kind = ?"),
                {userId, nameOf(kind)}, error);
    if (!q)
        return std::nullopt;
    return q->rows.isEmpty() ? 0 : q->rows[0][0].toLongLong();
}

std::optional<ResourceStore::Written> ResourceStore::store(ServerDatabase& db, qint64 userId,
                                                           Kind kind, const QByteArray& body,
                                                           std::optional<qint64> ifVersion,
                                                           QString* error)
{
    const QString name = nameOf(kind);
    const qint64 now = m_clock.now().toMSecsSinceEpoch();
    const QVariant expected = ifVersion ? QVariant(*ifVersion) : QVariant();
    if (db.engine() == ServerDatabase::Engine::PostgreSQL) {
        // One statement, one round trip: the same steps as below, chained. With an
        // expected version, the head moves only from that version (a first store
        // only from 0), and nothing else happens when it does not.
        const auto q = db.exec(
            QStringLiteral(
                "WITH head AS (INSERT INTO resource_heads (user_id, kind, version) "
                "SELECT ?::BIGINT, ?::TEXT, 1 WHERE COALESCE(?::BIGINT, 0) = 0 OR EXISTS "
                "(SELECT 1 FROM resource_heads WHERE user_id = ? AND kind = ?) "
                "ON CONFLICT (user_id, kind) DO UPDATE SET version = resource_heads.version + 1 "
                "WHERE ?::BIGINT IS NULL OR resource_heads.version = ?::BIGINT RETURNING version), "
                "added AS (INSERT INTO resources (user_id, kind, version, body, created_at) "
                "SELECT ?::BIGINT, ?::TEXT, version, ?::TEXT, ?::BIGINT FROM head "
                "RETURNING version), "
                "pruned AS (DELETE FROM resources WHERE user_id = ? AND kind = ? "
                "AND version <= (SELECT version FROM added) - ?) "
                "SELECT version FROM added"),
            {userId, name, expected, userId, name, expected, expected, userId, name, body, now,
             userId, name, KeptVersions + 1},
            error);
        if (!q)
            return std::nullopt;
        if (!q->rows.isEmpty())
            return Written{false, q->rows[0][0].toLongLong()};
        const std::optional<qint64> current = headVersion(db, userId, kind, error);
        if (!current)
            return std::nullopt;
        return Written{true, *current};
    }
    if (ifVersion) {
        // Inside the write transaction: nobody moves the head between this and the store.
        const std::optional<qint64> current = headVersion(db, userId, kind, error);
        if (!current)
            return std::nullopt;
        if (*current != *ifVersion)
            return Written{true, *current};
    }
    // Taking the next number locks the head row until the transaction ends, so
    // writers of one resource, in any process, take turns.
    const auto next = db.exec(
        QStringLiteral("INSERT INTO resource_heads (user_id, kind, version) VALUES (?, ?, 1) "
                       "ON CONFLICT (user_id, kind) DO UPDATE SET version = "
                       "resource_heads.version + 1 RETURNING version"),
        {userId, name}, error);
    if (!next)
        return std::nullopt;
    const qint64 version = next->rows.value(0).value(0).toLongLong();
    const bool stored =
        db.exec(QStringLiteral("INSERT INTO resources (user_id, kind, version, body, "
                               "created_at) VALUES (?, ?, ?, ?, ?)"),
                {userId, name, version, body, now}, error) &&
        db.exec(
            QStringLiteral("DELETE FROM resources WHERE user_id = ? AND kind = ? AND version <= ?"),
            {userId, name, version - KeptVersions - 1}, error);
    if (!stored)
        return std::nullopt;
    return Written{false, version};
}

std::optional<ResourceStore::Written> ResourceStore::put(qint64 userId, Kind kind,
                                                         const QByteArray& body, QString* error,
                                                         std::optional<qint64> ifVersion)
{
    // A single statement is a transaction of its own.
    if (m_db.engine() == ServerDatabase::Engine::PostgreSQL)
        return store(m_db, userId, kind, body, ifVersion, error);
    std::optional<Written> written;
    const bool ok = m_db.transact(
        [&](ServerDatabase& db, QString* why) {
            written = store(db, userId, kind, body, ifVersion, why);
            return written.has_value();
        },
        error);
    if (!ok)
        return std::nullopt;
    return written;
}

QList<ResourceStore::Version> ResourceStore::history(qint64 userId, Kind kind, QString* error)
{
    const auto q = m_db.exec(
        QStringLiteral("SELECT r.version, r.created_at, LENGTH(r.body), h.version FROM resources r "
                       "JOIN resource_heads h ON h.user_id = r.user_id AND h.kind = r.kind "
                       "WHERE r.user_id = ? AND r.kind = ? ORDER BY r.version DESC"),
        {userId, nameOf(kind)}, error);
    QList<Version> out;
    for (const QVariantList& row : q ? q->rows : QList<QVariantList>()) {
        const qint64 number = row[0].toLongLong();
        out.append({number, QDateTime::fromMSecsSinceEpoch(row[1].toLongLong()),
                    row[2].toLongLong(), number == row[3].toLongLong()});
    }
    return out;
}

bool ResourceStore::restore(qint64 userId, Kind kind, qint64 number, QString* error)
{
    const auto q = m_db.exec(
        QStringLiteral("SELECT body FROM resources WHERE user_id = ? AND kind = ? AND version = ?"),
        {userId, nameOf(kind), number}, error);
    if (!q)
        return false;
    if (q->rows.isEmpty()) {
        *error = QStringLiteral("there is no version %1 of %2").arg(number).arg(nameOf(kind));
        return false;
    }
    const QByteArray body = q->rows[0][0].toByteArray();
    return put(userId, kind, body, error).has_value();
}
