#include "AppController.h"
#include "DataStore.h"
#include "DesktopFrame.h"
#include "DesktopPanelHost.h"
#include "DraggablePanel.h"
#include "FloatingContainer.h"
#include "HubWindow.h"
#include "PlaceholderWidgetView.h"
#include "PlacementService.h"
#include "PomodoroService.h"
#include "ShellStyle.h"
#include "StatusItemHost.h"
#include "StoreNotice.h"
#include "Switch.h"
#include "TestServices.h"
#include "WidgetPlacement.h"
#include "WidgetTogglesView.h"
#include "WindowManager.h"

#include <QAction>
#include <QApplication>
#include <QLabel>
#include <QMenuBar>
#include <QPushButton>
#include <QScreen>
#include <QTest>
#include <QWindow>

class TestWindowManager final : public QObject
{
    Q_OBJECT

    std::unique_ptr<AppServices> m_services;

    ModelContext& context() { return m_services->store().mainContext(); }

    static void addPlacement(ModelContext& ctx, const QString& id, const QString& mode,
                             bool statusBar, bool floating, const QString& frame = {})
    {
        auto* p = new WidgetPlacement(id);
        p->setMode(mode);
        p->setInStatusBar(statusBar);
        p->setInFloating(floating);
        p->setDesktopFrameJSON(frame);
        ctx.insert(p);
    }

private slots:
    void init()
    {
        m_services.reset();
        m_services = std::make_unique<AppServices>(testParts());
    }

    void restoresStoredPlacements()
    {
        addPlacement(context(), QStringLiteral("tasks"), QStringLiteral("desktop"), false, false);
        addPlacement(context(), QStringLiteral("weather"), QStringLiteral("off"), false, true);
        addPlacement(context(), QStringLiteral("habits"), QStringLiteral("statusbar"), false,
                     false);
        addPlacement(context(), QStringLiteral("pomodoro"), QStringLiteral("off"), false, false);
        QVERIFY(context().save());

        // The hub comes first at start-up; its toggles look the placements up (and
        // migrate them in memory) before the window manager restores them.
        WindowManager wm(*m_services);
        WidgetTogglesView toggles(m_services->placements(), wm);
        wm.setViewFactory([](const QString& id, bool) { return new PlaceholderWidgetView(id); });
        wm.restoreFromPersistence();

        // Legacy modes became flags, and that was saved.
        QVERIFY(!context().hasChanges());
        QVERIFY(context().find<WidgetPlacement>(QStringLiteral("tasks"))->inFloating());
        QVERIFY(context().find<WidgetPlacement>(QStringLiteral("habits"))->inStatusBar());
        QVERIFY(wm.panelHost(QStringLiteral("tasks")));
        QVERIFY(wm.statusHost(QStringLiteral("habits")));
        QVERIFY(!wm.statusHost(QStringLiteral("pomodoro")) &&
                !wm.panelHost(QStringLiteral("pomodoro")));
        QCOMPARE(wm.hostCount(), 3);

        // A new panel opens at its default size, centred, faint.
        DraggablePanel* tasks = wm.panelHost(QStringLiteral("tasks"))->panel();
        QCOMPARE(tasks->size(), QSize(260, 220));
        const QRect area = QGuiApplication::primaryScreen()->availableGeometry();
        QVERIFY(qAbs(tasks->geometry().center().x() - area.center().x()) <= 1);
        // Window opacity is kept in 8 bits.
        QVERIFY(qAbs(tasks->windowOpacity() - DesktopPanelHost::RestingOpacity) < 0.01);

        // An unknown widget floats as a 240 x 200 placeholder.
        DesktopPanelHost* unknown = wm.panelHost(QStringLiteral("weather"));
        QVERIFY(unknown);
        QCOMPARE(unknown->panel()->size(), QSize(240, 200));
    }

