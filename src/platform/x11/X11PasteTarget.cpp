#include "platform/x11/X11PasteTarget.h"

#include "platform/x11/X11Helpers.h"

#include <QAbstractEventDispatcher>
#include <QGuiApplication>
#include <QLoggingCategory>
#include <QSocketNotifier>
#include <QWindow>

#include <xcb/xtest.h>

#include <algorithm>
#include <unistd.h>
#include <utility>

namespace {

Q_LOGGING_CATEGORY(lcPaste, "ravelo.paste", QtInfoMsg)

using ravelo::XcbReply;

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
    std::optional<ravelo::QtDisplayConnection> display = ravelo::connectToQtDisplay();
    if (!display) {
        return nullptr;
    }
    const xcb_query_extension_reply_t* xtest =
        xcb_get_extension_data(display->connection.get(), &xcb_test_id);
    if (!xtest || !xtest->present) {
        qCWarning(lcPaste) << "the X server has no XTest: answers are only copied";
        return nullptr;
    }
    return std::unique_ptr<X11PasteTarget>(
        new X11PasteTarget(std::move(display->connection), display->screenNumber));
}

X11PasteTarget::X11PasteTarget(ravelo::XcbConnection connection, int screenNumber)
    : m_connection(std::move(connection))
    , m_root(ravelo::screenRoot(m_connection.get(), screenNumber))
    , m_clock(m_connection.get(), m_root)
{
    xcb_flush(m_connection.get());

    m_notifier = std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(m_connection.get()),
                                                   QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this,
            [this] { readEvents(xcb_poll_for_event); });
    // A reply read the events that came with it into xcb's queue, where the socket notifier no
    // longer sees them (a focus event while the focus was asked for): they are looked for there
    // whenever the event loop is about to wait.
    connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock, this,
            [this] { readEvents(xcb_poll_for_queued_event); });
    m_deadline.setSingleShot(true);
    m_deadline.setInterval(focusLimitMs);
    connect(&m_deadline, &QTimer::timeout, this, [this] {
        if (focusIsOnTarget()) {
            finish(false, QStringLiteral("keys were still held down (keycode %1)").arg(m_heldKey));
        } else {
            finish(false, QStringLiteral("the window did not take the focus"));
        }
    });
    m_keysReleased.setInterval(keysPollMs);
    connect(&m_keysReleased, &QTimer::timeout, this, &X11PasteTarget::advance);
}

X11PasteTarget::~X11PasteTarget()
{
    settleTarget();
}

xcb_atom_t X11PasteTarget::atom(const char* name)
{
    return ravelo::atom(m_connection.get(), name);
}

void X11PasteTarget::rememberActiveWindow()
{
    if (m_pasting) {
        finish(false, QStringLiteral("the panel was opened again first"));
    }
    settleTarget();
    // Asked now and answered later: the panel takes the keyboard without waiting for a round
    // trip, and the server reads the focus before the panel's window is even mapped.
    m_activeCookie = xcb_get_property(m_connection.get(), 0, m_root, atom("_NET_ACTIVE_WINDOW"),
                                      XCB_ATOM_WINDOW, 0, 1);
    m_focusCookie = xcb_get_input_focus(m_connection.get());
    xcb_flush(m_connection.get());
}

