#include "BrowserPolicy.h"

BrowserPolicy::BrowserPolicy(QString publicOrigin)
    : m_publicOrigin(std::move(publicOrigin))
{}

QString BrowserPolicy::cookie(const HttpCall& call, const QByteArray& base) const
{
    const QByteArray name = cookieName(call, base);
    for (const auto& [key, value] : call.headers) {
        if (key.compare("Cookie", Qt::CaseInsensitive) != 0)
            continue;
        for (const QByteArray& part : value.split(';')) {
            const QByteArray pair = part.trimmed();
            if (pair.startsWith(QByteArray(name + '=')))
                return QString::fromLatin1(pair.mid(name.size() + 1));
        }
    }
    return {};
}

bool BrowserPolicy::secureCookies(const HttpCall& call) const
{
    return call.secure || m_publicOrigin.startsWith(u"https:");
}

QByteArray BrowserPolicy::cookieName(const HttpCall& call, const QByteArray& base) const
{
    // __Host-: the browser takes it only Secure, for the whole host and from this
    // host itself, so a neighbouring subdomain cannot plant a session.
    return secureCookies(call) ? "__Host-" + base : base;
}

QByteArray BrowserPolicy::setCookie(const HttpCall& call, const QByteArray& base,
                                    const QString& value, qint64 maxAgeS) const
{
    return cookieName(call, base) + '=' + value.toLatin1() +
           "; Path=/; Max-Age=" + QByteArray::number(maxAgeS) + "; HttpOnly; SameSite=Lax" +
           (secureCookies(call) ? "; Secure" : "");
}

bool BrowserPolicy::fromElsewhere(const HttpCall& call) const
{
    const QByteArray origin = call.header("Origin");
    if (origin.isNull())
        return false; // not a browser that says; the form's own tokens still guard it
    const QString expected =
        !m_publicOrigin.isEmpty()
            ? m_publicOrigin
            : (call.secure ? u"https://" : u"http://") + QString::fromLatin1(call.header("Host"));
    return QString::fromLatin1(origin).compare(expected, Qt::CaseInsensitive) != 0;
}
