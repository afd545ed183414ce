#include "BusCallCounter.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QTest>

namespace {

// A call of this process's own that the monitor also sees: once it shows, every call made
// before it has been shown too.
const QString syncMember = QStringLiteral("GetId");

} // namespace

BusCallCounter::BusCallCounter(const QString& interface, const QString& member)
    : m_interface(interface)
    , m_member(member)
{}

BusCallCounter::~BusCallCounter()
{
    m_monitor.kill();
    m_monitor.waitForFinished();
}

bool BusCallCounter::start()
{
    m_monitor.start(
        QStringLiteral("dbus-monitor"),
        {QStringLiteral("--session"),
         QStringLiteral("type='method_call',interface='%1',member='%2'").arg(m_interface, m_member),
         QStringLiteral("type='method_call',interface='org.freedesktop.DBus',"
                        "member='%1'")
             .arg(syncMember)});
    // The bus takes the monitor's name away once it watches.
    return QTest::qWaitFor(
        [this] {
            m_monitor.waitForReadyRead(50);
            m_output += m_monitor.readAllStandardOutput();
            return m_output.contains("member=NameLost");
        },
        10000);
}

int BusCallCounter::count()
{
    const QDBusMessage getId = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), syncMember);
    QDBusConnection::sessionBus().call(getId);
    ++m_syncs;
    const bool caughtUp = QTest::qWaitFor(
        [this] {
            m_monitor.waitForReadyRead(50);
            m_output += m_monitor.readAllStandardOutput();
            return countLines(QStringLiteral("org.freedesktop.DBus"), syncMember) >= m_syncs;
        },
        10000);
    return caughtUp ? countLines(m_interface, m_member) : -1;
}

int BusCallCounter::countLines(const QString& interface, const QString& member)
{
    int calls = 0;
    const QByteArray wanted = "interface=" + interface.toLatin1() + "; member=" + member.toLatin1();
    for (const QByteArray& line : m_output.split('\n')) {
        if (line.startsWith("method call") && line.endsWith(wanted)) {
            ++calls;
        }
    }
    return calls;
}
