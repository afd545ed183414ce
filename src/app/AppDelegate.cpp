#include "app/AppDelegate.h"

#include "app/AppLogging.h"
#include "app/AppState.h"
#include "app/PromptRun.h"
#include "completion/CompletionStream.h"
#include "model/PreferenceStore.h"
#include "platform/AccessibilityTrust.h"
#include "platform/PlatformServices.h"
#include "triggers/HotkeyManager.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QPointer>

#include <limits>

namespace {

// A copy press this recent may still be filling the clipboard when its trigger runs.
constexpr std::chrono::milliseconds recentCopyPress{1000};

quint32 storedUnsigned(qint64 value)
{
    // Values outside 32 bits cannot come from the recorder: they read as no hotkey.
    if (value < 0 || value > std::numeric_limits<quint32>::max()) {
        return 0;
    }
    return quint32(value);
}

} // namespace

AppDelegate::AppDelegate(AppState* appState, QObject* parent)
    : AppDelegate(appState, std::make_unique<HotkeyManager>(), parent)
{}

AppDelegate::AppDelegate(AppState* appState, std::unique_ptr<HotkeyManager> hotkeyManager,
                         QObject* parent)
    : QObject(parent)
    , m_appState(appState)
    , m_hotkeyManager(std::move(hotkeyManager))
    , m_accessibility(PlatformServices::createAccessibilityTrust())
{
    m_clipboardDeadline.setSingleShot(true);
    m_clipboardDeadline.setInterval(clipboardWait);
    connect(&m_clipboardDeadline, &QTimer::timeout, this, &AppDelegate::readClipboard);
    if (QClipboard* clipboard = QGuiApplication::clipboard()) {
        connect(clipboard, &QClipboard::dataChanged, this, &AppDelegate::noteClipboardChange);
    }
}

AppDelegate::~AppDelegate() = default;

void AppDelegate::applicationDidFinishLaunching()
{
    PreferenceStore* preferences = m_appState->preferences();
    if (preferences->boolean(Preferences::hasCompletedOnboarding)) {
        requestAccessibility();
        setupHotkeys();
    } else {
        showOnboarding();
    }
    if (!m_observingPreferences) {
        m_observingPreferences = true;
        connect(preferences, &PreferenceStore::changed, this, &AppDelegate::setupHotkeys);
    }
}

void AppDelegate::requestAccessibility()
{
    if (m_appState->preferences()->readUseDoubleCopy() && !m_accessibility->isTrusted()) {
        m_accessibility->requestTrust();
    }
}

void AppDelegate::setupHotkeys()
{
    m_hotkeyManager->onTrigger = [self = QPointer<AppDelegate>(this)] {
        if (self) {
            self->handleTrigger();
        }
    };
    const PreferenceStore* preferences = m_appState->preferences();
    const bool useDoubleCopy = preferences->readUseDoubleCopy();
    const quint32 keyCode = storedUnsigned(preferences->integer(Preferences::customHotkeyKeyCode));
    const quint32 modifiers =
        storedUnsigned(preferences->integer(Preferences::customHotkeyModifiers));

    m_hotkeyManager->stop();
    m_hotkeyManager->setDoubleCopyEnabled(useDoubleCopy);
    if (useDoubleCopy) {
        m_hotkeyManager->startDoubleCopyMonitor();
    }
    if (keyCode != 0) {
        m_hotkeyManager->registerHotkey(keyCode, modifiers);
    }
}

void AppDelegate::handleTrigger()
{
    if (m_waitingForClipboard) {
        // The read already under way serves this trigger too.
        return;
    }
    if (copiedTextMayBeOnItsWay()) {
        qCDebug(lcApp, "Waiting for the copied text");
        m_waitingForClipboard = true;
        m_clipboardDeadline.start();
        return;
    }
    readClipboard();
}

bool AppDelegate::copiedTextMayBeOnItsWay() const
{
    const std::optional<DoubleCopyDetector::Clock::time_point> press =
        m_hotkeyManager->lastCopyPress();
    if (!press) {
        return false;
    }
    const auto now = m_hotkeyManager->now();
    if (now - *press > recentCopyPress) {
        return false;
    }
    return !m_lastClipboardChange || *m_lastClipboardChange < *press;
}

