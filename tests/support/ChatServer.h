#pragma once

#include <QByteArray>
#include <QList>
#include <QMetaType>
#include <QObject>
#include <QPair>
#include <QString>
#include <QStringList>

#include <optional>

class QSslCertificate;
class QSslKey;
class QTcpServer;
class QTcpSocket;

/// What the loopback server answers to one request.
struct ChatResponse {
    enum class Framing { Chunked, ContentLength, CloseDelimited };
    enum class Ending {
        Complete, ///< the body ends properly and the connection closes
        Stall,    ///< nothing more is sent; the connection stays open
        Abort,    ///< the connection is cut without ending the body
        Reset,    ///< the connection is reset (TCP RST) without ending the body
    };
    struct Piece {
        QByteArray bytes;
        int delayMs = 0; ///< waited before this piece is written
    };

    int status = 200;
    QList<QPair<QByteArray, QByteArray>> headers;
    Framing framing = Framing::Chunked;
    QList<Piece> pieces;
    Ending ending = Ending::Complete;
    /// The Content-Length announced, when not the length of the pieces (a body cut short).
    qint64 declaredLength = -1;
    /// When set, written as it is (status line, headers and body) instead of the above.
    QByteArray raw;

    /// An event stream: each line is "data: " + payload, ended by `lineEnd`.
    static ChatResponse events(const QList<QByteArray>& payloads, const QByteArray& lineEnd = "\n");
    /// A status line, headers and body written as they are, to the byte.
    static ChatResponse rawBytes(const QByteArray& bytes);
    /// An error status with a JSON (or any) body.
    static ChatResponse error(int status, const QByteArray& body);
    /// `body` cut into pieces of `pieceSize` bytes.
    static ChatResponse split(const QByteArray& body, qsizetype pieceSize, int delayMs = 0);

    ChatResponse& piece(const QByteArray& bytes, int delayMs = 0);
};

Q_DECLARE_METATYPE(ChatResponse)

/// One request the server received.
struct RecordedRequest {
    QByteArray method;
    QByteArray path;
    QList<QPair<QByteArray, QByteArray>> headers;
    QByteArray body;

    /// The value of a header by case-insensitive name; null when absent.
    QByteArray header(const QByteArray& name) const;
    bool hasHeader(const QByteArray& name) const;
};

/// A chat-completions server on 127.0.0.1 with a port of its own, scripted per test: each
/// request takes the next queued response (404 when none is left) and is recorded.
class ChatServer : public QObject {
    Q_OBJECT

public:
    explicit ChatServer(QObject* parent = nullptr);
    ~ChatServer() override;

    quint16 port() const;
    /// "http://127.0.0.1:PORT/v1" ("https" once encrypted), to be stored as the base address.
    QString baseUrl() const;
    /// Every later connection is TLS with this certificate; one the client rejects is
    /// recorded nowhere.
    void encrypt(const QSslCertificate& certificate, const QSslKey& key);

    void enqueue(const ChatResponse& response);
    /// From now on every GET of {base}/models is answered with these ids, OpenAI style,
    /// and is recorded but takes nothing from the queue.
    void setModels(const QStringList& ids);
    /// The list `setModels` answers with: {"object":"list","data":[{"id":…},…]}.
    static QByteArray modelList(const QStringList& ids);
    const QList<RecordedRequest>& requests() const { return m_requests; }
    /// The text of message `index` (0 the system prompt, 1 the user's text) of a recorded
    /// chat request; empty when there is none.
    QString sentMessage(int request, int index) const;
    /// How many responses have been written to their scripted end.
    int completedResponses() const { return m_completed; }

private:
    struct Connection;
    void accept();
    void readFrom(Connection* connection);
    void respond(Connection* connection, const ChatResponse& response);
    void writePiece(Connection* connection, int index);
    void finish(Connection* connection);

    QTcpServer* m_server;
    QList<ChatResponse> m_queue;
    std::optional<QStringList> m_models;
    QList<RecordedRequest> m_requests;
    int m_completed = 0;
};
