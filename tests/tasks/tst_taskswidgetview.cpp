#include "AudioService.h"
#include "DataStore.h"
#include "ListNameDialog.h"
#include "TaskItem.h"
#include "TaskList.h"
#include "TaskListSwitcher.h"
#include "TaskRow.h"
#include "TaskRowList.h"
#include "TasksService.h"
#include "TasksWidgetView.h"
#include "Theme.h"
#include "TooltipPanelService.h"

#include <QAction>
#include <QCursor>
#include <QElapsedTimer>
#include <QEnterEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QScrollBar>
#include <QSignalSpy>
#include <QStackedWidget>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>

namespace {
class PaintCounter final : public QObject
{
public:
    QHash<QObject*, int> paints;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        paints[watched] += event->type() == QEvent::Paint;
        return false;
    }
};
} // namespace

class TestTasksWidgetView final : public QObject
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<TasksWidgetView> m_view;

    ModelContext& context() { return DataStore::shared().mainContext(); }
    TasksService& service() { return TasksService::shared(); }
    QList<TaskList*> lists() { return context().fetch<TaskList>(FetchRequest::sortedBy("order")); }

    void showView(bool viewOnly = false)
    {
        m_view = std::make_unique<TasksWidgetView>(viewOnly);
        m_view->resize(300, 380);
        m_view->show();
        m_view->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(m_view.get()));
    }

    // Shows the list "Work" holding "a", "b", "c", with "b" the focus task.
    TaskList* showWork(bool viewOnly = false)
    {
        service().createList(QStringLiteral("Work"), context());
        TaskList* work = lists().constLast();
        for (const char* text : {"a", "b", "c"})
            service().addTask(QString::fromLatin1(text), work, context());
        service().highlight(TasksService::sortedTasks(work).at(1), work, context());
        showView(viewOnly);
        chooseList(QStringLiteral("Work"));
        return work;
    }

    template <typename T = QWidget> T* find(const char* name)
    {
        return m_view->findChild<T*>(QString::fromLatin1(name));
    }

    QString switcherText() { return find<QToolButton>("listSwitcherButton")->text(); }

    QAction* menuAction(const char* name)
    {
        return m_view->switcher()->preparedMenu()->findChild<QAction*>(QString::fromLatin1(name));
    }

    QAction* listEntry(const QString& listName)
    {
        for (QAction* a : m_view->switcher()->preparedMenu()->actions()) {
            if (a->objectName() == u"listEntry" && a->text() == listName)
                return a;
        }
        return nullptr;
    }

    void chooseList(const QString& name)
    {
        QVERIFY(listEntry(name));
        listEntry(name)->trigger();
    }

    TaskRow* row(const QString& header)
    {
        return m_view->rows()->rowsInView().value(shownHeaders().indexOf(header));
    }

    template <typename T = QWidget> T* child(const QString& header, const char* name)
    {
        return row(header)->findChild<T*>(QString::fromLatin1(name));
    }

    QStringList shownHeaders()
    {
        QStringList out;
        for (TaskRow* r : m_view->rows()->rowsInView())
            out << r->accessibleName();
        return out;
    }

