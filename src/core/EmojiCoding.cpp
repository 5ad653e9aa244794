#include "EmojiCoding.h"

#include <QStringList>

QString EmojiCoding::decode(const QString& s)
{
    if (s.isEmpty())
        return s;
    const QString t = s.trimmed();
    for (QChar c : t) {
        if (!(c.isDigit() && c.unicode() < 128) && !(c >= u'a' && c <= u'f') &&
            !(c >= u'A' && c <= u'F') && c != u'-')
            return s;
    }
    QString out;
    for (const QString& piece : t.split(u'-', Qt::SkipEmptyParts)) {
        bool ok = false;
        const uint cp = piece.toUInt(&ok, 16);
        if (!ok || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))
            return s;
        const char32_t c = cp;
        out += QString::fromUcs4(&c, 1);
    }
    return out.isEmpty() ? s : out;
}
