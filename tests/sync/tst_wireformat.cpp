#include "PomodoroState.h"
#include "WireDate.h"
#include "WireEnvelope.h"

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
        // Out of range, bare or doubled signs, other notations, blanks, non-ASCII digits.
        for (const char* text : {"9223372036854775808", "-9223372036854775809",
                                 "99999999999999999999999", "-", "+-1", "", "25min", "2.5", "1e3",
                                 "0x10", " 25", "25 ", "25\n", "\u0662\u0665", "\uFF12\uFF15"})
            QTest::addRow("rejects '%s'", tag(text).constData())
                << QString::fromUtf8(text) << false << qint64(0);
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
        for (const char* text : {"false", "True", "TRUE", "1", "yes", " true", ""})
            QTest::addRow("'%s'", text) << QString::fromUtf8(text) << false;
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
        // Fractions, offsets, no zone, a space, a lower-case z, a newline, no such day or hour.
        for (const char* text :
             {"2024-03-05T14:07:09.250Z", "2024-03-05T15:07:09+01:00", "2024-03-05T14:07:09",
              "2024-03-05 14:07:09Z", "2024-03-05T14:07:09z", "2024-03-05T14:07:09Z\n",
              "2023-02-29T00:00:00Z", "2024-03-05T24:00:00Z", "2024-03-05", ""})
            QTest::addRow("rejects '%s'", tag(text).constData())
                << QString::fromUtf8(text) << QDateTime();
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
        QTest::addColumn<QByteArray>("body"); // single quotes for double
        QTest::addColumn<bool>("decodes");
        // A list holding one task of `fields`; a habit of `fields` and some others.
        const auto task = [](const char* fields) -> QByteArray {
            return "{'data':[{'name':'A','tasks':[{'header':'x'," + QByteArray(fields) + "}]}]}";
        };
        const auto habit = [](const char* fields) -> QByteArray {
            return "{'data':[{'icon':'1F4A7','name':'n','currentValue':2," + QByteArray(fields) +
                   "}]}";
        };
        // The row's name starts with the kind of body.
        const auto row = [](const char* name, const QByteArray& body, bool ok) {
            QTest::newRow(name) << QString::fromLatin1(name).section(u':', 0, 0) << body << ok;
        };
        row("tasks: minimal", task("'checked':false,'subtasks':[]"), true);
        row("tasks: null priority", task("'priority':null,'checked':true,'subtasks':['s']"), true);
        row("tasks: no subtasks", task("'checked':false"), false);
        row("tasks: numeric subtask", task("'checked':false,'subtasks':[1]"), false);
        row("tasks: checked as text", task("'checked':'false','subtasks':[]"), false);
        row("tasks: null highlight", "{'data':[{'name':'A','highlightedTask':null,'tasks':[]}]}",
            true);
        row("tasks: fractional highlight",
            "{'data':[{'name':'A','highlightedTask':1.5,'tasks':[]}]}", false);
        row("tasks: null name", "{'data':[{'name':null,'tasks':[]}]}", false);
        row("tasks: data null", "{'data':null}", false);
        row("tasks: bare array", "[]", false);
        row("tasks: not json", "<html>", false);
        row("habits: one",
            habit("'color':'#3B82F6','maxValue':8,'firstTrackerDate':'2024-03-05T14:07:09Z'"),
            true);
        row("habits: count as text", habit("'color':'#000','maxValue':'8','firstTrackerDate':''"),
            false);
        row("habits: date as number", habit("'color':'#000','maxValue':8,'firstTrackerDate':0"),
            false);
        row("habits: no color", habit("'maxValue':8,'firstTrackerDate':''"), false);
        row("pomodoro: none", "{}", true);
        row("pomodoro: null", "{'data':null}", true);
        row("pomodoro: strings", "{'data':{'pomodoroDuration':'50','extra':'kept'}}", true);
        row("pomodoro: number value", "{'data':{'pomodoroDuration':50}}", false);
        row("pomodoro: array", "{'data':['50']}", false);
        row("ok: true", "{'ok':true}", true);
        row("ok: false still decodes", "{'ok':false}", true);
        row("ok: text", "{'ok':'yes'}", false);
        row("ok: empty body", "", false);
    }

    void envelopes()
    {
        QFETCH(QString, kind);
        QFETCH(QByteArray, body);
        QFETCH(bool, decodes);
        QString error;
        QCOMPARE(decode(kind, body.replace('\'', '"'), &error), decodes);
        QCOMPARE(error.isEmpty(), decodes);
    }

    // Spliced and truncated bodies: every decoder either decodes or explains why.
    void mutatedBodiesNeverCrashDecoders()
    {
        QRandomGenerator random(20240305);
        const QList<QByteArray> seeds{
            j("{'data':[{'name':'A','highlightedTask':0,'tasks':[{'header':'x','priority':2,'"
              "checked':false,'subtasks':['s']}]}]}"),
            j("{'data':[{'icon':'1F4A7','name':'Water','color':'#3B82F6','maxValue':8,'"
              "currentValue':2,'firstTrackerDate':'2024-03-05T14:07:09Z'}]}"),
            j("{'data':{'pomodoroDuration':'25','autoStart':'true','firstPomodoroCountDate':'2024-"
              "03-05T14:07:09Z'}}"),
            j("{'ok':true}"),
        };
        const QList<QByteArray> tokens =
            QByteArray(
                R"(null true 1e308 -0 "" [] {} "\u0000" 18446744073709551616 "\ud800" , : ] })")
                .split(' ');
        const QStringList kinds{"tasks", "habits", "pomodoro", "ok"};
        int decoded = 0;
        for (int round = 0; round < 6000; ++round) {
            QByteArray body = seeds.at(round % seeds.size());
            const auto at = random.bounded(body.size());
            if (random.bounded(2) == 0) // a token over a value, or a syntax error
                body.replace(at, random.bounded(1, 8), tokens.at(random.bounded(tokens.size())));
            else
                body.truncate(at);
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
    // A row name that shows the text, newlines included, on one line.
    static QByteArray tag(const char* text) { return QByteArray(text).replace('\n', "\\n"); }

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
};

QTEST_GUILESS_MAIN(TestWireFormat)
#include "tst_wireformat.moc"
