#include "Accounts.h"

#include "Clock.h"
#include "ServerDatabase.h"

#include <QCryptographicHash>
#include <QRegularExpression>
#include <QSemaphore>
#include <QVariant>

#include <sodium.h>

namespace {
// Argon2id at the cost recommended for interactive sign-ins, with a memory cost that
// keeps a small server small: two passes over 19 MiB.
constexpr unsigned long long passwordOps = 2;
constexpr size_t passwordMemory = 19 * 1024 * 1024;
// "Last used" is written at most this often per token, not on every request.
constexpr qint64 lastUsedGranularityMs = 60'000;
constexpr int tokenBytes = 32;

QDateTime fromMs(const QVariant& value)
{
    return value.isNull() ? QDateTime() : QDateTime::fromMSecsSinceEpoch(value.toLongLong());
}

std::optional<QString> hashPassword(const QString& password)
{
    const QByteArray utf8 = password.toUtf8();
    char hash[crypto_pwhash_STRBYTES];
    if (crypto_pwhash_str(hash, utf8.constData(), size_t(utf8.size()), passwordOps,
                          passwordMemory) != 0)
        return std::nullopt; // out of memory
    return QString::fromLatin1(hash);
}
} // namespace

Accounts::Accounts(ServerDatabase& db, const Clock& clock)
    : m_db(db)
    , m_clock(clock)
{
    if (sodium_init() < 0)
        qFatal("tidewell-server: libsodium could not start");
}

std::optional<QString> Accounts::nameProblem(const QString& name)
{
    static const QRegularExpression valid(
        QRegularExpression::anchoredPattern(QStringLiteral("[A-Za-z0-9._-]{1,64}")));
    if (!valid.match(name).hasMatch())
        return QStringLiteral("a user name is 1 to 64 letters, digits, \".\", \"_\" or \"-\"");
    return std::nullopt;
}

std::optional<QString> Accounts::passwordProblem(const QString& password)
{
    if (password.size() < 8)
        return QStringLiteral("a password needs at least 8 characters");
    if (password.toUtf8().size() > 1024)
        return QStringLiteral("a password may be at most 1024 bytes long");
    return std::nullopt;
}

QString Accounts::hashOf(QByteArrayView secret)
{
    return QString::fromLatin1(
        QCryptographicHash::hash(secret, QCryptographicHash::Sha256).toHex());
}

