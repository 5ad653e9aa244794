#include "APIError.h"

APIError APIError::http(qint64 status, std::optional<QString> body)
{
    APIError e(Kind::Http);
    e.m_status = status;
    e.m_body = std::move(body);
    return e;
}

APIError APIError::decoding(const QString& reason)
{
    APIError e(Kind::Decoding);
    e.m_reason = reason;
    return e;
}

APIError APIError::transport(const QString& reason)
{
    APIError e(Kind::Transport);
    e.m_reason = reason;
    return e;
}

APIError APIError::notSignedIn()
{
    return APIError(Kind::NotSignedIn);
}

APIError APIError::unauthorized()
{
    return APIError(Kind::Unauthorized);
}

QString APIError::errorDescription() const
{
    switch (m_kind) {
    case Kind::Http:
        if (m_body)
            return u"HTTP " + QString::number(m_status) + u": " + *m_body;
        return u"HTTP " + QString::number(m_status);
    case Kind::Decoding:
        return u"Decoding failed: " + m_reason;
    case Kind::Transport:
        return u"Network error: " + m_reason;
    case Kind::NotSignedIn:
        return QStringLiteral("Not signed in");
    case Kind::Unauthorized:
        return QStringLiteral("Token rejected by server");
    }
    return {};
}
