#include "HttpRequestParser.h"

#include <QUrl>

namespace {
constexpr int maxHeaderLines = 100;

bool isTokenChar(char c)
{
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'))
        return true;
    return QByteArrayView("!#$%&'*+-.^_`|~").contains(c);
}

bool isToken(QByteArrayView text)
{
    if (text.isEmpty())
        return false;
    for (const char c : text) {
        if (!isTokenChar(c))
            return false;
    }
    return true;
}

// Field values may hold visible characters, spaces, tabs and bytes of UTF-8.
bool isFieldValue(QByteArrayView text)
{
    for (const char c : text) {
        const auto u = uchar(c);
        if ((u < 0x20 && u != '\t') || u == 0x7f)
            return false;
    }
    return true;
}

QByteArrayView trimmedOws(QByteArrayView v)
{
    while (!v.isEmpty() && (v.front() == ' ' || v.front() == '\t'))
        v = v.sliced(1);
    while (!v.isEmpty() && (v.back() == ' ' || v.back() == '\t'))
        v.chop(1);
    return v;
}

bool hasToken(QByteArrayView list, QByteArrayView token)
{
    for (const QByteArray& part : list.toByteArray().split(',')) {
        if (part.trimmed().compare(token, Qt::CaseInsensitive) == 0)
            return true;
    }
    return false;
}
} // namespace

HttpRequestParser::Step HttpRequestParser::refuse(int status, const QString& reason)
{
    m_refusalStatus = status;
    m_refusalReason = reason;
    return Step::Refuse;
}

HttpRequestParser::Step HttpRequestParser::next(QByteArray& buffer)
{
    if (!m_headDone) {
        // Empty lines before a request line are allowed (and skipped).
        qsizetype skip = 0;
        while (buffer.size() >= skip + 2 && buffer.at(skip) == '\r' && buffer.at(skip + 1) == '\n')
            skip += 2;
        if (skip > 0) {
            buffer.remove(0, skip);
            m_scanFrom = 0;
        }
        const qsizetype end = buffer.indexOf("\r\n\r\n", std::max<qsizetype>(0, m_scanFrom - 3));
        if (end < 0) {
            m_scanFrom = buffer.size();
            if (buffer.size() > m_limits.maxHeaderBytes)
                return refuse(431, QStringLiteral("request headers too large"));
            return Step::NeedMore;
        }
        if (end > m_limits.maxHeaderBytes)
            return refuse(431, QStringLiteral("request headers too large"));
        m_call = HttpCall();
        m_expectContinue = false;
        if (!parseHead(QByteArrayView(buffer).first(end)))
            return Step::Refuse;
        buffer.remove(0, end + 4);
        m_scanFrom = 0;
        m_headDone = true;
        if (m_contentLength > m_limits.maxBodyBytes)
            return refuse(413, QStringLiteral("request body too large"));
    }
    if (buffer.size() < m_contentLength)
        return Step::NeedMore;
    m_call.body = buffer.left(m_contentLength);
    buffer.remove(0, m_contentLength);
    m_headDone = false;
    m_expectContinue = false;
    return Step::Request;
}

bool HttpRequestParser::parseHead(QByteArrayView head)
{
    QList<QByteArrayView> lines;
    for (qsizetype from = 0;;) {
        const qsizetype at = head.indexOf("\r\n", from);
        lines.append(head.sliced(from, (at < 0 ? head.size() : at) - from));
        if (at < 0)
            break;
        from = at + 2;
    }
    if (lines.size() > maxHeaderLines + 1) {
        refuse(431, QStringLiteral("too many request headers"));
        return false;
    }
    const std::optional<QByteArrayView> version = parseRequestLine(lines.first());
    if (!version)
        return false;
    m_keepAlive = *version == "HTTP/1.1";

    Seen seen;
    for (qsizetype i = 1; i < lines.size(); ++i) {
        if (!parseHeader(lines.at(i), seen))
            return false;
    }
    if (!seen.length)
        m_contentLength = 0;
    if (!seen.host && *version == "HTTP/1.1")
        return bad(QStringLiteral("no Host header"));
    return true;
}

