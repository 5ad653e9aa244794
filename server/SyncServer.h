#pragma once

#include "ChangeFeed.h"
#include "Clock.h"
#include "HttpAnswer.h"
#include "HttpCall.h"
#include "HttpListener.h"
#include "OutageLog.h"
#include "RequestHandler.h"
#include "ServerDatabase.h"
#include "SignInThrottle.h"
#include "TrustedProxies.h"

#include <QHostAddress>
#include <QObject>
#include <QPointer>
#include <QStringList>

#include <memory>

class Accounts;
class RequestPool;
class ResourceStore;

// One tidewell-server: the database, the threads that answer requests, and the
// listening socket in front of them.
class SyncServer final : public QObject
{
    Q_OBJECT

public:
    struct Options
    {
        ServerDatabase::Settings database;
        QHostAddress address = QHostAddress::LocalHost;
        quint16 port = 8080;
        QString tlsCertificate; // PEM files; both or neither
        QString tlsKey;
        HttpListener::Limits limits;
        QStringList schemes{QStringLiteral("tidewell")}; // app URL schemes sign-in may call back
        // Where browsers reach the server, e.g. "https://sync.example.org"; empty when
        // they reach it directly.
        QString publicUrl;
        QStringList trustedProxies; // "ADDRESS[/BITS]" whose forwarding headers count
        bool accessLog = false;
        int threads = 0;     // request threads; 0: twice the cores, at least 4
        Clock::Source clock; // empty: the system clock
        // How long GET /api/v1/changes waits for a change before it answers 304.
        std::chrono::milliseconds changesPatience{60'000};
    };

    // Checks the options and opens the database; nothing listens yet.
    static std::unique_ptr<SyncServer> create(const Options& options, QString* error);
    ~SyncServer() override;

    // Why an app URL scheme may not be called back ("http", "javascript", …), if so.
    static std::optional<QString> schemeProblem(const QString& scheme);

    // Starts the threads and accepts connections; false with the reason when it cannot.
    bool listen(QString* error);
    quint16 port() const;
    // Stops accepting, lets requests under way finish, then emits stopped().
    void shutdown();

    // Routes one request on the calling thread; what tests and fuzzers call
    // without a socket.
    HttpAnswer handle(const HttpCall& call);

    ServerDatabase& database() { return m_main->database(); }
    Accounts& accounts() { return m_main->accounts(); }
    ResourceStore& resources() { return m_main->resources(); }
    // Clients waiting on /api/v1/changes, and connections open in all.
    int waitingForChanges() const { return m_feed.waiting(); }
    int openConnections() const { return m_listener ? m_listener->openConnections() : 0; }

signals:
    void stopped();

private:
    SyncServer(Options options, TrustedProxies proxies, QString publicOrigin);

    Options m_options;
    Clock m_clock;
    TrustedProxies m_proxies;
    SignInThrottle m_throttle;
    OutageLog m_outages;
    ChangeFeed m_feed;
    RequestHandler::Shared m_shared;
    std::unique_ptr<RequestHandler> m_main;
    std::unique_ptr<RequestPool> m_pool;
    QPointer<HttpListener> m_listener;
};
