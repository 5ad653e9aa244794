#include "SignInSheet.h"

#include "APIClient.h"
#include "AuthService.h"
#include "Blanks.h"
#include "Preferences.h"
#include "SymbolIcon.h"
#include "Theme.h"

#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

namespace {
QLabel* note(const QString& text, Theme::Font font, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    label->setFont(Theme::font(font));
    label->setWordWrap(true);
    Theme::makeSecondary(label);
    return label;
}

} // namespace

SignInSheet::SignInSheet(AuthService& auth, const APIClient& client, QWidget* parent)
    : QDialog(parent)
    , m_auth(auth)
{
    setObjectName(QStringLiteral("signInSheet"));
    setWindowTitle(QStringLiteral("Sign in"));
    setModal(true);
    setAttribute(Qt::WA_DeleteOnClose);
    setFixedWidth(420);

    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(20, 20, 20, 20);
    column->setSpacing(14);
    column->setSizeConstraint(QLayout::SetFixedSize);
    auto* title = new QLabel(QStringLiteral("Sign in"), this);
    title->setFont(Theme::font(Theme::Font::Title3, QFont::DemiBold));
    column->addWidget(title);
    column->addWidget(note(QStringLiteral("Connect this computer to your Tidewell web account."),
                           Theme::Font::Callout, this));

    m_browser = new QPushButton(this);
    m_browser->setObjectName(QStringLiteral("browserButton"));
    m_browser->setIcon(SymbolIcon::icon(QStringLiteral("safari")));
    m_browser->setDefault(true);
    m_browser->setMinimumHeight(34);
    column->addWidget(m_browser);
    column->addWidget(
        note(QStringLiteral("Opens your default browser. If you're already signed in, "
                            "we'll fetch a token automatically."),
             Theme::Font::Caption2, this));

    m_advanced = new QToolButton(this);
    m_advanced->setObjectName(QStringLiteral("advancedToggle"));
    m_advanced->setText(QStringLiteral("Advanced"));
    m_advanced->setAccessibleName(QStringLiteral("Advanced"));
    m_advanced->setCheckable(true);
    m_advanced->setAutoRaise(true);
    m_advanced->setArrowType(Qt::RightArrow);
    m_advanced->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_advanced->setFont(Theme::font(Theme::Font::Caption));
    column->addWidget(m_advanced);

    column->addWidget(buildAdvancedGroup(client));

    m_error = new QLabel(this);
    m_error->setObjectName(QStringLiteral("signInError"));
    m_error->setFont(Theme::font(Theme::Font::Caption));
    Theme::tint(m_error, Theme::destructive());
    m_error->setWordWrap(true);
    m_error->setTextFormat(Qt::PlainText);
    m_error->setVisible(false);
    column->addWidget(m_error);

    column->addLayout(buildCloseRow());

    connect(m_advanced, &QToolButton::toggled, this, [this](bool open) {
        m_advanced->setArrowType(open ? Qt::DownArrow : Qt::RightArrow);
        m_advancedGroup->setVisible(open);
    });
    connect(m_browser, &QPushButton::clicked, this, &SignInSheet::connectViaBrowser);
    connect(m_submit, &QPushButton::clicked, this, &SignInSheet::submitToken);
    // Return in the token field submits the token, blank or not (the service then
    // says "Token is empty"); it must not also press the browser default.
    m_token->installEventFilter(this);
    connect(m_server, &QLineEdit::textChanged, this, &SignInSheet::updateState);
    connect(m_token, &QLineEdit::textChanged, this, &SignInSheet::updateState);

    followSignIn();
    updateState();
}

