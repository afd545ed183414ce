#include "platform/x11/X11Helpers.h"

#include "platform/PlatformLogging.h"

#include <QGuiApplication>

#include <X11/Xlib.h>

#include <algorithm>
#include <cstring>

namespace {

// Source indication of `_NET_ACTIVE_WINDOW`: a pager acts for the user.
constexpr uint32_t sourcePager = 2;

} // namespace

namespace ravelo {

std::optional<QtDisplayConnection> connectToQtDisplay()
{
    auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    if (!x11 || !x11->display() || !x11->connection()) {
        return std::nullopt;
    }
    QtDisplayConnection display;
    display.connection.reset(xcb_connect(XDisplayString(x11->display()), nullptr));
    if (!display.connection || xcb_connection_has_error(display.connection.get())) {
        qCWarning(lcPlatform, "Cannot open a second connection to the X display %s",
                  XDisplayString(x11->display()));
        return std::nullopt;
    }
    display.qtConnection = x11->connection();
    display.screenNumber = DefaultScreen(x11->display());
    return display;
}

xcb_window_t screenRoot(xcb_connection_t* connection, int screenNumber)
{
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
    for (int i = 0; i < screenNumber && screens.rem > 0; ++i) {
        xcb_screen_next(&screens);
    }
    return screens.rem > 0 ? screens.data->root : XCB_NONE;
}

xcb_atom_t atom(xcb_connection_t* connection, const char* name)
{
    const XcbReply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
        connection, xcb_intern_atom(connection, 0, static_cast<uint16_t>(std::strlen(name)), name),
        nullptr));
    return reply ? reply->atom : XCB_NONE;
}

bool windowManagerSupports(xcb_connection_t* connection, xcb_window_t root, xcb_atom_t feature)
{
    const XcbReply<xcb_get_property_reply_t> check(xcb_get_property_reply(
        connection,
        xcb_get_property(connection, 0, root, atom(connection, "_NET_SUPPORTING_WM_CHECK"),
                         XCB_ATOM_WINDOW, 0, 1),
        nullptr));
    if (!check || xcb_get_property_value_length(check.get()) != sizeof(xcb_window_t)) {
        return false;
    }
    const XcbReply<xcb_get_property_reply_t> supported(xcb_get_property_reply(
        connection,
        xcb_get_property(connection, 0, root, atom(connection, "_NET_SUPPORTED"), XCB_ATOM_ATOM, 0,
                         4096),
        nullptr));
    if (!supported) {
        return false;
    }
    const auto* atoms = static_cast<const xcb_atom_t*>(xcb_get_property_value(supported.get()));
    const int count = xcb_get_property_value_length(supported.get()) / int(sizeof(xcb_atom_t));
    return std::find(atoms, atoms + count, feature) != atoms + count;
}

bool requestActivation(xcb_connection_t* connection, xcb_window_t root, xcb_window_t window,
                       xcb_timestamp_t time)
{
    const xcb_atom_t activeWindow = atom(connection, "_NET_ACTIVE_WINDOW");
    if (!windowManagerSupports(connection, root, activeWindow)) {
        return false;
    }
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = window;
    message.type = activeWindow;
    message.data.data32[0] = sourcePager;
    message.data.data32[1] = time;
    message.data.data32[2] = XCB_NONE;
    xcb_send_event(connection, 0, root,
                   XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&message));
    return true;
}

quint8 xcbErrorCode(xcb_connection_t* connection, xcb_void_cookie_t cookie)
{
    const XcbError error(xcb_request_check(connection, cookie));
    return error ? error->error_code : 0;
}

X11ServerClock::X11ServerClock(xcb_connection_t* connection, xcb_window_t root)
    : m_connection(connection)
    , m_window(xcb_generate_id(connection))
{
    const uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, m_window, root, -1, -1, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &mask);
}

X11ServerClock::~X11ServerClock()
{
    xcb_destroy_window(m_connection, m_window);
}