    void damagedStoreIsSaidInEveryWidgetWindow()
    {
        WindowManager wm(*m_services);
        wm.setViewFactory([](const QString&, bool) { return new QLabel(QStringLiteral("view")); });
        addPlacement(context(), QStringLiteral("weather"), QStringLiteral("off"), false, true);
        QVERIFY(context().save());
        wm.restoreFromPersistence();
        const auto notices = [&wm] {
            QStringList out;
            for (QWidget* root :
                 {static_cast<QWidget*>(wm.panelHost(QStringLiteral("weather"))->panel()),
                  static_cast<QWidget*>(wm.openWindow(QStringLiteral("tasks")))})
                for (const StoreNotice* notice : root->findChildren<StoreNotice*>())
                    out.append(notice->text());
            return out;
        };
        QCOMPARE(notices(), (QStringList{QString(), QString()}));
        context().markDamaged(QStringLiteral("database disk image is malformed"));
        const QStringList said = notices();
        QCOMPARE(said.size(), 2);
        for (const QString& line : said)
            QVERIFY(line.startsWith(u"The store is damaged: changes are not saved."));
        // A window opened afterwards says it from the start.
        WindowManager later(*m_services);
        later.setViewFactory([](const QString&, bool) { return new QLabel; });
        QVERIFY(later.openWindow(QStringLiteral("habits"))
                    ->findChild<StoreNotice*>()
                    ->text()
                    .startsWith(u"The store is damaged"));
        wm.openWindow(QStringLiteral("tasks"))->close();
        later.openWindow(QStringLiteral("habits"))->close();
    }

