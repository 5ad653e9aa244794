#include "DataStore.h"
#include "EditorWindowHost.h"
#include "Habit.h"
#include "HabitColor.h"
#include "HabitEditorSheet.h"
#include "HabitRow.h"
#include "HabitsService.h"
#include "HabitsWidgetView.h"
#include "TestServices.h"
#include "Theme.h"

#include <QAccessible>
#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QTest>
#include <QToolButton>
#include <QWindow>

class TestHabitsViews final : public QObject
{
    Q_OBJECT

    std::unique_ptr<AppServices> m_services;

    ModelContext& context() { return m_services->store().mainContext(); }
    HabitsService& service() { return m_services->habits(); }

    // The habit editor windows shown now.
    static QList<QPointer<QWidget>> editorWindows()
    {
        QList<QPointer<QWidget>> out;
        for (QWidget* w : QApplication::topLevelWidgets()) {
            if (w->objectName() == u"habitEditorWindow" && w->isVisible())
                out.append(w);
        }
        return out;
    }

private slots:
    void init()
    {
        m_services.reset();
        m_services = std::make_unique<AppServices>(testParts());
    }

    void cleanup()
    {
        for (const QPointer<QWidget>& w : editorWindows())
            delete w.data();
    }

    void colourParsingAndProgressBar()
    {
        for (const char* text : {"#38bdf8", "38BDF8", " \n#38BDF8\t"})
            QCOMPARE(HabitColor::orFallback(text, Qt::black), QColor(0x38, 0xBD, 0xF8));
        for (const char* text : {"#38BDF", "#38BDF80", "#38BDFG", "##38BDF8", "+38BDF8"})
            QCOMPARE(HabitColor::orFallback(text, Qt::black), QColor(Qt::black));

        // Count against a target of 4, the share of the track filled, the button's action.
        Habit* habit = service().createHabit("💧", "Water", "#FF0000", 4, context());
        const std::tuple<int, double, const char*> cases[] = {
            {0, 0.0, "Add one"}, {1, 0.25, "Add one"}, {4, 1.0, "Reset"}, {6, 1.0, "Reset"}};
        for (const auto& [current, filled, action] : cases) {
            habit->setCurrentValue(current);
            HabitRow row(service(), context(), habit, false);
            row.resize(300, 48);
            row.show();
            QCOMPARE(row.findChild<QLabel*>("habitCount")->text(), QString("%1/4").arg(current));
            QCOMPARE(row.findChild<QToolButton*>("habitAction")->toolTip(), QString(action));
            const QRect track = row.findChild<QWidget*>("habitProgress")->geometry();
            const QImage image = row.grab().toImage().scaled(row.size());
            const auto isRed = [&](int x) {
                const QColor c = image.pixelColor(x, track.center().y());
                return c.red() > 200 && c.green() < 60 && c.blue() < 60;
            };
            // Inside the bar, just past where it should end, and past the end of its track.
            QVERIFY(filled == 0 || isRed(track.left() + int(track.width() * (filled - 0.05))));
            QVERIFY(filled == 1 || !isRed(track.left() + int(track.width() * (filled + 0.05))));
            QVERIFY(!isRed(track.right() + 2));
        }
    }

