#pragma once

#include <QCoro/QCoroTask>
#include <QDateTime>
#include <QObject>
#include <QString>
#include <QUrl>

#include <functional>

// Signing in to the web service, with a pasted token or through the browser
// and a callback URL on the app's own scheme, and the published sign-in state.
class AuthService final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool isSignedIn READ isSignedIn NOTIFY isSignedInChanged)
    Q_PROPERTY(QString lastError READ lastError NOTIFY lastErrorChanged)
    Q_PROPERTY(QDateTime lastSyncedAt READ lastSyncedAt NOTIFY lastSyncedAtChanged)

public:
    using BrowserOpener = std::function<bool(const QUrl&)>;

    static AuthService& shared();

    // Trims the token, stores it, and keeps it only when the server accepts it.
    QCoro::Task<bool> signIn(QString token);
    // Stores `serverBase` as the server and opens its connect page in the browser;
    // returns at once (the answer arrives through consumeCallback()).
    void beginBrowserSignIn(const QString& serverBase);
    // Handles a URL delivered to the app; other schemes and hosts are ignored.
    // A matching callback signs in and then pulls.
    QCoro::Task<> consumeCallback(QUrl url);
    // Forgets the token; local data stays.
    void signOut();

    // `length` secure random bytes as lower-case hex.
    static QString randomNonce(int length);
    // The first URL scheme in the bundle information, else "tidewell".
    static QString appURLScheme();

    bool isSignedIn() const { return m_isSignedIn; }
    // Empty when there is no error.
    QString lastError() const { return m_lastError; }
    // Invalid until a pull succeeds.
    QDateTime lastSyncedAt() const { return m_lastSyncedAt; }
    void setLastSyncedAt(const QDateTime& when);

    // Tests: replaces how the connect page is opened; empty restores the desktop's browser.
    void setBrowserOpener(BrowserOpener opener);
    // Tests: re-reads the signed-in state from the keychain, as at start-up.
    void reload();

signals:
    void isSignedInChanged();
    void lastErrorChanged();
    void lastSyncedAtChanged();

private:
    AuthService();

    void setSignedIn(bool on);
    void setLastError(const QString& text);

    bool m_isSignedIn = false;
    QString m_lastError;
    QDateTime m_lastSyncedAt;
    QString m_pendingNonce;
    BrowserOpener m_openBrowser;
};
