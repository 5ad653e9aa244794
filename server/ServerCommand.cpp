#include "ServerCommand.h"

#include "Accounts.h"
#include "Clock.h"
#include "PasswordPrompt.h"
#include "ResourceStore.h"
#include "ServerArguments.h"
#include "ServerDatabase.h"
#include "SyncServer.h"
#include "UnixSignalWatcher.h"

#include <QCoreApplication>
#include <QFile>
#include <QUrl>

#include <cstdio>

namespace {
void say(const QString& text)
{
    std::fprintf(stderr, "%s\n", text.toLocal8Bit().constData());
}

void print(const QString& text)
{
    std::fprintf(stdout, "%s\n", text.toLocal8Bit().constData());
}

int fail(const QString& text)
{
    say(u"tidewell-server: " + text);
    return 1;
}

int usageError(const QString& text)
{
    say(u"tidewell-server: " + text + u"\n\n" + ServerCommand::usage());
    return 2;
}

// The database URL as it may be shown: never with its password.
QString shown(const QString& url)
{
    if (!url.startsWith(u"postgres"))
        return url;
    QUrl u(url);
    u.setPassword(QString());
    return u.toString();
}

// Where the database is and how to sign in to it; the PostgreSQL password from a
// file when one is named, so that it never shows in the process list.
std::optional<ServerDatabase::Settings> databaseSettings(const ServerArguments& args,
                                                         QString* error)
{
    ServerDatabase::Settings settings;
    settings.url = args.value(QStringLiteral("--database"), ServerDatabase::defaultUrl());
    if (args.has(QStringLiteral("--database-password-file"))) {
        QFile file(args.value(QStringLiteral("--database-password-file")));
        if (!file.open(QIODevice::ReadOnly)) {
            *error =
                u"cannot read the password file " + file.fileName() + u": " + file.errorString();
            return std::nullopt;
        }
        settings.password = QString::fromUtf8(file.readLine()).trimmed();
    }
    if (settings.url.startsWith(u"postgres") && !QUrl(settings.url).password().isEmpty())
        say(QStringLiteral("tidewell-server: warning: the password in --database shows in the "
                           "process list; use PGPASSWORD, ~/.pgpass or --database-password-file"));
    return settings;
}

bool parseListen(const QString& text, SyncServer::Options* options)
{
    const qsizetype colon = text.lastIndexOf(u':');
    if (colon < 0)
        return false;
    QString host = text.left(colon);
    if (host.startsWith(u'[') && host.endsWith(u']'))
        host = host.mid(1, host.size() - 2);
    bool ok = false;
    const uint port = text.mid(colon + 1).toUInt(&ok);
    const QHostAddress address(host.isEmpty() ? QStringLiteral("0.0.0.0") : host);
    if (!ok || port > 65535 || address.isNull())
        return false;
    options->address = address;
    options->port = quint16(port);
    return true;
}

int serve(const ServerArguments& args)
{
    SyncServer::Options options;
    QString error;
    const auto database = databaseSettings(args, &error);
    if (!database)
        return fail(error);
    options.database = *database;
    if (args.has(QStringLiteral("--listen")) &&
        !parseListen(args.value(QStringLiteral("--listen")), &options))
        return usageError(
            QStringLiteral("--listen takes ADDRESS:PORT, for example 127.0.0.1:8080"));
    options.tlsCertificate = args.value(QStringLiteral("--tls-cert"));
    options.tlsKey = args.value(QStringLiteral("--tls-key"));
    if (options.tlsCertificate.isEmpty() != options.tlsKey.isEmpty())
        return usageError(QStringLiteral("--tls-cert and --tls-key go together"));
    qint64 maxConnections = options.limits.maxConnections;
    qint64 perAddress = options.limits.maxPerAddress;
    qint64 threads = 0;
    if (!args.positive(QStringLiteral("--max-body"), 1024, &options.limits.maxBodyBytes))
        return usageError(QStringLiteral("--max-body takes a size in bytes, at least 1024"));
    if (!args.positive(QStringLiteral("--max-connections"), 1, &maxConnections) ||
        !args.positive(QStringLiteral("--max-connections-per-address"), 1, &perAddress) ||
        !args.positive(QStringLiteral("--threads"), 1, &threads) || maxConnections > 100'000 ||
        perAddress > 100'000 || threads > 256)
        return usageError(QStringLiteral("--max-connections, --max-connections-per-address and "
                                         "--threads take a positive number"));
    options.limits.maxConnections = int(maxConnections);
    options.limits.maxPerAddress = int(perAddress);
    options.threads = int(threads);
    if (args.has(QStringLiteral("--schemes")))
        options.schemes = args.value(QStringLiteral("--schemes")).split(u',', Qt::SkipEmptyParts);
    options.publicUrl = args.value(QStringLiteral("--public-url"));
    options.trustedProxies = args.options.value(QStringLiteral("--trusted-proxy"));
    options.accessLog = args.has(QStringLiteral("--access-log"));

    auto server = SyncServer::create(options, &error);
    if (!server)
        return fail(error.startsWith(u"--")
                        ? error
                        : u"cannot open the database " + shown(database->url) + u": " + error);
    if (!server->listen(&error))
        return fail(u"cannot listen on " + options.address.toString() + u':' +
                    QString::number(options.port) + u": " + error);
    const bool tls = !options.tlsCertificate.isEmpty();
    if (!tls && !options.address.isLoopback() && !options.publicUrl.startsWith(u"https:"))
        say(QStringLiteral(
            "tidewell-server: warning: serving plain HTTP on a network address: passwords and "
            "tokens would cross the network readable by anyone on the way. Listen on 127.0.0.1 "
            "behind a reverse proxy with TLS (and give --public-url https://...), or give "
            "--tls-cert and --tls-key."));
    say(QStringLiteral("tidewell-server: serving %1://%2:%3 (database %4)")
            .arg(tls ? u"https" : u"http",
                 options.address.protocol() == QAbstractSocket::IPv6Protocol
                     ? u'[' + options.address.toString() + u']'
                     : options.address.toString())
            .arg(server->port())
            .arg(shown(database->url)));
    UnixSignalWatcher signals_;
    QObject::connect(&signals_, &UnixSignalWatcher::terminationRequested, server.get(), [&] {
        say(QStringLiteral("tidewell-server: stopping; requests under way may finish"));
        server->shutdown();
    });
    QObject::connect(server.get(), &SyncServer::stopped, qApp, &QCoreApplication::quit);
    return QCoreApplication::exec();
}

int userCommand(const ServerArguments& args, Accounts& accounts)
{
    const QString verb = args.positional.value(1);
    const QString name = args.positional.value(2);
    QString error;
    if (verb == u"list" && args.positional.size() == 2) {
        const QList<Accounts::User> users = accounts.users(&error);
        if (!error.isEmpty())
            return fail(error);
        for (const Accounts::User& user : users)
            print(user.name);
        return 0;
    }
    if (name.isEmpty() || args.positional.size() != 3)
        return usageError(QStringLiteral("user takes add, passwd or del and a NAME, or list"));
    if (verb == u"add" || verb == u"passwd") {
        if (verb == u"add") {
            if (const auto problem = Accounts::nameProblem(name))
                return fail(*problem);
            if (accounts.user(name))
                return fail(u"there is already a user named " + name);
        } else if (!accounts.user(name)) {
            return fail(u"there is no user named " + name);
        }
        const auto password = PasswordPrompt::newPassword(name);
        if (!password)
            return fail(QStringLiteral("the two passwords differ"));
        const bool ok = verb == u"add" ? accounts.addUser(name, *password, &error)
                                       : accounts.setPassword(name, *password, &error);
        if (!ok)
            return fail(error);
        say(verb == u"add" ? QString(u"Added " + name)
                           : QString(u"Changed the password of " + name));
        return 0;
    }
    if (verb == u"del") {
        if (!accounts.removeUser(name, &error))
            return fail(error);
        say(u"Removed " + name + u" and all of their data");
        return 0;
    }
    return usageError(u"unknown user command " + verb);
}

int tokenCommand(const ServerArguments& args, Accounts& accounts)
{
    const QString verb = args.positional.value(1);
    const QString target = args.positional.value(2);
    QString error;
    if (args.positional.size() != 3)
        return usageError(QStringLiteral("token takes create USER, list USER or revoke ID"));
    if (verb == u"revoke") {
        bool ok = false;
        const qint64 id = target.toLongLong(&ok);
        if (!ok)
            return usageError(QStringLiteral("token revoke takes the token's number (token list)"));
        if (!accounts.revokeToken(id, std::nullopt, &error))
            return fail(error);
        say(QStringLiteral("Revoked token %1").arg(id));
        return 0;
    }
    const auto user = accounts.user(target, &error);
    if (!user)
        return fail(error.isEmpty() ? u"there is no user named " + target : error);
    if (verb == u"create") {
        const QString label =
            args.value(QStringLiteral("--label"),
                       QDate::currentDate().toString(Qt::ISODate) + u" command line");
        const auto token = accounts.createToken(user->id, label, &error);
        if (!token)
            return fail(error);
        print(*token);
        say(QStringLiteral("This token is shown only now; paste it into Tidewell's sign-in "
                           "sheet (Advanced, API token)."));
        return 0;
    }
    if (verb == u"list") {
        const QList<Accounts::Token> tokens = accounts.tokens(user->id, &error);
        if (!error.isEmpty())
            return fail(error);
        for (const Accounts::Token& t : tokens)
            print(QStringLiteral("%1\t%2\tcreated %3\tlast used %4")
                      .arg(t.id)
                      .arg(t.label, t.createdAt.toString(Qt::ISODate),
                           t.lastUsedAt.isValid() ? t.lastUsedAt.toString(Qt::ISODate)
                                                  : QStringLiteral("never")));
        return 0;
    }
    return usageError(u"unknown token command " + verb);
}

int historyCommand(const ServerArguments& args, Accounts& accounts, ResourceStore& resources)
{
    const bool restore = args.positional.value(0) == u"restore";
    if (args.positional.size() != 3)
        return usageError(restore ? QStringLiteral("restore takes USER RESOURCE --version N")
                                  : QStringLiteral("history takes USER RESOURCE"));
    QString error;
    const auto user = accounts.user(args.positional.at(1), &error);
    if (!user)
        return fail(error.isEmpty() ? u"there is no user named " + args.positional.at(1) : error);
    const auto kind = ResourceStore::kindNamed(args.positional.at(2));
    if (!kind)
        return usageError(QStringLiteral("RESOURCE is habits, tasks or pomodoro"));
    if (restore) {
        bool ok = false;
        const qint64 version = args.value(QStringLiteral("--version")).toLongLong(&ok);
        if (!ok)
            return usageError(QStringLiteral("restore needs --version N (see history)"));
        if (!resources.restore(user->id, *kind, version, &error))
            return fail(error);
        say(QStringLiteral("Version %1 of %2 is current again for %3")
                .arg(version)
                .arg(ResourceStore::nameOf(*kind), user->name));
        return 0;
    }
    const QList<ResourceStore::Version> versions = resources.history(user->id, *kind, &error);
    if (!error.isEmpty())
        return fail(error);
    for (const ResourceStore::Version& v : versions)
        print(QStringLiteral("%1\t%2\t%3 bytes%4")
                  .arg(v.number)
                  .arg(v.createdAt.toString(Qt::ISODate))
                  .arg(v.bytes)
                  .arg(v.current ? QStringLiteral("\tcurrent") : QString()));
    return 0;
}
} // namespace

QString ServerCommand::usage()
{
    return QStringLiteral(
        "Usage: tidewell-server COMMAND [--database URL]\n"
        "\n"
        "  serve [OPTIONS]            serve the sync API and the sign-in pages\n"
        "  user add NAME              add a user (password from a prompt or stdin)\n"
        "  user passwd NAME           change a user's password\n"
        "  user del NAME              remove a user and all of their data\n"
        "  user list                  list the users\n"
        "  token create USER [--label TEXT]\n"
        "                             print a new API token for the user, once\n"
        "  token list USER            list a user's tokens (never the tokens themselves)\n"
        "  token revoke ID            revoke a token\n"
        "  history USER RESOURCE      list the kept versions of habits, tasks or pomodoro\n"
        "  restore USER RESOURCE --version N\n"
        "                             make an earlier version current again\n"
        "\n"
        "--database sqlite:PATH (default: $XDG_DATA_HOME/tidewell-server/server.sqlite)\n"
        "        or postgresql://USER@HOST[:PORT]/DATABASE[?host=/socket/dir]\n"
        "--database-password-file FILE\n"
        "        the PostgreSQL password (else PGPASSWORD or ~/.pgpass; a password in\n"
        "        the URL shows in the process list)\n"
        "\n"
        "serve options:\n"
        "  --listen ADDRESS:PORT      where to listen (default 127.0.0.1:8080)\n"
        "  --tls-cert FILE --tls-key FILE\n"
        "                             serve HTTPS itself (PEM files)\n"
        "  --public-url URL           where browsers reach the server, e.g.\n"
        "                             https://sync.example.org behind a reverse proxy:\n"
        "                             Secure __Host- cookies, HSTS, form origin checks\n"
        "  --trusted-proxy ADDR[/BITS]\n"
        "                             a reverse proxy whose X-Forwarded-For/-Proto and\n"
        "                             Forwarded headers name the client (repeatable)\n"
        "  --max-body BYTES           largest request body (default 1048576; the app's\n"
        "                             bodies are a few kilobytes)\n"
        "  --max-connections N        open connections in all (default 512)\n"
        "  --max-connections-per-address N\n"
        "                             from one client address (default 64; trusted\n"
        "                             proxies exempt)\n"
        "  --threads N                request threads (default four times the cores, at\n"
        "                             least 8)\n"
        "  --schemes tidewell,...     app URL schemes browser sign-in may call back\n"
        "  --access-log               log each request (address, method, path, status,\n"
        "                             size, time; never a query, token or cookie)\n"
        "\n"
        "Each serve option may also come from the environment: --public-url as\n"
        "TIDEWELL_SERVER_PUBLIC_URL, --trusted-proxy as TIDEWELL_SERVER_TRUSTED_PROXY\n"
        "(several separated by spaces or commas), --access-log as\n"
        "TIDEWELL_SERVER_ACCESS_LOG=1, and so on; the command line wins.\n");
}

int ServerCommand::run(const QStringList& arguments)
{
    if (arguments == QStringList{QStringLiteral("--version")}) {
        print(u"tidewell-server " + QCoreApplication::applicationVersion());
        return 0;
    }
    const ServerArguments args = ServerArguments::parse(arguments);
    if (!args.problem.isEmpty())
        return usageError(args.problem);
    if (args.has(QStringLiteral("--help")) || args.positional.value(0) == u"help") {
        print(usage());
        return 0;
    }
    const QString command = args.positional.value(0);
    if (command.isEmpty())
        return usageError(QStringLiteral("no command given"));
    if (command == u"serve")
        return serve(args);
    if (command != u"user" && command != u"token" && command != u"history" && command != u"restore")
        return usageError(u"unknown command " + command);

    QString error;
    const auto database = databaseSettings(args, &error);
    if (!database)
        return fail(error);
    auto db = ServerDatabase::open(*database, &error);
    if (!db)
        return fail(u"cannot open the database " + shown(database->url) + u": " + error);
    const Clock clock;
    Accounts accounts(*db, clock);
    ResourceStore resources(*db, clock);
    if (command == u"user")
        return userCommand(args, accounts);
    if (command == u"token")
        return tokenCommand(args, accounts);
    return historyCommand(args, accounts, resources);
}