    void rowsFollowTheStore()
    {
        // Stored icons may be code points; an unreadable colour falls back to the accent.
        Habit* water = service().createHabit("1F4A7", "Water", "oops", 4, context());
        HabitsWidgetView view(service(), context(), false);
        view.show();
        HabitRow* row = view.rows().first();
        QCOMPARE(row->findChild<QLabel*>("habitIcon")->text(), QStringLiteral("💧"));
        QCOMPARE(row->color(), Theme::accent());
        auto* count = row->findChild<QLabel*>("habitCount");
        auto* action = row->findChild<QToolButton*>("habitAction");
        QTest::mouseClick(action, Qt::LeftButton);
        QCOMPARE(water->currentValue(), qint64(1));
        QCOMPARE(count->text(), QStringLiteral("1/4"));
        QCOMPARE(view.rows().first(), row); // the row was updated, not rebuilt
        water->setCurrentValue(9);          // as a server may send
        QTest::mouseClick(action, Qt::LeftButton);
        QCOMPARE(water->currentValue(), qint64(0));
        QCOMPARE(HabitRow::progress(3, 0), 0.0);

        // Assistive tools find a habit's buttons inside a group named after it.
        QAccessibleInterface* group = QAccessible::queryAccessibleInterface(row);
        QCOMPARE(group->role(), QAccessible::Grouping);
        QCOMPARE(group->text(QAccessible::Name), QStringLiteral("Water"));
        QCOMPARE(row->findChild<QWidget*>("habitEdit")->accessibleName(),
                 QStringLiteral("Edit habit"));
        QCOMPARE(view.findChild<QWidget*>("newHabitButton")->accessibleName(),
                 QStringLiteral("New habit"));

        // A name far too long for the popup is cut on one line; the buttons stay in view.
        view.resize(300, 380);
        service().updateHabit(water, "💧", QString(40, u'W') + " a very long habit name", "", 4,
                              context());
        QTRY_VERIFY(row->findChild<QLabel*>("habitName")->text().endsWith(u"…"));
        QVERIFY(action->geometry().right() < row->width());
        QVERIFY(row->findChild<QWidget*>("habitEdit")->geometry().right() < row->width());
        QCOMPARE(row->findChild<QLabel*>("habitName")->accessibleName(),
                 QString(40, u'W') + " a very long habit name");

        service().updateHabit(water, "🍎", "Fruit", "#10B981", 2, context());
        QCOMPARE(row->findChild<QLabel*>("habitName")->text(), QStringLiteral("Fruit"));
        QCOMPARE(count->text(), QStringLiteral("0/2"));
        QCOMPARE(row->color(), QColor(0x10, 0xB9, 0x81));

        // A new habit, a reorder and a deletion show at once.
        Habit* run = service().createHabit("🏃", "Run", "#10B981", 1, context());
        QCOMPARE(view.rows().constLast()->habit(), run);
        run->setOrder(-1);
        QCOMPARE(view.rows().constFirst()->habit(), run);
        service().deleteHabit(water, context());
        service().deleteHabit(run, context());
        QVERIFY(view.isShowingEmptyState());
        QVERIFY(view.findChild<QPushButton*>("addFirstHabitButton")->isVisible());

        // In a window kept above the others (a floating panel), "Add your first
        // habit" opens the editor above that window, not beneath it.
        QWidget panel(nullptr, Qt::Window | Qt::WindowStaysOnTopHint);
        auto* compact = new HabitsWidgetView(service(), context(), true, &panel);
        panel.show();
        compact->findChild<QPushButton*>("addFirstHabitButton")->click();
        QWidget* editor = editorWindows().constLast();
        QVERIFY(editor->windowFlags().testFlag(Qt::WindowStaysOnTopHint));
        QCOMPARE(editor->windowHandle()->transientParent(), panel.windowHandle());

        service().createHabit("🏃", "Run", {}, 1, context());
        QCOMPARE(compact->rows().size(), 1);
        QVERIFY(!compact->findChild<QToolButton*>()); // no buttons at all
    }

    // A target set elsewhere beyond what the editor lets one type survives a rename,
    // and a habit deleted while its editor is open is not created again by Save.
    void editorKeepsWhatItCannotEdit()
    {
        HabitsWidgetView list(service(), context(), false);
        Habit* big = service().createHabit("💧", "Water", "#3B82F6", 120, context());
        big->setCurrentValue(90);
        list.openEditor(big);
        QPointer<QWidget> window = editorWindows().first();
        auto* goal = window->findChild<QSpinBox*>("goalStepper");
        QCOMPARE(goal->value(), 120);
        window->findChild<QLineEdit*>("nameField")->setText("Water!");
        window->findChild<QPushButton*>("saveButton")->click();
        QTRY_VERIFY(!window);
        QCOMPARE(big->name(), QStringLiteral("Water!"));
        QCOMPARE(big->maxValue(), qint64(120));
        QCOMPARE(big->currentValue(), qint64(90));

        // The first step from such a value is into the range; typing beyond it is refused.
        list.openEditor(big);
        window = editorWindows().first();
        goal = window->findChild<QSpinBox*>("goalStepper");
        goal->stepBy(1);
        QCOMPARE(goal->value(), 120);
        goal->stepBy(-1);
        QCOMPARE(goal->value(), HabitEditorSheet::MaxGoal);
        goal->selectAll();
        QTest::keyClicks(goal, "99");
        goal->interpretText();
        QVERIFY(goal->value() <= HabitEditorSheet::MaxGoal);

        auto* save = window->findChild<QPushButton*>("saveButton");
        service().deleteHabit(big, context());
        QTRY_VERIFY(!save->isEnabled());
        QVERIFY(window->findChild<QLabel*>("habitGone")->isVisible());
        QTest::keyClick(window->findChild<QLineEdit*>("nameField"), Qt::Key_Return);
        QVERIFY(context().fetch<Habit>().isEmpty());
    }

