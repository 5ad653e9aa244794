#pragma once

#include <QObject>
#include <QPointer>
#include <QUrl>

#include <functional>

class AppServices;
class HistoryWindow;
class HubWindow;
class SingleInstance;
class StoreCheck;
class WindowManager;

// The application's lifecycle: start-up order, the quit guard while a focus
// phase runs, shut-down, signals, and requests from later launches.
class AppController final : public QObject
{
    Q_OBJECT

public:
    // Asked before quitting while the timer runs; calls `answer` with true for
    // "Quit anyway". Tests replace it.
    using QuitConfirmation = std::function<void(std::function<void(bool)> answer)>;

    explicit AppController(AppServices& services, QObject* parent = nullptr);
    ~AppController() override;

    // The tray items, panels and widget windows.
    WindowManager& windows() const { return *m_windows; }

    enum class Launch {
        Normal,     // opened by the user: the hub shows
        Background, // started at login: the hub shows only when no widget is placed
    };

    // Runs the start-up sequence and shows the hub window.
    void start(Launch launch = Launch::Normal);
    // Serves later launches through `instance` (activate, URLs).
    void attach(SingleInstance* instance);

    // The quit guard: asks while a focus phase runs (without blocking), then
    // pauses it, saves and quits; nothing happens when the user cancels.
    void requestQuit();
    // Quits without asking after saving (signals, session end).
    void quitNow();
    // `activation`: the desktop's token for the launch that brought the URL.
    void openUrl(const QUrl& url, const QString& activation = {});

    HubWindow* hub() const;
    // The history window, built the first time it is asked for, shown and raised.
    HistoryWindow* showHistory();
    void setQuitConfirmation(QuitConfirmation confirm) { m_confirmQuit = std::move(confirm); }

    // Quits so that the store file at `path` can take the store's place; the caller
    // of exec() restores it (pendingRestore()) and starts Tidewell again.
    void restoreAndRestart(const QString& path);
    QString pendingRestore() const { return m_pendingRestore; }
    StoreCheck* storeCheck() const { return m_check; }
    static void askToQuitDuringFocus(std::function<void(bool)> answer);

signals:
    // A URL handed over by a later launch (the sign-in callback).
    void urlReceived(const QUrl& url);

private:
    // The session, the system's clock and signals.
    void followSystem();
    void buildHub();
    // Store damage in the hub and as a notification.
    void followStoreHealth();
    void showFirstWindows(Launch launch);
    void shutDown();
    void pauseSaveAndQuit();
    void watchStore();
    void tellAboutRestore();

    AppServices& m_services;
    WindowManager* m_windows;
    QPointer<HubWindow> m_hub;
    QPointer<HistoryWindow> m_history;
    QuitConfirmation m_confirmQuit;
    bool m_askingToQuit = false; // the quit alert is open
    bool m_shutDown = false;
    StoreCheck* m_check = nullptr;
    QString m_pendingRestore;
};
