#include "app/AppState.h"

#include "model/PreferenceStore.h"
#include "model/PromptStore.h"

#include <QJSEngine>
#include <QPointer>
#include <QTextBoundaryFinder>

#include <algorithm>

namespace {

QPointer<AppState> qmlInstance;

constexpr int titleLength = 24;

// The first characters as the user sees them: a letter with its combining marks, or an
// emoji sequence, counts as one.
QString firstCharacters(const QString& text, int count)
{
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype end = 0;
    for (int i = 0; i < count; ++i) {
        const qsizetype next = finder.toNextBoundary();
        if (next < 0) {
            return text;
        }
        end = next;
    }
    return text.left(end);
}

} // namespace

AppState::AppState(PreferenceStore* preferences, QObject* parent)
    : QObject(parent)
    , m_preferences(preferences)
{
    if (!m_preferences->contains(Preferences::userPrompts)) {
        PromptStore::save(*m_preferences, Prompt::defaults());
    }
    m_prompts = PromptStore::load(*m_preferences);
}

void AppState::setQmlInstance(AppState* state)
{
    qmlInstance = state;
}

AppState* AppState::create(QQmlEngine*, QJSEngine*)
{
    Q_ASSERT_X(qmlInstance, "AppState::create", "setQmlInstance must run before QML loads");
    QJSEngine::setObjectOwnership(qmlInstance, QJSEngine::CppOwnership);
    return qmlInstance;
}

void AppState::setClipboardText(const QString& text)
{
    if (m_clipboardText == text) {
        return;
    }
    m_clipboardText = text;
    m_clipboardPreview = TextPreview::of(text);
    emit clipboardTextChanged();
}

void AppState::setResultText(const QString& text)
{
    if (m_resultText == text) {
        return;
    }
    m_resultText = text;
    emit resultTextChanged();
}

void AppState::appendResultText(const QString& fragment)
{
    m_resultText.append(fragment);
    emit resultTextAppended(fragment);
    emit resultTextChanged();
}

void AppState::setIsLoading(bool loading)
{
    if (m_isLoading == loading) {
        return;
    }
    m_isLoading = loading;
    emit isLoadingChanged();
}

void AppState::setShowCustomPromptInput(bool show)
{
    if (m_showCustomPromptInput == show) {
        return;
    }
    m_showCustomPromptInput = show;
    emit showCustomPromptInputChanged();
}

void AppState::setCustomPromptText(const QString& text)
{
    if (m_customPromptText == text) {
        return;
    }
    m_customPromptText = text;
    emit customPromptTextChanged();
}

void AppState::setLastCustomPromptText(const std::optional<QString>& text)
{
    if (m_lastCustomPromptText == text) {
        return;
    }
    m_lastCustomPromptText = text;
    emit lastCustomPromptTextChanged();
}

QVariant AppState::lastCustomPromptTextValue() const
{
    return m_lastCustomPromptText ? QVariant(*m_lastCustomPromptText) : QVariant();
}

void AppState::setLastCustomPromptTextValue(const QVariant& text)
{
    if (text.isNull() || !text.isValid()) {
        setLastCustomPromptText(std::nullopt);
    } else {
        setLastCustomPromptText(text.toString());
    }
}

void AppState::setPrompts(const QList<Prompt>& prompts)
{
    if (m_prompts == prompts) {
        return;
    }
    m_prompts = prompts;
    emit promptsChanged();
}

void AppState::saveCustomPromptAsQuickAction()
{
    if (!m_lastCustomPromptText || m_lastCustomPromptText->isEmpty()) {
        return;
    }
    const QString text = *m_lastCustomPromptText;
    qint64 highest = 0;
    if (!m_prompts.isEmpty()) {
        highest =
            std::max_element(m_prompts.cbegin(), m_prompts.cend(),
                             [](const Prompt& a, const Prompt& b) { return a.number < b.number; })
                ->number;
    }
    const qint64 number = highest == std::numeric_limits<qint64>::max() ? highest : highest + 1;
    m_prompts.append(Prompt::create(number, firstCharacters(text, titleLength), text));
    emit promptsChanged();
    PromptStore::save(*m_preferences, m_prompts);
    setLastCustomPromptText(std::nullopt);
}
