#include "SignInThrottle.h"

#include "Clock.h"

qint64 SignInThrottle::waitFor(const QString& key, qint64 now)
{
    const auto it = m_failures.find(key);
    if (it == m_failures.end())
        return 0;
    if (now - it->firstMs >= WindowMs) {
        m_failures.erase(it);
        return 0;
    }
    return it->count >= MaxFailures ? (it->firstMs + WindowMs - now + 999) / 1000 : 0;
}

qint64 SignInThrottle::waitSeconds(const QString& account, const QString& address)
{
    const qint64 now = m_clock.now().toMSecsSinceEpoch();
    return std::max(waitFor(u"user:" + account.toLower(), now), waitFor(u"addr:" + address, now));
}

void SignInThrottle::note(const QString& key, qint64 now)
{
    Failures& f = m_failures[key];
    if (f.count == 0 || now - f.firstMs >= WindowMs)
        f = {0, now};
    ++f.count;
}

void SignInThrottle::failed(const QString& account, const QString& address)
{
    const qint64 now = m_clock.now().toMSecsSinceEpoch();
    // A flood of made-up names must not grow the table without bound.
    if (m_failures.size() > 100'000)
        m_failures.clear();
    note(u"user:" + account.toLower(), now);
    note(u"addr:" + address, now);
}

void SignInThrottle::succeeded(const QString& account)
{
    m_failures.remove(u"user:" + account.toLower());
}
