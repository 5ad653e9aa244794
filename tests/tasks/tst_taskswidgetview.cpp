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
#include "TooltipPanel.h"
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

#include <array>

namespace {
using Sound = AudioService::Sound;

// Counts paint events of the widgets it watches.
class PaintCounter final : public QObject
{
public:
    QHash<QObject*, int> paints;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::Paint)
            ++paints[watched];
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

    TasksWidgetView* showView(bool viewOnly = false)
    {
        m_view = std::make_unique<TasksWidgetView>(viewOnly);
        m_view->resize(300, 380);
        m_view->show();
        m_view->activateWindow();
        if (!QTest::qWaitForWindowActive(m_view.get()))
            qWarning("view did not become active");
        return m_view.get();
    }

    template <typename T> T* find(const char* name)
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

    TaskRow* row(const QString& header)
    {
        for (TaskRow* r : m_view->rows()->rowsInView()) {
            if (r->task() && r->task()->header() == header)
                return r;
        }
        return nullptr;
    }

    QStringList shownHeaders()
    {
        QStringList out;
        for (TaskRow* r : m_view->rows()->rowsInView())
            out << r->accessibleName();
        return out;
    }

    // A list "Work" (made current) holding "a", "b", "c", with "b" the focus task.
    TaskList* seedWork()
    {
        service().createList(QStringLiteral("Work"), context());
        TaskList* work = lists().constLast();
        for (const char* text : {"a", "b", "c"})
            service().addTask(QString::fromLatin1(text), work, context());
        service().highlight(TasksService::sortedTasks(work).at(1), work, context());
        return work;
    }

    ListNameDialog* openDialog(const char* action)
    {
        menuAction(action)->trigger();
        ListNameDialog* dialog = m_view->switcher()->openDialog();
        if (dialog && !QTest::qWaitForWindowExposed(dialog))
            qWarning("dialog not shown");
        return dialog;
    }

