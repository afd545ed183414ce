#include "platform/x11/X11PasteTarget.h"

#include "platform/x11/X11Helpers.h"

#include <QGuiApplication>
#include <QLoggingCategory>
#include <QSocketNotifier>
#include <QWindow>

#include <X11/Xlib.h>
#include <xcb/xtest.h>

#include <algorithm>
#include <cstring>
#include <unistd.h>
#include <utility>

namespace {

Q_LOGGING_CATEGORY(lcPaste, "ravelo.paste", QtInfoMsg)

using ravelo::XcbReply;

// Source indication of `_NET_ACTIVE_WINDOW`: a pager acts for the user.
constexpr uint32_t sourcePager = 2;
// Keys still held when the focus has arrived are looked at again this often.
constexpr int keysPollMs = 10;
// Window trees are never this deep; a loop in a broken reply ends here.
constexpr int maxTreeDepth = 64;
constexpr xcb_keysym_t keysymV = 0x76;
constexpr xcb_keysym_t keysymCapitalV = 0x56;
// Where V sits on a pc keyboard (evdev), for layouts that type no Latin letters at all.
constexpr xcb_keycode_t evdevKeycodeV = 55;

bool isDown(const xcb_query_keymap_reply_t& keymap, xcb_keycode_t keycode)
{
    return (keymap.keys[keycode / 8] >> (keycode % 8)) & 1;
}

} // namespace

std::unique_ptr<X11PasteTarget> X11PasteTarget::create()
{
    auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    if (!x11 || !x11->display() || !x11->connection()) {
        return nullptr;
    }
    Display* display = x11->display();
    xcb_connection_t* connection = xcb_connect(XDisplayString(display), nullptr);
    if (!connection || xcb_connection_has_error(connection)) {
        qCWarning(lcPaste) << "cannot open an X connection: answers are only copied";
        if (connection) {
            xcb_disconnect(connection);
        }
        return nullptr;
    }
    const xcb_query_extension_reply_t* xtest = xcb_get_extension_data(connection, &xcb_test_id);
    if (!xtest || !xtest->present) {
        qCWarning(lcPaste) << "the X server has no XTest: answers are only copied";
        xcb_disconnect(connection);
        return nullptr;
    }
    return std::unique_ptr<X11PasteTarget>(new X11PasteTarget(connection, DefaultScreen(display)));
}

X11PasteTarget::X11PasteTarget(xcb_connection_t* connection, int screenNumber)
    : m_connection(connection)
{
    xcb_screen_iterator_t it = xcb_setup_roots_iterator(xcb_get_setup(m_connection));
    for (int i = 0; i < screenNumber && it.rem; ++i) {
        xcb_screen_next(&it);
    }
    m_root = it.data->root;
    // Property changes on a hidden window of our own yield fresh server timestamps.
    m_clockWindow = xcb_generate_id(m_connection);
    const uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, m_clockWindow, m_root, -1, -1, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &mask);
    xcb_flush(m_connection);

    m_notifier = std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(m_connection),
                                                   QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &X11PasteTarget::readEvents);
    m_deadline.setSingleShot(true);
    m_deadline.setInterval(focusLimitMs);
    connect(&m_deadline, &QTimer::timeout, this, [this] {
        finish(false, focusIsOnTarget() ? QStringLiteral("keys were still held down")
                                        : QStringLiteral("the window did not take the focus"));
    });
    m_keysReleased.setInterval(keysPollMs);
    connect(&m_keysReleased, &QTimer::timeout, this, &X11PasteTarget::advance);
}

X11PasteTarget::~X11PasteTarget()
{
    settleTarget();
    m_notifier.reset();
    xcb_destroy_window(m_connection, m_clockWindow);
    xcb_disconnect(m_connection);
}

xcb_atom_t X11PasteTarget::atom(const char* name)
{
    XcbReply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
        m_connection,
        xcb_intern_atom(m_connection, 0, static_cast<uint16_t>(std::strlen(name)), name), nullptr));
    return reply ? reply->atom : XCB_NONE;
}

