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
constexpr quint32 runCommand = 0;
constexpr int answerWaitMs = 2000;
constexpr int retryMs = 100;
constexpr qsizetype headerSize = 14; // "i3-ipc", length, type
} // namespace

QString SwayCommand::socketPath()
{
    return qEnvironmentVariable("SWAYSOCK");
}

QByteArray SwayCommand::encode(const QByteArray& command)
{
    QByteArray message = QByteArrayLiteral("i3-ipc");
    // Native byte order, as sway reads it.
    const quint32 header[2] = {quint32(command.size()), runCommand};
    message.append(reinterpret_cast<const char*>(header), sizeof header);
    return message + command;
}

QByteArray SwayCommand::placeSticky(quint32 x11Window, int x, int y)
{
    return moveTo(x11Window, x, y).replace("] move", "] sticky enable, move");
}

QByteArray SwayCommand::moveTo(quint32 x11Window, int x, int y)
{
    return QByteArrayLiteral("[id=") + QByteArray::number(x11Window) +
           QByteArrayLiteral("] move absolute position ") + QByteArray::number(x) + ' ' +
           QByteArray::number(y);
}

bool SwayCommand::send(const QByteArray& command, const QString& socket, int attempts)
{
    if (socket.isEmpty())
        return false;
    auto* connection = new QLocalSocket;
    const QByteArray message = encode(command);
    QObject::connect(connection, &QLocalSocket::connected, connection,
                     [connection, message] { connection->write(message); });
    auto answer = std::make_shared<QByteArray>();
    QObject::connect(connection, &QLocalSocket::readyRead, connection,
                     [connection, answer, command, socket, attempts] {
                         *answer += connection->readAll();
                         if (answer->size() < headerSize)
                             return;
                         quint32 length = 0;
                         memcpy(&length, answer->constData() + 6, sizeof length);
                         if (answer->size() < headerSize + qsizetype(length))
                             return;
                         connection->disconnectFromServer();
                         // A window sway has not taken on yet matches no criteria:
                         // asked again shortly.
                         if (!succeeded(answer->mid(headerSize)) && attempts > 1) {
                             QTimer::singleShot(retryMs, [command, socket, attempts] {
                                 send(command, socket, attempts - 1);
                             });
                         }
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
