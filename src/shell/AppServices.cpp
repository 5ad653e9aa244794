#include "AppServices.h"

#include "APIClient.h"
#include "AudioService.h"
#include "DailyResetService.h"
#include "DataStore.h"
#include "DataTransfer.h"
#include "HabitsService.h"
#include "KeychainStore.h"
#include "NotificationBackend.h"
#include "NotificationService.h"
#include "PlacementService.h"
#include "PomodoroService.h"
#include "PowerService.h"
#include "Preferences.h"
#include "SleepInhibitor.h"
#include "SyncBaseStore.h"
#include "SyncEngine.h"
#include "TasksService.h"

namespace {
ModuleLoader modulesIn(const QString& directory)
{
    return directory.isEmpty() ? ModuleLoader() : ModuleLoader(directory);
}
} // namespace

AppServices::AppServices(Parts parts)
    : m_clock(std::move(parts.clock))
    , m_modules(modulesIn(parts.moduleDirectory))
    , m_store(std::move(parts.store))
{
    Q_ASSERT(m_store);
    m_dayReset = std::make_unique<DailyResetService>(m_clock);
    m_audio = std::make_unique<AudioService>(m_modules);
    m_notifications = std::make_unique<NotificationService>(
        m_clock,
        parts.notifications ? std::move(parts.notifications) : NotificationBackend::create());
    m_power = std::make_unique<PowerService>(parts.inhibitor ? std::move(parts.inhibitor)
                                                             : SleepInhibitor::create());
    m_keychain = std::make_unique<KeychainStore>(
        parts.keychain ? parts.keychain : KeychainBackend::system(m_modules));
    m_client = std::make_unique<APIClient>(*m_keychain, m_modules);
    m_auth = std::make_unique<AuthService>(
        *m_client, *m_keychain,
        parts.browser ? std::move(parts.browser) : [](const QUrl&) { return false; });
    m_bases = std::make_unique<SyncBaseStore>(*m_store);
    m_sync = std::make_unique<SyncEngine>(*m_store, *m_client, *m_auth, m_clock, m_bases.get());
    m_sync->setKeepInStep(Preferences::keepInStep());
    QObject::connect(m_sync.get(), &SyncEngine::keepsInStepChanged, m_sync.get(),
                     [sync = m_sync.get()] { Preferences::setKeepInStep(sync->keepsInStep()); });

    SyncEngine* sync = m_sync.get();
    m_habits = std::make_unique<HabitsService>(*m_store, m_clock, *m_audio, *m_dayReset,
                                               [sync] { return sync->pushHabits(); });
    m_tasks =
        std::make_unique<TasksService>(*m_store, *m_audio, [sync] { return sync->pushTasks(); });
    m_timer = std::make_unique<PomodoroService>(PomodoroService::Collaborators{
        *m_store, m_clock, *m_audio, *m_power, *m_notifications, *m_dayReset,
        PhaseEndNotice::through(*m_notifications), [sync] { return sync->pushPomodoro(); }});
    m_transfer = std::make_unique<DataTransfer>(*m_store, m_clock, m_timer.get(), sync);
    m_placements = std::make_unique<PlacementService>(m_store->mainContext());
}

AppServices::~AppServices() = default;
