#include "ChatServer.h"

#include <QHostAddress>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPointer>
#include <QSslConfiguration>
#include <QSslKey>
#include <QSslSocket>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <optional>

#include <sys/socket.h>

struct ChatServer::Connection {
    QPointer<QTcpSocket> socket;
    QByteArray received;
    ChatResponse response;
    bool answering = false;
    bool delayed = false;
};

namespace {

class TlsCapableServer : public QTcpServer {
public:
    using QTcpServer::QTcpServer;
    std::optional<QSslConfiguration> tls;

protected:
    void incomingConnection(qintptr descriptor) override
    {
        if (!tls) {
            QTcpServer::incomingConnection(descriptor);
            return;
        }
        auto* socket = new QSslSocket(this);
        if (!socket->setSocketDescriptor(descriptor)) {
            delete socket;
            return;
        }
        socket->setSslConfiguration(*tls);
        addPendingConnection(socket);
        socket->startServerEncryption();
    }
};

QByteArray reasonPhrase(int status)
{
    switch (status) {
    case 200:
        return "OK";
    case 201:
        return "Created";
    case 204:
        return "No Content";
    case 307:
        return "Temporary Redirect";
    case 400:
        return "Bad Request";
    case 401:
        return "Unauthorized";
    case 404:
        return "Not Found";
    case 305:
        return "Use Proxy";
    case 407:
        return "Proxy Authentication Required";
    case 429:
        return "Too Many Requests";
    case 500:
        return "Internal Server Error";
    default:
        return "Status";
    }
}

} // namespace

ChatResponse ChatResponse::events(const QList<QByteArray>& payloads, const QByteArray& lineEnd)
{
    ChatResponse response;
    response.headers.append(qMakePair(QByteArray("Content-Type"), QByteArray("text/event-stream")));
    for (const QByteArray& payload : payloads) {
        response.pieces.append(Piece{"data: " + payload + lineEnd + lineEnd, 0});
    }
    return response;
}

ChatResponse ChatResponse::rawBytes(const QByteArray& bytes)
{
    ChatResponse response;
    response.raw = bytes;
    return response;
}

ChatResponse ChatResponse::error(int status, const QByteArray& body)
{
    ChatResponse response;
    response.status = status;
    response.headers.append(qMakePair(QByteArray("Content-Type"), QByteArray("application/json")));
    response.framing = Framing::ContentLength;
    response.pieces.append(Piece{body, 0});
    return response;
}

QString ChatServer::sentMessage(int request, int index) const
{
    return QJsonDocument::fromJson(m_requests.value(request).body)
        .object()
        .value(QLatin1String("messages"))
        .toArray()
        .at(index)
        .toObject()
        .value(QLatin1String("content"))
        .toString();
}

QByteArray ChatServer::modelList(const QStringList& ids)
{
    QJsonArray data;
    for (const QString& id : ids) {
        data.append(QJsonObject{{QLatin1String("id"), id},
                                {QLatin1String("object"), QLatin1String("model")},
                                {QLatin1String("owned_by"), QLatin1String("local")}});
    }
    return QJsonDocument(QJsonObject{{QLatin1String("object"), QLatin1String("list")},
                                     {QLatin1String("data"), data}})
        .toJson(QJsonDocument::Compact);
}

void ChatServer::setModels(const QStringList& ids)
{
    m_models = ids;
}

ChatResponse ChatResponse::split(const QByteArray& body, qsizetype pieceSize, int delayMs)
{
    ChatResponse response;
    response.headers.append(qMakePair(QByteArray("Content-Type"), QByteArray("text/event-stream")));
    for (qsizetype at = 0; at < body.size(); at += pieceSize) {
        response.pieces.append(Piece{body.mid(at, pieceSize), delayMs});
    }
    return response;
}

ChatResponse& ChatResponse::piece(const QByteArray& bytes, int delayMs)
{
    pieces.append(Piece{bytes, delayMs});
    return *this;
}

QByteArray RecordedRequest::header(const QByteArray& name) const
{
    for (const auto& [key, value] : headers) {
        if (key.compare(name, Qt::CaseInsensitive) == 0) {
            return value;
        }
    }
    return {};
}

bool RecordedRequest::hasHeader(const QByteArray& name) const
{
    for (const auto& entry : headers) {
        if (entry.first.compare(name, Qt::CaseInsensitive) == 0) {
            return true;
        }
    }
    return false;
}

ChatServer::ChatServer(QObject* parent)
    : QObject(parent)
    , m_server(new TlsCapableServer(this))
{
    if (!m_server->listen(QHostAddress::LocalHost, 0)) {
        qFatal("ChatServer cannot listen: %s", qPrintable(m_server->errorString()));
    }
    connect(m_server, &QTcpServer::newConnection, this, &ChatServer::accept);
}

ChatServer::~ChatServer() = default;

quint16 ChatServer::port() const
{
    return m_server->serverPort();
}

QString ChatServer::baseUrl() const
{
    const bool encrypted = static_cast<TlsCapableServer*>(m_server)->tls.has_value();
    return QStringLiteral("%1://127.0.0.1:%2/v1")
        .arg(encrypted ? QLatin1String("https") : QLatin1String("http"))
        .arg(port());
}

void ChatServer::encrypt(const QSslCertificate& certificate, const QSslKey& key)
{
    QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
    tls.setLocalCertificate(certificate);
    tls.setPrivateKey(key);
    tls.setPeerVerifyMode(QSslSocket::VerifyNone);
    static_cast<TlsCapableServer*>(m_server)->tls = tls;
}

void ChatServer::enqueue(const ChatResponse& response)
{
    m_queue.append(response);
}

