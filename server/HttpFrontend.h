#pragma once

#include "HttpAnswer.h"
#include "HttpCall.h"

#include <QAbstractHttpServer>
#include <QPointer>

#include <functional>

class ConnectionGuard;

// Qt's HTTP parser in front of the handlers: each parsed request becomes an
// HttpCall, and the handler's answer is written back on the same connection.
class HttpFrontend final : public QAbstractHttpServer
{
    Q_OBJECT

public:
    using Handler = std::function<HttpAnswer(const HttpCall&)>;

    explicit HttpFrontend(Handler handler, QObject* parent = nullptr);

    // Serves the connections `guard` accepts.
    void serve(ConnectionGuard* guard);

protected:
    bool handleRequest(const QHttpServerRequest& request, QTcpSocket* socket) override;
    void missingHandler(const QHttpServerRequest& request, QTcpSocket* socket) override;

private:
    Handler m_handler;
    QPointer<ConnectionGuard> m_guard;
};
