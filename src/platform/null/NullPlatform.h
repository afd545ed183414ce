#pragma once

#include "platform/AccessibilityTrust.h"
#include "platform/ClipboardOwnerMonitor.h"
#include "platform/GlobalHotkey.h"
#include "platform/GlobalKeyMonitor.h"

/// Sessions without X11 (Wayland without XWayland, offscreen, no display): no application
/// may watch the keys of others or take a key system-wide, so nothing is ever armed.
class NullGlobalKeyMonitor : public GlobalKeyMonitor {
    Q_OBJECT

public:
    using GlobalKeyMonitor::GlobalKeyMonitor;

    bool start() override { return false; }
    void stop() override {}
    bool isActive() const override { return false; }
};

class NullClipboardOwnerMonitor : public ClipboardOwnerMonitor {
    Q_OBJECT

public:
    using ClipboardOwnerMonitor::ClipboardOwnerMonitor;

    bool start() override { return false; }
    void stop() override {}
    bool isActive() const override { return false; }
};

class NullGlobalHotkey : public GlobalHotkey {
    Q_OBJECT

public:
    using GlobalHotkey::GlobalHotkey;

    bool registerShortcuts(const QList<Shortcut>& shortcuts) override
    {
        return shortcuts.isEmpty();
    }
    void unregisterHotkey() override {}
    bool isRegistered() const override { return false; }
    bool isRegistered(const QString&) const override { return false; }
};

/// Never trusted: no permission would let Ravelo see other applications' keys here.
class NullAccessibilityTrust : public AccessibilityTrust {
    Q_OBJECT

public:
    using AccessibilityTrust::AccessibilityTrust;

    bool isTrusted() const override { return false; }
    void requestTrust() override {}
};
