#include "HubWindow.h"

#include "AccountSection.h"
#include "AppServices.h"

#include "BundleInfo.h"
#include "SettingsView.h"
#include "Theme.h"
#include "WidgetRegistry.h"
#include "WidgetTogglesView.h"
#include "WindowActivation.h"
#include "WindowStickiness.h"

#include <QFrame>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenuBar>
#include <QScreen>
#include <QScrollArea>
#include <QShowEvent>
#include <QVBoxLayout>
#include <QWindow>

HubWindow::HubWindow(AppServices& services, WindowManager& windows, QWidget* parent)
    : QWidget(parent)
{
    setObjectName(QStringLiteral("hubWindow"));
    setWindowTitle(QStringLiteral("Tidewell"));

    auto* frame = new QVBoxLayout(this);
    frame->setContentsMargins(0, 0, 0, 0);
    frame->setSpacing(0);
    frame->setMenuBar(buildMenus());

    auto* central = new QWidget(this);
    auto* outer = new QVBoxLayout(central);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->setSpacing(0);

    outer->addLayout(buildHeader(central));

    auto* divider = new QFrame(central);
    divider->setFrameShape(QFrame::HLine);
    divider->setFrameShadow(QFrame::Sunken);
    outer->addWidget(divider);

    m_storeProblem = new QLabel(central);
    m_storeProblem->setObjectName(QStringLiteral("storeProblem"));
    m_storeProblem->setWordWrap(true);
    m_storeProblem->setTextFormat(Qt::PlainText);
    m_storeProblem->setContentsMargins(16, 8, 16, 8);
    m_storeProblem->setFont(Theme::font(Theme::Font::Caption));
    Theme::tint(m_storeProblem, Theme::destructive());
    m_storeProblem->hide();
    outer->addWidget(m_storeProblem);

    outer->addWidget(buildScrollArea(central), 1);
    // The content's own minimum, below the menu bar, is also the size it opens at:
    // the column scrolls, and every extra pixel costs four bytes of backing store.
    central->setMinimumSize(420, 520);
    frame->addWidget(central);

    QWidget* content = m_column->parentWidget();
    m_account = new AccountSection(services.auth(), services.sync(), services.client(), content);
    m_toggles = new WidgetTogglesView(services.placements(), windows, content);
    m_settings = new SettingsView(services.audio(), services.notifications(), content);
    addSection(m_account);
    addSection(m_toggles);
    addSection(m_settings);
    connect(m_toggles, &WidgetTogglesView::openRequested, this, &HubWindow::widgetWindowRequested);
    resize(minimumSizeHint());
}

QMenuBar* HubWindow::buildMenus()
{
    auto* bar = new QMenuBar(this);
    QMenu* file = bar->addMenu(QStringLiteral("&File"));
    QAction* history = file->addAction(QStringLiteral("History…"));
    history->setObjectName(QStringLiteral("historyAction"));
    history->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_H));
    connect(history, &QAction::triggered, this, &HubWindow::historyRequested);
    file->addSeparator();
    QAction* exportAll = file->addAction(QStringLiteral("Export…"));
    exportAll->setObjectName(QStringLiteral("exportAction"));
    connect(exportAll, &QAction::triggered, this, &HubWindow::exportRequested);
    QAction* import = file->addAction(QStringLiteral("Import…"));
    import->setObjectName(QStringLiteral("importAction"));
    connect(import, &QAction::triggered, this, &HubWindow::importRequested);
    QAction* restore = file->addAction(QStringLiteral("Restore from backup…"));
    restore->setObjectName(QStringLiteral("restoreAction"));
    connect(restore, &QAction::triggered, this, &HubWindow::restoreRequested);
    file->addSeparator();
    QAction* quit = file->addAction(QStringLiteral("Quit"));
    quit->setObjectName(QStringLiteral("quitAction"));
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    quit->setShortcutContext(Qt::ApplicationShortcut);
    connect(quit, &QAction::triggered, this, &HubWindow::quitRequested);

    // The widgets' full views, reachable without a tray (and from the keyboard).
    QMenu* widgets = bar->addMenu(QStringLiteral("&Widgets"));
    int key = Qt::Key_1;
    for (const WidgetMeta& meta : WidgetRegistry::all()) {
        QAction* open = widgets->addAction(meta.name);
        open->setObjectName(meta.id + QStringLiteral("WindowAction"));
        open->setShortcut(QKeySequence(Qt::CTRL | Qt::Key(key++)));
        const QString id = meta.id;
        connect(open, &QAction::triggered, this, [this, id] { emit widgetWindowRequested(id); });
    }
    return bar;
}

QLayout* HubWindow::buildHeader(QWidget* central)
{
    auto* header = new QHBoxLayout;
    header->setContentsMargins(16, 10, 16, 10);
    auto* title = new QLabel(QStringLiteral("Tidewell"), central);
    title->setFont(Theme::font(Theme::Font::Headline));
    auto* version = new QLabel(u'v' + BundleInfo::current().version, central);
    version->setObjectName(QStringLiteral("versionLabel"));
    version->setFont(Theme::font(Theme::Font::Caption));
    Theme::makeSecondary(version);
    header->addWidget(title);
    header->addStretch();
    header->addWidget(version);
    return header;
}

QWidget* HubWindow::buildScrollArea(QWidget* central)
{
    auto* scroll = new QScrollArea(central);
    scroll->setObjectName(QStringLiteral("hubScrollArea"));
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    auto* content = new QWidget(scroll);
    m_column = new QVBoxLayout(content);
    m_column->setContentsMargins(20, 20, 20, 20);
    m_column->setSpacing(20);
    m_column->addStretch();
    scroll->setWidget(content);
    return scroll;
}

void HubWindow::addSection(QWidget* section)
{
    // Keep the trailing stretch last.
    m_column->insertWidget(m_column->count() - 1, section);
}

void HubWindow::setStoreProblem(const QString& text)
{
    m_storeProblem->setText(text);
    m_storeProblem->setAccessibleName(text);
    m_storeProblem->setVisible(!text.isEmpty());
}

void HubWindow::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    if (event->spontaneous())
        return;
    if (!m_wasOnScreen && windowHandle())
        windowHandle()->installEventFilter(this);
    QRect frame(QPoint(), size());
    if (const QScreen* screen = QGuiApplication::primaryScreen())
        frame.moveCenter(screen->availableGeometry().center());
    WindowStickiness::keepFloating(this, frame);
}

bool HubWindow::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == windowHandle() && event->type() == QEvent::Expose && !m_wasOnScreen &&
        windowHandle()->isExposed()) {
        m_wasOnScreen = true;
        windowHandle()->removeEventFilter(this);
        // Queued: whoever waits for this runs after the first frame is painted.
        QMetaObject::invokeMethod(this, &HubWindow::onScreen, Qt::QueuedConnection);
    }
    return QWidget::eventFilter(watched, event);
}

void HubWindow::bringForward(const QString& activation)
{
    WindowActivation::prepare(this, activation);
    show();
    setWindowState((windowState() & ~Qt::WindowMinimized) | Qt::WindowActive);
    raise();
    activateWindow();
}
