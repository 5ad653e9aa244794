#pragma once

#include <QHash>
#include <QObject>
#include <QString>

#include <chrono>
#include <functional>

class QTimer;

// Runs an action once after a quiet period, per key: a burst of schedule() calls
// with one key runs its action once, `delay` after the last call. Keys do not
// affect each other. Actions run on the thread that owns the debouncer.
class Debouncer final : public QObject
{
    Q_OBJECT

public:
    explicit Debouncer(QObject* parent = nullptr);
    ~Debouncer() override;

    void schedule(const QString& key, std::chrono::milliseconds delay,
                  std::function<void()> action);
    // Drops the pending action of `key`, if any.
    void cancel(const QString& key);
    bool isPending(const QString& key) const;

private:
    // One timer per key, restarted by each call: a burst allocates nothing.
    struct Pending
    {
        QTimer* timer = nullptr;
        std::function<void()> action;
    };
    QHash<QString, Pending> m_pending;
};
