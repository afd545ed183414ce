#include "platform/x11/X11GlobalHotkey.h"

#include "platform/KeyMap.h"
#include "platform/PlatformLogging.h"
#include "platform/x11/X11Connection.h"

#include <algorithm>

X11GlobalHotkey::~X11GlobalHotkey()
{
    unregisterHotkey();
}

bool X11GlobalHotkey::registerShortcuts(const QList<Shortcut>& shortcuts)
{
    unregisterHotkey();
    if (shortcuts.isEmpty()) {
        return true;
    }
    if (!m_connection || m_connection->isBroken()) {
        m_connection = X11Connection::shared();
    }
    if (!m_connection) {
        return false;
    }
    connect(m_connection.get(), &X11Connection::keyPressed, this, &X11GlobalHotkey::handleKeyPress);
    connect(m_connection.get(), &X11Connection::keyReleased, this,
            [this](quint8 keycode, quint16) { handleKeyRelease(keycode); });
    connect(m_connection.get(), &X11Connection::keymapChanged, this, &X11GlobalHotkey::grabAll);
    for (const Shortcut& shortcut : shortcuts) {
        auto wanted = std::make_unique<Grab>();
        wanted->shortcut = shortcut;
        m_grabs.push_back(std::move(wanted));
    }
    return grabAll();
}

bool X11GlobalHotkey::grabAll()
{
    bool all = true;
    for (const std::unique_ptr<Grab>& wanted : m_grabs) {
        all = grab(*wanted) && all;
    }
    return all;
}

bool X11GlobalHotkey::grab(Grab& wanted)
{
    wanted.grabs.release();
    wanted.held = false;
    const quint32 keyCode = wanted.shortcut.keyCode;
    const quint32 modifiers = wanted.shortcut.modifiers;
    const KeyMap::Key* key = KeyMap::find(keyCode);
    if (!key) {
        qCDebug(lcPlatform, "Hotkey key code %u has no key here", keyCode);
        return false;
    }
    const std::vector<xcb_keycode_t> keycodes = m_connection->keycodesFor(*key);
    if (keycodes.empty()) {
        qCDebug(lcPlatform, "No key of this keyboard types %s", key->name);
        return false;
    }
    wanted.state = KeyMap::x11Modifiers(modifiers, m_connection->modifierBits());
    const quint16 numLock = m_connection->numLockMask();
    const quint16 locks[] = {0, XCB_MOD_MASK_LOCK, numLock, quint16(numLock | XCB_MOD_MASK_LOCK)};
    std::vector<X11KeyGrabs::Combination> combinations;
    for (const xcb_keycode_t keycode : keycodes) {
        for (std::size_t i = 0; i < std::size(locks); ++i) {
            // Without a Num Lock modifier the last two would repeat the first two.
            if (numLock == 0 && i >= 2) {
                break;
            }
            combinations.push_back({keycode, quint16(wanted.state | locks[i])});
        }
    }
    const quint8 error =
        wanted.grabs.grab(m_connection->connection(), m_connection->root(), combinations);
    m_connection->scheduleDrain();
    if (error != 0) {
        qCDebug(lcPlatform,
                "Hotkey %s refused by the X server (error %d): another application "
                "holds it",
                qPrintable(KeyMap::displayText(keyCode, modifiers)), error);
        return false;
    }
    qCDebug(lcPlatform, "Hotkey %s grabbed for %s",
            qPrintable(KeyMap::displayText(keyCode, modifiers)), qPrintable(wanted.shortcut.id));
    return true;
}

void X11GlobalHotkey::unregisterHotkey()
{
    if (!m_connection) {
        m_grabs.clear();
        return;
    }
    disconnect(m_connection.get(), nullptr, this, nullptr);
    const bool held = isRegistered();
    m_grabs.clear();
    if (held) {
        m_connection->scheduleDrain();
    }
}

bool X11GlobalHotkey::isRegistered() const
{
    return std::any_of(m_grabs.cbegin(), m_grabs.cend(), [](const std::unique_ptr<Grab>& wanted) {
        return !wanted->grabs.isEmpty();
    });
}

bool X11GlobalHotkey::isRegistered(const QString& id) const
{
    return std::any_of(m_grabs.cbegin(), m_grabs.cend(),
                       [&id](const std::unique_ptr<Grab>& wanted) {
                           return wanted->shortcut.id == id && !wanted->grabs.isEmpty();
                       });
}

void X11GlobalHotkey::handleKeyPress(quint8 keycode, quint16 state)
{
    const KeyMap::X11ModifierBits& bits = m_connection->modifierBits();
    const quint16 relevant = bits.shift | bits.control | bits.alt | bits.super;
    for (const std::unique_ptr<Grab>& wanted : m_grabs) {
        if (!wanted->grabs.holdsKeycode(keycode) || (state & relevant) != wanted->state) {
            continue;
        }
        // A held key repeats its press; only the first one counts.
        if (wanted->held) {
            return;
        }
        wanted->held = true;
        emit activated(wanted->shortcut.id);
        return;
    }
}

void X11GlobalHotkey::handleKeyRelease(quint8 keycode)
{
    for (const std::unique_ptr<Grab>& wanted : m_grabs) {
        if (wanted->grabs.holdsKeycode(keycode)) {
            wanted->held = false;
        }
    }
}
