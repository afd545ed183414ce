#include "settings/ServerModels.h"

#include "completion/CompletionStream.h"
#include "completion/OpenAIClient.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

namespace {

using namespace std::chrono_literals;

QString oneLine(QString text)
{
    text.replace(QLatin1Char('\n'), QLatin1Char(' ')).replace(QLatin1Char('\t'), QLatin1Char(' '));
    text = withoutControlCharacters(text).simplified();
    if (text.size() > ServerModels::maxTextLength) {
        text = text.left(ServerModels::maxTextLength - 1) + QChar(0x2026);
    }
    return text;
}

} // namespace

ServerModels::ServerModels(QObject* parent)
    : QObject(parent)
{
    m_deadline.setSingleShot(true);
    m_deadline.setInterval(20s);
    connect(&m_deadline, &QTimer::timeout, this, [this] {
        const QUrl url = OpenAIClient::modelsEndpoint(m_baseUrl);
        drop();
        finish({}, OpenAIClient::transportError(QNetworkReply::TimeoutError, url, {}).description,
               true);
    });
}

ServerModels::~ServerModels()
{
    drop();
}

bool ServerModels::isLoading() const
{
    return !m_stream.isNull();
}

void ServerModels::setBaseUrl(const QString& baseUrl)
{
    if (m_baseUrl == baseUrl) {
        return;
    }
    m_baseUrl = baseUrl;
    emit baseUrlChanged();
}

void ServerModels::setApiKey(const QString& apiKey)
{
    if (m_apiKey == apiKey) {
        return;
    }
    m_apiKey = apiKey;
    emit apiKeyChanged();
}

std::optional<QStringList> ServerModels::parseModels(const QByteArray& body)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(body, &error);
    const QJsonValue data = document.object().value(QLatin1String("data"));
    if (error.error != QJsonParseError::NoError || !data.isArray()) {
        return std::nullopt;
    }
    QStringList ids;
    QSet<QString> seen;
    for (const QJsonValue& entry : data.toArray()) {
        const QString id = oneLine(entry.toObject().value(QLatin1String("id")).toString());
        if (id.isEmpty() || seen.contains(id)) {
            continue;
        }
        seen.insert(id);
        ids.append(id);
        if (ids.size() == maxModels) {
            break;
        }
    }
    return ids;
}

void ServerModels::load()
{
    drop();
    const QString base = m_baseUrl;
    const QString server = OpenAIClient::serverName(OpenAIClient::modelsEndpoint(base));
    m_stream = OpenAIClient(this, base).listModels(m_apiKey);
    m_deadline.start();
    emit loadingChanged();
    connect(m_stream, &CompletionStream::finished, this, [this, server] {
        const std::optional<QStringList> ids = parseModels(m_stream->body());
        drop();
        if (!ids) {
            finish({}, tr("The server %1 answered, but not with a list of models.").arg(server),
                   true);
        } else if (ids->isEmpty()) {
            finish({}, tr("Connected to %1: no models.").arg(server), false);
        } else {
            finish(*ids,
                   tr("Connected to %1: %n model(s) (%2).", nullptr, int(ids->size()))
                       .arg(server, oneLine(ids->join(QLatin1String(", ")))),
                   false);
        }
    });
    connect(m_stream, &CompletionStream::failed, this, [this](const CompletionError& error) {
        drop();
        finish({}, oneLine(error.description()), true);
    });
}

void ServerModels::drop()
{
    m_deadline.stop();
    if (m_stream) {
        m_stream->stopListening();
        m_stream->disconnect(this);
        m_stream = nullptr;
        emit loadingChanged();
    }
}

void ServerModels::finish(const QStringList& models, const QString& status, bool failed)
{
    if (m_models != models) {
        m_models = models;
        emit modelsChanged();
    }
    if (m_status != status || m_failed != failed) {
        m_status = status;
        m_failed = failed;
        emit statusChanged();
    }
}
