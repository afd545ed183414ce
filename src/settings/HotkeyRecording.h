#pragma once

#include <QObject>
#include <QSet>

/// Whether a key recorder is waiting for a combination and has the keyboard. While it
/// is active the global triggers must stand still: the registered hotkey would otherwise
/// be taken by its grab before the recorder sees it, and a double copy would open the
/// panel. One instance per process.
class HotkeyRecording : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool active READ isActive NOTIFY activeChanged)

public:
    static HotkeyRecording* instance();

    bool isActive() const { return !m_recorders.isEmpty(); }

    /// Called by each recorder whenever its own state changes.
    void setRecorderActive(const void* recorder, bool active);

signals:
    void activeChanged(bool active);

private:
    using QObject::QObject;

    QSet<const void*> m_recorders;
};
