#pragma once

#include <QRectF>
#include <QString>

#include <optional>

// The text form of a floating panel's frame: a JSON object with the numbers
// "x", "y", "w" and "h".
class DesktopFrame
{
public:
    static QString encode(const QRectF& frame);
    // The frame, or nothing when the text is not such an object (any non-number
    // value or a missing key counts as no stored frame).
    static std::optional<QRectF> decode(const QString& text);
};
