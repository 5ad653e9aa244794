#include "AppController.h"

#include "AppServices.h"
#include "AudioService.h"
#include "AuthService.h"
#include "Clock.h"
#include "ClockJumps.h"
#include "DailyResetService.h"
#include "DataDialogs.h"
#include "DataStore.h"
#include "DataTransfer.h"
#include "HabitsService.h"
#include "HistoryWindow.h"
#include "HubWindow.h"
#include "LaunchAtLogin.h"
#include "NotificationService.h"
#include "PomodoroService.h"
#include "PowerService.h"
#include "SingleInstance.h"
#include "StoreCheck.h"
#include "StoreHealth.h"
#include "StoreRestore.h"
#include "SyncEngine.h"
#include "TasksService.h"
#include "UnixSignalWatcher.h"
#include "WindowManager.h"

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QSessionManager>
#include <QSystemTrayIcon>
#include <QTimer>

#include <QCoro/QCoroTask>

#include <chrono>
#include <memory>
#include <utility>

namespace {
// How long a start at login waits for a tray before it shows the hub instead.
constexpr std::chrono::seconds kTrayGrace{5};
constexpr std::chrono::seconds kQuietAfterStart{2};
constexpr std::chrono::milliseconds kPanelsAfterHub{200};
constexpr std::chrono::seconds kPanelsGrace{2};
// The store's full check waits until start-up is well over, and is looked at
// again every hour so that a session running for days checks (and backs up) daily.
constexpr std::chrono::seconds kCheckDelay{3};
constexpr std::chrono::hours kCheckInterval{1};
} // namespace

AppController::AppController(AppServices& services, QObject* parent)
    : QObject(parent)
    , m_services(services)
    , m_windows(new WindowManager(services, this))
    , m_confirmQuit(&AppController::askToQuitDuringFocus)
{}

AppController::~AppController()
{
    delete m_history;
    delete m_hub;
}

void AppController::start(Launch launch)
{
    QApplication::setQuitOnLastWindowClosed(false);

    // A user who turned sounds off expects silence from the first second.
    m_services.audio().applySoundsPreference();
    m_services.dayReset().scheduleNext();
    m_services.timer().bootstrap();
    // Asking for the notification server may start it (bus activation): not while
    // the first windows are being drawn.
    QTimer::singleShot(kQuietAfterStart, this, [this] {
        QCoro::connect(m_services.notifications().checkAuthorization(), qApp, [] {});
    });
    WindowManager& windows = *m_windows;
    connect(&windows, &WindowManager::openHubRequested, this, [this] { m_hub->bringForward(); });
    connect(&windows, &WindowManager::quitRequested, this, &AppController::requestQuit);
    connect(&windows, &WindowManager::historyRequested, this, &AppController::showHistory);
    followSystem();
    buildHub();
    followStoreHealth();
    watchStore();
    tellAboutRestore();
    showFirstWindows(launch);
}

void AppController::followSystem()
{
    connect(qApp, &QGuiApplication::applicationStateChanged, this,
            [this](Qt::ApplicationState state) {
                if (state == Qt::ApplicationActive)
                    m_services.timer().didBecomeActive();
            });
    // An autostart entry from an earlier version would open the hub at every login.
    QTimer::singleShot(0, this, [] { LaunchAtLogin::refresh(); });
    // After a suspend or a change of the system time, whatever fell due by the
    // wall clock happens now, not when a monotonic timer next runs.
    QTimer::singleShot(0, this, [this] {
        ClockJumps* jumps = ClockJumps::create().release();
        jumps->setParent(this);
        connect(jumps, &ClockJumps::jumped, this, [this] {
            m_services.dayReset().fireIfDue();
            m_services.notifications().deliverDue();
            m_services.timer().didBecomeActive();
        });
    });
    connect(qApp, &QCoreApplication::aboutToQuit, this, &AppController::shutDown);
    // Logging out ends the session without asking: keep what the user did.
    connect(qApp, &QGuiApplication::commitDataRequest, this,
            [this](QSessionManager&) { m_services.store().mainContext().save(); });
    auto* signals_ = new UnixSignalWatcher(this);
    connect(signals_, &UnixSignalWatcher::terminationRequested, this, &AppController::quitNow);
}

