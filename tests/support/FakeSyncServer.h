#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QPair>
#include <QUrl>

class QTcpServer;
class QTcpSocket;

// A small HTTP/1.1 responder on 127.0.0.1 for tests. It records every request
// and answers each method and path with a canned response: any status, body and
// headers, after a delay, or by dropping the connection.
class FakeSyncServer final : public QObject
{
    Q_OBJECT

public:
    struct Request
    {
        QByteArray method;
        QString path;  // without the query
        QString query; // encoded, without "?"
        QList<QPair<QByteArray, QByteArray>> headers;
        QByteArray body;

        bool hasHeader(const QByteArray& name) const;
        // The first header of that name (case-insensitive); empty when missing.
        QByteArray header(const QByteArray& name) const;
    };

    struct Response
    {
        int status = 200;
        QByteArray body;
        QList<QPair<QByteArray, QByteArray>> headers;
        int delayMs = 0;
        // Close the connection without answering.
        bool drop = false;
        // Send the body one byte every so many milliseconds.
        int trickleMs = 0;

        static Response json(int status, const QByteArray& body);
    };

    explicit FakeSyncServer(QObject* parent = nullptr);
    ~FakeSyncServer() override;

    // "http://127.0.0.1:<port>"
    QUrl url() const;
    quint16 port() const;

    // Answers every later `method` request for `path` with `response`.
    void on(const QByteArray& method, const QString& path, const Response& response);
    // What unrouted requests get (404 with an empty body unless set).
    void setFallback(const Response& response) { m_fallback = response; }
    // Every GET and PUT of the three resources answered with empty data and ok.
    void serveEmptyAccount();

    const QList<Request>& requests() const { return m_requests; }
    QList<Request> requestsFor(const QByteArray& method, const QString& path) const;
    void clearRequests() { m_requests.clear(); }

signals:
    void requestReceived();

private:
    void readFrom(QTcpSocket* socket);
    void answer(QTcpSocket* socket, const Response& response);

    QTcpServer* m_server = nullptr;
    QHash<QTcpSocket*, QByteArray> m_buffers;
    QHash<QString, Response> m_routes;
    Response m_fallback{404, {}, {}, 0, false};
    QList<Request> m_requests;
};
