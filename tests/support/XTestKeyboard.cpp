#include "XTestKeyboard.h"

#include <xcb/xtest.h>
#include <xkbcommon/xkbcommon-x11.h>
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit

#include <cstdlib>
#include <memory>

namespace {

struct Free {
    void operator()(void* pointer) const { std::free(pointer); }
};
template<typename T> using Reply = std::unique_ptr<T, Free>;

constexpr quint32 numLockKeysym = 0xff7f;

} // namespace

XTestKeyboard::XTestKeyboard()
{
    int screen = 0;
    m_connection = xcb_connect(nullptr, &screen);
    if (xcb_connection_has_error(m_connection)) {
        return;
    }
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(m_connection));
    for (int i = 0; i < screen; ++i) {
        xcb_screen_next(&screens);
    }
    m_root = screens.data->root;
    // Group locks and keymap reads are XKB requests.
    xkb_x11_setup_xkb_extension(m_connection, XKB_X11_MIN_MAJOR_XKB_VERSION,
                                XKB_X11_MIN_MINOR_XKB_VERSION, XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS,
                                nullptr, nullptr, nullptr, nullptr);
    refreshMapping();
}

XTestKeyboard::~XTestKeyboard()
{
    if (m_connection) {
        xcb_disconnect(m_connection);
    }
}

bool XTestKeyboard::isValid() const
{
    return m_connection && !xcb_connection_has_error(m_connection) && m_keysymsPerKeycode > 0;
}

void XTestKeyboard::refreshMapping()
{
    const xcb_setup_t* setup = xcb_get_setup(m_connection);
    m_minKeycode = setup->min_keycode;
    const quint8 count = setup->max_keycode - setup->min_keycode + 1;
    const Reply<xcb_get_keyboard_mapping_reply_t> reply(xcb_get_keyboard_mapping_reply(
        m_connection, xcb_get_keyboard_mapping(m_connection, m_minKeycode, count), nullptr));
    m_keysyms.clear();
    m_keysymsPerKeycode = 0;
    if (!reply) {
        return;
    }
    m_keysymsPerKeycode = reply->keysyms_per_keycode;
    const xcb_keysym_t* keysyms = xcb_get_keyboard_mapping_keysyms(reply.get());
    const int length = xcb_get_keyboard_mapping_keysyms_length(reply.get());
    for (int i = 0; i < length; ++i) {
        m_keysyms.append(keysyms[i]);
    }
}

xcb_keycode_t XTestKeyboard::keycode(quint32 keysym) const
{
    // First the plain level of the first group, then any column.
    for (int column : {0, -1}) {
        for (int i = 0; i < m_keysyms.size(); ++i) {
            if (m_keysyms[i] == keysym && (column < 0 || i % m_keysymsPerKeycode == column)) {
                return xcb_keycode_t(m_minKeycode + i / m_keysymsPerKeycode);
            }
        }
    }
    return 0;
}

xcb_keycode_t XTestKeyboard::keycodeAt(const char* xkbName) const
{
    xkb_context* context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
    xkb_keymap* keymap = xkb_x11_keymap_new_from_device(
        context, m_connection, xkb_x11_get_core_keyboard_device_id(m_connection),
        XKB_KEYMAP_COMPILE_NO_FLAGS);
    const xkb_keycode_t keycode =
        keymap ? xkb_keymap_key_by_name(keymap, xkbName) : XKB_KEYCODE_INVALID;
    xkb_keymap_unref(keymap);
    xkb_context_unref(context);
    return keycode == XKB_KEYCODE_INVALID || keycode > 255 ? 0 : xcb_keycode_t(keycode);
}

void XTestKeyboard::lockGroup(int group)
{
    xcb_xkb_latch_lock_state(m_connection, XCB_XKB_ID_USE_CORE_KBD, 0, 0, 1, quint8(group), 0, 0,
                             0);
    sync();
}

void XTestKeyboard::press(xcb_keycode_t keycode)
{
    xcb_test_fake_input(m_connection, XCB_KEY_PRESS, keycode, XCB_CURRENT_TIME, m_root, 0, 0, 0);
}

