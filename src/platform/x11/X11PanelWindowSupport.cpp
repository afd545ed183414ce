#include "platform/x11/X11PanelWindowSupport.h"

#include "platform/ActivationToken.h"
#include "platform/x11/X11Helpers.h"

#include <QByteArray>
#include <QGuiApplication>
#include <QLoggingCategory>
#include <QRegion>
#include <QSocketNotifier>
#include <QWindow>
#include <QtMath>

#include <xcb/shape.h>
#include <xcb/xfixes.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace {

Q_LOGGING_CATEGORY(lcPanelX11, "ravelo.panel", QtInfoMsg)

// Source indication in EWMH client messages: a pager acts for the user, so window managers
// with focus-stealing prevention honour it.
constexpr uint32_t sourcePager = 2;
constexpr uint32_t allDesktops = 0xFFFFFFFF;
constexpr uint32_t netWmStateRemove = 0;
constexpr uint32_t netWmStateAdd = 1;
// Another client's grab (the hotkey's, while its key is down) is asked again this often.
constexpr int keyboardGrabRetryMs = 10;
// The window manager focuses a new window within this; the keyboard is never held longer.
constexpr int keyboardHoldLimitMs = 3000;

} // namespace

std::unique_ptr<X11PanelWindowSupport> X11PanelWindowSupport::create()
{
    std::optional<ravelo::QtDisplayConnection> display = ravelo::connectToQtDisplay();
    if (!display) {
        return nullptr;
    }
    return std::unique_ptr<X11PanelWindowSupport>(new X11PanelWindowSupport(
        std::move(display->connection), display->qtConnection, display->screenNumber));
}

X11PanelWindowSupport::X11PanelWindowSupport(ravelo::XcbConnection connection,
                                             xcb_connection_t* qtConnection, int screenNumber)
    : m_connection(std::move(connection))
    , m_qtConnection(qtConnection)
    , m_root(ravelo::screenRoot(m_connection.get(), screenNumber))
    // The compositing selection is watched through the clock's window too.
    , m_clock(m_connection.get(), m_root)
{
    const QByteArray selection = "_NET_WM_CM_S" + QByteArray::number(screenNumber);
    m_cmSelection = atom(selection.constData());

    const xcb_query_extension_reply_t* xfixes =
        xcb_get_extension_data(m_connection.get(), &xcb_xfixes_id);
    if (xfixes && xfixes->present) {
        m_xfixesFirstEvent = xfixes->first_event;
        ravelo::XcbReply<xcb_xfixes_query_version_reply_t> version(xcb_xfixes_query_version_reply(
            m_connection.get(), xcb_xfixes_query_version(m_connection.get(), 5, 0), nullptr));
        xcb_xfixes_select_selection_input(
            m_connection.get(), m_clock.window(), m_cmSelection,
            XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
                XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
                XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
    } else {
        qCWarning(lcPanelX11) << "no XFixes: compositing changes are noticed only at the next show";
    }
    xcb_flush(m_connection.get());
    m_compositing = queryCompositing();

    m_notifier = std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(m_connection.get()),
                                                   QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this,
            &X11PanelWindowSupport::readEvents);

    m_grabRetry.setInterval(keyboardGrabRetryMs);
    connect(&m_grabRetry, &QTimer::timeout, this, &X11PanelWindowSupport::grabKeyboard);
    m_holdLimit.setSingleShot(true);
    m_holdLimit.setInterval(keyboardHoldLimitMs);
    connect(&m_holdLimit, &QTimer::timeout, this, [this] {
        qCDebug(lcPanelX11) << "the panel got no focus in time: keyboard let go";
        releaseKeyboard();
    });
    qGuiApp->installNativeEventFilter(this);
}

X11PanelWindowSupport::~X11PanelWindowSupport()
{
    qGuiApp->removeNativeEventFilter(this);
    releaseKeyboard();
}

void X11PanelWindowSupport::readEventsSoon()
{
    // A reply is read together with the events that came before it, into xcb's queue, where
    // the socket notifier no longer sees them: a compositor that stops would go unnoticed.
    if (!m_readScheduled) {
        m_readScheduled = true;
        QMetaObject::invokeMethod(this, &X11PanelWindowSupport::readEvents, Qt::QueuedConnection);
    }
}

xcb_atom_t X11PanelWindowSupport::atom(const char* name)
{
    readEventsSoon();
    return ravelo::atom(m_connection.get(), name);
}

bool X11PanelWindowSupport::queryCompositing()
{
    readEventsSoon();
    ravelo::XcbReply<xcb_get_selection_owner_reply_t> reply(xcb_get_selection_owner_reply(
        m_connection.get(), xcb_get_selection_owner(m_connection.get(), m_cmSelection), nullptr));
    return reply && reply->owner != XCB_NONE;
}

