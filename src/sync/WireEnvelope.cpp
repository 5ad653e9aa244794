#include "WireEnvelope.h"

#include "WireReader.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>

namespace {
std::optional<QJsonObject> topObject(const QByteArray& body, QString* error)
{
    QJsonParseError parse;
    const QJsonDocument doc = QJsonDocument::fromJson(body, &parse);
    if (parse.error != QJsonParseError::NoError) {
        *error = u"invalid JSON at offset " + QString::number(parse.offset) + u": " +
                 parse.errorString();
        return std::nullopt;
    }
    if (!doc.isObject()) {
        *error = QStringLiteral("expected an object at top level");
        return std::nullopt;
    }
    return doc.object();
}

template <typename T> std::optional<QList<T>> decodeData(const QByteArray& body, QString* error)
{
    const auto top = topObject(body, error);
    if (!top)
        return std::nullopt;
    WireReader r(*top, {});
    const QJsonArray data = r.requiredArray(QStringLiteral("data"));
    if (!r.ok()) {
        *error = r.error();
        return std::nullopt;
    }
    QList<T> out;
    out.reserve(data.size());
    for (qsizetype i = 0; i < data.size(); ++i) {
        auto item = T::fromJson(data.at(i), u"data[" + QString::number(i) + u']', error);
        if (!item)
            return std::nullopt;
        out.append(std::move(*item));
    }
    return out;
}

template <typename T> QByteArray encodeArray(const QList<T>& items)
{
    QJsonArray array;
    for (const T& item : items)
        array.append(item.toJson());
    return QJsonDocument(array).toJson(QJsonDocument::Compact);
}

QByteArray dataReply(const QJsonValue& data)
{
    return QJsonDocument(QJsonObject{{QStringLiteral("data"), data}})
        .toJson(QJsonDocument::Compact);
}
} // namespace

std::optional<QList<WireTaskList>> WireEnvelope::decodeTasks(const QByteArray& body, QString* error)
{
    return decodeData<WireTaskList>(body, error);
}

std::optional<QList<WireHabit>> WireEnvelope::decodeHabits(const QByteArray& body, QString* error)
{
    return decodeData<WireHabit>(body, error);
}

bool WireEnvelope::decodePomodoro(const QByteArray& body, std::optional<PomodoroState>* state,
                                  QString* error)
{
    const auto top = topObject(body, error);
    if (!top)
        return false;
    const QJsonValue data = top->value(QLatin1String("data"));
    if (data.isUndefined() || data.isNull()) {
        state->reset();
        return true;
    }
    auto decoded = PomodoroState::fromJson(data, QStringLiteral("data"), error);
    if (!decoded)
        return false;
    *state = std::move(*decoded);
    return true;
}

bool WireEnvelope::decodeOk(const QByteArray& body, QString* error)
{
    const auto top = topObject(body, error);
    if (!top)
        return false;
    WireReader r(*top, {});
    r.requiredBool(QStringLiteral("ok"));
    if (!r.ok())
        *error = r.error();
    return r.ok();
}

QByteArray WireEnvelope::encode(const QList<WireTaskList>& lists)
{
    return encodeArray(lists);
}

QByteArray WireEnvelope::encode(const QList<WireHabit>& habits)
{
    return encodeArray(habits);
}

QByteArray WireEnvelope::encode(const PomodoroState& state)
{
    return QJsonDocument(state.toJson()).toJson(QJsonDocument::Compact);
}

QByteArray WireEnvelope::tasksReply(const QList<WireTaskList>& lists)
{
    return dataReply(QJsonDocument::fromJson(encode(lists)).array());
}

QByteArray WireEnvelope::habitsReply(const QList<WireHabit>& habits)
{
    return dataReply(QJsonDocument::fromJson(encode(habits)).array());
}

QByteArray WireEnvelope::pomodoroReply(const std::optional<PomodoroState>& state)
{
    return dataReply(state ? QJsonValue(state->toJson()) : QJsonValue(QJsonValue::Null));
}

QByteArray WireEnvelope::okReply()
{
    return QByteArrayLiteral("{\"ok\":true}");
}
