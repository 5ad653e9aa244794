#pragma once

#include <QByteArray>
#include <QString>

// Commands to sway over its IPC socket. Sway places floating Xwayland windows
// itself and ignores their own requests to move or to show on every workspace,
// so a floating panel asks sway directly where one runs.
class SwayCommand
{
public:
    // The socket of the sway this session runs in; empty elsewhere.
    static QString socketPath();
    // A RUN_COMMAND message of sway's IPC ("i3-ipc", length, type, payload).
    static QByteArray encode(const QByteArray& command);
    // "[id=…] sticky enable, move absolute position X Y" (screen coordinates) for an Xwayland
    // window.
    static QByteArray placeSticky(quint32 x11Window, int x, int y);
    // "[id=…] move absolute position X Y".
    static QByteArray moveTo(quint32 x11Window, int x, int y);
    // Sends `command` without waiting; sent again while sway answers that it failed
    // (a window it has not taken on yet), up to `attempts` times in all. False when
    // there is no socket to send to.
    static bool send(const QByteArray& command, const QString& socket = socketPath(),
                     int attempts = 20);
    // Whether sway's JSON answer says every command succeeded.
    static bool succeeded(const QByteArray& answer);
};
