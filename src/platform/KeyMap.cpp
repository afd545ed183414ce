#include "platform/KeyMap.h"

#include "platform/KeyNames.h"

#include <QCoreApplication>

#include <xkbcommon/xkbcommon-keysyms.h>

#include <algorithm>
#include <array>

namespace {

// Virtual key codes of the ANSI keyboard, with the Qt key, the keysym a US layout types and
// the xkb name of the key's position. Only the letters, digits, Return, Tab and Space carry
// a display name; every other key reads "Key" and its code.
constexpr KeyMap::Key keyTable[] = {
    {0, "A", Qt::Key_A, XKB_KEY_a, "AC01", true},
    {1, "S", Qt::Key_S, XKB_KEY_s, "AC02", true},
    {2, "D", Qt::Key_D, XKB_KEY_d, "AC03", true},
    {3, "F", Qt::Key_F, XKB_KEY_f, "AC04", true},
    {4, "H", Qt::Key_H, XKB_KEY_h, "AC06", true},
    {5, "G", Qt::Key_G, XKB_KEY_g, "AC05", true},
    {6, "Z", Qt::Key_Z, XKB_KEY_z, "AB01", true},
    {7, "X", Qt::Key_X, XKB_KEY_x, "AB02", true},
    {8, "C", Qt::Key_C, XKB_KEY_c, "AB03", true},
    {9, "V", Qt::Key_V, XKB_KEY_v, "AB04", true},
    {11, "B", Qt::Key_B, XKB_KEY_b, "AB05", true},
    {12, "Q", Qt::Key_Q, XKB_KEY_q, "AD01", true},
    {13, "W", Qt::Key_W, XKB_KEY_w, "AD02", true},
    {14, "E", Qt::Key_E, XKB_KEY_e, "AD03", true},
    {15, "R", Qt::Key_R, XKB_KEY_r, "AD04", true},
    {16, "Y", Qt::Key_Y, XKB_KEY_y, "AD06", true},
    {17, "T", Qt::Key_T, XKB_KEY_t, "AD05", true},
    {18, "1", Qt::Key_1, XKB_KEY_1, "AE01", true},
    {19, "2", Qt::Key_2, XKB_KEY_2, "AE02", true},
    {20, "3", Qt::Key_3, XKB_KEY_3, "AE03", true},
    {21, "4", Qt::Key_4, XKB_KEY_4, "AE04", true},
    {22, "6", Qt::Key_6, XKB_KEY_6, "AE06", true},
    {23, "5", Qt::Key_5, XKB_KEY_5, "AE05", true},
    {24, "=", Qt::Key_Equal, XKB_KEY_equal, "AE12", false},
    {25, "9", Qt::Key_9, XKB_KEY_9, "AE09", true},
    {26, "7", Qt::Key_7, XKB_KEY_7, "AE07", true},
    {27, "-", Qt::Key_Minus, XKB_KEY_minus, "AE11", false},
    {28, "8", Qt::Key_8, XKB_KEY_8, "AE08", true},
    {29, "0", Qt::Key_0, XKB_KEY_0, "AE10", true},
    {30, "]", Qt::Key_BracketRight, XKB_KEY_bracketright, "AD12", false},
    {31, "O", Qt::Key_O, XKB_KEY_o, "AD09", true},
    {32, "U", Qt::Key_U, XKB_KEY_u, "AD07", true},
    {33, "[", Qt::Key_BracketLeft, XKB_KEY_bracketleft, "AD11", false},
    {34, "I", Qt::Key_I, XKB_KEY_i, "AD08", true},
    {35, "P", Qt::Key_P, XKB_KEY_p, "AD10", true},
    {36, QT_TRANSLATE_NOOP("KeyNames", "Return"), Qt::Key_Return, XKB_KEY_Return, "RTRN", true},
    {37, "L", Qt::Key_L, XKB_KEY_l, "AC09", true},
    {38, "J", Qt::Key_J, XKB_KEY_j, "AC07", true},
    {39, "'", Qt::Key_Apostrophe, XKB_KEY_apostrophe, "AC11", false},
    {40, "K", Qt::Key_K, XKB_KEY_k, "AC08", true},
    {41, ";", Qt::Key_Semicolon, XKB_KEY_semicolon, "AC10", false},
    {42, "\\", Qt::Key_Backslash, XKB_KEY_backslash, "BKSL", false},
    {43, ",", Qt::Key_Comma, XKB_KEY_comma, "AB08", false},
    {44, "/", Qt::Key_Slash, XKB_KEY_slash, "AB10", false},
    {45, "N", Qt::Key_N, XKB_KEY_n, "AB06", true},
    {46, "M", Qt::Key_M, XKB_KEY_m, "AB07", true},
    {47, ".", Qt::Key_Period, XKB_KEY_period, "AB09", false},
    {48, QT_TRANSLATE_NOOP("KeyNames", "Tab"), Qt::Key_Tab, XKB_KEY_Tab, "TAB", true},
    {49, QT_TRANSLATE_NOOP("KeyNames", "Space"), Qt::Key_Space, XKB_KEY_space, "SPCE", true},
    {50, "`", Qt::Key_QuoteLeft, XKB_KEY_grave, "TLDE", false},
    {51, "Backspace", Qt::Key_Backspace, XKB_KEY_BackSpace, "BKSP", false},
    {53, "Escape", Qt::Key_Escape, XKB_KEY_Escape, "ESC", false},
    {64, "F17", Qt::Key_F17, XKB_KEY_F17, "FK17", false},
    {76, "Enter", Qt::Key_Enter, XKB_KEY_KP_Enter, "KPEN", false},
    {79, "F18", Qt::Key_F18, XKB_KEY_F18, "FK18", false},
    {80, "F19", Qt::Key_F19, XKB_KEY_F19, "FK19", false},
    {90, "F20", Qt::Key_F20, XKB_KEY_F20, "FK20", false},
    {96, "F5", Qt::Key_F5, XKB_KEY_F5, "FK05", false},
    {97, "F6", Qt::Key_F6, XKB_KEY_F6, "FK06", false},
    {98, "F7", Qt::Key_F7, XKB_KEY_F7, "FK07", false},
    {99, "F3", Qt::Key_F3, XKB_KEY_F3, "FK03", false},
    {100, "F8", Qt::Key_F8, XKB_KEY_F8, "FK08", false},
    {101, "F9", Qt::Key_F9, XKB_KEY_F9, "FK09", false},
    {103, "F11", Qt::Key_F11, XKB_KEY_F11, "FK11", false},
    {105, "F13", Qt::Key_F13, XKB_KEY_F13, "FK13", false},
    {106, "F16", Qt::Key_F16, XKB_KEY_F16, "FK16", false},
    {107, "F14", Qt::Key_F14, XKB_KEY_F14, "FK14", false},
    {109, "F10", Qt::Key_F10, XKB_KEY_F10, "FK10", false},
    {111, "F12", Qt::Key_F12, XKB_KEY_F12, "FK12", false},
    {113, "F15", Qt::Key_F15, XKB_KEY_F15, "FK15", false},
    {114, "Insert", Qt::Key_Insert, XKB_KEY_Insert, "INS", false},
    {115, "Home", Qt::Key_Home, XKB_KEY_Home, "HOME", false},
    {116, "Page Up", Qt::Key_PageUp, XKB_KEY_Prior, "PGUP", false},
    {117, "Delete", Qt::Key_Delete, XKB_KEY_Delete, "DELE", false},
    {118, "F4", Qt::Key_F4, XKB_KEY_F4, "FK04", false},
    {119, "End", Qt::Key_End, XKB_KEY_End, "END", false},
    {120, "F2", Qt::Key_F2, XKB_KEY_F2, "FK02", false},
    {121, "Page Down", Qt::Key_PageDown, XKB_KEY_Next, "PGDN", false},
    {122, "F1", Qt::Key_F1, XKB_KEY_F1, "FK01", false},
    {123, "Left", Qt::Key_Left, XKB_KEY_Left, "LEFT", false},
    {124, "Right", Qt::Key_Right, XKB_KEY_Right, "RGHT", false},
    {125, "Down", Qt::Key_Down, XKB_KEY_Down, "DOWN", false},
    {126, "Up", Qt::Key_Up, XKB_KEY_Up, "UP", false},
};

struct Alias {
    int qtKey;
    quint32 keyCode;
};

// What Qt reports for a key pressed with Shift on a US layout, and the key it sits on.
constexpr Alias shiftedAliases[] = {
    {Qt::Key_Exclam, 18},     {Qt::Key_At, 19},         {Qt::Key_NumberSign, 20},
    {Qt::Key_Dollar, 21},     {Qt::Key_Percent, 23},    {Qt::Key_AsciiCircum, 22},
    {Qt::Key_Ampersand, 26},  {Qt::Key_Asterisk, 28},   {Qt::Key_ParenLeft, 25},
    {Qt::Key_ParenRight, 29}, {Qt::Key_Underscore, 27}, {Qt::Key_Plus, 24},
    {Qt::Key_BraceLeft, 33},  {Qt::Key_BraceRight, 30}, {Qt::Key_Bar, 42},
    {Qt::Key_Colon, 41},      {Qt::Key_QuoteDbl, 39},   {Qt::Key_Less, 43},
    {Qt::Key_Greater, 47},    {Qt::Key_Question, 44},   {Qt::Key_AsciiTilde, 50},
    {Qt::Key_Backtab, 48},
};

struct Modifier {
    quint32 mask;
    const char16_t* glyph;
};

constexpr std::array<Modifier, 4> modifierOrder = {{
    {KeyMap::commandMask, u"⌘"},
    {KeyMap::shiftMask, u"⇧"},
    {KeyMap::optionMask, u"⌥"},
    {KeyMap::controlMask, u"⌃"},
}};

} // namespace

