#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QProcess>
#include <QString>
#include <QStringList>

/// The StatusNotifierWatcher of a desktop's panel (Plasma, waybar, xfce4-panel, GNOME's
/// AppIndicator extension) with its host registered: applications register their tray items
/// with it.
class StatusNotifierWatcher : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(QStringList RegisteredStatusNotifierItems READ registeredItems)
    Q_PROPERTY(bool IsStatusNotifierHostRegistered READ isHostRegistered)
    Q_PROPERTY(int ProtocolVersion READ protocolVersion)

public:
    using QObject::QObject;

    /// Each item as "service/path".
    QStringList registeredItems() const { return m_items; }
    bool isHostRegistered() const { return true; }
    int protocolVersion() const { return 0; }

public slots:
    void RegisterStatusNotifierItem(const QString& serviceOrPath, const QDBusMessage& message);
    void RegisterStatusNotifierHost(const QString& service);

signals:
    void StatusNotifierItemRegistered(const QString& item);
    void StatusNotifierItemUnregistered(const QString& item);
    void StatusNotifierHostRegistered();

private:
    QStringList m_items;
};

/// A D-Bus session bus of the test's own (dbus-daemon), apart from any the developer's
/// desktop runs.
class SessionBus {
public:
    SessionBus() = default;
    ~SessionBus();
    SessionBus(const SessionBus&) = delete;
    SessionBus& operator=(const SessionBus&) = delete;

    /// Starts dbus-daemon and connects to it; false when it is missing or fails. A bus from
    /// `configFile` instead of the standard session bus's may, for one, start no services.
    bool start(const QString& configFile = {});
    /// For DBUS_SESSION_BUS_ADDRESS of the processes that are to use it.
    QString address() const { return m_address; }
    QDBusConnection connection() const;

    /// A panel with a StatusNotifierItem host starts: its watcher takes its name on the bus.
    bool startStatusNotifierHost();
    const StatusNotifierWatcher& watcher() const { return m_watcher; }

private:
    QProcess m_daemon;
    QString m_address;
    StatusNotifierWatcher m_watcher;
};
