#include "app/PromptRun.h"

#include "completion/OpenAIClient.h"
#include "model/PreferenceStore.h"
#include "platform/KeyNames.h"

namespace ravelo {

QString missingApiKeyWarning()
{
    return QStringLiteral("⚠️ No API key set. Open Preferences (") +
           KeyNames::shortcut(QStringLiteral("⌘,")) +
           QStringLiteral(") to add your OpenAI API key.");
}

bool hasApiKey(const PreferenceStore& preferences)
{
    return !preferences.string(Preferences::apiKey).value_or(QString()).isEmpty();
}

CompletionStream* startCompletion(PreferenceStore& preferences, QNetworkAccessManager* network,
                                  const QString& systemPrompt, const QString& userText)
{
    preferences.incrementPromptsUsed();
    const QString apiKey = preferences.string(Preferences::apiKey).value_or(QString());
    const QString model = preferences.string(Preferences::model).value_or(QString());
    const QString baseUrl = preferences.string(Preferences::baseUrl).value_or(QString());
    return OpenAIClient(network, baseUrl).streamCompletion(apiKey, model, systemPrompt, userText);
}

} // namespace ravelo