std::span<const KeyMap::Key> KeyMap::keys()
{
    return keyTable;
}

const KeyMap::Key* KeyMap::find(quint32 keyCode)
{
    const auto it = std::find_if(std::begin(keyTable), std::end(keyTable),
                                 [keyCode](const Key& key) { return key.keyCode == keyCode; });
    return it == std::end(keyTable) ? nullptr : it;
}

std::optional<quint32> KeyMap::keyCodeForQtKey(int qtKey)
{
    for (const Key& key : keyTable) {
        if (key.qtKey == qtKey) {
            return key.keyCode;
        }
    }
    for (const Alias& alias : shiftedAliases) {
        if (alias.qtKey == qtKey) {
            return alias.keyCode;
        }
    }
    return std::nullopt;
}

std::optional<int> KeyMap::qtKeyForKeyCode(quint32 keyCode)
{
    const Key* key = find(keyCode);
    return key ? std::optional<int>(key->qtKey) : std::nullopt;
}

quint32 KeyMap::maskForQtModifiers(Qt::KeyboardModifiers modifiers)
{
    quint32 mask = 0;
    if (modifiers & Qt::ControlModifier) {
        mask |= commandMask;
    }
    if (modifiers & Qt::ShiftModifier) {
        mask |= shiftMask;
    }
    if (modifiers & Qt::AltModifier) {
        mask |= optionMask;
    }
    if (modifiers & Qt::MetaModifier) {
        mask |= controlMask;
    }
    return mask;
}

