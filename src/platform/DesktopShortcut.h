#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

/// A keyboard shortcut kept by the desktop itself that runs a command: where the desktop
/// gives Ravelo no global hotkey, it runs "ravelo trigger" instead. Every call answers later;
/// `changed` follows each change of the state below.
class DesktopShortcut : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    /// Reads whether the shortcut is there and its keys.
    virtual void refresh() = 0;
    /// Adds the shortcut with these keys (stored key code and modifier mask) and command,
    /// or gives the one there these keys and command; the desktop's other shortcuts stay.
    virtual void install(quint32 keyCode, quint32 modifiers, const QStringList& command) = 0;
    /// Takes the shortcut out again, and only that one.
    virtual void remove() = 0;

    /// Whether a call is under way; false once the state below is what the desktop holds.
    virtual bool isBusy() const = 0;
    /// Whether the state has been read once.
    virtual bool isKnown() const = 0;
    virtual bool isInstalled() const = 0;
    /// Whether the installed shortcut has exactly these keys.
    virtual bool hasKeys(quint32 keyCode, quint32 modifiers) const = 0;
    /// Whether the installed shortcut runs exactly this command.
    virtual bool runs(const QStringList& command) const = 0;
    /// Why the last call failed, for the user; empty after a call that worked.
    virtual QString errorText() const = 0;

signals:
    void changed();
};
