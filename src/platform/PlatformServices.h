#pragma once

#include "platform/AccessibilityTrust.h"
#include "platform/ClipboardOwnerMonitor.h"
#include "platform/DesktopShortcut.h"
#include "platform/GlobalHotkey.h"
#include "platform/GlobalKeyMonitor.h"
#include "platform/PasteTarget.h"

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

    /// Whether the desktop session is a Wayland one, whichever platform Qt's windows use:
    /// an X11 client there sees only the keys typed into X11 windows.
    static bool isWaylandSession();

    /// Copy keys are watched on X11 sessions only.
    static std::unique_ptr<GlobalKeyMonitor> createGlobalKeyMonitor();
    /// Data control where the Wayland compositor offers it, else XFixes on the X server
    /// (X11, or XWayland under GNOME, which hands every Wayland copy to its X11 bridge).
    static std::unique_ptr<ClipboardOwnerMonitor> createClipboardOwnerMonitor();
    /// How this session gives Ravelo a global hotkey, as `createGlobalHotkey` chooses: asked
    /// once, since asking the portal may start it.
    enum class HotkeyPath {
        X11Grab,         ///< a key grab on the X server
        Portal,          ///< the desktop portal's global shortcuts
        KdeShortcuts,    ///< KDE's global shortcut service
        DesktopShortcut, ///< none of Ravelo's own: the desktop runs "ravelo trigger"
    };
    static HotkeyPath hotkeyPath();
    static std::unique_ptr<GlobalHotkey> createGlobalHotkey();
    /// Whether the desktop is GNOME (XDG_CURRENT_DESKTOP names it).
    static bool isGnomeDesktop();
    /// The desktop's own shortcut that runs "ravelo trigger", where Ravelo can add one for the
    /// user: GNOME without the portal's global shortcuts (before GNOME 48). Null elsewhere.
    static std::unique_ptr<DesktopShortcut> createDesktopShortcut();
    static std::unique_ptr<AccessibilityTrust> createAccessibilityTrust();
    /// XTest on an X11 desktop. In a Wayland session the windows the user types in are
    /// mostly out of XTest's reach, so the answer is only copied there.
    static std::unique_ptr<PasteTarget> createPasteTarget();
};