xcb_timestamp_t
X11ServerClock::now(const std::function<void(const xcb_generic_event_t*)>& otherEvent)
{
    // Appending nothing to a property still produces a PropertyNotify carrying the time.
    const xcb_atom_t clock = atom(m_connection, "_RAVELO_CLOCK");
    xcb_change_property(m_connection, XCB_PROP_MODE_APPEND, m_window, clock, XCB_ATOM_STRING, 8, 0,
                        nullptr);
    xcb_flush(m_connection);
    std::vector<XcbReply<xcb_generic_event_t>> others;
    xcb_timestamp_t time = XCB_CURRENT_TIME;
    while (xcb_generic_event_t* event = xcb_wait_for_event(m_connection)) {
        XcbReply<xcb_generic_event_t> owned(event);
        if ((event->response_type & 0x7f) == XCB_PROPERTY_NOTIFY) {
            const auto* notify = reinterpret_cast<const xcb_property_notify_event_t*>(event);
            if (notify->window == m_window && notify->atom == clock) {
                time = notify->time;
                break;
            }
        }
        others.push_back(std::move(owned));
    }
    for (const XcbReply<xcb_generic_event_t>& event : others) {
        otherEvent(event.get());
    }
    return time;
}

X11FocusParking::X11FocusParking(xcb_connection_t* connection, xcb_window_t root, xcb_window_t from)
    : m_connection(connection)
    , m_window(xcb_generate_id(connection))
    , m_from(from)
{
    // Override-redirect: mapped at once, and window managers leave it alone.
    const uint32_t overrideRedirect = 1;
    xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, m_window, root, -1, -1, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, XCB_CW_OVERRIDE_REDIRECT,
                      &overrideRedirect);
    xcb_map_window(m_connection, m_window);
    // Done once this returns: keys typed from now on no longer go to `from`.
    m_parked =
        xcbErrorCode(m_connection, xcb_set_input_focus_checked(m_connection, XCB_INPUT_FOCUS_PARENT,
                                                               m_window, XCB_CURRENT_TIME)) == 0;
}

X11FocusParking::~X11FocusParking()
{
    // A window no longer viewable is refused with BadMatch, which the check swallows; the
    // focus then falls back to the root window with this one gone.
    moveOn(m_from, XCB_CURRENT_TIME);
    xcb_destroy_window(m_connection, m_window);
    xcb_flush(m_connection);
}

void X11FocusParking::handTo(xcb_window_t window, xcb_timestamp_t time)
{
    if (moveOn(window, time)) {
        m_parked = false;
    }
}

bool X11FocusParking::moveOn(xcb_window_t window, xcb_timestamp_t time)
{
    if (!m_parked) {
        return false;
    }
    const XcbReply<xcb_get_input_focus_reply_t> focus(
        xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
    if (!focus || focus->focus != m_window) {
        // Gone elsewhere meanwhile.
        m_parked = false;
        return false;
    }
    return xcbErrorCode(m_connection, xcb_set_input_focus_checked(
                                          m_connection, XCB_INPUT_FOCUS_PARENT, window, time)) == 0;
}

} // namespace ravelo

X11KeyGrabs::~X11KeyGrabs()
{
    release();
}

quint8 X11KeyGrabs::grab(xcb_connection_t* connection, xcb_window_t window,
                         const std::vector<Combination>& combinations)
{
    release();
    m_connection = connection;
    m_window = window;

    // Send every request first and collect the answers afterwards: one round trip in all.
    std::vector<xcb_void_cookie_t> cookies;
    cookies.reserve(combinations.size());
    for (const Combination& combination : combinations) {
        cookies.push_back(xcb_grab_key_checked(connection, 1, window, combination.modifiers,
                                               combination.keycode, XCB_GRAB_MODE_ASYNC,
                                               XCB_GRAB_MODE_ASYNC));
    }
    quint8 firstError = 0;
    for (std::size_t i = 0; i < cookies.size(); ++i) {
        const quint8 error = ravelo::xcbErrorCode(connection, cookies[i]);
        if (error == 0) {
            m_taken.push_back(combinations[i]);
        } else if (firstError == 0) {
            firstError = error;
        }
    }
    if (firstError != 0) {
        release();
    }
    return firstError;
}

void X11KeyGrabs::release()
{
    if (m_connection && !m_taken.empty() && !xcb_connection_has_error(m_connection)) {
        std::vector<xcb_void_cookie_t> cookies;
        cookies.reserve(m_taken.size());
        for (const Combination& combination : m_taken) {
            cookies.push_back(xcb_ungrab_key_checked(m_connection, combination.keycode, m_window,
                                                     combination.modifiers));
        }
        for (const xcb_void_cookie_t cookie : cookies) {
            ravelo::xcbErrorCode(m_connection, cookie);
        }
    }
    m_taken.clear();
}

bool X11KeyGrabs::holdsKeycode(xcb_keycode_t keycode) const
{
    return std::any_of(m_taken.begin(), m_taken.end(), [keycode](const Combination& combination) {
        return combination.keycode == keycode;
    });
}
