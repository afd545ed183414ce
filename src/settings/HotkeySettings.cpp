#include "settings/HotkeySettings.h"

#include "model/PreferenceStore.h"
#include "platform/KeyMap.h"
#include "platform/PlatformServices.h"
#include "settings/HotkeyConflict.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

static_assert(KeyMap::allModifiers == Preferences::hotkeyModifierBits);

HotkeySettings::HotkeySettings(QObject* parent)
    : QObject(parent)
    , m_hotkeyDisplay(displayText(0, 0))
    , m_desktopShortcut(PlatformServices::createDesktopShortcut())
{
    if (m_desktopShortcut) {
        connect(m_desktopShortcut.get(), &DesktopShortcut::changed, this, [this] {
            followRecordedKeys();
            updateDesktopShortcutState();
        });
    }
    updateDesktopShortcutState();
}

HotkeySettings::~HotkeySettings() = default;

void HotkeySettings::setPreferences(PreferenceStore* preferences)
{
    if (m_preferences == preferences) {
        return;
    }
    disconnect(m_storeConnection);
    m_preferences = preferences;
    if (m_preferences) {
        m_storeConnection = connect(m_preferences, &PreferenceStore::changed, this,
                                    &HotkeySettings::handleStoreChanged);
    }
    refreshHasHotkey();
    emit preferencesChanged();
}

void HotkeySettings::setUseDoubleCopy(bool use)
{
    if (m_useDoubleCopy == use) {
        return;
    }
    m_useDoubleCopy = use;
    if (m_preferences) {
        m_preferences->setBoolean(Preferences::useDoubleCopy, use);
    }
    emit useDoubleCopyChanged();
}

void HotkeySettings::setIsRecording(bool recording)
{
    if (m_isRecording == recording) {
        return;
    }
    m_isRecording = recording;
    emit isRecordingChanged();
}

void HotkeySettings::load()
{
    if (!m_preferences) {
        return;
    }
    // Like every change of the switch, a load that turns it off stores the value.
    setUseDoubleCopy(m_preferences->readUseDoubleCopy());
    loadHotkeyDisplay();
    refreshHasHotkey();
    if (m_desktopShortcut) {
        m_followedKeys = storedHotkey();
        m_following = true;
        m_desktopShortcut->refresh();
    }
}

void HotkeySettings::recordHotkey(quint32 keyCode, quint32 modifiers)
{
    if (m_preferences) {
        const QString conflict =
            HotkeyConflict::forTrigger(*m_preferences, StoredHotkey{keyCode, modifiers});
        setConflictText(conflict);
        if (!conflict.isEmpty()) {
            setIsRecording(false);
            return;
        }
        m_preferences->setInteger(Preferences::customHotkeyKeyCode, keyCode);
        m_preferences->setInteger(Preferences::customHotkeyModifiers, modifiers);
    }
    loadHotkeyDisplay();
    setIsRecording(false);
}

void HotkeySettings::clearHotkey()
{
    setConflictText(QString());
    if (m_preferences) {
        m_preferences->setInteger(Preferences::customHotkeyKeyCode, 0);
        m_preferences->setInteger(Preferences::customHotkeyModifiers, 0);
    }
    loadHotkeyDisplay();
}

QString HotkeySettings::displayText(qint64 keyCode, qint64 modifiers)
{
    if (keyCode == 0) {
        return tr("Not set");
    }
    const std::optional<StoredHotkey> hotkey =
        PreferenceStore::hotkeyFromStored(keyCode, modifiers);
    if (!hotkey) {
        return tr("Invalid shortcut");
    }
    return KeyMap::displayText(hotkey->keyCode, hotkey->modifiers);
}

void HotkeySettings::loadHotkeyDisplay()
{
    QString text = displayText(0, 0);
    if (m_preferences) {
        text = displayText(m_preferences->integer(Preferences::customHotkeyKeyCode),
                           m_preferences->integer(Preferences::customHotkeyModifiers));
    }
    if (m_hotkeyDisplay == text) {
        return;
    }
    m_hotkeyDisplay = text;
    emit hotkeyDisplayChanged();
}

void HotkeySettings::setConflictText(const QString& text)
{
    if (m_conflictText == text) {
        return;
    }
    m_conflictText = text;
    emit conflictTextChanged();
}

void HotkeySettings::refreshHasHotkey()
{
    const bool has = m_preferences && m_preferences->integer(Preferences::customHotkeyKeyCode) != 0;
    if (m_hasHotkey == has) {
        return;
    }
    m_hasHotkey = has;
    emit hasHotkeyChanged();
}

void HotkeySettings::handleStoreChanged()
{
    refreshHasHotkey();
    followRecordedKeys();
    updateDesktopShortcutState();
}

std::optional<StoredHotkey> HotkeySettings::storedHotkey() const
{
    return m_preferences ? m_preferences->customHotkey() : std::nullopt;
}

void HotkeySettings::addDesktopShortcut()
{
    const std::optional<StoredHotkey> keys = storedHotkey();
    if (!m_desktopShortcut || !keys) {
        return;
    }
    m_followedKeys = keys;
    m_following = true;
    m_desktopShortcut->install(keys->keyCode, keys->modifiers, triggerCommand());
}

