#include "app/AppDelegate.h"

#include "app/AppLogging.h"
#include "app/AppState.h"
#include "app/PromptRun.h"
#include "model/PreferenceStore.h"
#include "model/PromptHotkeys.h"
#include "model/PromptStore.h"
#include "onboarding/OnboardingWindow.h"
#include "panel/FloatingPanel.h"
#include "platform/AccessibilityTrust.h"
#include "platform/ModuleWindow.h"
#include "platform/PasteTarget.h"
#include "platform/PlatformServices.h"
#include "settings/HotkeyRecording.h"
#include "settings/SettingsWindow.h"
#include "triggers/HotkeyManager.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMessageBox>
#include <QPointer>
#include <QQmlEngine>

#include <algorithm>
#include <limits>
#include <utility>

namespace {

// A copy press this recent may still be filling the clipboard when its trigger runs.
constexpr std::chrono::milliseconds recentCopyPress{1000};
// How far apart the monitor and Qt may handle one and the same key press.
constexpr std::chrono::milliseconds connectionSkew{100};

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
    , m_pasteTarget(PlatformServices::createPasteTarget())
{
    AppState::setQmlInstance(appState);
    m_clipboardDeadline.setSingleShot(true);
    m_clipboardDeadline.setInterval(clipboardWait);
    connect(&m_clipboardDeadline, &QTimer::timeout, this, &AppDelegate::readClipboard);
    if (QClipboard* clipboard = QGuiApplication::clipboard()) {
        connect(clipboard, &QClipboard::dataChanged, this, &AppDelegate::noteClipboardChange);
    }
    connect(m_pasteTarget.get(), &PasteTarget::pasted, this,
            [] { qCDebug(lcApp, "Answer pasted"); });
    connect(m_pasteTarget.get(), &PasteTarget::failed, this, [](const QString& reason) {
        qCWarning(lcApp, "The answer is on the clipboard but was not pasted: %s",
                  qPrintable(reason));
    });
    // Copy presses typed into Ravelo's own windows are noted to tell them from the system's.
    qApp->installEventFilter(this);
    // While the key recorder listens, the hotkey's grab would take the very combination
    // being recorded, and a double copy could open the panel: both rest until it is done.
    connect(HotkeyRecording::instance(), &HotkeyRecording::activeChanged, this,
            [this](bool active) {
                if (active) {
                    m_hotkeyManager->stop();
                } else if (m_observingPreferences) {
                    setupHotkeys();
                }
            });
}

AppDelegate::~AppDelegate()
{
    cancelCurrentRun();
    // The windows' views live in the engine: the windows go first.
    delete m_panel;
    delete m_settingsWindow;
    qDeleteAll(findChildren<OnboardingWindow*>(Qt::FindDirectChildrenOnly));
}

QQmlEngine* AppDelegate::qmlEngine()
{
    if (!m_engine) {
        m_engine = createModuleEngine();
    }
    return m_engine.get();
}

void AppDelegate::applicationDidFinishLaunching()
{
    PreferenceStore* preferences = m_appState->preferences();
    if (preferences->boolean(Preferences::hasCompletedOnboarding)) {
        requestAccessibility();
        setupHotkeys();
    } else {
        showOnboarding();
    }
    // The panel is made while Ravelo waits for its first trigger, which then only shows it:
    // loading its view would take most of the time to the first frame.
    QTimer::singleShot(0, this, [this] { createPanel(false); });
    if (!m_observingPreferences) {
        m_observingPreferences = true;
        connect(preferences, &PreferenceStore::changed, this, &AppDelegate::setupHotkeys);
        connect(preferences, &PreferenceStore::apiKeyStorageChanged, this,
                &AppDelegate::runPromptAwaitingKey);
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
    const QPointer<AppDelegate> self(this);
    m_hotkeyManager->onTrigger = [self] {
        if (self) {
            self->handleTrigger();
        }
    };
    m_hotkeyManager->onPromptHotkey = [self](const QUuid& promptId) {
        if (self) {
            self->handlePromptHotkey(promptId);
        }
    };
    const PreferenceStore* preferences = m_appState->preferences();
    const bool useDoubleCopy = preferences->readUseDoubleCopy();
    const std::optional<StoredHotkey> hotkey = preferences->customHotkey();

    m_hotkeyManager->stop();
    m_hotkeyManager->setDoubleCopyEnabled(useDoubleCopy);
    if (HotkeyRecording::instance()->isActive()) {
        return;
    }
    if (useDoubleCopy) {
        m_hotkeyManager->startDoubleCopyMonitor();
    }
    QList<GlobalHotkey::Shortcut> shortcuts;
    if (hotkey) {
        shortcuts.append(
            {QString::fromLatin1(GlobalHotkey::triggerId), hotkey->keyCode, hotkey->modifiers, {}});
    }
    // Read from the store: the list written just now reaches the state only after this write.
    const PromptHotkeys::Map promptHotkeys = PromptHotkeys::load(*preferences);
    if (!promptHotkeys.isEmpty()) {
        const QList<Prompt> prompts = PromptStore::load(*preferences);
        for (const Prompt& prompt : prompts) {
            const auto found = promptHotkeys.constFind(prompt.id);
            if (found != promptHotkeys.cend()) {
                shortcuts.append({HotkeyManager::promptShortcutId(prompt.id), found->keyCode,
                                  found->modifiers,
                                  tr("Run \u201c%1\u201d on the copied text").arg(prompt.title)});
            }
        }
    }
    if (!shortcuts.isEmpty()) {
        m_hotkeyManager->registerHotkeys(shortcuts);
    }
}

bool AppDelegate::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::KeyPress && watched->isWindowType()) {
        const auto* key = static_cast<const QKeyEvent*>(event);
        const Qt::KeyboardModifiers modifiers = key->modifiers();
        if (key->key() == Qt::Key_C && (modifiers & Qt::ControlModifier) &&
            !(modifiers & (Qt::ShiftModifier | Qt::AltModifier | Qt::MetaModifier))) {
            m_lastOwnCopyPress = m_hotkeyManager->now();
        }
    }
    return QObject::eventFilter(watched, event);
}