    void chooseList(const QString& name)
    {
        QAction* entry = listEntry(name);
        QVERIFY(entry);
        entry->trigger();
        QCOMPARE(switcherText(), name);
    }

private slots:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QCursor::setPos(1800, 1000); // keep the real pointer off the rows
        TasksService::shared().setPushHandler([] {});
    }

    void init()
    {
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
    void freshStoreShowsTheExampleList()
    {
        QCOMPARE(context().count<TaskList>(), 0);
        showView();
        QCOMPARE(switcherText(), QStringLiteral("Example Task List"));
        QCOMPARE(m_view->selectedListId(), lists().first()->id());
        QCOMPARE(find<QStackedWidget>("tasksBody")->currentWidget(), m_view->rows());
        QCOMPARE(m_view->rows()->count(), 0);
        QVERIFY(find<QWidget>("inputBar")->isVisible());
        QVERIFY(find<QToolButton>("listActionsButton")->isVisible());
    }

    void deletingTheOnlyListLeavesNone()
    {
        service().createList(QStringLiteral("Only"), context());
        showView();
        QCOMPARE(switcherText(), QStringLiteral("Only"));
        menuAction("deleteListAction")->trigger();
        QCOMPARE(context().count<TaskList>(), 0);
        QTRY_COMPARE(switcherText(), QStringLiteral("—"));
        QVERIFY(find<QLabel>("emptyStateText")->isVisible());
        QCOMPARE(find<QLabel>("emptyStateText")->text(), QStringLiteral("No tasks yet"));
        QVERIFY(menuAction("newListAction"));
        QVERIFY(!menuAction("renameListAction"));
        QVERIFY(!menuAction("deleteListAction"));

        QLineEdit* input = find<QLineEdit>("newTaskField");
        QTest::keyClicks(input, QStringLiteral("orphan"));
        QTest::keyClick(input, Qt::Key_Return);
        QCOMPARE(context().count<TaskItem>(), 0);
    }

    void deletingSelectsTheFirstOtherList()
    {
        service().createList(QStringLiteral("One"), context());
        service().createList(QStringLiteral("Two"), context());
        service().createList(QStringLiteral("Three"), context());
        showView();
        chooseList(QStringLiteral("Two"));
        menuAction("deleteListAction")->trigger();
        QTRY_COMPARE(switcherText(), QStringLiteral("One"));
        QCOMPARE(lists().size(), 2);
    }

    void newListPrompt_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<bool>("create");
        QTest::addColumn<QString>("selected");
        QTest::newRow("blank") << "  \t " << true << "Home";
        QTest::newRow("named, trimmed") << "  Groceries " << true << "Groceries";
        QTest::newRow("cancelled") << "Ignored" << false << "Home";
    }
    void newListPrompt()
    {
        QFETCH(QString, typed);
        QFETCH(bool, create);
        QFETCH(QString, selected);
        service().createList(QStringLiteral("Home"), context());
        showView();

        ListNameDialog* prompt = openDialog("newListAction");
        QVERIFY(prompt);
        QCOMPARE(prompt->objectName(), QStringLiteral("newListPrompt"));
        QVERIFY(prompt->field()->text().isEmpty());
        // Owned by the popup's window and modal over it, so the popup stays open.
        QCOMPARE(prompt->parentWidget()->window(), m_view->window());
        QCOMPARE(prompt->windowModality(), Qt::WindowModal);
        auto* cancel = prompt->findChild<QPushButton*>(QStringLiteral("cancelButton"));
        auto* accept = prompt->findChild<QPushButton*>(QStringLiteral("createButton"));
        QVERIFY(cancel->x() < accept->x());

        QTest::keyClicks(prompt->field(), typed);
        QTest::mouseClick(create ? accept : cancel, Qt::LeftButton);
        QTRY_VERIFY(!m_view->switcher()->openDialog());
        QVERIFY(m_view->isVisible());

        const int expectedLists = selected == u"Groceries" ? 2 : 1;
        QCOMPARE(lists().size(), expectedLists);
        QCOMPARE(lists().constLast()->name(), selected);
        QCOMPARE(switcherText(), selected);

        // Whatever happened, the next prompt starts empty.
        ListNameDialog* again = openDialog("newListAction");
        QVERIFY(again->field()->text().isEmpty());
        again->reject();
    }

    void renameDialog_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<bool>("save");
        QTest::addColumn<QString>("name");
        QTest::newRow("blank keeps the name") << " \t" << true << "Home";
        QTest::newRow("trimmed") << " Family  " << true << "Family";
        QTest::newRow("cancelled") << "Other" << false << "Home";
    }
    void renameDialog()
    {
        QFETCH(QString, typed);
        QFETCH(bool, save);
        QFETCH(QString, name);
        service().createList(QStringLiteral("Home"), context());
        showView();
        ListNameDialog* dialog = openDialog("renameListAction");
        QVERIFY(dialog);
        QCOMPARE(dialog->field()->text(), QStringLiteral("Home"));
        QCOMPARE(dialog->field()->size(), QSize(220, 22));
        QCOMPARE(dialog->parentWidget()->window(), m_view->window());
        auto* saveButton = dialog->findChild<QPushButton*>(QStringLiteral("saveButton"));
        auto* cancel = dialog->findChild<QPushButton*>(QStringLiteral("cancelButton"));
        QVERIFY(saveButton->x() < cancel->x());

        dialog->field()->clear();
        QTest::keyClicks(dialog->field(), typed);
        QTest::mouseClick(save ? saveButton : cancel, Qt::LeftButton);
        QTRY_VERIFY(!m_view->switcher()->openDialog());
        QCOMPARE(lists().first()->name(), name);
        QTRY_COMPARE(switcherText(), name);
    }

    void changeListPlaysOnlyOnARealChange()
    {
        service().createList(QStringLiteral("One"), context());
        service().createList(QStringLiteral("Two"), context());
        showView();
        QSignalSpy played(&AudioService::shared(), &AudioService::played);
        listEntry(QStringLiteral("One"))->trigger();
        QCOMPARE(played.count(), 0);
        QVERIFY(listEntry(QStringLiteral("One"))->isChecked());
        QVERIFY(!listEntry(QStringLiteral("Two"))->isChecked());
        chooseList(QStringLiteral("Two"));
        QCOMPARE(played.count(), 1);
        QCOMPARE(played.first().first().value<Sound>(), Sound::ChangeList);
        QVERIFY(listEntry(QStringLiteral("Two"))->isChecked());
    }

    void addingTasks_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<int>("how"); // 0 Return, 1 the plus button, 2 Ctrl+Return
        QTest::addColumn<QString>("added");
        for (int how : {0, 1, 2}) {
            const char* way = std::array{"Return", "plus", "Ctrl+Return"}.at(how);
            QTest::addRow("%s blank", way) << " \t  " << how << QString();
            QTest::addRow("%s text", way) << "  Buy milk\t" << how << "Buy milk";
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
        QLineEdit* input = find<QLineEdit>("newTaskField");
        input->setFocus();
        input->insert(typed); // as pasted: a typed tab would move the focus
        if (how == 0)
            QTest::keyClick(input, Qt::Key_Return);
        else if (how == 1)
            QTest::mouseClick(find<QToolButton>("addTaskButton"), Qt::LeftButton);
        else
            QTest::keyClick(input, Qt::Key_Return, Qt::ControlModifier);

        auto tasks = [this] { return TasksService::sortedTasks(lists().first()); };
        if (added.isEmpty()) {
            QCOMPARE(tasks().size(), 1);
            QCOMPARE(input->text(), typed);
            return;
        }
        QCOMPARE(tasks().size(), 2);
        QCOMPARE(tasks().last()->header(), added);
        QVERIFY(input->text().isEmpty());
        QVERIFY(input->hasFocus());
        QTRY_COMPARE(shownHeaders(), (QStringList{"first", "Buy milk"}));
    }

    void focusTask_data()
    {
        QTest::addColumn<QString>("clicked"); // a task's text
        QTest::addColumn<QString>("button");
        QTest::addColumn<QString>("focusAfter");
        QTest::newRow("check the focus task") << "b"
                                              << "checkButton"
                                              << "";
        QTest::newRow("toggle the focus off") << "b"
                                              << "focusButton"
                                              << "";
        QTest::newRow("move the focus") << "c"
                                        << "focusButton"
                                        << "c";
        QTest::newRow("check another task") << "a"
                                            << "checkButton"
                                            << "b";
    }
    void focusTask()
    {
        QFETCH(QString, clicked);
        QFETCH(QString, button);
        QFETCH(QString, focusAfter);
        seedWork();
        showView();
        chooseList(QStringLiteral("Work"));
        auto child = [this](const QString& header, const char* name) {
            return row(header)->findChild<QWidget*>(QString::fromLatin1(name));
        };
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
            QCOMPARE(child(header, "taskText")->font().strikeOut(), checked);
        }
    }

    void editingInPlace_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("header");
        QTest::newRow("blank keeps the old text") << "  "
                                                  << "a";
        QTest::newRow("trimmed new text") << " Call Sam "
                                          << "Call Sam";
    }
    void editingInPlace()
    {
        QFETCH(QString, typed);
        QFETCH(QString, header);
        seedWork();
        showView();
        chooseList(QStringLiteral("Work"));
        TaskRow* a = row(QStringLiteral("a"));
        QTest::mouseDClick(a->findChild<QLabel*>(QStringLiteral("taskText")), Qt::LeftButton);
        QVERIFY(a->isEditing());
        auto* field = a->findChild<QLineEdit*>(QStringLiteral("editField"));
        QCOMPARE(field->text(), QStringLiteral("a"));
        QTRY_VERIFY(field->hasFocus());

        // Losing focus does not end editing; only Return does.
        find<QLineEdit>("newTaskField")->setFocus();
        QVERIFY(a->isEditing());
        field->setFocus();
        field->clear();
        QTest::keyClicks(field, typed);
        QTest::keyClick(field, Qt::Key_Return);
        QVERIFY(!a->isEditing());
        QVERIFY(!field->isVisible());
        QCOMPARE(a->task()->header(), header);
        QCOMPARE(a->accessibleName(), header);
    }

    void textIsPlain()
    {
        service().createList(QStringLiteral("Home"), context());
        service().addTask(QStringLiteral("<b>bold</b> & <i>x</i>"), lists().first(), context());
        showView();
        TaskRow* r = m_view->rows()->rowsInView().first();
        auto* label = r->findChild<QLabel*>(QStringLiteral("taskText"));
        QCOMPARE(label->textFormat(), Qt::PlainText);
        QVERIFY(label->text().startsWith(u"<b>"));
        QCOMPARE(r->accessibleName(), QStringLiteral("<b>bold</b> & <i>x</i>"));
    }

    void listActions()
    {
        TaskList* work = seedWork();
        showView();
        chooseList(QStringLiteral("Work"));
        service().toggleCheck(TasksService::sortedTasks(work).at(0), context());
        m_view->findChild<QAction*>(QStringLiteral("deleteFinishedAction"))->trigger();
        QTRY_COMPARE(shownHeaders(), (QStringList{"b", "c"}));
        QVERIFY(work->highlightedTaskId().isNull());
        m_view->findChild<QAction*>(QStringLiteral("deleteAllAction"))->trigger();
        QTRY_COMPARE(m_view->rows()->count(), 0);
        QCOMPARE(find<QStackedWidget>("tasksBody")->currentWidget(), m_view->rows());
    }

    void viewOnlyHidesMenuAndInput()
    {
        seedWork();
        showView(true);
        QVERIFY(!find<QToolButton>("listActionsButton"));
        QVERIFY(!find<QWidget>("inputBar"));
        QVERIFY(find<QToolButton>("listSwitcherButton")->isVisible());
        QCOMPARE(m_view->minimumSize(), QSize(240, 180));
        chooseList(QStringLiteral("Work"));
        TaskRow* b = row(QStringLiteral("b"));
        for (const char* name : {"checkButton", "focusButton", "deleteButton"})
            QVERIFY(b->findChild<QToolButton*>(QString::fromLatin1(name))->isVisible());
        QTest::mouseClick(b->findChild<QToolButton*>(QStringLiteral("deleteButton")),
                          Qt::LeftButton);
        QTRY_COMPARE(shownHeaders(), (QStringList{"a", "c"}));
    }

    void liveViewRebuildsNothingUnchanged()
    {
        TaskList* work = seedWork();
        showView();
        chooseList(QStringLiteral("Work"));
        QPointer<TaskRow> a = row(QStringLiteral("a"));
        QPointer<TaskRow> b = row(QStringLiteral("b"));
        QPointer<TaskRow> c = row(QStringLiteral("c"));
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
        QCOMPARE(counter.paints.value(a), 0);
        QCOMPARE(counter.paints.value(b), 0);
        QCOMPARE(row(QStringLiteral("c2")), c.data());

        // A task inserted straight into the store appears; other rows are kept.
        context().insert(new TaskItem(QStringLiteral("d"), 9, work));
        QTRY_COMPARE(shownHeaders(), (QStringList{"a", "b", "c2", "d"}));
        QCOMPARE(row(QStringLiteral("a")), a.data());
        QCOMPARE(row(QStringLiteral("b")), b.data());

        // The current list vanishing (as in a pull) leaves no current list.
        context().remove(work);
        QTRY_COMPARE(switcherText(), QStringLiteral("—"));
        QVERIFY(find<QLabel>("emptyStateText")->isVisible());
    }

    void deletedRowTakesItsTooltip()
    {
        seedWork();
        showView();
        chooseList(QStringLiteral("Work"));
        TaskRow* a = row(QStringLiteral("a"));
        const QPointF at(20, 10);
        QEnterEvent enter(at, at, a->mapToGlobal(at));
        QCoreApplication::sendEvent(a, &enter);
        QTRY_VERIFY(TooltipPanelService::shared().panel());
        QCOMPARE(TooltipPanelService::shared().panel()->text(), QStringLiteral("a"));
        QTest::mouseClick(a->findChild<QToolButton*>(QStringLiteral("deleteButton")),
                          Qt::LeftButton);
        QTRY_VERIFY(!TooltipPanelService::shared().panel());
        QCOMPARE(shownHeaders(), (QStringList{"b", "c"}));
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
        QVERIFY2(clock.elapsed() < 3000, qPrintable(QString::number(clock.elapsed())));

        QScrollBar* bar = rows->verticalScrollBar();
        for (int step = 0; step < 50; ++step)
            bar->setValue(bar->value() + bar->singleStep() * 3);
        QVERIFY(rows->rowsInView().size() <= visible + 1);
        bar->setValue(bar->maximum());
        QCOMPARE(rows->rowsInView().constLast()->accessibleName(), QStringLiteral("task 4999"));
        const QRect last = rows->rowsInView().constLast()->geometry();
        QVERIFY(last.bottom() < rows->viewport()->height());
        QVERIFY2(clock.elapsed() < 5000, qPrintable(QString::number(clock.elapsed())));
    }
};

QTEST_MAIN(TestTasksWidgetView)
#include "tst_taskswidgetview.moc"
