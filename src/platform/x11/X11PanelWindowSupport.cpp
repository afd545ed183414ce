#include "platform/x11/X11PanelWindowSupport.h"

#include "platform/ActivationToken.h"

#include <QByteArray>
#include <QGuiApplication>
#include <QLoggingCategory>
#include <QRegion>
#include <QSocketNotifier>
#include <QWindow>
#include <QtMath>

#include <X11/Xlib.h>
#include <xcb/shape.h>
#include <xcb/xfixes.h>

#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

Q_LOGGING_CATEGORY(lcPanelX11, "ravelo.panel", QtInfoMsg)

template<typename T> struct FreeDeleter {
    void operator()(T* p) const { std::free(p); }
};
template<typename T> using Reply = std::unique_ptr<T, FreeDeleter<T>>;

// Source indication of `_NET_ACTIVE_WINDOW`: a pager acts for the user, so window managers
// with focus-stealing prevention honour it.
constexpr uint32_t sourcePager = 2;
constexpr uint32_t allDesktops = 0xFFFFFFFF;
constexpr uint32_t netWmStateRemove = 0;
constexpr uint32_t netWmStateAdd = 1;
// Another client's grab (the hotkey's, while its key is down) is asked again this often.
constexpr int keyboardGrabRetryMs = 10;
// The window manager focuses a new window within this; the keyboard is never held longer.
constexpr int keyboardHoldLimitMs = 1000;

} // namespace

std::unique_ptr<X11PanelWindowSupport> X11PanelWindowSupport::create()
{
    auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    if (!x11 || !x11->display() || !x11->connection()) {
        return nullptr;
    }
    Display* display = x11->display();
    int screen = DefaultScreen(display);
    xcb_connection_t* connection = xcb_connect(XDisplayString(display), nullptr);
    if (!connection || xcb_connection_has_error(connection)) {
        qCWarning(lcPanelX11) << "cannot open a second X connection";
        if (connection) {
            xcb_disconnect(connection);
        }
        return nullptr;
    }
    return std::unique_ptr<X11PanelWindowSupport>(
        new X11PanelWindowSupport(connection, x11->connection(), screen));
}

X11PanelWindowSupport::X11PanelWindowSupport(xcb_connection_t* connection,
                                             xcb_connection_t* qtConnection, int screenNumber)
    : m_connection(connection)
    , m_qtConnection(qtConnection)
{
    xcb_screen_iterator_t it = xcb_setup_roots_iterator(xcb_get_setup(m_connection));
    for (int i = 0; i < screenNumber && it.rem; ++i) {
        xcb_screen_next(&it);
    }
    m_root = it.data->root;

    // A hidden window of our own: property changes on it yield server timestamps, and the
    // compositing selection is watched through it.
    m_clockWindow = xcb_generate_id(m_connection);
    const uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, m_clockWindow, m_root, -1, -1, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &mask);

    const QByteArray selection = "_NET_WM_CM_S" + QByteArray::number(screenNumber);
    m_cmSelection = atom(selection.constData());

    const xcb_query_extension_reply_t* xfixes =
        xcb_get_extension_data(m_connection, &xcb_xfixes_id);
    if (xfixes && xfixes->present) {
        m_xfixesFirstEvent = xfixes->first_event;
        Reply<xcb_xfixes_query_version_reply_t> version(xcb_xfixes_query_version_reply(
            m_connection, xcb_xfixes_query_version(m_connection, 5, 0), nullptr));
        xcb_xfixes_select_selection_input(
            m_connection, m_clockWindow, m_cmSelection,
            XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
                XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
                XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
    } else {
        qCWarning(lcPanelX11) << "no XFixes: compositing changes are noticed only at the next show";
    }
    xcb_flush(m_connection);
    m_compositing = queryCompositing();

    m_notifier = std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(m_connection),
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
    m_notifier.reset();
    xcb_destroy_window(m_connection, m_clockWindow);
    xcb_disconnect(m_connection);
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
    Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
        m_connection,
        xcb_intern_atom(m_connection, 0, static_cast<uint16_t>(std::strlen(name)), name), nullptr));
    return reply ? reply->atom : XCB_NONE;
}

