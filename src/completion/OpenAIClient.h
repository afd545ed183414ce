#pragma once

#include "completion/CompletionStream.h"
#include "completion/HttpResponseReader.h"
#include "completion/OpenAIError.h"

#include <QByteArray>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QString>
#include <QUrl>

#include <chrono>

/// Streams chat completions from the OpenAI API or an OpenAI-compatible server. The client
/// holds no state between calls: every call builds its address, request and body anew and
/// opens a connection of its own (HTTP/1.1, TLS for https).
class OpenAIClient {
    Q_DECLARE_TR_FUNCTIONS(OpenAIClient)

public:
    static constexpr std::chrono::milliseconds defaultTransferTimeout{60'000};

    /// `baseUrl` replaces "https://api.openai.com/v1" when not blank; the request goes to
    /// the base followed by "/chat/completions".
    /// The streams are children of `owner`.
    explicit OpenAIClient(QObject* owner, const QString& baseUrl = {});

    /// How long the transfer may go without receiving anything before it fails.
    void setTransferTimeout(std::chrono::milliseconds timeout) { m_transferTimeout = timeout; }

    /// Sends the request at once and returns its answer. Never fails here: every failure,
    /// an empty key for OpenAI included, ends the returned stream. With a base address an
    /// empty key sends no Authorization header at all. The stream is a child of the
    /// owner.
    CompletionStream* streamCompletion(const QString& apiKey, const QString& model,
                                       const QString& systemPrompt, const QString& userText) const;

    /// Asks the server which models it offers: GET on the base followed by "/models", with
    /// the key as Bearer when there is one. The stream reads the whole body
    /// (`CompletionStream::Reading::WholeBody`) and is a child of the owner.
    CompletionStream* listModels(const QString& apiKey) const;

    /// The chat-completions address for a base address; an invalid QUrl when the base does
    /// not parse or is neither http nor https.
    static QUrl endpoint(const QString& baseUrl);
    /// The model-list address for a base address; invalid like `endpoint`.
    static QUrl modelsEndpoint(const QString& baseUrl);
    /// The compact JSON body: "model", "stream": true and the system and user messages.
    static QByteArray requestBody(const QString& model, const QString& systemPrompt,
                                  const QString& userText);
    /// The whole request as it goes on the wire: head and body; no Authorization header
    /// when `apiKey` is empty.
    static QByteArray requestBytes(const QUrl& url, const QString& apiKey, const QByteArray& body);
    /// A GET request as it goes on the wire.
    static QByteArray getRequestBytes(const QUrl& url, const QString& apiKey);
    /// A readable account of a failed transfer to `url`.
    static TransportError transportError(QNetworkReply::NetworkError code, const QUrl& url,
                                         const QString& detail);
    /// A readable account of a failure of `proxy` on the way to `url`.
    static TransportError proxyError(QNetworkReply::NetworkError code, const QNetworkProxy& proxy,
                                     const QUrl& url, const QString& detail);
    /// The proxy the user's system names for `url` (http_proxy, https_proxy and no_proxy,
    /// or the desktop's settings), or none; none for a server on this machine's loopback
    /// ("localhost", 127.0.0.0/8, ::1). An HTTP proxy is only ever asked to open a
    /// tunnel (CONNECT) to the server: the request itself goes through the tunnel.
    static QNetworkProxy proxyFor(const QUrl& url);
    /// "host:port" of a proxy, for messages; its credentials are left out.
    static QString proxyName(const QNetworkProxy& proxy);
    /// A readable account of a response that ended before its end or arrived damaged.
    static TransportError responseError(const HttpResponseReader& response, const QUrl& url);
    /// "host:port" as the user wrote it, for messages.
    static QString serverName(const QUrl& url);

private:
    static QUrl address(const QString& baseUrl, QLatin1String leaf);
    /// The stream of a request that cannot be sent (no key for OpenAI, no address, a key
    /// that cannot go into a header), or null.
    CompletionStream* refused(const QUrl& url, const QString& apiKey,
                              CompletionStream::Reading reading) const;

    QObject* m_owner;
    QString m_baseUrl;
    std::chrono::milliseconds m_transferTimeout = defaultTransferTimeout;
};
