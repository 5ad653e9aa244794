// Throughput, latency and fairness of tidewell-server: the real binary on SQLite,
// then on PostgreSQL, loaded by wrk (scripts in bench/server/) so that the figures
// are the server's and not a client's. 100 users with realistic bodies (20 habits;
// 5 lists of 30 tasks; a pomodoro state). Per engine, each run lasting [seconds]:
//   load_1m          the machine's load just before the runs
//   healthz_rps      GET /healthz, wrk -t1 -c16
//   get_rps          authorised GETs of the habits, a user per request, -t1 -c16
//   get_ratio        get_rps / healthz_rps
//   put_rps, p99_ms  PUTs of the 20 habits, -t1 -c16
//   mix_rps          80 % GETs, 20 % PUTs of all three resources, -t1 -c16
//   fairness_p99_ms  a client's GET p99 (-t1 -c4) while another trickles a 1 MiB
//                    PUT at 100 kB/s and a third signs in with a wrong password
//                    every 50 ms (unknown names, so that each try runs a hash)
//   signin_tries, signin_401, signin_429  those tries, and how many the server
//                    checked (401) or turned away unchecked (429)
//   rss_mb           the server's resident memory after all runs
//   errors           non-2xx answers and socket errors wrk counted in all runs
// healthz, get and put are the middle of three runs each; before each engine the
// bench waits (up to 90 s) for the machine's load to fall below 1, then warms up.
// Goals on a 2-core machine: get_ratio >= 0.5; put_rps >= 2,000 (SQLite), >= 1,500
// (PostgreSQL); p99_ms <= 20; fairness_p99_ms <= 20; rss_mb <= 30; no errors. A
// "goal" line per goal says met or missed. Other work on the machine lowers every
// figure: compare runs at a similar load_1m, ideally below 0.5.
//
// Usage: server_bench [seconds] (default 5). Needs wrk (scripts/install-deps).
// PostgreSQL comes from TIDEWELL_TEST_POSTGRES, or a throwaway cluster started
// with scripts/postgres-for-tests.

#include "PomodoroState.h"
#include "WireEnvelope.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {
constexpr int users = 100;
constexpr int loadConnections = 16;
constexpr int fairnessConnections = 4;
constexpr qint64 trickleBytes = 1024 * 1024;
constexpr int trickleChunk = 1000; // every 10 ms: 100 kB/s
constexpr int trickleEveryMs = 10;
constexpr int signInEveryMs = 50;
const QString luaDir = QStringLiteral(TIDEWELL_SOURCE_DIR "/bench/server/");

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

QByteArray request(const QByteArray& method, const QByteArray& path, const QByteArray& headers,
                   const QByteArray& body = {})
{
    QByteArray r = method + ' ' + path + " HTTP/1.1\r\nHost: bench\r\n" + headers;
    if (!body.isEmpty() || method == "PUT" || method == "POST")
        r += "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
    return r + "\r\n" + body;
}

