#pragma once

#include <QCoro/QCoroTask>
#include <QObject>
#include <QPointer>

class APIClient;
class AuthService;
class Clock;
class SyncBaseStore;
class SyncStatus;
class VersionedSync;

// Listens on the server's change feed while keeping in step with a server that
// keeps versions and signed in, and pulls each resource another computer changed.
class FeedListener final : public QObject
{
    Q_OBJECT

public:
    FeedListener(APIClient& client, SyncBaseStore& bases, AuthService& auth, SyncStatus& status,
                 VersionedSync& versioned, const Clock& clock);

    // Joins the feed now; nothing when already listening.
    void listen();
    // Joins it a little later, so that start-up is not slowed by the network.
    void listenSoon();
    // Ends the wait on the feed.
    void stop();

private:
    QCoro::Task<> run();

    APIClient& m_client;
    SyncBaseStore& m_bases;
    AuthService& m_auth;
    SyncStatus& m_status;
    VersionedSync& m_versioned;
    const Clock& m_clock;
    bool m_listening = false;
    // Deleted to end the wait on the change feed.
    QPointer<QObject> m_scope;
};
