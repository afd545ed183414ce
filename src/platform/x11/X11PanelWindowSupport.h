#pragma once

#include "platform/PanelWindowSupport.h"

#include <xcb/xcb.h>

#include <memory>

class QSocketNotifier;

/// The quick panel's window tweaks on X11, done on a connection of its own so that Qt's event
/// stream stays untouched: EWMH hints before mapping, `_NET_ACTIVE_WINDOW` as a pager would
/// send it (which focus-stealing prevention lets through), and the `_NET_WM_CM_S<n>` selection
/// followed through XFixes.
class X11PanelWindowSupport : public PanelWindowSupport {
    Q_OBJECT

public:
    /// None when the X server cannot be reached.
    static std::unique_ptr<X11PanelWindowSupport> create();
    ~X11PanelWindowSupport() override;

    bool isCompositing() const override { return m_compositing; }
    void prepareToMap(QWindow* window) override;
    void activate(QWindow* window) override;
    void setKeptAbove(QWindow* window, bool above) override;
    void setInputRegion(QWindow* window, const QRegion& region) override;

    /// A server timestamp taken now, for requests that focus-stealing prevention judges.
    xcb_timestamp_t currentTime();

private:
    X11PanelWindowSupport(xcb_connection_t* connection, int screenNumber);

    xcb_atom_t atom(const char* name);
    bool queryCompositing();
    bool windowManagerSupports(xcb_atom_t feature);
    void readEvents();
    void handleEvent(const xcb_generic_event_t* event);

    xcb_connection_t* m_connection;
    xcb_window_t m_root = XCB_NONE;
    xcb_window_t m_clockWindow = XCB_NONE;
    xcb_atom_t m_cmSelection = XCB_NONE;
    uint8_t m_xfixesFirstEvent = 0;
    bool m_compositing = false;
    std::unique_ptr<QSocketNotifier> m_notifier;
};
