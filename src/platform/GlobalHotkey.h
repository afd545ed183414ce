#pragma once

#include <QObject>

/// One key combination taken system-wide, reported on every press.
class GlobalHotkey : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    /// Takes the combination (stored virtual key code and modifier mask), replacing any
    /// earlier one. False, without any message, when the combination cannot be had: another
    /// client holds it, the key has no place on this keyboard, or there is no display.
    virtual bool registerHotkey(quint32 keyCode, quint32 modifiers) = 0;
    virtual void unregisterHotkey() = 0;
    virtual bool isRegistered() const = 0;

signals:
    /// Once per press of the combination; holding it down does not repeat.
    void activated();
};
