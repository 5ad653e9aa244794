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
        *body = q->rows[0][0].toString().toUtf8();
    else
        body->reset();
    return true;
}

bool ResourceStore::store(qint64 userId, Kind kind, const QByteArray& body, QString* error)
{
    const QString name = nameOf(kind);
    if (!m_db.exec(QStringLiteral("INSERT INTO resource_heads (user_id, kind, version) "
                                  "VALUES (?, ?, 0) ON CONFLICT DO NOTHING"),
                   {userId, name}, error))
        return false;
    // Taking the next number locks the head row until the transaction ends.
    const auto next = m_db.exec(QStringLiteral("UPDATE resource_heads SET version = version + 1 "
                                               "WHERE user_id = ? AND kind = ? RETURNING version"),
                                {userId, name}, error);
    if (!next)
        return false;
    if (next->rows.isEmpty()) {
        *error = QStringLiteral("no such user");
        return false;
    }
    const qint64 version = next->rows[0][0].toLongLong();
    return m_db.exec(
               QStringLiteral("INSERT INTO resources (user_id, kind, version, body, "
                              "created_at) VALUES (?, ?, ?, ?, ?)"),
               {userId, name, version, QString::fromUtf8(body), m_clock.now().toMSecsSinceEpoch()},
               error) &&
           m_db.exec(QStringLiteral(
                         "DELETE FROM resources WHERE user_id = ? AND kind = ? AND version <= ?"),
                     {userId, name, version - KeptVersions - 1}, error)
               .has_value();
}

bool ResourceStore::put(qint64 userId, Kind kind, const QByteArray& body, QString* error)
{
    if (!m_db.begin()) {
        *error = QStringLiteral("cannot begin a transaction");
        return false;
    }
    if (!store(userId, kind, body, error)) {
        m_db.rollback();
        return false;
    }
    if (!m_db.commit()) {
        *error = QStringLiteral("the transaction could not be committed");
        m_db.rollback();
        return false;
    }
    return true;
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
    const QByteArray body = q->rows[0][0].toString().toUtf8();
    return put(userId, kind, body, error);
}
