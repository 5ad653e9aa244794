#pragma once

#include <QCoro/QCoroTask>
#include <QObject>
#include <QPointer>
#include <QString>

#include <chrono>
#include <functional>

class Debouncer;
class ModelContext;
class QTimer;

// Saves the store and pushes one resource to the web service once per burst of
// local changes: each request restarts the wait, so only the last one runs. A burst
// that never pauses still reaches the disk every MaxUnsaved, so a crash in the
// middle of a minute of quick edits loses seconds, not the minute; the push keeps
// waiting for the pause.
class DebouncedPush final : public QObject
{
    Q_OBJECT

public:
    using Push = std::function<QCoro::Task<>()>;
    static constexpr std::chrono::milliseconds MaxUnsaved{2000};

    DebouncedPush(QString key, std::chrono::milliseconds delay, Push push, QObject* parent);

    void request(ModelContext& context);

private:
    QString m_key;
    std::chrono::milliseconds m_delay;
    Push m_push;
    Debouncer* m_debouncer;
    QTimer* m_saveDeadline; // runs from the first unsaved request until a save
    QPointer<ModelContext> m_target;
};
