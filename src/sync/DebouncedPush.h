#pragma once

#include <QCoro/QCoroTask>
#include <QObject>
#include <QString>

#include <chrono>
#include <functional>

class Debouncer;
class ModelContext;

// Saves the store and pushes one resource to the web service once per burst of
// local changes: each request restarts the wait, so only the last one runs.
class DebouncedPush final : public QObject
{
    Q_OBJECT

public:
    using Push = std::function<QCoro::Task<>()>;

    DebouncedPush(QString key, std::chrono::milliseconds delay, Push push, QObject* parent);

    void request(ModelContext& context);
    // Tests observe pushes here instead of reaching the sync engine.
    void setPushHandler(std::function<void()> push) { m_testPush = std::move(push); }

private:
    QString m_key;
    std::chrono::milliseconds m_delay;
    Push m_push;
    std::function<void()> m_testPush;
    Debouncer* m_debouncer;
};
