#include "AuthService.h"

#include "APIClient.h"
#include "BundleInfo.h"
#include "CallbackUrl.h"
#include "KeychainStore.h"
#include "Notify.h"
#include "Preferences.h"

#include <QCoro/QCoroSignal>
#include <QPointer>
#include <QRandomGenerator>
#include <QTimer>
#include <QUrlQuery>

AuthService::AuthService(APIClient& client, KeychainStore& keychain, BrowserOpener openBrowser,
                         QObject* parent)
    : QObject(parent)
    , m_client(client)
    , m_keychain(keychain)
    , m_openBrowser(std::move(openBrowser))
    , m_isLoading(Preferences::accountExists() != false)
{}

namespace {
constexpr std::chrono::milliseconds FirstRetry(1000);
constexpr std::chrono::milliseconds LastRetry(15000);
} // namespace

void AuthService::load()
{
    if (!m_loadStarted)
        reload();
}

void AuthService::reload()
{
    m_loadStarted = true;
    m_retryDelay = FirstRetry;
    lookUp(++m_generation);
}

void AuthService::lookUp(quint64 generation)
{
    // Nobody signed in here: the keyring is not asked (a wallet would prompt).
    if (Preferences::accountExists() == false) {
        setSignedIn(false);
        setLoading(false);
        return;
    }
    setLoading(true);
    setSignedIn(false);
    QCoro::connect(m_keychain.fetchToken(), this,
                   [this, generation](const KeychainStore::Lookup& found) {
                       if (generation != m_generation)
                           return;
                       if (!found.answered) {
                           QTimer::singleShot(m_retryDelay, this, [this, generation] {
                               if (generation == m_generation)
                                   lookUp(generation);
                           });
                           m_retryDelay = std::min(m_retryDelay * 2, LastRetry);
                           return;
                       }
                       const bool signedIn = found.token && !found.token->isEmpty();
                       // Settings from before the account was remembered learn it
                       // from the first answer.
                       if (!Preferences::accountExists() && !found.keyringMissing)
                           Preferences::setAccountExists(signedIn);
                       setSignedIn(signedIn);
                       setLoading(false);
                       // A keyring that starts later (after log-in, or by hand) may
                       // hold the token: look again then.
                       if (found.keyringMissing)
                           m_keychain.whenKeyringStarts(this, [this, generation] {
                               if (generation == m_generation)
                                   reload();
                           });
                   });
}

void AuthService::takeOver()
{
    m_loadStarted = true;
    ++m_generation;
    setLoading(false);
}

AuthService::~AuthService()
{
    // Whoever waits in settled() gets no answer now: let them go rather than
    // leave them waiting for a signal that never comes.
    if (m_isLoading) {
        m_isLoading = false;
        emit isLoadingChanged();
    }
}

QCoro::Task<> AuthService::settled()
{
    load();
    const QPointer<AuthService> self(this);
    while (self && m_isLoading)
        co_await qCoro(this, &AuthService::isLoadingChanged);
}

void AuthService::setLoading(bool on)
{
    Notify::set(this, m_isLoading, on, &AuthService::isLoadingChanged);
}

void AuthService::setKeychainProblem(const QString& text)
{
    Notify::set(this, m_keychainProblem, text, &AuthService::keychainProblemChanged);
}

void AuthService::setSignedIn(bool on)
{
    Notify::set(this, m_isSignedIn, on, &AuthService::isSignedInChanged);
}

void AuthService::setLastError(const QString& text)
{
    Notify::set(this, m_lastError, text, &AuthService::lastErrorChanged);
}

