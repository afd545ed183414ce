#pragma once

#include "platform/PasteTarget.h"
#include "platform/x11/X11Helpers.h"

#include <QTimer>

#include <xcb/xcb.h>

#include <memory>
#include <optional>
#include <vector>

class QSocketNotifier;

/// Pasting on X11, on a connection of its own: the remembered window is `_NET_ACTIVE_WINDOW`
/// at the time, activated again as a pager would (which focus-stealing prevention lets
/// through), and once the server reports the focus in it and the user has let go of every
/// key but the modifiers, XTest types Ctrl+V. A Ctrl the user still holds is used as it
/// is; one pressed here is released here.
class X11PasteTarget : public PasteTarget {
    Q_OBJECT

public:
    /// None when the X server cannot be reached or has no XTest.
    static std::unique_ptr<X11PasteTarget> create();
    ~X11PasteTarget() override;

    bool canPaste() const override { return true; }
    void rememberActiveWindow() override;
    bool hasTarget() override;
    void paste() override;

    /// How long the window may take to get the focus and the user to let go of the keys.
    static constexpr int focusLimitMs = 3000;

private:
    X11PasteTarget(ravelo::XcbConnection connection, int screenNumber);

    xcb_atom_t atom(const char* name);
    /// Collects the answer to `rememberActiveWindow`'s questions, once.
    void settleTarget();
    bool isOwnWindow(xcb_window_t window);
    bool exists(xcb_window_t window);
    bool focusIsOnTarget();
    /// Keycodes the modifier map lists, and those of the Control modifier.
    void readModifierMap(std::vector<xcb_keycode_t>& modifiers,
                         std::vector<xcb_keycode_t>& control);
    xcb_keycode_t keycodeOfV();
    void activateTarget();
    void readEvents(xcb_generic_event_t* (*next)(xcb_connection_t*));
    void handleEvent(const xcb_generic_event_t* event);
    void advance();
    void typePaste(const std::vector<xcb_keycode_t>& control, bool controlHeld);
    void finish(bool done, const QString& reason = QString());

    ravelo::XcbConnection m_connection;
    xcb_window_t m_root;
    ravelo::X11ServerClock m_clock;
    xcb_window_t m_target = XCB_NONE;
    std::optional<xcb_get_property_cookie_t> m_activeCookie;
    xcb_get_input_focus_cookie_t m_focusCookie = {};
    bool m_pasting = false;
    /// The last key found down that keeps the paste waiting.
    xcb_keycode_t m_heldKey = 0;
    std::unique_ptr<QSocketNotifier> m_notifier;
    QTimer m_deadline;
    /// While the focus is there but keys are still held: how often to look again.
    QTimer m_keysReleased;
};
