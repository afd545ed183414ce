#include "completion/CompletionStream.h"

#include "completion/CompletionLogging.h"
#include "completion/OpenAIClient.h"

#include <QNetworkReply>
#include <QTimer>

Q_LOGGING_CATEGORY(lcCompletion, "ravelo.completion", QtWarningMsg)

namespace {

/// Errors the transfer itself raised, as opposed to the codes Qt derives from an HTTP
/// status, which the status test reports instead.
bool isTransportFailure(QNetworkReply::NetworkError code)
{
    return code != QNetworkReply::NoError &&
           (code < QNetworkReply::ContentAccessDenied ||
            code == QNetworkReply::ProtocolUnknownError || code == QNetworkReply::ProtocolFailure);
}

} // namespace

CompletionStream::CompletionStream(const QUrl& url, QObject* parent)
    : QObject(parent)
    , m_url(url)
{}

void CompletionStream::start(QNetworkReply* reply)
{
    m_reply = reply;
    connect(reply, &QNetworkReply::readyRead, this, &CompletionStream::readAvailable);
    connect(reply, &QNetworkReply::finished, this, &CompletionStream::transferFinished);
}

void CompletionStream::failLater(const CompletionError& error)
{
    QTimer::singleShot(0, this, [this, error] {
        end(error);
        deleteLater();
    });
}

bool CompletionStream::readHead()
{
    if (m_body != Body::Unknown) {
        return true;
    }
    const QVariant status = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (!status.isValid()) {
        return false;
    }
    m_status = status.toLongLong();
    m_body = m_status == 200 ? Body::Events : Body::ErrorText;
    qCDebug(lcCompletion) << "response" << m_status << "from" << m_url.host();
    return true;
}

void CompletionStream::readAvailable()
{
    if (!m_reply || !m_reply->isOpen() || !readHead()) {
        return;
    }
    const QByteArray bytes = m_reply->readAll();
    if (m_ended) {
        return;
    }
    if (m_body == Body::Events) {
        m_events.feed(bytes, [this](const QString& fragment) { deliver(fragment); });
        if (m_events.isDone()) {
            end(std::nullopt);
        }
    } else {
        m_errorLines.feed(bytes, [this](QByteArrayView line) {
            m_errorText += QString::fromUtf8(line);
            return true;
        });
    }
}

void CompletionStream::transferFinished()
{
    if (!m_reply) {
        return;
    }
    readAvailable();
    const QNetworkReply::NetworkError code = m_reply->error();
    if (!m_ended) {
        if (isTransportFailure(code) ||
            (m_body == Body::Unknown && code != QNetworkReply::NoError)) {
            end(CompletionError(OpenAIClient::transportError(code, m_url, m_reply->errorString())));
        } else if (m_body == Body::Unknown) {
            end(CompletionError(OpenAIError::httpError(0, QStringLiteral("Not an HTTP response"))));
        } else if (m_body == Body::Events) {
            m_events.finish([this](const QString& fragment) { deliver(fragment); });
            end(std::nullopt);
        } else {
            m_errorLines.finish([this](QByteArrayView line) {
                m_errorText += QString::fromUtf8(line);
                return true;
            });
            end(CompletionError(OpenAIError::httpError(m_status, m_errorText)));
        }
    }
    m_reply->deleteLater();
    m_reply = nullptr;
    deleteLater();
}

void CompletionStream::deliver(const QString& fragment)
{
    if (m_listening) {
        emit fragmentReceived(fragment);
    }
}

void CompletionStream::end(const std::optional<CompletionError>& error)
{
    if (m_ended) {
        return;
    }
    m_ended = true;
    m_errorText.clear();
    if (!m_listening) {
        return;
    }
    if (error) {
        qCDebug(lcCompletion) << "stream failed:" << error->description();
        emit failed(*error);
    } else {
        emit finished();
    }
}
