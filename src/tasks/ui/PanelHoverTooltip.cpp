#include "PanelHoverTooltip.h"

#include "TooltipPanelService.h"

#include <QEvent>
#include <QTimer>
#include <QWidget>

PanelHoverTooltip::PanelHoverTooltip(TooltipPanelService& panel, QWidget* target,
                                     const QString& text, int delayMs)
    : QObject(target)
    , m_panel(panel)
    , m_target(target)
    , m_text(text)
    , m_delayMs(delayMs)
{
    target->setAttribute(Qt::WA_Hover);
    target->installEventFilter(this);
}

PanelHoverTooltip::~PanelHoverTooltip()
{
    // The wrapped widget is going away, which takes its tooltip with it.
    m_panel.hide();
}

bool PanelHoverTooltip::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_target) {
        switch (event->type()) {
        case QEvent::Enter:
            hoverChanged(true);
            break;
        case QEvent::Leave:
            hoverChanged(false);
            break;
        case QEvent::Hide:
            if (m_hovering)
                hoverChanged(false);
            else
                m_panel.hide();
            break;
        default:
            break;
        }
    }
    return QObject::eventFilter(watched, event);
}

void PanelHoverTooltip::hoverChanged(bool entered)
{
    m_hovering = entered;
    const quint64 token = ++m_token;
    if (!entered) {
        m_panel.hide();
        return;
    }
    QTimer::singleShot(m_delayMs, this, [this, token] {
        const bool show = m_hovering && token == m_token;
        if (show)
            m_panel.show(m_text);
        emit checkFinished(show);
    });
}
