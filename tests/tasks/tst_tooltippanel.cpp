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
    for (QWidget* w : QApplication::topLevelWidgets()) {
        if (qobject_cast<TooltipPanel*>(w) && w->isVisible())
            ++n;
    }
    return n;
}

QString shownText()
{
    const TooltipPanel* panel = TooltipPanelService::shared().panel();
    return panel && panel->isVisible() ? panel->text() : QString();
}

void enter(QWidget* w)
{
    const QPointF local(5, 5);
    QEnterEvent event(local, local, w->mapToGlobal(local));
    QApplication::sendEvent(w, &event);
}

void leave(QWidget* w)
{
    QEvent event(QEvent::Leave);
    QApplication::sendEvent(w, &event);
}
} // namespace

class TestTooltipPanel final : public QObject
{
    Q_OBJECT

    QWidget* m_window = nullptr;
    QList<QWidget*> m_rows;
    QList<PanelHoverTooltip*> m_hovers;

private slots:
    void initTestCase()
    {
        // Park the real pointer away from the rows: only the hover events the
        // tests send may reach them.
        QCursor::setPos(1800, 1000);
    }

    void init()
    {
        m_window = new QWidget;
        m_rows.clear();
        m_hovers.clear();
        const QStringList texts{"first row", "second row", "third row", QString()};
        for (int i = 0; i < texts.size(); ++i) {
            auto* row = new QWidget(m_window);
            row->setGeometry(0, i * 30, 200, 28);
            m_rows << row;
            m_hovers << new PanelHoverTooltip(row, texts.at(i), delayMs);
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
        const QRect screen(0, 0, 1920, 1080);
        QTest::newRow("short text")
            << QSizeF(30, 14) << QPoint(100, 100) << screen << QRect(112, 114, 56, 22);
        QTest::newRow("exactly 40 wide")
            << QSizeF(40, 14) << QPoint(100, 100) << screen << QRect(112, 114, 56, 22);
        QTest::newRow("just over 40")
            << QSizeF(40.5, 14) << QPoint(100, 100) << screen << QRect(112, 114, 57, 22);
        QTest::newRow("wrapped long text")
            << QSizeF(304, 44.2) << QPoint(100, 100) << screen << QRect(112, 114, 320, 53);
        QTest::newRow("wider than the wrap width")
            << QSizeF(350, 14) << QPoint(100, 100) << screen << QRect(112, 114, 320, 22);
        QTest::newRow("near the right edge")
            << QSizeF(304, 14) << QPoint(1900, 100) << screen << QRect(1596, 114, 320, 22);
        QTest::newRow("near the bottom edge")
            << QSizeF(30, 14) << QPoint(100, 1070) << screen << QRect(112, 1054, 56, 22);
        QTest::newRow("left of a side panel")
            << QSizeF(30, 14) << QPoint(480, 100) << QRect(500, 0, 1420, 1080)
            << QRect(504, 114, 56, 22);
        QTest::newRow("screen narrower than the tooltip: right edge wins")
            << QSizeF(304, 14) << QPoint(10, 100) << QRect(0, 0, 200, 1080)
            << QRect(-124, 114, 320, 22);
        QTest::newRow("pointer on no screen")
            << QSizeF(30, 14) << QPoint(5000, 5000) << QRect() << QRect(5012, 5014, 56, 22);
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
        const QString longText = QStringLiteral("Call the plumber about the leaking tap in the "
                                                "kitchen before the weekend and ask for a quote");
        const QSizeF wrapped = TooltipPanelService::labelSize(longText);
        QVERIFY(wrapped.width() <= TooltipPanelService::MaxLabelWidth);
        QVERIFY(wrapped.height() >= 2 * shortText.height());
        const QRect rect = TooltipPanelService::geometryFor(wrapped, {0, 0}, std::nullopt);
        QCOMPARE(rect.width(), int(std::ceil(wrapped.width())) + 16);
        QVERIFY(rect.height() > 2 * shortText.height());
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

        TooltipPanel* panel = service.panel();
        const Qt::WindowFlags flags = panel->windowFlags();
        QVERIFY(flags.testFlag(Qt::WindowTransparentForInput));
        QVERIFY(flags.testFlag(Qt::WindowDoesNotAcceptFocus));
        QVERIFY(flags.testFlag(Qt::WindowStaysOnTopHint));
        QVERIFY(flags.testFlag(Qt::FramelessWindowHint));
        QVERIFY(panel->testAttribute(Qt::WA_ShowWithoutActivating));
        QCOMPARE(panel->focusPolicy(), Qt::NoFocus);
        QCOMPARE(QApplication::activeWindow(), m_window); // showing stole nothing

        service.show(QString()); // an empty text only removes
        QVERIFY(!service.panel());
        QTRY_COMPARE(livePanels(), 0);
    }

    void quickPassesShowNothing()
    {
        QList<QSignalSpy*> spies;
        for (PanelHoverTooltip* hover : m_hovers)
            spies << new QSignalSpy(hover, &PanelHoverTooltip::checkFinished);
        for (int i = 0; i < 3; ++i) {
            enter(m_rows[i]);
            leave(m_rows[i]);
        }
        for (int i = 0; i < 3; ++i) {
            QTRY_COMPARE(spies[i]->count(), 1);
            QCOMPARE(spies[i]->first().first().toBool(), false);
        }
        QCOMPARE(livePanels(), 0);
        qDeleteAll(spies);
    }

    void restingShowsAfterTheDelay()
    {
        QSignalSpy checks(m_hovers[0], &PanelHoverTooltip::checkFinished);
        QElapsedTimer clock;
        clock.start();
        enter(m_rows[0]);
        QVERIFY(shownText().isEmpty());
        QTRY_COMPARE(shownText(), QStringLiteral("first row"));
        QVERIFY(clock.elapsed() >= delayMs - 5);
        QCOMPARE(checks.count(), 1);

        // Leaving hides at once.
        leave(m_rows[0]);
        QVERIFY(!TooltipPanelService::shared().panel());
    }

    void reenteringRestartsTheWait()
    {
        QSignalSpy checks(m_hovers[0], &PanelHoverTooltip::checkFinished);
        enter(m_rows[0]);
        QTest::qWait(150); // part of the gesture: leave halfway through the wait
        leave(m_rows[0]);
        QElapsedTimer clock;
        clock.start();
        enter(m_rows[0]);
        QTRY_COMPARE(checks.count(), 1); // the first wait ends and finds a newer token
        QCOMPARE(checks.at(0).first().toBool(), false);
        QVERIFY(shownText().isEmpty());
        QTRY_COMPARE(shownText(), QStringLiteral("first row"));
        QVERIFY(clock.elapsed() >= delayMs - 5);
    }

    void movingOnHidesThenShowsTheNext()
    {
        enter(m_rows[0]);
        QTRY_COMPARE(shownText(), QStringLiteral("first row"));
        leave(m_rows[0]);
        enter(m_rows[1]);
        QVERIFY(!TooltipPanelService::shared().panel());
        QTRY_COMPARE(shownText(), QStringLiteral("second row"));
        QTRY_COMPARE(livePanels(), 1);
    }

    void emptyTextShowsNone()
    {
        QSignalSpy checks(m_hovers[3], &PanelHoverTooltip::checkFinished);
        enter(m_rows[3]);
        QTRY_COMPARE(checks.count(), 1);
        QVERIFY(!TooltipPanelService::shared().panel());
        QCOMPARE(livePanels(), 0);
    }

    void goneRowTakesItsTooltip_data()
    {
        QTest::addColumn<bool>("destroy");
        QTest::newRow("hidden") << false;
        QTest::newRow("destroyed") << true;
    }
    void goneRowTakesItsTooltip()
    {
        QFETCH(bool, destroy);
        enter(m_rows[1]);
        QTRY_COMPARE(shownText(), QStringLiteral("second row"));
        if (destroy)
            delete m_rows[1];
        else
            m_rows[1]->hide();
        QVERIFY(!TooltipPanelService::shared().panel());
        QTRY_COMPARE(livePanels(), 0);
    }
};

QTEST_MAIN(TestTooltipPanel)
#include "tst_tooltippanel.moc"
