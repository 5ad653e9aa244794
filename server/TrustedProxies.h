#pragma once

#include "HttpCall.h"

#include <QHostAddress>
#include <QList>
#include <QStringList>

#include <optional>

// The reverse proxies whose word on the client is taken: only a request whose
// peer is one of them has its X-Forwarded-For / X-Forwarded-Proto or Forwarded
// headers read (anyone else could write them). The client is the nearest address
// in the chain that is not itself a trusted proxy.
class TrustedProxies
{
public:
    TrustedProxies() = default;
    // "ADDRESS" or "ADDRESS/BITS" each; absent, with the reason, when one is not.
    static std::optional<TrustedProxies> parse(const QStringList& entries, QString* error);

    bool isEmpty() const { return m_subnets.isEmpty(); }
    bool trusts(const QHostAddress& address) const;
    // Sets `client` and, for a trusted peer, `secure` from the forwarding headers.
    void resolve(HttpCall& call) const;

private:
    QList<std::pair<QHostAddress, int>> m_subnets;
};
