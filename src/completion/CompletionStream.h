#pragma once

#include "completion/OpenAIError.h"
#include "completion/SseEvent.h"

#include <QObject>
#include <QPointer>
#include <QUrl>

#include <optional>

class QNetworkReply;

/// The answer of one chat-completion request, delivered as text fragments in the order the
/// server sends them. It ends exactly once: `finished()` or `failed()`, always from the event
/// loop, never while the request is being made.
///
/// The stream owns its transfer and deletes itself once the transfer is over, which may be
/// after it has ended (the rest of a body after the end marker is read and dropped). Hold it
/// in a QPointer.
class CompletionStream : public QObject {
    Q_OBJECT

public:
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

    enum class Body { Unknown, Events, ErrorText };

    CompletionStream(const QUrl& url, QObject* parent);
    void start(QNetworkReply* reply);
    void failLater(const CompletionError& error);

    void readAvailable();
    void transferFinished();
    bool readHead();
    void deliver(const QString& fragment);
    void end(const std::optional<CompletionError>& error);

    QUrl m_url;
    QPointer<QNetworkReply> m_reply;
    Body m_body = Body::Unknown;
    qint64 m_status = 0;
    SseEventReader m_events;
    SseLineSplitter m_errorLines;
    QString m_errorText;
    bool m_listening = true;
    bool m_ended = false;
};