bool AppDelegate::isDoubleCopyInOwnWindow() const
{
    const std::optional<DoubleCopyDetector::Clock::time_point> press =
        m_hotkeyManager->lastCopyPress();
    const auto now = m_hotkeyManager->now();
    if (!press || now - *press > recentCopyPress) {
        return false;
    }
    // The key events of our own windows come on another connection than the monitor's and
    // may not have arrived yet: one of our windows still having the focus tells as much.
    if (PlatformServices::keyboardFocusIsOwn()) {
        return true;
    }
    // A press of the pair went to one of our windows. Both connections see a press within
    // a few milliseconds of each other, in either order.
    return m_lastOwnCopyPress &&
           *m_lastOwnCopyPress >= *press - DoubleCopyDetector::threshold - connectionSkew;
}

void AppDelegate::handleTrigger()
{
    m_pendingPromptId.reset();
    startTrigger();
}

void AppDelegate::handlePromptHotkey(const QUuid& promptId)
{
    qCDebug(lcApp, "Hotkey of prompt %s", qPrintable(promptId.toString(QUuid::WithoutBraces)));
    m_pendingPromptId = promptId;
    startTrigger();
}

void AppDelegate::startTrigger()
{
    if (isDoubleCopyInOwnWindow()) {
        // The copied text is Ravelo's own (an answer, a prompt): the user copies, nothing more.
        qCDebug(lcApp, "Double copy in one of Ravelo's windows: no trigger");
        return;
    }
    // Keys typed from now on are meant for the panel, never for the application the text
    // was copied from.
    createPanel()->holdKeyboard();
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
    if (m_hotkeyManager->readsClipboardText()) {
        m_hotkeyManager->readClipboardText(
            [self = QPointer<AppDelegate>(this)](const QString& text) {
                if (self) {
                    self->showClipboardText(text);
                }
            });
        return;
    }
    const QClipboard* clipboard = QGuiApplication::clipboard();
    showClipboardText(clipboard ? clipboard->text(QClipboard::Clipboard) : QString());
}

void AppDelegate::showClipboardText(const QString& text)
{
    // The new text starts afresh: an answer still streaming for the old one is dropped.
    cancelCurrentRun();
    m_appState->setClipboardText(text);
    m_appState->setResultText(QString());
    m_appState->setIsLoading(false);
    m_appState->setLastCustomPromptText(std::nullopt);
    const std::optional<QUuid> promptId = std::exchange(m_pendingPromptId, std::nullopt);
    if (text.isEmpty()) {
        qCDebug(lcApp, "Trigger with nothing to show: the clipboard holds no text");
        if (m_panel && !m_panel->isVisible()) {
            m_panel->releaseKeyboard();
        }
        return;
    }
    showPanel();
    if (!promptId) {
        return;
    }
    const QList<Prompt> prompts = m_appState->prompts();
    const auto prompt = std::find_if(prompts.cbegin(), prompts.cend(),
                                     [&](const Prompt& p) { return p.id == *promptId; });
    if (prompt != prompts.cend()) {
        runPrompt(*prompt);
    }
}

