#include "WireReader.h"

#include <cmath>

WireReader::WireReader(const QJsonValue& value, const QString& path)
    : m_path(path)
{
    if (value.isObject())
        m_object = value.toObject();
    else
        m_error = u"expected an object at " + (path.isEmpty() ? QStringLiteral("top level") : path);
}

QString WireReader::pathOf(const QString& key) const
{
    return m_path.isEmpty() ? key : m_path + u'.' + key;
}

void WireReader::fail(const QString& message)
{
    if (m_error.isEmpty())
        m_error = message;
}

void WireReader::complain(const QString& key, const QJsonValue& value, QStringView expected)
{
    if (value.isUndefined())
        fail(u"key \"" + key + u"\" missing at " +
             (m_path.isEmpty() ? QStringLiteral("top level") : m_path));
    else
        fail(u"expected " + expected + u" at " + pathOf(key));
}

QJsonValue WireReader::field(const QString& key, bool required)
{
    if (!ok())
        return QJsonValue::Undefined;
    const auto it = m_object.constFind(key);
    if (it == m_object.constEnd() || (!required && it->isNull()))
        return QJsonValue::Undefined;
    return *it;
}

std::optional<qint64> WireReader::integer(const QJsonValue& value)
{
    if (!value.isDouble())
        return std::nullopt;
    const double d = value.toDouble();
    // 2^63 is exactly representable and is the first value out of range.
    if (!std::isfinite(d) || d != std::floor(d) || d < -9223372036854775808.0 ||
        d >= 9223372036854775808.0)
        return std::nullopt;
    return value.toInteger();
}

QString WireReader::requiredString(const QString& key)
{
    const QJsonValue v = field(key, true);
    if (v.isString())
        return v.toString();
    complain(key, v, u"a string");
    return {};
}

qint64 WireReader::requiredInteger(const QString& key)
{
    const QJsonValue v = field(key, true);
    if (const auto n = integer(v))
        return *n;
    complain(key, v, u"an integer");
    return 0;
}

bool WireReader::requiredBool(const QString& key)
{
    const QJsonValue v = field(key, true);
    if (v.isBool())
        return v.toBool();
    complain(key, v, u"a boolean");
    return false;
}

QJsonArray WireReader::requiredArray(const QString& key)
{
    const QJsonValue v = field(key, true);
    if (v.isArray())
        return v.toArray();
    complain(key, v, u"an array");
    return {};
}

std::optional<qint64> WireReader::optionalInteger(const QString& key)
{
    const QJsonValue v = field(key, false);
    if (v.isUndefined())
        return std::nullopt;
    const auto n = integer(v);
    if (!n)
        fail(u"expected an integer at " + pathOf(key));
    return n;
}
