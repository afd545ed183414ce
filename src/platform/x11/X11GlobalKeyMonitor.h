#pragma once

#include "platform/GlobalKeyMonitor.h"

#include <memory>

class X11Connection;

/// Key-downs of every application as XInput2 raw key events on the root window. Nothing is
/// grabbed: the focused application still receives each key, and no permission is needed.
class X11GlobalKeyMonitor : public GlobalKeyMonitor {
    Q_OBJECT

public:
    using GlobalKeyMonitor::GlobalKeyMonitor;
    ~X11GlobalKeyMonitor() override;

    bool start() override;
    void stop() override;
    bool isActive() const override { return m_active; }

private:
    void handleRawKeyPress(quint8 keycode);

    std::shared_ptr<X11Connection> m_connection;
    bool m_active = false;
};
