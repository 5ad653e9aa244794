#include "DebouncedPush.h"

#include "Debouncer.h"
#include "ModelContext.h"

#include <QTimer>

DebouncedPush::DebouncedPush(QString key, std::chrono::milliseconds delay, Push push,
                             QObject* parent)
    : QObject(parent)
    , m_key(std::move(key))
    , m_delay(delay)
    , m_push(std::move(push))
    , m_debouncer(new Debouncer(this))
    , m_saveDeadline(new QTimer(this))
{
    m_saveDeadline->setSingleShot(true);
    m_saveDeadline->setInterval(MaxUnsaved);
    connect(m_saveDeadline, &QTimer::timeout, this, [this] {
        if (m_target)
            m_target->save();
    });
}

void DebouncedPush::request(ModelContext& context)
{
    QPointer<ModelContext> target(&context);
    m_target = target;
    if (!m_saveDeadline->isActive())
        m_saveDeadline->start();
    m_debouncer->schedule(m_key, m_delay, [this, target] {
        m_saveDeadline->stop();
        if (target)
            target->save(); // a failed save keeps the changes for the next one
        QCoro::connect(m_push(), this, [] {});
    });
}