QWidget* SignInSheet::buildAdvancedGroup(const APIClient& client)
{
    m_advancedGroup = new QWidget(this);
    auto* advanced = new QVBoxLayout(m_advancedGroup);
    advanced->setContentsMargins(0, 4, 0, 0);
    advanced->setSpacing(10);
    auto* serverColumn = new QVBoxLayout;
    serverColumn->setSpacing(4);
    auto* serverLabel = note(QStringLiteral("Server URL"), Theme::Font::Caption2, m_advancedGroup);
    m_server = new QLineEdit(client.serverURLString(), m_advancedGroup);
    m_server->setObjectName(QStringLiteral("serverField"));
    m_server->setPlaceholderText(QStringLiteral("https://tidewell.example.com"));
    m_server->setAccessibleName(QStringLiteral("Server URL"));
    serverLabel->setBuddy(m_server);
    serverColumn->addWidget(serverLabel);
    serverColumn->addWidget(m_server);
    advanced->addLayout(serverColumn);
    advanced->addWidget(
        note(QStringLiteral("Or paste an API token from the web app's [tokens] dialog."),
             Theme::Font::Caption2, m_advancedGroup));
    auto* tokenRow = new QHBoxLayout;
    tokenRow->setSpacing(6);
    m_token = new QLineEdit(m_advancedGroup);
    m_token->setObjectName(QStringLiteral("tokenField"));
    m_token->setEchoMode(QLineEdit::Password);
    m_token->setPlaceholderText(QStringLiteral("API token"));
    m_token->setAccessibleName(QStringLiteral("API token"));
    m_submit = new QPushButton(QStringLiteral("Sign in"), m_advancedGroup);
    m_submit->setObjectName(QStringLiteral("tokenSignInButton"));
    m_submit->setAccessibleName(QStringLiteral("Sign in with token"));
    m_submit->setAutoDefault(false);
    tokenRow->addWidget(m_token, 1);
    tokenRow->addWidget(m_submit);
    advanced->addLayout(tokenRow);
    m_advancedGroup->setVisible(false);
    return m_advancedGroup;
}

QLayout* SignInSheet::buildCloseRow()
{
    auto* closeRow = new QHBoxLayout;
    closeRow->addStretch();
    auto* close = new QPushButton(QStringLiteral("Close"), this);
    close->setObjectName(QStringLiteral("closeButton"));
    close->setAccessibleName(QStringLiteral("Close"));
    close->setAutoDefault(false);
    closeRow->addWidget(close);
    connect(close, &QPushButton::clicked, this, &QDialog::reject);
    return closeRow;
}

// The sheet closes once signed in and shows what went wrong otherwise.
void SignInSheet::followSignIn()
{
    connect(&m_auth, &AuthService::isSignedInChanged, this, [this] {
        if (m_auth.isSignedIn()) {
            m_waitingForBrowser = false;
            accept();
        }
    });
    connect(&m_auth, &AuthService::lastErrorChanged, this, [this] {
        const QString text = m_auth.lastError();
        if (text.isEmpty())
            return;
        m_waitingForBrowser = false;
        setError(text);
    });
}

void SignInSheet::setError(const QString& text)
{
    m_errorText = text;
    m_error->setText(text);
    m_error->setVisible(!text.isEmpty());
    updateState();
}

void SignInSheet::updateState()
{
    m_browser->setText(m_waitingForBrowser ? QStringLiteral("Waiting for browser…")
                                           : QStringLiteral("Connect via browser"));
    m_browser->setAccessibleName(m_browser->text());
    m_browser->setEnabled(!m_submitting && !Blanks::trimmed(m_server->text()).isEmpty());
    m_submit->setEnabled(!m_submitting && !Blanks::trimmed(m_token->text()).isEmpty());
}

void SignInSheet::connectViaBrowser()
{
    if (!m_browser->isEnabled())
        return;
    const QString base = m_server->text().trimmed();
    setError(QString());
    m_waitingForBrowser = true;
    updateState();
    AuthService& auth = m_auth;
    auth.beginBrowserSignIn(base);
    // The service clears its error when the browser opens, so an error now is
    // this attempt's; a repeat of the previous text sends no change signal.
    if (!auth.lastError().isEmpty()) {
        m_waitingForBrowser = false;
        setError(auth.lastError());
    }
}

bool SignInSheet::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_token && event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent*>(event)->key();
        if (key == Qt::Key_Return || key == Qt::Key_Enter) {
            submitToken();
            return true;
        }
    }
    return QDialog::eventFilter(watched, event);
}

void SignInSheet::submitToken()
{
    if (m_submitting)
        return;
    const QString base = m_server->text().trimmed();
    if (!base.isEmpty())
        Preferences::setServerURLOverride(base);
    m_submitting = true;
    setError(QString());
    QPointer<SignInSheet> self(this);
    QCoro::connect(m_auth.signIn(m_token->text()), qApp, [self](bool ok) {
        if (ok) {
            // The sheet may already have closed on the sign-in itself; the sync
            // engine pulls after every new sign-in.
            if (self)
                self->accept();
            return;
        }
        if (!self)
            return;
        self->m_submitting = false;
        const QString text = self->m_auth.lastError();
        self->setError(text.isEmpty() ? QStringLiteral("Sign-in failed") : text);
    });
}