bool X11PanelWindowSupport::queryCompositing()
{
    readEventsSoon();
    Reply<xcb_get_selection_owner_reply_t> reply(xcb_get_selection_owner_reply(
        m_connection, xcb_get_selection_owner(m_connection, m_cmSelection), nullptr));
    return reply && reply->owner != XCB_NONE;
}

bool X11PanelWindowSupport::windowManagerSupports(xcb_atom_t feature)
{
    Reply<xcb_get_property_reply_t> check(xcb_get_property_reply(
        m_connection,
        xcb_get_property(m_connection, 0, m_root, atom("_NET_SUPPORTING_WM_CHECK"), XCB_ATOM_WINDOW,
                         0, 1),
        nullptr));
    if (!check || xcb_get_property_value_length(check.get()) != sizeof(xcb_window_t)) {
        return false;
    }
    Reply<xcb_get_property_reply_t> supported(xcb_get_property_reply(
        m_connection,
        xcb_get_property(m_connection, 0, m_root, atom("_NET_SUPPORTED"), XCB_ATOM_ATOM, 0, 4096),
        nullptr));
    if (!supported) {
        return false;
    }
    const auto* atoms = static_cast<const xcb_atom_t*>(xcb_get_property_value(supported.get()));
    const int count = xcb_get_property_value_length(supported.get()) / int(sizeof(xcb_atom_t));
    for (int i = 0; i < count; ++i) {
        if (atoms[i] == feature) {
            return true;
        }
    }
    return false;
}

xcb_timestamp_t X11PanelWindowSupport::currentTime()
{
    // Appending nothing to a property still produces a PropertyNotify carrying the time.
    const xcb_atom_t clock = atom("_RAVELO_CLOCK");
    xcb_change_property(m_connection, XCB_PROP_MODE_APPEND, m_clockWindow, clock, XCB_ATOM_STRING,
                        8, 0, nullptr);
    xcb_flush(m_connection);
    std::vector<xcb_generic_event_t*> others;
    xcb_timestamp_t time = XCB_CURRENT_TIME;
    while (xcb_generic_event_t* event = xcb_wait_for_event(m_connection)) {
        if ((event->response_type & 0x7f) == XCB_PROPERTY_NOTIFY) {
            const auto* notify = reinterpret_cast<xcb_property_notify_event_t*>(event);
            if (notify->window == m_clockWindow && notify->atom == clock) {
                time = notify->time;
                std::free(event);
                break;
            }
        }
        others.push_back(event);
    }
    for (xcb_generic_event_t* event : others) {
        handleEvent(event);
        std::free(event);
    }
    return time;
}

void X11PanelWindowSupport::prepareToMap(QWindow* window)
{
    if (window->isVisible()) {
        return;
    }
    window->create();
    const auto id = static_cast<xcb_window_t>(window->winId());
    xcb_change_property(m_connection, XCB_PROP_MODE_REPLACE, id, atom("_NET_WM_DESKTOP"),
                        XCB_ATOM_CARDINAL, 32, 1, &allDesktops);
    // Qt merges its own states (above, for the stays-on-top flag) into these when it maps.
    const xcb_atom_t states[] = {atom("_NET_WM_STATE_SKIP_TASKBAR"),
                                 atom("_NET_WM_STATE_SKIP_PAGER"), atom("_NET_WM_STATE_STICKY"),
                                 atom("_NET_WM_STATE_ABOVE")};
    xcb_void_cookie_t done =
        xcb_change_property_checked(m_connection, XCB_PROP_MODE_REPLACE, id, atom("_NET_WM_STATE"),
                                    XCB_ATOM_ATOM, 32, std::size(states), states);
    // Waiting for the reply puts these ahead of Qt's map request on the server.
    if (xcb_generic_error_t* error = xcb_request_check(m_connection, done)) {
        qCWarning(lcPanelX11) << "cannot set the panel's window state, X error"
                              << error->error_code;
        std::free(error);
    }
}

