#pragma once

#include "HttpTransport.h"

#include <QNetworkAccessManager>
#include <QObject>

// HTTP through Qt Network, built as a module of its own.
class QtHttpTransport final : public QObject, public HttpTransport
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID HttpTransport_iid)
    Q_INTERFACES(HttpTransport)

public:
    QCoro::Task<HttpReply> send(HttpRequest request, QPointer<QObject> scope) override;

private:
    QNetworkAccessManager m_network;
};
