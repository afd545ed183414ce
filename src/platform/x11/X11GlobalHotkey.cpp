#include "platform/x11/X11GlobalHotkey.h"

#include "platform/KeyMap.h"
#include "platform/PlatformLogging.h"
#include "platform/x11/X11Connection.h"

X11GlobalHotkey::~X11GlobalHotkey()
{
    unregisterHotkey();
}

bool X11GlobalHotkey::registerHotkey(quint32 keyCode, quint32 modifiers)
{
    unregisterHotkey();
    if (!m_connection || m_connection->isBroken()) {
        m_connection = X11Connection::shared();
    }
    if (!m_connection) {
        return false;
    }
    connect(m_connection.get(), &X11Connection::keyPressed, this, &X11GlobalHotkey::handleKeyPress);
    connect(m_connection.get(), &X11Connection::keyReleased, this,
            [this](quint8 keycode, quint16) { handleKeyRelease(keycode); });
    connect(m_connection.get(), &X11Connection::keymapChanged, this,
            &X11GlobalHotkey::handleKeymapChange);
    m_wanted = Wanted{keyCode, modifiers};
    return grab();
}

bool X11GlobalHotkey::grab()
{
    m_grabs.release();
    m_held = false;
    const KeyMap::Key* key = KeyMap::find(m_wanted->keyCode);
    if (!key) {
        qCDebug(lcPlatform, "Hotkey key code %u has no key here", m_wanted->keyCode);
        return false;
    }
    const std::vector<xcb_keycode_t> keycodes = m_connection->keycodesFor(*key);
    if (keycodes.empty()) {
        qCDebug(lcPlatform, "No key of this keyboard types %s", key->name);
        return false;
    }
    m_state = KeyMap::x11Modifiers(m_wanted->modifiers, m_connection->modifierBits());
    const quint16 numLock = m_connection->numLockMask();
    const quint16 locks[] = {0, XCB_MOD_MASK_LOCK, numLock, quint16(numLock | XCB_MOD_MASK_LOCK)};
    std::vector<X11KeyGrabs::Combination> combinations;
    for (const xcb_keycode_t keycode : keycodes) {
        for (std::size_t i = 0; i < std::size(locks); ++i) {
            // Without a Num Lock modifier the last two would repeat the first two.
            if (numLock == 0 && i >= 2) {
                break;
            }
            combinations.push_back({keycode, quint16(m_state | locks[i])});
        }
    }
    const quint8 error =
        m_grabs.grab(m_connection->connection(), m_connection->root(), combinations);
    m_connection->scheduleDrain();
    if (error != 0) {
        qCDebug(lcPlatform,
                "Hotkey %s refused by the X server (error %d): another application "
                "holds it",
                qPrintable(KeyMap::displayText(m_wanted->keyCode, m_wanted->modifiers)), error);
        return false;
    }
    qCDebug(lcPlatform, "Hotkey %s grabbed",
            qPrintable(KeyMap::displayText(m_wanted->keyCode, m_wanted->modifiers)));
    return true;
}

void X11GlobalHotkey::unregisterHotkey()
{
    m_wanted.reset();
    m_held = false;
    if (!m_connection) {
        return;
    }
    disconnect(m_connection.get(), nullptr, this, nullptr);
    if (!m_grabs.isEmpty()) {
        m_grabs.release();
        m_connection->scheduleDrain();
    }
}

void X11GlobalHotkey::handleKeyPress(quint8 keycode, quint16 state)
{
    if (!m_grabs.holdsKeycode(keycode)) {
        return;
    }
    const KeyMap::X11ModifierBits& bits = m_connection->modifierBits();
    const quint16 relevant = bits.shift | bits.control | bits.alt | bits.super;
    if ((state & relevant) != m_state) {
        return;
    }
    // A held key repeats its press; only the first one counts.
    if (m_held) {
        return;
    }
    m_held = true;
    emit activated();
}

void X11GlobalHotkey::handleKeyRelease(quint8 keycode)
{
    if (m_grabs.holdsKeycode(keycode)) {
        m_held = false;
    }
}

void X11GlobalHotkey::handleKeymapChange()
{
    if (m_wanted) {
        grab();
    }
}
