#include "PomodoroConfig.h"

#include "ModelContext.h"

PomodoroConfig* PomodoroConfig::createDefault(const QDateTime& countingFrom)
{
    auto* config = new PomodoroConfig;
    config->m_id = QUuid::createUuid();
    config->m_firstPomodoroCountDate = countingFrom;
    return config;
}

PomodoroConfig* PomodoroConfig::singleton(ModelContext& context, const QDateTime& now)
{
    const QList<PomodoroConfig*> existing = context.fetch<PomodoroConfig>();
    if (!existing.isEmpty())
        return existing.first();
    PomodoroConfig* config = createDefault(now);
    context.insert(config);
    context.save();
    return config;
}
