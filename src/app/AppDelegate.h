#pragma once

#include "app/PromptRun.h"
#include "model/Prompt.h"
#include "onboarding/OnboardingWindow.h"
#include "triggers/DoubleCopyDetector.h"

#include <QObject>
#include <QPointer>
#include <QTimer>

#include <memory>
#include <optional>

class AccessibilityTrust;
class AppState;
class FloatingPanel;
class HotkeyManager;
class PasteTarget;

class QMessageBox;
class SettingsWindow;
class QQmlEngine;

/// The controller: runs the launch sequence, arms the triggers and the prompts' hotkeys from
/// the stored settings after every preference change and answers a trigger by reading the
/// clipboard.
class AppDelegate : public QObject {
    Q_OBJECT

public:
    /// With the trigger backends of this session.
    explicit AppDelegate(AppState* appState, QObject* parent = nullptr);
    AppDelegate(AppState* appState, std::unique_ptr<HotkeyManager> hotkeyManager,
                QObject* parent = nullptr);
    ~AppDelegate() override;

    AppState* appState() const { return m_appState; }
    HotkeyManager* hotkeyManager() const { return m_hotkeyManager.get(); }

    /// Once, when the application is up: the walkthrough on first run, else the triggers.
    /// From then on every preference write re-arms the triggers.
    void applicationDidFinishLaunching();
    /// Re-arms both triggers as stored.
    void setupHotkeys();
    /// Asks for the permission double copy needs when double copy is on and it is missing.
    void requestAccessibility();

    /// Reads the clipboard's plain text into the state and shows the panel when there is
    /// text. Right after a copy shortcut the copied text may still be on its way: then the
    /// clipboard is read once it changes, or after a short while at the latest.
    void handleTrigger();
    /// A prompt's own hotkey: a trigger whose panel runs that prompt on the text at once.
    void handlePromptHotkey(const QUuid& promptId);
    void showPanel();
    /// The panel, made on first use; one made for a trigger holds the keyboard while its view
    /// loads.
    FloatingPanel* createPanel(bool forTrigger = true);
    void openSettings();
    void showOnboarding();
    /// The walkthrough was finished: its window closes and the triggers are armed.
    void onboardingCompleted();
    /// The About dialog: name, version, build and credits. A second call brings it forward.
    void showAbout();

    /// Runs a prompt on the copied text; the answer streams into the state. An earlier run
    /// still streaming is cancelled first: nothing of it reaches the state any more.
    void runPrompt(const Prompt& prompt);
    /// Runs the first prompt of the list with that number; nothing when none has it.
    void runPromptNumbered(qint64 number);
    /// Puts the answer on the clipboard and closes the panel; nothing when there is none.
    void copyResultAndClose();
    /// Puts the answer on the clipboard, closes the panel and pastes the answer into the
    /// window that had the focus when the panel opened. Where that cannot be done, the panel
    /// says the answer was copied for a moment before it closes. Nothing when there is no
    /// answer.
    void pasteResultAndClose();
    void showCustomInput();
    /// Hides the custom prompt field and clears it; false when it was not shown.
    bool dismissCustomInput();
    /// Runs a one-off instruction (trimmed, not empty) as prompt number 0, "Custom".
    void runCustomPrompt(const QString& text);
    void closePanel();
    /// The quick panel closed: its run is cancelled and its answer cleared.
    void windowWillClose();

    /// The engine every window of the application builds its views in.
    QQmlEngine* qmlEngine();
    /// The quick panel, once a trigger has shown it; it is reused from then on.
    FloatingPanel* panel() const { return m_panel; }
    /// The preferences window, once opened.
    SettingsWindow* settingsWindow() const { return m_settingsWindow; }
    /// The latest walkthrough window, until it is finished.
    OnboardingWindow* onboardingWindow() const { return m_onboardingWindow; }

    /// Whether a run's answer is still streaming into the state.
    bool isRunActive() const { return !m_currentRun.isNull(); }

    /// How long a trigger right after a copy press waits for the clipboard to change.
    static constexpr std::chrono::milliseconds clipboardWait{250};

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

signals:
    /// The quick panel is about to show (centred, as the key window).
    void panelRequested();
    void settingsRequested();
    void onboardingRequested();

private:
    /// Puts the answer on the clipboard; false when there is none.
    bool copyResult();
    void startTrigger();
    void readClipboard();
    void showClipboardText(const QString& text);
    void cancelCurrentRun();
    void runPromptAwaitingKey();
    void noteClipboardChange();
    bool copiedTextMayBeOnItsWay() const;
    bool isDoubleCopyInOwnWindow() const;

    AppState* m_appState;
    std::unique_ptr<HotkeyManager> m_hotkeyManager;
    std::unique_ptr<AccessibilityTrust> m_accessibility;
    std::unique_ptr<PasteTarget> m_pasteTarget;
    std::optional<DoubleCopyDetector::Clock::time_point> m_lastClipboardChange;
    /// The last copy shortcut typed into one of Ravelo's own windows.
    std::optional<DoubleCopyDetector::Clock::time_point> m_lastOwnCopyPress;
    QTimer m_clipboardDeadline;
    QObject m_runs; ///< owns the running requests
    QPointer<ravelo::PromptRun> m_currentRun;
    /// Chosen before the keyring answered.
    std::optional<Prompt> m_promptAwaitingKey;
    std::unique_ptr<QQmlEngine> m_engine;
    FloatingPanel* m_panel = nullptr;
    QPointer<QMessageBox> m_about;
    SettingsWindow* m_settingsWindow = nullptr;
    QPointer<OnboardingWindow> m_onboardingWindow;
    /// The prompt the trigger under way runs once its text is read.
    std::optional<QUuid> m_pendingPromptId;
    bool m_waitingForClipboard = false;
    bool m_observingPreferences = false;
};
