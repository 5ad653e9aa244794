#pragma once

#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QString>
#include <QUrl>

class QSocketNotifier;

// Keeps Tidewell to one process per user: the first one listens on a socket in
// the user's runtime directory, later ones hand it their request and exit.
// Only peers of the same user are served; each connection carries one small
// JSON message: {"command":"activate"} or {"command":"open","url":"..."}.
// Plain Unix-domain sockets rather than QtNetwork, which would otherwise be
// loaded at every start for this alone.
class SingleInstance final : public QObject
{
    Q_OBJECT

public:
    static constexpr qsizetype MaxMessageBytes = 64 * 1024;

    explicit SingleInstance(const QString& socketPath, QObject* parent = nullptr);
    ~SingleInstance() override;

    // $XDG_RUNTIME_DIR/<bundle identifier>.socket (Qt's per-user runtime folder
    // when the variable is unset).
    static QString defaultSocketPath();

    // Client side: hands `url` (or, when empty, a request to show the hub) to a
    // running instance. True only when that instance acknowledged it.
    static bool sendToRunning(const QString& socketPath, const QUrl& url, int timeoutMs = 3000);

    // Server side: starts listening, replacing a stale socket left by a crash but
    // never a live one. False (with the reason) when another instance answers.
    bool listen(QString* error);

    // Parses one message; false when it is not exactly one of the two forms.
    static bool parseMessage(const QByteArray& data, bool* activate, QUrl* url);
    static QByteArray encodeMessage(const QUrl& url);

signals:
    void activateRequested();
    void urlReceived(const QUrl& url);

private:
    struct Peer
    {
        QSocketNotifier* notifier = nullptr;
        QByteArray buffer;
    };

    void acceptConnections();
    void readFrom(int fd);
    void drop(int fd);

    QString m_path;
    int m_listener = -1;
    QSocketNotifier* m_accepting = nullptr;
    QHash<int, Peer> m_peers;
};
