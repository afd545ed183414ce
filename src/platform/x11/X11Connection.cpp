#include "platform/x11/X11Connection.h"

#include "platform/PlatformLogging.h"

#include <QSocketNotifier>

#include <xcb/xinput.h>
#include <xkbcommon/xkbcommon-x11.h>
// xkb.h names a field "explicit"; keep the keyword out of its way.
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit

namespace {

constexpr quint8 responseTypeMask = 0x7f;
// The real modifiers Shift, Lock, Control and Mod1..Mod5 are the first eight indices of a
// keymap read from an X server.
constexpr quint16 realModifiersMask = 0xff;

bool hasKeysym(xkb_keymap* keymap, xcb_keycode_t keycode, xkb_keysym_t wanted)
{
    const xkb_layout_index_t layouts = xkb_keymap_num_layouts_for_key(keymap, keycode);
    for (xkb_layout_index_t layout = 0; layout < layouts; ++layout) {
        const xkb_level_index_t levels = xkb_keymap_num_levels_for_key(keymap, keycode, layout);
        for (xkb_level_index_t level = 0; level < levels; ++level) {
            const xkb_keysym_t* syms = nullptr;
            const int count =
                xkb_keymap_key_get_syms_by_level(keymap, keycode, layout, level, &syms);
            for (int i = 0; i < count; ++i) {
                if (syms[i] == wanted) {
                    return true;
                }
            }
        }
    }
    return false;
}

xkb_keysym_t keysymAtLevel0(xkb_keymap* keymap, xcb_keycode_t keycode, xkb_layout_index_t layout)
{
    const xkb_keysym_t* syms = nullptr;
    const int count = xkb_keymap_key_get_syms_by_level(keymap, keycode, layout, 0, &syms);
    return count > 0 ? syms[0] : XKB_KEY_NoSymbol;
}

/// The layout a key uses when the keymap's layout `layout` is active: keys with fewer
/// layouts wrap around.
xkb_layout_index_t layoutOfKey(xkb_keymap* keymap, xcb_keycode_t keycode, xkb_layout_index_t layout)
{
    const xkb_layout_index_t count = xkb_keymap_num_layouts_for_key(keymap, keycode);
    if (count == 0) {
        return XKB_LAYOUT_INVALID;
    }
    return layout < count ? layout : layout % count;
}

} // namespace

std::shared_ptr<X11Connection> X11Connection::shared()
{
    static std::weak_ptr<X11Connection> current;
    if (std::shared_ptr<X11Connection> existing = current.lock();
        existing && !existing->isBroken()) {
        return existing;
    }
    std::shared_ptr<X11Connection> connection(new X11Connection);
    if (!connection->open()) {
        return nullptr;
    }
    current = connection;
    return connection;
}

X11Connection::X11Connection() = default;

X11Connection::~X11Connection()
{
    delete m_notifier;
    m_state.reset();
    m_keymap.reset();
    m_context.reset();
    if (m_connection) {
        xcb_disconnect(m_connection);
    }
}