void AppController::buildHub()
{
    m_hub = new HubWindow(m_services, *m_windows);
    connect(m_hub, &HubWindow::quitRequested, this, &AppController::requestQuit);
    connect(m_hub, &HubWindow::historyRequested, this, &AppController::showHistory);
    auto* dialogs = new DataDialogs(m_services, m_hub, this);
    connect(m_hub, &HubWindow::exportRequested, dialogs, &DataDialogs::exportWithDialog);
    connect(m_hub, &HubWindow::importRequested, dialogs, &DataDialogs::importWithDialog);
    connect(m_hub, &HubWindow::restoreRequested, dialogs, &DataDialogs::restoreWithDialog);
    connect(dialogs, &DataDialogs::restoreChosen, this, &AppController::restoreAndRestart);
    connect(&m_services.transfer(), &DataTransfer::restoreRequested, this,
            &AppController::restoreAndRestart);
    connect(m_hub, &HubWindow::widgetWindowRequested, this,
            [this](const QString& widgetId) { m_windows->openWindow(widgetId); });
}

void AppController::followStoreHealth()
{
    // A save that fails is said where the user looks: the hub, and a notification
    // for someone who only uses the widgets.
    auto* health = new StoreHealth(m_services.store().mainContext(), this);
    connect(health, &StoreHealth::problemChanged, m_hub,
            [this, health] { m_hub->setStoreProblem(health->problem()); });
    connect(health, &StoreHealth::announced, this,
            [this](const QString& title, const QString& body) {
                NotificationService& notices = m_services.notifications();
                auto posted = notices.schedule(title, body, m_services.clock().now().addMSecs(1));
                QCoro::connect(std::move(posted), qApp, [](auto) {});
            });
    m_hub->setStoreProblem(health->problem());
}

void AppController::showFirstWindows(Launch launch)
{
    WindowManager& windows = *m_windows;
    if (launch == Launch::Normal) {
        // Panels and tray items a moment after the hub is on screen: the window the
        // user asked for comes first, and building them at once would compete with
        // the display server and the window manager that are still placing and
        // drawing it. A hub that is never shown (another workspace) does not hold
        // them back for long.
        auto pending = std::make_shared<bool>(true);
        auto restore = [&windows, pending] {
            if (std::exchange(*pending, false))
                windows.restoreFromPersistence();
        };
        connect(m_hub, &HubWindow::onScreen, &windows,
                [&windows, restore] { QTimer::singleShot(kPanelsAfterHub, &windows, restore); });
        QTimer::singleShot(kPanelsGrace, &windows, restore);
        m_hub->bringForward();
        return;
    }
    // Started at login: the placed widgets are the app. With none, the hub is the
    // only way in, so it shows after all.
    windows.restoreFromPersistence();
    if (windows.hostCount() == 0) {
        m_hub->bringForward();
    } else if (windows.panelCount() == 0 && !QSystemTrayIcon::isSystemTrayAvailable()) {
        // Only tray items, and no tray yet: at login the tray often starts after us,
        // so it gets a moment; on a desktop without one, the hub comes.
        QTimer::singleShot(kTrayGrace, m_hub, [this] {
            if (!QSystemTrayIcon::isSystemTrayAvailable())
                m_hub->bringForward();
        });
    }
}

void AppController::attach(SingleInstance* instance)
{
    connect(instance, &SingleInstance::activateRequested, this, [this](const QString& activation) {
        if (m_hub)
            m_hub->bringForward(activation);
    });
    connect(instance, &SingleInstance::urlReceived, this, &AppController::openUrl);
}

void AppController::openUrl(const QUrl& url, const QString& activation)
{
    // A sign-in callback finishes what the hub's sheet started: show it there.
    if (m_hub && url.scheme() == AuthService::appURLScheme())
        m_hub->bringForward(activation);
    emit urlReceived(url);
    // Sign-in decides whether the URL is its callback; anything else is ignored.
    QCoro::connect(m_services.auth().consumeCallback(url), this, [] {});
}

