#include "AccountSection.h"

#include "AuthService.h"
#include "SignInSheet.h"
#include "SymbolIcon.h"
#include "SyncEngine.h"
#include "Theme.h"

#include <QCheckBox>
#include <QDateTime>
#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QPainter>
#include <QPushButton>
#include <QStackedLayout>
#include <QTimer>
#include <QVBoxLayout>

namespace {
const QColor green(52, 199, 89);

class Tinted final : public QWidget
{
public:
    Tinted(QColor tint, QWidget* parent)
        : QWidget(parent)
        , m_tint(tint)
    {}

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(Qt::NoPen);
        p.setBrush(m_tint);
        p.drawRoundedRect(QRectF(rect()), 8, 8);
    }

private:
    QColor m_tint;
};

QLabel* symbol(const QString& name, const QColor& color, QWidget* parent)
{
    auto* label = new QLabel(parent);
    label->setPixmap(SymbolIcon::drawn(name, color).pixmap(24, 24));
    return label;
}

QVBoxLayout* titled(const QString& title, QLabel* detail, QWidget* parent)
{
    auto* column = new QVBoxLayout;
    column->setSpacing(2);
    auto* heading = new QLabel(title, parent);
    heading->setFont(Theme::font(Theme::Font::Callout, QFont::Medium));
    detail->setFont(Theme::font(Theme::Font::Caption));
    detail->setWordWrap(true);
    Theme::makeSecondary(detail);
    column->addWidget(heading);
    column->addWidget(detail);
    return column;
}

QLabel* errorLine(const QString& objectName, QWidget* parent)
{
    auto* line = new QLabel(parent);
    line->setObjectName(objectName);
    line->setFont(Theme::font(Theme::Font::Caption));
    Theme::tint(line, Theme::destructive());
    line->setWordWrap(true);
    line->setTextFormat(Qt::PlainText);
    line->hide();
    return line;
}
} // namespace

AccountSection::AccountSection(AuthService& auth, SyncEngine& sync, const APIClient& client,
                               QWidget* parent)
    : QWidget(parent)
    , m_auth(auth)
    , m_syncEngine(sync)
    , m_client(client)
{
    setObjectName(QStringLiteral("accountSection"));
    m_stack = new QStackedLayout(this);
    m_stack->addWidget(buildLoadingPage());
    m_stack->addWidget(buildSignedOutPage());
    m_stack->addWidget(buildSignedInPage());
    // What is known without the keychain is shown from the first frame: with no
    // account on this computer, the look-up after it changes nothing on screen.
    refresh();
    // Followed only once refresh() has set it: showing the setting does not change it.
    connect(m_inStep, &QCheckBox::toggled, this,
            [this](bool on) { m_syncEngine.setKeepInStep(on); });
}

QWidget* AccountSection::buildLoadingPage()
{
    // Shown until the keychain has answered; it keeps the layout from jumping.
    // Most keyrings answer at once; one that waits to be unlocked says why after a moment.
    m_loading = new Tinted(Theme::secondary(0.08), this);
    m_loading->setAccessibleName(QStringLiteral("Account"));
    auto* loading = new QHBoxLayout(m_loading);
    loading->setContentsMargins(10, 10, 10, 10);
    m_waiting = new QLabel(QStringLiteral("Waiting for the keyring…"), m_loading);
    m_waiting->setObjectName(QStringLiteral("keyringWaitLabel"));
    m_waiting->setFont(Theme::font(Theme::Font::Caption));
    Theme::makeSecondary(m_waiting);
    m_waiting->hide();
    loading->addWidget(m_waiting);
    return m_loading;
}

QWidget* AccountSection::buildSignedOutPage()
{
    m_signedOut = new Tinted(Theme::secondary(0.08), this);
    auto* outColumn = new QVBoxLayout(m_signedOut);
    outColumn->setContentsMargins(10, 10, 10, 10);
    outColumn->setSpacing(8);
    auto* out = new QHBoxLayout;
    out->setSpacing(10);
    outColumn->addLayout(out);
    out->addWidget(symbol(QStringLiteral("person.crop.circle.badge.exclamationmark"),
                          Theme::secondary(), m_signedOut));
    out->addLayout(titled(QStringLiteral("Not signed in"),
                          new QLabel(QStringLiteral("Sign in to sync with the Tidewell web app."),
                                     m_signedOut),
                          m_signedOut),
                   1);
    auto* signIn = new QPushButton(QStringLiteral("Sign in"), m_signedOut);
    signIn->setObjectName(QStringLiteral("signInButton"));
    signIn->setAccessibleName(QStringLiteral("Sign in"));
    signIn->setDefault(true);
    out->addWidget(signIn);
    connect(signIn, &QPushButton::clicked, this, &AccountSection::openSignIn);
    m_keychainProblem = errorLine(QStringLiteral("keychainProblem"), m_signedOut);
    outColumn->addWidget(m_keychainProblem);
    return m_signedOut;
}

