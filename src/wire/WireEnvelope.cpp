#include "WireEnvelope.h"

#include "WireReader.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>

namespace {
std::optional<QJsonDocument> parsed(const QByteArray& body, QString* error)
{
    QJsonParseError parse;
    QJsonDocument doc = QJsonDocument::fromJson(body, &parse);
    if (parse.error != QJsonParseError::NoError) {
        *error = u"invalid JSON at offset " + QString::number(parse.offset) + u": " +
                 parse.errorString();
        return std::nullopt;
    }
    return doc;
}

std::optional<QJsonObject> topObject(const QByteArray& body, QString* error)
{
    const auto doc = parsed(body, error);
    if (!doc)
        return std::nullopt;
    if (!doc->isObject()) {
        *error = QStringLiteral("expected an object at top level");
        return std::nullopt;
    }
    return doc->object();
}

// Each element of `array` read as a T, its path under `path`.
template <typename T>
std::optional<QList<T>> decodeItems(const QJsonArray& array, const QString& path, QString* error)
{
    QList<T> out;
    out.reserve(array.size());
    for (qsizetype i = 0; i < array.size(); ++i) {
        auto item = T::fromJson(array.at(i), path + u'[' + QString::number(i) + u']', error);
        if (!item)
            return std::nullopt;
        out.append(std::move(*item));
    }
    return out;
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
    return decodeItems<T>(data, QStringLiteral("data"), error);
}

template <typename T> std::optional<QList<T>> decodeBody(const QByteArray& body, QString* error)
{
    const auto doc = parsed(body, error);
    if (!doc)
        return std::nullopt;
    if (!doc->isArray()) {
        *error = QStringLiteral("expected an array at top level");
        return std::nullopt;
    }
    return decodeItems<T>(doc->array(), QString(), error);
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

std::optional<QList<WireTaskList>> WireEnvelope::decodeTasksBody(const QByteArray& body,
                                                                 QString* error)
{
    return decodeBody<WireTaskList>(body, error);
}

std::optional<QList<WireHabit>> WireEnvelope::decodeHabitsBody(const QByteArray& body,
                                                               QString* error)
{
    return decodeBody<WireHabit>(body, error);
}

std::optional<PomodoroState> WireEnvelope::decodePomodoroBody(const QByteArray& body,
                                                              QString* error)
{
    const auto top = topObject(body, error);
    if (!top)
        return std::nullopt;
    return PomodoroState::fromJson(*top, QString(), error);
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
