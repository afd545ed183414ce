#include "triggers/HotkeyManager.h"

#include "platform/ClipboardOwnerMonitor.h"
#include "platform/GlobalHotkey.h"
#include "platform/GlobalKeyMonitor.h"
#include "platform/KeyMap.h"
#include "platform/PlatformServices.h"
#include "platform/null/NullPlatform.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QLoggingCategory>
#include <QPointer>

#include <algorithm>

Q_LOGGING_CATEGORY(lcTriggers, "ravelo.triggers", QtWarningMsg)

namespace {

// The owner change of a copy made by a key comes this soon after the key press, which the
// key detector has counted already.
constexpr std::chrono::milliseconds keyCopySkew{150};
// An owner change this soon after Ravelo wrote the clipboard is that write.
constexpr std::chrono::milliseconds ownWriteGrace{250};

} // namespace

HotkeyManager::HotkeyManager(QObject* parent)
    : HotkeyManager(PlatformServices::createGlobalKeyMonitor(),
                    PlatformServices::createClipboardOwnerMonitor(),
                    PlatformServices::createGlobalHotkey(), parent)
{}

HotkeyManager::HotkeyManager(std::unique_ptr<GlobalKeyMonitor> monitor,
                             std::unique_ptr<GlobalHotkey> hotkey, QObject* parent)
    : HotkeyManager(std::move(monitor), std::make_unique<NullClipboardOwnerMonitor>(),
                    std::move(hotkey), parent)
{}

HotkeyManager::HotkeyManager(std::unique_ptr<GlobalKeyMonitor> monitor,
                             std::unique_ptr<ClipboardOwnerMonitor> ownerMonitor,
                             std::unique_ptr<GlobalHotkey> hotkey, QObject* parent)
    : QObject(parent)
    , m_monitor(std::move(monitor))
    , m_ownerMonitor(std::move(ownerMonitor))
    , m_hotkey(std::move(hotkey))
    , m_clock(&DoubleCopyDetector::Clock::now)
{
    connect(m_monitor.get(), &GlobalKeyMonitor::keyPressed, this, &HotkeyManager::handleKeyDown);
    connect(m_ownerMonitor.get(), &ClipboardOwnerMonitor::ownerChanged, this,
            &HotkeyManager::handleOwnerChange);
    if (qobject_cast<QGuiApplication*>(QCoreApplication::instance())) {
        QClipboard* clipboard = QGuiApplication::clipboard();
        connect(clipboard, &QClipboard::dataChanged, this, [this, clipboard] {
            if (clipboard->ownsClipboard()) {
                noteOwnClipboardWrite();
            }
        });
    }
    connect(m_hotkey.get(), &GlobalHotkey::activated, this, &HotkeyManager::handleActivated);
}

HotkeyManager::~HotkeyManager()
{
    stop();
}

void HotkeyManager::setDoubleCopyEnabled(bool enabled)
{
    if (m_doubleCopyEnabled == enabled) {
        return;
    }
    m_doubleCopyEnabled = enabled;
    emit doubleCopyEnabledChanged();
}

void HotkeyManager::startDoubleCopyMonitor()
{
    const bool keys = m_monitor->start();
    const bool owners = m_ownerMonitor->start();
    if (keys || owners) {
        qCDebug(lcTriggers, "Double copy armed (%s%s%s)", keys ? "copy keys" : "",
                keys && owners ? ", " : "", owners ? "clipboard owner" : "");
    } else {
        qCDebug(lcTriggers, "Double copy cannot be armed in this session");
    }
}

QString HotkeyManager::promptShortcutId(const QUuid& promptId)
{
    return QStringLiteral("prompt-") + promptId.toString(QUuid::WithoutBraces).toUpper();
}

void HotkeyManager::registerHotkey(quint32 keyCode, quint32 modifiers)
{
    registerHotkeys({{QString::fromLatin1(GlobalHotkey::triggerId), keyCode, modifiers, {}}});
}

void HotkeyManager::registerHotkeys(const QList<GlobalHotkey::Shortcut>& shortcuts)
{
    QList<GlobalHotkey::Shortcut> distinct;
    for (const GlobalHotkey::Shortcut& shortcut : shortcuts) {
        const bool taken =
            std::any_of(distinct.cbegin(), distinct.cend(), [&](const GlobalHotkey::Shortcut& s) {
                return s.keyCode == shortcut.keyCode && s.modifiers == shortcut.modifiers;
            });
        if (taken) {
            qCDebug(lcTriggers, "Hotkey %s of %s is taken already",
                    qPrintable(KeyMap::displayText(shortcut.keyCode, shortcut.modifiers)),
                    qPrintable(shortcut.id));
            continue;
        }
        distinct.append(shortcut);
    }
    if (distinct.isEmpty()) {
        m_hotkey->unregisterHotkey();
        return;
    }
    m_hotkey->registerShortcuts(distinct);
    for (const GlobalHotkey::Shortcut& shortcut : std::as_const(distinct)) {
        qCDebug(lcTriggers, "Hotkey %s of %s %s",
                qPrintable(KeyMap::displayText(shortcut.keyCode, shortcut.modifiers)),
                qPrintable(shortcut.id),
                m_hotkey->isRegistered(shortcut.id) ? "armed" : "not armed yet");
    }
}

