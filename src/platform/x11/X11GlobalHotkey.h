#pragma once

#include "platform/GlobalHotkey.h"
#include "platform/x11/X11Helpers.h"

#include <memory>
#include <vector>

class X11Connection;

/// The combinations as passive key grabs on the root window, each in every combination with
/// Caps Lock and Num Lock so that it works with either on. Grabs are checked: when another
/// client holds a combination that one stays inactive and nothing is printed.
class X11GlobalHotkey : public GlobalHotkey {
    Q_OBJECT

public:
    using GlobalHotkey::GlobalHotkey;
    ~X11GlobalHotkey() override;

    bool registerShortcuts(const QList<Shortcut>& shortcuts) override;
    void unregisterHotkey() override;
    bool isRegistered() const override;
    bool isRegistered(const QString& id) const override;

private:
    struct Grab {
        Shortcut shortcut;
        X11KeyGrabs grabs;
        quint16 state = 0;
        bool held = false;
    };

    bool grab(Grab& grab);
    bool grabAll();
    void handleKeyPress(quint8 keycode, quint16 state);
    void handleKeyRelease(quint8 keycode);

    std::shared_ptr<X11Connection> m_connection;
    std::vector<std::unique_ptr<Grab>> m_grabs;
};
