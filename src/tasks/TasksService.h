#pragma once

#include "DebouncedPush.h"

#include <QList>
#include <QObject>
#include <QString>

#include <functional>

class AudioService;
class DataStore;
class ModelContext;
class TaskItem;
class TaskList;

// Every change to the task lists goes through here: lists, tasks, check-off and
// each list's focus task. Changes are saved and pushed once per burst (500 ms
// after the last).
class TasksService final : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool bootstrapped READ isBootstrapped NOTIFY bootstrappedChanged)

public:
    static constexpr int SaveDelayMs = 500;

    // `push` runs after each debounced save (the sync engine's tasks push in the app).
    TasksService(DataStore& store, AudioService& audio, DebouncedPush::Push push,
                 QObject* parent = nullptr);

    // First call only: a store without lists gets "Example Task List".
    void bootstrap();
    bool isBootstrapped() const { return m_bootstrapped; }

    TaskList* createList(const QString& name, ModelContext& context);
    void renameList(TaskList* list, const QString& name, ModelContext& context);
    void deleteList(TaskList* list, ModelContext& context);
    // Blank text (only spaces and tabs) is refused with the error sound.
    TaskItem* addTask(const QString& text, TaskList* list, ModelContext& context);
    void editTask(TaskItem* task, const QString& newText, ModelContext& context);
    void toggleCheck(TaskItem* task, ModelContext& context);
    // Makes `task` the list's focus task, or clears it when `task` is null.
    void highlight(TaskItem* task, TaskList* list, ModelContext& context);
    void deleteTask(TaskItem* task, ModelContext& context);
    void deleteFinishedTasks(TaskList* list, ModelContext& context);
    void deleteAllTasks(TaskList* list, ModelContext& context);
    // The user turned to another list: it is heard.
    void listChosen();

    // The list's tasks by order; equal orders keep their stored sequence.
    static QList<TaskItem*> sortedTasks(const TaskList* list);
    // The lists in the widget's order.
    static QList<TaskList*> listsInOrder(ModelContext& context);

signals:
    void bootstrappedChanged();

private:
    void save(ModelContext& context);

    DataStore& m_store;
    AudioService& m_audio;
    DebouncedPush* m_saver;
    bool m_bootstrapped = false;
};
