#include "SyncEngine.h"

SyncEngine& SyncEngine::shared()
{
    static SyncEngine* instance = new SyncEngine;
    return *instance;
}

QCoro::Task<> SyncEngine::pullAll()
{
    co_return;
}
QCoro::Task<> SyncEngine::pushHabits()
{
    co_return;
}
QCoro::Task<> SyncEngine::pushTasks()
{
    co_return;
}
QCoro::Task<> SyncEngine::pushPomodoro()
{
    co_return;
}
bool SyncEngine::isSyncing() const
{
    return false;
}
bool SyncEngine::isApplyingRemote() const
{
    return false;
}
QString SyncEngine::lastError() const
{
    return {};
}
