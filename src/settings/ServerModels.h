#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <QtQml/qqmlregistration.h>
#include <chrono>
#include <optional>

class CompletionStream;

/// The models an OpenAI-compatible server lists (GET {base}/models), for the model picker
/// and "Test connection": `status` says in one line whether the server answered, which
/// models it has, or what went wrong.
class ServerModels : public QObject {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(QString baseUrl READ baseUrl WRITE setBaseUrl NOTIFY baseUrlChanged)
    Q_PROPERTY(QString apiKey READ apiKey WRITE setApiKey NOTIFY apiKeyChanged)
    Q_PROPERTY(QStringList models READ models NOTIFY modelsChanged)
    Q_PROPERTY(QString status READ status NOTIFY statusChanged)
    Q_PROPERTY(bool loading READ isLoading NOTIFY loadingChanged)
    Q_PROPERTY(bool failed READ hasFailed NOTIFY statusChanged)

public:
    /// Ids past this many are left out of the list.
    static constexpr qsizetype maxModels = 1000;
    /// The longest a model id or a status line may be; longer ones are cut.
    static constexpr qsizetype maxTextLength = 300;

    explicit ServerModels(QObject* parent = nullptr);
    ~ServerModels() override;

    QString baseUrl() const { return m_baseUrl; }
    void setBaseUrl(const QString& baseUrl);
    QString apiKey() const { return m_apiKey; }
    void setApiKey(const QString& apiKey);
    QStringList models() const { return m_models; }
    QString status() const { return m_status; }
    bool isLoading() const;
    bool hasFailed() const { return m_failed; }
    /// How long a whole request may take, from asking to the end of the list.
    void setTimeout(std::chrono::milliseconds timeout) { m_deadline.setInterval(timeout); }

    /// Asks the server at `baseUrl` for its models; a request still under way is dropped.
    Q_INVOKABLE void load();

    /// The ids of an OpenAI-style model list ({"data": [{"id": …}, …]}), in the server's
    /// order, without repeats, blanks or control characters; nullopt when `body` is no such
    /// list.
    static std::optional<QStringList> parseModels(const QByteArray& body);

signals:
    void baseUrlChanged();
    void apiKeyChanged();
    void modelsChanged();
    void statusChanged();
    void loadingChanged();

private:
    void finish(const QStringList& models, const QString& status, bool failed);
    void drop();

    QString m_baseUrl;
    QString m_apiKey;
    QStringList m_models;
    QString m_status;
    bool m_failed = false;
    QPointer<CompletionStream> m_stream;
    QTimer m_deadline;
};