    void editorCreatesAndEdits()
    {
        HabitsWidgetView list(service(), context(), false);
        list.openEditor(nullptr);
        QWidget* window = editorWindows().first();
        QCOMPARE(window->windowTitle(), QStringLiteral("New habit"));
        auto* sheet = window->findChild<HabitEditorSheet*>();
        auto* save = sheet->findChild<QPushButton*>("saveButton");
        auto* name = sheet->findChild<QLineEdit*>("nameField");
        auto* icon = sheet->findChild<QLineEdit*>("iconField");
        auto* goal = sheet->findChild<QSpinBox*>("goalStepper");
        QCOMPARE(save->text(), QStringLiteral("Create"));
        QVERIFY(!save->isEnabled());
        QTest::keyClick(name, Qt::Key_Return);
        QVERIFY(context().fetch<Habit>().isEmpty());

        // The icon keeps one character, however many code points it takes.
        for (const auto& [typed, kept] :
             {std::pair{"🍎🍔", "🍎"}, {"🇯🇵x", "🇯🇵"}, {"🏋️", "🏋️"}}) {
            icon->setText(typed);
            QCOMPARE(icon->text(), QString(kept));
        }
        icon->clear();
        QTest::keyClicks(name, "  Read\t");
        QVERIFY(!save->isEnabled()); // no icon
        icon->setText("💧");
        QVERIFY(save->isEnabled());
        goal->setValue(8);
        QCOMPARE(goal->text(), QStringLiteral("8 per day"));
        QPointer<QWidget> guard(window);
        QTest::keyClick(name, Qt::Key_Return);
        QTRY_VERIFY(!guard);
        QCOMPARE(context().fetch<Habit>().size(), 1);
        Habit* read = context().fetch<Habit>().first();
        QCOMPARE((QStringList{read->name(), read->icon(), read->colorHex()}),
                 (QStringList{"Read", "💧", "#3B82F6"}));
        QCOMPARE(read->maxValue(), qint64(8));

        // Editing, in several windows at once: the stored code-point icon shows decoded;
        // Escape saves nothing.
        read->setIcon("1F9D8");
        list.openEditor(read);
        list.openEditor(read);
        window = guard = editorWindows().first();
        QCOMPARE(window->windowTitle(), QStringLiteral("Edit habit"));
        sheet = window->findChild<HabitEditorSheet*>();
        QCOMPARE(sheet->icon(), QStringLiteral("🧘"));
        sheet->findChild<QLineEdit*>("nameField")->setText("Meditate");
        QTest::keyClick(sheet->findChild<QLineEdit*>("nameField"), Qt::Key_Escape);
        QTRY_VERIFY(!guard);
        QCOMPARE(read->name(), QStringLiteral("Read"));

        sheet = editorWindows().first()->findChild<HabitEditorSheet*>();
        for (QToolButton* b : sheet->findChildren<QToolButton*>("colorChoice")) {
            if (b->accessibleName() == u"#EF4444")
                b->click();
        }
        sheet->findChild<QPushButton*>("saveButton")->click();
        QCOMPARE(read->colorHex(), QStringLiteral("#EF4444"));

        list.openEditor(read);
        editorWindows().last()->findChild<QPushButton*>("deleteButton")->click();
        QVERIFY(context().fetch<Habit>().isEmpty());
        QTRY_COMPARE(editorWindows().size(), 0);
    }
};

QTEST_MAIN(TestHabitsViews)
#include "tst_habitsviews.moc"