QWidget* AccountSection::buildSignedInPage()
{
    QColor greenTint = green;
    greenTint.setAlphaF(0.08);
    m_signedIn = new Tinted(greenTint, this);
    auto* in = new QVBoxLayout(m_signedIn);
    in->setContentsMargins(10, 10, 10, 10);
    in->setSpacing(8);
    auto* row = new QHBoxLayout;
    row->setSpacing(10);
    row->addWidget(symbol(QStringLiteral("person.crop.circle.badge.checkmark"), green, m_signedIn));
    m_lastSync = new QLabel(m_signedIn);
    m_lastSync->setObjectName(QStringLiteral("lastSyncLabel"));
    row->addLayout(titled(QStringLiteral("Connected"), m_lastSync, m_signedIn), 1);
    m_sync = new QPushButton(m_signedIn);
    m_sync->setObjectName(QStringLiteral("syncButton"));
    auto* signOut = new QPushButton(QStringLiteral("Sign out"), m_signedIn);
    signOut->setObjectName(QStringLiteral("signOutButton"));
    signOut->setAccessibleName(QStringLiteral("Sign out"));
    signOut->setFlat(true);
    Theme::tint(signOut, Theme::destructive());
    row->addWidget(m_sync);
    row->addWidget(signOut);
    in->addLayout(row);
    m_inStep =
        new QCheckBox(QStringLiteral("Keep this computer in step automatically"), m_signedIn);
    m_inStep->setObjectName(QStringLiteral("keepInStepToggle"));
    m_inStep->setAccessibleName(m_inStep->text());
    in->addWidget(m_inStep);
    m_error = errorLine(QStringLiteral("syncError"), m_signedIn);
    in->addWidget(m_error);
    connect(m_sync, &QPushButton::clicked, this,
            [this] { QCoro::connect(m_syncEngine.pullAll(), qApp, [] {}); });
    connect(signOut, &QPushButton::clicked, this, [this] { m_auth.signOut(); });
    return m_signedIn;
}

void AccountSection::paintEvent(QPaintEvent* event)
{
    QWidget::paintEvent(event);
    if (m_lookingUp)
        return;
    m_lookingUp = true;
    // The keychain is asked only once the hub is on screen: it competes for the
    // processor with the first frame, and the secret store may take seconds.
    QTimer::singleShot(0, this, &AccountSection::followAccount);
    QTimer::singleShot(1000, m_waiting, &QWidget::show);
}

void AccountSection::followAccount()
{
    AuthService& auth = m_auth;
    const SyncEngine& sync = m_syncEngine;
    connect(&auth, &AuthService::isSignedInChanged, this, &AccountSection::refresh);
    connect(&auth, &AuthService::isLoadingChanged, this, &AccountSection::refresh);
    connect(&auth, &AuthService::keychainProblemChanged, this, &AccountSection::refresh);
    connect(&sync, &SyncEngine::lastSyncedAtChanged, this, &AccountSection::refresh);
    connect(&sync, &SyncEngine::isSyncingChanged, this, &AccountSection::refresh);
    connect(&sync, &SyncEngine::lastErrorChanged, this, &AccountSection::refresh);
    connect(&sync, &SyncEngine::serverHasVersionsChanged, this, &AccountSection::refresh);
    connect(&sync, &SyncEngine::keepsInStepChanged, this, &AccountSection::refresh);
    auth.load(); // the hub on screen is the first time the account matters
    refresh();
}

QString AccountSection::lastSyncText(const QDateTime& lastSyncedAt)
{
    if (!lastSyncedAt.isValid())
        return QStringLiteral("Not synced yet");
    return QStringLiteral("Last sync ") +
           QLocale().toString(lastSyncedAt.toLocalTime().time(), QLocale::ShortFormat);
}

bool AccountSection::showsSignedIn() const
{
    return m_stack->currentWidget() == m_signedIn;
}

SignInSheet* AccountSection::signInSheet() const
{
    return window()->findChild<SignInSheet*>();
}

void AccountSection::refresh()
{
    const AuthService& auth = m_auth;
    const SyncEngine& sync = m_syncEngine;
    m_stack->setCurrentWidget(auth.isLoading()    ? m_loading
                              : auth.isSignedIn() ? m_signedIn
                                                  : m_signedOut);
    m_keychainProblem->setText(auth.keychainProblem());
    m_keychainProblem->setVisible(!auth.keychainProblem().isEmpty());
    m_lastSync->setText(lastSyncText(sync.lastSyncedAt()));
    const bool syncing = sync.isSyncing();
    m_sync->setEnabled(!syncing);
    // A spinner would need an animation timer; the text says the same.
    m_sync->setText(syncing ? QStringLiteral("Syncing…") : QStringLiteral("Sync"));
    m_sync->setIcon(syncing ? QIcon() : SymbolIcon::icon(QStringLiteral("arrow.clockwise")));
    m_sync->setAccessibleName(syncing ? QStringLiteral("Syncing") : QStringLiteral("Sync"));
    // Only a server that keeps versions can keep two computers in step.
    m_inStep->setVisible(sync.serverHasVersions());
    m_inStep->setChecked(sync.keepsInStep());
    m_error->setText(sync.lastError());
    m_error->setVisible(!sync.lastError().isEmpty());
}

void AccountSection::openSignIn()
{
    if (signInSheet())
        return;
    auto* sheet = new SignInSheet(m_auth, m_client, window());
    emit signInSheetOpened(sheet);
    sheet->open();
}
