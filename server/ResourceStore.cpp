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
        QStringLiteral("SELECT t.id, t.user_id, t.last_used_at, r.body FROM tokens t "
                       "LEFT JOIN resource_heads h ON h.user_id = t.user_id AND h.kind = ? "
                       "LEFT JOIN resources r ON r.user_id = h.user_id AND r.kind = h.kind "
                       "AND r.version = h.version WHERE t.token_hash = ?"),
        {nameOf(kind), tokenHash});
    if (!q)
        return Lookup<Owned>::failed();
    if (q->rows.isEmpty())
        return Lookup<Owned>::missing();
    const QVariantList& row = q->rows.first();
    Owned out{row[0].toLongLong(), row[1].toLongLong(), row[2], std::nullopt};
    if (!row[3].isNull())
        out.body = row[3].toByteArray();
    return Lookup<Owned>::found(std::move(out));
}

bool ResourceStore::store(ServerDatabase& db, qint64 userId, Kind kind, const QByteArray& body,
                          QString* error)
{
    const QString name = nameOf(kind);
    const qint64 now = m_clock.now().toMSecsSinceEpoch();
    if (db.engine() == ServerDatabase::Engine::PostgreSQL) {
        // One statement, one round trip: the same three steps as below, chained.
        return db
            .exec(QStringLiteral(
                      "WITH head AS (INSERT INTO resource_heads (user_id, kind, version) "
                      "VALUES (?, ?, 1) ON CONFLICT (user_id, kind) DO UPDATE SET version = "
                      "resource_heads.version + 1 RETURNING version), "
                      "added AS (INSERT INTO resources (user_id, kind, version, body, created_at) "
                      "SELECT ?::BIGINT, ?::TEXT, version, ?::TEXT, ?::BIGINT FROM head "
                      "RETURNING version) "
                      "DELETE FROM resources WHERE user_id = ? AND kind = ? "
                      "AND version <= (SELECT version FROM added) - ?"),
                  {userId, name, userId, name, body, now, userId, name, KeptVersions + 1}, error)
            .has_value();
    }
    // Taking the next number locks the head row until the transaction ends, so
    // writers of one resource, in any process, take turns.
    const auto next = db.exec(
        QStringLiteral("INSERT INTO resource_heads (user_id, kind, version) VALUES (?, ?, 1) "
                       "ON CONFLICT (user_id, kind) DO UPDATE SET version = "
                       "resource_heads.version + 1 RETURNING version"),
        {userId, name}, error);
    if (!next)
        return false;
    const qint64 version = next->rows.value(0).value(0).toLongLong();
    return db.exec(QStringLiteral("INSERT INTO resources (user_id, kind, version, body, "
                                  "created_at) VALUES (?, ?, ?, ?, ?)"),
                   {userId, name, version, body, now}, error) &&
           db.exec(QStringLiteral(
                       "DELETE FROM resources WHERE user_id = ? AND kind = ? AND version <= ?"),
                   {userId, name, version - KeptVersions - 1}, error)
               .has_value();
}

bool ResourceStore::put(qint64 userId, Kind kind, const QByteArray& body, QString* error)
{
    // A single statement is a transaction of its own.
    if (m_db.engine() == ServerDatabase::Engine::PostgreSQL)
        return store(m_db, userId, kind, body, error);
    return m_db.transact(
        [&](ServerDatabase& db, QString* why) { return store(db, userId, kind, body, why); },
        error);
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
    return put(userId, kind, body, error);
}
