#pragma once

#include <QString>

// Trims spaces and tabs from both ends, the only blanks typed names and task
// texts lose; other whitespace is kept as part of the text.
inline QString trimSpacesAndTabs(const QString& text)
{
    const auto blank = [](QChar c) { return c == u' ' || c == u'\t'; };
    qsizetype begin = 0;
    qsizetype end = text.size();
    while (begin < end && blank(text.at(begin)))
        ++begin;
    while (end > begin && blank(text.at(end - 1)))
        --end;
    return text.mid(begin, end - begin);
}