bool X11Connection::open()
{
    int screenNumber = 0;
    m_connection = xcb_connect(nullptr, &screenNumber);
    if (xcb_connection_has_error(m_connection)) {
        qCWarning(lcPlatform, "Global triggers are off: cannot connect to the X server (%s).",
                  qgetenv("DISPLAY").constData());
        return false;
    }
    m_root = ravelo::screenRoot(m_connection, screenNumber);
    if (m_root == XCB_NONE) {
        qCWarning(lcPlatform, "Global triggers are off: the X server has no screen %d.",
                  screenNumber);
        return false;
    }

    const xcb_query_extension_reply_t* xinput = xcb_get_extension_data(m_connection, &xcb_input_id);
    if (!xinput || !xinput->present) {
        qCWarning(lcPlatform, "Global triggers are off: the X server has no XInput extension.");
        return false;
    }
    m_xinputOpcode = xinput->major_opcode;
    const ravelo::XcbReply<xcb_input_xi_query_version_reply_t> version(
        xcb_input_xi_query_version_reply(m_connection,
                                         xcb_input_xi_query_version(m_connection, 2, 2), nullptr));
    if (!version || version->major_version < 2 ||
        (version->major_version == 2 && version->minor_version < 1)) {
        qCWarning(lcPlatform, "Global triggers are off: the X server lacks XInput 2.1.");
        return false;
    }

    if (!xkb_x11_setup_xkb_extension(
            m_connection, XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
            XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr, &m_xkbEventBase, nullptr)) {
        qCWarning(lcPlatform, "Global triggers are off: the X server has no usable XKB.");
        return false;
    }
    m_keyboardId = xkb_x11_get_core_keyboard_device_id(m_connection);
    m_context.reset(xkb_context_new(XKB_CONTEXT_NO_FLAGS));
    if (m_keyboardId < 0 || !m_context || !selectXkbEvents() || !loadKeymap()) {
        qCWarning(lcPlatform, "Global triggers are off: the keyboard's keymap cannot be read.");
        return false;
    }

    // With detectable auto-repeat a held grabbed key sends presses without releases in
    // between, so that holding the hotkey can be told from pressing it again.
    const ravelo::XcbReply<xcb_xkb_per_client_flags_reply_t> flags(xcb_xkb_per_client_flags_reply(
        m_connection,
        xcb_xkb_per_client_flags(m_connection, XCB_XKB_ID_USE_CORE_KBD,
                                 XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT,
                                 XCB_XKB_PER_CLIENT_FLAG_DETECTABLE_AUTO_REPEAT, 0, 0, 0),
        nullptr));
    if (!flags) {
        qCDebug(lcPlatform, "Detectable auto-repeat is not available");
    }

    m_notifier = new QSocketNotifier(xcb_get_file_descriptor(m_connection), QSocketNotifier::Read);
    connect(m_notifier, &QSocketNotifier::activated, this, &X11Connection::drain);
    xcb_flush(m_connection);
    scheduleDrain();
    qCDebug(lcPlatform, "Own X connection open; XInput %d.%d, keyboard device %d",
            version->major_version, version->minor_version, m_keyboardId);
    return true;
}

bool X11Connection::isBroken() const
{
    return !m_connection || xcb_connection_has_error(m_connection);
}

bool X11Connection::selectXkbEvents()
{
    constexpr quint16 events = XCB_XKB_EVENT_TYPE_NEW_KEYBOARD_NOTIFY |
                               XCB_XKB_EVENT_TYPE_MAP_NOTIFY | XCB_XKB_EVENT_TYPE_STATE_NOTIFY;
    constexpr quint16 mapParts =
        XCB_XKB_MAP_PART_KEY_TYPES | XCB_XKB_MAP_PART_KEY_SYMS | XCB_XKB_MAP_PART_MODIFIER_MAP |
        XCB_XKB_MAP_PART_EXPLICIT_COMPONENTS | XCB_XKB_MAP_PART_KEY_ACTIONS |
        XCB_XKB_MAP_PART_VIRTUAL_MODS | XCB_XKB_MAP_PART_VIRTUAL_MOD_MAP;
    constexpr quint16 newKeyboardDetails = XCB_XKB_NKN_DETAIL_KEYCODES;
    constexpr quint16 stateDetails =
        XCB_XKB_STATE_PART_MODIFIER_BASE | XCB_XKB_STATE_PART_MODIFIER_LATCH |
        XCB_XKB_STATE_PART_MODIFIER_LOCK | XCB_XKB_STATE_PART_GROUP_BASE |
        XCB_XKB_STATE_PART_GROUP_LATCH | XCB_XKB_STATE_PART_GROUP_LOCK;

    xcb_xkb_select_events_details_t details{};
    details.affectNewKeyboard = newKeyboardDetails;
    details.newKeyboardDetails = newKeyboardDetails;
    details.affectState = stateDetails;
    details.stateDetails = stateDetails;
    const xcb_void_cookie_t cookie = xcb_xkb_select_events_aux_checked(
        m_connection, static_cast<xcb_xkb_device_spec_t>(m_keyboardId), events, 0, 0, mapParts,
        mapParts, &details);
    return ravelo::xcbErrorCode(m_connection, cookie) == 0;
}

