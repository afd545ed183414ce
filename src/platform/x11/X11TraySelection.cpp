#include "platform/x11/X11TraySelection.h"

#include "platform/x11/X11Helpers.h"

#include <QAbstractEventDispatcher>
#include <QByteArray>
#include <QSocketNotifier>

#include <xcb/xfixes.h>

#include <cstdlib>

using ravelo::XcbReply;

std::unique_ptr<X11TraySelection> X11TraySelection::create()
{
    int screenNumber = 0;
    xcb_connection_t* connection = xcb_connect(nullptr, &screenNumber);
    if (!connection || xcb_connection_has_error(connection)) {
        if (connection) {
            xcb_disconnect(connection);
        }
        return nullptr;
    }
    const xcb_query_extension_reply_t* xfixes = xcb_get_extension_data(connection, &xcb_xfixes_id);
    if (!xfixes || !xfixes->present) {
        xcb_disconnect(connection);
        return nullptr;
    }
    XcbReply<xcb_xfixes_query_version_reply_t> version(xcb_xfixes_query_version_reply(
        connection, xcb_xfixes_query_version(connection, 5, 0), nullptr));
    return std::unique_ptr<X11TraySelection>(
        new X11TraySelection(connection, screenNumber, xfixes->first_event));
}

X11TraySelection::X11TraySelection(xcb_connection_t* connection, int screenNumber,
                                   uint8_t xfixesFirstEvent)
    : m_connection(connection)
    , m_xfixesFirstEvent(xfixesFirstEvent)
{
    const xcb_window_t root = ravelo::screenRoot(m_connection, screenNumber);

    const QByteArray name = "_NET_SYSTEM_TRAY_S" + QByteArray::number(screenNumber);
    m_selection = ravelo::atom(m_connection, name.constData());

    m_window = xcb_generate_id(m_connection);
    xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, m_window, root, -1, -1, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, 0, nullptr);
    xcb_xfixes_select_selection_input(m_connection, m_window, m_selection,
                                      XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER);
    xcb_flush(m_connection);

    m_notifier = std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(m_connection),
                                                   QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this,
            [this] { readEvents(xcb_poll_for_event); });
    // A reply read the events that came with it into xcb's queue, where the socket notifier no
    // longer sees them: they are looked for there whenever the event loop is about to wait.
    connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock, this,
            [this] { readEvents(xcb_poll_for_queued_event); });
}

X11TraySelection::~X11TraySelection()
{
    m_notifier.reset();
    xcb_destroy_window(m_connection, m_window);
    xcb_disconnect(m_connection);
}

bool X11TraySelection::hasOwner() const
{
    if (m_selection == XCB_NONE) {
        return false;
    }
    XcbReply<xcb_get_selection_owner_reply_t> reply(xcb_get_selection_owner_reply(
        m_connection, xcb_get_selection_owner(m_connection, m_selection), nullptr));
    return reply && reply->owner != XCB_NONE;
}

void X11TraySelection::readEvents(xcb_generic_event_t* (*next)(xcb_connection_t*))
{
    bool appeared = false;
    while (xcb_generic_event_t* event = next(m_connection)) {
        if ((event->response_type & 0x7f) == m_xfixesFirstEvent + XCB_XFIXES_SELECTION_NOTIFY) {
            const auto* notify = reinterpret_cast<xcb_xfixes_selection_notify_event_t*>(event);
            appeared = appeared || notify->owner != XCB_NONE;
        }
        std::free(event);
    }
    if (xcb_connection_has_error(m_connection)) {
        m_notifier->setEnabled(false);
    }
    if (appeared) {
        emit ownerAppeared();
    }
}
