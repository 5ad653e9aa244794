#include "PomodoroConfig.h"

#include "Clock.h"
#include "ModelContext.h"

PomodoroConfig* PomodoroConfig::createDefault()
{
    auto* config = new PomodoroConfig;
    config->m_id = QUuid::createUuid();
    config->m_firstPomodoroCountDate = Clock::now();
    return config;
}

PomodoroConfig* PomodoroConfig::singleton(ModelContext& context)
{
    const QList<PomodoroConfig*> existing = context.fetch<PomodoroConfig>();
    if (!existing.isEmpty())
        return existing.first();
    PomodoroConfig* config = createDefault();
    context.insert(config);
    context.save();
    return config;
}
