#pragma once

#include "HttpAnswer.h"
#include "HttpCall.h"
#include "HttpRequestParser.h"

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>

#include <functional>

class QAbstractSocket;
class QTimer;
class TrustedProxies;

// One client connection on the accepting thread: reads requests off the socket,
// hands each whole one on (one at a time, answers in order), writes the answer
// back, and cuts off a client that idles, sends too slowly or too much.
class HttpConnection final : public QObject
{
    Q_OBJECT

public:
    struct Timeouts
    {
        int idleMs = 30'000;    // between requests
        int requestMs = 20'000; // for a request to arrive whole
    };
    using Dispatch = std::function<void(quint64 id, HttpCall call)>;

    HttpConnection(quint64 id, QAbstractSocket* socket, HttpRequestParser::Limits limits,
                   Timeouts timeouts, const TrustedProxies& proxies, Dispatch dispatch,
                   QObject* parent);
    ~HttpConnection() override;

    quint64 id() const { return m_id; }
    // The answer to the request handed on last.
    void answer(const HttpAnswer& answer);
    // Stops after the request under way (at once when there is none).
    void closeWhenIdle();
    bool busy() const { return m_inFlight || m_parser.midRequest() || !m_buffer.isEmpty(); }
    void setAccessLog(bool on) { m_accessLog = on; }

signals:
    void closed(quint64 id);

private:
    void readIncoming();
    void process();
    // Answers `status` and closes; nothing more is read.
    void refuse(int status, const QString& reason);
    void armIdle();
    void armRequest();

    const quint64 m_id;
    QPointer<QAbstractSocket> m_socket;
    HttpRequestParser m_parser;
    const Timeouts m_timeouts;
    const TrustedProxies& m_proxies;
    const Dispatch m_dispatch;
    QTimer* m_timer;
    QByteArray m_buffer;
    bool m_inFlight = false;
    bool m_keepAlive = true;
    bool m_head = false;
    bool m_closing = false;
    bool m_continueSent = false;
    bool m_accessLog = false;
    // For the access log: what the request in flight was and since when.
    QByteArray m_logRequest;
    QString m_logClient;
    QElapsedTimer m_started;
};
