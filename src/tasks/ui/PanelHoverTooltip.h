#pragma once

#include <QObject>
#include <QPointer>
#include <QString>

class QWidget;
class TooltipPanelService;

// Shows a text in the shared tooltip window once the pointer has rested on a
// widget for `delayMs`. Every enter or leave advances a token, so a pending show
// whose token is no longer current does nothing.
class PanelHoverTooltip final : public QObject
{
    Q_OBJECT

public:
    PanelHoverTooltip(TooltipPanelService& panel, QWidget* target, const QString& text,
                      int delayMs);
    ~PanelHoverTooltip() override;

    void setText(const QString& text) { m_text = text; }
    QString text() const { return m_text; }
    bool isHovering() const { return m_hovering; }

signals:
    // A delayed check ran; `shown` says whether it showed the tooltip.
    void checkFinished(bool shown);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void hoverChanged(bool entered);

    TooltipPanelService& m_panel;
    QPointer<QWidget> m_target;
    QString m_text;
    int m_delayMs = 0;
    bool m_hovering = false;
    quint64 m_token = 0;
};
