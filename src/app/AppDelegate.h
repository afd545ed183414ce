#pragma once

#include "triggers/DoubleCopyDetector.h"

#include <QObject>
#include <QTimer>

#include <memory>
#include <optional>

class AccessibilityTrust;
class AppState;
class HotkeyManager;

/// The controller: runs the launch sequence, arms the triggers from the stored settings
/// after every preference change and answers a trigger by reading the clipboard.
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
    void showPanel();
    void openSettings();
    void showOnboarding();

    /// How long a trigger right after a copy press waits for the clipboard to change.
    static constexpr std::chrono::milliseconds clipboardWait{250};

signals:
    /// The quick panel should show now (centred, as the key window).
    void panelRequested();
    void settingsRequested();
    void onboardingRequested();

private:
    void readClipboard();
    void noteClipboardChange();
    bool copiedTextMayBeOnItsWay() const;

    AppState* m_appState;
    std::unique_ptr<HotkeyManager> m_hotkeyManager;
    std::unique_ptr<AccessibilityTrust> m_accessibility;
    std::optional<DoubleCopyDetector::Clock::time_point> m_lastClipboardChange;
    QTimer m_clipboardDeadline;
    bool m_waitingForClipboard = false;
    bool m_observingPreferences = false;
};
