#include "platform/kde/KGlobalAccelHotkey.h"

#include "platform/KeyMap.h"
#include "platform/PlatformLogging.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusReply>

#include <algorithm>
#include <utility>

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
    setActive(false);
    release();
}

bool KGlobalAccelHotkey::isAvailable()
{
    const QDBusConnection bus = QDBusConnection::sessionBus();
    return bus.isConnected() && bus.interface() &&
           bus.interface()->isServiceRegistered(service).value();
}

QStringList KGlobalAccelHotkey::actionId(const Shortcut& shortcut) const
{
    return {QString::fromLatin1(componentName), shortcut.id, QStringLiteral("Ravelo"),
            shortcut.description.isEmpty() ? tr("Open the Ravelo panel") : shortcut.description};
}

bool KGlobalAccelHotkey::take(const Shortcut& shortcut)
{
    const std::optional<int> qtKey = KeyMap::qtKeyForKeyCode(shortcut.keyCode);
    if (!qtKey) {
        return false;
    }
    const int combination = *qtKey | int(KeyMap::qtModifiersForMask(shortcut.modifiers));
    const QStringList action = actionId(shortcut);
    call(QStringLiteral("doRegister"), {action});
    const QDBusReply<QList<int>> taken =
        call(QStringLiteral("setShortcut"),
             {action, QVariant::fromValue(QList<int>{combination}), setPresent | noAutoloading});
    if (!taken.isValid() || !taken.value().contains(combination)) {
        // Another action holds the combination.
        qCDebug(lcPlatform, "KDE's shortcut service did not give Ravelo %s",
                qPrintable(KeyMap::displayText(shortcut.keyCode, shortcut.modifiers)));
        call(QStringLiteral("setShortcut"),
             {action, QVariant::fromValue(QList<int>{}), setPresent | noAutoloading});
        return false;
    }
    return true;
}

bool KGlobalAccelHotkey::registerShortcuts(const QList<Shortcut>& shortcuts)
{
    // The keys of a moment ago are still Ravelo's.
    if (!shortcuts.isEmpty() && shortcuts == m_requested && !m_registered.isEmpty()) {
        setActive(true);
        return m_registered.size() == m_requested.size();
    }
    setActive(false);
    release();
    m_requested = shortcuts;
    if (shortcuts.isEmpty()) {
        return true;
    }
    if (!isAvailable()) {
        return false;
    }
    bool all = true;
    for (const Shortcut& shortcut : shortcuts) {
        if (take(shortcut)) {
            m_registered.append(shortcut);
        } else {
            all = false;
        }
    }
    if (m_registered.isEmpty()) {
        return false;
    }
    const QDBusReply<QDBusObjectPath> component =
        call(QStringLiteral("getComponent"), {QString::fromLatin1(componentName)});
    if (!component.isValid()) {
        release();
        return false;
    }
    m_componentPath = component.value().path();
    QDBusConnection::sessionBus().connect(service, m_componentPath, componentInterface,
                                          QStringLiteral("globalShortcutPressed"), this,
                                          SLOT(handlePressed(QString, QString, qlonglong)));
    setActive(true);
    return all;
}

void KGlobalAccelHotkey::unregisterHotkey()
{
    releaseSoon();
}

void KGlobalAccelHotkey::release()
{
    m_requested.clear();
    if (m_registered.isEmpty()) {
        return;
    }
    const QList<Shortcut> registered = std::exchange(m_registered, {});
    if (!m_componentPath.isEmpty()) {
        QDBusConnection::sessionBus().disconnect(service, m_componentPath, componentInterface,
                                                 QStringLiteral("globalShortcutPressed"), this,
                                                 SLOT(handlePressed(QString, QString, qlonglong)));
        m_componentPath.clear();
    }
    // The actions stay known, without keys: the combinations are free for others again.
    for (const Shortcut& shortcut : registered) {
        call(QStringLiteral("setShortcut"),
             {actionId(shortcut), QVariant::fromValue(QList<int>{}), setPresent | noAutoloading});
    }
}

bool KGlobalAccelHotkey::isRegistered(const QString& id) const
{
    return isActive() && std::any_of(m_registered.cbegin(), m_registered.cend(),
                                     [&id](const Shortcut& shortcut) { return shortcut.id == id; });
}

void KGlobalAccelHotkey::handlePressed(const QString& component, const QString& action,
                                       qlonglong timestamp)
{
    Q_UNUSED(timestamp)
    if (component == QLatin1String(componentName) && isRegistered(action)) {
        emit activated(action);
    }
}
