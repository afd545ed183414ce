#include "SessionBus.h"

#include <QDBusConnectionInterface>

namespace {

const QString connectionName = QStringLiteral("ravelo-test-session-bus");

} // namespace

void StatusNotifierWatcher::RegisterStatusNotifierItem(const QString& serviceOrPath,
                                                       const QDBusMessage& message)
{
    const QString item = serviceOrPath.startsWith(QLatin1Char('/'))
                             ? message.service() + serviceOrPath
                             : serviceOrPath + QStringLiteral("/StatusNotifierItem");
    m_items.append(item);
    emit StatusNotifierItemRegistered(item);
}

void StatusNotifierWatcher::RegisterStatusNotifierHost(const QString& /*service*/)
{
    emit StatusNotifierHostRegistered();
}

SessionBus::~SessionBus()
{
    if (!m_address.isEmpty()) {
        QDBusConnection::disconnectFromBus(connectionName);
    }
    if (m_daemon.state() != QProcess::NotRunning) {
        m_daemon.terminate();
        m_daemon.waitForFinished();
    }
}

bool SessionBus::start()
{
    m_daemon.start(QStringLiteral("dbus-daemon"),
                   {QStringLiteral("--session"), QStringLiteral("--nofork"),
                    QStringLiteral("--nopidfile"), QStringLiteral("--print-address=1")});
    if (!m_daemon.waitForStarted()) {
        return false;
    }
    while (!m_daemon.canReadLine()) {
        if (!m_daemon.waitForReadyRead()) {
            return false;
        }
    }
    m_address = QString::fromLocal8Bit(m_daemon.readLine()).trimmed();
    return connection().isConnected();
}

QDBusConnection SessionBus::connection() const
{
    return QDBusConnection::connectToBus(m_address, connectionName);
}

bool SessionBus::startStatusNotifierHost()
{
    QDBusConnection bus = connection();
    if (!bus.registerObject(QStringLiteral("/StatusNotifierWatcher"), &m_watcher,
                            QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals |
                                QDBusConnection::ExportAllProperties) ||
        !bus.registerService(QStringLiteral("org.kde.StatusNotifierWatcher"))) {
        return false;
    }
    emit m_watcher.StatusNotifierHostRegistered();
    return true;
}
