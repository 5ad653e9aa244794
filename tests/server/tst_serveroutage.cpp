#include "ServerFixture.h"

#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>

#include <csignal>

using namespace Qt::StringLiterals;

// tidewell-server on a PostgreSQL cluster of its own that stops, comes back and
// hangs: requests meanwhile get 503 with Retry-After (never 401), within the
// database deadline, and the server is well again by itself once the database is.
class TestServerOutage final : public QObject
{
    Q_OBJECT

    QTemporaryDir m_parent;
    QString m_dir;
    QString m_url;

    static bool cluster(const QString& action, const QString& dir, QString* out = nullptr)
    {
        QProcess p;
        p.start(QStringLiteral(TIDEWELL_SOURCE_DIR "/scripts/postgres-for-tests"), {action, dir});
        if (!p.waitForFinished(120'000) || p.exitCode() != 0) {
            qWarning("%s: %s", qPrintable(action), p.readAllStandardError().constData());
            return false;
        }
        if (out)
            *out = QString::fromUtf8(p.readAllStandardOutput()).trimmed();
        return true;
    }

    // The postmaster and every process it started.
    QList<pid_t> clusterProcesses() const
    {
        QFile pidFile(m_dir + u"/data/postmaster.pid");
        if (!pidFile.open(QIODevice::ReadOnly))
            return {};
        const pid_t postmaster = pidFile.readLine().trimmed().toInt();
        QList<pid_t> out{postmaster};
        for (const QString& entry : QDir(u"/proc"_s).entryList(QDir::Dirs)) {
            QFile stat(u"/proc/"_s + entry + u"/stat"_s);
            if (!stat.open(QIODevice::ReadOnly))
                continue;
            const QByteArray line = stat.readAll();
            // "pid (comm) state ppid ..."; comm may hold spaces, so read after ')'.
            const QList<QByteArray> rest = line.mid(line.lastIndexOf(')') + 2).split(' ');
            if (rest.value(1).toInt() == postmaster)
                out.append(entry.toInt());
        }
        return out;
    }

    static int statusOf(const QByteArray& answer) { return answer.mid(9, 3).toInt(); }

    // Whether `request` is answered `status` before `timeoutMs` have passed.
    static bool answersWithin(const ServerFixture& f, const QByteArray& request, int status,
                              int timeoutMs)
    {
        return QTest::qWaitFor([&] { return statusOf(f.exchange(request)) == status; }, timeoutMs);
    }

private slots:
    void initTestCase()
    {
        // As root the cluster belongs to "postgres", who must reach its folder.
        QFile::setPermissions(m_parent.path(), QFile::permissions(m_parent.path()) |
                                                   QFile::ExeOther | QFile::ReadOther);
        m_dir = m_parent.filePath(u"pg"_s);
        QVERIFY(cluster(u"start"_s, m_dir, &m_url));
    }

    void cleanupTestCase() { cluster(u"stop"_s, m_dir); }

    void stoppedThenHungDatabase()
    {
        QUrl url(m_url);
        url.setPath(u"/postgres"_s);
        ServerFixture f({}, url.toString());
        QVERIFY2(f.server(), qPrintable(f.problem()));
        QString error;
        QVERIFY2(f.server()->listen(&error), qPrintable(error));
        const QByteArray get = "GET /api/v1/habits HTTP/1.1\r\nHost: x\r\nAuthorization: Bearer " +
                               f.token.toLatin1() + "\r\n\r\n";
        const QByteArray health = "GET /healthz HTTP/1.1\r\nHost: x\r\n\r\n";
        QCOMPARE(statusOf(f.exchange(get)), 200);

        // Stopped: refused connections, answered 503 at once.
        QVERIFY(cluster(u"halt"_s, m_dir));
        for (int i = 0; i < 3; ++i) {
            const QByteArray answer = f.exchange(get);
            QCOMPARE(statusOf(answer), 503);
            QVERIFY(answer.contains("\r\nRetry-After: 5\r\n"));
        }
        QCOMPARE(statusOf(f.exchange(health)), 503);

        // Back: the next requests find it without a restart of the server.
        QVERIFY(cluster(u"resume"_s, m_dir));
        // Every request thread notices on its own that its connection ended; none
        // passes that on as a failure.
        QVERIFY(answersWithin(f, health, 200, 15'000));
        for (int i = 0; i < 20; ++i)
            QCOMPARE(statusOf(f.exchange(i % 2 ? get : health)), 200);

        // Hung: the processes stop answering but their sockets stay open. A request
        // gets its 503 once the database deadline has passed, not never.
        const QList<pid_t> processes = clusterProcesses();
        QVERIFY(processes.size() > 1);
        for (const pid_t pid : processes)
            ::kill(pid, SIGSTOP);
        QElapsedTimer waited;
        waited.start();
        const QByteArray hung = f.exchange(get, 20'000);
        const qint64 took = waited.elapsed();
        for (const pid_t pid : processes)
            ::kill(pid, SIGCONT);
        QCOMPARE(statusOf(hung), 503);
        QVERIFY2(took >= ServerDatabase::DefaultTimeoutMs - 500 && took < 8'000,
                 qPrintable(QString::number(took)));
        QVERIFY(answersWithin(f, get, 200, 15'000));
    }
};

QTEST_GUILESS_MAIN(TestServerOutage)
#include "tst_serveroutage.moc"