QByteArray bearer(const QByteArray& token)
{
    return "Authorization: Bearer " + token + "\r\n";
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

// A blocking HTTP/1.1 client on a plain socket: enough for seeding, the trickle
// and the sign-ins, and cheap beside the server.
class Connection
{
public:
    struct Answer
    {
        int status = 0; // 0: the connection failed or closed
        QByteArray head;
        QByteArray body;
        QByteArray header(const QByteArray& name) const
        {
            for (const QByteArray& line : head.split('\n')) {
                const qsizetype colon = line.indexOf(':');
                if (colon > 0 && line.left(colon).trimmed().compare(name, Qt::CaseInsensitive) == 0)
                    return line.mid(colon + 1).trimmed();
            }
            return {};
        }
    };

    explicit Connection(int port)
        : m_fd(::socket(AF_INET, SOCK_STREAM, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(quint16(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            ::close(m_fd);
            m_fd = -1;
            return;
        }
        const int one = 1;
        ::setsockopt(m_fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        const timeval wait{10, 0};
        ::setsockopt(m_fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
    }
    ~Connection()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    bool ok() const { return m_fd >= 0; }

    bool send(const QByteArray& bytes)
    {
        for (qsizetype sent = 0; m_fd >= 0 && sent < bytes.size();) {
            const ssize_t n =
                ::send(m_fd, bytes.constData() + sent, size_t(bytes.size() - sent), MSG_NOSIGNAL);
            if (n <= 0)
                return false;
            sent += n;
        }
        return m_fd >= 0;
    }

    Answer read()
    {
        Answer answer;
        qsizetype end = -1;
        while ((end = m_buffer.indexOf("\r\n\r\n")) < 0) {
            if (!fill())
                return answer;
        }
        answer.head = m_buffer.left(end);
        const qint64 length = answer.header("Content-Length").toLongLong();
        while (m_buffer.size() < end + 4 + length) {
            if (!fill())
                return answer;
        }
        answer.body = m_buffer.mid(end + 4, length);
        m_buffer.remove(0, end + 4 + length);
        answer.status = answer.head.mid(9, 3).toInt();
        return answer;
    }

    Answer exchange(const QByteArray& bytes) { return send(bytes) ? read() : Answer{}; }

private:
    bool fill()
    {
        char chunk[16384];
        const ssize_t n = m_fd >= 0 ? ::recv(m_fd, chunk, sizeof chunk, 0) : -1;
        if (n <= 0)
            return false;
        m_buffer.append(chunk, n);
        return true;
    }

    int m_fd;
    QByteArray m_buffer;
};

int freePort()
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ::bind(fd, reinterpret_cast<sockaddr*>(&address), size);
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
    ::close(fd);
    return ntohs(address.sin_port);
}

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

double loadAverage()
{
    QFile file(QStringLiteral("/proc/loadavg"));
    return file.open(QIODevice::ReadOnly) ? file.readAll().split(' ').value(0).toDouble() : -1;
}

// Waits, up to 90 s, until the machine is quiet (the 1-minute load below 1.0), so
// that one engine's runs do not meet the last ones of the other.
void settle()
{
    for (int waited = 0; waited < 90 && loadAverage() >= 1.0; ++waited)
        QThread::sleep(1);
}

struct WrkResult
{
    bool ok = false;
    double rps = 0;
    double p99Ms = -1;
    qint64 requests = 0;
    qint64 non2xx = 0;
    qint64 socketErrors = 0;
};

// wrk writes latencies as 812.00us, 1.52ms, 2.01s or 1.05m.
double milliseconds(double value, const QString& unit)
{
    if (unit == u"us")
        return value / 1000.0;
    if (unit == u"s")
        return value * 1000.0;
    if (unit == u"m")
        return value * 60'000.0;
    return value;
}

WrkResult wrk(const QString& what, int port, const QString& path, int connections, int seconds,
              const QString& script = {}, const QString& dataDir = {});

// Three runs of `measure`, and the middle one by requests per second: the machine
// is shared, and a single run may meet a burst of someone else's work.
template <typename Measure> WrkResult middleOfThree(Measure measure)
{
    std::array<WrkResult, 3> runs{measure(), measure(), measure()};
    std::sort(runs.begin(), runs.end(),
              [](const WrkResult& a, const WrkResult& b) { return a.rps < b.rps; });
    return runs[1];
}

WrkResult wrk(const QString& what, int port, const QString& path, int connections, int seconds,
              const QString& script, const QString& dataDir)
{
    QStringList args{QStringLiteral("-t1"), QStringLiteral("-c%1").arg(connections),
                     QStringLiteral("-d%1s").arg(seconds), QStringLiteral("--latency")};
    if (!script.isEmpty())
        args << QStringLiteral("-s") << luaDir + script;
    args << QStringLiteral("http://127.0.0.1:%1%2").arg(port).arg(path);
    if (!dataDir.isEmpty())
        args << QStringLiteral("--") << dataDir;
    QByteArray out;
    WrkResult result;
    if (!run(QStringLiteral("wrk"), args, &out))
        return result;
    const QString text = QString::fromUtf8(out);
    const auto number = [&text](const QString& pattern, int group = 1) {
        const QRegularExpressionMatch m =
            QRegularExpression(pattern, QRegularExpression::MultilineOption).match(text);
        return m.hasMatch() ? m.captured(group).toDouble() : 0.0;
    };
    result.rps = number(QStringLiteral("^Requests/sec:\\s+([0-9.]+)"));
    result.requests = qint64(number(QStringLiteral("^\\s*([0-9]+) requests in")));
    result.non2xx = qint64(number(QStringLiteral("^\\s*Non-2xx or 3xx responses:\\s+([0-9]+)")));
    const QRegularExpressionMatch socket =
        QRegularExpression(QStringLiteral("Socket errors: connect ([0-9]+), read ([0-9]+), "
                                          "write ([0-9]+), timeout ([0-9]+)"))
            .match(text);
    for (int i = 1; socket.hasMatch() && i <= 4; ++i)
        result.socketErrors += socket.captured(i).toLongLong();
    const QRegularExpressionMatch p99 =
        QRegularExpression(QStringLiteral("^\\s*99%\\s+([0-9.]+)(us|ms|s|m)\\s*$"),
                           QRegularExpression::MultilineOption)
            .match(text);
    if (p99.hasMatch())
        result.p99Ms = milliseconds(p99.captured(1).toDouble(), p99.captured(2));
    result.ok = result.requests > 0 && p99.hasMatch();
    std::fprintf(stderr,
                 "  %s: %lld requests, %.0f/s, p99 %.2f ms, %lld non-2xx, %lld socket "
                 "errors\n",
                 qPrintable(what), static_cast<long long>(result.requests), result.rps,
                 result.p99Ms, static_cast<long long>(result.non2xx),
                 static_cast<long long>(result.socketErrors));
    if (!result.ok)
        std::fprintf(stderr, "%s\n", out.constData());
    return result;
}

// Sends one 1 MiB PUT at 100 kB/s, then the next, until told to stop: a slow
// client that holds a connection and a growing buffer on the server.
void trickle(int port, QByteArray token, const std::atomic<bool>& stop, std::atomic<qint64>& sent)
{
    using Clock = std::chrono::steady_clock;
    // Valid JSON of the wrong shape: the server takes it all in and then refuses it.
    const QByteArray body = "[\"" + QByteArray(trickleBytes - 4, 'x') + "\"]";
    while (!stop) {
        Connection c(port);
        // The head alone: the body follows in chunks.
        if (!c.send("PUT /api/v1/habits HTTP/1.1\r\nHost: bench\r\n" + bearer(token) +
                    "Content-Type: application/json\r\nContent-Length: " +
                    QByteArray::number(body.size()) + "\r\n\r\n")) {
            QThread::msleep(100);
            continue;
        }
        const Clock::time_point start = Clock::now();
        qint64 at = 0;
        for (int i = 0; !stop && at < body.size(); ++i) {
            std::this_thread::sleep_until(start + std::chrono::milliseconds(i * trickleEveryMs));
            const qsizetype n = std::min<qsizetype>(trickleChunk, body.size() - at);
            if (!c.send(body.mid(at, n)))
                break;
            at += n;
            sent += n;
        }
        if (!stop && at == body.size()) {
            const Connection::Answer answer = c.read();
            std::fprintf(stderr, "  the 1 MiB PUT was answered %d\n", answer.status);
        }
    }
}

// A wrong password on the web sign-in every 50 ms, each time for another name, so
// that the throttle (per name and address) lets each try reach the password check.
void signIns(int port, const std::atomic<bool>& stop, std::atomic<int>& tries,
             std::atomic<int>& wrong, std::atomic<int>& throttled)
{
    using Clock = std::chrono::steady_clock;
    static const QRegularExpression formField(
        QStringLiteral("name=\"form\" value=\"([A-Za-z0-9_-]+)\""));
    const Clock::time_point start = Clock::now();
    std::unique_ptr<Connection> c;
    for (int i = 0; !stop; ++i) {
        std::this_thread::sleep_until(start + std::chrono::milliseconds(i * signInEveryMs));
        if (!c || !c->ok())
            c = std::make_unique<Connection>(port);
        const Connection::Answer page = c->exchange(request("GET", "/en/app/signin", {}));
        const QString nonce = formField.match(QString::fromUtf8(page.body)).captured(1);
        if (page.status != 200 || nonce.isEmpty() ||
            !page.header("Set-Cookie").startsWith(QByteArray("tw_form=" + nonce.toLatin1()))) {
            std::fprintf(stderr, "  the sign-in page came back %d without a form\n", page.status);
            c.reset();
            continue;
        }
        const QByteArray form = "form=" + nonce.toLatin1() + "&next=%2Fen%2Fapp%2Ftokens&name=ann" +
                                QByteArray::number(i % 10'000) + "&password=wrong";
        const Connection::Answer answer = c->exchange(
            request("POST", "/en/app/signin",
                    "Content-Type: application/x-www-form-urlencoded\r\nCookie: tw_form=" +
                        nonce.toLatin1() + "\r\n",
                    form));
        ++tries;
        if (answer.status == 401 && answer.body.contains("Wrong user name or password"))
            ++wrong;
        else if (answer.status == 429)
            ++throttled;
        else
            std::fprintf(stderr, "  a wrong sign-in came back %d\n", answer.status);
        if (answer.status == 0 || answer.header("Connection") == "close")
            c.reset();
    }
}

struct Figures
{
    QString engine;
    double getRatio = 0;
    double putRps = 0;
    double putP99Ms = -1;
    double fairnessP99Ms = -1;
    double rssMb = -1;
    qint64 errors = 0;
};

bool writeLines(const QString& path, const QList<QByteArray>& lines)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    for (const QByteArray& line : lines)
        file.write(line + '\n');
    return true;
}

std::optional<Figures> bench(const QString& name, const QString& database, int seconds)
{
    const QString server = serverBinary();
    QTemporaryDir data;
    const QString dir = data.path();
    std::fprintf(stderr, "%s: adding %d users\n", qPrintable(name), users);
    QList<QByteArray> tokens, habits, tasks, pomodoro;
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
            return std::nullopt;
        tokens.append(token);
        habits.append(habitsBody(u));
        tasks.append(tasksBody(u));
        pomodoro.append(pomodoroBody(u));
    }
    if (!writeLines(dir + u"/tokens", tokens) || !writeLines(dir + u"/habits", habits) ||
        !writeLines(dir + u"/tasks", tasks) || !writeLines(dir + u"/pomodoro", pomodoro))
        return std::nullopt;

    const int port = freePort();
    QProcess process;
    process.setStandardErrorFile(dir + u"/server.log");
    process.start(server, {QStringLiteral("serve"), QStringLiteral("--listen"),
                           QStringLiteral("127.0.0.1:%1").arg(port), QStringLiteral("--database"),
                           database});
    if (!process.waitForStarted())
        return std::nullopt;
    for (int i = 0; i < 200 && !Connection(port).ok(); ++i)
        QThread::msleep(50);

    // Every user's resources exist before the clock starts.
    {
        Connection seed(port);
        for (int u = 0; u < users; ++u) {
            for (const auto& [resource, body] :
                 {std::pair{"habits", habits[u]}, {"tasks", tasks[u]}, {"pomodoro", pomodoro[u]}}) {
                const Connection::Answer answer = seed.exchange(
                    request("PUT", QByteArray("/api/v1/") + resource,
                            bearer(tokens[u]) + "Content-Type: application/json\r\n", body));
                if (answer.status != 200) {
                    std::fprintf(stderr, "seeding %s of user%d: %d %s\n", resource, u,
                                 answer.status, answer.body.constData());
                    return std::nullopt;
                }
            }
        }
    }

    const auto print = [&name](const char* key, double value, int decimals = 0) {
        std::printf("%s %s %.*f\n", qPrintable(name), key, decimals, value);
        std::fflush(stdout);
    };
    Figures figures{name};
    settle();
    print("load_1m", loadAverage(), 2);
    std::fprintf(stderr, "%s: %d s per run, the middle of three for healthz, get and put\n",
                 qPrintable(name), seconds);
    const QString habitsPath = QStringLiteral("/api/v1/habits");
    // Not counted: after a quiet spell this machine takes a few seconds of load to
    // come up to speed (seen as twice the p99 and half the rate in a first run).
    wrk(QStringLiteral("warm-up"), port, QStringLiteral("/healthz"), loadConnections, seconds);
    const WrkResult healthz = middleOfThree([&] {
        return wrk(QStringLiteral("healthz"), port, QStringLiteral("/healthz"), loadConnections,
                   seconds);
    });
    const WrkResult get = middleOfThree([&] {
        return wrk(QStringLiteral("get"), port, habitsPath, loadConnections, seconds,
                   QStringLiteral("get.lua"), dir);
    });
    const WrkResult put = middleOfThree([&] {
        return wrk(QStringLiteral("put"), port, habitsPath, loadConnections, seconds,
                   QStringLiteral("put.lua"), dir);
    });
    const WrkResult mix = wrk(QStringLiteral("mix"), port, habitsPath, loadConnections, seconds,
                              QStringLiteral("mix.lua"), dir);

    std::atomic<bool> stop = false;
    std::atomic<qint64> trickled = 0;
    std::atomic<int> tries = 0, wrong = 0, throttled = 0;
    std::thread slowClient(trickle, port, tokens[0], std::cref(stop), std::ref(trickled));
    std::thread guesser(signIns, port, std::cref(stop), std::ref(tries), std::ref(wrong),
                        std::ref(throttled));
    QThread::msleep(300); // both under way before the measured client starts
    const qint64 trickledBefore = trickled;
    const int triesBefore = tries;
    const WrkResult fair = wrk(QStringLiteral("fairness"), port, habitsPath, fairnessConnections,
                               seconds, QStringLiteral("get.lua"), dir);
    const qint64 trickledDuring = trickled - trickledBefore;
    const int triesDuring = tries - triesBefore;
    stop = true;
    slowClient.join();
    guesser.join();
    std::fprintf(stderr, "  while measured: %.0f kB trickled, %d sign-ins tried\n",
                 double(trickledDuring) / 1000.0, triesDuring);

    if (process.state() != QProcess::Running) {
        std::fprintf(stderr, "%s: the server exited during the runs (status %d)\n",
                     qPrintable(name), process.exitCode());
        return std::nullopt;
    }
    figures.rssMb = residentMb(process.processId());
    process.terminate();
    process.waitForFinished(15'000);

    if (!healthz.ok || !get.ok || !put.ok || !mix.ok || !fair.ok)
        return std::nullopt;
    figures.getRatio = healthz.rps > 0 ? get.rps / healthz.rps : 0;
    figures.putRps = put.rps;
    figures.putP99Ms = put.p99Ms;
    figures.fairnessP99Ms = fair.p99Ms;
    for (const WrkResult* r : {&healthz, &get, &put, &mix, &fair})
        figures.errors += r->non2xx + r->socketErrors;
    print("healthz_rps", healthz.rps);
    print("get_rps", get.rps);
    print("get_ratio", figures.getRatio, 2);
    print("put_rps", put.rps);
    print("p99_ms", put.p99Ms, 2);
    print("mix_rps", mix.rps);
    print("fairness_p99_ms", fair.p99Ms, 2);
    print("signin_tries", tries);
    print("signin_401", wrong);
    print("signin_429", throttled);
    print("rss_mb", figures.rssMb, 1);
    print("errors", double(figures.errors));
    if (wrong < tries * 9 / 10)
        std::fprintf(stderr, "%s: only %d of %d wrong sign-ins were checked (401)\n",
                     qPrintable(name), int(wrong), int(tries));

    // What the server said besides starting, stopping and the failed sign-ins it
    // was sent.
    QFile log(dir + u"/server.log");
    if (log.open(QIODevice::ReadOnly)) {
        int shown = 0;
        for (const QByteArray& line : log.readAll().split('\n')) {
            const bool expected = line.isEmpty() || line.contains("failed sign-in") ||
                                  line.contains(": serving http") ||
                                  line.contains(": stopping; requests under way");
            if (!expected && shown++ < 20)
                std::fprintf(stderr, "  server: %s\n", line.constData());
        }
    }
    return figures;
}

void goal(const Figures& f, const char* key, double value, bool atLeast, double target,
          int decimals = 0)
{
    const bool met = atLeast ? value >= target : value <= target;
    std::printf("goal %s %s %.*f %s %g %s\n", qPrintable(f.engine), key, decimals, value,
                atLeast ? ">=" : "<=", target, met ? "met" : "missed");
}
} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const int seconds = argc > 1 ? std::max(1, QByteArray(argv[1]).toInt()) : 5;
    if (QStandardPaths::findExecutable(QStringLiteral("wrk")).isEmpty()) {
        std::fprintf(stderr, "wrk is not installed (scripts/install-deps installs it)\n");
        return 1;
    }
    QTemporaryDir dir;
    const auto sqlite = bench(QStringLiteral("sqlite"),
                              u"sqlite:" + dir.filePath(QStringLiteral("bench.sqlite")), seconds);
    if (!sqlite)
        return 1;

    QString cluster = qEnvironmentVariable("TIDEWELL_TEST_POSTGRES");
    const QString script = QStringLiteral(TIDEWELL_SOURCE_DIR "/scripts/postgres-for-tests");
    QString pgDir;
    QByteArray started;
    if (cluster.isEmpty()) {
        QTemporaryDir made(QDir::tempPath() + QStringLiteral("/tidewell-bench-pg.XXXXXX"));
        made.setAutoRemove(false); // the script removes it
        pgDir = made.path();
        if (!run(script, {QStringLiteral("start"), pgDir}, &started)) {
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
    const auto postgres = bench(QStringLiteral("postgresql"), database, seconds);
    if (!started.isEmpty())
        run(script, {QStringLiteral("stop"), pgDir});

    for (const auto& f : {sqlite, postgres}) {
        if (!f)
            continue;
        goal(*f, "get_ratio", f->getRatio, true, 0.5, 2);
        goal(*f, "put_rps", f->putRps, true, f->engine == u"sqlite" ? 2000 : 1500);
        goal(*f, "p99_ms", f->putP99Ms, false, 20, 2);
        goal(*f, "fairness_p99_ms", f->fairnessP99Ms, false, 20, 2);
        goal(*f, "rss_mb", f->rssMb, false, 30, 1);
        goal(*f, "errors", double(f->errors), false, 0);
    }
    return postgres ? 0 : 1;
}
