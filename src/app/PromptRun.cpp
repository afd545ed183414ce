#include "app/PromptRun.h"

#include "completion/CompletionStream.h"
#include "completion/OpenAIClient.h"
#include "model/PreferenceStore.h"
#include "platform/KeyNames.h"

#include <utility>

namespace ravelo {

QString missingApiKeyWarning()
{
    return PromptRun::tr("⚠️ No API key set. Open Preferences (%1) to add your OpenAI API key.")
        .arg(KeyNames::shortcut(QStringLiteral("⌘,")));
}

bool isReadyToRun(const PreferenceStore& preferences)
{
    return !preferences.string(Preferences::apiKey).value_or(QString()).isEmpty() ||
           !preferences.string(Preferences::baseUrl).value_or(QString()).trimmed().isEmpty();
}

QString PromptRun::noAnswerMessage()
{
    return tr("The server sent no answer.");
}

PromptRun* PromptRun::start(PreferenceStore& preferences, QObject* owner,
                            const QString& systemPrompt, const QString& userText)
{
    const QString apiKey = preferences.string(Preferences::apiKey).value_or(QString());
    const QString model = preferences.string(Preferences::model).value_or(QString());
    const QString baseUrl = preferences.string(Preferences::baseUrl).value_or(QString());
    return new PromptRun(
        OpenAIClient(owner, baseUrl).streamCompletion(apiKey, model, systemPrompt, userText),
        &preferences);
}

PromptRun::PromptRun(CompletionStream* stream, PreferenceStore* preferences)
    : QObject(stream->parent())
    , m_stream(stream)
    , m_preferences(preferences)
{
    connect(stream, &CompletionStream::fragmentReceived, this, [this](const QString& fragment) {
        m_receivedText = m_receivedText || !fragment.isEmpty();
        emit textReceived(fragment);
        countUse();
    });
    connect(stream, &CompletionStream::finished, this, [this] {
        countUse();
        if (m_receivedText) {
            emit succeeded();
        } else {
            emit failed(noAnswerMessage());
        }
        deleteLater();
    });
    connect(stream, &CompletionStream::failed, this, [this](const CompletionError& error) {
        countUse();
        emit failed(error.description());
        deleteLater();
    });
}

void PromptRun::countUse()
{
    if (m_preferences) {
        std::exchange(m_preferences, nullptr)->incrementPromptsUsed();
    }
}

void PromptRun::cancel()
{
    countUse();
    if (m_stream) {
        m_stream->stopListening();
    }
    disconnect();
    deleteLater();
}

} // namespace ravelo
