#pragma once

#include "platform/KeyMap.h"
#include "platform/x11/X11Helpers.h"

#include <QObject>

#include <memory>
#include <vector>

class QSocketNotifier;

/// Ravelo's own connection to the X server, apart from Qt's: raw key presses of every
/// application, key grabs and the keyboard's state. It is read through a socket notifier,
/// so it costs nothing while no event arrives.
///
/// The keyboard state follows xkb's StateNotify events, which the server sends before the
/// raw event of the next key, so the modifiers of each key-down are known without asking the
/// server. The keymap is reloaded when the keyboard or its layouts change.
class X11Connection : public QObject {
    Q_OBJECT

public:
    /// The connection shared by the X11 backends, opened on first use from DISPLAY; null when
    /// the server cannot be reached or lacks XInput 2.1 or XKB.
    static std::shared_ptr<X11Connection> shared();
    ~X11Connection() override;

    xcb_connection_t* connection() const { return m_connection; }
    xcb_window_t root() const { return m_root; }
    bool isBroken() const;

    /// Raw key presses are selected while at least one user holds them.
    bool acquireRawKeyPresses();
    void releaseRawKeyPresses();

    /// The modifiers held now, in the stored encoding; Caps Lock and Num Lock never appear.
    quint32 currentModifiers() const;
    /// Whether the key types c in the active layout, or is the physical C key when the active
    /// layout has no Latin c (as toolkits match Ctrl+C on Cyrillic or Greek layouts).
    bool isCopyKey(xcb_keycode_t keycode) const;
    bool isModifierKey(xcb_keycode_t keycode) const;
    /// The stored virtual key code of what the key types in the active layout;
    /// `KeyMap::copyKeyCode` for the copy key, `KeyMap::unknownKeyCode` when unknown.
    quint32 virtualKeyCode(xcb_keycode_t keycode) const;

    /// Every keycode that types the key's keysym in some layout; when none does, the keycode
    /// at the key's usual position. Empty when the keyboard has neither.
    std::vector<xcb_keycode_t> keycodesFor(const KeyMap::Key& key) const;
    const KeyMap::X11ModifierBits& modifierBits() const { return m_modifierBits; }
    /// Num Lock's modifier bit as the modifier map has it; 0 when no key carries Num Lock.
    quint16 numLockMask() const { return m_numLockMask; }

    /// Handles, from the event loop, events that a synchronous request has already read off
    /// the socket (the socket notifier does not see those).
    void scheduleDrain();

signals:
    void rawKeyPressed(quint8 keycode);
    /// Core key events, delivered to this connection by its grabs.
    void keyPressed(quint8 keycode, quint16 state);
    void keyReleased(quint8 keycode, quint16 state);
    void keymapChanged();

private:
    X11Connection();
    bool open();
    bool loadKeymap();
    void readModifierMap();
    bool selectXkbEvents();
    bool selectRawKeyPresses(bool selected);
    void drain();
    void handleEvent(const xcb_generic_event_t* event);
    void handleXkbEvent(const xcb_generic_event_t* event);
    xkb_keysym_t firstKeysym(xcb_keycode_t keycode, xkb_layout_index_t layout) const;

    xcb_connection_t* m_connection = nullptr;
    xcb_window_t m_root = XCB_NONE;
    quint8 m_xinputOpcode = 0;
    quint8 m_xkbEventBase = 0;
    qint32 m_keyboardId = -1;
    ravelo::XkbContext m_context;
    ravelo::XkbKeymap m_keymap;
    ravelo::XkbState m_state;
    KeyMap::X11ModifierBits m_modifierBits;
    quint16 m_numLockMask = 0;
    /// Per layout of the keymap: whether some key types a Latin c in it.
    std::vector<bool> m_layoutHasLatinC;
    xcb_keycode_t m_physicalC = 0;
    int m_rawKeyUsers = 0;
    bool m_drainScheduled = false;
    bool m_brokenReported = false;
    QSocketNotifier* m_notifier = nullptr;
};
