#pragma once

#include "ServerDatabase.h"

#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QUrl>
#include <QUrlQuery>

// A fresh, empty database for one test on the engine the test run names:
// TIDEWELL_TEST_ENGINE "sqlite" (a file in a temporary folder) or "postgresql" (a
// new database in the cluster at TIDEWELL_TEST_POSTGRES, dropped afterwards).
class TestDatabase
{
public:
    TestDatabase()
    {
        if (qEnvironmentVariable("TIDEWELL_TEST_ENGINE") != u"postgresql") {
            m_url = u"sqlite:" + m_dir.filePath(QStringLiteral("server.sqlite"));
            return;
        }
        const QString cluster = qEnvironmentVariable("TIDEWELL_TEST_POSTGRES");
        if (cluster.isEmpty()) {
            m_problem = QStringLiteral("no PostgreSQL to test on: scripts/test starts one and "
                                       "sets TIDEWELL_TEST_POSTGRES");
            return;
        }
        m_name = QStringLiteral("tws_%1").arg(QRandomGenerator::system()->generate64(), 0, 16);
        if (!admin(cluster, u"CREATE DATABASE " + m_name))
            return;
        QUrl url(cluster);
        url.setPath(u'/' + m_name);
        m_url = url.toString();
        m_cluster = cluster;
    }

    ~TestDatabase()
    {
        if (!m_name.isEmpty() && !m_cluster.isEmpty())
            admin(m_cluster, u"DROP DATABASE IF EXISTS " + m_name + u" WITH (FORCE)");
    }

    // Empty when the database could not be made; then problem() says why.
    QString url() const { return m_url; }
    QString problem() const { return m_problem; }

private:
    // Runs `sql` in the cluster's own "postgres" database.
    bool admin(const QString& cluster, const QString& sql)
    {
        QString error;
        const auto db = ServerDatabase::join({cluster, {}, 10'000}, &error);
        const bool ok = db && db->exec(sql, {}, &error);
        if (!ok)
            m_problem = u"PostgreSQL at " + cluster + u" refused " + sql + u": " + error;
        return ok;
    }

    QTemporaryDir m_dir;
    QString m_url;
    QString m_name;
    QString m_cluster;
    QString m_problem;
};