bool X11Connection::loadKeymap()
{
    ravelo::XkbKeymap keymap(xkb_x11_keymap_new_from_device(
        m_context.get(), m_connection, m_keyboardId, XKB_KEYMAP_COMPILE_NO_FLAGS));
    if (!keymap) {
        return false;
    }
    ravelo::XkbState state(xkb_x11_state_new_from_device(keymap.get(), m_connection, m_keyboardId));
    if (!state) {
        return false;
    }
    m_keymap = std::move(keymap);
    m_state = std::move(state);

    const xkb_layout_index_t layouts = xkb_keymap_num_layouts(m_keymap.get());
    m_layoutHasLatinC.assign(layouts, false);
    const xkb_keycode_t min = xkb_keymap_min_keycode(m_keymap.get());
    const xkb_keycode_t max = std::min<xkb_keycode_t>(xkb_keymap_max_keycode(m_keymap.get()), 255);
    for (xkb_layout_index_t layout = 0; layout < layouts; ++layout) {
        for (xkb_keycode_t keycode = min; keycode <= max; ++keycode) {
            const xkb_layout_index_t keyLayout = layoutOfKey(m_keymap.get(), keycode, layout);
            if (keyLayout != XKB_LAYOUT_INVALID &&
                keysymAtLevel0(m_keymap.get(), keycode, keyLayout) == XKB_KEY_c) {
                m_layoutHasLatinC[layout] = true;
                break;
            }
        }
    }
    const xkb_keycode_t physicalC = xkb_keymap_key_by_name(m_keymap.get(), "AB03");
    m_physicalC = physicalC <= 255 ? xcb_keycode_t(physicalC) : 0;

    readModifierMap();
    return true;
}

void X11Connection::readModifierMap()
{
    KeyMap::X11ModifierBits bits;
    bits.alt = 0;
    bits.super = 0;
    m_numLockMask = 0;
    const ravelo::XcbReply<xcb_get_modifier_mapping_reply_t> reply(xcb_get_modifier_mapping_reply(
        m_connection, xcb_get_modifier_mapping(m_connection), nullptr));
    if (reply) {
        const xcb_keycode_t* keycodes = xcb_get_modifier_mapping_keycodes(reply.get());
        const int perModifier = reply->keycodes_per_modifier;
        // Mod1 to Mod5 are the modifiers whose meaning the modifier map decides.
        for (int modifier = 3; modifier < 8; ++modifier) {
            const quint16 bit = quint16(1U << modifier);
            for (int i = 0; i < perModifier; ++i) {
                const xcb_keycode_t keycode = keycodes[modifier * perModifier + i];
                if (keycode == 0) {
                    continue;
                }
                if (hasKeysym(m_keymap.get(), keycode, XKB_KEY_Num_Lock)) {
                    m_numLockMask |= bit;
                }
                if (!bits.alt && (hasKeysym(m_keymap.get(), keycode, XKB_KEY_Alt_L) ||
                                  hasKeysym(m_keymap.get(), keycode, XKB_KEY_Alt_R))) {
                    bits.alt = bit;
                }
                if (!bits.super && (hasKeysym(m_keymap.get(), keycode, XKB_KEY_Super_L) ||
                                    hasKeysym(m_keymap.get(), keycode, XKB_KEY_Super_R))) {
                    bits.super = bit;
                }
            }
        }
    }
    const KeyMap::X11ModifierBits usual;
    if (!bits.alt) {
        bits.alt = usual.alt;
    }
    if (!bits.super) {
        bits.super = usual.super;
    }
    m_modifierBits = bits;
    qCDebug(lcPlatform, "Modifier bits: Alt 0x%x, Super 0x%x, Num Lock 0x%x", bits.alt, bits.super,
            m_numLockMask);
}

