#include "ConnectProxy.h"

#include <QHostAddress>
#include <QTcpServer>
#include <QTcpSocket>
#include <QUrl>

ConnectProxy::ConnectProxy(Mode mode, QObject* parent)
    : QObject(parent)
    , m_server(new QTcpServer(this))
    , m_mode(mode)
{
    if (!m_server->listen(QHostAddress::LocalHost, 0)) {
        qFatal("ConnectProxy cannot listen: %s", qPrintable(m_server->errorString()));
    }
    connect(m_server, &QTcpServer::newConnection, this, &ConnectProxy::accept);
}

quint16 ConnectProxy::port() const
{
    return m_server->serverPort();
}

QString ConnectProxy::address() const
{
    QUrl url(QStringLiteral("http://127.0.0.1"));
    url.setPort(port());
    if (m_mode == Mode::Credentials) {
        url.setUserName(QString::fromLatin1(user));
        url.setPassword(QString::fromLatin1(password));
    }
    return url.toString(QUrl::FullyEncoded);
}

void ConnectProxy::accept()
{
    while (QTcpSocket* client = m_server->nextPendingConnection()) {
        connect(client, &QTcpSocket::disconnected, client, &QObject::deleteLater);
        auto* received = new QByteArray;
        connect(client, &QObject::destroyed, this, [received] { delete received; });
        connect(client, &QTcpSocket::readyRead, this, [this, client, received] {
            if (client->property("tunnel").toBool()) {
                return;
            }
            *received += client->readAll();
            const qsizetype headEnd = received->indexOf("\r\n\r\n");
            if (headEnd < 0) {
                return;
            }
            const QByteArray head = received->left(headEnd);
            const QByteArray rest = received->mid(headEnd + 4);
            received->clear();
            m_heads.append(head);
            const QList<QByteArray> requestLine = head.split('\n').value(0).trimmed().split(' ');
            const QByteArray expected =
                "Proxy-Authorization: Basic " +
                QByteArray(QByteArray(user) + ':' + QByteArray(password)).toBase64();
            const quint16 port = requestLine.value(1).split(':').value(1).toUShort();
            if (requestLine.value(0) != "CONNECT" || port == 0 || m_mode == Mode::Refuse) {
                client->write("HTTP/1.1 403 Forbidden\r\nContent-Length: 0\r\n\r\n");
                return;
            }
            if (m_mode == Mode::Credentials && !head.contains(expected)) {
                client->write("HTTP/1.1 407 Proxy Authentication Required\r\n"
                              "Proxy-Authenticate: Basic realm=\"proxy\"\r\n"
                              "Content-Length: 0\r\n\r\n");
                return;
            }
            client->setProperty("tunnel", true);
            auto* server = new QTcpSocket(client);
            connect(server, &QTcpSocket::connected, client, [client, server, rest] {
                client->write("HTTP/1.1 200 Connection established\r\n\r\n");
                server->write(rest + client->readAll());
            });
            connect(server, &QTcpSocket::readyRead, client,
                    [client, server] { client->write(server->readAll()); });
            connect(client, &QTcpSocket::readyRead, server,
                    [client, server] { server->write(client->readAll()); });
            connect(server, &QTcpSocket::disconnected, client, [client, server] {
                client->write(server->readAll());
                client->disconnectFromHost();
            });
            connect(client, &QTcpSocket::disconnected, server,
                    [server] { server->disconnectFromHost(); });
            connect(server, &QTcpSocket::errorOccurred, client, [client, server] {
                if (server->state() != QAbstractSocket::ConnectedState) {
                    client->abort();
                }
            });
            server->connectToHost(QHostAddress::LocalHost, port);
        });
    }
}
