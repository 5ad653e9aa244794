#pragma once

#include <QDateTime>
#include <QHash>
#include <QString>

class Clock;

// Slows down password guessing: after a few failed sign-ins for one account or
// from one address within a window, further attempts are refused until it passes.
// Kept in memory, per server process.
class SignInThrottle
{
public:
    static constexpr int MaxFailures = 5;
    static constexpr qint64 WindowMs = 15LL * 60 * 1000;

    explicit SignInThrottle(const Clock& clock)
        : m_clock(clock)
    {}

    // Seconds until `account` from `address` may try again; 0 when it may now.
    qint64 waitSeconds(const QString& account, const QString& address);
    void failed(const QString& account, const QString& address);
    void succeeded(const QString& account);

private:
    struct Failures
    {
        int count = 0;
        qint64 firstMs = 0;
    };
    qint64 waitFor(const QString& key, qint64 now);
    void note(const QString& key, qint64 now);

    const Clock& m_clock;
    QHash<QString, Failures> m_failures;
};
