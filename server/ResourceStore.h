#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QVariant>

#include "Lookup.h"

#include <array>
#include <optional>

class Clock;
class ServerDatabase;

// Each user's three resources, stored whole as the app sends them, with the
// versions before the current one kept so that an operator can undo a bad push.
class ResourceStore
{
public:
    enum class Kind { Habits, Tasks, Pomodoro };
    static constexpr int KeptVersions = 20; // besides the current one

    struct Version
    {
        qint64 number = 0;
        QDateTime createdAt;
        qint64 bytes = 0;
        bool current = false;
    };

    ResourceStore(ServerDatabase& db, const Clock& clock);

    static std::optional<Kind> kindNamed(QStringView name);
    static QString nameOf(Kind kind);

    // The owner of a bearer token (by its hash) with their current body of `kind`,
    // in one statement: an app's pull is the hot path, and on PostgreSQL each
    // statement is a round trip.
    struct Owned
    {
        qint64 tokenId = 0;
        qint64 userId = 0;
        QVariant lastUsed; // the token's
        std::optional<QByteArray> body;
        qint64 version = 0;   // 0 until the first store
        QDateTime storedAt{}; // when the current version was stored; invalid before
    };
    Lookup<Owned> currentByToken(const QString& tokenHash, Kind kind);
    // The owner of a bearer token with the current version of each kind (by
    // Kind's order; 0 for one never stored), in one statement.
    struct OwnedVersions
    {
        qint64 tokenId = 0;
        qint64 userId = 0;
        QVariant lastUsed;
        std::array<qint64, 3> versions{};
    };
    Lookup<OwnedVersions> versionsByToken(const QString& tokenHash);
    // The current body; absent when the user never stored one. False on a
    // database failure.
    bool current(qint64 userId, Kind kind, std::optional<QByteArray>* body, QString* error);
    // What a store did: the new version, or with `stale` the current one, which
    // was not `ifVersion`, and nothing written.
    struct Written
    {
        bool stale = false;
        qint64 version = 0;
    };
    // Stores `body` as the new current version, in one transaction, and forgets
    // versions older than the kept ones; with `ifVersion` only when that is still
    // the current version (0: none stored yet). Absent on a database failure.
    std::optional<Written> put(qint64 userId, Kind kind, const QByteArray& body, QString* error,
                               std::optional<qint64> ifVersion = std::nullopt);
    // The current version: 0 when none was stored; absent on a database failure.
    std::optional<qint64> currentVersion(qint64 userId, Kind kind, QString* error)
    {
        return headVersion(m_db, userId, kind, error);
    }
    // Newest first.
    QList<Version> history(qint64 userId, Kind kind, QString* error);
    // Makes a copy of version `number` the current one.
    bool restore(qint64 userId, Kind kind, qint64 number, QString* error);

private:
    // The current version; 0 when none was stored.
    std::optional<qint64> headVersion(ServerDatabase& db, qint64 userId, Kind kind, QString* error);
    std::optional<Written> store(ServerDatabase& db, qint64 userId, Kind kind,
                                 const QByteArray& body, std::optional<qint64> ifVersion,
                                 QString* error);

    ServerDatabase& m_db;
    const Clock& m_clock;
};
