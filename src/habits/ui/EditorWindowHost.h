#pragma once

#include <QSize>
#include <QString>
#include <QWidget>

// Small editor windows of their own (the habit editor). Several may be open at
// once; each lives until it is closed.
class EditorWindowHost
{
public:
    // Shows `content` as a titled, closable window of `size`, centred and active,
    // above the window of `opener` (a floating panel keeps above the others, and the
    // editor must not open beneath it).
    static QWidget* open(const QString& title, const QSize& size, QWidget* content,
                         QWidget* opener = nullptr);
};
