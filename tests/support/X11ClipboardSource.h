#pragma once

#include <QByteArray>
#include <QObject>

#include <xcb/xcb.h>

class QSocketNotifier;

/// Another X11 application that copies: one window of a connection of its own takes the
/// CLIPBOARD selection anew on every copy, as toolkits do, and serves its text as
/// UTF8_STRING to whoever asks, from the test's event loop.
class X11ClipboardSource : public QObject {
    Q_OBJECT

public:
    X11ClipboardSource();
    ~X11ClipboardSource() override;

    bool isValid() const;
    /// Takes the clipboard with this text.
    bool copy(const QByteArray& text);
    /// Gives the clipboard up, leaving it empty.
    void clear();

private:
    xcb_atom_t atom(const char* name);
    void readEvents();

    xcb_connection_t* m_connection = nullptr;
    xcb_window_t m_window = XCB_NONE;
    xcb_atom_t m_clipboard = XCB_NONE;
    xcb_atom_t m_utf8 = XCB_NONE;
    xcb_atom_t m_targets = XCB_NONE;
    QByteArray m_text;
    QSocketNotifier* m_notifier = nullptr;
};
