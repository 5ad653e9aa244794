#pragma once

#include "InstanceMessage.h"

#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QString>
#include <QUrl>

class QSocketNotifier;
class QTimer;

// Keeps Tidewell to one process per user: the first one listens on a socket in
// the user's runtime directory, later ones hand it their request and exit.
// Only peers of the same user are served; each connection carries one small
// JSON line, {"command":"activate"} or {"command":"open","url":"..."}, optionally
// with the desktop's "activation" token, and gets "ok" or "refused <reason>" back.
// Idle and excess peers are dropped, so no client can hold the app.
// Plain Unix-domain sockets rather than QtNetwork, which would otherwise be
// loaded at every start for this alone.
class SingleInstance final : public QObject
{
    Q_OBJECT

public:
    static constexpr int MaxPeers = 16;
    static constexpr int PeerTimeoutMs = 3000;

    using Request = InstanceMessage;

    enum class Outcome {
        Delivered, // the running instance took it
        Refused,   // it answered that it will not (see `reason`)
        NoAnswer,  // nobody listens, or nobody answered in time
    };

    explicit SingleInstance(const QString& socketPath, QObject* parent = nullptr);
    ~SingleInstance() override;

    // $XDG_RUNTIME_DIR/<bundle identifier>.socket (Qt's per-user runtime folder
    // when the variable is unset).
    static QString defaultSocketPath();

    // Client side: hands `request` to a running instance. A request too large to
    // send is refused at once, without asking.
    static Outcome sendToRunning(const QString& socketPath, const Request& request, int timeoutMs,
                                 QString* reason = nullptr);

    // Server side: starts listening, replacing a stale socket left by a crash but
    // never a live one. False (with the reason) when another instance answers.
    bool listen(QString* error);

signals:
    void activateRequested(const QString& activation);
    void urlReceived(const QUrl& url, const QString& activation);

private:
    struct Peer
    {
        QSocketNotifier* notifier = nullptr;
        QTimer* timeout = nullptr;
        QByteArray buffer;
    };

    void acceptConnections();
    void readFrom(int fd);
    void answer(int fd, const QByteArray& line);
    void drop(int fd);

    QString m_path;
    int m_listener = -1;
    int m_spare = -1; // given up to accept and turn away a peer when out of descriptors
    QSocketNotifier* m_accepting = nullptr;
    QTimer* m_resumeAccepting = nullptr;
    QHash<int, Peer> m_peers;
};
