#pragma once

#include <QDBusContext>
#include <QObject>
#include <QString>
#include <QVariantMap>

class DataTransfer;
class HabitsService;
class ModelContext;
class PomodoroService;
class TasksService;

// Tidewell on the session bus: name com.brenlow.tidewell, object
// /com/brenlow/tidewell with the Timer, Habits, Tasks and Data interfaces, for
// shortcuts, status bars and scripts (`tidewell ctl` among them). Documented in
// docs/com.brenlow.tidewell.xml.
class DesktopBus final : public QObject, public QDBusContext
{
    Q_OBJECT

public:
    static inline const QString Service = QStringLiteral("com.brenlow.tidewell");
    static inline const QString ObjectPath = QStringLiteral("/com/brenlow/tidewell");
    static inline const QString TimerInterface = QStringLiteral("com.brenlow.tidewell.Timer");
    static inline const QString HabitsInterface = QStringLiteral("com.brenlow.tidewell.Habits");
    static inline const QString TasksInterface = QStringLiteral("com.brenlow.tidewell.Tasks");
    static inline const QString DataInterface = QStringLiteral("com.brenlow.tidewell.Data");

    // The errors the interfaces answer with; `tidewell ctl` reads any of them as a
    // refusal (exit status 2).
    static inline const QString ErrorPrefix = QStringLiteral("com.brenlow.tidewell.Error.");
    enum class Error { Failed, InvalidArgs, NoSuchHabit, NoSuchList, NoSuchTask, EmptyTask };

    DesktopBus(PomodoroService& timer, HabitsService& habits, TasksService& tasks,
               ModelContext& context, DataTransfer& transfer, QObject* parent = nullptr);

    // Registers the object and asks for the name from a short-lived thread: both
    // wait for the bus daemon, and the GUI thread never waits for D-Bus. Emits
    // `registered` with the outcome.
    void publish();

    // Answers the call `adaptor` is serving with `error` instead of its reply. The
    // call's context belongs to the registered object, the adaptor's parent.
    static void refuse(const QObject* adaptor, Error error, const QString& message);

    // Sends org.freedesktop.DBus.Properties.PropertiesChanged for `interface`.
    static void announce(const QString& interface, const QVariantMap& changed);

signals:
    void registered(bool ok, const QString& why);
    // A caller asked for the history window.
    void historyRequested();
};
