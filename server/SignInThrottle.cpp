#include "SignInThrottle.h"

#include "Clock.h"

QString SignInThrottle::bucketOf(const QHostAddress& address)
{
    bool v4 = false;
    const quint32 ipv4 = address.toIPv4Address(&v4); // also an IPv4-mapped IPv6 address
    if (v4)
        return QHostAddress(ipv4).toString();
    if (address.protocol() != QAbstractSocket::IPv6Protocol)
        return address.toString();
    Q_IPV6ADDR bytes = address.toIPv6Address();
    std::fill(std::begin(bytes.c) + 8, std::end(bytes.c), quint8(0));
    return QHostAddress(bytes).toString() + u"/64";
}

QString SignInThrottle::keyOf(const QString& account, const QHostAddress& client)
{
    return account.toLower() + u'\n' + bucketOf(client);
}

qint64 SignInThrottle::waitSeconds(const QString& account, const QHostAddress& client)
{
    const qint64 now = m_clock.now().toMSecsSinceEpoch();
    const std::lock_guard<std::mutex> hold(m_mutex);
    const auto it = m_entries.constFind(keyOf(account, client));
    if (it == m_entries.cend() || it->blockedUntilMs <= now)
        return 0;
    return (it->blockedUntilMs - now + 999) / 1000;
}

void SignInThrottle::failed(const QString& account, const QHostAddress& client)
{
    const qint64 now = m_clock.now().toMSecsSinceEpoch();
    const QString key = keyOf(account, client);
    const std::lock_guard<std::mutex> hold(m_mutex);
    auto it = m_entries.find(key);
    if (it == m_entries.end()) {
        if (m_entries.size() >= m_capacity) {
            m_entries.remove(m_byAge.front());
            m_byAge.pop_front();
        }
        it = m_entries.insert(key, Entry{});
        it->age = m_byAge.insert(m_byAge.end(), key);
    } else {
        m_byAge.splice(m_byAge.end(), m_byAge, it->age);
    }
    Entry& e = *it;
    if (now - e.lastFailureMs >= ForgetAfterMs)
        e.failures = 0;
    e.lastFailureMs = now;
    ++e.failures;
    if (e.failures > FreeFailures) {
        const int doublings = std::min(e.failures - FreeFailures - 1, 20);
        e.blockedUntilMs = now + std::min<qint64>(1000LL << doublings, MaxWaitMs);
    }
}

void SignInThrottle::succeeded(const QString& account, const QHostAddress& client)
{
    const std::lock_guard<std::mutex> hold(m_mutex);
    const auto it = m_entries.find(keyOf(account, client));
    if (it == m_entries.end())
        return;
    m_byAge.erase(it->age);
    m_entries.erase(it);
}

int SignInThrottle::size() const
{
    const std::lock_guard<std::mutex> hold(m_mutex);
    return int(m_entries.size());
}
