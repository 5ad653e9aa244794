#include "ShellStyle.h"

#include "SymbolIcon.h"

#include <QWidget>

QIcon ShellStyle::standardIcon(StandardPixmap icon, const QStyleOption* option,
                               const QWidget* widget) const
{
    if (icon == SP_ToolBarHorizontalExtensionButton)
        // "»", for menus that no longer fit. Every menu bar asks for it when created
        // and rarely shows it: drawn when first shown.
        return SymbolIcon::drawn(
            QStringLiteral("chevron.right.2"),
            (widget ? widget->palette() : standardPalette()).color(QPalette::ButtonText));
    return QProxyStyle::standardIcon(icon, option, widget);
}
