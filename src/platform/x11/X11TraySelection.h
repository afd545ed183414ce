#pragma once

#include <QObject>

#include <xcb/xcb.h>

#include <memory>

class QSocketNotifier;

/// The XEmbed system tray's selection (`_NET_SYSTEM_TRAY_S<screen>`), watched on a connection
/// of its own through XFixes: a tray that starts takes it. Read through a socket notifier, so
/// it costs nothing while no tray starts.
class X11TraySelection : public QObject {
    Q_OBJECT

public:
    /// Null when the X server cannot be reached or lacks XFixes.
    static std::unique_ptr<X11TraySelection> create();
    ~X11TraySelection() override;

    bool hasOwner() const;

signals:
    void ownerAppeared();

private:
    X11TraySelection(xcb_connection_t* connection, int screenNumber, uint8_t xfixesFirstEvent);
    void readEvents(xcb_generic_event_t* (*next)(xcb_connection_t*));

    xcb_connection_t* m_connection;
    xcb_window_t m_window = XCB_NONE;
    xcb_atom_t m_selection = XCB_NONE;
    uint8_t m_xfixesFirstEvent;
    std::unique_ptr<QSocketNotifier> m_notifier;
};
