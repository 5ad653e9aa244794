#include "MenuText.h"

#include <QFontMetrics>

QString MenuText::literal(const QString& text)
{
    QString out = text;
    return out.replace(u'&', QStringLiteral("&&"));
}

QString MenuText::fitted(const QString& text, const QFontMetrics& metrics, int width)
{
    QString flat = text;
    flat.replace(u'\n', u' ');
    return literal(metrics.elidedText(flat, Qt::ElideRight, std::max(width, 0)));
}
