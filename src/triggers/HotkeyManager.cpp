#include "triggers/HotkeyManager.h"

#include "platform/GlobalHotkey.h"
#include "platform/GlobalKeyMonitor.h"
#include "platform/KeyMap.h"
#include "platform/PlatformServices.h"

#include <QLoggingCategory>
#include <QPointer>

Q_LOGGING_CATEGORY(lcTriggers, "ravelo.triggers", QtWarningMsg)

HotkeyManager::HotkeyManager(QObject* parent)
    : HotkeyManager(PlatformServices::createGlobalKeyMonitor(),
                    PlatformServices::createGlobalHotkey(), parent)
{}

HotkeyManager::HotkeyManager(std::unique_ptr<GlobalKeyMonitor> monitor,
                             std::unique_ptr<GlobalHotkey> hotkey, QObject* parent)
    : QObject(parent)
    , m_monitor(std::move(monitor))
    , m_hotkey(std::move(hotkey))
    , m_clock(&DoubleCopyDetector::Clock::now)
{
    connect(m_monitor.get(), &GlobalKeyMonitor::keyPressed, this, &HotkeyManager::handleKeyDown);
    connect(m_hotkey.get(), &GlobalHotkey::activated, this, [this] {
        qCDebug(lcTriggers, "Hotkey pressed");
        queueTrigger();
    });
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
    if (m_monitor->start()) {
        qCDebug(lcTriggers, "Double copy armed");
    } else {
        qCDebug(lcTriggers, "Double copy cannot be armed in this session");
    }
}

void HotkeyManager::registerHotkey(quint32 keyCode, quint32 modifiers)
{
    if (m_hotkey->registerHotkey(keyCode, modifiers)) {
        qCDebug(lcTriggers, "Hotkey %s armed", qPrintable(KeyMap::displayText(keyCode, modifiers)));
    } else {
        qCDebug(lcTriggers, "Hotkey %s is not available",
                qPrintable(KeyMap::displayText(keyCode, modifiers)));
    }
}

void HotkeyManager::stop()
{
    m_monitor->stop();
    m_hotkey->unregisterHotkey();
    m_detector.reset();
    m_lastCopyPress.reset();
}

void HotkeyManager::trigger()
{
    queueTrigger();
}

bool HotkeyManager::isDoubleCopyMonitorActive() const
{
    return m_monitor->isActive();
}

bool HotkeyManager::isHotkeyRegistered() const
{
    return m_hotkey->isRegistered();
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
        queueTrigger();
    }
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
