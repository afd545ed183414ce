#include "completion/OpenAIError.h"

#include <algorithm>

QString withoutControlCharacters(const QString& text)
{
    const auto isControl = [](QChar c) {
        const char16_t u = c.unicode();
        return (u < 0x20 && u != u'\t' && u != u'\n') || (u >= 0x7f && u <= 0x9f);
    };
    if (std::none_of(text.cbegin(), text.cend(), isControl)) {
        return text;
    }
    QString clean;
    clean.reserve(text.size());
    for (QChar c : text) {
        if (!isControl(c)) {
            clean.append(c);
        }
    }
    return clean;
}

OpenAIError OpenAIError::httpError(qint64 statusCode, const QString& text)
{
    return {Kind::HttpError, statusCode, withoutControlCharacters(text)};
}

OpenAIError OpenAIError::decodingError(const QString& text)
{
    return {Kind::DecodingError, 0, withoutControlCharacters(text)};
}

OpenAIError OpenAIError::noAPIKey()
{
    return {Kind::NoAPIKey, 0, {}};
}

OpenAIError OpenAIError::invalidURL()
{
    return {Kind::InvalidURL, 0, {}};
}

QString OpenAIError::errorDescription() const
{
    switch (m_kind) {
    case Kind::HttpError:
        return tr("HTTP %1: %2").arg(QString::number(m_statusCode), m_text);
    case Kind::DecodingError:
        return tr("Decoding error: %1").arg(m_text);
    case Kind::NoAPIKey:
        return tr("No OpenAI API key configured. Open Preferences to set one.");
    case Kind::InvalidURL:
        return tr("Invalid API URL.");
    }
    return {};
}

QString CompletionError::description() const
{
    if (const auto* error = std::get_if<OpenAIError>(&m_error)) {
        return error->errorDescription();
    }
    return std::get<TransportError>(m_error).description;
}

std::optional<OpenAIError> CompletionError::openAIError() const
{
    if (const auto* error = std::get_if<OpenAIError>(&m_error)) {
        return *error;
    }
    return std::nullopt;
}

std::optional<TransportError> CompletionError::transportError() const
{
    if (const auto* error = std::get_if<TransportError>(&m_error)) {
        return *error;
    }
    return std::nullopt;
}
