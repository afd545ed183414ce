#include "platform/portal/PortalGlobalShortcuts.h"

#include "platform/KeyMap.h"
#include "platform/PlatformLogging.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusReply>
#include <QDBusVariant>

#include <xkbcommon/xkbcommon.h>

#include <algorithm>

namespace {

const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString shortcutsInterface = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");
const QString requestInterface = QStringLiteral("org.freedesktop.portal.Request");
// The portal's session with a fixed name: KDE keeps the shortcut under it across starts
// instead of adding one entry per start.
const QString sessionToken = QStringLiteral("ravelo");

/// One shortcut as the portal takes it: (id, {description, preferred_trigger}).
struct PortalShortcut {
    QString id;
    QVariantMap properties;
};
using PortalShortcuts = QList<PortalShortcut>;

QDBusArgument& operator<<(QDBusArgument& argument, const PortalShortcut& shortcut)
{
    argument.beginStructure();
    argument << shortcut.id << shortcut.properties;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, PortalShortcut& shortcut)
{
    argument.beginStructure();
    argument >> shortcut.id >> shortcut.properties;
    argument.endStructure();
    return argument;
}

} // namespace

Q_DECLARE_METATYPE(PortalShortcut)
Q_DECLARE_METATYPE(PortalShortcuts)

namespace {

void registerTypes()
{
    static const bool registered = [] {
        qDBusRegisterMetaType<PortalShortcut>();
        qDBusRegisterMetaType<PortalShortcuts>();
        return true;
    }();
    Q_UNUSED(registered)
}

} // namespace

PortalGlobalShortcuts::~PortalGlobalShortcuts()
{
    setActive(false);
    release();
}

bool PortalGlobalShortcuts::isAvailable()
{
    QDBusMessage message = QDBusMessage::createMethodCall(
        portalService, portalPath, QStringLiteral("org.freedesktop.DBus.Properties"),
        QStringLiteral("Get"));
    message.setArguments({shortcutsInterface, QStringLiteral("version")});
    const QDBusReply<QDBusVariant> version =
        QDBusConnection::sessionBus().call(message, QDBus::Block, 5000);
    return version.isValid() && version.value().variant().toUInt() >= 1;
}

QString PortalGlobalShortcuts::preferredTrigger(quint32 keyCode, quint32 modifiers)
{
    const std::optional<quint32> keysym = KeyMap::keysymForKeyCode(keyCode);
    char name[64] = {};
    if (!keysym || xkb_keysym_get_name(*keysym, name, sizeof name) <= 0) {
        return QString();
    }
    QStringList parts;
    if (modifiers & KeyMap::commandMask) {
        parts << QStringLiteral("CTRL");
    }
    if (modifiers & KeyMap::optionMask) {
        parts << QStringLiteral("ALT");
    }
    if (modifiers & KeyMap::shiftMask) {
        parts << QStringLiteral("SHIFT");
    }
    if (modifiers & KeyMap::controlMask) {
        parts << QStringLiteral("LOGO");
    }
    parts << QString::fromLatin1(name);
    return parts.join(QLatin1Char('+'));
}

bool PortalGlobalShortcuts::request(const QString& method, QVariantList arguments,
                                    QVariantMap options, ResponseHandler handler)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    const QString token = QStringLiteral("ravelo_%1").arg(++m_generation);
    QString sender = bus.baseService().mid(1);
    sender.replace(QLatin1Char('.'), QLatin1Char('_'));
    // The answer goes to this path; listening must start before the call.
    const QString path =
        QStringLiteral("/org/freedesktop/portal/desktop/request/%1/%2").arg(sender, token);
    if (!m_requestPath.isEmpty()) {
        bus.disconnect(portalService, m_requestPath, requestInterface, QStringLiteral("Response"),
                       this, SLOT(handleResponse(uint, QVariantMap)));
    }
    m_requestPath = path;
    bus.connect(portalService, path, requestInterface, QStringLiteral("Response"), this,
                SLOT(handleResponse(uint, QVariantMap)));
    m_pending = std::move(handler);
    options.insert(QStringLiteral("handle_token"), token);
    arguments.append(options);
    QDBusMessage message =
        QDBusMessage::createMethodCall(portalService, portalPath, shortcutsInterface, method);
    message.setArguments(arguments);
    const QDBusMessage reply = bus.call(message, QDBus::Block, 5000);
    if (reply.type() != QDBusMessage::ReplyMessage) {
        qCDebug(lcPlatform, "The desktop portal refused %s: %s", qPrintable(method),
                qPrintable(reply.errorMessage()));
        m_pending = nullptr;
        return false;
    }
    return true;
}

