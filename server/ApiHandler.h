#pragma once

#include "HttpAnswer.h"
#include "HttpCall.h"
#include "ResourceStore.h"

class Accounts;
class ChangeFeed;
class ServerDatabase;

// The REST API the app syncs with: GET and whole-resource PUT of habits, task
// lists and the timer state under /api/v1/, with a bearer token, and /healthz.
// Each resource has a version (its ETag), and /api/v1/changes waits for a new one.
// Every PUT body is read with the app's own decoders before anything is stored.
class ApiHandler
{
public:
    ApiHandler(ServerDatabase& db, Accounts& accounts, ResourceStore& resources, ChangeFeed& feed);

    // Whether `path` is this handler's.
    static bool handles(const QString& path);
    HttpAnswer handle(const HttpCall& call);

private:
    HttpAnswer resource(const HttpCall& call, const QString& name);
    HttpAnswer changes(const HttpCall& call);
    HttpAnswer get(const HttpCall& call, const QByteArray& token, ResourceStore::Kind kind);

    ServerDatabase& m_db;
    Accounts& m_accounts;
    ResourceStore& m_resources;
    ChangeFeed& m_feed;
};
