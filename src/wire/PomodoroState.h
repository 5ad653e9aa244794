#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QMap>
#include <QString>
#include <QStringList>

#include <optional>

// The focus-timer state as it travels: a flat JSON object whose values are all
// strings (integers in decimal, booleans as "true"/"false", one timestamp).
class PomodoroState
{
public:
    // The thirteen keys, in the order the timer configuration lists its fields.
    static const QStringList& keys();

    // Strict: an optional sign and ASCII digits only, within 64 bits.
    static std::optional<qint64> parseInteger(const QString& text);
    // True only for exactly "true".
    static bool parseBool(const QString& text) { return text == QLatin1String("true"); }

    bool contains(const QString& key) const { return m_values.contains(key); }
    QString value(const QString& key) const { return m_values.value(key); }
    void setValue(const QString& key, const QString& text) { m_values.insert(key, text); }
    void remove(const QString& key) { m_values.remove(key); }

    // `fallback` when the key is missing or its value does not parse.
    qint64 integer(const QString& key, qint64 fallback) const;
    bool boolean(const QString& key) const { return parseBool(m_values.value(key)); }
    // Absent when missing, empty or not a wire timestamp.
    std::optional<QDateTime> date(const QString& key) const;

    void setInteger(const QString& key, qint64 v) { setValue(key, QString::number(v)); }
    void setBool(const QString& key, bool v);
    void setDate(const QString& key, const QDateTime& when);

    QJsonObject toJson() const;
    // Every value must be a string; other keys are kept as received.
    static std::optional<PomodoroState> fromJson(const QJsonValue& value, const QString& path,
                                                 QString* error);

    bool operator==(const PomodoroState&) const = default;

private:
    QMap<QString, QString> m_values;
};
