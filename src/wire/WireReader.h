#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>

#include <optional>

// Reads the fields of one JSON object of a wire record. The first problem is
// kept, with the path of the offending value, and every later read is a no-op.
class WireReader
{
public:
    WireReader(const QJsonValue& value, const QString& path);

    bool ok() const { return m_error.isEmpty(); }
    QString error() const { return m_error; }

    QString requiredString(const QString& key);
    qint64 requiredInteger(const QString& key);
    bool requiredBool(const QString& key);
    QJsonArray requiredArray(const QString& key);
    // Absent and null both read as absent.
    std::optional<qint64> optionalInteger(const QString& key);

    QString pathOf(const QString& key) const;
    void fail(const QString& message);

    // A JSON number that is a whole number within the signed 64-bit range.
    static std::optional<qint64> integer(const QJsonValue& value);

private:
    QJsonValue field(const QString& key, bool required);
    void complain(const QString& key, const QJsonValue& value, QStringView expected);

    QJsonObject m_object;
    QString m_path;
    QString m_error;
};