bool X11Connection::acquireRawKeyPresses()
{
    if (m_rawKeyUsers == 0 && !selectRawKeyPresses(true)) {
        return false;
    }
    ++m_rawKeyUsers;
    return true;
}

void X11Connection::releaseRawKeyPresses()
{
    if (m_rawKeyUsers > 0 && --m_rawKeyUsers == 0) {
        selectRawKeyPresses(false);
    }
}

bool X11Connection::selectRawKeyPresses(bool selected)
{
    if (isBroken()) {
        return false;
    }
    struct {
        xcb_input_event_mask_t head;
        quint32 mask;
    } mask{};
    mask.head.deviceid = XCB_INPUT_DEVICE_ALL_MASTER;
    mask.head.mask_len = 1;
    mask.mask = selected ? XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS : 0;
    const quint8 error = ravelo::xcbErrorCode(
        m_connection, xcb_input_xi_select_events_checked(m_connection, m_root, 1, &mask.head));
    scheduleDrain();
    if (error != 0) {
        qCDebug(lcPlatform, "Selecting raw key presses failed with X error %d", error);
        return false;
    }
    return true;
}

quint32 X11Connection::currentModifiers() const
{
    const xkb_mod_mask_t modifiers =
        xkb_state_serialize_mods(m_state.get(), XKB_STATE_MODS_EFFECTIVE);
    return KeyMap::maskForX11Modifiers(quint16(modifiers & realModifiersMask), m_modifierBits);
}

xkb_keysym_t X11Connection::firstKeysym(xcb_keycode_t keycode, xkb_layout_index_t layout) const
{
    return keysymAtLevel0(m_keymap.get(), keycode, layout);
}

bool X11Connection::isCopyKey(xcb_keycode_t keycode) const
{
    const xkb_layout_index_t layout = xkb_state_key_get_layout(m_state.get(), keycode);
    if (layout == XKB_LAYOUT_INVALID) {
        return false;
    }
    if (firstKeysym(keycode, layout) == XKB_KEY_c) {
        return true;
    }
    const xkb_layout_index_t active =
        xkb_state_serialize_layout(m_state.get(), XKB_STATE_LAYOUT_EFFECTIVE);
    return keycode == m_physicalC && active < m_layoutHasLatinC.size() &&
           !m_layoutHasLatinC[active];
}

bool X11Connection::isModifierKey(xcb_keycode_t keycode) const
{
    const xkb_layout_index_t layout = xkb_state_key_get_layout(m_state.get(), keycode);
    return layout != XKB_LAYOUT_INVALID && KeyMap::isModifierKeysym(firstKeysym(keycode, layout));
}

quint32 X11Connection::virtualKeyCode(xcb_keycode_t keycode) const
{
    if (isCopyKey(keycode)) {
        return KeyMap::copyKeyCode;
    }
    const xkb_layout_index_t layout = xkb_state_key_get_layout(m_state.get(), keycode);
    if (layout == XKB_LAYOUT_INVALID) {
        return KeyMap::unknownKeyCode;
    }
    const std::optional<quint32> code = KeyMap::keyCodeForKeysym(firstKeysym(keycode, layout));
    return code && *code != KeyMap::copyKeyCode ? *code : KeyMap::unknownKeyCode;
}

std::vector<xcb_keycode_t> X11Connection::keycodesFor(const KeyMap::Key& key) const
{
    std::vector<xcb_keycode_t> keycodes;
    const xkb_keycode_t min = xkb_keymap_min_keycode(m_keymap.get());
    const xkb_keycode_t max = std::min<xkb_keycode_t>(xkb_keymap_max_keycode(m_keymap.get()), 255);
    for (xkb_keycode_t keycode = min; keycode <= max; ++keycode) {
        if (hasKeysym(m_keymap.get(), keycode, key.keysym)) {
            keycodes.push_back(xcb_keycode_t(keycode));
        }
    }
    if (keycodes.empty()) {
        const xkb_keycode_t byPosition = xkb_keymap_key_by_name(m_keymap.get(), key.xkbName);
        if (byPosition != XKB_KEYCODE_INVALID && byPosition <= 255) {
            keycodes.push_back(xcb_keycode_t(byPosition));
        }
    }
    return keycodes;
}

