#pragma once

#include <QObject>
#include <QPointer>
#include <QString>

class CompletionStream;
class PreferenceStore;

namespace ravelo {

/// What a run shows instead of an answer when no API key is stored.
QString missingApiKeyWarning();

/// Whether a run may be sent: a non-empty API key is stored (a key of blanks counts), or a
/// base address, whose server may well take requests without a key.
bool isReadyToRun(const PreferenceStore& preferences);

/// One run of a prompt, as the panel's digits and `ravelo run` start it: the answer's text
/// as it arrives, then one ending. A stream that ends normally without any text ends the
/// run with "The server sent no answer.", so an empty answer never reads as success.
///
/// The run deletes itself after its ending. Hold it in a QPointer.
class PromptRun : public QObject {
    Q_OBJECT

public:
    /// Streams the answer to `userText` with the stored key, model and endpoint; the streams
    /// are children of `owner`. The caller checks `isReadyToRun` first. The use is counted
    /// once the first text has been handed on, or when the run ends or is cancelled before
    /// that: writing the preferences file waits for the disk, and the answer should not.
    static PromptRun* start(PreferenceStore& preferences, QObject* owner,
                            const QString& systemPrompt, const QString& userText);

    static QString noAnswerMessage();

    /// Nothing more is reported. The transfer still runs to its end, unseen.
    void cancel();

signals:
    void textReceived(const QString& text);
    void succeeded();
    /// `message` is what the user reads after "Error: ".
    void failed(const QString& message);

private:
    PromptRun(CompletionStream* stream, PreferenceStore* preferences);
    void countUse();

    QPointer<CompletionStream> m_stream;
    QPointer<PreferenceStore> m_preferences;
    bool m_receivedText = false;
};

} // namespace ravelo