void X11PasteTarget::rememberActiveWindow()
{
    if (m_pasting) {
        finish(false, QStringLiteral("the panel was opened again first"));
    }
    settleTarget();
    // Asked now and answered later: the panel takes the keyboard without waiting for a round
    // trip, and the server reads the focus before the panel's window is even mapped.
    m_activeCookie = xcb_get_property(m_connection, 0, m_root, atom("_NET_ACTIVE_WINDOW"),
                                      XCB_ATOM_WINDOW, 0, 1);
    m_focusCookie = xcb_get_input_focus(m_connection);
    xcb_flush(m_connection);
}

void X11PasteTarget::settleTarget()
{
    if (!m_activeCookie) {
        return;
    }
    XcbReply<xcb_get_property_reply_t> active(xcb_get_property_reply(
        m_connection, *std::exchange(m_activeCookie, std::nullopt), nullptr));
    XcbReply<xcb_get_input_focus_reply_t> focus(
        xcb_get_input_focus_reply(m_connection, m_focusCookie, nullptr));
    if (active && xcb_get_property_value_length(active.get()) == sizeof(xcb_window_t)) {
        m_target = *static_cast<const xcb_window_t*>(xcb_get_property_value(active.get()));
    } else if (focus && focus->focus != XCB_INPUT_FOCUS_POINTER_ROOT && focus->focus != m_root) {
        // Without a window manager the window with the focus is the one to come back to.
        m_target = focus->focus;
    } else {
        m_target = XCB_NONE;
    }
    qCDebug(lcPaste, "Remembered window 0x%x", m_target);
}

bool X11PasteTarget::windowManagerSupports(xcb_atom_t feature)
{
    XcbReply<xcb_get_property_reply_t> check(xcb_get_property_reply(
        m_connection,
        xcb_get_property(m_connection, 0, m_root, atom("_NET_SUPPORTING_WM_CHECK"), XCB_ATOM_WINDOW,
                         0, 1),
        nullptr));
    if (!check || xcb_get_property_value_length(check.get()) != sizeof(xcb_window_t)) {
        return false;
    }
    XcbReply<xcb_get_property_reply_t> supported(xcb_get_property_reply(
        m_connection,
        xcb_get_property(m_connection, 0, m_root, atom("_NET_SUPPORTED"), XCB_ATOM_ATOM, 0, 4096),
        nullptr));
    if (!supported) {
        return false;
    }
    const auto* atoms = static_cast<const xcb_atom_t*>(xcb_get_property_value(supported.get()));
    const int count = xcb_get_property_value_length(supported.get()) / int(sizeof(xcb_atom_t));
    return std::find(atoms, atoms + count, feature) != atoms + count;
}

bool X11PasteTarget::isOwnWindow(xcb_window_t window)
{
    const QWindowList windows = QGuiApplication::allWindows();
    if (std::any_of(windows.cbegin(), windows.cend(), [window](const QWindow* own) {
            return own->handle() && own->winId() == window;
        })) {
        return true;
    }
    XcbReply<xcb_get_property_reply_t> pid(xcb_get_property_reply(
        m_connection,
        xcb_get_property(m_connection, 0, window, atom("_NET_WM_PID"), XCB_ATOM_CARDINAL, 0, 1),
        nullptr));
    return pid && xcb_get_property_value_length(pid.get()) == sizeof(uint32_t) &&
           *static_cast<const uint32_t*>(xcb_get_property_value(pid.get())) == uint32_t(getpid());
}

bool X11PasteTarget::exists(xcb_window_t window)
{
    XcbReply<xcb_get_window_attributes_reply_t> attributes(xcb_get_window_attributes_reply(
        m_connection, xcb_get_window_attributes(m_connection, window), nullptr));
    return attributes != nullptr;
}

bool X11PasteTarget::hasTarget()
{
    settleTarget();
    return m_target != XCB_NONE && exists(m_target) && !isOwnWindow(m_target);
}

