#pragma once

#include <QString>
#include <QStringList>
#include <Qt>

#include <optional>
#include <span>

/// The one translation between the stored hotkey (virtual key codes of the ANSI keyboard
/// and the stored modifier mask), Qt keys, X11 keysyms and the names shown to the user.
///
/// Stored modifiers: Command 256 is Ctrl here, Shift 512, Option 2048 is Alt and
/// Control 4096 is the Super key.
class KeyMap {
public:
    static constexpr quint32 commandMask = 256;
    static constexpr quint32 shiftMask = 512;
    static constexpr quint32 optionMask = 2048;
    static constexpr quint32 controlMask = 4096;
    static constexpr quint32 allModifiers = commandMask | shiftMask | optionMask | controlMask;

    /// The key in the C position; with Command it is the copy shortcut.
    static constexpr quint32 copyKeyCode = 8;
    /// Reported for keys the map does not know; never stored.
    static constexpr quint32 unknownKeyCode = 0xFFFF;

    struct Key {
        quint32 keyCode;
        /// Short English name ("K", "Space", "F5", "Page Up").
        const char* name;
        int qtKey;
        /// The X11 keysym the key types without modifiers in a US layout.
        quint32 keysym;
        /// The xkb name of the key's physical position ("AC08"), used when no key of the
        /// active layouts types the keysym.
        const char* xkbName;
        /// Whether the display uses `name`; other keys read "Key" and their code.
        bool hasDisplayName;
    };

    /// The real X modifier bits of the four stored modifiers on one server.
    struct X11ModifierBits {
        quint16 shift = 0x01;
        quint16 control = 0x04;
        quint16 alt = 0x08;   ///< Mod1 on most servers
        quint16 super = 0x40; ///< Mod4 on most servers
    };

    static std::span<const Key> keys();
    static const Key* find(quint32 keyCode);

    /// Qt key to stored key code; shifted symbols of the US layout ("!", "?") give their
    /// key's code. None for keys the map does not know.
    static std::optional<quint32> keyCodeForQtKey(int qtKey);
    static std::optional<int> qtKeyForKeyCode(quint32 keyCode);

    /// Qt's modifiers on Linux: Ctrl is ControlModifier, Super is MetaModifier.
    static quint32 maskForQtModifiers(Qt::KeyboardModifiers modifiers);
    static Qt::KeyboardModifiers qtModifiersForMask(quint32 mask);

    /// The stored code and mask for a key press as Qt reports it; none when the key is
    /// unknown or no modifier is held.
    struct Stored {
        quint32 keyCode;
        quint32 modifiers;
        friend bool operator==(const Stored&, const Stored&) = default;
    };
    static std::optional<Stored> storedForQt(int qtKey, Qt::KeyboardModifiers modifiers);

    static std::optional<quint32> keysymForKeyCode(quint32 keyCode);
    /// Keysym to stored key code; upper- and lower-case letters give the same code.
    static std::optional<quint32> keyCodeForKeysym(quint32 keysym);

    /// Whether the keysym belongs to a modifier or lock key (Shift, Ctrl, Alt, Super,
    /// Caps Lock, Num Lock, level and group shifts).
    static bool isModifierKeysym(quint32 keysym);

    static quint16 x11Modifiers(quint32 mask, const X11ModifierBits& bits);
    /// The stored mask of an X modifier state; lock bits and unknown bits are ignored.
    static quint32 maskForX11Modifiers(quint16 state, const X11ModifierBits& bits);

    /// "Space", "K", or "Key" followed by the code for keys outside the name table.
    static QString keyName(quint32 keyCode);
    /// Modifier glyphs in the order ⌘ ⇧ ⌥ ⌃, then the key name: "⌘⇧Space".
    static QString glyphText(quint32 keyCode, quint32 modifiers);
    /// The same parts as the user reads them here: {"Ctrl", "Shift", "Space"}.
    static QStringList displayParts(quint32 keyCode, quint32 modifiers);
    /// The parts joined by "+": "Ctrl+Shift+Space".
    static QString displayText(quint32 keyCode, quint32 modifiers);
};
