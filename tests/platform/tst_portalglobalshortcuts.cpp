// The hotkey through the desktop portal's GlobalShortcuts in a real headless KWin session
// (with-kwin, where xdg-desktop-portal-kde answers). KWin there has no input devices: the
// bound shortcut is pressed through KDE's shortcut service, which the KDE portal binds it in.
#include "BusCallCounter.h"
#include "platform/KeyMap.h"
#include "platform/PlatformServices.h"
#include "platform/null/NullPlatform.h"
#include "platform/portal/PortalGlobalShortcuts.h"
#include "settings/HotkeySettings.h"
#include "triggers/HotkeyManager.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusReply>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

constexpr quint32 keyK = 40;
constexpr quint32 keyJ = 38;
constexpr quint32 ctrlShift = KeyMap::commandMask | KeyMap::shiftMask;
const QString trigger = QString::fromLatin1(GlobalHotkey::triggerId);

QDBusMessage callAccel(const QString& path, const QString& method, const QVariantList& arguments)
{
    QDBusMessage message = QDBusMessage::createMethodCall(u"org.kde.kglobalaccel"_s, path,
                                                          path == u"/kglobalaccel"_s
                                                              ? u"org.kde.KGlobalAccel"_s
                                                              : u"org.kde.kglobalaccel.Component"_s,
                                                          method);
    message.setArguments(arguments);
    return QDBusConnection::sessionBus().call(message);
}

/// Presses the shortcut of every component that has one by that name, as KDE's service does
/// on its keys; true when some component had it.
bool press(const QString& name = trigger)
{
    const QDBusReply<QList<QDBusObjectPath>> components =
        callAccel(u"/kglobalaccel"_s, u"allComponents"_s, {});
    bool pressed = false;
    for (const QDBusObjectPath& component : components.value()) {
        const QDBusReply<QStringList> names = callAccel(component.path(), u"shortcutNames"_s, {});
        if (names.value().contains(name)) {
            callAccel(component.path(), u"invokeShortcut"_s, {name});
            pressed = true;
        }
    }
    return pressed;
}

} // namespace

class TestPortalGlobalShortcuts : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(PortalGlobalShortcuts::isAvailable());
        QCOMPARE(PlatformServices::hotkeyPath(), PlatformServices::HotkeyPath::Portal);
        QVERIFY(HotkeySettings::hotkeyPathText().contains(u"global shortcuts"_s));
    }

    void preferredTrigger_data()
    {
        QTest::addColumn<quint32>("keyCode");
        QTest::addColumn<quint32>("modifiers");
        QTest::addColumn<QString>("trigger");
        QTest::newRow("Ctrl+Shift+K") << keyK << ctrlShift << u"CTRL+SHIFT+k"_s;
        QTest::newRow("Ctrl+Alt+Space")
            << 49u << (KeyMap::commandMask | KeyMap::optionMask) << u"CTRL+ALT+space"_s;
        QTest::newRow("Super+F5") << 96u << KeyMap::controlMask << u"LOGO+F5"_s;
        QTest::newRow("a key the map does not know")
            << KeyMap::unknownKeyCode << ctrlShift << QString();
    }

    void preferredTrigger()
    {
        QFETCH(quint32, keyCode);
        QFETCH(quint32, modifiers);
        QFETCH(QString, trigger);
        QCOMPARE(PortalGlobalShortcuts::preferredTrigger(keyCode, modifiers), trigger);
    }

    // One portal session binds a prompt beside the trigger. Every preference write re-arms the
    // triggers (stop, then register as stored): the session stays for unchanged keys, and only
    // a change or a stop for good ends it.
    void boundShortcutsFireAndStayForUnchangedKeys()
    {
        BusCallCounter sessions(u"org.freedesktop.portal.GlobalShortcuts"_s, u"CreateSession"_s);
        BusCallCounter closes(u"org.freedesktop.portal.Session"_s, u"Close"_s);
        QVERIFY(sessions.start());
        QVERIFY(closes.start());
        auto owned = std::make_unique<PortalGlobalShortcuts>();
        PortalGlobalShortcuts* hotkey = owned.get();
        HotkeyManager manager(std::make_unique<NullGlobalKeyMonitor>(), std::move(owned));
        QSignalSpy bound(hotkey, &PortalGlobalShortcuts::bindingFinished);
        QSignalSpy triggered(&manager, &HotkeyManager::triggered);
        QSignalSpy promptTriggered(&manager, &HotkeyManager::promptTriggered);
        const QUuid prompt = QUuid::createUuid();
        const QString promptId = HotkeyManager::promptShortcutId(prompt);
        const auto arm = [&] {
            manager.registerHotkeys({{trigger, keyK, ctrlShift, {}},
                                     {promptId, 49, KeyMap::optionMask, u"Translate"_s}});
        };
        arm();
        QTRY_COMPARE_WITH_TIMEOUT(bound.size(), 1, 15000);
        QCOMPARE(bound.first().first().toBool(), true);
        QVERIFY(manager.isPromptHotkeyRegistered(prompt));
        QVERIFY(press(promptId));
        QTRY_COMPARE(promptTriggered.size(), 1);
        QCOMPARE(promptTriggered.first().first().toUuid(), prompt);
        QCOMPARE(triggered.size(), 0);

        for (int write = 0; write < 3; ++write) {
            manager.stop();
            QVERIFY(!manager.isHotkeyRegistered());
            arm();
            QCoreApplication::processEvents();
        }
        QCOMPARE(sessions.count(), 1);
        QCOMPARE(closes.count(), 0);
        QVERIFY(manager.isHotkeyRegistered());
        QVERIFY(press());
        QTRY_COMPARE(triggered.size(), 1);

        manager.stop();
        manager.registerHotkey(keyJ, ctrlShift);
        QTRY_COMPARE_WITH_TIMEOUT(bound.size(), 2, 15000);
        QCOMPARE(sessions.count(), 2);
        QCOMPARE(closes.count(), 1);
        QVERIFY(!manager.isPromptHotkeyRegistered(prompt));

        // Stopped and not armed again: the session goes once the event loop is back.
        manager.stop();
        QTRY_COMPARE(closes.count(), 2);
        QVERIFY(!manager.isHotkeyRegistered());
        press();
        press(promptId);
        QCoreApplication::processEvents();
        QCOMPARE(triggered.size(), 1);
        QCOMPARE(promptTriggered.size(), 1);
    }
};

QTEST_GUILESS_MAIN(TestPortalGlobalShortcuts)
#include "tst_portalglobalshortcuts.moc"