void X11PanelWindowSupport::prepareToMap(QWindow* window)
{
    if (window->isVisible()) {
        return;
    }
    window->create();
    const auto id = static_cast<xcb_window_t>(window->winId());
    xcb_change_property(m_connection.get(), XCB_PROP_MODE_REPLACE, id, atom("_NET_WM_DESKTOP"),
                        XCB_ATOM_CARDINAL, 32, 1, &allDesktops);
    // Qt merges its own states (above, for the stays-on-top flag) into these when it maps.
    const xcb_atom_t states[] = {atom("_NET_WM_STATE_SKIP_TASKBAR"),
                                 atom("_NET_WM_STATE_SKIP_PAGER"), atom("_NET_WM_STATE_STICKY"),
                                 atom("_NET_WM_STATE_ABOVE")};
    xcb_void_cookie_t done = xcb_change_property_checked(m_connection.get(), XCB_PROP_MODE_REPLACE,
                                                         id, atom("_NET_WM_STATE"), XCB_ATOM_ATOM,
                                                         32, std::size(states), states);
    // Waiting for the reply puts these ahead of Qt's map request on the server.
    if (const quint8 error = ravelo::xcbErrorCode(m_connection.get(), done); error != 0) {
        qCWarning(lcPanelX11) << "cannot set the panel's window state, X error" << int(error);
    }
}

void X11PanelWindowSupport::activate(QWindow* window)
{
    const auto id = static_cast<xcb_window_t>(window->winId());
    // A startup id from the desktop's shortcut tells the window manager that the user asked
    // for this window; a Wayland token is of no use to an X11 window.
    ActivationToken::takeWayland();
    if (const QByteArray startupId = ActivationToken::takeStartupId(); !startupId.isEmpty()) {
        xcb_change_property(m_connection.get(), XCB_PROP_MODE_REPLACE, id, atom("_NET_STARTUP_ID"),
                            atom("UTF8_STRING"), 8, startupId.size(), startupId.constData());
    }
    readEventsSoon();
    const xcb_timestamp_t time =
        m_clock.now([this](const xcb_generic_event_t* event) { handleEvent(event); });
    if (m_focusParking && window->isExposed()) {
        // The focus taken from another of Ravelo's windows is Ravelo's to give. A window
        // manager asked to focus the panel may use a time older than the move to the parking
        // window, which the server ignores.
        m_focusParking->handTo(id, time);
    }
    if (ravelo::requestActivation(m_connection.get(), m_root, id, time)) {
        xcb_flush(m_connection.get());
    } else {
        // Without a window manager the focus is ours to set; a window not yet viewable is
        // refused with BadMatch, which the check swallows (the next expose tries again).
        xcb_void_cookie_t cookie =
            xcb_set_input_focus_checked(m_connection.get(), XCB_INPUT_FOCUS_PARENT, id, time);
        if (const quint8 error = ravelo::xcbErrorCode(m_connection.get(), cookie); error != 0) {
            qCDebug(lcPanelX11) << "focus refused, X error" << int(error);
        }
    }
    window->requestActivate();
}

void X11PanelWindowSupport::setKeptAbove(QWindow* window, bool above)
{
    if (!window->isVisible()) {
        // prepareToMap marks it above again before it is mapped.
        return;
    }
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = static_cast<xcb_window_t>(window->winId());
    message.type = atom("_NET_WM_STATE");
    message.data.data32[0] = above ? netWmStateAdd : netWmStateRemove;
    message.data.data32[1] = atom("_NET_WM_STATE_ABOVE");
    message.data.data32[3] = sourcePager;
    xcb_send_event(m_connection.get(), 0, m_root,
                   XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&message));
    xcb_flush(m_connection.get());
}

void X11PanelWindowSupport::setInputRegion(QWindow* window, const QRegion& region)
{
    const auto id = static_cast<xcb_window_t>(window->winId());
    if (region.isEmpty()) {
        xcb_shape_mask(m_connection.get(), XCB_SHAPE_SO_SET, XCB_SHAPE_SK_INPUT, id, 0, 0,
                       XCB_NONE);
    } else {
        // The region is in Qt's coordinates; the server counts device pixels.
        const qreal ratio = window->devicePixelRatio();
        std::vector<xcb_rectangle_t> rectangles;
        for (const QRect& rect : region) {
            const QRect pixels(QPoint(qFloor(rect.left() * ratio), qFloor(rect.top() * ratio)),
                               QPoint(qCeil((rect.right() + 1) * ratio) - 1,
                                      qCeil((rect.bottom() + 1) * ratio) - 1));
            rectangles.push_back(
                {static_cast<int16_t>(pixels.x()), static_cast<int16_t>(pixels.y()),
                 static_cast<uint16_t>(pixels.width()), static_cast<uint16_t>(pixels.height())});
        }
        xcb_shape_rectangles(m_connection.get(), XCB_SHAPE_SO_SET, XCB_SHAPE_SK_INPUT,
                             XCB_CLIP_ORDERING_UNSORTED, id, 0, 0,
                             static_cast<uint32_t>(rectangles.size()), rectangles.data());
    }
    xcb_flush(m_connection.get());
}

void X11PanelWindowSupport::holdKeyboard(QWindow* window)
{
    window->create();
    m_keyboardWindow = window;
    m_keyboardWanted = true;
    m_holdLimit.start();
    grabKeyboard();
}