QCoro::Task<bool> AuthService::signIn(QString token)
{
    token = token.trimmed();
    if (token.isEmpty()) {
        setLastError(QStringLiteral("Token is empty"));
        co_return false;
    }
    // Control characters and the like could never travel in a request header.
    if (!APIClient::isSendable(token)) {
        setLastError(QStringLiteral("Token contains characters a token cannot have"));
        co_return false;
    }
    takeOver();
    // Stored before the test: the client reads the token from the keychain's
    // cache, which has it at once; the keychain itself answers meanwhile.
    auto stored = m_keychain.saveToken(token);
    const auto lists = co_await m_client.getTasks();
    const KeychainReply kept = co_await stored;
    if (!lists) {
        ++m_generation;
        QCoro::connect(m_keychain.clearToken(), this, [](const KeychainReply&) {});
        setSignedIn(false);
        setLastError(lists.error().errorDescription());
        co_return false;
    }
    // A keyring that refused the token (or none at all) does not stop the sign-in:
    // the token stays in memory until Tidewell quits, and the hub says so.
    setKeychainProblem(kept.outcome == KeychainReply::Outcome::Done
                           ? QString()
                           : QStringLiteral("Signed in until Tidewell quits: the keyring could "
                                            "not keep the token (") +
                                 kept.why +
                                 QStringLiteral("), so you will need to sign in "
                                                "again after a restart."));
    Preferences::setAccountExists(true);
    setSignedIn(true);
    setLastError({});
    emit signedIn();
    co_return true;
}

QString AuthService::randomNonce(int length)
{
    QString out;
    out.reserve(length * 2);
    QRandomGenerator* random = QRandomGenerator::system();
    for (int i = 0; i < length; ++i)
        out += QStringLiteral("%1").arg(random->bounded(256), 2, 16, QLatin1Char('0'));
    return out;
}

QString AuthService::appURLScheme()
{
    for (const QString& scheme : BundleInfo::current().urlSchemes) {
        if (!scheme.isEmpty())
            return scheme;
    }
    return QStringLiteral("tidewell");
}

void AuthService::beginBrowserSignIn(const QString& serverBase)
{
    const QString base = serverBase.trimmed();
    const QUrl parsed(base, QUrl::StrictMode);
    if (base.isEmpty() || !parsed.isValid()) {
        setLastError(QStringLiteral("Invalid server URL"));
        return;
    }
    Preferences::setServerURLOverride(base);
    m_pendingNonce = randomNonce(24);

    QUrl connect = parsed;
    connect.setPath(QStringLiteral("/en/app/connect"));
    connect.setFragment(QString()); // a fragment would only confuse the web app
    QUrlQuery query;
    query.addQueryItem(QStringLiteral("state"), m_pendingNonce);
    query.addQueryItem(QStringLiteral("scheme"), appURLScheme());
    connect.setQuery(query);
    if (!connect.isValid() || connect.isRelative() || connect.host().isEmpty()) {
        setLastError(QStringLiteral("Failed to build connect URL"));
        return;
    }
    setLastError({});
    const bool opened = m_openBrowser(connect);
    if (!opened)
        qWarning("AuthService open browser failed: %s",
                 qPrintable(connect.toString(QUrl::RemoveQuery)));
}

QCoro::Task<> AuthService::consumeCallback(QUrl url)
{
    const CallbackUrl callback = CallbackUrl::parse(url, appURLScheme());
    switch (callback.verdict) {
    case CallbackUrl::Verdict::NotOurs:
        co_return;
    case CallbackUrl::Verdict::Malformed:
        setLastError(QStringLiteral("Malformed callback URL"));
        co_return;
    case CallbackUrl::Verdict::MissingToken:
        setLastError(QStringLiteral("Callback missing token"));
        co_return;
    case CallbackUrl::Verdict::Usable:
        break;
    }
    if (m_pendingNonce.isEmpty() || callback.state != m_pendingNonce) {
        setLastError(QStringLiteral("Rejected unexpected sign-in callback"));
        co_return;
    }
    m_pendingNonce.clear();
    co_await signIn(callback.token);
}

void AuthService::signOut()
{
    takeOver();
    const quint64 generation = m_generation;
    QCoro::connect(m_keychain.clearToken(), this, [this, generation](const KeychainReply& removed) {
        if (generation != m_generation)
            return;
        const bool gone = removed.outcome == KeychainReply::Outcome::Done ||
                          removed.outcome == KeychainReply::Outcome::Missing;
        setKeychainProblem(gone ? QString()
                                : QStringLiteral("Signed out, but the token could not be removed "
                                                 "from the keyring: ") +
                                      removed.why);
    });
    Preferences::setAccountExists(false);
    setSignedIn(false);
    setLastError({});
    m_pendingNonce.clear();
}