QString Accounts::randomSecret(int bytes)
{
    QByteArray raw(bytes, Qt::Uninitialized);
    randombytes_buf(raw.data(), size_t(raw.size()));
    return QString::fromLatin1(
        raw.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

bool Accounts::addUser(const QString& name, const QString& password, QString* error)
{
    std::optional<QString> problem = nameProblem(name);
    if (!problem)
        problem = passwordProblem(password);
    if (problem) {
        *error = *problem;
        return false;
    }
    const auto hash = hashPassword(password);
    if (!hash) {
        *error = QStringLiteral("not enough memory to hash the password");
        return false;
    }
    if (m_db.exec(
            QStringLiteral("INSERT INTO users (name, password_hash, created_at) VALUES (?, ?, ?)"),
            {name, *hash, m_clock.now().toMSecsSinceEpoch()}, error))
        return true;
    if (m_db.lastWasUniqueViolation())
        *error = u"there is already a user named " + name;
    return false;
}

bool Accounts::setPassword(const QString& name, const QString& password, QString* error)
{
    if (const auto problem = passwordProblem(password)) {
        *error = *problem;
        return false;
    }
    const auto hash = hashPassword(password);
    if (!hash) {
        *error = QStringLiteral("not enough memory to hash the password");
        return false;
    }
    const auto q = m_db.exec(QStringLiteral("UPDATE users SET password_hash = ? WHERE name = ?"),
                             {*hash, name}, error);
    if (!q)
        return false;
    if (q->affected != 1) {
        *error = u"there is no user named " + name;
        return false;
    }
    // A new password ends every browser session; tokens stay, as the apps hold them.
    return m_db
        .exec(QStringLiteral(
                  "DELETE FROM sessions WHERE user_id = (SELECT id FROM users WHERE name = ?)"),
              {name}, error)
        .has_value();
}

bool Accounts::removeUser(const QString& name, QString* error)
{
    // The foreign keys take the user's tokens, sessions and resources along.
    const auto q = m_db.exec(QStringLiteral("DELETE FROM users WHERE name = ?"), {name}, error);
    if (!q)
        return false;
    if (q->affected != 1) {
        *error = u"there is no user named " + name;
        return false;
    }
    return true;
}

std::optional<Accounts::User> Accounts::user(const QString& name, QString* error)
{
    const auto q =
        m_db.exec(QStringLiteral("SELECT id, name FROM users WHERE name = ?"), {name}, error);
    if (!q || q->rows.isEmpty())
        return std::nullopt;
    return User{q->rows[0][0].toLongLong(), q->rows[0][1].toString()};
}

QList<Accounts::User> Accounts::users(QString* error)
{
    const auto q = m_db.exec(QStringLiteral("SELECT id, name FROM users ORDER BY name"), {}, error);
    QList<User> out;
    for (const QVariantList& row : q ? q->rows : QList<QVariantList>())
        out.append({row[0].toLongLong(), row[1].toString()});
    return out;
}

Lookup<Accounts::User> Accounts::checkPassword(const QString& name, const QString& password)
{
    const auto q = m_db.exec(
        QStringLiteral("SELECT id, name, password_hash FROM users WHERE name = ?"), {name});
    if (!q)
        return Lookup<User>::failed();
    std::optional<User> who;
    QByteArray hash;
    if (q && !q->rows.isEmpty()) {
        who = User{q->rows[0][0].toLongLong(), q->rows[0][1].toString()};
        hash = q->rows[0][2].toString().toLatin1();
    }
    // An unknown name costs a hash as well, so timing tells nobody which names exist.
    static const QByteArray decoy = hashPassword(randomSecret(16)).value_or(QString()).toLatin1();
    if (!who)
        hash = decoy;
    const QByteArray utf8 = password.toUtf8();
    static QSemaphore checks(2);
    checks.acquire();
    const QSemaphoreReleaser release(checks);
    const bool match =
        !hash.isEmpty() &&
        crypto_pwhash_str_verify(hash.constData(), utf8.constData(), size_t(utf8.size())) == 0;
    return match && who ? Lookup<User>::found(*who) : Lookup<User>::missing();
}

std::optional<QString> Accounts::createToken(qint64 userId, const QString& label, QString* error)
{
    const QString token = u"tw_" + randomSecret(tokenBytes);
    if (!m_db.exec(
            QStringLiteral("INSERT INTO tokens (user_id, token_hash, label, created_at) "
                           "VALUES (?, ?, ?, ?)"),
            {userId, hashOf(token.toLatin1()), label.left(100), m_clock.now().toMSecsSinceEpoch()},
            error))
        return std::nullopt;
    return token;
}

QList<Accounts::Token> Accounts::tokens(qint64 userId, QString* error)
{
    const auto q = m_db.exec(QStringLiteral("SELECT id, label, created_at, last_used_at "
                                            "FROM tokens WHERE user_id = ? ORDER BY id"),
                             {userId}, error);
    QList<Token> out;
    for (const QVariantList& row : q ? q->rows : QList<QVariantList>())
        out.append({row[0].toLongLong(), row[1].toString(), fromMs(row[2]), fromMs(row[3])});
    return out;
}

bool Accounts::revokeToken(qint64 id, std::optional<qint64> owner, QString* error)
{
    const auto q =
        owner ? m_db.exec(QStringLiteral("DELETE FROM tokens WHERE id = ? AND user_id = ?"),
                          {id, *owner}, error)
              : m_db.exec(QStringLiteral("DELETE FROM tokens WHERE id = ?"), {id}, error);
    if (!q)
        return false;
    if (q->affected != 1) {
        *error = QStringLiteral("there is no token %1").arg(id);
        return false;
    }
    return true;
}

Lookup<qint64> Accounts::authenticate(QByteArrayView token)
{
    if (!plausibleToken(token))
        return Lookup<qint64>::missing();
    const auto q = m_db.exec(
        QStringLiteral("SELECT id, user_id, last_used_at FROM tokens WHERE token_hash = ?"),
        {hashOf(token)});
    if (!q)
        return Lookup<qint64>::failed();
    if (q->rows.isEmpty())
        return Lookup<qint64>::missing();
    noteUse(q->rows[0][0].toLongLong(), q->rows[0][2]);
    return Lookup<qint64>::found(q->rows[0][1].toLongLong());
}

void Accounts::noteUse(qint64 id, const QVariant& lastUsed)
{
    const qint64 now = m_clock.now().toMSecsSinceEpoch();
    if (lastUsed.isNull() || now - lastUsed.toLongLong() >= lastUsedGranularityMs)
        // A missed note of use is no reason to refuse the request.
        m_db.exec(QStringLiteral("UPDATE tokens SET last_used_at = ? WHERE id = ?"), {now, id});
}