void X11PanelWindowSupport::grabKeyboard()
{
    if (!m_keyboardWanted || m_keyboardGrabbed) {
        m_grabRetry.stop();
        return;
    }
    // On the root window, since the panel is not viewable yet. With owner events, keys go
    // to the panel as usual once it has the focus; until then they come with the root as
    // their window, and the filter below hands them to the panel.
    ravelo::XcbReply<xcb_grab_keyboard_reply_t> reply(
        xcb_grab_keyboard_reply(m_qtConnection,
                                xcb_grab_keyboard(m_qtConnection, 1, m_root, XCB_CURRENT_TIME,
                                                  XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC),
                                nullptr));
    if (reply && reply->status == XCB_GRAB_STATUS_SUCCESS) {
        m_keyboardGrabbed = true;
        m_grabRetry.stop();
        qCDebug(lcPanelX11) << "keyboard held for the panel";
        takeFocusFromOwnWindow();
        return;
    }
    // Typically the hotkey's own grab, which ends when its key is released.
    qCDebug(lcPanelX11) << "keyboard busy, status" << (reply ? int(reply->status) : -1);
    if (!m_grabRetry.isActive()) {
        m_grabRetry.start();
    }
}

void X11PanelWindowSupport::takeFocusFromOwnWindow()
{
    // Qt hands every key to the window it last saw take the focus, whichever window the key
    // event names, and it does not count the grab as the focus leaving: while another of
    // Ravelo's windows (the preferences, the walkthrough) has the focus, the keys held for
    // the panel would go there. Moving the focus away in the ordinary way tells Qt; the keys
    // then come on the root window, and the filter below hands them to the panel.
    readEventsSoon();
    const ravelo::XcbReply<xcb_get_input_focus_reply_t> focus(xcb_get_input_focus_reply(
        m_connection.get(), xcb_get_input_focus(m_connection.get()), nullptr));
    if (!focus) {
        return;
    }
    const QWindowList windows = QGuiApplication::allWindows();
    const bool own = std::any_of(windows.cbegin(), windows.cend(), [&](const QWindow* window) {
        return window != m_keyboardWindow && window->handle() &&
               static_cast<xcb_window_t>(window->winId()) == focus->focus;
    });
    if (!own) {
        return;
    }
    m_focusParking =
        std::make_unique<ravelo::X11FocusParking>(m_connection.get(), m_root, focus->focus);
    if (m_focusParking->isParked()) {
        qCDebug(lcPanelX11) << "focus taken from one of Ravelo's windows";
    } else {
        qCDebug(lcPanelX11) << "the focus stays with one of Ravelo's windows: refused";
    }
}

void X11PanelWindowSupport::releaseKeyboard()
{
    m_keyboardWanted = false;
    m_grabRetry.stop();
    m_holdLimit.stop();
    if (m_focusParking) {
        // Back to the window it was taken from, unless the panel or another window has it now.
        readEventsSoon();
        m_focusParking.reset();
    }
    if (m_keyboardGrabbed) {
        m_keyboardGrabbed = false;
        xcb_ungrab_keyboard(m_qtConnection, XCB_CURRENT_TIME);
        xcb_flush(m_qtConnection);
        qCDebug(lcPanelX11) << "keyboard let go";
    }
}

bool X11PanelWindowSupport::nativeEventFilter(const QByteArray& eventType, void* message,
                                              qintptr* result)
{
    Q_UNUSED(result);
    if (!m_keyboardWindow || eventType != "xcb_generic_event_t") {
        return false;
    }
    auto* event = static_cast<xcb_generic_event_t*>(message);
    const uint8_t type = event->response_type & 0x7f;
    if (type != XCB_KEY_PRESS && type != XCB_KEY_RELEASE) {
        return false;
    }
    // Only the grab reports keys on the root window to this client, also once it has been
    // let go for those still queued.
    auto* key = reinterpret_cast<xcb_key_press_event_t*>(event);
    if (key->event == m_root) {
        key->event = static_cast<xcb_window_t>(m_keyboardWindow->winId());
        key->child = XCB_NONE;
    }
    return false;
}

void X11PanelWindowSupport::readEvents()
{
    m_readScheduled = false;
    while (xcb_generic_event_t* event = xcb_poll_for_event(m_connection.get())) {
        handleEvent(event);
        std::free(event);
    }
}

void X11PanelWindowSupport::handleEvent(const xcb_generic_event_t* event)
{
    if (m_xfixesFirstEvent == 0 ||
        (event->response_type & 0x7f) != m_xfixesFirstEvent + XCB_XFIXES_SELECTION_NOTIFY) {
        return;
    }
    const auto* notify = reinterpret_cast<const xcb_xfixes_selection_notify_event_t*>(event);
    if (notify->selection != m_cmSelection) {
        return;
    }
    const bool compositing = queryCompositing();
    if (compositing != m_compositing) {
        m_compositing = compositing;
        emit compositingChanged();
    }
}
