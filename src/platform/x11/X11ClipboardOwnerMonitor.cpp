#include "platform/x11/X11ClipboardOwnerMonitor.h"

#include "platform/PlatformLogging.h"
#include "platform/x11/X11Helpers.h"

#include <QPointer>
#include <QSocketNotifier>

#include <xcb/xfixes.h>

#include <vector>

namespace {

constexpr quint8 responseTypeMask = 0x7f;

} // namespace

X11ClipboardOwnerMonitor::~X11ClipboardOwnerMonitor()
{
    stop();
}

bool X11ClipboardOwnerMonitor::start()
{
    if (m_notifier) {
        return true;
    }
    if (!open()) {
        m_connection.reset();
        return false;
    }
    m_notifier = new QSocketNotifier(xcb_get_file_descriptor(m_connection.get()),
                                     QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &X11ClipboardOwnerMonitor::drain);
    qCDebug(lcPlatform, "Watching the owner of the X11 clipboard");
    return true;
}

void X11ClipboardOwnerMonitor::stop()
{
    delete m_notifier;
    m_notifier = nullptr;
    // Closing the connection ends the selection: no event queues up while disarmed.
    m_connection.reset();
}

bool X11ClipboardOwnerMonitor::open()
{
    int screenNumber = 0;
    m_connection.reset(xcb_connect(nullptr, &screenNumber));
    xcb_connection_t* connection = m_connection.get();
    if (xcb_connection_has_error(connection)) {
        qCDebug(lcPlatform, "No X server to watch the clipboard on");
        return false;
    }
    const xcb_query_extension_reply_t* xfixes = xcb_get_extension_data(connection, &xcb_xfixes_id);
    if (!xfixes || !xfixes->present) {
        qCDebug(lcPlatform, "The X server has no XFixes: the clipboard's owner cannot be watched");
        return false;
    }
    m_xfixesEventBase = xfixes->first_event;
    // Selection events need XFixes 1 or later; the version must be asked before any use.
    const ravelo::XcbReply<xcb_xfixes_query_version_reply_t> version(xcb_xfixes_query_version_reply(
        connection, xcb_xfixes_query_version(connection, 5, 0), nullptr));
    if (!version || version->major_version < 1) {
        return false;
    }
    const xcb_window_t root = ravelo::screenRoot(connection, screenNumber);
    const xcb_atom_t clipboard = ravelo::atom(connection, "CLIPBOARD");
    if (root == XCB_NONE || clipboard == XCB_NONE) {
        return false;
    }
    const xcb_void_cookie_t cookie = xcb_xfixes_select_selection_input_checked(
        connection, root, clipboard,
        XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
            XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
            XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
    return ravelo::xcbErrorCode(connection, cookie) == 0;
}

void X11ClipboardOwnerMonitor::drain()
{
    xcb_connection_t* connection = m_connection.get();
    std::vector<quint64> owners;
    while (xcb_generic_event_t* event = xcb_poll_for_event(connection)) {
        const ravelo::XcbReply<xcb_generic_event_t> owned(event);
        if ((event->response_type & responseTypeMask) ==
            m_xfixesEventBase + XCB_XFIXES_SELECTION_NOTIFY) {
            const auto* notify =
                reinterpret_cast<const xcb_xfixes_selection_notify_event_t*>(event);
            // A destroyed owner window or a closed owner client leaves the clipboard empty.
            owners.push_back(notify->subtype == XCB_XFIXES_SELECTION_EVENT_SET_SELECTION_OWNER
                                 ? notify->owner
                                 : 0);
        }
    }
    if (xcb_connection_has_error(connection)) {
        qCWarning(lcPlatform, "Lost the X connection that watches the clipboard");
        stop();
    }
    // Reported once the connection is no longer in use: a receiver may stop the monitor.
    const QPointer<X11ClipboardOwnerMonitor> self(this);
    for (const quint64 owner : owners) {
        if (!self) {
            return;
        }
        emit ownerChanged(owner);
    }
}
