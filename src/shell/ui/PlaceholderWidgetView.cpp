#include "PlaceholderWidgetView.h"

#include "SymbolIcon.h"
#include "Theme.h"

#include <QLabel>
#include <QVBoxLayout>

PlaceholderWidgetView::PlaceholderWidgetView(const QString& label, QWidget* parent)
    : QWidget(parent)
{
    setObjectName(QStringLiteral("placeholderWidget"));
    setMinimumSize(240, 200);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(24, 24, 24, 24);
    column->setSpacing(8);
    column->addStretch();

    auto* icon = new QLabel(this);
    icon->setPixmap(SymbolIcon::drawn(QStringLiteral("hammer"), Theme::secondary()).pixmap(28, 28));
    icon->setAlignment(Qt::AlignCenter);
    auto* text = new QLabel(label, this);
    text->setObjectName(QStringLiteral("placeholderLabel"));
    text->setFont(Theme::font(Theme::Font::Callout));
    text->setAlignment(Qt::AlignCenter);
    Theme::makeSecondary(text);
    column->addWidget(icon);
    column->addWidget(text);
    column->addStretch();
}
