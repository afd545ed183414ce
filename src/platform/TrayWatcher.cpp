#include "platform/TrayWatcher.h"

#include "platform/PlatformServices.h"
#include "platform/x11/X11TraySelection.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusReply>
#include <QDBusServiceWatcher>
#include <QDBusVariant>

namespace {

const QString watcherService = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString watcherPath = QStringLiteral("/StatusNotifierWatcher");

QDBusMessage hostRegisteredQuery()
{
    QDBusMessage query = QDBusMessage::createMethodCall(
        watcherService, watcherPath, QStringLiteral("org.freedesktop.DBus.Properties"),
        QStringLiteral("Get"));
    query << watcherService << QStringLiteral("IsStatusNotifierHostRegistered");
    return query;
}

bool statusNotifierHostRegistered(const QDBusConnection& bus)
{
    if (!bus.isConnected() || !bus.interface() ||
        !bus.interface()->isServiceRegistered(watcherService)) {
        return false;
    }
    const QDBusReply<QDBusVariant> reply = bus.call(hostRegisteredQuery());
    return reply.isValid() && reply.value().variant().toBool();
}

} // namespace

TrayWatcher::TrayWatcher(QObject* parent)
    : QObject(parent)
{
    if (PlatformServices::backend() == PlatformServices::Backend::X11) {
        // Selected before asking, so that a tray starting in between is not missed.
        m_traySelection = X11TraySelection::create();
    }
    if ((m_traySelection && m_traySelection->hasOwner()) ||
        statusNotifierHostRegistered(QDBusConnection::sessionBus())) {
        m_trayExists = true;
        m_traySelection.reset();
        return;
    }
    if (m_traySelection) {
        connect(m_traySelection.get(), &X11TraySelection::ownerAppeared, this,
                &TrayWatcher::setTrayExists);
    }
    watchSessionBus();
}

TrayWatcher::~TrayWatcher() = default;

void TrayWatcher::watchSessionBus()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        return;
    }
    // A watcher that starts may already have its host, or get one later.
    m_serviceWatcher = new QDBusServiceWatcher(watcherService, bus,
                                               QDBusServiceWatcher::WatchForRegistration, this);
    connect(m_serviceWatcher, &QDBusServiceWatcher::serviceRegistered, this,
            &TrayWatcher::askWhetherHostIsRegistered);
    bus.connect(watcherService, watcherPath, watcherService,
                QStringLiteral("StatusNotifierHostRegistered"), this,
                SLOT(onStatusNotifierHostRegistered()));
}

void TrayWatcher::askWhetherHostIsRegistered()
{
    auto* call = new QDBusPendingCallWatcher(
        QDBusConnection::sessionBus().asyncCall(hostRegisteredQuery()), this);
    connect(call, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* call) {
        call->deleteLater();
        const QDBusPendingReply<QDBusVariant> reply = *call;
        if (reply.isValid() && reply.value().variant().toBool()) {
            setTrayExists();
        }
    });
}

void TrayWatcher::onStatusNotifierHostRegistered()
{
    setTrayExists();
}

void TrayWatcher::setTrayExists()
{
    if (m_trayExists) {
        return;
    }
    m_trayExists = true;
    // Called from their own handlers: both go once control is back in the event loop.
    if (m_traySelection) {
        m_traySelection.release()->deleteLater();
    }
    if (m_serviceWatcher) {
        m_serviceWatcher->deleteLater();
        m_serviceWatcher = nullptr;
        QDBusConnection::sessionBus().disconnect(watcherService, watcherPath, watcherService,
                                                 QStringLiteral("StatusNotifierHostRegistered"),
                                                 this, SLOT(onStatusNotifierHostRegistered()));
    }
    emit trayAppeared();
}
