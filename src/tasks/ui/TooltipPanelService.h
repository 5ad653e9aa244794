#pragma once

#include "TooltipPanel.h"

#include <QObject>
#include <QPointer>
#include <QRect>
#include <QSizeF>

#include <optional>

// Owns the one tooltip window of the process: showing a text replaces whatever
// was shown before. Main thread only.
class TooltipPanelService final : public QObject
{
    Q_OBJECT

public:
    static constexpr qreal MaxLabelWidth = 304;
    static constexpr qreal MinLabelWidth = 40;
    static constexpr int PointerOffsetX = 12;
    static constexpr int PointerOffsetY = 14;
    static constexpr int ScreenInset = 4;

    explicit TooltipPanelService(QObject* parent = nullptr);

    // Replaces any tooltip with one showing `text` next to the pointer; an empty
    // text only removes the current one.
    void show(const QString& text);
    void hide();

    // The window shown now, or null.
    TooltipPanel* panel() const { return m_panel; }

    // The text's natural size when wrapped at MaxLabelWidth (inside a word too long for a line).
    static QSizeF labelSize(const QString& text);
    // Where the window goes for a label of `label` size and the pointer at `pointer`
    // (global coordinates, y growing downwards), kept inside `available` (the
    // screen area without panels) when the pointer is on a screen.
    static QRect geometryFor(const QSizeF& label, const QPoint& pointer,
                             const std::optional<QRect>& available);

private:
    QPointer<TooltipPanel> m_panel;
};
