#include "PanelHoverTooltip.h"
#include "TooltipPanel.h"
#include "TooltipPanelService.h"

#include <QApplication>
#include <QCursor>
#include <QElapsedTimer>
#include <QEnterEvent>
#include <QTest>

namespace {
constexpr int delayMs = 300;

// The texts of all visible panels, so a second panel left behind shows too.
QString shown()
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
    const QPointF local(5, 5);
    QEnterEvent enter(local, local, w->mapToGlobal(local));
    QEvent leave(QEvent::Leave);
    QApplication::sendEvent(w, entered ? static_cast<QEvent*>(&enter) : &leave);
}
} // namespace

class TestTooltipPanel final : public QObject
{
    Q_OBJECT

private slots:
    void geometry_data()
    {
        QTest::addColumn<QSizeF>("label");
        QTest::addColumn<QPoint>("pointer");
        QTest::addColumn<QRect>("available"); // null: the pointer is on no screen
        QTest::addColumn<QRect>("expected");
        const auto add = [](const char* name, QSizeF label, QPoint pointer, QRect expected,
                            QRect available = {0, 0, 1920, 1080}) {
            QTest::newRow(name) << label << pointer << available << expected;
        };
        const QPoint at(100, 100);
        add("short", {30, 14}, at, {112, 114, 56, 22});
        add("over 40", {40.5, 14}, at, {112, 114, 57, 22});
        add("wrapped", {304, 44.2}, at, {112, 114, 320, 53});
        add("too wide", {350, 14}, at, {112, 114, 320, 22});
        add("right edge", {304, 14}, {1900, 100}, {1596, 114, 320, 22});
        add("bottom edge", {30, 14}, {100, 1070}, {112, 1054, 56, 22});
        add("left of a side panel", {30, 14}, {480, 100}, {504, 114, 56, 22}, {500, 0, 1420, 1080});
        add("narrow screen: right edge wins", {304, 14}, {10, 100}, {-124, 114, 320, 22},
            {0, 0, 200, 1080});
        add("on no screen", {30, 14}, {5000, 5000}, {5012, 5014, 56, 22}, {});
    }
    void geometry()
    {
        QFETCH(QSizeF, label);
        QFETCH(QPoint, pointer);
        QFETCH(QRect, available);
        QFETCH(QRect, expected);
        const auto area = available.isNull() ? std::nullopt : std::optional<QRect>(available);
        QCOMPARE(TooltipPanelService::geometryFor(label, pointer, area), expected);
    }

    void hoverShowsOnePanelAfterResting()
    {
        QCursor::setPos(1800, 1000); // only the hover events sent here reach the rows
        QWidget window;
        auto* row = new QWidget(&window);
        auto* blank = new QWidget(&window);
        new PanelHoverTooltip(row, "a row", delayMs);
        new PanelHoverTooltip(blank, QString(), delayMs);
        window.show();
        window.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&window));

        // One panel at a time, which takes no focus; an empty text only removes.
        TooltipPanelService::shared().show("one");
        TooltipPanelService::shared().show("two");
        QTRY_COMPARE(shown(), QStringLiteral("two"));
        QCOMPARE(QApplication::activeWindow(), &window);
        TooltipPanelService::shared().show(QString());
        QCOMPARE(shown(), QString());

        // A quick pass, and resting on a row without text, show nothing.
        hover(row, true);
        hover(row, false);
        hover(blank, true);
        QTest::qWait(delayMs + 100);
        QCOMPARE(shown(), QString());

        hover(row, true);
        QTest::qWait(delayMs / 2);
        hover(row, false);
        QElapsedTimer clock;
        clock.start();
        hover(row, true); // coming back within the wait restarts it
        QTRY_COMPARE(shown(), QStringLiteral("a row"));
        QVERIFY(clock.elapsed() >= delayMs - 5);
        hover(row, false); // leaving hides at once
        QCOMPARE(shown(), QString());

        // A row hidden, or destroyed, under the pointer takes its tooltip along.
        hover(row, true);
        QTRY_COMPARE(shown(), QStringLiteral("a row"));
        row->hide();
        QCOMPARE(shown(), QString());
        auto* doomed = new QWidget(&window);
        new PanelHoverTooltip(doomed, "doomed", delayMs);
        doomed->show();
        hover(doomed, true);
        QTRY_COMPARE(shown(), QStringLiteral("doomed"));
        delete doomed;
        QCOMPARE(shown(), QString());
    }
};

QTEST_MAIN(TestTooltipPanel)
#include "tst_tooltippanel.moc"
