#include "X11ClipboardSource.h"

#include <QSocketNotifier>

#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

struct Free {
    void operator()(void* pointer) const { std::free(pointer); }
};

} // namespace

X11ClipboardSource::X11ClipboardSource()
{
    int screenNumber = 0;
    m_connection = xcb_connect(nullptr, &screenNumber);
    if (xcb_connection_has_error(m_connection)) {
        return;
    }
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(m_connection));
    for (int i = 0; i < screenNumber; ++i) {
        xcb_screen_next(&screens);
    }
    m_window = xcb_generate_id(m_connection);
    const uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, m_window, screens.data->root, 0, 0, 1, 1,
                      0, XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK,
                      &events);
    m_clipboard = atom("CLIPBOARD");
    m_utf8 = atom("UTF8_STRING");
    m_targets = atom("TARGETS");
    m_notifier =
        new QSocketNotifier(xcb_get_file_descriptor(m_connection), QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &X11ClipboardSource::readEvents);
}

X11ClipboardSource::~X11ClipboardSource()
{
    delete m_notifier;
    if (m_connection) {
        xcb_disconnect(m_connection);
    }
}

bool X11ClipboardSource::isValid() const
{
    return m_connection && !xcb_connection_has_error(m_connection) && m_clipboard != XCB_NONE;
}

xcb_atom_t X11ClipboardSource::atom(const char* name)
{
    std::unique_ptr<xcb_intern_atom_reply_t, Free> reply(xcb_intern_atom_reply(
        m_connection, xcb_intern_atom(m_connection, 0, std::strlen(name), name), nullptr));
    return reply ? reply->atom : XCB_NONE;
}

bool X11ClipboardSource::copy(const QByteArray& text)
{
    m_text = text;
    // Toolkits take the selection with the time of the user's key press; the current time
    // serves as well here.
    xcb_set_selection_owner(m_connection, m_window, m_clipboard, XCB_CURRENT_TIME);
    std::unique_ptr<xcb_get_selection_owner_reply_t, Free> owner(xcb_get_selection_owner_reply(
        m_connection, xcb_get_selection_owner(m_connection, m_clipboard), nullptr));
    readEvents();
    return owner && owner->owner == m_window;
}

void X11ClipboardSource::clear()
{
    xcb_set_selection_owner(m_connection, XCB_NONE, m_clipboard, XCB_CURRENT_TIME);
    xcb_flush(m_connection);
}

void X11ClipboardSource::readEvents()
{
    while (xcb_generic_event_t* event = xcb_poll_for_event(m_connection)) {
        const std::unique_ptr<xcb_generic_event_t, Free> owned(event);
        if ((event->response_type & 0x7f) != XCB_SELECTION_REQUEST) {
            continue;
        }
        const auto* request = reinterpret_cast<const xcb_selection_request_event_t*>(event);
        xcb_selection_notify_event_t notify{};
        notify.response_type = XCB_SELECTION_NOTIFY;
        notify.time = request->time;
        notify.requestor = request->requestor;
        notify.selection = request->selection;
        notify.target = request->target;
        notify.property = request->property == XCB_NONE ? request->target : request->property;
        if (request->target == m_targets) {
            const xcb_atom_t targets[] = {m_targets, m_utf8};
            xcb_change_property(m_connection, XCB_PROP_MODE_REPLACE, request->requestor,
                                notify.property, XCB_ATOM_ATOM, 32, 2, targets);
        } else if (request->target == m_utf8) {
            xcb_change_property(m_connection, XCB_PROP_MODE_REPLACE, request->requestor,
                                notify.property, m_utf8, 8, uint32_t(m_text.size()),
                                m_text.constData());
        } else {
            notify.property = XCB_NONE;
        }
        xcb_send_event(m_connection, 0, request->requestor, XCB_EVENT_MASK_NO_EVENT,
                       reinterpret_cast<const char*>(&notify));
    }
    xcb_flush(m_connection);
}