void X11PasteTarget::paste()
{
    // The panel hides first: its unmapping goes out from Qt's connection before the
    // activation goes out from this one.
    m_pasting = true;
    m_keysReleased.stop();
    m_deadline.start();
    QTimer::singleShot(0, this, [this] {
        if (!m_pasting) {
            return;
        }
        if (!hasTarget()) {
            finish(false, QStringLiteral("no window of another application to paste into"));
            return;
        }
        activateTarget();
        advance();
    });
}

xcb_timestamp_t X11PasteTarget::currentTime()
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

void X11PasteTarget::activateTarget()
{
    // Focus changes in the window or below it are reported here from now on.
    const uint32_t mask = XCB_EVENT_MASK_FOCUS_CHANGE;
    xcb_change_window_attributes(m_connection, m_target, XCB_CW_EVENT_MASK, &mask);
    const xcb_timestamp_t time = currentTime();
    const xcb_atom_t activeWindowAtom = atom("_NET_ACTIVE_WINDOW");
    if (windowManagerSupports(activeWindowAtom)) {
        xcb_client_message_event_t message{};
        message.response_type = XCB_CLIENT_MESSAGE;
        message.format = 32;
        message.window = m_target;
        message.type = activeWindowAtom;
        message.data.data32[0] = sourcePager;
        message.data.data32[1] = time;
        message.data.data32[2] = XCB_NONE;
        xcb_send_event(m_connection, 0, m_root,
                       XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                       reinterpret_cast<const char*>(&message));
    } else {
        xcb_set_input_focus(m_connection, XCB_INPUT_FOCUS_PARENT, m_target, time);
    }
    xcb_flush(m_connection);
    qCDebug(lcPaste, "Asked for the focus of window 0x%x", m_target);
}

