#include "platform/kde/KGlobalAccelHotkey.h"

#include "platform/KeyMap.h"
#include "platform/PlatformLogging.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusReply>

namespace {

const QString service = QStringLiteral("org.kde.kglobalaccel");
const QString path = QStringLiteral("/kglobalaccel");
const QString interface = QStringLiteral("org.kde.KGlobalAccel");
const QString componentInterface = QStringLiteral("org.kde.kglobalaccel.Component");
// setShortcut flags: take these keys now (SetPresent), not what was saved before
// (NoAutoloading).
constexpr uint setPresent = 2;
constexpr uint noAutoloading = 4;

QDBusMessage call(const QString& method, const QVariantList& arguments)
{
    QDBusMessage message = QDBusMessage::createMethodCall(service, path, interface, method);
    message.setArguments(arguments);
    return QDBusConnection::sessionBus().call(message, QDBus::Block, 2000);
}

} // namespace

KGlobalAccelHotkey::~KGlobalAccelHotkey()
{
    m_wanted = false;
    release();
}

bool KGlobalAccelHotkey::isAvailable()
{
    const QDBusConnection bus = QDBusConnection::sessionBus();
    return bus.isConnected() && bus.interface() &&
           bus.interface()->isServiceRegistered(service).value();
}

QStringList KGlobalAccelHotkey::actionId() const
{
    return {QString::fromLatin1(componentName), QString::fromLatin1(actionName),
            QStringLiteral("Ravelo"), tr("Open the Ravelo panel")};
}

bool KGlobalAccelHotkey::registerHotkey(quint32 keyCode, quint32 modifiers)
{
    const std::optional<int> qtKey = KeyMap::qtKeyForKeyCode(keyCode);
    const int combination = qtKey ? *qtKey | int(KeyMap::qtModifiersForMask(modifiers)) : 0;
    // The keys of a moment ago are still Ravelo's.
    if (m_registered && qtKey && combination == m_combination) {
        m_wanted = true;
        return true;
    }
    m_wanted = false;
    release();
    if (!qtKey || !isAvailable()) {
        return false;
    }
    call(QStringLiteral("doRegister"), {actionId()});
    const QDBusReply<QList<int>> taken = call(
        QStringLiteral("setShortcut"),
        {actionId(), QVariant::fromValue(QList<int>{combination}), setPresent | noAutoloading});
    if (!taken.isValid() || !taken.value().contains(combination)) {
        // Another action holds the combination.
        qCDebug(lcPlatform, "KDE's shortcut service did not give Ravelo %s",
                qPrintable(KeyMap::displayText(keyCode, modifiers)));
        call(QStringLiteral("setShortcut"),
             {actionId(), QVariant::fromValue(QList<int>{}), setPresent | noAutoloading});
        return false;
    }
    const QDBusReply<QDBusObjectPath> component =
        call(QStringLiteral("getComponent"), {QString::fromLatin1(componentName)});
    if (!component.isValid()) {
        return false;
    }
    m_componentPath = component.value().path();
    QDBusConnection::sessionBus().connect(service, m_componentPath, componentInterface,
                                          QStringLiteral("globalShortcutPressed"), this,
                                          SLOT(handlePressed(QString, QString, qlonglong)));
    m_combination = combination;
    m_registered = true;
    m_wanted = true;
    return true;
}

void KGlobalAccelHotkey::unregisterHotkey()
{
    if (!m_wanted) {
        return;
    }
    m_wanted = false;
    if (!m_releaseQueued) {
        m_releaseQueued = true;
        QMetaObject::invokeMethod(
            this,
            [this] {
                m_releaseQueued = false;
                if (!m_wanted) {
                    release();
                }
            },
            Qt::QueuedConnection);
    }
}

void KGlobalAccelHotkey::release()
{
    if (!m_registered) {
        return;
    }
    m_registered = false;
    m_combination = 0;
    QDBusConnection::sessionBus().disconnect(service, m_componentPath, componentInterface,
                                             QStringLiteral("globalShortcutPressed"), this,
                                             SLOT(handlePressed(QString, QString, qlonglong)));
    // The action stays known, without keys: the combination is free for others again.
    call(QStringLiteral("setShortcut"),
         {actionId(), QVariant::fromValue(QList<int>{}), setPresent | noAutoloading});
}

void KGlobalAccelHotkey::handlePressed(const QString& component, const QString& action,
                                       qlonglong timestamp)
{
    Q_UNUSED(timestamp)
    if (isRegistered() && component == QLatin1String(componentName) &&
        action == QLatin1String(actionName)) {
        emit activated();
    }
}
