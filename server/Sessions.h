#pragma once

#include "Lookup.h"

#include <QString>

#include <optional>

class Clock;
class ServerDatabase;

// Browser sessions of the web pages and their one-time forms. The cookie holds a
// random value; the database only its hash. Every session has a CSRF token that
// each of its forms must carry back.
class Sessions
{
public:
    static constexpr qint64 LifetimeMs = 14LL * 24 * 3600 * 1000;
    static constexpr qint64 FormLifetimeMs = 15LL * 60 * 1000;

    struct Session
    {
        QString cookie; // the value in the browser's cookie
        qint64 userId = 0;
        QString userName;
        QString csrf;
    };

    Sessions(ServerDatabase& db, const Clock& clock);

    std::optional<Session> start(qint64 userId, QString* error);
    // The live session behind a cookie value.
    Lookup<Session> find(const QString& cookie);
    void end(const QString& cookie);

    // A form that may be sent once, for `purpose` (what it will do), in this session.
    std::optional<QString> issueForm(const Session& session, const QString& purpose);
    // Uses the form up; false when it is unknown, used, expired, of another session
    // or for another purpose.
    bool useForm(const Session& session, const QString& nonce, const QString& purpose);

private:
    ServerDatabase& m_db;
    const Clock& m_clock;
};
