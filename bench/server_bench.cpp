// Throughput and latency of tidewell-server: the real binary on SQLite, then on
// PostgreSQL, driven by 32 keep-alive connections for 100 users during 10 s, 80 %
// GETs and 20 % PUTs of realistic bodies (20 habits; 5 lists of 30 tasks).
// Prints, per engine: get_rps, put_rps, p50_ms, p99_ms and the server's rss_mb.
// Goals on a 2-core machine (SQLite): >= 5,000 requests/s, p99 <= 20 ms, RSS <= 25 MB.
//
// Usage: server_bench [seconds]. PostgreSQL comes from TIDEWELL_TEST_POSTGRES, or
// a throwaway cluster started with scripts/postgres-for-tests.

#include "PomodoroState.h"
#include "WireEnvelope.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <memory>

namespace {
constexpr int connections = 32;
constexpr int users = 100;

QString serverBinary()
{
    return QCoreApplication::applicationDirPath() + QStringLiteral("/../server/tidewell-server");
}

QByteArray habitsBody(int seed)
{
    QList<WireHabit> habits;
    for (int i = 0; i < 20; ++i)
        habits.append({QStringLiteral("1F4A7"), QStringLiteral("Habit number %1").arg(i),
                       QStringLiteral("#3B82F6"), 8, (i + seed) % 9,
                       QStringLiteral("2026-03-01T07:00:00Z")});
    return WireEnvelope::encode(habits);
}

QByteArray tasksBody(int seed)
{
    QList<WireTaskList> lists;
    for (int l = 0; l < 5; ++l) {
        WireTaskList list{QStringLiteral("List %1").arg(l), 3, {}};
        for (int t = 0; t < 30; ++t)
            list.tasks.append({QStringLiteral("Task %1 of list %2, with some words").arg(t).arg(l),
                               std::nullopt,
                               (t + seed) % 3 == 0,
                               {}});
        lists.append(list);
    }
    return WireEnvelope::encode(lists);
}

QByteArray pomodoroBody(int seed)
{
    PomodoroState s;
    for (const QString& key : PomodoroState::keys())
        s.setValue(key, QStringLiteral("0"));
    s.setInteger(QStringLiteral("pomodoroTotalCount"), seed);
    s.setValue(QStringLiteral("firstPomodoroCountDate"), QStringLiteral("2026-03-01T07:00:00Z"));
    return WireEnvelope::encode(s);
}

QByteArray request(const QByteArray& method, const QByteArray& resource, const QByteArray& token,
                   const QByteArray& body = {})
{
    QByteArray r = method + " /api/v1/" + resource + " HTTP/1.1\r\nHost: bench\r\n" +
                   "Authorization: Bearer " + token + "\r\n";
    if (!body.isEmpty())
        r +=
            "Content-Type: application/json\r\nContent-Length: " + QByteArray::number(body.size()) +
            "\r\n";
    return r + "\r\n" + body;
}

int freePort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost);
    return probe.serverPort();
}

bool run(const QString& program, const QStringList& args, QByteArray* out = nullptr,
         const QByteArray& input = {})
{
    QProcess p;
    p.start(program, args);
    p.write(input);
    p.closeWriteChannel();
    if (!p.waitForFinished(120'000) || p.exitCode() != 0) {
        std::fprintf(stderr, "%s %s failed: %s\n", qPrintable(program), qPrintable(args.join(u' ')),
                     p.readAllStandardError().constData());
        return false;
    }
    if (out)
        *out = p.readAllStandardOutput().trimmed();
    return true;
}

// One keep-alive connection sending one request after the other.
class Client : public QObject
{
public:
    Client(quint16 port, const QList<QByteArray>* gets, const QList<QByteArray>* puts,
           QList<double>* latencies, qint64* getCount, qint64* putCount, qint64* errors)
        : m_gets(gets)
        , m_puts(puts)
        , m_latencies(latencies)
        , m_getCount(getCount)
        , m_putCount(putCount)
        , m_errors(errors)
    {
        connect(&m_socket, &QTcpSocket::connected, this, &Client::next);
        connect(&m_socket, &QTcpSocket::readyRead, this, &Client::read);
        m_socket.connectToHost(QHostAddress::LocalHost, port);
    }
    void stop() { m_stopped = true; }

private:
    void next()
    {
        if (m_stopped)
            return;
        QRandomGenerator* random = QRandomGenerator::global();
        m_isPut = random->bounded(100) < 20;
        const QList<QByteArray>& pool = m_isPut ? *m_puts : *m_gets;
        m_socket.write(pool.at(random->bounded(int(pool.size()))));
        m_timer.start();
    }
    void read()
    {
        m_buffer += m_socket.readAll();
        for (;;) {
            const qsizetype end = m_buffer.indexOf("\r\n\r\n");
            if (end < 0)
                return;
            const qsizetype at = m_buffer.indexOf("Content-Length: ");
            const qsizetype eol = m_buffer.indexOf("\r\n", at);
            const qint64 length = m_buffer.mid(at + 16, eol - at - 16).toLongLong();
            if (m_buffer.size() < end + 4 + length)
                return;
            if (!m_buffer.startsWith("HTTP/1.1 200"))
                ++*m_errors;
            m_buffer.remove(0, end + 4 + length);
            m_latencies->append(double(m_timer.nsecsElapsed()) / 1e6);
            ++*(m_isPut ? m_putCount : m_getCount);
            next();
        }
    }

    QTcpSocket m_socket;
    QByteArray m_buffer;
    QElapsedTimer m_timer;
    bool m_isPut = false;
    bool m_stopped = false;
    const QList<QByteArray>* m_gets;
    const QList<QByteArray>* m_puts;
    QList<double>* m_latencies;
    qint64* m_getCount;
    qint64* m_putCount;
    qint64* m_errors;
};

double residentMb(qint64 pid)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toDouble() / 1024.0;
    }
    return -1;
}

