#pragma once

#include "platform/GlobalHotkey.h"
#include "triggers/DoubleCopyDetector.h"

#include <QObject>
#include <QUuid>

#include <functional>
#include <memory>
#include <optional>

class ClipboardOwnerMonitor;
class GlobalKeyMonitor;

/// The one trigger object: double copy, the custom global hotkey and the prompts' own
/// hotkeys. The first two call `onTrigger`, a prompt's hotkey `onPromptHotkey`, on the GUI
/// thread from the event loop, never from inside the key handling.
///
/// A double copy is seen as two changes of the clipboard's owner where the session reports
/// them (XFixes on X11 and XWayland, data control on KDE and wlroots sessions), and on an X11
/// session also as two copy key presses. A copy seen both ways counts once.
///
/// The owner arms it after every preference change: set `onTrigger`, `stop()`, set
/// `doubleCopyEnabled`, then `startDoubleCopyMonitor()` and `registerHotkeys()` as stored.
class HotkeyManager : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool doubleCopyEnabled READ doubleCopyEnabled WRITE setDoubleCopyEnabled NOTIFY
                   doubleCopyEnabledChanged)

public:
    using Clock = std::function<DoubleCopyDetector::Clock::time_point()>;

    /// With the backends of this session (PlatformServices).
    explicit HotkeyManager(QObject* parent = nullptr);
    HotkeyManager(std::unique_ptr<GlobalKeyMonitor> monitor, std::unique_ptr<GlobalHotkey> hotkey,
                  QObject* parent = nullptr);
    HotkeyManager(std::unique_ptr<GlobalKeyMonitor> monitor,
                  std::unique_ptr<ClipboardOwnerMonitor> ownerMonitor,
                  std::unique_ptr<GlobalHotkey> hotkey, QObject* parent = nullptr);
    ~HotkeyManager() override;

    /// What a trigger calls; none by default. An absent callback is skipped.
    std::function<void()> onTrigger;
    /// What a prompt's hotkey calls with the prompt's id; none by default.
    std::function<void(const QUuid&)> onPromptHotkey;

    /// The id a prompt's combination is registered under: "prompt-" and the prompt's id.
    static QString promptShortcutId(const QUuid& promptId);

    /// Mirrors the double-copy setting; whether double copy acts depends only on whether
    /// the monitor has been started.
    bool doubleCopyEnabled() const { return m_doubleCopyEnabled; }
    void setDoubleCopyEnabled(bool enabled);

    /// Starts watching every key-down for a double copy. Silently inactive when this
    /// session cannot see other applications' keys.
    void startDoubleCopyMonitor();
    /// Takes the trigger's combination (stored key code and modifier mask) system-wide, and
    /// nothing else. A refused combination leaves the hotkey inactive without any message.
    void registerHotkey(quint32 keyCode, quint32 modifiers);
    /// Takes every combination at once: the trigger's under `GlobalHotkey::triggerId`, each
    /// prompt's under `promptShortcutId`. Of two with the same keys only the first is taken.
    void registerHotkeys(const QList<GlobalHotkey::Shortcut>& shortcuts);
    /// Stops both triggers and forgets a pending first copy press.
    void stop();

    /// Queues a trigger as a double copy or the hotkey would (`ravelo trigger`).
    void trigger();

    /// Whether either way of seeing a double copy is armed.
    bool isDoubleCopyMonitorActive() const;
    /// Whether the trigger's own combination is taken.
    bool isHotkeyRegistered() const;
    bool isPromptHotkeyRegistered(const QUuid& promptId) const;

    /// The moment of the last copy shortcut seen by the monitor. Raw key events arrive
    /// before the focused application has handled the key, so the clipboard may still be
    /// about to change shortly after it.
    std::optional<DoubleCopyDetector::Clock::time_point> lastCopyPress() const
    {
        return m_lastCopyPress;
    }
    DoubleCopyDetector::Clock::time_point now() const { return m_clock(); }

    /// Whether the copied text must be read through `readClipboardText`: Qt's clipboard
    /// goes stale in this session while none of Ravelo's windows has the focus.
    bool readsClipboardText() const;
    void readClipboardText(std::function<void(const QString&)> done);
    /// Ravelo itself has just written the clipboard: the owner change that follows is no
    /// copy of the user's. Noted by itself for writes through Qt's clipboard.
    void noteOwnClipboardWrite();
    /// Replaces the steady clock (tests).
    void setClock(Clock clock);

signals:
    void doubleCopyEnabledChanged();
    /// Emitted with every trigger, right before `onTrigger` runs.
    void triggered();
    /// Emitted with every press of a prompt's hotkey, right before `onPromptHotkey` runs.
    void promptTriggered(const QUuid& promptId);

private:
    void handleKeyDown(quint32 keyCode, quint32 modifiers);
    void handleOwnerChange(quint64 owner);
    void queueTrigger();
    void handleActivated(const QString& id);

    std::unique_ptr<GlobalKeyMonitor> m_monitor;
    std::unique_ptr<ClipboardOwnerMonitor> m_ownerMonitor;
    std::unique_ptr<GlobalHotkey> m_hotkey;
    DoubleCopyDetector m_detector;
    DoubleCopyDetector m_ownerDetector;
    Clock m_clock;
    std::optional<DoubleCopyDetector::Clock::time_point> m_lastCopyPress;
    std::optional<DoubleCopyDetector::Clock::time_point> m_lastKeyTrigger;
    std::optional<DoubleCopyDetector::Clock::time_point> m_lastOwnWrite;
    bool m_doubleCopyEnabled = true;
};
