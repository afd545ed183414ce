#pragma once

#include "completion/HttpResponseReader.h"
#include "completion/OpenAIError.h"
#include "completion/SseEvent.h"

#include <QAbstractSocket>
#include <QNetworkProxy>
#include <QObject>
#include <QPointer>
#include <QSslError>
#include <QTimer>
#include <QUrl>

#include <chrono>
#include <optional>

/// The answer of one chat-completion request, delivered as text fragments in the order the
/// server sends them. It ends exactly once: `finished()` or `failed()`, always from the event
/// loop, never while the request is being made. A body cut short or damaged in transit is a
/// failure, never a complete answer.
///
/// The stream owns its connection and deletes itself once the transfer is over, which may be
/// after it has ended (the rest of a body after the end marker is read and dropped). Hold it
/// in a QPointer.
class CompletionStream : public QObject {
    Q_OBJECT

public:
    /// The most of an error body that is kept; the rest is counted, not kept.
    static constexpr qsizetype maxErrorTextBytes = 64 * 1024;
    /// The most a whole answer (`WholeBody`) may hold; a larger one fails.
    static constexpr qsizetype maxWholeBodyBytes = 4 * 1024 * 1024;

    enum class Reading {
        Events,    ///< a successful body is an event stream, read into fragments
        WholeBody, ///< a successful body is kept whole, for `body()` once finished
    };

    /// The successful body of a `WholeBody` transfer, complete once `finished()` came.
    QByteArray body() const { return m_body; }

    /// No signal is emitted any more. The transfer still runs to its end, unseen.
    void stopListening() { m_listening = false; }
    bool isListening() const { return m_listening; }
    bool hasEnded() const { return m_ended; }

signals:
    void fragmentReceived(const QString& fragment);
    void finished();
    void failed(const CompletionError& error);

private:
    friend class OpenAIClient;

    CompletionStream(const QUrl& url, QObject* parent, Reading reading = Reading::Events);
    void start(const QByteArray& request, std::chrono::milliseconds idleTimeout);
    void failLater(const CompletionError& error);

    void send();
    void readAvailable();
    void socketFailed(QAbstractSocket::SocketError code);
    void readBody(QByteArrayView bytes);
    void bodyComplete();
    void transferFailed(const CompletionError& error);
    void closeTransfer();
    QString errorText() const;
    void deliver(const QString& fragment);
    void end(const std::optional<CompletionError>& error);

    QUrl m_url;
    QNetworkProxy m_proxy;
    QByteArray m_request;
    QPointer<QAbstractSocket> m_socket;
    QTimer m_idle;
    QList<QSslError> m_sslErrors;
    HttpResponseReader m_response;
    SseEventReader m_events;
    Reading m_reading;
    QByteArray m_body;
    QByteArray m_errorBytes;
    qint64 m_errorBytesLeftOut = 0;
    bool m_listening = true;
    bool m_ended = false;
};
