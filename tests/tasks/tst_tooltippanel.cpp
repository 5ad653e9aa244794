#include "PanelHoverTooltip.h"
#include "TooltipPanel.h"
#include "TooltipPanelService.h"

#include <QApplication>
#include <QCursor>
#include <QElapsedTimer>
#include <QEnterEvent>
#include <QSignalSpy>
#include <QTest>

namespace {
constexpr int delayMs = 300;

int livePanels()
{
    int n = 0;
    for (QWidget* w : QApplication::topLevelWidgets())
        n += qobject_cast<TooltipPanel*>(w) && w->isVisible();
    return n;
}

QString shownText()
{
    const TooltipPanel* panel = TooltipPanelService::shared().panel();
    return panel && panel->isVisible() ? panel->text() : QString();
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

    QWidget* m_window = nullptr;
    QList<QWidget*> m_rows;
    QList<PanelHoverTooltip*> m_hovers;

private slots:
    void init()
    {
        QCursor::setPos(1800, 1000); // only the hover events sent here reach the rows
        m_window = new QWidget;
        m_rows.clear();
        m_hovers.clear();
        const QStringList texts{"first row", "second row", "third row", QString()};
        for (int i = 0; i < texts.size(); ++i) {
            m_rows << new QWidget(m_window);
            m_rows.last()->setGeometry(0, i * 30, 200, 28);
            m_hovers << new PanelHoverTooltip(m_rows.last(), texts.at(i), delayMs);
        }
        m_window->setGeometry(100, 100, 200, 140);
        m_window->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_window));
    }

    void cleanup()
    {
        delete m_window;
        QVERIFY(!TooltipPanelService::shared().panel());
        QTRY_COMPARE(livePanels(), 0);
    }

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

    void labelWrapsAtWords()
    {
        const QSizeF shortText = TooltipPanelService::labelSize(QStringLiteral("Hi"));
        QVERIFY(shortText.width() <= 40);
        const QSizeF wrapped = TooltipPanelService::labelSize(
            QStringLiteral("Call the plumber about the leaking tap in the kitchen before the "
                           "weekend and ask for a quote"));
        QVERIFY(wrapped.width() <= 304);
        QVERIFY(wrapped.height() >= 2 * shortText.height());
    }

    void onePanelThatTakesNothing()
    {
        TooltipPanelService& service = TooltipPanelService::shared();
        m_window->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(m_window));
        service.show(QStringLiteral("one"));
        service.show(QStringLiteral("two"));
        QCOMPARE(shownText(), QStringLiteral("two"));
        QTRY_COMPARE(livePanels(), 1);

        const Qt::WindowFlags all = Qt::WindowTransparentForInput | Qt::WindowDoesNotAcceptFocus |
                                    Qt::WindowStaysOnTopHint | Qt::FramelessWindowHint;
        QCOMPARE(service.panel()->windowFlags() & all, all);
        QVERIFY(service.panel()->testAttribute(Qt::WA_ShowWithoutActivating));
        QCOMPARE(service.panel()->focusPolicy(), Qt::NoFocus);
        QCOMPARE(QApplication::activeWindow(), m_window); // showing stole nothing

        service.show(QString()); // an empty text only removes
        QVERIFY(!service.panel());
        QTRY_COMPARE(livePanels(), 0);
    }

    void quickPassesAndEmptyTextShowNothing()
    {
        int checks = 0;
        for (int i = 0; i < 4; ++i) {
            connect(m_hovers[i], &PanelHoverTooltip::checkFinished, this, [&] { ++checks; });
            hover(m_rows[i], true);
            if (i < 3) // the last row, with no text, is rested on
                hover(m_rows[i], false);
        }
        QTRY_COMPARE(checks, 4);
        QCOMPARE(livePanels(), 0);
    }

    void restingShowsAfterTheDelay()
    {
        QSignalSpy checks(m_hovers[0], &PanelHoverTooltip::checkFinished);
        hover(m_rows[0], true);
        QTest::qWait(150); // part of the gesture: leave halfway through the wait
        hover(m_rows[0], false);
        for (int i : {0, 1}) { // re-entering restarts the wait, as does the next row
            QElapsedTimer clock;
            clock.start();
            hover(m_rows[i], true);
            QVERIFY(shownText().isEmpty());
            QTRY_COMPARE(shownText(), m_hovers[i]->text());
            QVERIFY(clock.elapsed() >= delayMs - 5);
            QCOMPARE(livePanels(), 1);
            hover(m_rows[i], false); // leaving, or moving on, hides at once
            QVERIFY(!TooltipPanelService::shared().panel());
        }
        QCOMPARE(checks.first().first().toBool(), false); // found a newer token
    }

    void goneRowTakesItsTooltip()
    {
        for (int i : {1, 2}) { // hidden, then destroyed
            hover(m_rows[i], true);
            QTRY_COMPARE(shownText(), m_hovers[i]->text());
            if (i == 1)
                m_rows[i]->hide();
            else
                delete m_rows[i];
            QVERIFY(!TooltipPanelService::shared().panel());
        }
    }
};

QTEST_MAIN(TestTooltipPanel)
#include "tst_tooltippanel.moc"