void AppController::askToQuitDuringFocus(std::function<void(bool)> answer)
{
    auto* box = new QMessageBox(QMessageBox::Warning, QStringLiteral("Pomodoro session running"),
                                QStringLiteral("Pomodoro session running"));
    box->setObjectName(QStringLiteral("quitGuard"));
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setInformativeText(
        QStringLiteral("Quitting now will end your current focus session. Are you sure?"));
    QPushButton* quit = box->addButton(QStringLiteral("Quit anyway"), QMessageBox::AcceptRole);
    QPushButton* cancel = box->addButton(QStringLiteral("Cancel"), QMessageBox::RejectRole);
    box->setDefaultButton(quit);
    box->setEscapeButton(cancel);
    QObject::connect(box, &QMessageBox::buttonClicked, box,
                     [quit, answer](QAbstractButton* clicked) { answer(clicked == quit); });
    box->open();
}

void AppController::requestQuit()
{
    if (!m_services.timer().isActive()) {
        pauseSaveAndQuit();
        return;
    }
    // A second request while the alert is open brings that alert forward.
    if (m_askingToQuit) {
        for (QWidget* window : QApplication::topLevelWidgets()) {
            if (window->objectName() == u"quitGuard" && window->isVisible()) {
                window->raise();
                window->activateWindow();
            }
        }
        return;
    }
    m_askingToQuit = true;
    QPointer<AppController> self(this);
    m_confirmQuit([self](bool quit) {
        if (!self)
            return;
        self->m_askingToQuit = false;
        if (quit)
            self->pauseSaveAndQuit();
    });
}

void AppController::pauseSaveAndQuit()
{
    PomodoroService& timer = m_services.timer();
    if (timer.isActive())
        timer.pause();
    m_services.store().mainContext().save();
    QCoreApplication::quit();
}

void AppController::quitNow()
{
    m_services.store().mainContext().save();
    QCoreApplication::quit();
}

void AppController::shutDown()
{
    if (m_shutDown)
        return;
    m_shutDown = true;
    // Reached only by a clean quit: the next start need not check the store at once.
    if (m_check)
        m_check->end();
    m_services.power().release();
    m_services.notifications().cancelAll();
    m_services.dayReset().stop();
}

HubWindow* AppController::hub() const
{
    return m_hub;
}

HistoryWindow* AppController::showHistory()
{
    if (!m_history)
        m_history = new HistoryWindow(m_services.store(), m_services.clock());
    m_history->show();
    m_history->raise();
    m_history->activateWindow();
    return m_history;
}

void AppController::watchStore()
{
    ModelContext& context = m_services.store().mainContext();
    m_check = new StoreCheck(m_services.store().path(), m_services.clock(), this);
    m_check->begin();
    connect(m_check, &StoreCheck::damaged, &context, &ModelContext::markDamaged);
    connect(m_check, &StoreCheck::backupFailed, this, [](const QString& reason) {
        qWarning("Tidewell: today's backup of the store failed: %s", qPrintable(reason));
    });
    const auto checkIfDue = [this, &context] {
        if (context.damage().isEmpty())
            m_check->runIfDue();
    };
    QTimer::singleShot(kCheckDelay, this, checkIfDue);
    auto* daily = new QTimer(this);
    daily->setInterval(kCheckInterval);
    connect(daily, &QTimer::timeout, this, checkIfDue);
    daily->start();
}

void AppController::tellAboutRestore()
{
    const StoreRestore::Note note = StoreRestore::takeNote(m_services.store().path());
    if (note.restored.isEmpty())
        return;
    QString body = u"Tidewell now holds the data of " + note.restored + u'.';
    if (!note.aside.isEmpty())
        body += u" The store as it was is kept as " + note.aside + u'.';
    QCoro::connect(m_services.notifications().schedule(QStringLiteral("Backup restored"), body,
                                                       m_services.clock().now().addMSecs(1)),
                   qApp, [](auto) {});
    // As after an import: each resource once, whole; dropped while signed out.
    SyncEngine& sync = m_services.sync();
    QCoro::connect(sync.pushHabits(), this, [] {});
    QCoro::connect(sync.pushTasks(), this, [] {});
    QCoro::connect(sync.pushPomodoro(), this, [] {});
}

void AppController::restoreAndRestart(const QString& path)
{
    m_pendingRestore = path;
    PomodoroService& timer = m_services.timer();
    if (timer.isActive())
        timer.pause();
    // Whatever is pending belongs to the store being moved aside; a damaged one
    // refuses it, and the copy aside is what remains of it.
    m_services.store().mainContext().save();
    // After the reply to a bus caller has gone out.
    QTimer::singleShot(0, qApp, &QCoreApplication::quit);
}
