#pragma once

#include <QProcess>
#include <QString>

/// Counts the calls of one D-Bus method (interface and member) on the session bus, as the
/// real dbus-monitor sees them go by, whoever makes them.
class BusCallCounter {
public:
    BusCallCounter(const QString& interface, const QString& member);
    ~BusCallCounter();
    BusCallCounter(const BusCallCounter&) = delete;
    BusCallCounter& operator=(const BusCallCounter&) = delete;

    /// Starts dbus-monitor and waits until it watches; false when it cannot.
    bool start();
    /// The calls seen so far, every call this process made before included; -1 when the
    /// monitor does not catch up.
    int count();

private:
    int countLines(const QString& interface, const QString& member);

    QString m_interface;
    QString m_member;
    QProcess m_monitor;
    QByteArray m_output;
    int m_syncs = 0;
};
