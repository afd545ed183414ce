#pragma once

#include "platform/ClipboardOwnerMonitor.h"
#include "platform/x11/X11Helpers.h"

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
    bool open();
    void drain();

    ravelo::XcbConnection m_connection;
    quint8 m_xfixesEventBase = 0;
    QSocketNotifier* m_notifier = nullptr;
};
