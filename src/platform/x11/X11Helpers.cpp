#include "platform/x11/X11Helpers.h"

#include <algorithm>

namespace ravelo {

quint8 xcbErrorCode(xcb_connection_t* connection, xcb_void_cookie_t cookie)
{
    const XcbError error(xcb_request_check(connection, cookie));
    return error ? error->error_code : 0;
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
