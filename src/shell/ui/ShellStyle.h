#pragma once

#include <QProxyStyle>

// The desktop's own style, but with the few standard icons the hub needs at
// start-up drawn in code. Qt reads those from image files, and to learn one's
// size it loads every image format plugin, Qt Svg among them.
class ShellStyle final : public QProxyStyle
{
    Q_OBJECT

public:
    QIcon standardIcon(StandardPixmap icon, const QStyleOption* option,
                       const QWidget* widget) const override;
};
