#include "completion/OpenAIClient.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkRequest>

#include <algorithm>

namespace {

const QString openAIBaseUrl = QStringLiteral("https://api.openai.com/v1");

QString hostOf(const QUrl& url)
{
    QString host = url.host();
    if (url.port() != -1) {
        host += QLatin1Char(':') + QString::number(url.port());
    }
    return host.isEmpty() ? QStringLiteral("the server") : host;
}

} // namespace

OpenAIClient::OpenAIClient(QNetworkAccessManager* network, const QString& baseUrl)
    : m_network(network)
    , m_baseUrl(baseUrl)
{}

QUrl OpenAIClient::endpoint(const QString& baseUrl)
{
    const QString base = baseUrl.trimmed().isEmpty() ? openAIBaseUrl : baseUrl.trimmed();
    QUrl url(base, QUrl::StrictMode);
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || url.host().isEmpty() ||
        (scheme != QLatin1String("http") && scheme != QLatin1String("https"))) {
        return {};
    }
    QString path = url.path();
    while (path.endsWith(QLatin1Char('/'))) {
        path.chop(1);
    }
    url.setPath(path + QLatin1String("/chat/completions"));
    return url;
}

QByteArray OpenAIClient::requestBody(const QString& model, const QString& systemPrompt,
                                     const QString& userText)
{
    const QJsonArray messages{
        QJsonObject{{QLatin1String("role"), QLatin1String("system")},
                    {QLatin1String("content"), systemPrompt}},
        QJsonObject{{QLatin1String("role"), QLatin1String("user")},
                    {QLatin1String("content"), userText}},
    };
    const QJsonObject body{
        {QLatin1String("model"), model},
        {QLatin1String("stream"), true},
        {QLatin1String("messages"), messages},
    };
    return QJsonDocument(body).toJson(QJsonDocument::Compact);
}

TransportError OpenAIClient::transportError(QNetworkReply::NetworkError code, const QUrl& url,
                                            const QString& detail)
{
    const QString host = hostOf(url);
    QString text;
    switch (code) {
    case QNetworkReply::ConnectionRefusedError:
        text = QLatin1String("Could not connect to ") + host +
               QLatin1String(": the connection was refused. Is the server running?");
        break;
    case QNetworkReply::RemoteHostClosedError:
        text = QLatin1String("The server ") + host +
               QLatin1String(" closed the connection before the answer was complete.");
        break;
    case QNetworkReply::HostNotFoundError:
        text = QLatin1String("The server ") + host +
               QLatin1String(" could not be found. Check the address and your connection.");
        break;
    case QNetworkReply::TimeoutError:
    case QNetworkReply::OperationCanceledError:
        text = QLatin1String("The request to ") + host + QLatin1String(" timed out.");
        break;
    case QNetworkReply::SslHandshakeFailedError:
        text = QLatin1String("A secure connection to ") + host +
               QLatin1String(" could not be established (TLS): ") + detail;
        break;
    case QNetworkReply::TemporaryNetworkFailureError:
    case QNetworkReply::NetworkSessionFailedError:
        text = QStringLiteral("The network is not available.");
        break;
    case QNetworkReply::TooManyRedirectsError:
        text = QLatin1String("The server ") + host + QLatin1String(" redirected too many times.");
        break;
    case QNetworkReply::InsecureRedirectError:
        text = QLatin1String("The server ") + host +
               QLatin1String(" redirected the request to another server. The redirect was not "
                             "followed, so the API key was not sent there.");
        break;
    case QNetworkReply::ProxyConnectionRefusedError:
    case QNetworkReply::ProxyConnectionClosedError:
    case QNetworkReply::ProxyNotFoundError:
    case QNetworkReply::ProxyTimeoutError:
    case QNetworkReply::ProxyAuthenticationRequiredError:
    case QNetworkReply::UnknownProxyError:
        text = QLatin1String("The proxy failed: ") + detail;
        break;
    default:
        text = QLatin1String("The request to ") + host + QLatin1String(" failed: ") + detail;
        break;
    }
    return {code, text};
}

CompletionStream* OpenAIClient::streamCompletion(const QString& apiKey, const QString& model,
                                                 const QString& systemPrompt,
                                                 const QString& userText) const
{
    const QUrl url = endpoint(m_baseUrl);
    auto* stream = new CompletionStream(url, m_network);
    if (apiKey.isEmpty()) {
        stream->failLater(OpenAIError::noAPIKey());
        return stream;
    }
    if (!url.isValid()) {
        stream->failLater(OpenAIError::invalidURL());
        return stream;
    }

    // A header value cannot hold a line break: it would start a header of its own.
    const bool hasControlCharacter = std::any_of(apiKey.cbegin(), apiKey.cend(), [](QChar c) {
        return c.unicode() < 0x20 || c.unicode() == 0x7f;
    });
    if (hasControlCharacter) {
        stream->failLater(TransportError{
            QNetworkReply::ProtocolInvalidOperationError,
            QStringLiteral("The API key contains a line break or another control character. "
                           "Enter it again in Preferences without it.")});
        return stream;
    }

    QNetworkRequest request(url);
    request.setTransferTimeout(static_cast<int>(m_transferTimeout.count()));
    request.setRawHeader("Authorization", "Bearer " + apiKey.toUtf8());
    request.setRawHeader("Content-Type", "application/json");
    // The key belongs to the configured server alone: a redirect elsewhere is not followed.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::SameOriginRedirectPolicy);
    stream->start(m_network->post(request, requestBody(model, systemPrompt, userText)));
    return stream;
}
