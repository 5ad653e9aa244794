#include "AudioService.h"
#include "DataStore.h"
#include "TaskItem.h"
#include "TaskList.h"
#include "TasksService.h"

#include <QSignalSpy>
#include <QTest>

namespace {
QStringList headers(const QList<TaskItem*>& tasks)
{
    QStringList out;
    for (const TaskItem* t : tasks)
        out << t->header();
    return out;
}
} // namespace

class TestTasksService final : public QObject
{
    Q_OBJECT

    std::unique_ptr<TasksService> m_service;
    int m_pushes = 0;
    int m_saves = 0;

    ModelContext& context() { return DataStore::shared().mainContext(); }
    TasksService& service() { return *m_service; }

private slots:
    void init()
    {
        QString error;
        DataStore::setShared(DataStore::open(QStringLiteral(":memory:"), &error));
        connect(&context(), &ModelContext::saved, this, [this] { ++m_saves; });
        m_service = std::make_unique<TasksService>();
        m_service->setPushHandler([this] { ++m_pushes; });
        m_pushes = m_saves = 0;
        AudioService::shared().setMuted(false);
    }

    void bootstrapCreatesTheFirstListOnce()
    {
        service().bootstrap();
        QList<TaskList*> lists = context().fetch<TaskList>();
        QCOMPARE(lists.size(), 1);
        QCOMPARE(lists[0]->name(), QStringLiteral("Example Task List"));
        QCOMPARE(lists[0]->order(), qint64(0));
        QVERIFY(lists[0]->tasks().isEmpty());
        QCOMPARE(m_saves, 1); // at once, not debounced
        service().bootstrap();
        QCOMPARE(context().fetch<TaskList>().size(), 1);

        // A store that has a list gets none; one emptied gets it back on the next start.
        TasksService next;
        next.setPushHandler([] {});
        service().deleteList(lists[0], context());
        TaskList* mine = next.createList(QStringLiteral("Mine"), context());
        next.bootstrap();
        QCOMPARE(context().fetch<TaskList>(), QList<TaskList*>{mine});
        QCOMPARE(mine->order(), qint64(0));
        QCOMPARE(m_pushes, 0);
    }

    void addingOrdersAndBlankText()
    {
        TaskList* list = service().createList(QStringLiteral("Work"), context());
        QSignalSpy played(&AudioService::shared(), &AudioService::played);
        QVERIFY(!service().addTask(QStringLiteral(" \t "), list, context()));
        QVERIFY(!service().addTask(QString(), list, context()));
        QCOMPARE(played.count(), 2);
        QCOMPARE(played[0][0].value<AudioService::Sound>(), AudioService::Sound::Error1);
        QVERIFY(list->tasks().isEmpty());

        for (const char* text : {"a", "b", "c"})
            service().addTask(QString::fromLatin1(text), list, context());
        QList<TaskItem*> tasks = TasksService::sortedTasks(list);
        QCOMPARE(headers(tasks), (QStringList{"a", "b", "c"}));
        QCOMPARE(tasks[2]->order(), qint64(2));
        QVERIFY(!tasks[0]->priority().has_value());
        QCOMPARE(played.last()[0].value<AudioService::Sound>(), AudioService::Sound::NewTask);
        service().deleteTask(tasks[2], context());
        QCOMPARE(service().addTask(QStringLiteral("d"), list, context())->order(), qint64(2));

        // Equal orders (as a server may send) keep their stored sequence.
        TaskItem* e = service().addTask(QStringLiteral("e"), list, context());
        e->setOrder(0);
        QCOMPARE(headers(TasksService::sortedTasks(list)), (QStringList{"a", "e", "b", "d"}));
        service().renameList(list, QStringLiteral("Office"), context());
        QCOMPARE(list->name(), QStringLiteral("Office"));
    }

    void focusTaskRules()
    {
        TaskList* list = service().createList(QStringLiteral("L"), context());
        TaskItem* a = service().addTask(QStringLiteral("a"), list, context());
        TaskItem* b = service().addTask(QStringLiteral("b"), list, context());
        TaskItem* c = service().addTask(QStringLiteral("c"), list, context());
        QSignalSpy played(&AudioService::shared(), &AudioService::played);

        service().highlight(a, list, context());
        service().toggleCheck(b, context()); // not the focus: focus stays
        QCOMPARE(list->highlightedTaskId(), a->id());
        service().toggleCheck(a, context());
        QVERIFY(list->highlightedTaskId().isNull());
        service().toggleCheck(a, context()); // unchecking does not bring it back
        QVERIFY(list->highlightedTaskId().isNull());
        QCOMPARE(played.count(), 3);
        QCOMPARE(played[2][0].value<AudioService::Sound>(), AudioService::Sound::Uncheck);

        service().highlight(c, list, context());
        service().deleteTask(b, context());
        QCOMPARE(list->highlightedTaskId(), c->id());
        service().deleteTask(c, context());
        QVERIFY(list->highlightedTaskId().isNull());

        // Deleting finished tasks clears the focus even when the focus was unchecked.
        TaskItem* d = service().addTask(QStringLiteral("d"), list, context());
        service().toggleCheck(d, context());
        service().highlight(a, list, context());
        service().deleteFinishedTasks(list, context());
        QCOMPARE(headers(TasksService::sortedTasks(list)), QStringList{"a"});
        QVERIFY(list->highlightedTaskId().isNull());

        service().highlight(a, list, context());
        service().highlight(nullptr, list, context());
        QVERIFY(list->highlightedTaskId().isNull());
        service().highlight(a, list, context());
        service().deleteAllTasks(list, context());
        QVERIFY(list->tasks().isEmpty());
        QVERIFY(list->highlightedTaskId().isNull());

        // A list's deletion takes its tasks along.
        TaskItem* e = service().addTask(QStringLiteral("e"), list, context());
        const QString key = e->key();
        service().deleteList(list, context());
        QVERIFY(!context().find<TaskItem>(key));
    }

    void burstOfTogglesSavesAndPushesOnce()
    {
        TaskList* list = service().createList(QStringLiteral("L"), context());
        TaskItem* task = service().addTask(QStringLiteral("t"), list, context());
        QTRY_COMPARE(m_pushes, 1);
        for (int i = 0; i < 10; ++i)
            service().toggleCheck(task, context());
        QTRY_COMPARE(m_pushes, 2);
        QCOMPARE(m_saves, 2);
        QTest::qWait(TasksService::SaveDelayMs + 100);
        QCOMPARE(m_pushes, 2);
        QVERIFY(!task->checked());
    }
};

QTEST_GUILESS_MAIN(TestTasksService)
#include "tst_tasksservice.moc"