void ChatServer::accept()
{
    while (QTcpSocket* socket = m_server->nextPendingConnection()) {
        auto* connection = new Connection{socket, {}, {}, false, false};
        connect(socket, &QTcpSocket::readyRead, this, [this, connection] { readFrom(connection); });
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QObject::destroyed, this, [connection] { delete connection; });
    }
}

void ChatServer::readFrom(Connection* connection)
{
    connection->received += connection->socket->readAll();
    if (connection->answering) {
        return;
    }
    // Anything that does not start like an HTTP request (a TLS greeting, say) gets what
    // a plain HTTP server answers.
    const char first = connection->received.isEmpty() ? 'A' : connection->received.at(0);
    if (first < 'A' || first > 'Z') {
        connection->answering = true;
        connection->socket->write("HTTP/1.1 400 Bad Request\r\nConnection: close\r\n\r\n");
        connection->socket->disconnectFromHost();
        return;
    }
    const qsizetype headEnd = connection->received.indexOf("\r\n\r\n");
    if (headEnd < 0) {
        return;
    }
    RecordedRequest request;
    const QList<QByteArray> lines = connection->received.left(headEnd).split('\n');
    const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
    request.method = requestLine.value(0);
    request.path = requestLine.value(1);
    qsizetype contentLength = 0;
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const QByteArray line = lines.at(i).trimmed();
        const qsizetype colon = line.indexOf(':');
        if (colon <= 0) {
            continue;
        }
        const QByteArray name = line.left(colon).trimmed();
        // The value as sent: only the blank after the colon is not part of it.
        QByteArray value = lines.at(i).mid(colon + 1);
        if (value.endsWith('\r')) {
            value.chop(1);
        }
        if (value.startsWith(' ')) {
            value.remove(0, 1);
        }
        request.headers.append({name, value});
        if (name.compare("Content-Length", Qt::CaseInsensitive) == 0) {
            contentLength = value.toLongLong();
        }
    }
    const qsizetype bodyStart = headEnd + 4;
    if (connection->received.size() - bodyStart < contentLength) {
        return;
    }
    request.body = connection->received.mid(bodyStart, contentLength);
    connection->answering = true;
    m_requests.append(request);

    ChatResponse response;
    if (m_models && request.method == "GET" && request.path == "/v1/models") {
        response = ChatResponse::error(200, modelList(*m_models));
    } else if (m_queue.isEmpty()) {
        response = ChatResponse::error(404, R"({"error":"no scripted response"})");
    } else {
        response = m_queue.takeFirst();
    }
    respond(connection, response);
}

void ChatServer::respond(Connection* connection, const ChatResponse& response)
{
    connection->response = response;
    if (!response.raw.isEmpty()) {
        connection->response.pieces = {ChatResponse::Piece{response.raw, 0}};
        connection->response.framing = ChatResponse::Framing::CloseDelimited;
        writePiece(connection, 0);
        return;
    }
    QByteArray head = "HTTP/1.1 " + QByteArray::number(response.status) + ' ' +
                      reasonPhrase(response.status) + "\r\n";
    for (const auto& [name, value] : response.headers) {
        head += name + ": " + value + "\r\n";
    }
    if (response.framing == ChatResponse::Framing::Chunked) {
        head += "Transfer-Encoding: chunked\r\n";
    } else if (response.framing == ChatResponse::Framing::ContentLength) {
        qsizetype length = 0;
        for (const auto& piece : response.pieces) {
            length += piece.bytes.size();
        }
        if (response.declaredLength >= 0) {
            length = response.declaredLength;
        }
        head += "Content-Length: " + QByteArray::number(length) + "\r\n";
    }
    head += "Connection: close\r\n\r\n";
    connection->socket->write(head);
    writePiece(connection, 0);
}

void ChatServer::writePiece(Connection* connection, int index)
{
    // Pieces without a delay go out at once, one after the other; a delay hands the rest
    // to a timer.
    for (; connection->socket && index < connection->response.pieces.size(); ++index) {
        const ChatResponse::Piece& piece = connection->response.pieces.at(index);
        if (piece.delayMs > 0 && !connection->delayed) {
            connection->delayed = true;
            QTimer::singleShot(piece.delayMs, connection->socket,
                               [this, connection, index] { writePiece(connection, index); });
            return;
        }
        connection->delayed = false;
        if (connection->response.framing != ChatResponse::Framing::Chunked) {
            connection->socket->write(piece.bytes);
        } else if (!piece.bytes.isEmpty()) {
            connection->socket->write(QByteArray::number(piece.bytes.size(), 16) + "\r\n" +
                                      piece.bytes + "\r\n");
        }
        connection->socket->flush();
    }
    if (connection->socket) {
        finish(connection);
    }
}

void ChatServer::finish(Connection* connection)
{
    QTcpSocket* socket = connection->socket;
    switch (connection->response.ending) {
    case ChatResponse::Ending::Complete:
        if (connection->response.framing == ChatResponse::Framing::Chunked &&
            connection->response.raw.isEmpty()) {
            socket->write("0\r\n\r\n");
        }
        socket->disconnectFromHost();
        break;
    case ChatResponse::Ending::Stall:
        break;
    case ChatResponse::Ending::Abort:
        socket->flush();
        socket->abort();
        break;
    case ChatResponse::Ending::Reset: {
        // Lingering for no time turns the close into a reset.
        socket->flush();
        const linger noLinger{1, 0};
        ::setsockopt(static_cast<int>(socket->socketDescriptor()), SOL_SOCKET, SO_LINGER, &noLinger,
                     sizeof noLinger);
        socket->abort();
        break;
    }
    }
    ++m_completed;
}