void HotkeyManager::stop()
{
    m_monitor->stop();
    m_ownerMonitor->stop();
    m_hotkey->unregisterHotkey();
    m_detector.reset();
    m_ownerDetector.reset();
    m_lastCopyPress.reset();
    m_lastKeyTrigger.reset();
}

void HotkeyManager::trigger()
{
    queueTrigger();
}

bool HotkeyManager::isDoubleCopyMonitorActive() const
{
    return m_monitor->isActive() || m_ownerMonitor->isActive();
}

bool HotkeyManager::readsClipboardText() const
{
    return m_ownerMonitor->readsText();
}

void HotkeyManager::readClipboardText(std::function<void(const QString&)> done)
{
    m_ownerMonitor->readText(std::move(done));
}

void HotkeyManager::noteOwnClipboardWrite()
{
    m_lastOwnWrite = m_clock();
}

bool HotkeyManager::isHotkeyRegistered() const
{
    return m_hotkey->isRegistered(QString::fromLatin1(GlobalHotkey::triggerId));
}

bool HotkeyManager::isPromptHotkeyRegistered(const QUuid& promptId) const
{
    return m_hotkey->isRegistered(promptShortcutId(promptId));
}

void HotkeyManager::setClock(Clock clock)
{
    m_clock = clock ? std::move(clock) : Clock(&DoubleCopyDetector::Clock::now);
}

void HotkeyManager::handleKeyDown(quint32 keyCode, quint32 modifiers)
{
    const DoubleCopyDetector::Clock::time_point at = m_clock();
    if (DoubleCopyDetector::isLoneCopy(keyCode, modifiers)) {
        m_lastCopyPress = at;
    }
    if (m_detector.keyDown(keyCode, modifiers, at)) {
        qCDebug(lcTriggers, "Double copy");
        m_lastKeyTrigger = at;
        queueTrigger();
    }
}

void HotkeyManager::handleOwnerChange(quint64 owner)
{
    const DoubleCopyDetector::Clock::time_point at = m_clock();
    if (m_lastOwnWrite && at - *m_lastOwnWrite < ownWriteGrace) {
        qCDebug(lcTriggers, "Clipboard written by Ravelo itself");
        return;
    }
    if (m_monitor->isActive() && m_lastCopyPress && at - *m_lastCopyPress < keyCopySkew) {
        return;
    }
    if (m_ownerDetector.ownerChanged(owner, at)) {
        // An application slow to copy can make a key pair and an owner pair of one double copy.
        if (m_lastKeyTrigger && at - *m_lastKeyTrigger < DoubleCopyDetector::threshold) {
            return;
        }
        qCDebug(lcTriggers, "Double copy seen on the clipboard");
        queueTrigger();
    }
}

void HotkeyManager::handleActivated(const QString& id)
{
    qCDebug(lcTriggers, "Hotkey %s pressed", qPrintable(id));
    if (id == QLatin1String(GlobalHotkey::triggerId)) {
        queueTrigger();
        return;
    }
    const QLatin1String prefix("prompt-");
    if (!id.startsWith(prefix)) {
        return;
    }
    const QUuid promptId(QStringView(id).mid(prefix.size()));
    if (promptId.isNull()) {
        return;
    }
    QMetaObject::invokeMethod(
        this,
        [self = QPointer<HotkeyManager>(this), promptId] {
            if (!self) {
                return;
            }
            emit self->promptTriggered(promptId);
            if (self && self->onPromptHotkey) {
                const std::function<void(const QUuid&)> callback = self->onPromptHotkey;
                callback(promptId);
            }
        },
        Qt::QueuedConnection);
}

void HotkeyManager::queueTrigger()
{
    // Never from inside the key handling: the trigger runs once the event loop is back.
    QMetaObject::invokeMethod(
        this,
        [self = QPointer<HotkeyManager>(this)] {
            if (!self) {
                return;
            }
            emit self->triggered();
            // A copy: the callback may replace itself while it runs.
            if (self && self->onTrigger) {
                const std::function<void()> callback = self->onTrigger;
                callback();
            }
        },
        Qt::QueuedConnection);
}
