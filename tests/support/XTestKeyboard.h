#pragma once

#include <QList>

#include <xcb/xcb.h>

#include <initializer_list>

/// A second X client for tests: types through XTest, owns windows and grabs keys, on a
/// connection of its own (so that, to Ravelo, it is another application).
class XTestKeyboard {
public:
    XTestKeyboard();
    ~XTestKeyboard();
    XTestKeyboard(const XTestKeyboard&) = delete;
    XTestKeyboard& operator=(const XTestKeyboard&) = delete;

    bool isValid() const;
    xcb_connection_t* connection() const { return m_connection; }
    xcb_window_t root() const { return m_root; }

    /// The keycode that types the keysym without Shift; 0 when none does. Call
    /// `refreshMapping` after changing the layout.
    xcb_keycode_t keycode(quint32 keysym) const;
    void refreshMapping();
    /// The keycode at a key position by its xkb name ("AB03"); 0 when there is none.
    xcb_keycode_t keycodeAt(const char* xkbName) const;
    /// Locks the keyboard group (layout) with that index.
    void lockGroup(int group);

    void press(xcb_keycode_t keycode);
    void release(xcb_keycode_t keycode);
    /// Presses the modifiers in order, taps the key, releases the modifiers in reverse.
    void tap(quint32 keysym, std::initializer_list<quint32> modifierKeysyms = {});
    void tapKeycode(xcb_keycode_t keycode, std::initializer_list<quint32> modifierKeysyms = {});
    /// Returns once the server has processed everything sent so far.
    void sync();

    /// Whether the lock (Caps Lock, Num Lock) is on, from the server's modifier state.
    bool isLocked(quint16 modifierBit);
    void setLocked(quint32 lockKeysym, quint16 modifierBit, bool on);
    /// Num Lock's modifier bit from the modifier map.
    quint16 numLockMask();

    /// A mapped window of this client that has the input focus and counts its key presses.
    xcb_window_t createFocusedWindow();
    /// Key presses delivered so far to windows of this client, by keycode.
    QList<xcb_keycode_t> takeKeyPresses();

    /// A passive grab by this client; the X error code, 0 when taken.
    quint8 grabKey(xcb_keycode_t keycode, quint16 modifiers);
    void ungrabKey(xcb_keycode_t keycode, quint16 modifiers);

private:
    xcb_connection_t* m_connection = nullptr;
    xcb_window_t m_root = XCB_NONE;
    xcb_keycode_t m_minKeycode = 0;
    int m_keysymsPerKeycode = 0;
    QList<quint32> m_keysyms;
    QList<xcb_keycode_t> m_keyPresses;
};
