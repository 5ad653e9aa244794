#include "TrayPopup.h"

#include <QDialog>
#include <QTest>

// Where a tray popup goes: next to the point or icon the tray gives, on the
// panel's side and on the screen; with nothing given, at the tray's end of the
// panel that the work area leaves out.
class TestTrayPopup final : public QObject
{
    Q_OBJECT

    static constexpr QSize popup{300, 380};
    const QRect screen{0, 0, 1280, 800};

    static int distance(const QRect& r, const QPoint& p)
    {
        const int dx = std::max({r.left() - p.x(), 0, p.x() - r.right()});
        const int dy = std::max({r.top() - p.y(), 0, p.y() - r.bottom()});
        return std::max(dx, dy);
    }

private slots:
    void placement()
    {
        const QRect top(0, 30, 1280, 770), bottom(0, 0, 1280, 770), left(40, 0, 1240, 800),
            right(0, 0, 1240, 800);
        // A given point: beside it, on the screen, whichever edge the panel is on.
        const QList<std::pair<QRect, QPoint>> given{{top, {1200, 12}},    {top, {5, 12}},
                                                    {bottom, {640, 790}}, {left, {20, 400}},
                                                    {right, {1260, 790}}, {screen, {640, 400}}};
        for (const auto& [area, at] : given) {
            const QRect r = TrayPopup::placement(QRect(at, QSize(1, 1)), screen, area, popup);
            QCOMPARE(r.size(), popup);
            QVERIFY2(area.contains(r), qPrintable(QStringLiteral("%1,%2").arg(r.x()).arg(r.y())));
            QVERIFY2(distance(r, at) <= 48, qPrintable(QString::number(distance(r, at))));
        }
        // Nothing given: the panel's tray end, inside the work area.
        const QRect atTop = TrayPopup::placement({}, screen, top, popup);
        QCOMPARE(atTop.topRight(), QPoint(1279, 33));
        const QRect atBottom = TrayPopup::placement({}, screen, bottom, popup);
        QCOMPARE(atBottom.bottomRight(), QPoint(1279, 765));
        const QRect atLeft = TrayPopup::placement({}, screen, left, popup);
        QCOMPARE(atLeft.left(), 44);
        QVERIFY(atLeft.bottom() >= 700);
        const QRect atRight = TrayPopup::placement({}, screen, right, popup);
        QCOMPARE(atRight.right(), 1239 - 4);
        // No panel known (a compositor that tells X11 clients nothing): top right.
        const QRect none = TrayPopup::placement({}, screen, screen, popup);
        QCOMPARE(none.topRight(), QPoint(1279, 3));
    }

    // A dialog opened from the popup keeps it open and, once closed, hands activation
    // back, so the next click elsewhere still closes the popup.
    void closesOnAnOutsideClickAfterItsDialog()
    {
        QWidget elsewhere;
        elsewhere.show();
        TrayPopup tray(QStringLiteral("Pomodoro"));
        tray.setContent(new QWidget);
        tray.showNear(QRect(1200, 0, 24, 24));
        QTRY_VERIFY(tray.isActiveWindow());
        auto* dialog = new QDialog(tray.content());
        dialog->show();
        dialog->activateWindow();
        QTRY_VERIFY(dialog->isActiveWindow());
        QVERIFY(tray.isVisible());
        dialog->reject();
        QTRY_VERIFY(tray.isActiveWindow());
        elsewhere.activateWindow();
        QTRY_VERIFY(!tray.isVisible());
    }
};

QTEST_MAIN(TestTrayPopup)
#include "tst_traypopup.moc"
