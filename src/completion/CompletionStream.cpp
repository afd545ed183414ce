#include "completion/CompletionStream.h"

#include "completion/CompletionLogging.h"
#include "completion/OpenAIClient.h"

#include <QNetworkReply>
#include <QSslSocket>
#include <QTcpSocket>

#include <climits>

Q_LOGGING_CATEGORY(lcCompletion, "ravelo.completion", QtWarningMsg)

namespace {

QNetworkReply::NetworkError networkError(QAbstractSocket::SocketError code)
{
    switch (code) {
    case QAbstractSocket::ConnectionRefusedError:
        return QNetworkReply::ConnectionRefusedError;
    case QAbstractSocket::RemoteHostClosedError:
        return QNetworkReply::RemoteHostClosedError;
    case QAbstractSocket::HostNotFoundError:
        return QNetworkReply::HostNotFoundError;
    case QAbstractSocket::SocketTimeoutError:
        return QNetworkReply::TimeoutError;
    case QAbstractSocket::SslHandshakeFailedError:
        return QNetworkReply::SslHandshakeFailedError;
    case QAbstractSocket::NetworkError:
        return QNetworkReply::TemporaryNetworkFailureError;
    case QAbstractSocket::ProxyConnectionRefusedError:
        return QNetworkReply::ProxyConnectionRefusedError;
    case QAbstractSocket::ProxyConnectionClosedError:
        return QNetworkReply::ProxyConnectionClosedError;
    case QAbstractSocket::ProxyConnectionTimeoutError:
        return QNetworkReply::ProxyTimeoutError;
    case QAbstractSocket::ProxyNotFoundError:
        return QNetworkReply::ProxyNotFoundError;
    case QAbstractSocket::ProxyAuthenticationRequiredError:
        return QNetworkReply::ProxyAuthenticationRequiredError;
    case QAbstractSocket::ProxyProtocolError:
        return QNetworkReply::UnknownProxyError;
    case QAbstractSocket::SocketAccessError:
        return QNetworkReply::ContentAccessDenied;
    default:
        return QNetworkReply::UnknownNetworkError;
    }
}

/// The length of `bytes` without an unfinished UTF-8 sequence at its end.
qsizetype wholeCharacters(const QByteArray& bytes)
{
    qsizetype lead = bytes.size();
    while (lead > 0 && lead > bytes.size() - 4 && (uchar(bytes.at(lead - 1)) & 0xc0) == 0x80) {
        --lead;
    }
    if (lead == 0) {
        return bytes.size();
    }
    const uchar first = uchar(bytes.at(lead - 1));
    const qsizetype length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : first >= 0xc0 ? 2 : 1;
    return (lead - 1) + length > bytes.size() ? lead - 1 : bytes.size();
}

} // namespace

CompletionStream::CompletionStream(const QUrl& url, QObject* parent, Reading reading)
    : QObject(parent)
    , m_url(url)
    , m_reading(reading)
{
    m_idle.setSingleShot(true);
    connect(&m_idle, &QTimer::timeout, this, [this] {
        transferFailed(OpenAIClient::transportError(QNetworkReply::TimeoutError, m_url, {}));
    });
}

void CompletionStream::start(const QByteArray& request, std::chrono::milliseconds idleTimeout)
{
    m_request = request;
    const bool encrypted = m_url.scheme().compare(QLatin1String("https"), Qt::CaseInsensitive) == 0;
    const auto port = static_cast<quint16>(m_url.port(encrypted ? 443 : 80));
    m_idle.setInterval(idleTimeout);
    m_idle.start();
    if (encrypted) {
        auto* socket = new QSslSocket(this);
        m_socket = socket;
        connect(socket, &QSslSocket::sslErrors, this,
                [this](const QList<QSslError>& errors) { m_sslErrors = errors; });
        connect(socket, &QSslSocket::encrypted, this, &CompletionStream::send);
    } else {
        m_socket = new QTcpSocket(this);
        connect(m_socket, &QAbstractSocket::connected, this, &CompletionStream::send);
    }
    connect(m_socket, &QAbstractSocket::readyRead, this, &CompletionStream::readAvailable);
    connect(m_socket, &QAbstractSocket::bytesWritten, this, [this] { m_idle.start(); });
    connect(m_socket, &QAbstractSocket::errorOccurred, this, &CompletionStream::socketFailed);
    connect(m_socket, &QAbstractSocket::disconnected, this,
            [this] { socketFailed(QAbstractSocket::RemoteHostClosedError); });
    // Through an HTTP proxy the socket opens a tunnel with CONNECT: the request, the key
    // with it, goes through the tunnel, and TLS runs end to end with the server's name.
    m_proxy = OpenAIClient::proxyFor(m_url);
    m_socket->setProxy(m_proxy);
    if (m_proxy.type() != QNetworkProxy::NoProxy) {
        qCDebug(lcCompletion) << "through proxy" << OpenAIClient::proxyName(m_proxy);
    }
    if (auto* socket = qobject_cast<QSslSocket*>(m_socket)) {
        socket->connectToHostEncrypted(m_url.host(), port);
    } else {
        m_socket->connectToHost(m_url.host(), port);
    }
}

void CompletionStream::failLater(const CompletionError& error)
{
    QTimer::singleShot(0, this, [this, error] {
        end(error);
        deleteLater();
    });
}

void CompletionStream::send()
{
    if (m_socket) {
        m_idle.start();
        m_socket->write(std::exchange(m_request, QByteArray()));
    }
}