Qt::KeyboardModifiers KeyMap::qtModifiersForMask(quint32 mask)
{
    Qt::KeyboardModifiers modifiers;
    modifiers.setFlag(Qt::ControlModifier, mask & commandMask);
    modifiers.setFlag(Qt::ShiftModifier, mask & shiftMask);
    modifiers.setFlag(Qt::AltModifier, mask & optionMask);
    modifiers.setFlag(Qt::MetaModifier, mask & controlMask);
    return modifiers;
}

std::optional<KeyMap::Stored> KeyMap::storedForQt(int qtKey, Qt::KeyboardModifiers modifiers)
{
    const quint32 mask = maskForQtModifiers(modifiers);
    if (mask == 0) {
        return std::nullopt;
    }
    const std::optional<quint32> keyCode = keyCodeForQtKey(qtKey);
    if (!keyCode) {
        return std::nullopt;
    }
    return Stored{*keyCode, mask};
}

std::optional<quint32> KeyMap::keysymForKeyCode(quint32 keyCode)
{
    const Key* key = find(keyCode);
    return key ? std::optional<quint32>(key->keysym) : std::nullopt;
}

std::optional<quint32> KeyMap::keyCodeForKeysym(quint32 keysym)
{
    if (keysym >= XKB_KEY_A && keysym <= XKB_KEY_Z) {
        keysym += XKB_KEY_a - XKB_KEY_A;
    }
    for (const Key& key : keyTable) {
        if (key.keysym == keysym) {
            return key.keyCode;
        }
    }
    return std::nullopt;
}

bool KeyMap::isModifierKeysym(quint32 keysym)
{
    return (keysym >= XKB_KEY_Shift_L && keysym <= XKB_KEY_Hyper_R) ||
           (keysym >= XKB_KEY_ISO_Lock && keysym <= XKB_KEY_ISO_Level5_Lock) ||
           keysym == XKB_KEY_Mode_switch || keysym == XKB_KEY_Num_Lock;
}

quint16 KeyMap::x11Modifiers(quint32 mask, const X11ModifierBits& bits)
{
    quint16 state = 0;
    if (mask & commandMask) {
        state |= bits.control;
    }
    if (mask & shiftMask) {
        state |= bits.shift;
    }
    if (mask & optionMask) {
        state |= bits.alt;
    }
    if (mask & controlMask) {
        state |= bits.super;
    }
    return state;
}

quint32 KeyMap::maskForX11Modifiers(quint16 state, const X11ModifierBits& bits)
{
    quint32 mask = 0;
    if (bits.control && (state & bits.control)) {
        mask |= commandMask;
    }
    if (bits.shift && (state & bits.shift)) {
        mask |= shiftMask;
    }
    if (bits.alt && (state & bits.alt)) {
        mask |= optionMask;
    }
    if (bits.super && (state & bits.super)) {
        mask |= controlMask;
    }
    return mask;
}

QString KeyMap::keyName(quint32 keyCode)
{
    const Key* key = find(keyCode);
    if (key && key->hasDisplayName) {
        return KeyNames::keyName(key->name);
    }
    return QCoreApplication::translate("KeyNames", "Key%1").arg(keyCode);
}

QString KeyMap::glyphText(quint32 keyCode, quint32 modifiers)
{
    QString text;
    for (const Modifier& modifier : modifierOrder) {
        if (modifiers & modifier.mask) {
            text += QString::fromUtf16(modifier.glyph);
        }
    }
    return text + keyName(keyCode);
}

QStringList KeyMap::displayParts(quint32 keyCode, quint32 modifiers)
{
    QStringList parts;
    for (const Modifier& modifier : modifierOrder) {
        if (modifiers & modifier.mask) {
            parts.append(KeyNames::modifierName(QString::fromUtf16(modifier.glyph)));
        }
    }
    parts.append(keyName(keyCode));
    return parts;
}

QString KeyMap::displayText(quint32 keyCode, quint32 modifiers)
{
    return displayParts(keyCode, modifiers).join(QLatin1Char('+'));
}
