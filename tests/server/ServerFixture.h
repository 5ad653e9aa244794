#pragma once

#include "Accounts.h"
#include "SyncServer.h"
#include "TestDatabase.h"

#include <QRegularExpression>
#include <QTcpSocket>
#include <QTest>

#include <memory>

// A server on a fresh database of the engine this run names, with the user "ann"
// (password "correct horse") and a token of hers; requests go through handle()
// or, once it listens, over real sockets.
class ServerFixture
{
public:
    explicit ServerFixture(SyncServer::Options options = {}, const QString& url = {})
    {
        if (url.isEmpty()) {
            m_db = std::make_unique<TestDatabase>();
            m_problem = m_db->problem();
        }
        options.database.url = url.isEmpty() ? m_db->url() : url;
        options.port = 0;
        QString error;
        if (options.database.url.isEmpty() || !(m_server = SyncServer::create(options, &error))) {
            m_problem += error;
            return;
        }
        Accounts& accounts = m_server->accounts();
        if (!accounts.addUser(QStringLiteral("ann"), QStringLiteral("correct horse"), &error)) {
            m_problem = error;
            m_server.reset();
            return;
        }
        userId = accounts.user(QStringLiteral("ann"))->id;
        token = accounts.createToken(userId, QStringLiteral("test"), &error).value_or(QString());
    }

    SyncServer* server() const { return m_server.get(); }
    QString problem() const { return m_problem; }

    HttpAnswer call(const QByteArray& method, const QString& path, const QByteArray& body = {},
                    QList<std::pair<QByteArray, QByteArray>> headers = {},
                    const QHostAddress& client = QHostAddress(QStringLiteral("192.0.2.1"))) const
    {
        HttpCall c;
        c.method = method;
        const qsizetype question = path.indexOf(u'?');
        c.path = path.left(question);
        if (question >= 0)
            c.query = QUrlQuery(path.mid(question + 1));
        c.body = body;
        c.headers = std::move(headers);
        c.peer = c.client = client;
        return m_server->handle(c);
    }

    HttpAnswer authorised(const QByteArray& method, const QString& path,
                          const QByteArray& body = {}) const
    {
        return call(
            method, path, body,
            {{"Authorization", "Bearer " + token.toUtf8()}, {"Content-Type", "application/json"}});
    }

    // Every value of a header of the answer.
    static QList<QByteArray> headers(const HttpAnswer& answer, QByteArrayView name)
    {
        QList<QByteArray> out;
        for (const auto& [key, value] : answer.headers) {
            if (key.compare(name, Qt::CaseInsensitive) == 0)
                out.append(value);
        }
        return out;
    }
    static QByteArray header(const HttpAnswer& answer, QByteArrayView name)
    {
        return headers(answer, name).value(0);
    }

    // The value a cookie is set to by an answer ("" when it is cleared), or null.
    static QByteArray cookieSet(const HttpAnswer& answer, const QByteArray& name)
    {
        for (const QByteArray& value : headers(answer, "Set-Cookie")) {
            if (value.startsWith(QByteArray(name + '=')))
                return value.mid(name.size() + 1, value.indexOf(';') - name.size() - 1);
        }
        return {};
    }

    // A hidden form field of a page.
    static QString hidden(const HttpAnswer& page, const QString& name)
    {
        const QRegularExpression field(u"name=\"" + name + u"\" value=\"([^\"]*)\"");
        return field.match(QString::fromUtf8(page.body)).captured(1);
    }

    // Signs in through the web form as `client`; the answer to the POST.
    HttpAnswer signIn(const QString& password, const QHostAddress& client,
                      const QByteArray& sessionCookie = {}, const QString& next = {}) const
    {
        const HttpAnswer form = call("GET", QStringLiteral("/en/app/signin"), {}, {}, client);
        const QByteArray nonce = cookieSet(form, "tw_form");
        QUrlQuery fields;
        fields.addQueryItem(QStringLiteral("form"), QString::fromLatin1(nonce));
        fields.addQueryItem(QStringLiteral("next"),
                            next.isEmpty() ? QStringLiteral("/en/app/tokens") : next);
        fields.addQueryItem(QStringLiteral("name"), QStringLiteral("ann"));
        fields.addQueryItem(QStringLiteral("password"), password);
        QByteArray cookies = "tw_form=" + nonce;
        if (!sessionCookie.isEmpty())
            cookies += "; tw_session=" + sessionCookie;
        return call("POST", QStringLiteral("/en/app/signin"),
                    fields.toString(QUrl::FullyEncoded).toLatin1(),
                    {{"Content-Type", "application/x-www-form-urlencoded"}, {"Cookie", cookies}},
                    client);
    }

    // One request over a new connection to the listening server; the whole answer.
    // The server runs on this thread, so the wait runs its event loop.
    QByteArray exchange(const QByteArray& request, int timeoutMs = 10'000) const
    {
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, m_server->port());
        socket.write(request);
        QByteArray answer;
        (void)QTest::qWaitFor(
            [&] {
                answer += socket.readAll();
                return complete(answer) || socket.state() == QAbstractSocket::UnconnectedState;
            },
            timeoutMs);
        return answer + socket.readAll();
    }

    // Whether `answer` holds a whole response (headers and Content-Length bytes).
    static bool complete(const QByteArray& answer)
    {
        const qsizetype end = answer.indexOf("\r\n\r\n");
        if (end < 0)
            return false;
        const QRegularExpression length(QStringLiteral("(?i)content-length: *(\\d+)"));
        const auto match = length.match(QString::fromLatin1(answer.left(end)));
        return answer.size() - end - 4 >= match.captured(1).toLongLong();
    }

    QString token;
    qint64 userId = 0;

private:
    std::unique_ptr<TestDatabase> m_db;
    std::unique_ptr<SyncServer> m_server;
    QString m_problem;
};