void HotkeySettings::removeDesktopShortcut()
{
    if (m_desktopShortcut) {
        m_desktopShortcut->remove();
    }
}

void HotkeySettings::followRecordedKeys()
{
    if (!m_desktopShortcut || !m_following || m_desktopShortcut->isBusy() ||
        !m_desktopShortcut->isKnown()) {
        return;
    }
    const std::optional<StoredHotkey> keys = storedHotkey();
    if (keys == m_followedKeys) {
        return;
    }
    m_followedKeys = keys;
    if (!m_desktopShortcut->isInstalled()) {
        return;
    }
    // Cleared: the desktop's keys would otherwise go on opening the panel.
    if (keys) {
        m_desktopShortcut->install(keys->keyCode, keys->modifiers, triggerCommand());
    } else {
        m_desktopShortcut->remove();
    }
}

void HotkeySettings::updateDesktopShortcutState()
{
    DesktopShortcutState state = DesktopShortcutState::Checking;
    QString text;
    const std::optional<StoredHotkey> keys = storedHotkey();
    const QString keysText = keys ? KeyMap::displayText(keys->keyCode, keys->modifiers) : QString();
    if (!m_desktopShortcut) {
        state = DesktopShortcutState::Absent;
    } else if (m_desktopShortcut->isBusy()) {
        state = m_desktopShortcut->isKnown() ? DesktopShortcutState::Working
                                             : DesktopShortcutState::Checking;
    } else if (m_desktopShortcut->isKnown() && m_desktopShortcut->isInstalled()) {
        const bool sameKeys = keys && m_desktopShortcut->hasKeys(keys->keyCode, keys->modifiers);
        if (sameKeys && m_desktopShortcut->runs(triggerCommand())) {
            state = DesktopShortcutState::Current;
            text = tr("GNOME opens the panel on %1 (Settings, Keyboard, Custom Shortcuts, "
                      "\"Ravelo\").")
                       .arg(keysText);
        } else {
            state = DesktopShortcutState::OutOfDate;
            if (sameKeys) {
                // Made by hand, or for a Ravelo that has moved since.
                text = tr("GNOME's shortcut \"Ravelo\" runs another program than this Ravelo: "
                          "update it to run this one.");
            } else if (keys) {
                text = tr("GNOME's shortcut \"Ravelo\" has other keys than %1: update it to use "
                          "them.")
                           .arg(keysText);
            } else {
                text = tr("GNOME has a shortcut \"Ravelo\" with keys of its own.");
            }
        }
    } else {
        // Also when reading it failed: adding it is then the way to try again.
        state = DesktopShortcutState::Absent;
        text = keys ? tr("Add a GNOME shortcut that opens the panel on %1.").arg(keysText)
                    : tr("Record a shortcut first, then add it to GNOME's keyboard shortcuts.");
    }
    if (m_desktopShortcut && !m_desktopShortcut->errorText().isEmpty()) {
        text = m_desktopShortcut->errorText();
    }
    if (m_desktopShortcutState != state) {
        m_desktopShortcutState = state;
        emit desktopShortcutStateChanged();
    }
    if (m_desktopShortcutText != text) {
        m_desktopShortcutText = text;
        emit desktopShortcutTextChanged();
    }
    const bool canAdd = m_desktopShortcut && keys && !m_desktopShortcut->isBusy();
    if (m_canAddDesktopShortcut != canAdd) {
        m_canAddDesktopShortcut = canAdd;
        emit canAddDesktopShortcutChanged();
    }
}

QStringList HotkeySettings::triggerCommand()
{
    // `ravelo` starts the application program with its own path as argv[0]; a program
    // started otherwise looks beside itself.
    QString program = QCoreApplication::arguments().value(0);
    if (!QDir::isAbsolutePath(program) || QFileInfo(program).fileName() != "ravelo"_L1 ||
        !QFileInfo(program).isExecutable()) {
        const QString beside = QCoreApplication::applicationDirPath() + "/ravelo"_L1;
        program = QFileInfo(beside).isExecutable() ? beside : u"ravelo"_s;
    }
    return {program, u"trigger"_s};
}

QString HotkeySettings::hotkeyPathText()
{
    switch (PlatformServices::hotkeyPath()) {
    case PlatformServices::HotkeyPath::X11Grab:
        return tr("The hotkey is taken on the X11 display.");
    case PlatformServices::HotkeyPath::Portal:
        return tr("The hotkey goes through the desktop's global shortcuts, which may ask you to "
                  "confirm it.");
    case PlatformServices::HotkeyPath::KdeShortcuts:
        return tr("The hotkey goes through KDE's global shortcuts (System Settings, Shortcuts, "
                  "Ravelo).");
    case PlatformServices::HotkeyPath::DesktopShortcut:
        break;
    }
    return tr("This desktop gives Ravelo no hotkey of its own: bind the command \"ravelo "
              "trigger\" to a keyboard shortcut in the desktop's settings.");
}
