#pragma once

#include <QString>

// Spaces and tabs are the only blanks typed names, tokens and task texts lose at
// their ends; line breaks and other whitespace stay part of the text.
class Blanks
{
public:
    static QString trimmed(const QString& text);
    static bool isBlank(const QString& text) { return trimmed(text).isEmpty(); }
};
