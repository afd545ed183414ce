#pragma once

#include <QString>

class CompletionStream;
class PreferenceStore;
class QNetworkAccessManager;

namespace ravelo {

/// What a run shows instead of an answer when no API key is stored.
QString missingApiKeyWarning();

/// Whether a non-empty API key is stored (a key of blanks counts).
bool hasApiKey(const PreferenceStore& preferences);

/// Starts one run of a prompt as the panel's digits do: counts the use, then streams the
/// answer to `userText` with the stored key, model and endpoint. The caller checks
/// `hasApiKey` first.
CompletionStream* startCompletion(PreferenceStore& preferences, QNetworkAccessManager* network,
                                  const QString& systemPrompt, const QString& userText);

} // namespace ravelo
