#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QtQml/qqmlregistration.h>

#include <memory>
#include <optional>

#include "model/PreferenceStore.h"

class DesktopShortcut;

/// The Hotkey tab's settings: the double-copy switch and the recorded global hotkey.
/// Everything is written to the preference store at once; the application re-arms its
/// triggers from there.
class HotkeySettings : public QObject {
    Q_OBJECT
    QML_ELEMENT
    Q_PROPERTY(PreferenceStore* preferences READ preferences WRITE setPreferences NOTIFY
                   preferencesChanged)
    Q_PROPERTY(
        bool useDoubleCopy READ useDoubleCopy WRITE setUseDoubleCopy NOTIFY useDoubleCopyChanged)
    Q_PROPERTY(QString hotkeyDisplay READ hotkeyDisplay NOTIFY hotkeyDisplayChanged)
    /// Whether a key code other than 0 is stored, as the store holds it now.
    Q_PROPERTY(bool hasHotkey READ hasHotkey NOTIFY hasHotkeyChanged)
    Q_PROPERTY(bool isRecording READ isRecording WRITE setIsRecording NOTIFY isRecordingChanged)
    /// Why the last recorded combination was refused; empty once one is taken or cleared.
    Q_PROPERTY(QString conflictText READ conflictText NOTIFY conflictTextChanged)
    /// One line on how this session gives Ravelo its hotkey.
    Q_PROPERTY(QString hotkeyPathText READ hotkeyPathText CONSTANT)
    /// Whether Ravelo can add the desktop's own shortcut for "ravelo trigger" (GNOME before
    /// 48, which has no global shortcuts for applications).
    Q_PROPERTY(bool offersDesktopShortcut READ offersDesktopShortcut CONSTANT)
    Q_PROPERTY(DesktopShortcutState desktopShortcutState READ desktopShortcutState NOTIFY
                   desktopShortcutStateChanged)
    /// One line on the desktop's shortcut: its keys, what adding it does, or why it failed.
    Q_PROPERTY(
        QString desktopShortcutText READ desktopShortcutText NOTIFY desktopShortcutTextChanged)
    /// Whether a valid hotkey is recorded and nothing is being written.
    Q_PROPERTY(
        bool canAddDesktopShortcut READ canAddDesktopShortcut NOTIFY canAddDesktopShortcutChanged)

public:
    enum class DesktopShortcutState {
        Checking, ///< not read yet
        Absent,
        Current,   ///< there, with the recorded keys
        OutOfDate, ///< there, with other keys
        Working,   ///< being written
    };
    Q_ENUM(DesktopShortcutState)

    explicit HotkeySettings(QObject* parent = nullptr);
    ~HotkeySettings() override;

    PreferenceStore* preferences() const { return m_preferences; }
    void setPreferences(PreferenceStore* preferences);

    bool useDoubleCopy() const { return m_useDoubleCopy; }
    void setUseDoubleCopy(bool use);

    QString hotkeyDisplay() const { return m_hotkeyDisplay; }
    bool hasHotkey() const { return m_hasHotkey; }

    bool isRecording() const { return m_isRecording; }
    QString conflictText() const { return m_conflictText; }
    static QString hotkeyPathText();
    void setIsRecording(bool recording);

    /// Reads the switch and the hotkey from the store; a stored "off" is written back.
    Q_INVOKABLE void load();
    /// Stores a recorded combination, shows it and ends recording. A combination a prompt
    /// runs on is refused with `conflictText`, and recording ends all the same.
    Q_INVOKABLE void recordHotkey(quint32 keyCode, quint32 modifiers);
    /// Stores 0 and 0: no hotkey.
    Q_INVOKABLE void clearHotkey();

    /// What the shortcut button shows for stored values: "Not set" for key code 0,
    /// "Ctrl+Shift+Space" and the like, "Key96" for keys without a name, and "Invalid
    /// shortcut" for values no key event can give.
    static QString displayText(qint64 keyCode, qint64 modifiers);

    bool offersDesktopShortcut() const { return m_desktopShortcut != nullptr; }
    DesktopShortcutState desktopShortcutState() const { return m_desktopShortcutState; }
    QString desktopShortcutText() const { return m_desktopShortcutText; }
    bool canAddDesktopShortcut() const { return m_canAddDesktopShortcut; }
    /// Adds the desktop's shortcut with the recorded keys, or gives it those keys. While it
    /// is there, it follows every new recording, and goes when the hotkey is cleared.
    Q_INVOKABLE void addDesktopShortcut();
    Q_INVOKABLE void removeDesktopShortcut();

    /// What the desktop's shortcut runs: this installation's `ravelo trigger`.
    static QStringList triggerCommand();

signals:
    void preferencesChanged();
    void useDoubleCopyChanged();
    void hotkeyDisplayChanged();
    void hasHotkeyChanged();
    void isRecordingChanged();
    void conflictTextChanged();
    void desktopShortcutStateChanged();
    void desktopShortcutTextChanged();
    void canAddDesktopShortcutChanged();

private:
    void loadHotkeyDisplay();
    void refreshHasHotkey();
    void setConflictText(const QString& text);
    void handleStoreChanged();
    std::optional<StoredHotkey> storedHotkey() const;
    void followRecordedKeys();
    void updateDesktopShortcutState();

    QPointer<PreferenceStore> m_preferences;
    QMetaObject::Connection m_storeConnection;
    bool m_useDoubleCopy = true;
    QString m_hotkeyDisplay;
    bool m_hasHotkey = false;
    bool m_isRecording = false;
    QString m_conflictText;
    std::unique_ptr<DesktopShortcut> m_desktopShortcut;
    /// The recorded keys the desktop's shortcut was last made to follow, once loaded.
    std::optional<StoredHotkey> m_followedKeys;
    bool m_following = false;
    DesktopShortcutState m_desktopShortcutState = DesktopShortcutState::Checking;
    QString m_desktopShortcutText;
    bool m_canAddDesktopShortcut = false;
};
