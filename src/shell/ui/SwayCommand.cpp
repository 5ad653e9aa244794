#include "SwayCommand.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSocketNotifier>
#include <QTimer>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {
constexpr int answerWaitMs = 2000;
constexpr int retryMs = 100;
constexpr int confirmMs = 300;
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
                   // A window sway has not taken on yet matches no criteria; and one it
                   // has just taken on may still be centred after the command ran. So
                   // a failure is retried shortly, and a success confirmed once.
                   if (attempts <= 1)
                       return;
                   const bool done = succeeded(answer);
                   QTimer::singleShot(done ? confirmMs : retryMs,
                                      [command, socket, attempts, done] {
                                          send(command, socket, done ? 1 : attempts - 1);
                                      });
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
    // A plain Unix socket rather than QLocalSocket, which would load Qt Network (and
    // the TLS, proxy and Kerberos libraries under it) at every start on sway.
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const QByteArray path = QFile::encodeName(socket);
    if (size_t(path.size()) >= sizeof(address.sun_path))
        return false;
    std::memcpy(address.sun_path, path.constData(), size_t(path.size()));
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    // A request is a few hundred bytes: it fits the socket's buffer in one send.
    const QByteArray message = encode(payload, type);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        ::send(fd, message.constData(), size_t(message.size()), MSG_NOSIGNAL) !=
            ssize_t(message.size())) {
        ::close(fd); // sway has gone: nothing to wait for
        return true;
    }
    // The socket goes once sway has answered, or failed, or taken too long.
    auto* reader = new QSocketNotifier(qintptr(fd), QSocketNotifier::Read);
    auto finish = [reader, fd] {
        if (!reader->isEnabled())
            return;
        reader->setEnabled(false);
        ::close(fd);
        reader->deleteLater();
    };
    auto received = std::make_shared<QByteArray>();
    QObject::connect(reader, &QSocketNotifier::activated, reader,
                     [fd, received, finish, answer = std::move(answer)] {
                         char chunk[4096];
                         const ssize_t got = ::recv(fd, chunk, sizeof chunk, 0);
                         if (got < 0 && (errno == EAGAIN || errno == EINTR))
                             return;
                         if (got <= 0)
                             return finish();
                         received->append(chunk, got);
                         if (received->size() < headerSize)
                             return;
                         quint32 length = 0;
                         std::memcpy(&length, received->constData() + 6, sizeof length);
                         if (received->size() < headerSize + qsizetype(length))
                             return;
                         finish();
                         answer(received->mid(headerSize, length));
                     });
    QTimer::singleShot(answerWaitMs, reader, finish);
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
