#pragma once

#include "platform/AccessibilityTrust.h"
#include "platform/GlobalHotkey.h"
#include "platform/GlobalKeyMonitor.h"

#include <QString>

#include <memory>

/// Chooses the backends of this session: X11 when Ravelo runs on an X server, otherwise
/// backends that never arm. In the latter case the first backend made says once, on
/// standard error, why the triggers are off.
class PlatformServices {
public:
    enum class Backend { X11, None };

    static Backend backend();
    /// Why there are no global triggers in this session; empty on X11.
    static QString unavailableReason();

    /// Whether the keys typed now go to one of this process's windows. Asks the X server,
    /// which knows it before this process has seen the focus change.
    static bool keyboardFocusIsOwn();

    static std::unique_ptr<GlobalKeyMonitor> createGlobalKeyMonitor();
    static std::unique_ptr<GlobalHotkey> createGlobalHotkey();
    static std::unique_ptr<AccessibilityTrust> createAccessibilityTrust();
};