bool HttpRequestParser::bad(const QString& why)
{
    refuse(400, why);
    return false;
}

std::optional<QByteArrayView> HttpRequestParser::parseRequestLine(QByteArrayView line)
{
    // METHOD SP target SP HTTP/1.x
    const qsizetype sp1 = line.indexOf(' ');
    const qsizetype sp2 = sp1 < 0 ? -1 : line.indexOf(' ', sp1 + 1);
    if (sp1 <= 0 || sp2 < 0 || line.indexOf(' ', sp2 + 1) >= 0)
        return refusal(QStringLiteral("malformed request line"));
    const QByteArrayView method = line.first(sp1);
    const QByteArrayView target = line.sliced(sp1 + 1, sp2 - sp1 - 1);
    const QByteArrayView version = line.sliced(sp2 + 1);
    if (!isToken(method))
        return refusal(QStringLiteral("malformed method"));
    if (version != "HTTP/1.1" && version != "HTTP/1.0") {
        if (version.startsWith("HTTP/")) {
            refuse(505, QStringLiteral("only HTTP/1.1 is served"));
            return std::nullopt;
        }
        return refusal(QStringLiteral("malformed request line"));
    }
    if (!target.startsWith('/'))
        return refusal(QStringLiteral("the request target must be a path"));
    for (const char c : target) {
        if (uchar(c) <= 0x20 || uchar(c) >= 0x7f)
            return refusal(QStringLiteral("the request target holds characters a URL may not"));
    }
    m_call.method = method.toByteArray().toUpper();
    const qsizetype question = target.indexOf('?');
    m_call.path =
        QUrl::fromPercentEncoding((question < 0 ? target : target.first(question)).toByteArray());
    if (question >= 0)
        m_call.query = QUrlQuery(QString::fromLatin1(target.sliced(question + 1)));
    return version;
}

std::nullopt_t HttpRequestParser::refusal(const QString& why)
{
    bad(why);
    return std::nullopt;
}

bool HttpRequestParser::parseHeader(QByteArrayView line, Seen& seen)
{
    const qsizetype colon = line.indexOf(':');
    // No folded lines and no space before the colon: both are read two ways.
    if (colon <= 0 || !isToken(line.first(colon)))
        return bad(QStringLiteral("malformed header line"));
    const QByteArrayView name = line.first(colon);
    const QByteArrayView value = trimmedOws(line.sliced(colon + 1));
    if (!isFieldValue(value))
        return bad(QStringLiteral("a header holds a control character"));
    m_call.headers.append({name.toByteArray(), value.toByteArray()});

    if (name.compare("Content-Length", Qt::CaseInsensitive) == 0) {
        bool ok = value.size() > 0 && value.size() <= 15;
        for (const char c : value)
            ok = ok && c >= '0' && c <= '9';
        const qint64 length = ok ? value.toLongLong(&ok) : -1;
        if (!ok || (seen.length && length != m_contentLength))
            return bad(QStringLiteral("malformed Content-Length"));
        m_contentLength = length;
        seen.length = true;
    } else if (name.compare("Transfer-Encoding", Qt::CaseInsensitive) == 0) {
        refuse(411, QStringLiteral("send the body with a Content-Length"));
        return false;
    } else if (name.compare("Host", Qt::CaseInsensitive) == 0) {
        if (seen.host)
            return bad(QStringLiteral("more than one Host header"));
        seen.host = true;
    } else if (name.compare("Connection", Qt::CaseInsensitive) == 0) {
        if (hasToken(value, "close"))
            m_keepAlive = false;
        else if (hasToken(value, "keep-alive"))
            m_keepAlive = true;
    } else if (name.compare("Expect", Qt::CaseInsensitive) == 0) {
        if (value.compare("100-continue", Qt::CaseInsensitive) != 0) {
            refuse(417, QStringLiteral("only 100-continue is understood"));
            return false;
        }
        m_expectContinue = true;
    }
    return true;
}
