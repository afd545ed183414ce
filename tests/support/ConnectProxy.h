#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>

class QTcpServer;
class QTcpSocket;

/// An HTTP proxy on 127.0.0.1 that only opens tunnels (CONNECT), as corporate proxies do.
/// Every tunnel leads to 127.0.0.1 at the port asked for, whatever the host name; each
/// CONNECT head is recorded as it arrived.
class ConnectProxy : public QObject {
    Q_OBJECT

public:
    enum class Mode {
        Tunnel,     ///< opens every tunnel
        Refuse,     ///< answers every CONNECT with 403
        Credentials ///< asks for Basic credentials (407) until the right ones come
    };

    explicit ConnectProxy(Mode mode = Mode::Tunnel, QObject* parent = nullptr);

    quint16 port() const;
    /// "http://127.0.0.1:PORT", or with "user:password@" in Credentials mode.
    QString address() const;
    /// The CONNECT heads received, request line and headers.
    const QList<QByteArray>& heads() const { return m_heads; }

    static constexpr const char* user = "ravelo";
    static constexpr const char* password = "s3cret:pass";

private:
    void accept();

    QTcpServer* m_server;
    Mode m_mode;
    QList<QByteArray> m_heads;
};
