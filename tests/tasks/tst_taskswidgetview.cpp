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
#include "TestServices.h"
#include "Theme.h"
#include "TooltipPanel.h"
#include "TooltipPanelService.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEnterEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QScrollBar>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTest>
#include <QToolButton>

namespace {
// The texts of all visible tooltip panels, so a second panel left behind shows too.
QString tooltipsShown()
{
    QStringList texts;
    for (QWidget* w : QApplication::topLevelWidgets()) {
        if (auto* panel = qobject_cast<TooltipPanel*>(w); panel && panel->isVisible())
            texts << panel->text();
    }
    return texts.join(u'|');
}

void hover(QWidget* w, bool entered)
{
    QEnterEvent enter(QPointF(5, 5), QPointF(5, 5), w->mapToGlobal(QPointF(5, 5)));
    QEvent leave(QEvent::Leave);
    QApplication::sendEvent(w, entered ? static_cast<QEvent*>(&enter) : &leave);
}
} // namespace

class TestTasksWidgetView final : public QObject
{
    Q_OBJECT

    TooltipPanelService m_tooltips;
    std::unique_ptr<TasksWidgetView> m_view;

    std::unique_ptr<AppServices> m_services;

    ModelContext& context() { return m_services->store().mainContext(); }
    TasksService& service() { return m_services->tasks(); }
    template <typename T = QWidget> T* find(const QString& n) { return m_view->findChild<T*>(n); }
    QString switcherText() { return find<QToolButton>("listSwitcherButton")->text(); }

    // An action of the list menu, by its object name or, for a list, by the list's name.
    QAction* menuAction(const QString& key)
    {
        for (QAction* a : m_view->switcher()->preparedMenu()->actions()) {
            if (a->objectName() == key || (a->objectName() == u"listEntry" && a->text() == key))
                return a;
        }
        return nullptr;
    }

    void showView(bool viewOnly = false)
    {
        m_view = std::make_unique<TasksWidgetView>(
            m_services->tasks(), m_services->store().mainContext(), m_tooltips, viewOnly);
        m_view->resize(300, 380);
        m_view->show();
        m_view->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(m_view.get()));
    }

    // Shows the list "Work" holding "a", "b", "c", with "b" the focus task.
    TaskList* showWork(bool viewOnly = false)
    {
        TaskList* work = service().createList("Work", context());
        for (const QString text : {"a", "b", "c"})
            service().addTask(text, work, context());
        service().highlight(TasksService::sortedTasks(work).at(1), work, context());
        showView(viewOnly);
        menuAction("Work")->trigger();
        return work;
    }

    QStringList shownHeaders()
    {
        QStringList out;
        for (TaskRow* r : m_view->rows()->rowsInView())
            out << r->accessibleName();
        return out;
    }
    TaskRow* row(const QString& header)
    {
        return m_view->rows()->rowsInView().value(shownHeaders().indexOf(header));
    }
    QWidget* child(const QString& h, const QString& n) { return row(h)->findChild<QWidget*>(n); }

