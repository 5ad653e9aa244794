#pragma once

#include "HttpAnswer.h"

#include <QElapsedTimer>
#include <QHash>
#include <QMultiHash>
#include <QObject>

#include <array>
#include <chrono>
#include <deque>
#include <functional>

class QTimer;

// The long poll behind GET /api/v1/changes: a client names the versions it has,
// and is answered as soon as one of its user's resources moves past them, or
// with 304 when nothing moved within the patience. A waiting client costs a
// record here and its connection, no thread and no timer of its own.
class ChangeFeed final : public QObject
{
    Q_OBJECT

public:
    using Versions = std::array<qint64, 3>; // habits, tasks, pomodoro
    using Reply = std::function<void(HttpAnswer)>;

    explicit ChangeFeed(std::chrono::milliseconds patience, QObject* parent = nullptr);

    // Both may be called from any thread; the work is done on the feed's own.
    void changed(qint64 userId, int kind, qint64 version);
    void wait(qint64 userId, const Versions& known, Reply reply);
    // Answers everyone waiting (304) now: the server is stopping.
    void release();

    int waiting() const { return int(m_waiters.size()); }
    // 200 with {"habits":H,"tasks":T,"pomodoro":P}.
    static HttpAnswer moved(const Versions& versions);
    static HttpAnswer unmoved();

private:
    struct Waiter
    {
        qint64 userId = 0;
        Versions known{};
        Reply reply;
    };

    void onChanged(qint64 userId, int kind, qint64 version);
    void onWait(qint64 userId, const Versions& known, Reply reply);
    void expire();
    void answer(quint64 id, const HttpAnswer& answer);

    const std::chrono::milliseconds m_patience;
    QTimer* m_timer;
    QElapsedTimer m_age;
    quint64 m_nextId = 1;
    QHash<quint64, Waiter> m_waiters;
    QMultiHash<qint64, quint64> m_byUser;
    std::deque<std::pair<qint64, quint64>> m_due; // (ms of m_age, id), oldest first
    // The newest version of each user's resources this process stored: a change
    // that lands between a client's read of the versions and its wait is not missed.
    QHash<qint64, Versions> m_latest;
    bool m_released = false;
};
