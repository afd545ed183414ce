#include "platform/PlatformServices.h"

#include "platform/PlatformLogging.h"
#include "platform/gnome/GnomeCustomShortcut.h"
#include "platform/kde/KGlobalAccelHotkey.h"
#include "platform/null/NullPasteTarget.h"
#include "platform/null/NullPlatform.h"
#include "platform/portal/PortalGlobalShortcuts.h"
#include "platform/wayland/WaylandClipboardMonitor.h"
#include "platform/x11/X11AccessibilityTrust.h"
#include "platform/x11/X11ClipboardOwnerMonitor.h"
#include "platform/x11/X11GlobalHotkey.h"
#include "platform/x11/X11GlobalKeyMonitor.h"
#include "platform/x11/X11PasteTarget.h"

#include <QGuiApplication>
#include <QWindow>

#include <xcb/xcb.h>

#include <algorithm>
#include <cstdlib>

Q_LOGGING_CATEGORY(lcPlatform, "ravelo.platform", QtWarningMsg)

namespace {

void reportUnavailableOnce()
{
    static bool reported = false;
    if (reported) {
        return;
    }
    reported = true;
    qCWarning(lcPlatform,
              "The global hotkey is off: %s. Bind the command \"ravelo trigger\" to a "
              "keyboard shortcut of your desktop to open the panel with keys; a double copy "
              "still opens it where the clipboard can be watched.",
              qPrintable(PlatformServices::isWaylandSession()
                             ? QStringLiteral("this Wayland desktop offers Ravelo no global "
                                              "shortcut of its own")
                             : PlatformServices::unavailableReason()));
}

bool useX11()
{
    if (PlatformServices::backend() == PlatformServices::Backend::X11) {
        return true;
    }
    reportUnavailableOnce();
    return false;
}

} // namespace

QString PlatformServices::unavailableReason()
{
    if (qGuiApp) {
        const QString platform = QGuiApplication::platformName();
        if (platform != QLatin1String("xcb")) {
            if (platform.startsWith(QLatin1String("wayland"))) {
                return QStringLiteral("this is a Wayland session, where no application may watch "
                                      "the keys of others");
            }
            return QStringLiteral("Ravelo runs on the \"%1\" platform, not on an X11 display")
                .arg(platform);
        }
        const auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
        if (!x11 || !x11->connection()) {
            return QStringLiteral("Ravelo has no connection to an X11 display");
        }
    }
    if (qEnvironmentVariableIsEmpty("DISPLAY")) {
        return QStringLiteral("there is no X11 display (DISPLAY is not set)");
    }
    return QString();
}

PlatformServices::Backend PlatformServices::backend()
{
    return unavailableReason().isEmpty() ? Backend::X11 : Backend::None;
}

bool PlatformServices::keyboardFocusIsOwn()
{
    if (backend() != Backend::X11) {
        return QGuiApplication::focusWindow() != nullptr;
    }
    xcb_connection_t* connection =
        qGuiApp->nativeInterface<QNativeInterface::QX11Application>()->connection();
    xcb_get_input_focus_reply_t* reply =
        xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr);
    if (!reply) {
        return QGuiApplication::focusWindow() != nullptr;
    }
    const xcb_window_t focus = reply->focus;
    std::free(reply);
    if (focus == XCB_NONE || focus == XCB_INPUT_FOCUS_POINTER_ROOT) {
        return false;
    }
    const QWindowList windows = QGuiApplication::allWindows();
    return std::any_of(windows.cbegin(), windows.cend(), [focus](const QWindow* window) {
        return window->handle() && window->winId() == focus;
    });
}

bool PlatformServices::isWaylandSession()
{
    return !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") ||
           qgetenv("XDG_SESSION_TYPE") == "wayland";
}

std::unique_ptr<GlobalKeyMonitor> PlatformServices::createGlobalKeyMonitor()
{
    if (!isWaylandSession() && useX11()) {
        return std::make_unique<X11GlobalKeyMonitor>();
    }
    return std::make_unique<NullGlobalKeyMonitor>();
}

std::unique_ptr<ClipboardOwnerMonitor> PlatformServices::createClipboardOwnerMonitor()
{
    if (isWaylandSession() && WaylandClipboardMonitor::isAvailable()) {
        return std::make_unique<WaylandClipboardMonitor>();
    }
    if (!qEnvironmentVariableIsEmpty("DISPLAY")) {
        return std::make_unique<X11ClipboardOwnerMonitor>();
    }
    return std::make_unique<NullClipboardOwnerMonitor>();
}

PlatformServices::HotkeyPath PlatformServices::hotkeyPath()
{
    // Under XWayland a key grab sees only the keys typed into X11 windows.
    if (isWaylandSession()) {
        static const HotkeyPath wayland = PortalGlobalShortcuts::isAvailable() ? HotkeyPath::Portal
                                          : KGlobalAccelHotkey::isAvailable()
                                              ? HotkeyPath::KdeShortcuts
                                              : HotkeyPath::DesktopShortcut;
        return wayland;
    }
    return backend() == Backend::X11 ? HotkeyPath::X11Grab : HotkeyPath::DesktopShortcut;
}

std::unique_ptr<GlobalHotkey> PlatformServices::createGlobalHotkey()
{
    switch (hotkeyPath()) {
    case HotkeyPath::X11Grab:
        return std::make_unique<X11GlobalHotkey>();
    case HotkeyPath::Portal:
        return std::make_unique<PortalGlobalShortcuts>();
    case HotkeyPath::KdeShortcuts:
        return std::make_unique<KGlobalAccelHotkey>();
    case HotkeyPath::DesktopShortcut:
        break;
    }
    reportUnavailableOnce();
    return std::make_unique<NullGlobalHotkey>();
}

bool PlatformServices::isGnomeDesktop()
{
    const QStringList desktops =
        qEnvironmentVariable("XDG_CURRENT_DESKTOP").split(QLatin1Char(':'), Qt::SkipEmptyParts);
    return desktops.contains(QLatin1String("GNOME"), Qt::CaseInsensitive);
}

std::unique_ptr<DesktopShortcut> PlatformServices::createDesktopShortcut()
{
    if (isGnomeDesktop() && hotkeyPath() == HotkeyPath::DesktopShortcut) {
        return std::make_unique<GnomeCustomShortcut>();
    }
    return nullptr;
}

std::unique_ptr<AccessibilityTrust> PlatformServices::createAccessibilityTrust()
{
    if (useX11()) {
        return std::make_unique<X11AccessibilityTrust>();
    }
    return std::make_unique<NullAccessibilityTrust>();
}

std::unique_ptr<PasteTarget> PlatformServices::createPasteTarget()
{
    if (!isWaylandSession() && backend() == Backend::X11) {
        if (auto x11 = X11PasteTarget::create()) {
            return x11;
        }
    }
    return std::make_unique<NullPasteTarget>();
}
