// tidewell-server from raw request bytes: the server's own parser takes them apart,
// every request it finds goes through the router, the handlers and the decoders to
// an in-memory SQLite database, and each answer through the response writer.
// "@TOKEN@" in the input stands for a valid bearer token, so that writes get past
// authentication.
#include "Accounts.h"
#include "FuzzCheck.h"
#include "HttpRequestParser.h"
#include "HttpResponseWriter.h"
#include "SyncServer.h"

#include <QCoreApplication>

#include <cstddef>
#include <cstdint>

namespace {

// Never destroyed: it must outlive nothing but the process, and the database
// connection registry it uses is gone by the time statics are torn down.
SyncServer* server = nullptr;
QByteArray token;

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
    HttpRequestParser parser({32 * 1024, 1024 * 1024});
    for (int requests = 0; requests < 16; ++requests) {
        switch (parser.next(raw)) {
        case HttpRequestParser::Step::NeedMore:
            return 0;
        case HttpRequestParser::Step::Refuse:
            FUZZ_CHECK(parser.refusalStatus() >= 400 && parser.refusalStatus() < 600);
            return 0;
        case HttpRequestParser::Step::Request:
            break;
        }
        HttpCall call = parser.takeCall();
        call.peer = QHostAddress::LocalHost;
        const HttpAnswer answer = server->handle(call);
        FUZZ_CHECK(answer.status >= 200 && answer.status < 600);
        FUZZ_CHECK(answer.status < 500); // nothing a client sends may break the server
        // Nor make it write a header of the client's choosing.
        FUZZ_CHECK(!HttpResponseWriter::write(answer, false, true).startsWith("HTTP/1.1 500"));
    }
    return 0;
}
