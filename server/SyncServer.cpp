#include "SyncServer.h"

#include "RequestPool.h"

#include <QFile>
#include <QRegularExpression>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <QThread>
#include <QUrl>

namespace {
// The origin of an http(s) URL at a host's root; empty, with the reason, if not.
QString originOf(const QString& publicUrl, QString* error)
{
    const QUrl url(publicUrl, QUrl::StrictMode);
    if (!url.isValid() || (url.scheme() != u"https" && url.scheme() != u"http") ||
        url.host().isEmpty() || !url.userInfo().isEmpty() || url.hasQuery() || url.hasFragment()) {
        *error = u"--public-url takes the http(s) address browsers reach the server at, such as "
                 u"https://sync.example.org, not \u201c" +
                 publicUrl + u"\u201d";
        return {};
    }
    if (!url.path().isEmpty() && url.path() != u"/") {
        *error = QStringLiteral("the server must sit at the root of its host: --public-url takes "
                                "no path");
        return {};
    }
    return url.adjusted(QUrl::RemovePath).toString(QUrl::FullyEncoded);
}
} // namespace

std::optional<QString> SyncServer::schemeProblem(const QString& scheme)
{
    static const QRegularExpression valid(
        QRegularExpression::anchoredPattern(QStringLiteral("[a-z][a-z0-9+.-]{0,39}")));
    // Schemes a browser would open as a page or a file: a token sent there would
    // reach a web site, or run as script, instead of the app.
    static const QStringList refused{
        QStringLiteral("http"),  QStringLiteral("https"),    QStringLiteral("javascript"),
        QStringLiteral("data"),  QStringLiteral("file"),     QStringLiteral("blob"),
        QStringLiteral("about"), QStringLiteral("ftp"),      QStringLiteral("ws"),
        QStringLiteral("wss"),   QStringLiteral("vbscript"), QStringLiteral("filesystem")};
    if (!valid.match(scheme).hasMatch())
        return u"\u201c" + scheme.left(40) +
               u"\u201d is not a URL scheme (lower-case letters, digits, \u201c+\u201d, "
               u"\u201c.\u201d, \u201c-\u201d)";
    if (refused.contains(scheme))
        return u"\u201c" + scheme +
               u"\u201d opens in the browser, not in an app; sign-in will not "
               u"call it back";
    return std::nullopt;
}

std::unique_ptr<SyncServer> SyncServer::create(const Options& options, QString* error)
{
    for (const QString& scheme : options.schemes) {
        if (const auto problem = schemeProblem(scheme)) {
            *error = u"--schemes: " + *problem;
            return nullptr;
        }
    }
    QString origin;
    if (!options.publicUrl.isEmpty()) {
        origin = originOf(options.publicUrl, error);
        if (origin.isEmpty())
            return nullptr;
    }
    auto proxies = TrustedProxies::parse(options.trustedProxies, error);
    if (!proxies)
        return nullptr;
    auto db = ServerDatabase::open(options.database, error);
    if (!db)
        return nullptr;
    std::unique_ptr<SyncServer> server(new SyncServer(options, std::move(*proxies), origin));
    server->m_main = std::make_unique<RequestHandler>(std::move(db), server->m_shared);
    return server;
}

SyncServer::SyncServer(Options options, TrustedProxies proxies, QString publicOrigin)
    : m_options(std::move(options))
    , m_clock(m_options.clock)
    , m_proxies(std::move(proxies))
    , m_throttle(m_clock)
    , m_feed(m_options.changesPatience)
    , m_shared{m_clock,
               m_throttle,
               m_proxies,
               m_outages,
               m_feed,
               {m_options.schemes, publicOrigin},
               publicOrigin.startsWith(u"https:") || !m_options.tlsCertificate.isEmpty()}
{}

SyncServer::~SyncServer()
{
    // The threads first: their answers are queued to the listener.
    m_pool.reset();
    delete m_listener.data();
}

bool SyncServer::listen(QString* error)
{
    const int threads = m_options.threads > 0 ? m_options.threads
                        // PostgreSQL's connections spend most of their time waiting on the network.
                        : m_main->database().engine() == ServerDatabase::Engine::PostgreSQL
                            ? std::max(8, 4 * QThread::idealThreadCount())
                            : std::max(4, 2 * QThread::idealThreadCount());
    const int slowThreads = std::max(1, QThread::idealThreadCount() / 2);
    m_pool = std::make_unique<RequestPool>(
        [this]() -> std::unique_ptr<RequestHandler> {
            QString why;
            auto db = ServerDatabase::join(m_options.database, &why);
            if (!db) {
                m_outages.failed(why);
                return nullptr;
            }
            return std::make_unique<RequestHandler>(std::move(db), m_shared);
        },
        threads, slowThreads, ServerDatabase::DefaultTimeoutMs + 500);

    m_listener = new HttpListener(
        m_options.limits, m_proxies,
        [this](HttpCall call, HttpListener::Reply reply) {
            m_pool->submit(std::move(call), [reply](HttpAnswer answer) {
                if (answer.later)
                    answer.later(reply);
                else
                    reply(std::move(answer));
            });
        },
        this);
    m_listener->setAccessLog(m_options.accessLog);
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
        m_listener->setTls(tls);
    }
    if (!m_listener->listen(m_options.address, m_options.port)) {
        *error = m_listener->errorString();
        return false;
    }
    connect(m_listener, &HttpListener::drained, this, [this] {
        m_pool.reset();
        emit stopped();
    });
    return true;
}

quint16 SyncServer::port() const
{
    return m_listener ? m_listener->serverPort() : 0;
}

void SyncServer::shutdown()
{
    // A waiting long poll would hold the drain for its whole patience.
    m_feed.release();
    if (m_listener)
        m_listener->drain(10'000);
    else
        emit stopped();
}

HttpAnswer SyncServer::handle(const HttpCall& call)
{
    return m_main->handle(call);
}
