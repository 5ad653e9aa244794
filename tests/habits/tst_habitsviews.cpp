#include "DataStore.h"
#include "EditorWindowHost.h"
#include "Habit.h"
#include "HabitColor.h"
#include "HabitEditorSheet.h"
#include "HabitEditorWindowContent.h"
#include "HabitHistory.h"
#include "HabitRow.h"
#include "HabitsService.h"
#include "HabitsWidgetView.h"
#include "Theme.h"

#include <QAccessible>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QTest>
#include <QToolButton>

class TestHabitsViews final : public QObject
{
    Q_OBJECT

    ModelContext& context() { return DataStore::shared().mainContext(); }

private slots:
    void init()
    {
        QString error;
        DataStore::setShared(DataStore::open(QStringLiteral(":memory:"), &error));
        HabitsService::shared().setPushHandler([] {});
    }

    void cleanup()
    {
        for (const QPointer<QWidget>& w : EditorWindowHost::openWindows())
            delete w.data();
    }

    void colourParsing_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("valid");
        QTest::newRow("with #") << "#38bdf8" << true;
        QTest::newRow("upper, no #") << "38BDF8" << true;
        QTest::newRow("blanks around") << " \n#38BDF8\t" << true;
        QTest::newRow("five digits") << "#38BDF" << false;
        QTest::newRow("seven digits") << "#38BDF80" << false;
        QTest::newRow("not hex") << "#38BDFG" << false;
        QTest::newRow("two #") << "##38BDF8" << false;
        QTest::newRow("sign") << "+38BDF8" << false;
    }

    void colourParsing()
    {
        QFETCH(QString, text);
        QFETCH(bool, valid);
        const std::optional<QColor> color = HabitColor::parse(text);
        QCOMPARE(color.has_value(), valid);
        if (valid)
            QCOMPARE(*color, QColor(0x38, 0xBD, 0xF8));
    }

    void emptyStateInBothForms()
    {
        for (bool viewOnly : {false, true}) {
            HabitsWidgetView view(viewOnly);
            view.show();
            QVERIFY(view.isShowingEmptyState());
            QVERIFY(view.findChild<QPushButton*>(QStringLiteral("addFirstHabitButton")));
            QCOMPARE(view.findChild<QToolButton*>(QStringLiteral("newHabitButton")) != nullptr,
                     !viewOnly);
            QCOMPARE(view.minimumSize(), viewOnly ? QSize(240, 180) : QSize(280, 320));
        }
    }

    void progressBar_data()
    {
        QTest::addColumn<qint64>("current");
        QTest::addColumn<qint64>("max");
        QTest::addColumn<double>("filled"); // expected share of the track
        QTest::addColumn<QString>("action");
        QTest::newRow("none") << qint64(0) << qint64(4) << 0.0 << "Add one";
        QTest::newRow("quarter") << qint64(1) << qint64(4) << 0.25 << "Add one";
        QTest::newRow("done") << qint64(4) << qint64(4) << 1.0 << "Reset";
        QTest::newRow("beyond target") << qint64(6) << qint64(4) << 1.0 << "Reset";
    }

    void progressBar()
    {
        QFETCH(qint64, current);
        QFETCH(qint64, max);
        QFETCH(double, filled);
        QFETCH(QString, action);
        Habit* habit =
            HabitsService::shared().createHabit(QStringLiteral("💧"), QStringLiteral("Water"),
                                                QStringLiteral("#FF0000"), max, context());
        habit->setCurrentValue(current);
        HabitRow row(habit, false);
        row.resize(300, 48);
        row.show();
        QVERIFY(QTest::qWaitForWindowExposed(&row));
        QCOMPARE(row.findChild<QLabel*>(QStringLiteral("habitCount"))->text(),
                 QStringLiteral("%1/%2").arg(current).arg(max));
        QCOMPARE(row.findChild<QToolButton*>(QStringLiteral("habitAction"))->toolTip(), action);

        const QRect track = row.findChild<QWidget*>(QStringLiteral("habitProgress"))->geometry();
        const QImage image = row.grab().toImage().scaled(row.size());
        const int y = track.center().y();
        auto isRed = [&](double share) {
            const QColor c = image.pixelColor(track.left() + int(track.width() * share), y);
            return c.red() > 200 && c.green() < 60 && c.blue() < 60;
        };
        // Sample inside the bar and just past where it should end.
        if (filled > 0)
            QVERIFY(isRed(filled - 0.05));
        if (filled < 1)
            QVERIFY(!isRed(filled + 0.05));
        // Never longer than its track.
        const QColor past = image.pixelColor(track.right() + 2, y);
        QVERIFY(!(past.red() > 200 && past.green() < 60));
    }

    void rowsFollowTheStore()
    {
        HabitsService& service = HabitsService::shared();
        Habit* water = service.createHabit(QStringLiteral("1F4A7"), QStringLiteral("Water"),
                                           QStringLiteral("oops"), 4, context());
        HabitsWidgetView view(false);
        view.show();
        QCOMPARE(view.rows().size(), 1);
        HabitRow* row = view.rows().first();
        QCOMPARE(row->findChild<QLabel*>(QStringLiteral("habitIcon"))->text(), QStringLiteral("💧"));
        QCOMPARE(row->color(), Theme::accent()); // unreadable colour
        auto* count = row->findChild<QLabel*>(QStringLiteral("habitCount"));
        auto* action = row->findChild<QToolButton*>(QStringLiteral("habitAction"));
        QCOMPARE(count->text(), QStringLiteral("0/4"));
        QCOMPARE(action->toolTip(), QStringLiteral("Add one"));

        QTest::mouseClick(action, Qt::LeftButton);
        QCOMPARE(water->currentValue(), qint64(1));
        QCOMPARE(count->text(), QStringLiteral("1/4"));
        QCOMPARE(view.rows().first(), row); // the row was updated, not rebuilt

        water->setCurrentValue(9); // as a server may send
        QCOMPARE(count->text(), QStringLiteral("9/4"));
        QCOMPARE(action->toolTip(), QStringLiteral("Reset"));
        QCOMPARE(HabitRow::progress(3, 0), 0.0);
        QTest::mouseClick(action, Qt::LeftButton);
        QCOMPARE(water->currentValue(), qint64(0));

        // Assistive tools find a habit's buttons inside a group named after it.
        QAccessibleInterface* group = QAccessible::queryAccessibleInterface(row);
        QCOMPARE(group->role(), QAccessible::Grouping);
        QCOMPARE(group->text(QAccessible::Name), QStringLiteral("Water"));
        QCOMPARE(row->findChild<QToolButton*>(QStringLiteral("habitEdit"))->accessibleName(),
                 QStringLiteral("Edit habit"));

        // An edit through the service shows in the same row.
        service.updateHabit(water, QStringLiteral("🍎"), QStringLiteral("Fruit"),
                            QStringLiteral("#10B981"), 2, context());
        QCOMPARE(view.rows().first(), row);
        QCOMPARE(row->findChild<QLabel*>(QStringLiteral("habitName"))->text(),
                 QStringLiteral("Fruit"));
        QCOMPARE(count->text(), QStringLiteral("0/2"));
        QCOMPARE(row->color(), QColor(0x10, 0xB9, 0x81));

        // A new habit, a reorder and a deletion show at once.
        Habit* run = service.createHabit(QStringLiteral("🏃"), QStringLiteral("Run"),
                                         QStringLiteral("#10B981"), 1, context());
        QCOMPARE(view.rows().size(), 2);
        QCOMPARE(view.rows()[1]->habit(), run);
        run->setOrder(-1);
        QCOMPARE(view.rows()[0]->habit(), run);
        service.deleteHabit(water, context());
        QCOMPARE(view.rows().size(), 1);
        service.deleteHabit(run, context());
        QVERIFY(view.isShowingEmptyState());

        HabitsWidgetView compact(true);
        service.createHabit(QStringLiteral("🏃"), QStringLiteral("Run"), {}, 1, context());
        QVERIFY(!compact.rows().first()->findChild<QToolButton*>());
    }

    void editorCreatesAndEdits()
    {
        HabitsWidgetView::openEditor(nullptr);
        QCOMPARE(EditorWindowHost::openWindows().size(), 1);
        QWidget* window = EditorWindowHost::openWindows().first();
        QCOMPARE(window->windowTitle(), QStringLiteral("New habit"));
        QCOMPARE(window->size(), QSize(480, 540));
        auto* sheet = window->findChild<HabitEditorSheet*>();
        auto* save = sheet->findChild<QPushButton*>(QStringLiteral("saveButton"));
        auto* name = sheet->findChild<QLineEdit*>(QStringLiteral("nameField"));
        auto* icon = sheet->findChild<QLineEdit*>(QStringLiteral("iconField"));
        auto* goal = sheet->findChild<QSpinBox*>(QStringLiteral("goalStepper"));
        QCOMPARE(save->text(), QStringLiteral("Create"));
        QVERIFY(!save->isEnabled());
        QVERIFY(!sheet->findChild<QPushButton*>(QStringLiteral("deleteButton")));
        QCOMPARE(sheet->findChildren<QToolButton*>(QStringLiteral("iconChoice")).size(), 80);
        QCOMPARE(HabitEditorSheet::quickIconPalette().last(), QStringLiteral("🕯️"));
        sheet->commit();
        QVERIFY(context().fetch<Habit>().isEmpty());

        icon->setText(QStringLiteral("🍎🍔"));
        QCOMPARE(icon->text(), QStringLiteral("🍎"));
        icon->setText(QStringLiteral("🇯🇵x"));
        QCOMPARE(icon->text(), QStringLiteral("🇯🇵"));
        icon->setText(QStringLiteral("🏋️"));
        QCOMPARE(icon->text(), QStringLiteral("🏋️"));
        icon->clear();
        QTest::keyClicks(name, QStringLiteral("  Read\t"));
        QVERIFY(!save->isEnabled()); // no icon
        icon->setText(QStringLiteral("💧"));
        QVERIFY(save->isEnabled());
        goal->setValue(0);
        QCOMPARE(goal->value(), 1);
        goal->setValue(99);
        QCOMPARE(goal->value(), 50);
        goal->setValue(8);
        QCOMPARE(goal->text(), QStringLiteral("8 per day"));
        QPointer<QWidget> guard(window);
        QTest::keyClick(name, Qt::Key_Return);
        QTRY_VERIFY(!guard);
        QCOMPARE(context().fetch<Habit>().size(), 1);
        Habit* read = context().fetch<Habit>().first();
        QCOMPARE(read->name(), QStringLiteral("Read"));
        QCOMPARE(read->icon(), QStringLiteral("💧"));
        QCOMPARE(read->colorHex(), QStringLiteral("#3B82F6"));
        QCOMPARE(read->maxValue(), qint64(8));

        // Editing: the stored code-point icon shows decoded; Escape saves nothing.
        read->setIcon(QStringLiteral("1F9D8"));
        HabitsWidgetView::openEditor(read);
        HabitsWidgetView::openEditor(read); // several windows at once
        QCOMPARE(EditorWindowHost::openWindows().size(), 2);
        window = EditorWindowHost::openWindows().first();
        QCOMPARE(window->windowTitle(), QStringLiteral("Edit habit"));
        sheet = window->findChild<HabitEditorSheet*>();
        QCOMPARE(sheet->icon(), QStringLiteral("🧘"));
        name = sheet->findChild<QLineEdit*>(QStringLiteral("nameField"));
        name->setText(QStringLiteral("Meditate"));
        guard = window;
        QTest::keyClick(name, Qt::Key_Escape);
        QTRY_VERIFY(!guard);
        QCOMPARE(read->name(), QStringLiteral("Read"));

        window = EditorWindowHost::openWindows().first();
        sheet = window->findChild<HabitEditorSheet*>();
        for (QToolButton* b : sheet->findChildren<QToolButton*>(QStringLiteral("colorChoice"))) {
            if (b->accessibleName() == QStringLiteral("#EF4444"))
                b->click();
        }
        QCOMPARE(sheet->colorHex(), QStringLiteral("#EF4444"));
        sheet->findChild<QPushButton*>(QStringLiteral("saveButton"))->click();
        QCOMPARE(read->colorHex(), QStringLiteral("#EF4444"));

        // The window's own close button saves nothing and leaves the list.
        HabitsWidgetView::openEditor(read);
        window = EditorWindowHost::openWindows().last();
        window->findChild<QLineEdit*>(QStringLiteral("nameField"))->setText(QStringLiteral("X"));
        guard = window;
        window->close();
        QTRY_VERIFY(!guard);
        QCOMPARE(EditorWindowHost::openWindows().size(), 0);
        QCOMPARE(read->name(), QStringLiteral("Read"));

        HabitsService::shared().increment(read, context());
        QCOMPARE(context().fetch<HabitHistory>().size(), 1);
        HabitsWidgetView::openEditor(read);
        window = EditorWindowHost::openWindows().last();
        window->findChild<QPushButton*>(QStringLiteral("deleteButton"))->click();
        QVERIFY(context().fetch<Habit>().isEmpty());
        QVERIFY(context().fetch<HabitHistory>().isEmpty());
        QTRY_COMPARE(EditorWindowHost::openWindows().size(), 0);
    }
};

QTEST_MAIN(TestHabitsViews)
#include "tst_habitsviews.moc"
