#include "PomodoroState.h"
#include "WireDate.h"
#include "WireEnvelope.h"

#include <QRandomGenerator>
#include <QTest>
#include <QTimeZone>

using namespace Qt::StringLiterals;

class TestWireFormat final : public QObject
{
    Q_OBJECT

    // JSON written with single quotes, to keep the tables readable.
    static QByteArray j(QByteArray json) { return json.replace('\'', '"'); }

    static bool decode(const char* kind, const QByteArray& body, QString* error)
    {
        std::optional<PomodoroState> state;
        if (qstrcmp(kind, "tasks") == 0)
            return WireEnvelope::decodeTasks(body, error).has_value();
        if (qstrcmp(kind, "habits") == 0)
            return WireEnvelope::decodeHabits(body, error).has_value();
        if (qstrcmp(kind, "pomodoro") == 0)
            return WireEnvelope::decodePomodoro(body, &state, error);
        return WireEnvelope::decodeOk(body, error);
    }

private slots:
    // The timer's values travel as text and are read strictly.
    void timerValues()
    {
        PomodoroState state;
        const auto integer = [&state](const char* text) {
            state.setValue(u"pomodoroDuration"_s, QString::fromUtf8(text));
            return state.integer(u"pomodoroDuration"_s, -99);
        };
        const std::pair<const char*, qint64> valid[] = {
            {"25", 25},
            {"+7", 7},
            {"-3", -3},
            {"007", 7},
            {"9223372036854775807", std::numeric_limits<qint64>::max()},
            {"-9223372036854775808", std::numeric_limits<qint64>::min()}};
        for (const auto& [text, value] : valid)
            QCOMPARE(integer(text), value);
        // Out of range, bare or doubled signs, other notations, blanks, non-ASCII digits.
        for (const char* text : {"9223372036854775808", "-9223372036854775809",
                                 "99999999999999999999999", "-", "+-1", "", "25min", "2.5", "1e3",
                                 "0x10", " 25", "25 ", "25\n", "\u0662\u0665", "\uFF12\uFF15"})
            QVERIFY2(integer(text) == -99, text);
        for (const char* text : {"true", "false", "True", "TRUE", "1", "yes", " true", ""}) {
            state.setValue(u"autoStart"_s, QString::fromUtf8(text));
            QVERIFY2(state.boolean(u"autoStart"_s) == (qstrcmp(text, "true") == 0), text);
        }
    }

    void dates()
    {
        const std::pair<QString, QDateTime> valid[] = {
            {u"2024-03-05T14:07:09Z"_s, QDateTime(QDate(2024, 3, 5), QTime(14, 7, 9), Qt::UTC)},
            {u"2024-02-29T00:00:00Z"_s, QDateTime(QDate(2024, 2, 29), QTime(0, 0), Qt::UTC)}};
        for (const auto& [text, when] : valid) {
            QCOMPARE(WireDate::parse(text).value_or(QDateTime()), when);
            QCOMPARE(WireDate::format(when), text);
        }
        // Sent in UTC and whole seconds, whatever the zone.
        QCOMPARE(WireDate::format(QDateTime(QDate(2024, 3, 5), QTime(23, 30, 15, 987),
                                            QTimeZone("America/New_York"))),
                 u"2024-03-06T04:30:15Z"_s);
        // Fractions, offsets, no zone, a space, a lower-case z, a newline, no such day or hour.
        for (const char* text :
             {"2024-03-05T14:07:09.250Z", "2024-03-05T15:07:09+01:00", "2024-03-05T14:07:09",
              "2024-03-05 14:07:09Z", "2024-03-05T14:07:09z", "2024-03-05T14:07:09Z\n",
              "2023-02-29T00:00:00Z", "2024-03-05T24:00:00Z", "2024-03-05", ""})
            QVERIFY2(!WireDate::parse(QString::fromUtf8(text)), text);
    }

    // Each body either decodes or says why not, and so does every mangled copy of a valid one.
    void envelopes()
    {
        const auto task = [](const char* fields) -> QByteArray {
            return "{'data':[{'name':'A','tasks':[{'header':'x'," + QByteArray(fields) + "}]}]}";
        };
        const auto habit = [](const char* fields) -> QByteArray {
            return "{'data':[{'icon':'1F4A7','name':'n','currentValue':2," + QByteArray(fields) +
                   "}]}";
        };
        const std::tuple<const char*, QByteArray, bool> cases[] = {
            {"tasks", task("'checked':false,'subtasks':[]"), true},
            {"tasks", task("'priority':null,'checked':true,'subtasks':['s']"), true},
            {"tasks", task("'checked':false"), false},
            {"tasks", task("'checked':false,'subtasks':[1]"), false},
            {"tasks", task("'checked':'false','subtasks':[]"), false},
            {"tasks", "{'data':[{'name':'A','highlightedTask':0,'tasks':[]}]}", true},
            {"tasks", "{'data':[{'name':'A','highlightedTask':null,'tasks':[]}]}", true},
            {"tasks", "{'data':[{'name':'A','highlightedTask':1.5,'tasks':[]}]}", false},
            {"tasks", "{'data':[{'name':null,'tasks':[]}]}", false},
            {"tasks", "{'data':null}", false},
            {"tasks", "[]", false},
            {"tasks", "<html>", false},
            {"habits", habit("'color':'#3B82F6','maxValue':8,'firstTrackerDate':'x'"), true},
            {"habits", habit("'color':'#000','maxValue':'8','firstTrackerDate':''"), false},
            {"habits", habit("'color':'#000','maxValue':8,'firstTrackerDate':0"), false},
            {"habits", habit("'maxValue':8,'firstTrackerDate':''"), false},
            {"pomodoro", "{}", true},
            {"pomodoro", "{'data':null}", true},
            {"pomodoro", "{'data':{'pomodoroDuration':'50','extra':'kept'}}", true},
            {"pomodoro", "{'data':{'pomodoroDuration':50}}", false},
            {"pomodoro", "{'data':['50']}", false},
            {"ok", "{'ok':true}", true},
            {"ok", "{'ok':false}", true},
            {"ok", "{'ok':'yes'}", false},
            {"ok", "", false}};
        QRandomGenerator random(20240305);
        const QList<QByteArray> tokens =
            QByteArray(
                R"(null true 1e308 -0 "" [] {} "\u0000" 18446744073709551616 "\ud800" , : ] })")
                .split(' ');
        for (const auto& [kind, body, decodes] : cases) {
            QString error;
            QVERIFY2(decode(kind, j(body), &error) == decodes, body.constData());
            QVERIFY2(error.isEmpty() == decodes, body.constData());
            for (int round = 0; decodes && round < 600; ++round) {
                QByteArray mangled = j(body);
                const auto at = random.bounded(mangled.size());
                if (random.bounded(2) == 0) // a token over a value, or a syntax error
                    mangled.replace(at, random.bounded(1, 8),
                                    tokens[random.bounded(tokens.size())]);
                else
                    mangled.truncate(at);
                for (const char* any : {"tasks", "habits", "pomodoro", "ok"}) {
                    error.clear();
                    QVERIFY2(decode(any, mangled, &error) || !error.isEmpty(), mangled.constData());
                }
            }
        }
    }
};

QTEST_GUILESS_MAIN(TestWireFormat)
#include "tst_wireformat.moc"