void AppDelegate::noteClipboardChange()
{
    m_lastClipboardChange = m_hotkeyManager->now();
    if (m_waitingForClipboard) {
        readClipboard();
    }
}

void AppDelegate::readClipboard()
{
    m_waitingForClipboard = false;
    m_clipboardDeadline.stop();
    // The new text starts afresh: an answer still streaming for the old one is dropped.
    cancelCurrentRun();
    const QClipboard* clipboard = QGuiApplication::clipboard();
    const QString text = clipboard ? clipboard->text(QClipboard::Clipboard) : QString();
    m_appState->setClipboardText(text);
    m_appState->setResultText(QString());
    m_appState->setIsLoading(false);
    m_appState->setLastCustomPromptText(std::nullopt);
    if (text.isEmpty()) {
        qCDebug(lcApp, "Trigger with nothing to show: the clipboard holds no text");
        return;
    }
    showPanel();
}

void AppDelegate::showPanel()
{
    qCDebug(lcApp, "Panel requested for %lld characters",
            qlonglong(m_appState->clipboardText().size()));
    emit panelRequested();
}

void AppDelegate::openSettings()
{
    qCDebug(lcApp, "Preferences requested");
    emit settingsRequested();
}

void AppDelegate::showOnboarding()
{
    qCDebug(lcApp, "Walkthrough requested");
    emit onboardingRequested();
}

void AppDelegate::cancelCurrentRun()
{
    if (m_currentRun) {
        qCDebug(lcApp, "Run cancelled");
        m_currentRun->stopListening();
    }
    m_currentRun = nullptr;
}

void AppDelegate::runPrompt(const Prompt& prompt)
{
    cancelCurrentRun();
    PreferenceStore* preferences = m_appState->preferences();
    if (!ravelo::hasApiKey(*preferences)) {
        m_appState->setResultText(ravelo::missingApiKeyWarning());
        return;
    }
    m_appState->setIsLoading(true);
    m_appState->setResultText(QString());

    CompletionStream* stream = ravelo::startCompletion(
        *preferences, &m_network, prompt.systemPrompt, m_appState->clipboardText());
    m_currentRun = stream;
    // A cancelled run stops listening, so none of these reach the state after it.
    connect(stream, &CompletionStream::fragmentReceived, m_appState, &AppState::appendResultText);
    connect(stream, &CompletionStream::finished, this, [this] {
        m_currentRun = nullptr;
        m_appState->setIsLoading(false);
    });
    connect(stream, &CompletionStream::failed, this, [this](const CompletionError& error) {
        m_currentRun = nullptr;
        m_appState->setResultText(QStringLiteral("Error: ") + error.description());
        m_appState->setIsLoading(false);
    });
}

void AppDelegate::runPromptNumbered(qint64 number)
{
    const QList<Prompt> prompts = m_appState->prompts();
    for (const Prompt& prompt : prompts) {
        if (prompt.number == number) {
            runPrompt(prompt);
            return;
        }
    }
}

void AppDelegate::copyResultAndClose()
{
    const QString result = m_appState->resultText();
    if (result.isEmpty()) {
        return;
    }
    if (QClipboard* clipboard = QGuiApplication::clipboard()) {
        clipboard->setText(result, QClipboard::Clipboard);
    }
    closePanel();
}

void AppDelegate::showCustomInput()
{
    m_appState->setShowCustomPromptInput(true);
}

bool AppDelegate::dismissCustomInput()
{
    if (!m_appState->showCustomPromptInput()) {
        return false;
    }
    m_appState->setShowCustomPromptInput(false);
    m_appState->setCustomPromptText(QString());
    return true;
}

void AppDelegate::runCustomPrompt(const QString& text)
{
    m_appState->setLastCustomPromptText(text);
    runPrompt(Prompt::create(0, QStringLiteral("Custom"), text));
}

void AppDelegate::closePanel()
{
    emit panelCloseRequested();
}

void AppDelegate::windowWillClose()
{
    cancelCurrentRun();
    m_appState->setResultText(QString());
    m_appState->setIsLoading(false);
    m_appState->setLastCustomPromptText(std::nullopt);
}
