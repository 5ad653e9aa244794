#pragma once

#include "AuthService.h"
#include "Clock.h"
#include "DataStore.h"
#include "KeychainBackend.h"
#include "ModuleLoader.h"
#include "NotificationBackend.h"
#include "SleepInhibitor.h"

#include <QString>

#include <memory>

class APIClient;
class AudioService;
class DataTransfer;
class DailyResetService;
class HabitsService;
class KeychainStore;
class NotificationService;
class PomodoroService;
class PowerService;
class SyncBaseStore;
class SyncEngine;
class PlacementService;
class TasksService;

// The composition root: builds every service in layer order, hands each its
// collaborators through its constructor, and hands them on to the controller,
// which hands each view the ones it uses. One per process; tests build their own
// from fakes, and a second one over the same store is a restart.
class AppServices final
{
public:
    // What differs between the app and a test. Anything left empty is the
    // desktop's own.
    struct Parts
    {
        std::unique_ptr<DataStore> store{}; // required
        Clock::Source clock{};
        std::unique_ptr<NotificationBackend> notifications{};
        std::unique_ptr<SleepInhibitor> inhibitor{};
        std::shared_ptr<KeychainBackend> keychain{};
        // Opens the sign-in page in the user's browser (the desktop's, from the app);
        // without one, nothing opens.
        AuthService::BrowserOpener browser{};
        QString moduleDirectory{}; // where the sound and network modules are
    };

    explicit AppServices(Parts parts);
    ~AppServices();
    AppServices(const AppServices&) = delete;
    AppServices& operator=(const AppServices&) = delete;

    const Clock& clock() const { return m_clock; }
    DataStore& store() const { return *m_store; }
    DailyResetService& dayReset() const { return *m_dayReset; }
    AudioService& audio() const { return *m_audio; }
    NotificationService& notifications() const { return *m_notifications; }
    PowerService& power() const { return *m_power; }
    KeychainStore& keychain() const { return *m_keychain; }
    APIClient& client() const { return *m_client; }
    AuthService& auth() const { return *m_auth; }
    SyncEngine& sync() const { return *m_sync; }
    HabitsService& habits() const { return *m_habits; }
    TasksService& tasks() const { return *m_tasks; }
    PomodoroService& timer() const { return *m_timer; }
    DataTransfer& transfer() const { return *m_transfer; }
    PlacementService& placements() const { return *m_placements; }

private:
    // In layer order; destroyed the other way round.
    Clock m_clock;
    ModuleLoader m_modules;
    std::unique_ptr<DataStore> m_store;
    std::unique_ptr<DailyResetService> m_dayReset;
    std::unique_ptr<AudioService> m_audio;
    std::unique_ptr<NotificationService> m_notifications;
    std::unique_ptr<PowerService> m_power;
    std::unique_ptr<KeychainStore> m_keychain;
    std::unique_ptr<APIClient> m_client;
    std::unique_ptr<AuthService> m_auth;
    std::unique_ptr<SyncBaseStore> m_bases;
    std::unique_ptr<SyncEngine> m_sync;
    std::unique_ptr<HabitsService> m_habits;
    std::unique_ptr<TasksService> m_tasks;
    std::unique_ptr<PomodoroService> m_timer;
    std::unique_ptr<DataTransfer> m_transfer;
    std::unique_ptr<PlacementService> m_placements;
};
