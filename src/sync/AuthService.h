#pragma once

#include <QCoro/QCoroTask>
#include <QDateTime>
#include <QObject>
#include <QString>
#include <QUrl>

#include <chrono>
#include <functional>

class APIClient;
class KeychainStore;

// Signing in to the web service, with a pasted token or through the browser
// and a callback URL on the app's own scheme, and the published sign-in state.
class AuthService final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool isSignedIn READ isSignedIn NOTIFY isSignedInChanged)
    Q_PROPERTY(bool isLoading READ isLoading NOTIFY isLoadingChanged)
    Q_PROPERTY(QString keychainProblem READ keychainProblem NOTIFY keychainProblemChanged)
    Q_PROPERTY(QString lastError READ lastError NOTIFY lastErrorChanged)

public:
    using BrowserOpener = std::function<bool(const QUrl&)>;

    // Checks tokens with `client`, keeps them in `keychain`, and opens the
    // connect page with `openBrowser` (the desktop's web browser in the app).
    AuthService(APIClient& client, KeychainStore& keychain, BrowserOpener openBrowser,
                QObject* parent = nullptr);
    ~AuthService() override;

    // Trims the token, stores it, and keeps it only when the server accepts it
    // and the keychain has stored it.
    QCoro::Task<bool> signIn(QString token);
    // Stores `serverBase` as the server and opens its connect page in the browser;
    // returns at once (the answer arrives through consumeCallback()).
    void beginBrowserSignIn(const QString& serverBase);
    // Handles a URL delivered to the app; other schemes and hosts are ignored.
    // A matching callback signs in (and `signedIn` then has the sync engine pull).
    QCoro::Task<> consumeCallback(QUrl url);
    // Forgets the token at once; local data stays. The keychain item is removed
    // in the background, and keychainProblem says so when that fails.
    void signOut();
    // Returns once the keychain has told whether there is a token; asks it first
    // when nobody has yet.
    QCoro::Task<> settled();

    // `length` secure random bytes as lower-case hex.
    static QString randomNonce(int length);
    // The first URL scheme in the bundle information, else "tidewell".
    static QString appURLScheme();

    bool isSignedIn() const { return m_isSignedIn; }
    // True until the keychain answers the first look-up; it is asked again and
    // again while it does not answer (a keyring waiting to be unlocked, say).
    bool isLoading() const { return m_isLoading; }
    // Empty unless the token could not be removed from the keychain.
    QString keychainProblem() const { return m_keychainProblem; }
    // Empty when there is no error.
    QString lastError() const { return m_lastError; }

    // Reads the signed-in state from the keychain, as at start-up. Nothing asks
    // the keychain before the first reload(): a start-up without the hub or sync
    // never touches it.
    void reload();
    // reload() unless a look-up was made already.
    void load();

signals:
    void isSignedInChanged();
    void isLoadingChanged();
    void keychainProblemChanged();
    // A token was accepted and stored: a new sign-in, not a start-up.
    void signedIn();
    void lastErrorChanged();

private:
    void lookUp(quint64 generation);
    // Ends any look-up under way: what follows decides the state.
    void takeOver();
    void setSignedIn(bool on);
    void setLoading(bool on);
    void setLastError(const QString& text);
    void setKeychainProblem(const QString& text);

    APIClient& m_client;
    KeychainStore& m_keychain;
    BrowserOpener m_openBrowser;
    bool m_isSignedIn = false;
    // Until the keychain has been asked and has answered; with no account ever
    // signed in here there is nothing to ask.
    bool m_isLoading;
    bool m_loadStarted = false;
    quint64 m_generation = 0; // look-ups of an older generation are stale
    std::chrono::milliseconds m_retryDelay{};
    QString m_keychainProblem;
    QString m_lastError;
    QString m_pendingNonce;
};
