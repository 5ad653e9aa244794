#pragma once

#include <QString>

// Habit icons arrive either as emoji text or as hexadecimal code points joined by
// "-" ("1F3CB-FE0F"). decode() turns the second form into the emoji and lets
// everything else through unchanged.
class EmojiCoding
{
public:
    static QString decode(const QString& s);
};
