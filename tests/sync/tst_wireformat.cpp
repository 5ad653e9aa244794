#include "PomodoroState.h"
#include "WireDate.h"
#include "WireEnvelope.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QTest>
#include <QTimeZone>

class TestWireFormat final : public QObject
{
    Q_OBJECT

private slots:
    void strictIntegers_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<qint64>("value");
        QTest::newRow("plain") << "25" << true << qint64(25);
        QTest::newRow("plus") << "+7" << true << qint64(7);
        QTest::newRow("minus") << "-3" << true << qint64(-3);
        QTest::newRow("leading zeros") << "007" << true << qint64(7);
        QTest::newRow("max") << "9223372036854775807" << true << std::numeric_limits<qint64>::max();
        QTest::newRow("min") << "-9223372036854775808" << true
                             << std::numeric_limits<qint64>::min();
        QTest::newRow("above max") << "9223372036854775808" << false << qint64(0);
        QTest::newRow("below min") << "-9223372036854775809" << false << qint64(0);
        QTest::newRow("huge") << "99999999999999999999999" << false << qint64(0);
        QTest::newRow("digits then letters") << "25min" << false << qint64(0);
        QTest::newRow("leading blank") << " 25" << false << qint64(0);
        QTest::newRow("trailing blank") << "25 " << false << qint64(0);
        QTest::newRow("trailing newline") << "25\n" << false << qint64(0);
        QTest::newRow("empty") << "" << false << qint64(0);
        QTest::newRow("sign only") << "-" << false << qint64(0);
        QTest::newRow("two signs") << "+-1" << false << qint64(0);
        QTest::newRow("decimal") << "2.5" << false << qint64(0);
        QTest::newRow("exponent") << "1e3" << false << qint64(0);
        QTest::newRow("hex") << "0x10" << false << qint64(0);
        QTest::newRow("arabic-indic digits")
            << QStringLiteral("\u0662\u0665") << false << qint64(0);
        QTest::newRow("fullwidth digits") << QStringLiteral("\uFF12\uFF15") << false << qint64(0);
    }

    void strictIntegers()
    {
        QFETCH(QString, text);
        QFETCH(bool, valid);
        QFETCH(qint64, value);
        QCOMPARE(PomodoroState::parseInteger(text).has_value(), valid);
        PomodoroState state;
        state.setValue(QStringLiteral("pomodoroDuration"), text);
        QCOMPARE(state.integer(QStringLiteral("pomodoroDuration"), 25), valid ? value : 25);
    }

    void strictBooleans_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("value");
        QTest::newRow("true") << "true" << true;
        QTest::newRow("false") << "false" << false;
        QTest::newRow("capital") << "True" << false;
        QTest::newRow("upper") << "TRUE" << false;
        QTest::newRow("one") << "1" << false;
        QTest::newRow("yes") << "yes" << false;
        QTest::newRow("padded") << " true" << false;
        QTest::newRow("empty") << "" << false;
    }

    void strictBooleans()
    {
        QFETCH(QString, text);
        QFETCH(bool, value);
        PomodoroState state;
        state.setValue(QStringLiteral("autoStart"), text);
        QCOMPARE(state.boolean(QStringLiteral("autoStart")), value);
    }

    void dates_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QDateTime>("expected"); // invalid: rejected
        const QDateTime when(QDate(2024, 3, 5), QTime(14, 7, 9), Qt::UTC);
        QTest::newRow("wire form") << "2024-03-05T14:07:09Z" << when;
        QTest::newRow("leap day") << "2024-02-29T00:00:00Z"
                                  << QDateTime(QDate(2024, 2, 29), QTime(0, 0), Qt::UTC);
        QTest::newRow("fractions") << "2024-03-05T14:07:09.250Z" << QDateTime();
        QTest::newRow("offset") << "2024-03-05T15:07:09+01:00" << QDateTime();
        QTest::newRow("no zone") << "2024-03-05T14:07:09" << QDateTime();
        QTest::newRow("space") << "2024-03-05 14:07:09Z" << QDateTime();
        QTest::newRow("lower z") << "2024-03-05T14:07:09z" << QDateTime();
        QTest::newRow("trailing newline") << "2024-03-05T14:07:09Z\n" << QDateTime();
        QTest::newRow("no such day") << "2023-02-29T00:00:00Z" << QDateTime();
        QTest::newRow("hour 24") << "2024-03-05T24:00:00Z" << QDateTime();
        QTest::newRow("date only") << "2024-03-05" << QDateTime();
        QTest::newRow("empty") << "" << QDateTime();
    }

    void dates()
    {
        QFETCH(QString, text);
        QFETCH(QDateTime, expected);
        const auto parsed = WireDate::parse(text);
        QCOMPARE(parsed.has_value(), expected.isValid());
        if (parsed) {
            QCOMPARE(*parsed, expected);
            QCOMPARE(WireDate::format(*parsed), text);
        }
    }

    void formatsDatesInUtcWithoutFractions()
    {
        const QDateTime local = QDateTime(QDate(2024, 3, 5), QTime(23, 30, 15, 987),
                                          QTimeZone(QByteArrayLiteral("America/New_York")));
        QCOMPARE(WireDate::format(local), QStringLiteral("2024-03-06T04:30:15Z"));
    }

    void envelopes_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<bool>("decodes");
        const QByteArray task = j("{'header':'x','checked':false,'subtasks':[]}");
        QTest::newRow("tasks: minimal")
            << "tasks" << (j("{'data':[{'name':'A','tasks':[") + task + "]}]}") << true;
        QTest::newRow("tasks: null highlight")
            << "tasks" << (j("{'data':[{'name':'A','highlightedTask':null,'tasks':[]}]}")) << true;
        QTest::newRow("tasks: null priority")
            << "tasks"
            << QByteArray(j("{'data':[{'name':'A','tasks':[{'header':'x','priority':null,'checked':"
                            "true,'subtasks':['s']}]}]}"))
            << true;
        QTest::newRow("tasks: no subtasks")
            << "tasks" << (j("{'data':[{'name':'A','tasks':[{'header':'x','checked':false}]}]}"))
            << false;
        QTest::newRow("tasks: numeric subtask")
            << "tasks"
            << QByteArray(j("{'data':[{'name':'A','tasks':[{'header':'x','checked':false,'subtasks'"
                            ":[1]}]}]}"))
            << false;
        QTest::newRow("tasks: checked as text")
            << "tasks"
            << QByteArray(j("{'data':[{'name':'A','tasks':[{'header':'x','checked':'false','"
                            "subtasks':[]}]}]}"))
            << false;
        QTest::newRow("tasks: fractional highlight")
            << "tasks" << (j("{'data':[{'name':'A','highlightedTask':1.5,'tasks':[]}]}")) << false;
        QTest::newRow("tasks: null name")
            << "tasks" << (j("{'data':[{'name':null,'tasks':[]}]}")) << false;
        QTest::newRow("tasks: data null") << "tasks" << (j("{'data':null}")) << false;
        QTest::newRow("tasks: bare array") << "tasks" << QByteArray("[]") << false;
        QTest::newRow("tasks: not json") << "tasks" << QByteArray("<html>") << false;
        const QByteArray habit = j("{'icon':'1F4A7','name':'Water','color':'#3B82F6','maxValue':8,'"
                                   "currentValue':2,'firstTrackerDate':'2024-03-05T14:07:09Z'}");
        QTest::newRow("habits: one") << "habits" << ("{\"data\":[" + habit + "]}") << true;
        QTest::newRow("habits: count as text")
            << "habits"
            << QByteArray(j("{'data':[{'icon':'x','name':'n','color':'#000000','maxValue':'8','"
                            "currentValue':2,'firstTrackerDate':''}]}"))
            << false;
        QTest::newRow("habits: date as number")
            << "habits"
            << QByteArray(j("{'data':[{'icon':'x','name':'n','color':'#000000','maxValue':8,'"
                            "currentValue':2,'firstTrackerDate':0}]}"))
            << false;
        QTest::newRow("habits: no color")
            << "habits"
            << QByteArray(j("{'data':[{'icon':'x','name':'n','maxValue':8,'currentValue':2,'"
                            "firstTrackerDate':''}]}"))
            << false;
        QTest::newRow("pomodoro: none") << "pomodoro" << QByteArray("{}") << true;
        QTest::newRow("pomodoro: null") << "pomodoro" << (j("{'data':null}")) << true;
        QTest::newRow("pomodoro: strings")
            << "pomodoro" << (j("{'data':{'pomodoroDuration':'50','extra':'kept'}}")) << true;
        QTest::newRow("pomodoro: number value")
            << "pomodoro" << (j("{'data':{'pomodoroDuration':50}}")) << false;
        QTest::newRow("pomodoro: array") << "pomodoro" << (j("{'data':['50']}")) << false;
        QTest::newRow("ok: true") << "ok" << (j("{'ok':true}")) << true;
        QTest::newRow("ok: false still decodes") << "ok" << (j("{'ok':false}")) << true;
        QTest::newRow("ok: text") << "ok" << (j("{'ok':'yes'}")) << false;
        QTest::newRow("ok: empty body") << "ok" << QByteArray() << false;
    }

    void envelopes()
    {
        QFETCH(QString, kind);
        QFETCH(QByteArray, body);
        QFETCH(bool, decodes);
        QString error;
        QCOMPARE(decode(kind, body, &error), decodes);
        QCOMPARE(error.isEmpty(), decodes);
    }

    // Random and mutated bodies: every decoder either decodes or explains why.
    void fuzzedBodiesNeverCrashDecoders()
    {
        QRandomGenerator random(20240305);
        const QList<QByteArray> seeds{
            j("{'data':[{'name':'A','highlightedTask':0,'tasks':[{'header':'x','priority':2,'"
              "checked':false,'subtasks':[]}]}]}"),
            j("{'data':[{'icon':'1F4A7','name':'Water','color':'#3B82F6','maxValue':8,'"
              "currentValue':2,'firstTrackerDate':'2024-03-05T14:07:09Z'}]}"),
            j("{'data':{'pomodoroDuration':'25','autoStart':'true','firstPomodoroCountDate':'2024-"
              "03-05T14:07:09Z'}}"),
            j("{'ok':true}"),
        };
        const QStringList kinds{QStringLiteral("tasks"), QStringLiteral("habits"),
                                QStringLiteral("pomodoro"), QStringLiteral("ok")};
        const QList<QByteArray> tokens{"null",
                                       "true",
                                       "1e308",
                                       "-0",
                                       "\"\"",
                                       "[]",
                                       "{}",
                                       "\"\\u0000\"",
                                       "18446744073709551616",
                                       "\"\\ud800\"",
                                       ",",
                                       ":",
                                       "]",
                                       "}"};
        int decoded = 0;
        for (int round = 0; round < 6000; ++round) {
            QByteArray body = seeds.at(round % seeds.size());
            switch (random.bounded(4)) {
            case 0: // flip bytes
                for (int n = random.bounded(1, 4); n > 0; --n)
                    body[random.bounded(body.size())] = char(random.bounded(256));
                break;
            case 1: // truncate
                body.truncate(random.bounded(body.size()));
                break;
            case 2: // splice a token over a value
                body.replace(random.bounded(body.size()), random.bounded(1, 8),
                             tokens.at(random.bounded(tokens.size())));
                break;
            default: // a random document of the right outline
                body = QJsonDocument(randomObject(random, 0)).toJson(QJsonDocument::Compact);
            }
            for (const QString& kind : kinds) {
                QString error;
                if (decode(kind, body, &error))
                    ++decoded;
                else
                    QVERIFY2(!error.isEmpty(), body.constData());
            }
        }
        QVERIFY(decoded > 0); // the mutations left some bodies valid
    }

