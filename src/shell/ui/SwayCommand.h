#pragma once

#include <QByteArray>
#include <QRect>
#include <QString>

#include <functional>

// Commands to sway over its IPC socket. Sway places floating Xwayland windows
// itself and ignores their own requests to move or to show on every workspace,
// so a floating panel asks sway directly where one runs.
class SwayCommand
{
public:
    // The socket of the sway this session runs in; empty elsewhere.
    static QString socketPath();
    // The message types used here.
    enum class Message : quint32 { RunCommand = 0, GetWorkspaces = 1 };
    // A message of sway's IPC ("i3-ipc", length, type, payload).
    static QByteArray encode(const QByteArray& payload, Message type = Message::RunCommand);
    // "[id=…] sticky enable, move absolute position X Y" (screen coordinates) for an Xwayland
    // window.
    static QByteArray placeSticky(quint32 x11Window, int x, int y);
    // "[id=…] floating enable, resize set W H, move absolute position X Y".
    static QByteArray floatAt(quint32 x11Window, const QRect& frame);
    // "[id=…] move absolute position X Y".
    static QByteArray moveTo(quint32 x11Window, int x, int y);
    // Sends `command` without waiting; sent again while sway answers that it failed
    // (a window it has not taken on yet), up to `attempts` times in all. False when
    // there is no socket to send to.
    static bool send(const QByteArray& command, const QString& socket = socketPath(),
                     int attempts = 20);
    // Asks sway for the area the focused workspace leaves to windows (the output
    // without its bars), which X11 clients cannot learn under sway; `answer` gets
    // it, unless sway does not answer. False when there is no socket.
    static bool workArea(std::function<void(const QRect&)> answer,
                         const QString& socket = socketPath());
    // Whether sway's JSON answer says every command succeeded.
    static bool succeeded(const QByteArray& answer);
    // The focused workspace's rectangle in a GET_WORKSPACES answer; empty if none.
    static QRect focusedWorkspace(const QByteArray& answer);

private:
    // Sends one message and hands the payload of sway's answer to `answer`.
    static bool ask(Message type, const QByteArray& payload, const QString& socket,
                    std::function<void(const QByteArray&)> answer);
};