private slots:
    void init()
    {
        QStandardPaths::setTestModeEnabled(true);
        QCursor::setPos(1800, 1000); // keep the real pointer off the rows
        TasksService::shared().setPushHandler([] {});
        m_dir = std::make_unique<QTemporaryDir>();
        QString error;
        DataStore::setShared(DataStore::open(m_dir->filePath(QStringLiteral("s.sqlite")), &error));
        QVERIFY2(error.isEmpty(), qPrintable(error));
    }

    void cleanup()
    {
        m_view.reset();
        TooltipPanelService::shared().hide();
    }

    // Runs first: the shared service bootstraps only once per process.
    void freshStoreThenDeletingTheOnlyList()
    {
        QCOMPARE(context().count<TaskList>(), 0);
        showView();
        QCOMPARE(switcherText(), QStringLiteral("Example Task List"));
        QCOMPARE(find<QStackedWidget>("tasksBody")->currentWidget(), m_view->rows());
        QCOMPARE(m_view->rows()->count(), 0);
        QVERIFY(find("inputBar")->isVisible());
        QVERIFY(find("listActionsButton")->isVisible());

        menuAction("deleteListAction")->trigger();
        QTRY_COMPARE(switcherText(), QStringLiteral("—"));
        QCOMPARE(context().count<TaskList>(), 0);
        QVERIFY(find("emptyStateText")->isVisible());
        QCOMPARE(find<QLabel>("emptyStateText")->text(), QStringLiteral("No tasks yet"));
        QVERIFY(menuAction("newListAction"));
        QVERIFY(!menuAction("renameListAction") && !menuAction("deleteListAction"));
        QTest::keyClicks(find("newTaskField"), QStringLiteral("orphan"));
        QTest::keyClick(find("newTaskField"), Qt::Key_Return);
        QCOMPARE(context().count<TaskItem>(), 0);
    }

    void listNameDialog_data()
    {
        QTest::addColumn<QByteArray>("action");
        QTest::addColumn<QString>("typed");
        QTest::addColumn<bool>("accept");
        QTest::addColumn<QStringList>("names"); // afterwards, the last one selected
        const QByteArray create("newListAction"), rename("renameListAction");
        QTest::newRow("new, blank") << create << "  \t " << true << QStringList{"Home"};
        QTest::newRow("new, named")
            << create << "  Groceries " << true << QStringList{"Home", "Groceries"};
        QTest::newRow("new, cancelled") << create << "Ignored" << false << QStringList{"Home"};
        QTest::newRow("rename, blank") << rename << " \t" << true << QStringList{"Home"};
        QTest::newRow("rename, named") << rename << " Family  " << true << QStringList{"Family"};
        QTest::newRow("rename, cancelled") << rename << "Other" << false << QStringList{"Home"};
    }
    void listNameDialog()
    {
        QFETCH(QByteArray, action);
        QFETCH(QString, typed);
        QFETCH(bool, accept);
        QFETCH(QStringList, names);
        const bool isNew = action == "newListAction";
        service().createList(QStringLiteral("Home"), context());
        showView();

        menuAction(action.constData())->trigger();
        ListNameDialog* dialog = m_view->switcher()->openDialog();
        QVERIFY(dialog && QTest::qWaitForWindowExposed(dialog));
        QCOMPARE(dialog->field()->text(), isNew ? QString() : QStringLiteral("Home"));
        // Owned by the popup's window and modal over it, so the popup stays open.
        QCOMPARE(dialog->parentWidget()->window(), m_view->window());
        QCOMPARE(dialog->windowModality(), Qt::WindowModal);
        auto* cancel = dialog->findChild<QPushButton*>(QStringLiteral("cancelButton"));
        auto* ok = dialog->findChild<QPushButton*>(isNew ? QStringLiteral("createButton")
                                                         : QStringLiteral("saveButton"));
        QCOMPARE(ok->x() < cancel->x(), !isNew);

        dialog->field()->clear();
        QTest::keyClicks(dialog->field(), typed);
        QTest::mouseClick(accept ? ok : cancel, Qt::LeftButton);
        QTRY_VERIFY(!m_view->switcher()->openDialog());
        QVERIFY(m_view->isVisible());
        QCOMPARE(lists().size(), names.size());
        QCOMPARE(lists().constLast()->name(), names.constLast());
        QTRY_COMPARE(switcherText(), names.constLast());

        if (isNew) { // whatever happened, the next prompt starts empty
            menuAction("newListAction")->trigger();
            QVERIFY(m_view->switcher()->openDialog()->field()->text().isEmpty());
        }
    }

    void changeListPlaysOnlyOnARealChange()
    {
        for (const QString name : {"One", "Two", "Three"})
            service().createList(name, context());
        showView();
        QSignalSpy played(&AudioService::shared(), &AudioService::played);
        for (const QString name : {"One", "Two"}) {
            chooseList(name);
            QVERIFY(listEntry(name)->isChecked());
        }
        QVERIFY(!listEntry(QStringLiteral("One"))->isChecked());
        QCOMPARE(played.count(), 1);
        QCOMPARE(played.first().first().value<AudioService::Sound>(),
                 AudioService::Sound::ChangeList);

        // Deleting selects the first other list.
        menuAction("deleteListAction")->trigger();
        QTRY_COMPARE(switcherText(), QStringLiteral("One"));
        QCOMPARE(lists().size(), 2);
    }

    void addingTasks_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<int>("how"); // 0 Return, 1 the plus button, 2 Ctrl+Return
        QTest::addColumn<QString>("added");
        const char* ways[] = {"Return", "plus", "Ctrl+Return"};
        for (int how : {0, 1, 2}) {
            QTest::addRow("%s blank", ways[how]) << " \t  " << how << QString();
            QTest::addRow("%s text", ways[how]) << "  Buy milk\t" << how << "Buy milk";
        }
    }
    void addingTasks()
    {
        QFETCH(QString, typed);
        QFETCH(int, how);
        QFETCH(QString, added);
        service().createList(QStringLiteral("Home"), context());
        service().addTask(QStringLiteral("first"), lists().first(), context());
        showView();
        auto* input = find<QLineEdit>("newTaskField");
        input->setFocus();
        input->insert(typed); // as pasted: a typed tab would move the focus
        if (how == 1)
            QTest::mouseClick(find("addTaskButton"), Qt::LeftButton);
        else
            QTest::keyClick(input, Qt::Key_Return, how ? Qt::ControlModifier : Qt::NoModifier);

        const QStringList expected =
            added.isEmpty() ? QStringList{"first"} : QStringList{"first", added};
        QCOMPARE(TasksService::sortedTasks(lists().first()).size(), expected.size());
        QCOMPARE(input->text(), added.isEmpty() ? typed : QString());
        QVERIFY(input->hasFocus());
        QTRY_COMPARE(shownHeaders(), expected);
    }

    void focusTask_data()
    {
        QTest::addColumn<QString>("clicked"); // a task's text
        QTest::addColumn<QString>("button");
        QTest::addColumn<QString>("focusAfter");
        QTest::newRow("check the focus task") << "b" << QStringLiteral("checkButton") << "";
        QTest::newRow("toggle the focus off") << "b" << QStringLiteral("focusButton") << "";
        QTest::newRow("move the focus") << "c" << QStringLiteral("focusButton") << "c";
        QTest::newRow("check another task") << "a" << QStringLiteral("checkButton") << "b";
    }
    void focusTask()
    {
        QFETCH(QString, clicked);
        QFETCH(QString, button);
        QFETCH(QString, focusAfter);
        showWork();
        QCOMPARE(child("b", "focusMarker")->toolTip(), QStringLiteral("Focus task"));
        QCOMPARE(child("b", "focusButton")->toolTip(), QStringLiteral("Remove focus"));
        QCOMPARE(child("a", "focusButton")->toolTip(), QStringLiteral("Set as focus task"));

        QTest::mouseClick(child(clicked, qPrintable(button)), Qt::LeftButton);
        for (const QString header : {"a", "b", "c"}) {
            TaskRow* r = row(header);
            const bool focus = header == focusAfter;
            const bool checked = r->task()->checked();
            QTRY_COMPARE(r->isHighlighted(), focus);
            QCOMPARE(child(header, "focusMarker")->isVisible(), focus && !checked);
            const QColor colour = checked ? Theme::secondary()
                                  : focus ? QColor(251, 191, 36)
                                          : r->palette().color(QPalette::WindowText);
            QWidget* text = child(header, "taskText");
            QCOMPARE(text->palette().color(text->foregroundRole()), colour); // as drawn
            QCOMPARE(text->font().strikeOut(), checked);
        }
    }

    void editingInPlace_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("header");
        QTest::newRow("blank keeps the old text") << QStringLiteral("  ") << "a";
        QTest::newRow("trimmed") << QStringLiteral(" Call Sam ") << "Call Sam";
        QTest::newRow("markup stays plain") << QStringLiteral("<b>x</b> &") << "<b>x</b> &";
    }
    void editingInPlace()
    {
        QFETCH(QString, typed);
        QFETCH(QString, header);
        showWork();
        TaskRow* a = row(QStringLiteral("a"));
        auto* label = a->findChild<QLabel*>(QStringLiteral("taskText"));
        QTest::mouseDClick(label, Qt::LeftButton);
        QVERIFY(a->isEditing());
        auto* field = a->findChild<QLineEdit*>(QStringLiteral("editField"));
        QCOMPARE(field->text(), QStringLiteral("a"));
        QTRY_VERIFY(field->hasFocus());

        // Losing focus does not end editing; only Return does.
        find("newTaskField")->setFocus();
        QVERIFY(a->isEditing());
        field->setFocus();
        field->clear();
        QTest::keyClicks(field, typed);
        QTest::keyClick(field, Qt::Key_Return);
        QVERIFY(!a->isEditing());
        QCOMPARE(a->task()->header(), header);
        QCOMPARE(a->accessibleName(), header);
        QCOMPARE(label->text(), header);
        QCOMPARE(label->textFormat(), Qt::PlainText);
    }

    // Rows stay fully usable in view-only form; deleting one takes its tooltip along.
    void viewOnlyHidesMenuAndInput()
    {
        showWork(true);
        QVERIFY(!find("listActionsButton"));
        QVERIFY(!find("inputBar"));
        QVERIFY(find("listSwitcherButton")->isVisible());
        QCOMPARE(m_view->minimumSize(), QSize(240, 180));
        for (const char* name : {"checkButton", "focusButton", "deleteButton"})
            QVERIFY(child("b", name)->isVisible());

        const QPointF at(20, 10);
        QEnterEvent enter(at, at, row(QStringLiteral("b"))->mapToGlobal(at));
        QCoreApplication::sendEvent(row(QStringLiteral("b")), &enter);
        QTRY_VERIFY(TooltipPanelService::shared().panel());
        QCOMPARE(TooltipPanelService::shared().panel()->text(), QStringLiteral("b"));
        QTest::mouseClick(child("b", "deleteButton"), Qt::LeftButton);
        QTRY_COMPARE(shownHeaders(), (QStringList{"a", "c"}));
        QVERIFY(!TooltipPanelService::shared().panel());
    }

    void liveViewAndListActions()
    {
        TaskList* work = showWork();
        QPointer<TaskRow> a = row(QStringLiteral("a")), b = row(QStringLiteral("b")),
                          c = row(QStringLiteral("c"));
        PaintCounter counter;
        for (TaskRow* r : {a.data(), b.data(), c.data()})
            r->installEventFilter(&counter);
        QCoreApplication::processEvents(); // let the first paint settle
        counter.paints.clear();

        // A change from elsewhere (the service here, a pull alike) shows at once,
        // in its own row only.
        service().editTask(TasksService::sortedTasks(work).at(2), QStringLiteral("c2"), context());
        QTRY_COMPARE(c->accessibleName(), QStringLiteral("c2"));
        QTRY_VERIFY(counter.paints.value(c) > 0);
        QCOMPARE(counter.paints.value(a) + counter.paints.value(b), 0);

        // A task inserted straight into the store appears; other rows are kept.
        context().insert(new TaskItem(QStringLiteral("d"), 9, work));
        QTRY_COMPARE(shownHeaders(), (QStringList{"a", "b", "c2", "d"}));
        QCOMPARE(row(QStringLiteral("a")), a.data());
        QCOMPARE(row(QStringLiteral("c2")), c.data());

        service().toggleCheck(TasksService::sortedTasks(work).at(0), context());
        find<QAction>("deleteFinishedAction")->trigger();
        QTRY_COMPARE(shownHeaders(), (QStringList{"b", "c2", "d"}));
        QVERIFY(work->highlightedTaskId().isNull());
        find<QAction>("deleteAllAction")->trigger();
        QTRY_COMPARE(m_view->rows()->count(), 0);

        // The current list vanishing (as in a pull) leaves no current list.
        context().remove(work);
        QTRY_COMPARE(switcherText(), QStringLiteral("—"));
        QVERIFY(find("emptyStateText")->isVisible());
    }

    void thousandsOfTasksBuildOnlyVisibleRows()
    {
        service().createList(QStringLiteral("Big"), context());
        TaskList* big = lists().constLast();
        for (int i = 0; i < 5000; ++i)
            context().insert(new TaskItem(QStringLiteral("task %1").arg(i), i, big));
        QElapsedTimer clock;
        clock.start();
        showView();
        chooseList(QStringLiteral("Big"));
        TaskRowList* rows = m_view->rows();
        QCOMPARE(rows->count(), 5000);
        const int visible = int(rows->rowsInView().size());
        QVERIFY2(visible > 3 && visible < 40, qPrintable(QString::number(visible)));

        QScrollBar* bar = rows->verticalScrollBar();
        for (int step = 0; step < 50; ++step)
            bar->setValue(bar->value() + bar->singleStep() * 3);
        QVERIFY(rows->rowsInView().size() <= visible + 1);
        bar->setValue(bar->maximum());
        QCOMPARE(rows->rowsInView().constLast()->accessibleName(), QStringLiteral("task 4999"));
        QVERIFY(rows->rowsInView().constLast()->geometry().bottom() < rows->viewport()->height());
        QVERIFY2(clock.elapsed() < 5000, qPrintable(QString::number(clock.elapsed())));
    }
};

QTEST_MAIN(TestTasksWidgetView)
#include "tst_taskswidgetview.moc"