void CompletionStream::readAvailable()
{
    if (!m_socket) {
        return;
    }
    const QByteArray bytes = m_socket->readAll();
    if (bytes.isEmpty()) {
        return;
    }
    m_idle.start();
    const bool hadHead = m_response.state() != HttpResponseReader::State::Head;
    const auto state = m_response.feed(bytes, [this](QByteArrayView body) { readBody(body); });
    if (!hadHead && m_response.state() != HttpResponseReader::State::Head) {
        qCDebug(lcCompletion) << "response" << m_response.status() << "from" << m_url.host();
    }
    if (!m_socket) {
        return;
    }
    if (state == HttpResponseReader::State::Complete) {
        bodyComplete();
    } else if (state == HttpResponseReader::State::Failed) {
        closeTransfer();
    }
}

void CompletionStream::socketFailed(QAbstractSocket::SocketError code)
{
    if (!m_socket) {
        return;
    }
    if (code != QAbstractSocket::RemoteHostClosedError) {
        QString detail = m_socket->errorString();
        if (!m_sslErrors.isEmpty()) {
            QStringList reasons;
            for (const QSslError& error : std::as_const(m_sslErrors)) {
                reasons.append(error.errorString());
            }
            detail = reasons.join(QLatin1String("; "));
        }
        const QNetworkReply::NetworkError error = networkError(code);
        const bool proxyFailed = (error >= QNetworkReply::ProxyConnectionRefusedError &&
                                  error <= QNetworkReply::UnknownProxyError) ||
                                 error == QNetworkReply::ContentAccessDenied;
        transferFailed(m_proxy.type() != QNetworkProxy::NoProxy && proxyFailed
                           ? OpenAIClient::proxyError(error, m_proxy, m_url, detail)
                           : OpenAIClient::transportError(error, m_url, detail));
        return;
    }
    readAvailable();
    if (!m_socket) {
        return;
    }
    if (m_response.connectionClosed() == HttpResponseReader::State::Complete) {
        bodyComplete();
    } else {
        closeTransfer();
    }
}

void CompletionStream::readBody(QByteArrayView bytes)
{
    if (!m_socket) {
        return;
    }
    if (m_response.status() != 200) {
        // The lines of an error body run together; only its start is kept.
        for (qsizetype at = 0; at < bytes.size();) {
            qsizetype end = at;
            while (end < bytes.size() && bytes.at(end) != '\n' && bytes.at(end) != '\r') {
                ++end;
            }
            const qsizetype room = maxErrorTextBytes - m_errorBytes.size();
            const qsizetype kept = qMin(room, end - at);
            m_errorBytes.append(bytes.sliced(at, kept));
            m_errorBytesLeftOut += end - at - kept;
            at = end + 1;
        }
        return;
    }
    if (m_reading == Reading::WholeBody) {
        if (m_body.size() + bytes.size() > maxWholeBodyBytes) {
            transferFailed(TransportError{
                QNetworkReply::ProtocolFailure,
                tr("The server %1 sent an answer larger than %2 MiB. It was not read.")
                    .arg(OpenAIClient::serverName(m_url),
                         QString::number(maxWholeBodyBytes / (1024 * 1024)))});
            return;
        }
        m_body.append(bytes);
        return;
    }
    if (m_events.isDone()) {
        return; // the rest after the end marker is read and dropped
    }
    m_events.feed(bytes, [this](const QString& fragment) { deliver(fragment); });
    if (m_events.lineTooLong()) {
        transferFailed(TransportError{
            QNetworkReply::ProtocolFailure,
            tr("The server %1 sent an event line longer than %2 MiB. The rest of "
               "the answer was not read.")
                .arg(OpenAIClient::serverName(m_url),
                     QString::number(SseEventReader::maxLineLength / (1024 * 1024)))});
    } else if (m_events.isDone()) {
        end(std::nullopt);
    }
}

void CompletionStream::bodyComplete()
{
    const int status = m_response.status();
    closeTransfer();
    if (status == 200 && m_reading == Reading::WholeBody) {
        end(std::nullopt);
    } else if (status == 200) {
        m_events.finish([this](const QString& fragment) { deliver(fragment); });
        end(std::nullopt);
    } else {
        end(OpenAIError::httpError(status, errorText()));
    }
}

QString CompletionStream::errorText() const
{
    QByteArray kept = m_errorBytes;
    qint64 leftOut = m_errorBytesLeftOut;
    if (leftOut == 0) {
        return QString::fromUtf8(kept);
    }
    const qsizetype whole = wholeCharacters(kept);
    leftOut += kept.size() - whole;
    kept.truncate(whole);
    return QString::fromUtf8(kept) +
           tr("… (%1 bytes more)", nullptr, static_cast<int>(qMin<qint64>(leftOut, INT_MAX)))
               .arg(leftOut);
}

void CompletionStream::transferFailed(const CompletionError& error)
{
    closeTransfer();
    end(error);
}

void CompletionStream::closeTransfer()
{
    m_idle.stop();
    if (m_socket) {
        QAbstractSocket* socket = m_socket;
        m_socket = nullptr;
        socket->disconnect(this);
        socket->abort();
        socket->deleteLater();
        deleteLater();
    }
    if (m_response.state() == HttpResponseReader::State::Failed) {
        end(m_response.failure() == HttpResponseReader::Failure::NotHttp
                ? CompletionError(OpenAIError::httpError(0, tr("Not an HTTP response")))
                : CompletionError(OpenAIClient::responseError(m_response, m_url)));
    }
}

void CompletionStream::deliver(const QString& fragment)
{
    if (m_listening && !m_ended) {
        emit fragmentReceived(fragment);
    }
}

void CompletionStream::end(const std::optional<CompletionError>& error)
{
    if (m_ended) {
        return;
    }
    m_ended = true;
    m_errorBytes.clear();
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
