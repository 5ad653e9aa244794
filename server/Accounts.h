#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>

#include "Lookup.h"

#include <optional>

class Clock;
class ServerDatabase;

// The people who may sync, their passwords (only as Argon2id hashes) and their
// API tokens (256-bit random values, kept only as SHA-256 hashes: a copy of the
// database lets nobody in).
class Accounts
{
public:
    struct User
    {
        qint64 id = 0;
        QString name;
    };
    struct Token
    {
        qint64 id = 0;
        QString label;
        QDateTime createdAt;
        QDateTime lastUsedAt; // invalid: never used
    };

    Accounts(ServerDatabase& db, const Clock& clock);

    // Letters, digits, ".", "_" and "-", 1 to 64 of them; the reason when not.
    static std::optional<QString> nameProblem(const QString& name);
    static std::optional<QString> passwordProblem(const QString& password);

    bool addUser(const QString& name, const QString& password, QString* error);
    bool setPassword(const QString& name, const QString& password, QString* error);
    // Removes the user with every token, session and stored resource.
    bool removeUser(const QString& name, QString* error);
    std::optional<User> user(const QString& name, QString* error = nullptr);
    QList<User> users(QString* error = nullptr);
    // The user when the password is theirs. Takes as long for an unknown name. At
    // most two checks run at once in a process: each takes 19 MiB for its moment.
    Lookup<User> checkPassword(const QString& name, const QString& password);

    // A new token for the user, returned this once and never stored as it is.
    std::optional<QString> createToken(qint64 userId, const QString& label, QString* error);
    QList<Token> tokens(qint64 userId, QString* error = nullptr);
    // Revokes token `id`; with `owner`, only when it belongs to that user.
    bool revokeToken(qint64 id, std::optional<qint64> owner, QString* error);
    // The user a bearer token belongs to. Notes when it was last used.
    Lookup<qint64> authenticate(QByteArrayView token);
    // Whether a token is of a size worth looking up.
    static bool plausibleToken(QByteArrayView token)
    {
        return !token.isEmpty() && token.size() <= 256;
    }
    // Notes that token `id`, last used at `lastUsed` (null: never), was used now;
    // written at most once a minute.
    void noteUse(qint64 id, const QVariant& lastUsed);

    static QString hashOf(QByteArrayView secret);
    // `bytes` secure random bytes, base64url without padding.
    static QString randomSecret(int bytes);

private:
    ServerDatabase& m_db;
    const Clock& m_clock;
};
