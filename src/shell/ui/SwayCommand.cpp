#include "SwayCommand.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalSocket>
#include <QTimer>

#include <algorithm>
#include <cstring>
#include <memory>

namespace {
constexpr int answerWaitMs = 2000;
constexpr int retryMs = 100;
constexpr qsizetype headerSize = 14; // "i3-ipc", length, type
} // namespace

QString SwayCommand::socketPath()
{
    return qEnvironmentVariable("SWAYSOCK");
}

QByteArray SwayCommand::encode(const QByteArray& payload, Message type)
{
    QByteArray message = QByteArrayLiteral("i3-ipc");
    // Native byte order, as sway reads it.
    const quint32 header[2] = {quint32(payload.size()), quint32(type)};
    message.append(reinterpret_cast<const char*>(header), sizeof header);
    return message + payload;
}

QByteArray SwayCommand::placeSticky(quint32 x11Window, int x, int y)
{
    return moveTo(x11Window, x, y).replace("] move", "] sticky enable, move");
}

QByteArray SwayCommand::floatAt(quint32 x11Window, const QRect& frame)
{
    const QByteArray size =
        QByteArray::number(frame.width()) + ' ' + QByteArray::number(frame.height());
    return moveTo(x11Window, frame.x(), frame.y())
        .replace("] move", QByteArray("] floating enable, resize set " + size + ", move"));
}

QByteArray SwayCommand::moveTo(quint32 x11Window, int x, int y)
{
    return QByteArrayLiteral("[id=") + QByteArray::number(x11Window) +
           QByteArrayLiteral("] move absolute position ") + QByteArray::number(x) + ' ' +
           QByteArray::number(y);
}

bool SwayCommand::send(const QByteArray& command, const QString& socket, int attempts)
{
    return ask(Message::RunCommand, command, socket,
               [command, socket, attempts](const QByteArray& answer) {
                   // A window sway has not taken on yet matches no criteria: asked
                   // again shortly.
                   if (!succeeded(answer) && attempts > 1) {
                       QTimer::singleShot(retryMs, [command, socket, attempts] {
                           send(command, socket, attempts - 1);
                       });
                   }
               });
}

bool SwayCommand::workArea(std::function<void(const QRect&)> answer, const QString& socket)
{
    return ask(Message::GetWorkspaces, {}, socket,
               [answer = std::move(answer)](const QByteArray& workspaces) {
                   const QRect area = focusedWorkspace(workspaces);
                   if (area.isValid())
                       answer(area);
               });
}

bool SwayCommand::ask(Message type, const QByteArray& payload, const QString& socket,
                      std::function<void(const QByteArray&)> answer)
{
    if (socket.isEmpty())
        return false;
    auto* connection = new QLocalSocket;
    const QByteArray message = encode(payload, type);
    QObject::connect(connection, &QLocalSocket::connected, connection,
                     [connection, message] { connection->write(message); });
    auto received = std::make_shared<QByteArray>();
    QObject::connect(connection, &QLocalSocket::readyRead, connection,
                     [connection, received, answer = std::move(answer)] {
                         *received += connection->readAll();
                         if (received->size() < headerSize)
                             return;
                         quint32 length = 0;
                         memcpy(&length, received->constData() + 6, sizeof length);
                         if (received->size() < headerSize + qsizetype(length))
                             return;
                         connection->disconnectFromServer();
                         answer(received->mid(headerSize, length));
                     });
    // The socket goes once sway has answered, or failed, or taken too long.
    QObject::connect(connection, &QLocalSocket::disconnected, connection, &QObject::deleteLater);
    QObject::connect(connection, &QLocalSocket::errorOccurred, connection, &QObject::deleteLater);
    QTimer::singleShot(answerWaitMs, connection, &QObject::deleteLater);
    connection->connectToServer(socket);
    return true;
}

bool SwayCommand::succeeded(const QByteArray& answer)
{
    const QJsonArray results = QJsonDocument::fromJson(answer).array();
    return !results.isEmpty() &&
           std::all_of(results.begin(), results.end(), [](const QJsonValue& result) {
               return result.toObject().value(QLatin1String("success")).toBool();
           });
}

QRect SwayCommand::focusedWorkspace(const QByteArray& answer)
{
    for (const QJsonValue& workspace : QJsonDocument::fromJson(answer).array()) {
        const QJsonObject o = workspace.toObject();
        if (!o.value(QLatin1String("focused")).toBool())
            continue;
        const QJsonObject r = o.value(QLatin1String("rect")).toObject();
        return QRect(r.value(QLatin1String("x")).toInt(), r.value(QLatin1String("y")).toInt(),
                     r.value(QLatin1String("width")).toInt(),
                     r.value(QLatin1String("height")).toInt());
    }
    return {};
}
