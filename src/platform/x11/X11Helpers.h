#pragma once

#include <QtGlobal>

#include <xcb/xcb.h>
#include <xkbcommon/xkbcommon.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace ravelo {

struct FreeDeleter {
    void operator()(void* pointer) const noexcept { std::free(pointer); }
};

/// A reply or error of xcb, freed with the owner.
template<typename T> using XcbReply = std::unique_ptr<T, FreeDeleter>;
using XcbError = std::unique_ptr<xcb_generic_error_t, FreeDeleter>;

struct XcbDisconnect {
    void operator()(xcb_connection_t* connection) const noexcept { xcb_disconnect(connection); }
};
using XcbConnection = std::unique_ptr<xcb_connection_t, XcbDisconnect>;

/// A connection of its own to the display Qt's windows are on.
struct QtDisplayConnection {
    XcbConnection connection;
    xcb_connection_t* qtConnection = nullptr;
    int screenNumber = 0;
};
/// None when Qt does not run on X11 or the display cannot be reached (which is logged).
std::optional<QtDisplayConnection> connectToQtDisplay();

/// The root window of the screen; none when the server has no such screen.
xcb_window_t screenRoot(xcb_connection_t* connection, int screenNumber);

/// None when the server cannot intern the name.
xcb_atom_t atom(xcb_connection_t* connection, const char* name);

/// Whether a window manager runs and lists the feature in `_NET_SUPPORTED`.
bool windowManagerSupports(xcb_connection_t* connection, xcb_window_t root, xcb_atom_t feature);

/// Asks the window manager to activate the window as a pager would, which focus-stealing
/// prevention lets through. False, with nothing sent, when no window manager handles
/// `_NET_ACTIVE_WINDOW`. Not flushed.
bool requestActivation(xcb_connection_t* connection, xcb_window_t root, xcb_window_t window,
                       xcb_timestamp_t time);

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

/// A hidden input-only window whose property changes yield fresh server timestamps, for
/// requests that focus-stealing prevention judges. The connection must outlive it.
class X11ServerClock {
public:
    X11ServerClock(xcb_connection_t* connection, xcb_window_t root);
    ~X11ServerClock();
    X11ServerClock(const X11ServerClock&) = delete;
    X11ServerClock& operator=(const X11ServerClock&) = delete;

    xcb_window_t window() const { return m_window; }
    /// Waits for the server's answer; the events read meanwhile go to `otherEvent`, in order.
    xcb_timestamp_t now(const std::function<void(const xcb_generic_event_t*)>& otherEvent);

private:
    xcb_connection_t* m_connection;
    xcb_window_t m_window;
};

/// The keyboard focus taken from a window with an ordinary focus change, which its toolkit
/// sees as the focus leaving it, and kept on an input-only window of this connection, out of
/// sight and never managed. When this goes, the focus returns to that window unless it has
/// moved on meanwhile. The connection must outlive it.
class X11FocusParking {
public:
    /// Takes the focus from `from`; see `isParked` for whether the server let it.
    X11FocusParking(xcb_connection_t* connection, xcb_window_t root, xcb_window_t from);
    ~X11FocusParking();
    X11FocusParking(const X11FocusParking&) = delete;
    X11FocusParking& operator=(const X11FocusParking&) = delete;

    bool isParked() const { return m_parked; }
    /// Moves the focus on to `window` if it is still here; nothing goes back when this goes.
    /// A window not yet viewable is refused, and the focus stays.
    void handTo(xcb_window_t window, xcb_timestamp_t time);

private:
    bool moveOn(xcb_window_t window, xcb_timestamp_t time);

    xcb_connection_t* m_connection;
    xcb_window_t m_window;
    xcb_window_t m_from;
    bool m_parked = false;
};

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