bool bench(const QString& name, const QString& database, int seconds)
{
    const QString server = serverBinary();
    QList<QByteArray> tokens;
    std::fprintf(stderr, "%s: adding %d users\n", qPrintable(name), users);
    for (int u = 0; u < users; ++u) {
        const QString user = QStringLiteral("user%1").arg(u);
        QByteArray token;
        if (!run(server,
                 {QStringLiteral("user"), QStringLiteral("add"), user, QStringLiteral("--database"),
                  database},
                 nullptr, "bench password\n") ||
            !run(server,
                 {QStringLiteral("token"), QStringLiteral("create"), user,
                  QStringLiteral("--database"), database},
                 &token))
            return false;
        tokens.append(token);
    }
    QList<QByteArray> gets, puts;
    for (int u = 0; u < users; ++u) {
        for (const char* resource : {"habits", "tasks", "pomodoro"})
            gets.append(request("GET", resource, tokens[u]));
        puts.append(request("PUT", "habits", tokens[u], habitsBody(u)));
        puts.append(request("PUT", "tasks", tokens[u], tasksBody(u)));
        puts.append(request("PUT", "pomodoro", tokens[u], pomodoroBody(u)));
    }

    const int port = freePort();
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(server, {QStringLiteral("serve"), QStringLiteral("--listen"),
                           QStringLiteral("127.0.0.1:%1").arg(port), QStringLiteral("--database"),
                           database});
    if (!process.waitForStarted())
        return false;
    QTcpSocket probe;
    for (int i = 0; i < 200; ++i) {
        probe.connectToHost(QHostAddress::LocalHost, quint16(port));
        if (probe.waitForConnected(50))
            break;
        probe.abort();
        QThread::msleep(50);
    }
    // Every user's resources exist before the clock starts.
    {
        QList<double> ignored;
        qint64 g = 0, p = 0, e = 0;
        QList<QByteArray> all = puts;
        Client seed(quint16(port), &all, &all, &ignored, &g, &p, &e);
        QElapsedTimer t;
        t.start();
        while (p + g < 3 * users && t.elapsed() < 30'000)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
        seed.stop();
    }

    QList<double> latencies;
    latencies.reserve(200'000);
    qint64 getCount = 0, putCount = 0, errors = 0;
    std::vector<std::unique_ptr<Client>> clients;
    for (int c = 0; c < connections; ++c)
        clients.push_back(std::make_unique<Client>(quint16(port), &gets, &puts, &latencies,
                                                   &getCount, &putCount, &errors));
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < seconds * 1000)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    const double elapsed = double(clock.elapsed()) / 1000.0;
    for (auto& client : clients)
        client->stop();
    const double rss = residentMb(process.processId());
    clients.clear();
    process.terminate();
    process.waitForFinished(15'000);

    std::sort(latencies.begin(), latencies.end());
    const auto percentile = [&latencies](double p) {
        return latencies.isEmpty() ? 0.0
                                   : latencies.at(qsizetype(p * double(latencies.size() - 1)));
    };
    std::printf("%s get_rps %.0f\n", qPrintable(name), double(getCount) / elapsed);
    std::printf("%s put_rps %.0f\n", qPrintable(name), double(putCount) / elapsed);
    std::printf("%s total_rps %.0f\n", qPrintable(name), double(getCount + putCount) / elapsed);
    std::printf("%s p50_ms %.2f\n", qPrintable(name), percentile(0.50));
    std::printf("%s p99_ms %.2f\n", qPrintable(name), percentile(0.99));
    std::printf("%s rss_mb %.1f\n", qPrintable(name), rss);
    if (errors)
        std::printf("%s errors %lld\n", qPrintable(name), static_cast<long long>(errors));
    std::fflush(stdout);
    return true;
}
} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const int seconds = argc > 1 ? std::max(1, QByteArray(argv[1]).toInt()) : 10;
    QTemporaryDir dir;
    if (!bench(QStringLiteral("sqlite"), u"sqlite:" + dir.filePath(QStringLiteral("bench.sqlite")),
               seconds))
        return 1;

    QString cluster = qEnvironmentVariable("TIDEWELL_TEST_POSTGRES");
    const QString script = QStringLiteral(TIDEWELL_SOURCE_DIR "/scripts/postgres-for-tests");
    QTemporaryDir pgDir(QDir::tempPath() + QStringLiteral("/tidewell-bench-pg.XXXXXX"));
    pgDir.setAutoRemove(false); // the script removes it
    QByteArray started;
    if (cluster.isEmpty()) {
        if (!run(script, {QStringLiteral("start"), pgDir.path()}, &started)) {
            std::fprintf(stderr, "PostgreSQL did not start; no PostgreSQL figures\n");
            return 1;
        }
        cluster = QString::fromUtf8(started);
    }
    QByteArray ignored;
    run(QStringLiteral("psql"),
        {QStringLiteral("-d"), cluster, QStringLiteral("-qc"),
         QStringLiteral("DROP DATABASE IF EXISTS tws_bench WITH (FORCE)")},
        &ignored);
    run(QStringLiteral("psql"),
        {QStringLiteral("-d"), cluster, QStringLiteral("-qc"),
         QStringLiteral("CREATE DATABASE tws_bench")},
        &ignored);
    QString database = cluster;
    database.replace(QStringLiteral("/postgres?"), QStringLiteral("/tws_bench?"));
    const bool ok = bench(QStringLiteral("postgresql"), database, seconds);
    if (!started.isEmpty())
        run(script, {QStringLiteral("stop"), pgDir.path()});
    return ok ? 0 : 1;
}
