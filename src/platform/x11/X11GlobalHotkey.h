#pragma once

#include "platform/GlobalHotkey.h"
#include "platform/x11/X11Helpers.h"

#include <memory>
#include <optional>

class X11Connection;

/// The hotkey as a passive key grab on the root window, in every combination with Caps Lock
/// and Num Lock so that it works with either on. Grabs are checked: when another client
/// holds the combination the hotkey stays inactive and nothing is printed.
class X11GlobalHotkey : public GlobalHotkey {
    Q_OBJECT

public:
    using GlobalHotkey::GlobalHotkey;
    ~X11GlobalHotkey() override;

    bool registerHotkey(quint32 keyCode, quint32 modifiers) override;
    void unregisterHotkey() override;
    bool isRegistered() const override { return !m_grabs.isEmpty(); }

private:
    bool grab();
    void handleKeyPress(quint8 keycode, quint16 state);
    void handleKeyRelease(quint8 keycode);
    void handleKeymapChange();

    struct Wanted {
        quint32 keyCode;
        quint32 modifiers;
    };

    std::shared_ptr<X11Connection> m_connection;
    std::optional<Wanted> m_wanted;
    X11KeyGrabs m_grabs;
    quint16 m_state = 0;
    bool m_held = false;
};
