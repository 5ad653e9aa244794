#include "ExportRecordReader.h"

#include "ExportDocument.h"

#include <QDate>
#include <QDateTime>
#include <QMetaProperty>
#include <QUuid>

#include <cmath>

namespace {
constexpr double MaxExactInteger = 9007199254740992.0; // 2^53: beyond, JSON numbers blur
}

ExportRecordReader::ExportRecordReader(const QJsonObject& object, QString path, QString* error)
    : m_object(object)
    , m_path(std::move(path))
    , m_error(error)
{}

bool ExportRecordReader::fail(const QString& field, const QString& what)
{
    if (!m_failed)
        *m_error = m_path + (field.isEmpty() ? QString() : u'.' + field) + u": " + what;
    m_failed = true;
    return false;
}

std::optional<QVariant> ExportRecordReader::field(const QMetaProperty& property)
{
    const QString name = QString::fromLatin1(property.name());
    if (!m_object.contains(name)) {
        fail(name, QStringLiteral("missing"));
        return std::nullopt;
    }
    const QJsonValue v = m_object.value(name);
    const auto expected = [&](const QString& what) -> std::optional<QVariant> {
        fail(name, u"expected " + what + u", found " + typeName(v));
        return std::nullopt;
    };
    switch (property.metaType().id()) {
    case QMetaType::QUuid: {
        if (v.isNull())
            return QVariant(QUuid());
        const QUuid id = v.isString() ? QUuid::fromString(v.toString()) : QUuid();
        if (id.isNull())
            return expected(QStringLiteral("an id (UUID text) or null"));
        return QVariant(id);
    }
    case QMetaType::QDateTime: {
        if (v.isNull())
            return QVariant(QDateTime());
        const QDateTime t = v.isString() && v.toString().size() <= 64
                                ? QDateTime::fromString(v.toString(), Qt::ISODateWithMs)
                                : QDateTime();
        if (!t.isValid())
            return expected(QStringLiteral("an ISO 8601 date and time or null"));
        return QVariant(t);
    }
    case QMetaType::QString:
        if (v.isNull())
            return QVariant(QString());
        if (!v.isString())
            return expected(QStringLiteral("text or null"));
        if (v.toString().size() > ExportDocument::MaxTextLength) {
            fail(name, QStringLiteral("text of %1 characters, longer than the %2 allowed")
                           .arg(v.toString().size())
                           .arg(ExportDocument::MaxTextLength));
            return std::nullopt;
        }
        return QVariant(v.toString());
    case QMetaType::LongLong: {
        if (const auto n = integer(v))
            return QVariant(*n);
        return expected(QStringLiteral("an integer"));
    }
    case QMetaType::Bool:
        if (!v.isBool())
            return expected(QStringLiteral("true or false"));
        return QVariant(v.toBool());
    case QMetaType::QVariant:
        if (v.isNull())
            return QVariant();
        if (const auto n = integer(v))
            return QVariant(*n);
        return expected(QStringLiteral("an integer or null"));
    default:
        fail(name, QStringLiteral("a field of a type Tidewell cannot read"));
        return std::nullopt;
    }
}

void ExportRecordReader::range(const QVariantHash& record, const char* field, qint64 low,
                               qint64 high)
{
    const qint64 n = record.value(QLatin1String(field)).toLongLong();
    if (n < low || n > high)
        fail(QLatin1String(field),
             QStringLiteral("%1 is out of range (%2 to %3)").arg(n).arg(low).arg(high));
}

bool ExportRecordReader::day(const QVariantHash& record, const char* field)
{
    const QString text = record.value(QLatin1String(field)).toString();
    if (text.size() == 10 && QDate::fromString(text, Qt::ISODate).isValid())
        return true;
    return fail(QLatin1String(field), QStringLiteral("expected a day as yyyy-MM-dd"));
}

QString ExportRecordReader::typeName(const QJsonValue& value)
{
    switch (value.type()) {
    case QJsonValue::Null:
        return QStringLiteral("null");
    case QJsonValue::Bool:
        return QStringLiteral("a boolean");
    case QJsonValue::Double:
        return QStringLiteral("a number");
    case QJsonValue::String:
        return QStringLiteral("a string");
    case QJsonValue::Array:
        return QStringLiteral("an array");
    case QJsonValue::Object:
        return QStringLiteral("an object");
    case QJsonValue::Undefined:
        break;
    }
    return QStringLiteral("nothing");
}

std::optional<qint64> ExportRecordReader::integer(const QJsonValue& v)
{
    if (!v.isDouble())
        return std::nullopt;
    const double d = v.toDouble();
    if (!std::isfinite(d) || std::trunc(d) != d || std::fabs(d) > MaxExactInteger)
        return std::nullopt;
    return qint64(d);
}
