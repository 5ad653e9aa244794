#include "AudioService.h"
#include "DataStore.h"
#include "ModuleLoader.h"
#include "TaskItem.h"
#include "TaskList.h"
#include "TasksService.h"

#include <QSignalSpy>
#include <QTest>

namespace {
QStringList headers(const TaskList* list)
{
    QStringList out;
    for (const TaskItem* t : TasksService::sortedTasks(list))
        out << t->header();
    return out;
}
} // namespace

class TestTasksService final : public QObject
{
    Q_OBJECT

    const ModuleLoader m_modules{QStringLiteral(TIDEWELL_TEST_MODULE_DIR)};
    AudioService m_audio{m_modules};
    std::unique_ptr<DataStore> m_store;
    std::unique_ptr<TasksService> m_service;
    int m_pushes = 0;
    int m_saves = 0;

    ModelContext& context() { return m_store->mainContext(); }
    std::unique_ptr<TasksService> makeService()
    {
        return std::make_unique<TasksService>(*m_store, m_audio, [this]() -> QCoro::Task<> {
            ++m_pushes;
            co_return;
        });
    }
    TasksService& service() { return *m_service; }
    TaskList* newList() { return service().createList(QStringLiteral("L"), context()); }
    TaskItem* add(const QString& t, TaskList* l) { return service().addTask(t, l, context()); }

private slots:
    void init()
    {
        m_service.reset();
        m_store = DataStore::open(QStringLiteral(":memory:"), nullptr);
        connect(&context(), &ModelContext::saved, this, [this] { ++m_saves; });
        m_service = makeService();
        m_pushes = m_saves = 0;
    }

    void bootstrapCreatesTheFirstListOnce()
    {
        service().bootstrap();
        const QList<TaskList*> lists = context().fetch<TaskList>();
        QCOMPARE(lists.size(), 1);
        QCOMPARE(lists[0]->name(), QStringLiteral("Example Task List"));
        QCOMPARE(m_saves, 1); // at once, not debounced
        service().deleteList(lists[0], context());
        service().bootstrap(); // once per run, even when the store was emptied since
        QCOMPARE(context().count<TaskList>(), 0);

        // A store that has a list gets none.
        const std::unique_ptr<TasksService> next = makeService();
        TaskList* mine = next->createList(QStringLiteral("Mine"), context());
        next->bootstrap();
        QCOMPARE(context().fetch<TaskList>(), QList<TaskList*>{mine});
    }

    void addingOrdersAndBlankText()
    {
        TaskList* list = newList();
        QSignalSpy played(&m_audio, &AudioService::played);
        for (const QString& blank : {QString(), QStringLiteral(" \t ")})
            QVERIFY(!add(blank, list));
        QCOMPARE(played.count(), 2);
        QCOMPARE(played[0][0].value<AudioService::Sound>(), AudioService::Sound::Error1);
        QVERIFY(list->tasks().isEmpty());

        for (const char* text : {"a", "b", "c"})
            add(text, list);
        QCOMPARE(headers(list), (QStringList{"a", "b", "c"}));
        QCOMPARE(played.last()[0].value<AudioService::Sound>(), AudioService::Sound::NewTask);
        service().deleteTask(TasksService::sortedTasks(list).last(), context());
        QCOMPARE(add("d", list)->order(), qint64(2)); // one past the largest left

        // Equal orders (as a server may send) keep their stored sequence; twenty is
        // past where an unstable sort happens to keep it too.
        TaskList* same = newList();
        QStringList stored;
        for (int i = 0; i < 20; ++i)
            add(stored.emplaceBack(QString::number(i)), same)->setOrder(0);
        QCOMPARE(headers(same), stored);

        // All of that, done in one go, is saved and pushed once.
        QCOMPARE(m_pushes, 0);
        QTRY_COMPARE(m_pushes, 1);
        QCOMPARE(m_saves, 1);
        QTest::qWait(TasksService::SaveDelayMs + 100); // and no second one follows
        QCOMPARE(m_pushes, 1);
    }

    void focusTaskRules()
    {
        TaskList* list = newList();
        TaskItem* a = add("a", list);
        TaskItem* b = add("b", list);
        TaskItem* c = add("c", list);
        const auto focus = [list] { return list->highlightedTaskId(); };
        QSignalSpy played(&m_audio, &AudioService::played);

        service().highlight(a, list, context());
        service().toggleCheck(b, context()); // not the focus: focus stays
        QCOMPARE(focus(), a->id());
        service().toggleCheck(a, context());
        QVERIFY(focus().isNull());
        service().toggleCheck(a, context()); // unchecking does not bring it back
        QVERIFY(focus().isNull());
        QCOMPARE(played.count(), 3);
        QCOMPARE(played[2][0].value<AudioService::Sound>(), AudioService::Sound::Uncheck);

        service().highlight(c, list, context());
        service().deleteTask(b, context());
        QCOMPARE(focus(), c->id());
        service().deleteTask(c, context());
        QVERIFY(focus().isNull());

        // Deleting finished tasks clears the focus even when the focus was unchecked.
        service().toggleCheck(add("d", list), context());
        service().highlight(a, list, context());
        service().deleteFinishedTasks(list, context());
        QCOMPARE(headers(list), QStringList{"a"});
        QVERIFY(focus().isNull());

        service().highlight(a, list, context());
        service().deleteAllTasks(list, context());
        QVERIFY(list->tasks().isEmpty() && focus().isNull());
    }
};

QTEST_GUILESS_MAIN(TestTasksService)
#include "tst_tasksservice.moc"
