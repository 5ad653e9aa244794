#pragma once

#include "HttpAnswer.h"
#include "HttpCall.h"
#include "HttpConnection.h"

#include <QHash>
#include <QSslConfiguration>
#include <QTcpServer>

#include <functional>
#include <optional>

class TrustedProxies;

// The listening socket and the connections it accepted, all on one thread. Whole
// requests go to `dispatch` (the worker threads), whose answer may come back from
// any thread. Keeps one client from holding the server: caps on connections in
// all and per client address (trusted proxies exempt, they carry everyone),
// idle and slow-request timeouts, and header and body sizes checked before
// anything large is buffered. With a TLS configuration every connection is
// encrypted.
class HttpListener final : public QTcpServer
{
    Q_OBJECT

public:
    struct Limits
    {
        int maxConnections = 512;
        int idleMs = 30'000;
        int requestMs = 20'000;
        qint64 maxHeaderBytes = 32 * 1024;
        qint64 maxBodyBytes = 1024 * 1024;
        int maxPerAddress = 64;
    };
    using Reply = std::function<void(HttpAnswer)>;
    using Dispatch = std::function<void(HttpCall call, Reply reply)>;

    HttpListener(Limits limits, const TrustedProxies& proxies, Dispatch dispatch,
                 QObject* parent = nullptr);

    void setTls(const QSslConfiguration& tls) { m_tls = tls; }
    void setAccessLog(bool on) { m_accessLog = on; }
    int openConnections() const { return int(m_connections.size()); }

    // Stops accepting and lets open connections finish their request; emits
    // drained() when none is left (or after `graceMs`).
    void drain(int graceMs);

signals:
    void drained();

protected:
    void incomingConnection(qintptr descriptor) override;

private:
    void deliver(quint64 id, const HttpAnswer& answer);
    void forget(quint64 id);
    void checkDrained();

    const Limits m_limits;
    const TrustedProxies& m_proxies;
    const Dispatch m_dispatch;
    // Only made when TLS is asked for: a configuration loads the TLS library.
    std::optional<QSslConfiguration> m_tls;
    QHash<quint64, HttpConnection*> m_connections;
    QHash<QString, int> m_perAddress;
    QHash<quint64, QString> m_addressOf;
    quint64 m_nextId = 1;
    bool m_accessLog = false;
    bool m_draining = false;
    bool m_drainedSent = false;
};
