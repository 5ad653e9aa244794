#pragma once

#include <QHash>
#include <QHostAddress>
#include <QString>

#include <list>
#include <mutex>

class Clock;

// Slows down password guessing for one account from one client: a few failures
// are free, then each one doubles the wait before the next try from that client,
// up to a quarter of an hour. Counted per (account, client) so that nobody can
// lock somebody else out: the right password from another address is never held
// back. IPv6 clients count by their /64, which one host usually has to itself.
// Kept in memory, per server process, shared by its threads; when the table is
// full the entry untouched longest goes.
class SignInThrottle
{
public:
    static constexpr int FreeFailures = 4;
    static constexpr qint64 MaxWaitMs = 15LL * 60 * 1000;
    // A client that stays away this long starts afresh.
    static constexpr qint64 ForgetAfterMs = 60LL * 60 * 1000;

    explicit SignInThrottle(const Clock& clock, int capacity = 100'000)
        : m_clock(clock)
        , m_capacity(capacity)
    {}

    // Seconds until `account` may be tried again from `client`; 0 when it may now.
    qint64 waitSeconds(const QString& account, const QHostAddress& client);
    void failed(const QString& account, const QHostAddress& client);
    void succeeded(const QString& account, const QHostAddress& client);
    int size() const;

    // The part of an address that names one client: IPv4 whole, IPv6 its /64.
    static QString bucketOf(const QHostAddress& address);

private:
    struct Entry
    {
        int failures = 0;
        qint64 lastFailureMs = 0;
        qint64 blockedUntilMs = 0;
        std::list<QString>::iterator age;
    };
    static QString keyOf(const QString& account, const QHostAddress& client);

    const Clock& m_clock;
    const int m_capacity;
    mutable std::mutex m_mutex;
    QHash<QString, Entry> m_entries;
    std::list<QString> m_byAge; // oldest failure first
};
