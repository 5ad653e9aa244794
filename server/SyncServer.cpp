#include "SyncServer.h"

#include "Accounts.h"
#include "ApiHandler.h"
#include "HttpFrontend.h"
#include "ResourceStore.h"
#include "ServerDatabase.h"
#include "Sessions.h"
#include "WebPages.h"

#include <QFile>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>

namespace {
// Sent with every answer: nothing of ours is meant to be framed, sniffed or cached.
void addCommonHeaders(HttpAnswer& answer)
{
    answer.headers.append(std::pair<QByteArray, QByteArray>("X-Content-Type-Options", "nosniff"));
    answer.headers.append(std::pair<QByteArray, QByteArray>("Cache-Control", "no-store"));
}
} // namespace

std::unique_ptr<SyncServer> SyncServer::create(const Options& options, QString* error)
{
    auto db = ServerDatabase::open(options.database, error);
    if (!db)
        return nullptr;
    return std::unique_ptr<SyncServer>(new SyncServer(options, std::move(db)));
}

SyncServer::SyncServer(Options options, std::unique_ptr<ServerDatabase> db)
    : m_options(std::move(options))
    , m_clock(m_options.clock)
    , m_db(std::move(db))
    , m_accounts(std::make_unique<Accounts>(*m_db, m_clock))
    , m_resources(std::make_unique<ResourceStore>(*m_db, m_clock))
    , m_api(std::make_unique<ApiHandler>(*m_db, *m_accounts, *m_resources))
    , m_sessions(std::make_unique<Sessions>(*m_db, m_clock))
    , m_web(std::make_unique<WebPages>(*m_accounts, *m_sessions, m_clock, m_options.schemes))
{}

SyncServer::~SyncServer()
{
    delete m_frontend.data();
    delete m_guard.data();
}

bool SyncServer::listen(QString* error)
{
    m_guard = new ConnectionGuard(m_options.limits, this);
    if (!m_options.tlsCertificate.isEmpty() || !m_options.tlsKey.isEmpty()) {
        QFile certFile(m_options.tlsCertificate), keyFile(m_options.tlsKey);
        if (!certFile.open(QIODevice::ReadOnly) || !keyFile.open(QIODevice::ReadOnly)) {
            *error = QStringLiteral("cannot read the TLS certificate or key");
            return false;
        }
        const QList<QSslCertificate> chain = QSslCertificate::fromData(certFile.readAll());
        const QByteArray pem = keyFile.readAll();
        QSslKey key(pem, QSsl::Rsa);
        if (key.isNull())
            key = QSslKey(pem, QSsl::Ec);
        if (chain.isEmpty() || key.isNull()) {
            *error = QStringLiteral("the TLS certificate or key is not valid PEM");
            return false;
        }
        QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
        tls.setLocalCertificateChain(chain);
        tls.setPrivateKey(key);
        tls.setPeerVerifyMode(QSslSocket::VerifyNone);
        m_guard->setTls(tls);
    }
    if (!m_guard->listen(m_options.address, m_options.port)) {
        *error = m_guard->errorString();
        return false;
    }
    m_frontend = new HttpFrontend([this](const HttpCall& call) { return handle(call); }, this);
    m_frontend->serve(m_guard);
    connect(m_guard, &ConnectionGuard::drained, this, &SyncServer::stopped);
    return true;
}

quint16 SyncServer::port() const
{
    return m_guard ? m_guard->serverPort() : 0;
}

void SyncServer::shutdown()
{
    if (m_guard)
        m_guard->drain(10'000);
    else
        emit stopped();
}

HttpAnswer SyncServer::handle(const HttpCall& call)
{
    HttpAnswer answer = ApiHandler::handles(call.path) ? m_api->handle(call)
                        : WebPages::handles(call.path)
                            ? m_web->handle(call)
                            : HttpAnswer::error(404, QStringLiteral("not found"));
    addCommonHeaders(answer);
    return answer;
}