    void unknownWidgetShowsPlaceholderAndDot()
    {
        WindowManager wm(*m_services);
        QWidget* view = wm.widgetView(QStringLiteral("weather"), true);
        auto* label = view->findChild<QLabel*>(QStringLiteral("placeholderLabel"));
        QVERIFY(label);
        QCOMPARE(label->text(), QStringLiteral("Unknown widget"));
        delete view;
        QCOMPARE(StatusItemHost::pomodoroTitle(PomodoroService::Phase::ShortBreak, true, 299'999),
                 QStringLiteral("☕ 04:59"));
        QCOMPARE(StatusItemHost::pomodoroTitle(PomodoroService::Phase::LongBreak, false, 5000),
                 QStringLiteral("🛌"));
        QCOMPARE(StatusItemHost::pomodoroTitle(PomodoroService::Phase::Focus, true, 6'000'000),
                 QStringLiteral("🍅 100:00"));
        StatusItemHost host(
            QStringLiteral("weather"), [] { return new QWidget; }, m_services->timer());
        QCOMPARE(host.title(), QStringLiteral("•"));
    }

    void syncIsIdempotentAndKeepsFramesUntilClosed()
    {
        WindowManager wm(*m_services);
        wm.setViewFactory([](const QString& id, bool) { return new PlaceholderWidgetView(id); });
        WidgetPlacement* placement = m_services->placements().placement(QStringLiteral("tasks"));
        QVERIFY(!context().hasChanges());
        placement->setInFloating(true);
        wm.sync(QStringLiteral("tasks"), false, true);
        DesktopPanelHost* first = wm.panelHost(QStringLiteral("tasks"));
        wm.sync(QStringLiteral("tasks"), false, true);
        QCOMPARE(wm.panelHost(QStringLiteral("tasks")), first);
        QCOMPARE(wm.hostCount(), 1);

        // A move is saved once, 0.3 s after the last movement, in screen points.
        first->panel()->move(100, 120);
        first->panel()->move(110, 130);
        QTRY_VERIFY(!placement->desktopFrameJSON().isEmpty());
        const QRect stored = DesktopFrame::decode(placement->desktopFrameJSON())->toRect();
        QCOMPARE(DesktopPanelHost::fromStoredFrame(stored), QRect(110, 130, 260, 220));

        // Switching floating off keeps the frame; on again restores it.
        placement->setInFloating(false);
        wm.sync(QStringLiteral("tasks"), false, false);
        QVERIFY(!wm.panelHost(QStringLiteral("tasks")));
        QVERIFY(!placement->desktopFrameJSON().isEmpty());
        placement->setInFloating(true);
        wm.sync(QStringLiteral("tasks"), false, true);
        QCOMPARE(wm.panelHost(QStringLiteral("tasks"))->panel()->geometry(),
                 QRect(110, 130, 260, 220));

        // The close button turns floating off and forgets the frame.
        auto* close = wm.panelHost(QStringLiteral("tasks"))
                          ->container()
                          ->findChild<QWidget*>(QStringLiteral("closeFloating"));
        QVERIFY(close);
        QMetaObject::invokeMethod(close, "click");
        QTRY_VERIFY(!wm.panelHost(QStringLiteral("tasks")));
        QVERIFY(!placement->inFloating());
        QVERIFY(placement->desktopFrameJSON().isNull());
        QVERIFY(!context().hasChanges());
    }

    void togglesCreatePlacementsAndDriveHosts()
    {
        WindowManager wm(*m_services);
        wm.setViewFactory([](const QString& id, bool) { return new PlaceholderWidgetView(id); });
        WidgetTogglesView toggles(m_services->placements(), wm);
        QCOMPARE(context().count<WidgetPlacement>(), 3);
        for (const char* id : {"pomodoro", "tasks", "habits"}) {
            QVERIFY(!toggles.statusBarSwitch(QLatin1String(id))->isChecked());
            QVERIFY(!toggles.floatingSwitch(QLatin1String(id))->isChecked());
            QVERIFY(!toggles.floatingSwitch(QLatin1String(id))->accessibleName().isEmpty());
        }
        toggles.floatingSwitch(QStringLiteral("habits"))->click();
        QVERIFY(context().find<WidgetPlacement>(QStringLiteral("habits"))->inFloating());
        QVERIFY(wm.panelHost(QStringLiteral("habits")));
        QVERIFY(!context().hasChanges());

        // Closing the panel turns its switch off.
        wm.handlePanelClosed(QStringLiteral("habits"));
        QTRY_VERIFY(!toggles.floatingSwitch(QStringLiteral("habits"))->isChecked());
    }

    // A new panel opens centred; panels opened together, or over the hub, each find
    // the nearest spot clear of the others inside the work area.
    void newPanelsDoNotCoverEachOther()
    {
        const QRect area(0, 30, 1280, 770);
        const QSize size(240, 200);
        QCOMPARE(DesktopPanelHost::firstFrame(size, area, {}).center(), area.center());
        QList<QRect> taken{QRect(420, 100, 440, 600)}; // the hub, over the centre
        for (int i = 0; i < 5; ++i) {
            const QRect frame = DesktopPanelHost::firstFrame(size, area, taken);
            QVERIFY(area.contains(frame));
            for (const QRect& other : taken)
                QVERIFY2(!frame.intersects(other), qPrintable(QString::number(i)));
            // Near the centre: beside the hub, not in a far corner.
            QVERIFY(qAbs(frame.center().y() - area.center().y()) < 300);
            taken << frame;
        }
        // A hub tiled over the whole screen leaves no spot beside it: the panels still
        // keep clear of each other.
        const QRect first = DesktopPanelHost::firstFrame(size, area, {area});
        QCOMPARE(first.center(), area.center());
        QVERIFY(!DesktopPanelHost::firstFrame(size, area, {area, first}).intersects(first));
    }

    // Without a tray, the hub reaches every widget's full view: the Widgets menu and
    // each toggle row's Open button ask for it; one window per widget, made again
    // once closed.
    void hubOpensEachWidgetInAWindow()
    {
        WindowManager wm(*m_services);
        HubWindow hub(*m_services, wm);
        QStringList asked;
        connect(&hub, &HubWindow::widgetWindowRequested, this,
                [&asked](const QString& id) { asked << id; });
        hub.findChild<QAction*>(QStringLiteral("tasksWindowAction"))->trigger();
        hub.toggles()->findChild<QPushButton*>(QStringLiteral("pomodoroOpenButton"))->click();
        QCOMPARE(asked, (QStringList{"tasks", "pomodoro"}));

        QList<bool> viewOnly;
        wm.setViewFactory([&viewOnly](const QString& id, bool compact) {
            viewOnly << compact;
            return new PlaceholderWidgetView(id);
        });
        QPointer<WidgetWindow> window = wm.openWindow(QStringLiteral("tasks"));
        QCOMPARE(wm.openWindow(QStringLiteral("tasks")), window.data());
        QCOMPARE(viewOnly, QList<bool>{false});
        QCOMPARE(window->windowTitle(), QStringLiteral("Tasks — Tidewell"));
        QVERIFY(window->isVisible());
        window->close();
        QTRY_VERIFY(!window);
        QVERIFY(wm.openWindow(QStringLiteral("tasks")));
        QCOMPARE(viewOnly.size(), 2);
        QVERIFY(!context().hasChanges());
    }

    // The hub opens at its content's minimum below the menu bar, and the menu bar's
    // overflow chevrons, drawn only when first shown, still draw.
    void hubOpensSmallWithItsChevronsDrawnOnDemand()
    {
        WindowManager wm(*m_services);
        HubWindow hub(*m_services, wm);
        QVERIFY(hub.findChild<QMenuBar*>());
        QCOMPARE(hub.width(), 420);
        QVERIFY2(hub.height() > 520 && hub.height() < 600,
                 qPrintable(QString::number(hub.height())));

        ShellStyle style;
        const QImage chevrons =
            style.standardIcon(QStyle::SP_ToolBarHorizontalExtensionButton, nullptr, &hub)
                .pixmap(16, 16)
                .toImage();
        int inked = 0;
        for (int y = 0; y < chevrons.height(); ++y)
            for (int x = 0; x < chevrons.width(); ++x)
                inked += qAlpha(chevrons.pixel(x, y)) > 0;
        QVERIFY2(inked > 12, qPrintable(QString::number(inked)));
        QVERIFY(qAlpha(chevrons.pixel(4, 4)) >
                0); // a chevron's end, outside the dot of an unknown symbol

        // One style sheet on a window shown at start loads Qt's whole style sheet
        // engine (a few hundred kB): colours go through palettes instead.
        FloatingContainer card(new QLabel(QStringLiteral("card")));
        for (QWidget* root : {static_cast<QWidget*>(&hub), static_cast<QWidget*>(&card)}) {
            const QList<QWidget*> widgets = root->findChildren<QWidget*>();
            for (const QWidget* w : widgets)
                QVERIFY2(w->styleSheet().isEmpty() &&
                             qstrcmp(w->style()->metaObject()->className(), "QStyleSheetStyle"),
                         qPrintable(w->objectName()));
        }
    }

    // Asking to quit again while the alert is open does not open a second one.
    void placedWidgetsFollowTheHubOnceItIsOnScreen()
    {
        addPlacement(context(), QStringLiteral("tasks"), QStringLiteral("off"), false, true);
        QVERIFY(context().save());
        const auto shownPanels = [] {
            int count = 0;
            for (QWidget* window : QApplication::topLevelWidgets())
                count += qobject_cast<DraggablePanel*>(window) && window->isVisible();
            return count;
        };
        AppController controller(*m_services);
        controller.start();
        QVERIFY(controller.hub()->isVisible());
        QCOMPARE(shownPanels(), 0);
        // Sooner than the fallback for a hub that never shows.
        QTRY_COMPARE_WITH_TIMEOUT(shownPanels(), 1, 1500);
        QVERIFY(controller.hub()->windowHandle()->isExposed());
    }

    void quitAsksOnceWhileTheTimerRuns()
    {
        m_services->timer().start();
        AppController controller(*m_services);
        std::function<void(bool)> answer;
        int asked = 0;
        controller.setQuitConfirmation([&](std::function<void(bool)> a) {
            ++asked;
            answer = std::move(a);
        });
        controller.requestQuit();
        controller.requestQuit();
        QCOMPARE(asked, 1);
        answer(false); // Cancel: nothing changes, and the next request asks again
        QVERIFY(m_services->timer().isActive());
        controller.requestQuit();
        QCOMPARE(asked, 2);
        m_services->timer().pause();
    }
};

QTEST_MAIN(TestWindowManager)
#include "tst_windowmanager.moc"
