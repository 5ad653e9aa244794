#include "TooltipPanel.h"

#include "Theme.h"

#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QVBoxLayout>

TooltipPanel::TooltipPanel(const QString& text)
    : QWidget(nullptr, Qt::ToolTip | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                           Qt::WindowDoesNotAcceptFocus | Qt::WindowTransparentForInput)
{
    setObjectName(QStringLiteral("tooltipPanel"));
    setAccessibleName(text);
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setAttribute(Qt::WA_TranslucentBackground);
    setFocusPolicy(Qt::NoFocus);

    m_label = new QLabel(this);
    m_label->setObjectName(QStringLiteral("tooltipLabel"));
    m_label->setAccessibleName(text);
    m_label->setTextFormat(Qt::PlainText);
    m_label->setText(text);
    m_label->setWordWrap(true);
    m_label->setFont(labelFont());
    m_label->setForegroundRole(QPalette::ToolTipText);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(HorizontalInset, VerticalInset, HorizontalInset, VerticalInset);
    layout->addWidget(m_label);
}

QString TooltipPanel::text() const
{
    return m_label->text();
}

QFont TooltipPanel::labelFont()
{
    return Theme::system(11);
}

void TooltipPanel::paintEvent(QPaintEvent*)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    QPainterPath path;
    path.addRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), CornerRadius, CornerRadius);
    QColor fill = palette().color(QPalette::ToolTipBase);
    fill.setAlphaF(0.96);
    p.fillPath(path, fill);
    p.setPen(QPen(palette().color(QPalette::Mid), 1));
    p.drawPath(path);
}
