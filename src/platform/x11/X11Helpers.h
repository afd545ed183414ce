#pragma once

#include <QtGlobal>

#include <xcb/xcb.h>
#include <xkbcommon/xkbcommon.h>

#include <cstdlib>
#include <memory>
#include <vector>

namespace ravelo {

struct FreeDeleter {
    void operator()(void* pointer) const noexcept { std::free(pointer); }
};

/// A reply or error of xcb, freed with the owner.
template<typename T> using XcbReply = std::unique_ptr<T, FreeDeleter>;
using XcbError = std::unique_ptr<xcb_generic_error_t, FreeDeleter>;

/// Waits for a checked request. Its error comes back here instead of reaching any event
/// queue or terminal: the X error code, or 0 when the request succeeded.
quint8 xcbErrorCode(xcb_connection_t* connection, xcb_void_cookie_t cookie);

struct XkbDeleter {
    void operator()(xkb_context* context) const noexcept { xkb_context_unref(context); }
    void operator()(xkb_keymap* keymap) const noexcept { xkb_keymap_unref(keymap); }
    void operator()(xkb_state* state) const noexcept { xkb_state_unref(state); }
};
using XkbContext = std::unique_ptr<xkb_context, XkbDeleter>;
using XkbKeymap = std::unique_ptr<xkb_keymap, XkbDeleter>;
using XkbState = std::unique_ptr<xkb_state, XkbDeleter>;

} // namespace ravelo

/// Passive key grabs on one window, taken all together or not at all, and given back when
/// the object goes.
class X11KeyGrabs {
public:
    struct Combination {
        xcb_keycode_t keycode;
        quint16 modifiers;
    };

    X11KeyGrabs() = default;
    ~X11KeyGrabs();
    X11KeyGrabs(const X11KeyGrabs&) = delete;
    X11KeyGrabs& operator=(const X11KeyGrabs&) = delete;

    /// Grabs every combination with checked requests. When the server refuses one (another
    /// client holds it: BadAccess), the ones already taken are given back and the X error
    /// code is returned; 0 when all were taken.
    quint8 grab(xcb_connection_t* connection, xcb_window_t window,
                const std::vector<Combination>& combinations);
    void release();

    bool isEmpty() const { return m_taken.empty(); }
    bool holdsKeycode(xcb_keycode_t keycode) const;

private:
    xcb_connection_t* m_connection = nullptr;
    xcb_window_t m_window = XCB_NONE;
    std::vector<Combination> m_taken;
};
