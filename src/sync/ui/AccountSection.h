#pragma once

#include <QWidget>

class APIClient;
class AuthService;
class QCheckBox;
class QLabel;
class QPushButton;
class QStackedLayout;
class SignInSheet;
class SyncEngine;

// The hub's account block: blank while the keychain has not answered, "Not
// signed in" with a Sign in button, or "Connected" with the last sync time,
// Sync, Sign out, the last sync error and, with a server that keeps versions,
// "Keep this computer in step automatically".
class AccountSection final : public QWidget
{
    Q_OBJECT

public:
    AccountSection(AuthService& auth, SyncEngine& sync, const APIClient& client,
                   QWidget* parent = nullptr);

    bool showsSignedIn() const;
    QPushButton* syncButton() const { return m_sync; }
    SignInSheet* signInSheet() const;
    // "Last sync 14:05" or "Not synced yet".
    static QString lastSyncText(const QDateTime& lastSyncedAt);

signals:
    void signInSheetOpened(SignInSheet* sheet);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QWidget* buildLoadingPage();
    QWidget* buildSignedOutPage(); // "Not signed in" with the Sign in button
    QWidget* buildSignedInPage();  // "Connected" with Sync, Sign out and the sync error
    void followAccount();
    void refresh();
    void openSignIn();

    AuthService& m_auth;
    SyncEngine& m_syncEngine;
    const APIClient& m_client;
    QStackedLayout* m_stack = nullptr;
    QWidget* m_loading = nullptr;
    QLabel* m_waiting = nullptr;
    QWidget* m_signedOut = nullptr;
    QLabel* m_keychainProblem = nullptr;
    QWidget* m_signedIn = nullptr;
    QLabel* m_lastSync = nullptr;
    QLabel* m_error = nullptr;
    QPushButton* m_sync = nullptr;
    QCheckBox* m_inStep = nullptr;
    bool m_lookingUp = false;
};