void AppDelegate::showPanel()
{
    qCDebug(lcApp, "Panel requested for %lld characters",
            qlonglong(m_appState->clipboardText().size()));
    emit panelRequested();
    FloatingPanel* panel = createPanel();
    if (lcApp().isDebugEnabled()) {
        // When the panel can first be seen: what a trigger's latency is measured to.
        auto drawn = std::make_shared<QMetaObject::Connection>();
        *drawn = connect(panel, &QQuickWindow::frameSwapped, this, [drawn] {
            // Frames swapped before this ran are queued here as well.
            if (QObject::disconnect(*drawn)) {
                qCDebug(lcApp, "Panel drawn");
            }
        });
    }
    // The window to paste into later is the one the user was in; a trigger while the panel
    // has the focus keeps the one noted before.
    if (!panel->isVisible() || !PlatformServices::keyboardFocusIsOwn()) {
        m_pasteTarget->rememberActiveWindow();
    }
    panel->centerAndShow();
}

FloatingPanel* AppDelegate::createPanel(bool forTrigger)
{
    if (!m_panel) {
        // Created for a trigger: keys typed while its view loads are already its own.
        m_panel = new FloatingPanel(qmlEngine(), nullptr,
                                    forTrigger ? FloatingPanel::Keyboard::Held
                                               : FloatingPanel::Keyboard::Free);
        const QPointer<AppDelegate> self(this);
        m_panel->onNumberKeyPressed = [self](int number) {
            if (self) {
                self->runPromptNumbered(number);
            }
        };
        m_panel->onCopyResultAndClose = [self] {
            if (self) {
                self->copyResultAndClose();
            }
        };
        m_panel->onPasteResultAndClose = [self] {
            if (self) {
                self->pasteResultAndClose();
            }
        };
        m_panel->onEnterPressed = [self] {
            if (self) {
                self->showCustomInput();
            }
        };
        m_panel->onEscPressed = [self] { return self && self->dismissCustomInput(); };
        connect(m_panel, &FloatingPanel::promptSelected, this, &AppDelegate::runPrompt);
        connect(m_panel, &FloatingPanel::customPromptSubmitted, this,
                &AppDelegate::runCustomPrompt);
        connect(m_panel, &FloatingPanel::closeRequested, this, &AppDelegate::closePanel);
        connect(m_panel, &FloatingPanel::openPreferencesRequested, this,
                &AppDelegate::openSettings);
        connect(m_panel, &FloatingPanel::closed, this, &AppDelegate::windowWillClose);
        connect(m_panel, &FloatingPanel::pasteRequested, this, &AppDelegate::pasteResultAndClose);
    }
    return m_panel;
}

void AppDelegate::openSettings()
{
    qCDebug(lcApp, "Preferences requested");
    emit settingsRequested();
    if (!m_settingsWindow) {
        m_settingsWindow = new SettingsWindow(qmlEngine(), this);
        m_settingsWindow->setAccessibilityTrust(m_accessibility.get());
    }
    if (m_panel) {
        // The panel stays open, but the preferences come over it.
        m_panel->stepBack();
    }
    m_settingsWindow->open();
}

void AppDelegate::showOnboarding()
{
    qCDebug(lcApp, "Walkthrough requested");
    emit onboardingRequested();
    // An earlier walkthrough still open stays open; the newest is the one finishing closes.
    auto* window = new OnboardingWindow(qmlEngine(), this);
    window->setAccessibilityTrust(m_accessibility.get());
    connect(window, &OnboardingWindow::completed, this, &AppDelegate::onboardingCompleted);
    window->show();
    m_onboardingWindow = window;
    qCDebug(lcApp, "Walkthrough shown");
}

void AppDelegate::onboardingCompleted()
{
    if (m_onboardingWindow) {
        m_onboardingWindow->close();
        m_onboardingWindow->deleteLater();
        m_onboardingWindow = nullptr;
    }
    requestAccessibility();
    setupHotkeys();
}

void AppDelegate::runPromptAwaitingKey()
{
    if (m_promptAwaitingKey && m_appState->preferences()->apiKeyStorage() !=
                                   PreferenceStore::ApiKeyStorage::ReadingKeyring) {
        const Prompt prompt = *std::exchange(m_promptAwaitingKey, std::nullopt);
        runPrompt(prompt);
    }
}

