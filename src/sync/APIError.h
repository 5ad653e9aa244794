#pragma once

#include <QString>

#include <optional>

// What went wrong talking to the web service, with the text shown to the user.
class APIError
{
public:
    enum class Kind { Http, Decoding, Transport, NotSignedIn, Unauthorized };

    // A non-2xx status other than 401; `body` is absent when it was not UTF-8.
    static APIError http(qint64 status, std::optional<QString> body);
    static APIError decoding(const QString& reason);
    static APIError transport(const QString& reason);
    static APIError notSignedIn();
    static APIError unauthorized();

    Kind kind() const { return m_kind; }
    qint64 status() const { return m_status; }
    std::optional<QString> body() const { return m_body; }
    // The underlying decoding or transport reason.
    QString reason() const { return m_reason; }

    QString errorDescription() const;

private:
    explicit APIError(Kind kind)
        : m_kind(kind)
    {}

    Kind m_kind;
    qint64 m_status = 0;
    std::optional<QString> m_body;
    QString m_reason;
};
