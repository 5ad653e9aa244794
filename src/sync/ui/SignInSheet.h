#pragma once

#include <QDialog>

class APIClient;
class AuthService;
class QLabel;
class QLayout;
class QLineEdit;
class QPushButton;
class QToolButton;

// Connects this computer to a web account: through the browser (the default),
// or, under "Advanced", with a server address and a pasted API token.
class SignInSheet final : public QDialog
{
    Q_OBJECT

public:
    SignInSheet(AuthService& auth, const APIClient& client, QWidget* parent = nullptr);

    void connectViaBrowser();
    void submitToken();

    QString error() const { return m_errorText; }
    bool isWaitingForBrowser() const { return m_waitingForBrowser; }
    bool isSubmitting() const { return m_submitting; }
    QLineEdit* serverField() const { return m_server; }
    QLineEdit* tokenField() const { return m_token; }
    QPushButton* browserButton() const { return m_browser; }
    QPushButton* tokenButton() const { return m_submit; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    // The server field and the token row, behind "Advanced".
    QWidget* buildAdvancedGroup(const APIClient& client);
    QLayout* buildCloseRow();
    void followSignIn();
    void setError(const QString& text);
    void updateState();

    AuthService& m_auth;
    QLineEdit* m_server = nullptr;
    QLineEdit* m_token = nullptr;
    QPushButton* m_browser = nullptr;
    QPushButton* m_submit = nullptr;
    QToolButton* m_advanced = nullptr;
    QWidget* m_advancedGroup = nullptr;
    QLabel* m_error = nullptr;
    QString m_errorText;
    bool m_submitting = false;
    bool m_waitingForBrowser = false;
};