private:
    // JSON written with single quotes, to keep the tables readable.
    static QByteArray j(const char* text)
    {
        QByteArray json(text);
        json.replace('\'', '"');
        return json;
    }

    static bool decode(const QString& kind, const QByteArray& body, QString* error)
    {
        if (kind == u"tasks")
            return WireEnvelope::decodeTasks(body, error).has_value();
        if (kind == u"habits")
            return WireEnvelope::decodeHabits(body, error).has_value();
        if (kind == u"pomodoro") {
            std::optional<PomodoroState> state;
            return WireEnvelope::decodePomodoro(body, &state, error);
        }
        return WireEnvelope::decodeOk(body, error);
    }

    static QJsonValue randomValue(QRandomGenerator& random, int depth)
    {
        switch (random.bounded(depth > 3 ? 5 : 7)) {
        case 0:
            return QJsonValue::Null;
        case 1:
            return random.bounded(2) == 0;
        case 2:
            return double(random.bounded(-5, 5)) / (random.bounded(2) ? 1 : 2);
        case 3:
            return QStringLiteral("2024-03-05T14:07:09Z");
        case 4:
            return QString::number(random.bounded(100));
        case 5:
            return randomObject(random, depth + 1);
        default: {
            QJsonArray array;
            for (int n = random.bounded(3); n > 0; --n)
                array.append(randomValue(random, depth + 1));
            return array;
        }
        }
    }

    static QJsonObject randomObject(QRandomGenerator& random, int depth)
    {
        static const QStringList keys{"data",
                                      "ok",
                                      "name",
                                      "tasks",
                                      "highlightedTask",
                                      "header",
                                      "priority",
                                      "checked",
                                      "subtasks",
                                      "icon",
                                      "color",
                                      "maxValue",
                                      "currentValue",
                                      "firstTrackerDate",
                                      "pomodoroDuration",
                                      "autoStart"};
        QJsonObject o;
        for (int n = random.bounded(1, 6); n > 0; --n)
            o.insert(keys.at(random.bounded(keys.size())), randomValue(random, depth + 1));
        return o;
    }
};

QTEST_GUILESS_MAIN(TestWireFormat)
#include "tst_wireformat.moc"
