#pragma once

#include "platform/PanelWindowSupport.h"
#include "platform/x11/X11Helpers.h"

#include <QAbstractNativeEventFilter>
#include <QPointer>
#include <QTimer>

#include <xcb/xcb.h>

#include <memory>

class QSocketNotifier;

/// The quick panel's window tweaks on X11, done on a connection of its own so that Qt's event
/// stream stays untouched: EWMH hints before mapping, `_NET_ACTIVE_WINDOW` as a pager would
/// send it (which focus-stealing prevention lets through), and the `_NET_WM_CM_S<n>` selection
/// followed through XFixes. Holding the keyboard is done on Qt's own connection, which is
/// the one the keys must reach.
class X11PanelWindowSupport : public PanelWindowSupport, public QAbstractNativeEventFilter {
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
    void holdKeyboard(QWindow* window) override;
    void releaseKeyboard() override;
    bool holdsKeyboard() const override { return m_keyboardGrabbed; }

    bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr* result) override;

private:
    X11PanelWindowSupport(ravelo::XcbConnection connection, xcb_connection_t* qtConnection,
                          int screenNumber);

    xcb_atom_t atom(const char* name);
    bool queryCompositing();
    void readEvents();
    void readEventsSoon();
    void handleEvent(const xcb_generic_event_t* event);
    void grabKeyboard();
    void takeFocusFromOwnWindow();

    ravelo::XcbConnection m_connection;
    xcb_connection_t* m_qtConnection;
    xcb_window_t m_root;
    ravelo::X11ServerClock m_clock;
    xcb_atom_t m_cmSelection = XCB_NONE;
    uint8_t m_xfixesFirstEvent = 0;
    bool m_compositing = false;
    bool m_readScheduled = false;
    std::unique_ptr<QSocketNotifier> m_notifier;
    QPointer<QWindow> m_keyboardWindow;
    bool m_keyboardWanted = false;
    bool m_keyboardGrabbed = false;
    QTimer m_grabRetry;
    QTimer m_holdLimit;
    std::unique_ptr<ravelo::X11FocusParking> m_focusParking;
};