private slots:
    void init()
    {
        QStandardPaths::setTestModeEnabled(true);
        QCursor::setPos(1800, 1000); // keep the real pointer off the rows
        m_services = std::make_unique<AppServices>(testParts());
    }

    void cleanup()
    {
        m_view.reset();
        settle(*m_services);
        m_services.reset();
    }

    void switchingAndDeletingLists()
    {
        showView();
        QCOMPARE(switcherText(), QStringLiteral("Example Task List"));
        for (const QString name : {"Two", "Three"})
            service().createList(name, context());
        QTRY_VERIFY(menuAction("Three")); // the view follows the store on the next turn
        QSignalSpy played(&m_services->audio(), &AudioService::played);
        for (const QString name : {"Example Task List", "Two"}) { // the first is current
            menuAction(name)->trigger();
            QVERIFY(menuAction(name)->isChecked());
        }
        QCOMPARE(played.count(), 1);
        QCOMPARE(played[0][0].value<AudioService::Sound>(), AudioService::Sound::ChangeList);

        // Deleting selects the first other list, and the last leaves none.
        for (const QString next : {"Example Task List", "Three", "—"}) {
            menuAction("deleteListAction")->trigger();
            QTRY_COMPARE(switcherText(), next);
        }
        QVERIFY(find("emptyStateText")->isVisible());
        QCOMPARE(find<QLabel>("emptyStateText")->text(), QStringLiteral("No tasks yet"));
        QVERIFY(!menuAction("renameListAction") && !menuAction("deleteListAction"));
        QTest::keyClicks(find("newTaskField"), "orphan");
        QTest::keyClick(find("newTaskField"), Qt::Key_Return);
        QCOMPARE(context().count<TaskItem>(), 0);
    }

    // A blank name, or Cancel, changes nothing.
    void listNamePrompts()
    {
        showWork();
        const auto answer = [this](const QString& action, const QString& typed,
                                   const QString& button) {
            menuAction(action)->trigger();
            ListNameDialog* dialog = m_view->switcher()->openDialog();
            QVERIFY(dialog && QTest::qWaitForWindowExposed(dialog));
            const bool rename = action == u"renameListAction";
            QCOMPARE(dialog->field()->text(),
                     rename ? find<QToolButton>("listSwitcherButton")->accessibleName()
                            : QString());
            dialog->field()->clear();
            QTest::keyClicks(dialog->field(), typed);
            QTest::mouseClick(dialog->findChild<QPushButton*>(button), Qt::LeftButton);
            QTRY_VERIFY(!m_view->switcher()->openDialog());
        };
        answer("newListAction", "  \t ", "createButton");
        answer("newListAction", "Ignored", "cancelButton");
        answer("renameListAction", " \t", "saveButton");
        answer("renameListAction", "Other", "cancelButton");
        QCOMPARE(context().count<TaskList>(), 1);
        QCOMPARE(switcherText(), QStringLiteral("Work"));
        answer("newListAction", "  Groceries ", "createButton");
        QTRY_COMPARE(switcherText(), QStringLiteral("Groceries"));
        QCOMPARE(context().count<TaskList>(), 2);
        answer("renameListAction", " Family  ", "saveButton");
        QTRY_COMPARE(switcherText(), QStringLiteral("Family"));

        // "&" is shown, not taken for a keyboard shortcut, in the switcher and its menu;
        // a name too long for the header is cut, and the actions button stays in view.
        answer("renameListAction", "Home & garden", "saveButton");
        QTRY_COMPARE(switcherText(), QStringLiteral("Home && garden"));
        QVERIFY(menuAction("Home && garden"));
        const QString longName = u"Errands for the whole family " + QString(60, u'x');
        answer("renameListAction", longName, "saveButton");
        QTRY_VERIFY(switcherText().endsWith(u"…"));
        auto* button = find<QToolButton>("listSwitcherButton");
        QCOMPARE(button->accessibleName(), longName);
        auto* actions = find<QToolButton>("listActionsButton");
        QVERIFY(button->mapToGlobal(QPoint(button->width(), 0)).x() <=
                actions->mapToGlobal(QPoint(0, 0)).x());
        QVERIFY(actions->mapTo(m_view.get(), QPoint(actions->width(), 0)).x() <= m_view->width());
    }

    // Each way adds the trimmed text and empties the field, which keeps the focus;
    // blank text adds nothing and stays to be fixed.
    void addingTasks()
    {
        showWork();
        const QStringList controls{"focusMarker", "focusButton", "checkButton", "deleteButton"};
        const QStringList names{"Focus task", "Remove focus", "Done", "Delete"};
        for (int i = 0; i < 4; ++i)
            QCOMPARE(child("b", controls[i])->accessibleName(), names[i]);
        QCOMPARE(child("a", "focusButton")->toolTip(), QStringLiteral("Set as focus task"));

        auto* input = find<QLineEdit>("newTaskField");
        input->setFocus();
        QStringList expected = shownHeaders();
        for (int how : {0, 1, 2}) { // Return, the plus button, Ctrl+Return
            for (const QString typed : {" \t  ", "  Buy milk\t"}) {
                input->setText(typed); // as pasted: a typed tab would move the focus
                if (how == 1)
                    QTest::mouseClick(find("addTaskButton"), Qt::LeftButton);
                else
                    QTest::keyClick(input, Qt::Key_Return,
                                    how ? Qt::ControlModifier : Qt::NoModifier);
                const bool blank = typed.trimmed().isEmpty();
                expected += blank ? QStringList() : QStringList{"Buy milk"};
                QCOMPARE(input->text(), blank ? typed : QString());
                QVERIFY(input->hasFocus());
                QTRY_COMPARE(shownHeaders(), expected);
            }
        }
    }

    void focusTask_data()
    {
        QTest::addColumn<QString>("clicked"); // a task's text
        QTest::addColumn<QString>("button");
        QTest::addColumn<QString>("focusAfter");
        QTest::addColumn<bool>("viewOnly"); // rows stay fully usable there
        QTest::newRow("toggle it off") << "b" << QStringLiteral("focusButton") << "" << false;
        QTest::newRow("move it, view-only") << "c" << QStringLiteral("focusButton") << "c" << true;
        QTest::newRow("check other, view-only")
            << "a" << QStringLiteral("checkButton") << "b" << true;
    }
    void focusTask()
    {
        QFETCH(QString, clicked);
        QFETCH(QString, button);
        QFETCH(QString, focusAfter);
        QFETCH(bool, viewOnly);
        showWork(viewOnly);
        QCOMPARE(!find("inputBar") + !find("listActionsButton"), viewOnly ? 2 : 0);
        QVERIFY(child(clicked, button)->isVisible());
        QTest::mouseClick(child(clicked, button), Qt::LeftButton);
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

    // Each edit starts from the current text; losing focus keeps editing, only Return ends it.
    void editingInPlace()
    {
        showWork();
        TaskRow* a = row("a");
        auto* label = a->findChild<QLabel*>("taskText");
        auto* field = a->findChild<QLineEdit*>("editField");
        for (const auto& [typed, shown] : {std::pair{"  ", "a"}, // blank keeps the old text
                                           {" Call Sam ", "Call Sam"},
                                           {"<b>x</b> &", "<b>x</b> &"}}) {
            QTest::mouseDClick(label, Qt::LeftButton);
            QVERIFY(a->isEditing());
            QCOMPARE(field->text(), a->task()->header());
            QTRY_VERIFY(field->hasFocus());
            find("newTaskField")->setFocus();
            QVERIFY(a->isEditing());
            field->setFocus();
            field->clear();
            QTest::keyClicks(field, typed);
            QTest::keyClick(field, Qt::Key_Return);
            QVERIFY(!a->isEditing());
            QCOMPARE(a->task()->header(), QString(shown));
            QCOMPARE(label->text(), QString(shown)); // plain text, never markup
            QCOMPARE(label->textFormat(), Qt::PlainText);
        }
    }

    void liveViewAndListActions()
    {
        TaskList* work = showWork();
        QPointer<TaskRow> a = row("a");
        // Changes from elsewhere (a pull alike) show at once; other rows are kept.
        service().editTask(TasksService::sortedTasks(work).at(2), "c2", context());
        context().insert(new TaskItem("d", 9, work));
        QTRY_COMPARE(shownHeaders(), (QStringList{"a", "b", "c2", "d"}));
        QCOMPARE(row("a"), a.data());

        QTest::mouseClick(child("d", "deleteButton"), Qt::LeftButton);
        QTRY_COMPARE(shownHeaders(), (QStringList{"a", "b", "c2"}));
        service().toggleCheck(TasksService::sortedTasks(work).at(0), context());
        find<QAction>("deleteFinishedAction")->trigger();
        QTRY_COMPARE(shownHeaders(), (QStringList{"b", "c2"}));
        find<QAction>("deleteAllAction")->trigger();
        QTRY_COMPARE(m_view->rows()->count(), 0);

        // A pull replaces every list with a new record of the same name: the
        // current one vanishing shows the first list, not "—" and no tasks.
        TaskList* pulled = new TaskList("Pulled", -1);
        context().insert(pulled);
        context().insert(new TaskItem("from elsewhere", 0, pulled));
        context().remove(work);
        QTRY_COMPARE(switcherText(), QStringLiteral("Pulled"));
        QTRY_COMPARE(shownHeaders(), QStringList{"from elsewhere"});
        // With no list left there is nothing to show.
        for (TaskList* list : TasksService::listsInOrder(context()))
            context().remove(list);
        QTRY_COMPARE(switcherText(), QStringLiteral("—"));
        QVERIFY(find("emptyStateText")->isVisible());
    }

    void thousandsOfTasksBuildOnlyVisibleRows()
    {
        TaskList* work = showWork();
        for (int i = 0; i < 5000; ++i)
            context().insert(new TaskItem(QStringLiteral("task %1").arg(i), i + 3, work));
        TaskRowList* rows = m_view->rows();
        QTRY_COMPARE(rows->count(), 5003);
        const qsizetype visible = rows->rowsInView().size();
        QVERIFY2(visible > 3 && visible < 40, qPrintable(QString::number(visible)));
        rows->verticalScrollBar()->setValue(rows->verticalScrollBar()->maximum());
        QVERIFY(rows->rowsInView().size() <= visible + 1); // rows scrolled past are let go
        QCOMPARE(rows->rowsInView().constLast()->accessibleName(), QStringLiteral("task 4999"));
        QVERIFY(rows->rowsInView().constLast()->geometry().bottom() < rows->viewport()->height());
    }

    void tooltips()
    {
        // Label size, pointer, expected frame, and the screen's free area (none: off-screen).
        const QRect screen(0, 0, 1920, 1080);
        const std::tuple<QSizeF, QPoint, QRect, std::optional<QRect>> cases[] = {
            {{30, 14}, {100, 100}, {112, 114, 56, 22}, screen},
            {{40.5, 14}, {100, 100}, {112, 114, 57, 22}, screen},
            {{304, 44.2}, {100, 100}, {112, 114, 320, 53}, screen}, // wrapped
            {{350, 14}, {100, 100}, {112, 114, 320, 22}, screen},   // too wide
            {{304, 14}, {1900, 100}, {1596, 114, 320, 22}, screen},
            {{30, 14}, {100, 1070}, {112, 1054, 56, 22}, screen},
            {{30, 14}, {480, 100}, {504, 114, 56, 22}, QRect(500, 0, 1420, 1080)}, // side panel
            {{304, 14}, {10, 100}, {-124, 114, 320, 22}, QRect(0, 0, 200, 1080)},  // right wins
            {{30, 14}, {5000, 5000}, {5012, 5014, 56, 22}, std::nullopt}};
        for (const auto& [label, pointer, expected, available] : cases)
            QCOMPARE(TooltipPanelService::geometryFor(label, pointer, available), expected);
        // A word longer than a line (a URL) breaks inside the word, never past the edge.
        const QSizeF url = TooltipPanelService::labelSize(
            QStringLiteral("see https://example.org/") + QString(150, u'a'));
        QVERIFY(url.width() <= TooltipPanelService::MaxLabelWidth);
        QVERIFY(url.height() > 2 * QFontMetricsF(TooltipPanel::labelFont()).height());

        // Resting on a row shows its text in the one tooltip panel, which takes no focus.
        TaskList* work = showWork();
        TaskRow* a = row("a");
        constexpr int delayMs = TaskRow::TooltipDelayMs;
        m_tooltips.show("one");
        m_tooltips.show("two");
        QTRY_COMPARE(tooltipsShown(), QStringLiteral("two"));
        QCOMPARE(QApplication::activeWindow(), m_view.get());
        m_tooltips.show(QString()); // an empty text only removes
        QCOMPARE(tooltipsShown(), QString());

        // A quick pass shows nothing; coming back within the wait restarts it.
        hover(a, true);
        hover(a, false);
        QTest::qWait(delayMs + 100); // past the delay, and still nothing
        QCOMPARE(tooltipsShown(), QString());
        hover(a, true);
        QTest::qWait(delayMs / 2); // away before the delay is over
        hover(a, false);
        QElapsedTimer clock;
        clock.start();
        hover(a, true);
        QTRY_COMPARE(tooltipsShown(), QStringLiteral("a"));
        QVERIFY(clock.elapsed() >= delayMs - 5);
        hover(a, false); // leaving hides at once
        QCOMPARE(tooltipsShown(), QString());

        // A row hidden, or deleted, under the pointer takes its tooltip along.
        hover(a, true);
        QTRY_COMPARE(tooltipsShown(), QStringLiteral("a"));
        a->hide();
        QCOMPARE(tooltipsShown(), QString());
        hover(row("c"), true);
        QTRY_COMPARE(tooltipsShown(), QStringLiteral("c"));
        service().deleteTask(TasksService::sortedTasks(work).at(2), context());
        QTRY_COMPARE(tooltipsShown(), QString());
    }
};

QTEST_MAIN(TestTasksWidgetView)
#include "tst_taskswidgetview.moc"
