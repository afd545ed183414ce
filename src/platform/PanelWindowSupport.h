#pragma once

#include <QObject>

#include <memory>

class QRegion;
class QWindow;

/// What the quick panel needs from the window system beyond Qt's window flags: showing on
/// every workspace without a task bar or pager entry, taking the keyboard focus from another
/// application, and knowing whether a compositing manager draws translucent windows.
class PanelWindowSupport : public QObject {
    Q_OBJECT

public:
    /// The X11 implementation under the xcb platform, otherwise one that relies on Qt alone.
    static std::unique_ptr<PanelWindowSupport> create();

    using QObject::QObject;
    ~PanelWindowSupport() override = default;

    /// Whether translucent pixels are blended with what lies below the window.
    virtual bool isCompositing() const = 0;
    /// Marks the window before it is mapped: every workspace, above others, no task bar or
    /// pager entry.
    virtual void prepareToMap(QWindow* window) = 0;
    /// Gives the mapped window the keyboard focus, even when another application holds it.
    virtual void activate(QWindow* window) = 0;
    /// Keeps the window above ordinary windows, or lets them come over it.
    virtual void setKeptAbove(QWindow* window, bool above) = 0;
    /// Where the window takes clicks, in its own coordinates; elsewhere they reach the
    /// windows below. An empty region takes them everywhere.
    virtual void setInputRegion(QWindow* window, const QRegion& region) = 0;

    /// Keeps keys typed while the window is being shown and focused from reaching the
    /// application that had the focus: until `releaseKeyboard`, or three seconds at most, they are
    /// delivered to `window`. Call before showing it.
    virtual void holdKeyboard(QWindow* window) { Q_UNUSED(window); }
    virtual void releaseKeyboard() {}
    /// Whether keys typed now go to the window passed to `holdKeyboard`.
    virtual bool holdsKeyboard() const { return false; }

signals:
    void compositingChanged();
};
