#include "settings/HotkeySettings.h"

#include "model/PreferenceStore.h"
#include "platform/KeyMap.h"
#include "platform/PlatformServices.h"
#include "settings/HotkeyConflict.h"

using namespace Qt::StringLiterals;

static_assert(KeyMap::allModifiers == Preferences::hotkeyModifierBits);

HotkeySettings::HotkeySettings(QObject* parent)
    : QObject(parent)
    , m_hotkeyDisplay(displayText(0, 0))
{}

void HotkeySettings::setPreferences(PreferenceStore* preferences)
{
    if (m_preferences == preferences) {
        return;
    }
    disconnect(m_storeConnection);
    m_preferences = preferences;
    if (m_preferences) {
        m_storeConnection = connect(m_preferences, &PreferenceStore::changed, this,
                                    &HotkeySettings::refreshHasHotkey);
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
