#include "FloatingContainer.h"

#include "IconButton.h"
#include "RoundedPanel.h"
#include "SymbolIcon.h"
#include "Theme.h"

#include <QGraphicsOpacityEffect>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPropertyAnimation>
#include <QVBoxLayout>

FloatingContainer::FloatingContainer(QWidget* content, QWidget* parent)
    : QWidget(parent)
    , m_content(content)
{
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(8, 8, 8, 8);
    outer->setSizeConstraint(QLayout::SetNoConstraint);
    m_card = new RoundedPanel(Theme::windowBackground(), 10, this);
    auto* cardLayout = new QVBoxLayout(m_card);
    cardLayout->setContentsMargins(0, 0, 0, 0);
    cardLayout->addWidget(content);
    outer->addWidget(m_card);

    m_controls = new QWidget(this);
    m_controls->setObjectName(QStringLiteral("hoverControls"));
    auto* row = new QHBoxLayout(m_controls);
    row->setContentsMargins(6, 6, 6, 6);
    row->setSpacing(4);

    auto* pill = new RoundedPanel(QColor(128, 128, 128, 38), 7, m_controls);
    auto* pillRow = new QHBoxLayout(pill);
    pillRow->setContentsMargins(5, 1, 5, 1);
    auto* badge = new QLabel(QStringLiteral("Ctrl"), pill);
    badge->setObjectName(QStringLiteral("moveHint"));
    badge->setFont(Theme::system(7, QFont::DemiBold));
    badge->setToolTip(QStringLiteral("Hold Ctrl and drag anywhere to move"));
    badge->setAccessibleName(badge->toolTip());
    Theme::makeSecondary(badge);
    pill->setToolTip(badge->toolTip());
    pillRow->addWidget(badge);

    auto* close = new IconButton(m_controls, QColor(255, 59, 48, 217));
    close->setObjectName(QStringLiteral("closeFloating"));
    close->setIcon(SymbolIcon::drawn(QStringLiteral("xmark"), Qt::white));
    close->setIconSize(QSize(10, 10));
    close->setFixedSize(16, 16);
    close->setToolTip(QStringLiteral("Close floating widget"));
    close->setAccessibleName(close->toolTip());
    connect(close, &QToolButton::clicked, this, &FloatingContainer::closeRequested);

    row->addWidget(pill);
    row->addWidget(close);
    m_controls->adjustSize();

    m_controls->hide();
}

void FloatingContainer::paintEvent(QPaintEvent*)
{
    // The card's shadow as a few widening, faint outlines, 4 px down. A blur
    // effect would re-render and blur the whole card on every repaint, and the
    // timer repaints every second.
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0, 0, 0, 9));
    const QRectF card = QRectF(m_card->geometry()).translated(0, 4);
    constexpr int spread = 6;
    for (int i = spread; i >= 1; --i)
        painter.drawRoundedRect(card.adjusted(-i, -i, i, i), 10 + i, 10 + i);
}

bool FloatingContainer::controlsVisible() const
{
    return m_hovering && !m_dragging;
}

void FloatingContainer::setHovering(bool hovering)
{
    if (m_hovering == hovering)
        return;
    m_hovering = hovering;
    updateControls();
}

void FloatingContainer::setDragging(bool dragging)
{
    if (m_dragging == dragging)
        return;
    m_dragging = dragging;
    updateControls();
}

void FloatingContainer::updateControls()
{
    const bool visible = controlsVisible();
    // Hidden controls take no clicks; the fade is only for the eye.
    m_controls->setVisible(visible);
    m_controls->raise();
    // The fade is set up at the first hover: the effect's code stays out of a start.
    if (!m_controlsFade) {
        m_controlsOpacity = new QGraphicsOpacityEffect(m_controls);
        m_controlsOpacity->setOpacity(0);
        m_controls->setGraphicsEffect(m_controlsOpacity);
        m_controlsFade = new QPropertyAnimation(m_controlsOpacity, "opacity", this);
        m_controlsFade->setDuration(150);
        m_controlsFade->setEasingCurve(QEasingCurve::InOutQuad);
    }
    m_controlsFade->stop();
    m_controlsFade->setStartValue(m_controlsOpacity->opacity());
    m_controlsFade->setEndValue(visible ? 1.0 : 0.0);
    m_controlsFade->start();
}

void FloatingContainer::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    m_controls->move(width() - 8 - m_controls->width(), 8);
}
