#pragma once

#include <QCoreApplication>
#include <QNetworkReply>
#include <QString>

#include <optional>
#include <variant>

/// `text` without terminal control characters: C0 controls other than tab and line feed,
/// DEL and the C1 controls are left out, so server text printed to a terminal cannot move
/// its cursor, retitle it or run its escape sequences.
QString withoutControlCharacters(const QString& text);

/// The failures the completion client detects itself, each with one fixed message.
class OpenAIError {
    Q_DECLARE_TR_FUNCTIONS(OpenAIError)

public:
    enum class Kind { HttpError, DecodingError, NoAPIKey, InvalidURL };

    static OpenAIError httpError(qint64 statusCode, const QString& text);
    static OpenAIError decodingError(const QString& text);
    static OpenAIError noAPIKey();
    static OpenAIError invalidURL();

    Kind kind() const { return m_kind; }
    /// The HTTP status of an `HttpError`; 0 for the other kinds.
    qint64 statusCode() const { return m_statusCode; }
    /// The body text of an `HttpError` or the text of a `DecodingError`, without control
    /// characters.
    QString text() const { return m_text; }

    /// The message the user reads after "Error: ".
    QString errorDescription() const;

    friend bool operator==(const OpenAIError&, const OpenAIError&) = default;

private:
    OpenAIError(Kind kind, qint64 statusCode, const QString& text)
        : m_kind(kind)
        , m_statusCode(statusCode)
        , m_text(text)
    {}

    Kind m_kind;
    qint64 m_statusCode = 0;
    QString m_text;
};

/// A failure of the network transfer itself: no connection, unknown host, timeout, TLS.
struct TransportError {
    QNetworkReply::NetworkError code = QNetworkReply::UnknownNetworkError;
    QString description;

    friend bool operator==(const TransportError&, const TransportError&) = default;
};

/// The one error a completion stream can end with: the client's own, or the transport's.
class CompletionError {
public:
    CompletionError(const OpenAIError& error)
        : m_error(error)
    {}
    CompletionError(const TransportError& error)
        : m_error(error)
    {}

    QString description() const;
    std::optional<OpenAIError> openAIError() const;
    std::optional<TransportError> transportError() const;

    friend bool operator==(const CompletionError&, const CompletionError&) = default;

private:
    std::variant<OpenAIError, TransportError> m_error;
};

Q_DECLARE_METATYPE(CompletionError)
