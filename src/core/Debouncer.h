#pragma once

#include <QObject>
#include <QString>

#include <chrono>
#include <functional>
#include <map>
#include <memory>

// Runs an action once after a quiet period, per key: a burst of schedule() calls
// with one key runs its action once, `delay` after the last call. Keys do not
// affect each other. Actions run on the thread that owns the debouncer.
class Debouncer final : public QObject
{
    Q_OBJECT

public:
    // One key's quiet period, restarted by each call of its burst.
    class Wait
    {
    public:
        virtual ~Wait() = default;
        virtual void start(std::chrono::milliseconds delay) = 0;
        virtual void stop() = 0;
        virtual bool isActive() const = 0;
    };
    // Makes the wait of one key, which calls `elapsed` when it runs out. A timer on
    // the debouncer's thread by default; tests run theirs out by hand.
    using WaitFactory = std::function<std::unique_ptr<Wait>(std::function<void()> elapsed)>;

    explicit Debouncer(QObject* parent = nullptr, WaitFactory waits = {});
    ~Debouncer() override;

    void schedule(const QString& key, std::chrono::milliseconds delay,
                  std::function<void()> action);
    // Drops the pending action of `key`, if any.
    void cancel(const QString& key);
    bool isPending(const QString& key) const;

private:
    void elapsed(const QString& key);

    // One wait per key, restarted by each call: a burst allocates nothing.
    struct Pending
    {
        std::unique_ptr<Wait> wait;
        std::function<void()> action;
    };
    WaitFactory m_waits;
    std::map<QString, Pending> m_pending;
};
