#include "HttpResponseWriter.h"

#include <QHash>

#include <cstdio>

bool HttpResponseWriter::isSafeHeader(QByteArrayView name, QByteArrayView value)
{
    if (name.isEmpty())
        return false;
    for (const char c : name) {
        const bool token = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                           (c >= '0' && c <= '9') || QByteArrayView("!#$%&'*+-.^_`|~").contains(c);
        if (!token)
            return false;
    }
    for (const char c : value) {
        const auto u = uchar(c);
        if ((u < 0x20 && u != '\t') || u == 0x7f)
            return false;
    }
    return true;
}

QByteArray HttpResponseWriter::reasonPhrase(int status)
{
    static const QHash<int, QByteArray> phrases{
        {100, "Continue"},
        {200, "OK"},
        {201, "Created"},
        {204, "No Content"},
        {303, "See Other"},
        {304, "Not Modified"},
        {400, "Bad Request"},
        {401, "Unauthorized"},
        {403, "Forbidden"},
        {404, "Not Found"},
        {405, "Method Not Allowed"},
        {408, "Request Timeout"},
        {409, "Conflict"},
        {411, "Length Required"},
        {412, "Precondition Failed"},
        {413, "Payload Too Large"},
        {415, "Unsupported Media Type"},
        {417, "Expectation Failed"},
        {429, "Too Many Requests"},
        {431, "Request Header Fields Too Large"},
        {500, "Internal Server Error"},
        {503, "Service Unavailable"},
        {505, "HTTP Version Not Supported"},
    };
    return phrases.value(status, "Unknown");
}

QByteArray HttpResponseWriter::write(const HttpAnswer& answer, bool headRequest, bool keepAlive)
{
    bool safe = answer.status >= 200 && answer.status <= 599 &&
                isSafeHeader("Content-Type", answer.contentType);
    for (const auto& [name, value] : answer.headers) {
        if (!isSafeHeader(name, value)) {
            safe = false;
            break;
        }
    }
    if (!safe) {
        std::fprintf(stderr, "tidewell-server: refused to send an answer with an unsafe status "
                             "or header; sent 500 instead\n");
        return write(HttpAnswer::error(500, QStringLiteral("internal error")), headRequest,
                     keepAlive);
    }
    QByteArray out;
    out.reserve(160 + answer.body.size());
    out += "HTTP/1.1 " + QByteArray::number(answer.status) + ' ' + reasonPhrase(answer.status) +
           "\r\n";
    if (!answer.contentType.isEmpty())
        out += "Content-Type: " + answer.contentType + "\r\n";
    // A 304 has no body by definition, and a length there would claim the 200's.
    if (answer.status != 304)
        out += "Content-Length: " + QByteArray::number(answer.body.size()) + "\r\n";
    for (const auto& [name, value] : answer.headers)
        out += name + ": " + value + "\r\n";
    if (!keepAlive)
        out += "Connection: close\r\n";
    out += "\r\n";
    if (!headRequest)
        out += answer.body;
    return out;
}
