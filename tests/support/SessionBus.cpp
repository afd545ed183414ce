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

bool SessionBus::start(const QString& configFile)
{
    m_daemon.start(QStringLiteral("dbus-daemon"),
                   {configFile.isEmpty() ? QStringLiteral("--session")
                                         : QStringLiteral("--config-file=") + configFile,
                    QStringLiteral("--nofork"), QStringLiteral("--nopidfile"),
                    QStringLiteral("--print-address=1")});
    if (!m_daemon.waitForStarted()) {
        return false;
    }
    while (!m_daemon.canReadLine()) {
        if (!m_daemon.waitForReadyRead()) {
            return false;
        }
    }
    m_address = QString::fromLocal8Bit(m_daemon.readLine()).trimmed();
    if (!connection().isConnected()) {
        return false;
    }
    // The standard session bus starts services on demand: a keyring asked for would start
    // with the developer's keyrings, or ask for a password on the test's display. With its
    // names taken, Ravelo finds no keyring there and keeps the key in its file.
    if (configFile.isEmpty()) {
        for (const char* keyring :
             {"org.freedesktop.secrets", "org.kde.kwalletd5", "org.kde.kwalletd6"}) {
            if (!connection().registerService(QString::fromLatin1(keyring))) {
                return false;
            }
        }
    }
    return true;
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