void X11Connection::scheduleDrain()
{
    if (m_drainScheduled) {
        return;
    }
    m_drainScheduled = true;
    QMetaObject::invokeMethod(this, &X11Connection::drain, Qt::QueuedConnection);
}

void X11Connection::drain()
{
    m_drainScheduled = false;
    if (!m_connection) {
        return;
    }
    while (xcb_generic_event_t* event = xcb_poll_for_event(m_connection)) {
        const ravelo::XcbReply<xcb_generic_event_t> owned(event);
        handleEvent(event);
    }
    if (xcb_connection_has_error(m_connection)) {
        if (m_notifier) {
            m_notifier->setEnabled(false);
        }
        if (!m_brokenReported) {
            m_brokenReported = true;
            qCWarning(lcPlatform,
                      "The connection to the X server was lost; global triggers are off.");
        }
        return;
    }
    xcb_flush(m_connection);
}

void X11Connection::handleEvent(const xcb_generic_event_t* event)
{
    const quint8 type = event->response_type & responseTypeMask;
    if (type == 0) {
        const auto* error = reinterpret_cast<const xcb_generic_error_t*>(event);
        qCDebug(lcPlatform, "X error %d for request %d.%d", error->error_code, error->major_code,
                error->minor_code);
        return;
    }
    if (type == XCB_GE_GENERIC) {
        const auto* generic = reinterpret_cast<const xcb_ge_generic_event_t*>(event);
        if (generic->extension == m_xinputOpcode &&
            generic->event_type == XCB_INPUT_RAW_KEY_PRESS) {
            const auto* raw = reinterpret_cast<const xcb_input_raw_key_press_event_t*>(event);
            if (raw->detail <= 255) {
                emit rawKeyPressed(quint8(raw->detail));
            }
        }
        return;
    }
    if (type == m_xkbEventBase) {
        handleXkbEvent(event);
        return;
    }
    if (type == XCB_KEY_PRESS) {
        const auto* key = reinterpret_cast<const xcb_key_press_event_t*>(event);
        emit keyPressed(key->detail, key->state);
    } else if (type == XCB_KEY_RELEASE) {
        const auto* key = reinterpret_cast<const xcb_key_release_event_t*>(event);
        emit keyReleased(key->detail, key->state);
    }
}

void X11Connection::handleXkbEvent(const xcb_generic_event_t* event)
{
    struct Any {
        quint8 responseType;
        quint8 xkbType;
        quint16 sequence;
        xcb_timestamp_t time;
        quint8 deviceId;
    };
    const auto* any = reinterpret_cast<const Any*>(event);
    if (any->deviceId != m_keyboardId) {
        return;
    }
    switch (any->xkbType) {
    case XCB_XKB_STATE_NOTIFY: {
        const auto* state = reinterpret_cast<const xcb_xkb_state_notify_event_t*>(event);
        xkb_state_update_mask(m_state.get(), state->baseMods, state->latchedMods, state->lockedMods,
                              xkb_layout_index_t(state->baseGroup),
                              xkb_layout_index_t(state->latchedGroup), state->lockedGroup);
        break;
    }
    case XCB_XKB_NEW_KEYBOARD_NOTIFY: {
        const auto* notify = reinterpret_cast<const xcb_xkb_new_keyboard_notify_event_t*>(event);
        if (!(notify->changed & XCB_XKB_NKN_DETAIL_KEYCODES)) {
            break;
        }
        [[fallthrough]];
    }
    case XCB_XKB_MAP_NOTIFY:
        if (loadKeymap()) {
            qCDebug(lcPlatform, "Keymap reloaded: %u layouts",
                    xkb_keymap_num_layouts(m_keymap.get()));
            emit keymapChanged();
        }
        break;
    default:
        break;
    }
}
