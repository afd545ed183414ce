#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <QPair>

#include <functional>

/// Reads one HTTP/1.1 response from the bytes of its connection as they arrive: the head,
/// then the body without its framing (Content-Length, chunked, or up to the close of the
/// connection). It knows exactly where the body ends, so a body cut short or damaged is
/// told apart from a complete one.
class HttpResponseReader {
public:
    enum class State {
        Head,     ///< the head has not been read yet
        Body,     ///< the head is read; body bytes follow
        Complete, ///< the body ended where its framing says
        Failed,   ///< see `failure()`
    };
    enum class Failure {
        None,
        NotHttp,        ///< the connection does not answer with an HTTP response
        HeadTooLong,    ///< the head does not end within `maxHeadSize`
        BadLength,      ///< the Content-Length cannot be read
        BadChunk,       ///< the chunked framing is broken
        CutShort,       ///< the connection closed before the body was complete
        CompressedBody, ///< the body is encoded although an unencoded one was asked for
    };

    static constexpr qsizetype maxHeadSize = 64 * 1024;
    static constexpr qsizetype maxChunkLineSize = 4 * 1024;

    /// Reads `bytes`; calls `onBody` for each piece of body bytes, in order. Stops at the
    /// end of the body or at the first failure; later bytes are ignored.
    State feed(QByteArrayView bytes, const std::function<void(QByteArrayView)>& onBody);
    /// The peer closed the connection: the end of a body that has no length of its own,
    /// a failure for any other body that is not yet complete.
    State connectionClosed();

    State state() const { return m_state; }
    Failure failure() const { return m_failure; }
    int status() const { return m_status; }
    /// The value of a header by case-insensitive name, null when absent.
    QByteArray header(QByteArrayView name) const;
    /// The declared body length, -1 when the body has none.
    qint64 contentLength() const { return m_contentLength; }
    qint64 bodyBytesRead() const { return m_bodyBytes; }

private:
    enum class Framing { None, Length, Chunked, UntilClose };
    enum class ChunkStep { Size, Data, DataEnd, Trailer };

    qsizetype readHead(QByteArrayView bytes);
    bool parseHead(QByteArrayView head);
    qsizetype readChunked(QByteArrayView bytes, const std::function<void(QByteArrayView)>& onBody);
    void fail(Failure failure);

    State m_state = State::Head;
    Failure m_failure = Failure::None;
    QByteArray m_pending;
    int m_status = 0;
    QList<QPair<QByteArray, QByteArray>> m_headers;
    Framing m_framing = Framing::None;
    qint64 m_contentLength = -1;
    qint64 m_bodyBytes = 0;
    qint64 m_chunkLeft = 0;
    ChunkStep m_chunkStep = ChunkStep::Size;
};
