// tidewell-server from raw request bytes: the request line, headers and body are
// taken apart as an HTTP/1.1 parser would and go through the router, the handlers
// and the decoders to an in-memory SQLite database. "@TOKEN@" in the input stands
// for a valid bearer token, so that writes get past authentication.
#include "Accounts.h"
#include "FuzzCheck.h"
#include "SyncServer.h"

#include <QCoreApplication>

#include <cstddef>
#include <cstdint>

namespace {

// Never destroyed: it must outlive nothing but the process, and the database
// connection registry it uses is gone by the time statics are torn down.
SyncServer* server = nullptr;
QByteArray token;

HttpCall callFrom(const QByteArray& raw)
{
    HttpCall call;
    qsizetype end = raw.indexOf("\r\n\r\n");
    const QByteArray head = end < 0 ? raw : raw.left(end);
    call.body = end < 0 ? QByteArray() : raw.mid(end + 4);
    const QList<QByteArray> lines = head.split('\n');
    const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
    call.method = requestLine.value(0).toUpper();
    const QUrl url = QUrl::fromEncoded(requestLine.value(1));
    call.path = url.path();
    call.query = QUrlQuery(url);
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const qsizetype colon = lines[i].indexOf(':');
        if (colon > 0)
            call.headers.append({lines[i].left(colon), lines[i].mid(colon + 1).trimmed()});
    }
    call.peer = QHostAddress::LocalHost;
    return call;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    static QCoreApplication app(*argc, *argv);
    SyncServer::Options options;
    options.database.url = QStringLiteral("sqlite::memory:");
    options.port = 0;
    QString error;
    server = SyncServer::create(options, &error).release();
    FUZZ_CHECK(server);
    Accounts& accounts = server->accounts();
    FUZZ_CHECK(accounts.addUser(QStringLiteral("ann"), QStringLiteral("correct horse"), &error));
    token =
        accounts
            .createToken(accounts.user(QStringLiteral("ann"))->id, QStringLiteral("fuzz"), &error)
            .value_or(QString())
            .toUtf8();
    FUZZ_CHECK(!token.isEmpty());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    QByteArray raw(reinterpret_cast<const char*>(data), qsizetype(size));
    raw.replace("@TOKEN@", token);
    const HttpAnswer answer = server->handle(callFrom(raw));
    FUZZ_CHECK(answer.status >= 200 && answer.status < 600);
    FUZZ_CHECK(answer.status < 500); // nothing a client sends may break the server
    return 0;
}
