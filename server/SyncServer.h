#pragma once

#include "Clock.h"
#include "ConnectionGuard.h"
#include "HttpAnswer.h"
#include "HttpCall.h"

#include <QHostAddress>
#include <QObject>
#include <QPointer>
#include <QStringList>

#include <memory>

class Accounts;
class ApiHandler;
class HttpFrontend;
class ResourceStore;
class ServerDatabase;
class Sessions;
class WebPages;

// One tidewell-server: the database, the accounts and resources over it, and the
// HTTP routes in front of them.
class SyncServer final : public QObject
{
    Q_OBJECT

public:
    struct Options
    {
        QString database;
        QHostAddress address = QHostAddress::LocalHost;
        quint16 port = 8080;
        QString tlsCertificate; // PEM files; both or neither
        QString tlsKey;
        ConnectionGuard::Limits limits;
        QStringList schemes{QStringLiteral("tidewell")}; // app URL schemes sign-in may call back
        Clock::Source clock;                             // empty: the system clock
    };

    // Opens the database; nothing listens yet.
    static std::unique_ptr<SyncServer> create(const Options& options, QString* error);
    ~SyncServer() override;

    // Starts accepting connections; false with the reason when it cannot.
    bool listen(QString* error);
    quint16 port() const;
    // Stops accepting, lets requests under way finish, then emits stopped().
    void shutdown();

    // Routes one request; also what tests and fuzzers call without a socket.
    HttpAnswer handle(const HttpCall& call);

    ServerDatabase& database() { return *m_db; }
    Accounts& accounts() { return *m_accounts; }
    ResourceStore& resources() { return *m_resources; }

signals:
    void stopped();

private:
    SyncServer(Options options, std::unique_ptr<ServerDatabase> db);

    Options m_options;
    Clock m_clock;
    std::unique_ptr<ServerDatabase> m_db;
    std::unique_ptr<Accounts> m_accounts;
    std::unique_ptr<ResourceStore> m_resources;
    std::unique_ptr<ApiHandler> m_api;
    std::unique_ptr<Sessions> m_sessions;
    std::unique_ptr<WebPages> m_web;
    QPointer<ConnectionGuard> m_guard; // owned by the frontend once it serves it
    QPointer<HttpFrontend> m_frontend;
};
