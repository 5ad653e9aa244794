#pragma once

#include <QHash>
#include <QSslConfiguration>
#include <QTcpServer>

#include <optional>

class QTcpSocket;
class QTimer;

// The listening socket, with the limits that keep one client from holding the
// server: a cap on open connections, an idle timeout between requests, a deadline
// for a request to arrive whole (slow senders), and caps on header and body size,
// all enforced before the HTTP parser buffers anything large. With a TLS
// configuration every connection is encrypted.
class ConnectionGuard final : public QTcpServer
{
    Q_OBJECT

public:
    struct Limits
    {
        int maxConnections = 512;
        int idleMs = 30'000;
        int requestMs = 20'000;
        qint64 maxHeaderBytes = 32 * 1024;
        qint64 maxBodyBytes = 8 * 1024 * 1024;
    };

    explicit ConnectionGuard(Limits limits, QObject* parent = nullptr);

    void setTls(const QSslConfiguration& tls) { m_tls = tls; }
    bool isTls() const { return m_tls.has_value(); }
    int openConnections() const { return int(m_incoming.size()); }
    const Limits& limits() const { return m_limits; }

    // Stops accepting and lets open connections finish their request; emits
    // drained() when none is left (or after `graceMs`).
    void drain(int graceMs);
    // The parser has taken a whole request off `socket`: the next bytes start another.
    void requestTaken(QTcpSocket* socket);

signals:
    void drained();

protected:
    void incomingConnection(qintptr descriptor) override;

private:
    void screen(QTcpSocket* socket);
    // Answers `status` on the raw socket and closes it; the parser never sees the request.
    static void refuse(QTcpSocket* socket, int status, const QByteArray& reason);
    void checkDrained();

    Limits m_limits;
    // Only made when TLS is asked for: a configuration loads the TLS library.
    std::optional<QSslConfiguration> m_tls;
    // What has arrived of the request under way on one connection. The parser reads
    // everything as it comes, so each readyRead carries only new bytes.
    struct Incoming
    {
        QByteArray head; // up to the end of the headers
        bool headerDone = false;
        qint64 received = 0;
        QTimer* idle = nullptr;
        QTimer* request = nullptr;
    };

    QHash<QTcpSocket*, Incoming> m_incoming; // open connections, whoever owns them now
    bool m_draining = false;
};
