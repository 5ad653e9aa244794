#include "Sessions.h"

#include "Accounts.h"
#include "Clock.h"
#include "ServerDatabase.h"

Sessions::Sessions(ServerDatabase& db, const Clock& clock)
    : m_db(db)
    , m_clock(clock)
{}

std::optional<Sessions::Session> Sessions::start(qint64 userId, QString* error)
{
    const qint64 now = m_clock.now().toMSecsSinceEpoch();
    // Expired sessions go whenever a new one starts.
    m_db.exec(QStringLiteral("DELETE FROM sessions WHERE expires_at < ?"), {now});
    Session session;
    session.cookie = Accounts::randomSecret(32);
    session.userId = userId;
    session.csrf = Accounts::randomSecret(24);
    if (!m_db.exec(QStringLiteral("INSERT INTO sessions (id_hash, user_id, csrf, created_at, "
                                  "expires_at) VALUES (?, ?, ?, ?, ?)"),
                   {Accounts::hashOf(session.cookie.toLatin1()), userId, session.csrf, now,
                    now + LifetimeMs},
                   error))
        return std::nullopt;
    const Lookup<Session> made = find(session.cookie);
    if (!made && error)
        *error = QStringLiteral("the new session could not be read back");
    return made.value;
}

Lookup<Sessions::Session> Sessions::find(const QString& cookie)
{
    if (cookie.isEmpty() || cookie.size() > 100)
        return Lookup<Session>::missing();
    const auto q =
        m_db.exec(QStringLiteral("SELECT s.user_id, u.name, s.csrf FROM sessions s JOIN users u "
                                 "ON u.id = s.user_id WHERE s.id_hash = ? AND s.expires_at >= ?"),
                  {Accounts::hashOf(cookie.toLatin1()), m_clock.now().toMSecsSinceEpoch()});
    if (!q)
        return Lookup<Session>::failed();
    if (q->rows.isEmpty())
        return Lookup<Session>::missing();
    const QVariantList& row = q->rows.first();
    return Lookup<Session>::found(
        Session{cookie, row[0].toLongLong(), row[1].toString(), row[2].toString()});
}

void Sessions::end(const QString& cookie)
{
    m_db.exec(QStringLiteral("DELETE FROM sessions WHERE id_hash = ?"),
              {Accounts::hashOf(cookie.toLatin1())});
}

std::optional<QString> Sessions::issueForm(const Session& session, const QString& purpose)
{
    const qint64 now = m_clock.now().toMSecsSinceEpoch();
    m_db.exec(QStringLiteral("DELETE FROM form_nonces WHERE expires_at < ?"), {now});
    const QString nonce = Accounts::randomSecret(24);
    if (!m_db.exec(QStringLiteral("INSERT INTO form_nonces (nonce_hash, session_hash, purpose, "
                                  "expires_at) VALUES (?, ?, ?, ?)"),
                   {Accounts::hashOf(nonce.toLatin1()), Accounts::hashOf(session.cookie.toLatin1()),
                    purpose, now + FormLifetimeMs}))
        return std::nullopt;
    return nonce;
}

bool Sessions::useForm(const Session& session, const QString& nonce, const QString& purpose)
{
    if (nonce.isEmpty() || nonce.size() > 100)
        return false;
    // Deleting is the check: of two submissions of one form only one deletes a row.
    const auto q = m_db.exec(
        QStringLiteral("DELETE FROM form_nonces WHERE nonce_hash = ? AND session_hash = ? "
                       "AND purpose = ? AND expires_at >= ?"),
        {Accounts::hashOf(nonce.toLatin1()), Accounts::hashOf(session.cookie.toLatin1()), purpose,
         m_clock.now().toMSecsSinceEpoch()});
    return q && q->affected == 1;
}
