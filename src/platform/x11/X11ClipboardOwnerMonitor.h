#pragma once

#include "platform/ClipboardOwnerMonitor.h"

#include <xcb/xcb.h>

#include <memory>

class QSocketNotifier;

/// Owner changes of the X11 CLIPBOARD selection, from XFixes selection events on a
/// connection of Ravelo's own. Under XWayland this covers Wayland copies too where the
/// compositor hands every Wayland selection to its X11 bridge (GNOME's mutter does).
class X11ClipboardOwnerMonitor : public ClipboardOwnerMonitor {
    Q_OBJECT

public:
    using ClipboardOwnerMonitor::ClipboardOwnerMonitor;
    ~X11ClipboardOwnerMonitor() override;

    bool start() override;
    void stop() override;
    bool isActive() const override { return m_notifier != nullptr; }

private:
    struct Disconnect {
        void operator()(xcb_connection_t* connection) const noexcept { xcb_disconnect(connection); }
    };

    bool open();
    void drain();

    std::unique_ptr<xcb_connection_t, Disconnect> m_connection;
    quint8 m_xfixesEventBase = 0;
    QSocketNotifier* m_notifier = nullptr;
};
