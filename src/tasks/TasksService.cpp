#include "TasksService.h"

#include "AudioService.h"
#include "Blanks.h"
#include "DataStore.h"
#include "DebouncedPush.h"
#include "FetchRequest.h"
#include "ModelContext.h"
#include "TaskItem.h"
#include "TaskList.h"

#include <algorithm>

TasksService::TasksService(DataStore& store, AudioService& audio, DebouncedPush::Push push,
                           QObject* parent)
    : QObject(parent)
    , m_store(store)
    , m_audio(audio)
    , m_saver(new DebouncedPush(QStringLiteral("tasks"), std::chrono::milliseconds(SaveDelayMs),
                                std::move(push), this))
{}

void TasksService::bootstrap()
{
    if (m_bootstrapped)
        return;
    m_bootstrapped = true;
    emit bootstrappedChanged();
    ModelContext& context = m_store.mainContext();
    if (context.count<TaskList>() > 0)
        return;
    context.insert(new TaskList(QStringLiteral("Example Task List"), 0));
    context.save();
}

TaskList* TasksService::createList(const QString& name, ModelContext& context)
{
    qint64 next = 0;
    for (const TaskList* l : context.fetch<TaskList>())
        next = std::max(next, l->order() + 1);
    auto* list = new TaskList(name, next);
    context.insert(list);
    save(context);
    return list;
}

void TasksService::renameList(TaskList* list, const QString& name, ModelContext& context)
{
    if (!list)
        return;
    list->setName(name);
    save(context);
}

void TasksService::deleteList(TaskList* list, ModelContext& context)
{
    if (!list)
        return;
    context.remove(list);
    save(context);
}

TaskItem* TasksService::addTask(const QString& text, TaskList* list, ModelContext& context)
{
    if (Blanks::isBlank(text)) {
        m_audio.play(AudioService::Sound::Error1);
        return nullptr;
    }
    qint64 next = 0;
    if (list) {
        for (const TaskItem* t : list->tasks())
            next = std::max(next, t->order() + 1);
    }
    auto* task = new TaskItem(text, next, list);
    context.insert(task);
    m_audio.play(AudioService::Sound::NewTask);
    save(context);
    return task;
}

void TasksService::editTask(TaskItem* task, const QString& newText, ModelContext& context)
{
    if (!task)
        return;
    task->setHeader(newText);
    save(context);
}

void TasksService::toggleCheck(TaskItem* task, ModelContext& context)
{
    if (!task)
        return;
    task->setChecked(!task->checked());
    m_audio.play(task->checked() ? AudioService::Sound::Check : AudioService::Sound::Uncheck);
    TaskList* list = task->list();
    if (list && task->checked() && list->highlightedTaskId() == task->id())
        list->setHighlightedTaskId({});
    save(context);
}

void TasksService::highlight(TaskItem* task, TaskList* list, ModelContext& context)
{
    if (!list)
        return;
    list->setHighlightedTaskId(task ? task->id() : QUuid());
    save(context);
}

void TasksService::deleteTask(TaskItem* task, ModelContext& context)
{
    if (!task)
        return;
    TaskList* list = task->list();
    if (list && list->highlightedTaskId() == task->id())
        list->setHighlightedTaskId({});
    context.remove(task);
    save(context);
}

void TasksService::deleteFinishedTasks(TaskList* list, ModelContext& context)
{
    if (!list)
        return;
    for (TaskItem* task : list->tasks()) {
        if (task->checked())
            context.remove(task);
    }
    list->setHighlightedTaskId({});
    save(context);
}

void TasksService::listChosen()
{
    m_audio.play(AudioService::Sound::ChangeList);
}

void TasksService::deleteAllTasks(TaskList* list, ModelContext& context)
{
    if (!list)
        return;
    for (TaskItem* task : list->tasks())
        context.remove(task);
    list->setHighlightedTaskId({});
    save(context);
}

QList<TaskList*> TasksService::listsInOrder(ModelContext& context)
{
    return context.fetch<TaskList>(FetchRequest::sortedBy(QStringLiteral("order")));
}

QList<TaskItem*> TasksService::sortedTasks(const TaskList* list)
{
    if (!list)
        return {};
    QList<TaskItem*> tasks = list->tasks();
    std::stable_sort(tasks.begin(), tasks.end(),
                     [](const TaskItem* a, const TaskItem* b) { return a->order() < b->order(); });
    return tasks;
}

void TasksService::save(ModelContext& context)
{
    m_saver->request(context);
}
