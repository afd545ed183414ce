#pragma once

#include <QObject>

/// Sees the key-downs of every application without taking them from anyone.
class GlobalKeyMonitor : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    /// Starts reporting key-downs; false when this session cannot see other applications'
    /// keys. Starting a running monitor changes nothing.
    virtual bool start() = 0;
    virtual void stop() = 0;
    virtual bool isActive() const = 0;

signals:
    /// One key-down of a key that is not a modifier; auto-repeats count as key-downs.
    /// `keyCode` is the stored virtual key code (`KeyMap::copyKeyCode` for the key that types
    /// c in the active layout, `KeyMap::unknownKeyCode` for keys the map does not know),
    /// `modifiers` the stored modifier mask held at that moment.
    void keyPressed(quint32 keyCode, quint32 modifiers);
};
