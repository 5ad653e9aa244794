#pragma once

#include <QElapsedTimer>
#include <QString>

#include <atomic>
#include <mutex>

// Says once that the database stopped answering, and once that it is back, however
// many requests meet the outage in between and on whichever thread.
class OutageLog
{
public:
    void failed(const QString& reason);
    void answered();
    bool isDown() const;

private:
    mutable std::mutex m_mutex;
    std::atomic<bool> m_down{false}; // read without the lock on every request
    QElapsedTimer m_since;
};
