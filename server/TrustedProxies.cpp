#include "TrustedProxies.h"

namespace {
// Comma-separated values of every header of that name, in order.
QList<QByteArray> listHeader(const HttpCall& call, QByteArrayView name)
{
    QList<QByteArray> out;
    for (const auto& [key, value] : call.headers) {
        if (key.compare(name, Qt::CaseInsensitive) != 0)
            continue;
        for (const QByteArray& part : value.split(','))
            out.append(part.trimmed());
    }
    return out;
}

// An address as proxies write it: "1.2.3.4", "1.2.3.4:80", "[::1]:80", "\"[::1]\"".
QHostAddress addressOf(QByteArray text)
{
    text = text.trimmed();
    if (text.startsWith('"') && text.endsWith('"') && text.size() >= 2)
        text = text.mid(1, text.size() - 2);
    if (text.startsWith('[')) {
        const qsizetype end = text.indexOf(']');
        text = end > 0 ? text.mid(1, end - 1) : QByteArray();
    } else if (text.count(':') == 1) {
        text = text.left(text.indexOf(':'));
    }
    return QHostAddress(QString::fromLatin1(text));
}

QHostAddress plain(const QHostAddress& address)
{
    bool v4 = false;
    const quint32 ipv4 = address.toIPv4Address(&v4);
    return v4 ? QHostAddress(ipv4) : address;
}
} // namespace

std::optional<TrustedProxies> TrustedProxies::parse(const QStringList& entries, QString* error)
{
    TrustedProxies out;
    for (const QString& entry : entries) {
        std::pair<QHostAddress, int> subnet = QHostAddress::parseSubnet(entry);
        if (!entry.contains(u'/')) {
            const QHostAddress one(entry);
            subnet = {one, one.protocol() == QAbstractSocket::IPv4Protocol ? 32 : 128};
        }
        if (subnet.first.isNull()) {
            *error =
                u"--trusted-proxy takes ADDRESS or ADDRESS/BITS, not \u201c" + entry + u"\u201d";
            return std::nullopt;
        }
        out.m_subnets.append(subnet);
    }
    return out;
}

bool TrustedProxies::trusts(const QHostAddress& address) const
{
    const QHostAddress a = plain(address);
    for (const auto& subnet : m_subnets) {
        if (a.isInSubnet(subnet))
            return true;
    }
    return false;
}

void TrustedProxies::resolve(HttpCall& call) const
{
    call.client = plain(call.peer);
    if (m_subnets.isEmpty() || !trusts(call.peer))
        return;

    QList<QHostAddress> chain; // nearest last
    QByteArray proto;
    // X-Forwarded-For first: every common proxy writes it, while most pass a
    // client's own Forwarded header on untouched.
    const QList<QByteArray> forwardedFor = listHeader(call, "X-Forwarded-For");
    const QList<QByteArray> protos = listHeader(call, "X-Forwarded-Proto");
    if (!forwardedFor.isEmpty() || !protos.isEmpty()) {
        for (const QByteArray& hop : forwardedFor)
            chain.append(addressOf(hop));
        if (!protos.isEmpty())
            proto = protos.last().toLower();
    } else {
        for (const QByteArray& element : listHeader(call, "Forwarded")) {
            for (const QByteArray& pair : element.split(';')) {
                const qsizetype eq = pair.indexOf('=');
                const QByteArray key = pair.left(eq).trimmed().toLower();
                const QByteArray value = pair.mid(eq + 1).trimmed();
                if (key == "for")
                    chain.append(addressOf(value));
                else if (key == "proto")
                    proto = value.toLower().replace('"', "");
            }
        }
    }
    // From the nearest hop outwards, past every proxy we trust; an address that
    // cannot be read ends the walk, since nothing beyond it can be believed.
    for (qsizetype i = chain.size() - 1; i >= 0; --i) {
        if (chain.at(i).isNull())
            break;
        call.client = plain(chain.at(i));
        if (!trusts(chain.at(i)))
            break;
    }
    if (!proto.isEmpty())
        call.secure = proto == "https";
}