void AppDelegate::cancelCurrentRun()
{
    m_promptAwaitingKey.reset();
    if (m_currentRun) {
        qCDebug(lcApp, "Run cancelled");
        m_currentRun->cancel();
    }
    m_currentRun = nullptr;
}

void AppDelegate::runPrompt(const Prompt& prompt)
{
    cancelCurrentRun();
    PreferenceStore* preferences = m_appState->preferences();
    if (preferences->apiKeyStorage() == PreferenceStore::ApiKeyStorage::ReadingKeyring) {
        // Just started: the keyring has not handed over the key yet. The run starts as
        // soon as it has.
        qCDebug(lcApp, "Run waits for the keyring");
        m_promptAwaitingKey = prompt;
        m_appState->setIsLoading(true);
        m_appState->setResultText(QString());
        return;
    }
    if (!ravelo::isReadyToRun(*preferences)) {
        m_appState->setResultText(ravelo::missingApiKeyWarning());
        return;
    }
    m_appState->setIsLoading(true);
    m_appState->setResultText(QString());

    ravelo::PromptRun* run = ravelo::PromptRun::start(*preferences, &m_runs, prompt.systemPrompt,
                                                      m_appState->clipboardText());
    m_currentRun = run;
    // A cancelled run reports nothing, so none of these reach the state after it.
    connect(run, &ravelo::PromptRun::textReceived, m_appState, &AppState::appendResultText);
    connect(run, &ravelo::PromptRun::succeeded, this, [this] {
        qCDebug(lcApp, "Answer complete: %lld characters",
                qlonglong(m_appState->resultText().size()));
        m_currentRun = nullptr;
        m_appState->setIsLoading(false);
    });
    connect(run, &ravelo::PromptRun::failed, this, [this](const QString& message) {
        m_currentRun = nullptr;
        m_appState->setResultText(tr("Error: %1").arg(message));
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

bool AppDelegate::copyResult()
{
    const QString result = m_appState->resultText();
    if (result.isEmpty()) {
        return false;
    }
    if (QClipboard* clipboard = QGuiApplication::clipboard()) {
        clipboard->setText(result, QClipboard::Clipboard);
    }
    return true;
}

void AppDelegate::copyResultAndClose()
{
    if (copyResult()) {
        closePanel();
    }
}

void AppDelegate::pasteResultAndClose()
{
    if (!m_panel || !m_panel->isVisible() || m_panel->showsCopiedNotice() || !copyResult()) {
        return;
    }
    if (!m_pasteTarget->canPaste() || !m_pasteTarget->hasTarget()) {
        qCDebug(lcApp, "Answer copied; there is no window to paste it into");
        // What was copied stays in view until the panel closes.
        cancelCurrentRun();
        m_appState->setIsLoading(false);
        m_panel->closeAfterCopiedNotice();
        return;
    }
    qCDebug(lcApp, "Answer copied; pasting it");
    closePanel();
    m_pasteTarget->paste();
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
    if (m_panel) {
        m_panel->close();
    }
}

void AppDelegate::windowWillClose()
{
    qCDebug(lcApp, "Panel closed");
    cancelCurrentRun();
    m_appState->setResultText(QString());
    m_appState->setIsLoading(false);
    m_appState->setLastCustomPromptText(std::nullopt);
}

void AppDelegate::showAbout()
{
    if (m_about) {
        m_about->raise();
        m_about->activateWindow();
        return;
    }
    const QString version = QStringLiteral(RAVELO_VERSION).isEmpty()
                                ? QStringLiteral("1.0")
                                : QStringLiteral(RAVELO_VERSION);
    const QString build =
        QStringLiteral(RAVELO_BUILD).isEmpty() ? QStringLiteral("1") : QStringLiteral(RAVELO_BUILD);
    m_about = new QMessageBox(QMessageBox::NoIcon, tr("About Ravelo"),
                              QStringLiteral("<b>Ravelo</b>"), QMessageBox::Ok);
    m_about->setAttribute(Qt::WA_DeleteOnClose);
    m_about->setIconPixmap(QIcon(QStringLiteral(":/Ravelo/app/icons/ravelo.svg")).pixmap(64, 64));
    m_about->setInformativeText(
        tr("Version %1 (%2)").arg(version, build) +
        QLatin1String("<br><br><span style=\"font-size: 11pt; color: palette(mid);\">") +
        tr("AI-powered clipboard actions at your fingertips.") + QLatin1String("</span>"));
    m_about->setModal(false);
    m_about->show();
    m_about->raise();
    m_about->activateWindow();
}