QVariant PortalGlobalShortcuts::portalShortcuts() const
{
    PortalShortcuts shortcuts;
    for (const Wanted& wanted : m_wanted) {
        shortcuts.append({wanted.id,
                          {{QStringLiteral("description"), wanted.description},
                           {QStringLiteral("preferred_trigger"), wanted.trigger}}});
    }
    return QVariant::fromValue(shortcuts);
}

bool PortalGlobalShortcuts::registerShortcuts(const QList<Shortcut>& shortcuts)
{
    bool all = true;
    QList<Wanted> wanted;
    for (const Shortcut& shortcut : shortcuts) {
        const QString trigger = preferredTrigger(shortcut.keyCode, shortcut.modifiers);
        if (trigger.isEmpty()) {
            all = false;
            continue;
        }
        wanted.append(
            {shortcut.id, trigger,
             shortcut.description.isEmpty() ? tr("Open the Ravelo panel") : shortcut.description});
    }
    // The session of a moment ago, bound or still binding, is kept for the same shortcuts.
    if (!wanted.isEmpty() && wanted == m_wanted && (m_bound || m_pending)) {
        setActive(true);
        qCDebug(lcPlatform, "The desktop portal keeps its %d hotkey(s)", int(m_wanted.size()));
        return all;
    }
    setActive(false);
    release();
    registerTypes();
    m_wanted = wanted;
    if (m_wanted.isEmpty()) {
        return all;
    }
    setActive(true);
    // The shortcuts go along with the session too: the KDE portal of Plasma 5.27 binds them
    // only from there.
    const bool sent = request(
        QStringLiteral("CreateSession"), {},
        {{QStringLiteral("session_handle_token"), sessionToken},
         {QStringLiteral("shortcuts"), portalShortcuts()}},
        [this](uint response, const QVariantMap& results) {
            if (response != 0) {
                emit bindingFinished(false);
                return;
            }
            const QVariant handle = results.value(QStringLiteral("session_handle"));
            m_session = handle.canConvert<QDBusObjectPath>()
                            ? handle.value<QDBusObjectPath>().path()
                            : handle.toString();
            if (m_session.isEmpty()) {
                emit bindingFinished(false);
                return;
            }
            QDBusConnection::sessionBus().connect(
                portalService, portalPath, shortcutsInterface, QStringLiteral("Activated"), this,
                SLOT(handleActivated(QDBusObjectPath, QString, qulonglong, QVariantMap)));
            bind();
        });
    return sent && all;
}

void PortalGlobalShortcuts::bind()
{
    const bool sent =
        request(QStringLiteral("BindShortcuts"),
                {QVariant::fromValue(QDBusObjectPath(m_session)), portalShortcuts(), QString()}, {},
                [this](uint response, const QVariantMap& results) {
                    Q_UNUSED(results)
                    // An empty list back still leaves the shortcuts bound through the session.
                    m_bound = response == 0;
                    for (const Wanted& wanted : std::as_const(m_wanted)) {
                        qCDebug(lcPlatform, "The desktop portal %s the hotkey %s for %s",
                                m_bound ? "bound" : "did not bind", qPrintable(wanted.trigger),
                                qPrintable(wanted.id));
                    }
                    emit bindingFinished(m_bound);
                });
    if (!sent) {
        emit bindingFinished(false);
    }
}

bool PortalGlobalShortcuts::isRegistered(const QString& id) const
{
    return isRegistered() && std::any_of(m_wanted.cbegin(), m_wanted.cend(),
                                         [&id](const Wanted& wanted) { return wanted.id == id; });
}

void PortalGlobalShortcuts::handleResponse(uint response, const QVariantMap& results)
{
    if (ResponseHandler handler = std::exchange(m_pending, nullptr)) {
        handler(response, results);
    }
}

void PortalGlobalShortcuts::handleActivated(const QDBusObjectPath& session, const QString& shortcut,
                                            qulonglong timestamp, const QVariantMap& options)
{
    Q_UNUSED(timestamp)
    Q_UNUSED(options)
    if (isRegistered(shortcut) && session.path() == m_session) {
        emit activated(shortcut);
    }
}

void PortalGlobalShortcuts::unregisterHotkey()
{
    releaseSoon();
}

void PortalGlobalShortcuts::release()
{
    m_pending = nullptr;
    m_bound = false;
    m_wanted.clear();
    closeSession();
}

void PortalGlobalShortcuts::closeSession()
{
    if (m_session.isEmpty()) {
        return;
    }
    QDBusConnection bus = QDBusConnection::sessionBus();
    bus.disconnect(portalService, portalPath, shortcutsInterface, QStringLiteral("Activated"), this,
                   SLOT(handleActivated(QDBusObjectPath, QString, qulonglong, QVariantMap)));
    const QDBusMessage close = QDBusMessage::createMethodCall(
        portalService, m_session, QStringLiteral("org.freedesktop.portal.Session"),
        QStringLiteral("Close"));
    bus.call(close, QDBus::Block, 2000);
    m_session.clear();
}