void X11PasteTarget::settleTarget()
{
    if (!m_activeCookie) {
        return;
    }
    XcbReply<xcb_get_property_reply_t> active(xcb_get_property_reply(
        m_connection.get(), *std::exchange(m_activeCookie, std::nullopt), nullptr));
    XcbReply<xcb_get_input_focus_reply_t> focus(
        xcb_get_input_focus_reply(m_connection.get(), m_focusCookie, nullptr));
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

bool X11PasteTarget::isOwnWindow(xcb_window_t window)
{
    const QWindowList windows = QGuiApplication::allWindows();
    if (std::any_of(windows.cbegin(), windows.cend(), [window](const QWindow* own) {
            return own->handle() && own->winId() == window;
        })) {
        return true;
    }
    XcbReply<xcb_get_property_reply_t> pid(
        xcb_get_property_reply(m_connection.get(),
                               xcb_get_property(m_connection.get(), 0, window, atom("_NET_WM_PID"),
                                                XCB_ATOM_CARDINAL, 0, 1),
                               nullptr));
    return pid && xcb_get_property_value_length(pid.get()) == sizeof(uint32_t) &&
           *static_cast<const uint32_t*>(xcb_get_property_value(pid.get())) == uint32_t(getpid());
}

bool X11PasteTarget::exists(xcb_window_t window)
{
    XcbReply<xcb_get_window_attributes_reply_t> attributes(xcb_get_window_attributes_reply(
        m_connection.get(), xcb_get_window_attributes(m_connection.get(), window), nullptr));
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
    m_heldKey = 0;
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

void X11PasteTarget::activateTarget()
{
    // Focus changes in the window or below it are reported here from now on.
    const uint32_t mask = XCB_EVENT_MASK_FOCUS_CHANGE;
    xcb_change_window_attributes(m_connection.get(), m_target, XCB_CW_EVENT_MASK, &mask);
    const xcb_timestamp_t time =
        m_clock.now([this](const xcb_generic_event_t* event) { handleEvent(event); });
    if (!ravelo::requestActivation(m_connection.get(), m_root, m_target, time)) {
        xcb_set_input_focus(m_connection.get(), XCB_INPUT_FOCUS_PARENT, m_target, time);
    }
    xcb_flush(m_connection.get());
    qCDebug(lcPaste, "Asked for the focus of window 0x%x", m_target);
}

bool X11PasteTarget::focusIsOnTarget()
{
    XcbReply<xcb_get_input_focus_reply_t> focus(xcb_get_input_focus_reply(
        m_connection.get(), xcb_get_input_focus(m_connection.get()), nullptr));
    xcb_window_t window = focus ? focus->focus : XCB_NONE;
    // The application may give the focus to a window inside its top-level.
    for (int depth = 0; depth < maxTreeDepth; ++depth) {
        if (window == m_target) {
            return true;
        }
        if (window == XCB_NONE || window == XCB_INPUT_FOCUS_POINTER_ROOT || window == m_root) {
            return false;
        }
        XcbReply<xcb_query_tree_reply_t> tree(xcb_query_tree_reply(
            m_connection.get(), xcb_query_tree(m_connection.get(), window), nullptr));
        window = tree ? tree->parent : XCB_NONE;
    }
    return false;
}

void X11PasteTarget::readModifierMap(std::vector<xcb_keycode_t>& modifiers,
                                     std::vector<xcb_keycode_t>& control)
{
    XcbReply<xcb_get_modifier_mapping_reply_t> map(xcb_get_modifier_mapping_reply(
        m_connection.get(), xcb_get_modifier_mapping(m_connection.get()), nullptr));
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
    const xcb_setup_t* setup = xcb_get_setup(m_connection.get());
    const int count = setup->max_keycode - setup->min_keycode + 1;
    XcbReply<xcb_get_keyboard_mapping_reply_t> mapping(xcb_get_keyboard_mapping_reply(
        m_connection.get(),
        xcb_get_keyboard_mapping(m_connection.get(), setup->min_keycode, uint8_t(count)), nullptr));
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

void X11PasteTarget::readEvents(xcb_generic_event_t* (*next)(xcb_connection_t*))
{
    bool focusChanged = false;
    while (xcb_generic_event_t* event = next(m_connection.get())) {
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
        xcb_query_keymap_reply(m_connection.get(), xcb_query_keymap(m_connection.get()), nullptr));
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
            m_heldKey = xcb_keycode_t(keycode);
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
        xcb_test_fake_input(m_connection.get(), type, keycode, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
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
    xcb_flush(m_connection.get());
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
        xcb_change_window_attributes(m_connection.get(), m_target, XCB_CW_EVENT_MASK, &none);
        xcb_flush(m_connection.get());
    }
    if (done) {
        emit pasted();
    } else {
        emit failed(reason);
    }
}