bool X11PasteTarget::focusIsOnTarget()
{
    XcbReply<xcb_get_input_focus_reply_t> focus(
        xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
    xcb_window_t window = focus ? focus->focus : XCB_NONE;
    // The application may give the focus to a window inside its top-level.
    for (int depth = 0; depth < maxTreeDepth; ++depth) {
        if (window == m_target) {
            return true;
        }
        if (window == XCB_NONE || window == XCB_INPUT_FOCUS_POINTER_ROOT || window == m_root) {
            return false;
        }
        XcbReply<xcb_query_tree_reply_t> tree(
            xcb_query_tree_reply(m_connection, xcb_query_tree(m_connection, window), nullptr));
        window = tree ? tree->parent : XCB_NONE;
    }
    return false;
}

void X11PasteTarget::readModifierMap(std::vector<xcb_keycode_t>& modifiers,
                                     std::vector<xcb_keycode_t>& control)
{
    XcbReply<xcb_get_modifier_mapping_reply_t> map(xcb_get_modifier_mapping_reply(
        m_connection, xcb_get_modifier_mapping(m_connection), nullptr));
    if (!map) {
        return;
    }
    const xcb_keycode_t* keycodes = xcb_get_modifier_mapping_keycodes(map.get());
    const int perModifier = map->keycodes_per_modifier;
    for (int modifier = 0; modifier < 8; ++modifier) {
        for (int i = 0; i < perModifier; ++i) {
            const xcb_keycode_t keycode = keycodes[modifier * perModifier + i];
            if (keycode == 0) {
                continue;
            }
            modifiers.push_back(keycode);
            if (modifier == XCB_MAP_INDEX_CONTROL) {
                control.push_back(keycode);
            }
        }
    }
}

xcb_keycode_t X11PasteTarget::keycodeOfV()
{
    const xcb_setup_t* setup = xcb_get_setup(m_connection);
    const int count = setup->max_keycode - setup->min_keycode + 1;
    XcbReply<xcb_get_keyboard_mapping_reply_t> mapping(xcb_get_keyboard_mapping_reply(
        m_connection, xcb_get_keyboard_mapping(m_connection, setup->min_keycode, uint8_t(count)),
        nullptr));
    if (!mapping) {
        return evdevKeycodeV;
    }
    const xcb_keysym_t* keysyms = xcb_get_keyboard_mapping_keysyms(mapping.get());
    const int perKeycode = mapping->keysyms_per_keycode;
    // The key that types v in the first layout, else in any layout.
    for (int column : {0, -1}) {
        for (int i = 0; i < count; ++i) {
            for (int j = column < 0 ? 0 : column; j < (column < 0 ? perKeycode : column + 1); ++j) {
                const xcb_keysym_t keysym = keysyms[i * perKeycode + j];
                if (keysym == keysymV || keysym == keysymCapitalV) {
                    return xcb_keycode_t(setup->min_keycode + i);
                }
            }
        }
    }
    return evdevKeycodeV;
}

void X11PasteTarget::readEvents()
{
    bool focusChanged = false;
    while (xcb_generic_event_t* event = xcb_poll_for_event(m_connection)) {
        focusChanged |= (event->response_type & 0x7f) == XCB_FOCUS_IN;
        handleEvent(event);
        std::free(event);
    }
    if (focusChanged) {
        advance();
    }
}

void X11PasteTarget::handleEvent(const xcb_generic_event_t* event)
{
    if ((event->response_type & 0x7f) == XCB_FOCUS_IN) {
        qCDebug(lcPaste, "Focus in 0x%x",
                reinterpret_cast<const xcb_focus_in_event_t*>(event)->event);
    }
}

void X11PasteTarget::advance()
{
    if (!m_pasting || !focusIsOnTarget()) {
        return;
    }
    // The V of the user's Ctrl+V may still be down: typed now, it would reach the window as a
    // second press. Modifiers may stay down.
    XcbReply<xcb_query_keymap_reply_t> keymap(
        xcb_query_keymap_reply(m_connection, xcb_query_keymap(m_connection), nullptr));
    std::vector<xcb_keycode_t> modifiers;
    std::vector<xcb_keycode_t> control;
    readModifierMap(modifiers, control);
    if (!keymap || control.empty()) {
        finish(false, QStringLiteral("the keyboard has no Ctrl key"));
        return;
    }
    for (int keycode = 8; keycode < 256; ++keycode) {
        if (isDown(*keymap, xcb_keycode_t(keycode)) &&
            std::find(modifiers.cbegin(), modifiers.cend(), keycode) == modifiers.cend()) {
            m_keysReleased.start();
            return;
        }
    }
    const bool controlHeld = std::any_of(control.cbegin(), control.cend(),
                                         [&](xcb_keycode_t key) { return isDown(*keymap, key); });
    typePaste(control, controlHeld);
    finish(true);
}

void X11PasteTarget::typePaste(const std::vector<xcb_keycode_t>& control, bool controlHeld)
{
    const xcb_keycode_t v = keycodeOfV();
    const auto fake = [this](uint8_t type, xcb_keycode_t keycode) {
        xcb_test_fake_input(m_connection, type, keycode, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
    };
    // A Ctrl the user holds does the job; pressing another one here would be released here
    // while the user's is still down.
    if (!controlHeld) {
        fake(XCB_KEY_PRESS, control.front());
    }
    fake(XCB_KEY_PRESS, v);
    fake(XCB_KEY_RELEASE, v);
    if (!controlHeld) {
        fake(XCB_KEY_RELEASE, control.front());
    }
    xcb_flush(m_connection);
    qCDebug(lcPaste, "Typed Ctrl+V into window 0x%x (Ctrl %s)", m_target,
            controlHeld ? "held by the user" : "pressed here");
}

void X11PasteTarget::finish(bool done, const QString& reason)
{
    m_pasting = false;
    m_deadline.stop();
    m_keysReleased.stop();
    if (m_target != XCB_NONE && exists(m_target)) {
        const uint32_t none = XCB_EVENT_MASK_NO_EVENT;
        xcb_change_window_attributes(m_connection, m_target, XCB_CW_EVENT_MASK, &none);
        xcb_flush(m_connection);
    }
    if (done) {
        emit pasted();
    } else {
        emit failed(reason);
    }
}
