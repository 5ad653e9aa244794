#include "WireDate.h"

#include <QRegularExpression>

QString WireDate::format(const QDateTime& when)
{
    // Dropping the milliseconds first keeps Qt from writing fractions.
    const QDateTime utc = QDateTime::fromSecsSinceEpoch(when.toSecsSinceEpoch(), Qt::UTC);
    return utc.toString(QStringLiteral("yyyy-MM-dd'T'HH:mm:ss'Z'"));
}

std::optional<QDateTime> WireDate::parse(const QString& text)
{
    static const QRegularExpression form(QRegularExpression::anchoredPattern(
        QStringLiteral("([0-9]{4})-([0-9]{2})-([0-9]{2})T([0-9]{2}):([0-9]{2}):([0-9]{2})Z")));
    const QRegularExpressionMatch m = form.match(text);
    if (!m.hasMatch())
        return std::nullopt;
    auto part = [&m](int i) { return m.capturedView(i).toInt(); };
    const QDate date(part(1), part(2), part(3));
    const QTime time(part(4), part(5), part(6));
    if (!date.isValid() || !time.isValid())
        return std::nullopt;
    return QDateTime(date, time, Qt::UTC);
}