void XTestKeyboard::release(xcb_keycode_t keycode)
{
    xcb_test_fake_input(m_connection, XCB_KEY_RELEASE, keycode, XCB_CURRENT_TIME, m_root, 0, 0, 0);
}

void XTestKeyboard::tap(quint32 keysym, std::initializer_list<quint32> modifierKeysyms)
{
    tapKeycode(keycode(keysym), modifierKeysyms);
}

void XTestKeyboard::tapKeycode(xcb_keycode_t key, std::initializer_list<quint32> modifierKeysyms)
{
    for (const quint32 modifier : modifierKeysyms) {
        press(keycode(modifier));
    }
    press(key);
    release(key);
    for (auto it = std::rbegin(modifierKeysyms); it != std::rend(modifierKeysyms); ++it) {
        release(keycode(*it));
    }
    sync();
}

void XTestKeyboard::sync()
{
    std::free(xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
    // Events of this client read during the round trip.
    while (xcb_generic_event_t* event = xcb_poll_for_queued_event(m_connection)) {
        if ((event->response_type & 0x7f) == XCB_KEY_PRESS) {
            m_keyPresses.append(reinterpret_cast<xcb_key_press_event_t*>(event)->detail);
        }
        std::free(event);
    }
}

bool XTestKeyboard::isLocked(quint16 modifierBit)
{
    const Reply<xcb_query_pointer_reply_t> pointer(
        xcb_query_pointer_reply(m_connection, xcb_query_pointer(m_connection, m_root), nullptr));
    return pointer && (pointer->mask & modifierBit);
}

void XTestKeyboard::setLocked(quint32 lockKeysym, quint16 modifierBit, bool on)
{
    if (isLocked(modifierBit) != on) {
        tap(lockKeysym);
    }
}

quint16 XTestKeyboard::numLockMask()
{
    const xcb_keycode_t numLock = keycode(numLockKeysym);
    const Reply<xcb_get_modifier_mapping_reply_t> reply(xcb_get_modifier_mapping_reply(
        m_connection, xcb_get_modifier_mapping(m_connection), nullptr));
    if (!reply || numLock == 0) {
        return 0;
    }
    const xcb_keycode_t* keycodes = xcb_get_modifier_mapping_keycodes(reply.get());
    for (int modifier = 0; modifier < 8; ++modifier) {
        for (int i = 0; i < reply->keycodes_per_modifier; ++i) {
            if (keycodes[modifier * reply->keycodes_per_modifier + i] == numLock) {
                return quint16(1U << modifier);
            }
        }
    }
    return 0;
}

xcb_window_t XTestKeyboard::createFocusedWindow()
{
    const xcb_window_t window = xcb_generate_id(m_connection);
    const quint32 values[] = {XCB_EVENT_MASK_KEY_PRESS | XCB_EVENT_MASK_EXPOSURE};
    xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, window, m_root, 0, 0, 200, 100, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK,
                      values);
    xcb_map_window(m_connection, window);
    sync();
    xcb_set_input_focus(m_connection, XCB_INPUT_FOCUS_POINTER_ROOT, window, XCB_CURRENT_TIME);
    sync();
    return window;
}

QList<xcb_keycode_t> XTestKeyboard::takeKeyPresses()
{
    sync();
    return std::exchange(m_keyPresses, {});
}

quint8 XTestKeyboard::grabKey(xcb_keycode_t keycode, quint16 modifiers)
{
    const Reply<xcb_generic_error_t> error(xcb_request_check(
        m_connection, xcb_grab_key_checked(m_connection, 1, m_root, modifiers, keycode,
                                           XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC)));
    return error ? error->error_code : 0;
}

void XTestKeyboard::ungrabKey(xcb_keycode_t keycode, quint16 modifiers)
{
    const Reply<xcb_generic_error_t> error(xcb_request_check(
        m_connection, xcb_ungrab_key_checked(m_connection, keycode, m_root, modifiers)));
}
