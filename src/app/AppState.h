#pragma once

#include "model/Prompt.h"
#include "panel/TextPreview.h"

#include <QObject>
#include <QString>
#include <QVariant>
#include <QtQml/qqmlregistration.h>

#include <optional>

class PreferenceStore;
class QQmlEngine;
class QJSEngine;

/// What the quick panel shows since the last trigger, and the prompt list. One instance
/// lives for the whole process; QML reaches it as the `AppState` singleton.
class AppState : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_MOC_INCLUDE("model/PreferenceStore.h")
    Q_PROPERTY(
        QString clipboardText READ clipboardText WRITE setClipboardText NOTIFY clipboardTextChanged)
    /// The start of `clipboardText`, short enough for the panel to lay out at once.
    Q_PROPERTY(QString clipboardPreview READ clipboardPreview NOTIFY clipboardTextChanged)
    /// How many characters of `clipboardText` the preview leaves out.
    Q_PROPERTY(qint64 clipboardLeftOut READ clipboardLeftOut NOTIFY clipboardTextChanged)
    Q_PROPERTY(QString resultText READ resultText WRITE setResultText NOTIFY resultTextChanged)
    Q_PROPERTY(bool isLoading READ isLoading WRITE setIsLoading NOTIFY isLoadingChanged)
    Q_PROPERTY(bool showCustomPromptInput READ showCustomPromptInput WRITE setShowCustomPromptInput
                   NOTIFY showCustomPromptInputChanged)
    Q_PROPERTY(QString customPromptText READ customPromptText WRITE setCustomPromptText NOTIFY
                   customPromptTextChanged)
    /// The custom prompt last sent since the last trigger: a string, or null for none.
    Q_PROPERTY(QVariant lastCustomPromptText READ lastCustomPromptTextValue WRITE
                   setLastCustomPromptTextValue NOTIFY lastCustomPromptTextChanged)
    Q_PROPERTY(QList<Prompt> prompts READ prompts WRITE setPrompts NOTIFY promptsChanged)
    Q_PROPERTY(PreferenceStore* preferences READ preferences CONSTANT)

public:
    /// Seeds the stored prompt list with the defaults when none is stored, then loads it.
    explicit AppState(PreferenceStore* preferences, QObject* parent = nullptr);

    /// The instance QML sees; set by the application before any QML is loaded.
    static void setQmlInstance(AppState* state);
    static AppState* create(QQmlEngine* qmlEngine, QJSEngine* jsEngine);

    PreferenceStore* preferences() const { return m_preferences; }

    QString clipboardText() const { return m_clipboardText; }
    void setClipboardText(const QString& text);
    QString clipboardPreview() const { return m_clipboardPreview.text; }
    qint64 clipboardLeftOut() const { return m_clipboardPreview.leftOut; }

    QString resultText() const { return m_resultText; }
    void setResultText(const QString& text);
    /// Appends one streamed fragment: notifies once, with the fragment.
    void appendResultText(const QString& fragment);

    bool isLoading() const { return m_isLoading; }
    void setIsLoading(bool loading);

    bool showCustomPromptInput() const { return m_showCustomPromptInput; }
    void setShowCustomPromptInput(bool show);

    QString customPromptText() const { return m_customPromptText; }
    void setCustomPromptText(const QString& text);

    std::optional<QString> lastCustomPromptText() const { return m_lastCustomPromptText; }
    void setLastCustomPromptText(const std::optional<QString>& text);
    QVariant lastCustomPromptTextValue() const;
    void setLastCustomPromptTextValue(const QVariant& text);

    QList<Prompt> prompts() const { return m_prompts; }
    void setPrompts(const QList<Prompt>& prompts);

    /// Appends the last custom prompt to the list as a new quick action and stores the list.
    Q_INVOKABLE void saveCustomPromptAsQuickAction();

signals:
    void clipboardTextChanged();
    void resultTextChanged();
    /// Emitted with `resultTextChanged` when a fragment was appended, so that views can
    /// append instead of laying out the whole answer again.
    void resultTextAppended(const QString& fragment);
    void isLoadingChanged();
    void showCustomPromptInputChanged();
    void customPromptTextChanged();
    void lastCustomPromptTextChanged();
    void promptsChanged();

private:
    PreferenceStore* m_preferences;
    QString m_clipboardText;
    TextPreview m_clipboardPreview;
    QString m_resultText;
    bool m_isLoading = false;
    bool m_showCustomPromptInput = false;
    QString m_customPromptText;
    std::optional<QString> m_lastCustomPromptText;
    QList<Prompt> m_prompts;
};