void X11PanelWindowSupport::activate(QWindow* window)
{
    const auto id = static_cast<xcb_window_t>(window->winId());
    // A startup id from the desktop's shortcut tells the window manager that the user asked
    // for this window; a Wayland token is of no use to an X11 window.
    ActivationToken::takeWayland();
    if (const QByteArray startupId = ActivationToken::takeStartupId(); !startupId.isEmpty()) {
        xcb_change_property(m_connection, XCB_PROP_MODE_REPLACE, id, atom("_NET_STARTUP_ID"),
                            atom("UTF8_STRING"), 8, startupId.size(), startupId.constData());
    }
    const xcb_timestamp_t time = currentTime();
    const xcb_atom_t activeWindow = atom("_NET_ACTIVE_WINDOW");
    if (windowManagerSupports(activeWindow)) {
        xcb_client_message_event_t message{};
        message.response_type = XCB_CLIENT_MESSAGE;
        message.format = 32;
        message.window = id;
        message.type = activeWindow;
        message.data.data32[0] = sourcePager;
        message.data.data32[1] = time;
        message.data.data32[2] = XCB_NONE;
        xcb_send_event(m_connection, 0, m_root,
                       XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                       reinterpret_cast<const char*>(&message));
        xcb_flush(m_connection);
    } else {
        // Without a window manager the focus is ours to set; a window not yet viewable is
        // refused with BadMatch, which the check swallows (the next expose tries again).
        xcb_void_cookie_t cookie =
            xcb_set_input_focus_checked(m_connection, XCB_INPUT_FOCUS_PARENT, id, time);
        if (xcb_generic_error_t* error = xcb_request_check(m_connection, cookie)) {
            qCDebug(lcPanelX11) << "focus refused, X error" << error->error_code;
            std::free(error);
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
    xcb_send_event(m_connection, 0, m_root,
                   XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&message));
    xcb_flush(m_connection);
}

void X11PanelWindowSupport::setInputRegion(QWindow* window, const QRegion& region)
{
    const auto id = static_cast<xcb_window_t>(window->winId());
    if (region.isEmpty()) {
        xcb_shape_mask(m_connection, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_INPUT, id, 0, 0, XCB_NONE);
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
        xcb_shape_rectangles(m_connection, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_INPUT,
                             XCB_CLIP_ORDERING_UNSORTED, id, 0, 0,
                             static_cast<uint32_t>(rectangles.size()), rectangles.data());
    }
    xcb_flush(m_connection);
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
    Reply<xcb_grab_keyboard_reply_t> reply(
        xcb_grab_keyboard_reply(m_qtConnection,
                                xcb_grab_keyboard(m_qtConnection, 1, m_root, XCB_CURRENT_TIME,
                                                  XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC),
                                nullptr));
    if (reply && reply->status == XCB_GRAB_STATUS_SUCCESS) {
        m_keyboardGrabbed = true;
        m_grabRetry.stop();
        qCDebug(lcPanelX11) << "keyboard held for the panel";
        return;
    }
    // Typically the hotkey's own grab, which ends when its key is released.
    qCDebug(lcPanelX11) << "keyboard busy, status" << (reply ? int(reply->status) : -1);
    if (!m_grabRetry.isActive()) {
        m_grabRetry.start();
    }
}

void X11PanelWindowSupport::releaseKeyboard()
{
    m_keyboardWanted = false;
    m_grabRetry.stop();
    m_holdLimit.stop();
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
    while (xcb_generic_event_t* event = xcb_poll_for_event(m_connection)) {
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
