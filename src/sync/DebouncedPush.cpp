#include "DebouncedPush.h"

#include "Debouncer.h"
#include "ModelContext.h"

#include <QPointer>

DebouncedPush::DebouncedPush(QString key, std::chrono::milliseconds delay, Push push,
                             QObject* parent)
    : QObject(parent)
    , m_key(std::move(key))
    , m_delay(delay)
    , m_push(std::move(push))
    , m_debouncer(new Debouncer(this))
{}

void DebouncedPush::request(ModelContext& context)
{
    QPointer<ModelContext> target(&context);
    m_debouncer->schedule(m_key, m_delay, [this, target] {
        if (target)
            target->save(); // a failed save keeps the changes for the next one
        if (m_testPush)
            m_testPush();
        else
            QCoro::connect(m_push(), this, [] {});
    });
}
