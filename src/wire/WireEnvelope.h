#pragma once

#include "PomodoroState.h"
#include "WireHabit.h"
#include "WireTaskList.h"

#include <QByteArray>
#include <QList>

#include <optional>

// Reply envelopes ({"data": …}, {"ok": …}) and request bodies. Each decoder
// returns absent (or false) with `error` set when the body does not match.
class WireEnvelope
{
public:
    static std::optional<QList<WireTaskList>> decodeTasks(const QByteArray& body, QString* error);
    static std::optional<QList<WireHabit>> decodeHabits(const QByteArray& body, QString* error);
    // "data" absent or null is a valid reply: the server holds no timer state.
    static bool decodePomodoro(const QByteArray& body, std::optional<PomodoroState>* state,
                               QString* error);
    static bool decodeOk(const QByteArray& body, QString* error);

    // PUT bodies as a server receives them: bare arrays, the bare dictionary.
    static std::optional<QList<WireTaskList>> decodeTasksBody(const QByteArray& body,
                                                              QString* error);
    static std::optional<QList<WireHabit>> decodeHabitsBody(const QByteArray& body, QString* error);
    static std::optional<PomodoroState> decodePomodoroBody(const QByteArray& body, QString* error);

    // PUT bodies: bare arrays or the bare dictionary, compact.
    static QByteArray encode(const QList<WireTaskList>& lists);
    static QByteArray encode(const QList<WireHabit>& habits);
    static QByteArray encode(const PomodoroState& state);

    // Reply bodies, as a server writes them.
    static QByteArray tasksReply(const QList<WireTaskList>& lists);
    static QByteArray habitsReply(const QList<WireHabit>& habits);
    static QByteArray pomodoroReply(const std::optional<PomodoroState>& state);
    static QByteArray okReply();
};
