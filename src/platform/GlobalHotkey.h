#pragma once

#include <QList>
#include <QObject>
#include <QString>

/// Key combinations taken system-wide, each under an id of its own, reported on every press.
class GlobalHotkey : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    /// One combination (stored virtual key code and modifier mask) under its id.
    struct Shortcut {
        QString id;
        quint32 keyCode = 0;
        quint32 modifiers = 0;
        /// What the desktop lists it as, where it lists shortcuts; empty for the backend's
        /// own words for the panel trigger.
        QString description;
        bool operator==(const Shortcut&) const = default;
    };

    /// The id of the combination that opens the panel.
    static constexpr const char* triggerId = "trigger";

    /// Takes every combination, replacing all earlier ones. True when all of them were
    /// taken; a combination that cannot be had (another client holds it, the key has no place
    /// on this keyboard, there is no display) is left out without any message.
    virtual bool registerShortcuts(const QList<Shortcut>& shortcuts) = 0;
    /// The panel trigger's combination alone.
    bool registerHotkey(quint32 keyCode, quint32 modifiers)
    {
        return registerShortcuts({{QString::fromLatin1(triggerId), keyCode, modifiers, {}}});
    }
    virtual void unregisterHotkey() = 0;
    /// Whether any combination is taken.
    virtual bool isRegistered() const = 0;
    virtual bool isRegistered(const QString& id) const = 0;

signals:
    /// Once per press of the combination with that id; holding it down does not repeat.
    void activated(const QString& id);

protected:
    /// Whether the combinations are wanted: registered and not unregistered since.
    bool isActive() const { return m_active; }
    void setActive(bool active) { m_active = active; }
    /// For backends whose taking costs the desktop a round trip or a dialog: stops the reports
    /// at once, but gives the combinations back (`release`) only once the event loop is back
    /// and they have not been registered again by then. Every preference write re-arms the
    /// triggers, so unchanged combinations are kept that way.
    void releaseSoon()
    {
        if (!m_active) {
            return;
        }
        m_active = false;
        if (m_releaseQueued) {
            return;
        }
        m_releaseQueued = true;
        QMetaObject::invokeMethod(
            this,
            [this] {
                m_releaseQueued = false;
                if (!m_active) {
                    release();
                }
            },
            Qt::QueuedConnection);
    }
    virtual void release() {}

private:
    bool m_active = false;
    bool m_releaseQueued = false;
};
