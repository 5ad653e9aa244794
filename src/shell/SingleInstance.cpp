#include "SingleInstance.h"

#include "BundleInfo.h"
#include "PeerCredentials.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalServer>
#include <QLocalSocket>
#include <QStandardPaths>

namespace {
const QByteArray ack = QByteArrayLiteral("ok\n");
}

SingleInstance::SingleInstance(const QString& socketPath, QObject* parent)
    : QObject(parent)
    , m_path(socketPath)
{}

SingleInstance::~SingleInstance() = default;

QString SingleInstance::defaultSocketPath()
{
    QString dir = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (dir.isEmpty() || !QFileInfo(dir).isDir())
        dir = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    return dir + u'/' + BundleInfo::current().identifier + QStringLiteral(".socket");
}

QByteArray SingleInstance::encodeMessage(const QUrl& url)
{
    QJsonObject o;
    if (url.isEmpty()) {
        o.insert(QStringLiteral("command"), QStringLiteral("activate"));
    } else {
        o.insert(QStringLiteral("command"), QStringLiteral("open"));
        o.insert(QStringLiteral("url"), url.toString(QUrl::FullyEncoded));
    }
    return QJsonDocument(o).toJson(QJsonDocument::Compact) + '\n';
}

bool SingleInstance::parseMessage(const QByteArray& data, bool* activate, QUrl* url)
{
    if (data.size() > MaxMessageBytes)
        return false;
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(data, &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject())
        return false;
    const QJsonObject o = doc.object();
    const QString command = o.value(QLatin1String("command")).toString();
    if (command == u"activate" && o.size() == 1) {
        *activate = true;
        return true;
    }
    if (command == u"open" && o.size() == 2 && o.value(QLatin1String("url")).isString()) {
        const QUrl parsed(o.value(QLatin1String("url")).toString(), QUrl::StrictMode);
        if (!parsed.isValid() || parsed.scheme().isEmpty())
            return false;
        *activate = false;
        *url = parsed;
        return true;
    }
    return false;
}

bool SingleInstance::sendToRunning(const QString& socketPath, const QUrl& url, int timeoutMs)
{
    QLocalSocket socket;
    socket.connectToServer(socketPath);
    if (!socket.waitForConnected(timeoutMs))
        return false;
    socket.write(encodeMessage(url));
    if (!socket.waitForBytesWritten(timeoutMs))
        return false;
    QByteArray reply;
    while (reply.size() < ack.size() && socket.waitForReadyRead(timeoutMs))
        reply += socket.readAll();
    return reply == ack;
}

bool SingleInstance::listen(QString* error)
{
    if (QFileInfo::exists(m_path)) {
        // Someone answering means a live instance: leave its socket alone.
        QLocalSocket probe;
        probe.connectToServer(m_path);
        if (probe.waitForConnected(1000)) {
            probe.abort();
            *error = QStringLiteral("another instance is running");
            return false;
        }
        QLocalServer::removeServer(m_path);
    }
    QDir().mkpath(QFileInfo(m_path).absolutePath());
    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    if (!m_server->listen(m_path)) {
        *error = m_server->errorString();
        return false;
    }
    connect(m_server, &QLocalServer::newConnection, this, &SingleInstance::acceptConnection);
    return true;
}

void SingleInstance::acceptConnection()
{
    while (QLocalSocket* socket = m_server->nextPendingConnection()) {
        if (!PeerCredentials::isSameUser(socket->socketDescriptor())) {
            socket->abort();
            socket->deleteLater();
            continue;
        }
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] { readFrom(socket); });
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        readFrom(socket);
    }
}

void SingleInstance::readFrom(QLocalSocket* socket)
{
    QByteArray buffer = socket->property("buffer").toByteArray();
    buffer += socket->read(MaxMessageBytes + 1 - buffer.size());
    const qsizetype newline = buffer.indexOf('\n');
    if (newline < 0) {
        if (buffer.size() > MaxMessageBytes)
            socket->abort();
        else
            socket->setProperty("buffer", buffer);
        return;
    }
    bool activate = false;
    QUrl url;
    const bool ok = parseMessage(buffer.left(newline), &activate, &url);
    if (ok)
        socket->write(ack);
    socket->disconnectFromServer();
    if (!ok)
        return;
    if (activate)
        emit activateRequested();
    else
        emit urlReceived(url);
}
