// The hotkey through the desktop portal's GlobalShortcuts in a real headless KWin session
// (with-kwin, where xdg-desktop-portal-kde answers). KWin there has no input devices: the
// bound shortcut is pressed through KDE's shortcut service, which the KDE portal binds it in.
#include "BusCallCounter.h"
#include "ChatServer.h"
#include "RaveloProcess.h"
#include "model/PreferenceStore.h"
#include "model/Prompt.h"
#include "model/PromptHotkeys.h"
#include "model/PromptStore.h"
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
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

namespace {

constexpr quint32 keyK = 40;
constexpr quint32 keyJ = 38;
constexpr quint32 ctrlShift = KeyMap::commandMask | KeyMap::shiftMask;

QDBusMessage callAccel(const QString& path, const QString& interface, const QString& method,
                       const QVariantList& arguments)
{
    QDBusMessage message = QDBusMessage::createMethodCall(QStringLiteral("org.kde.kglobalaccel"),
                                                          path, interface, method);
    message.setArguments(arguments);
    return QDBusConnection::sessionBus().call(message);
}

/// Presses the shortcut of every component that has one by that name, as KDE's service does
/// on its keys; true when some component had it.
bool pressTrigger(const QString& name = QStringLiteral("trigger"))
{
    const QDBusReply<QList<QDBusObjectPath>> components =
        callAccel(QStringLiteral("/kglobalaccel"), QStringLiteral("org.kde.KGlobalAccel"),
                  QStringLiteral("allComponents"), {});
    bool pressed = false;
    for (const QDBusObjectPath& component : components.value()) {
        const QDBusReply<QStringList> names =
            callAccel(component.path(), QStringLiteral("org.kde.kglobalaccel.Component"),
                      QStringLiteral("shortcutNames"), {});
        if (names.value().contains(name)) {
            callAccel(component.path(), QStringLiteral("org.kde.kglobalaccel.Component"),
                      QStringLiteral("invokeShortcut"), {name});
            pressed = true;
        }
    }
    return pressed;
}

/// Starts ravelo on the session's Wayland display, logging what it asks of the portal.
bool startWithPortalLog(RunningRavelo& ravelo)
{
    QProcessEnvironment environment;
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QString());
    environment.insert(QStringLiteral("QT_LOGGING_RULES"),
                       QStringLiteral("ravelo.app.debug=true;ravelo.platform.debug=true"));
    return ravelo.start({}, environment);
}

} // namespace

class TestPortalGlobalShortcuts : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(PortalGlobalShortcuts::isAvailable());
        QCOMPARE(PlatformServices::hotkeyPath(), PlatformServices::HotkeyPath::Portal);
        QVERIFY(HotkeySettings::hotkeyPathText().contains(QLatin1String("global shortcuts")));
    }

    void preferredTrigger_data()
    {
        QTest::addColumn<quint32>("keyCode");
        QTest::addColumn<quint32>("modifiers");
        QTest::addColumn<QString>("trigger");
        QTest::newRow("Ctrl+Shift+K") << keyK << ctrlShift << QStringLiteral("CTRL+SHIFT+k");
        QTest::newRow("Ctrl+Alt+Space") << quint32(49) << (KeyMap::commandMask | KeyMap::optionMask)
                                        << QStringLiteral("CTRL+ALT+space");
        QTest::newRow("Super+F5") << quint32(96) << KeyMap::controlMask
                                  << QStringLiteral("LOGO+F5");
        QTest::newRow("a key the map does not know")
            << quint32(KeyMap::unknownKeyCode) << ctrlShift << QString();
    }

    void preferredTrigger()
    {
        QFETCH(quint32, keyCode);
        QFETCH(quint32, modifiers);
        QFETCH(QString, trigger);
        QCOMPARE(PortalGlobalShortcuts::preferredTrigger(keyCode, modifiers), trigger);
    }

    void boundShortcutFiresUntilUnregistered()
    {
        PortalGlobalShortcuts hotkey;
        QSignalSpy bound(&hotkey, &PortalGlobalShortcuts::bindingFinished);
        QSignalSpy activated(&hotkey, &GlobalHotkey::activated);
        QVERIFY(hotkey.registerHotkey(keyK, ctrlShift));
        QTRY_COMPARE_WITH_TIMEOUT(bound.size(), 1, 15000);
        QCOMPARE(bound.first().first().toBool(), true);
        QVERIFY(hotkey.isRegistered());

        QVERIFY(pressTrigger());
        QTRY_COMPARE(activated.size(), 1);

        hotkey.unregisterHotkey();
        QVERIFY(!hotkey.isRegistered());
        pressTrigger();
        QCoreApplication::processEvents();
        QCOMPARE(activated.size(), 1);
    }

    void oneSessionBindsThePromptsBesideTheTrigger()
    {
        PortalGlobalShortcuts hotkey;
        QSignalSpy bound(&hotkey, &PortalGlobalShortcuts::bindingFinished);
        QSignalSpy activated(&hotkey, &GlobalHotkey::activated);
        const QString trigger = QString::fromLatin1(GlobalHotkey::triggerId);
        const QString prompt = QStringLiteral("prompt-6F9619FF-8B86-D011-B42D-00C04FC964FF");
        QVERIFY(hotkey.registerShortcuts(
            {{trigger, keyK, ctrlShift, {}},
             {prompt, 49, KeyMap::commandMask | KeyMap::optionMask, QStringLiteral("Translate")}}));
        QTRY_COMPARE_WITH_TIMEOUT(bound.size(), 1, 15000);
        QCOMPARE(bound.first().first().toBool(), true);
        QVERIFY(hotkey.isRegistered(prompt));

        QVERIFY(pressTrigger(prompt));
        QTRY_COMPARE(activated.size(), 1);
        QCOMPARE(activated.last().first().toString(), prompt);
        QVERIFY(pressTrigger());
        QTRY_COMPARE(activated.size(), 2);
        QCOMPARE(activated.last().first().toString(), trigger);
    }

    // A prompt's hotkey in a running ravelo runs that prompt on the text copied last.
    void promptHotkeyRunsItsPromptInRavelo()
    {
        ChatServer server;
        const Prompt second = Prompt::defaults().at(1);
        {
            PreferenceStore preferences(preferencesPastWalkthrough());
            preferences.setString(Preferences::apiKey, QStringLiteral("sk-test"));
            preferences.setString(Preferences::baseUrl, server.baseUrl());
            // The built-in prompts get fresh ids in each process until the list is stored.
            PromptStore::save(preferences, Prompt::defaults());
            PromptHotkeys::save(preferences, {{second.id, StoredHotkey{keyK, ctrlShift}}});
        }
        QVERIFY(QProcess::execute(QStringLiteral("wl-copy"), {QStringLiteral("Guten Morgen")}) ==
                0);
        server.enqueue(
            ChatResponse::events({"{\"choices\":[{\"delta\":{\"content\":\"ok\"}}]}", "[DONE]"}));
        RunningRavelo ravelo;
        QVERIFY(startWithPortalLog(ravelo));
        const QString id = HotkeyManager::promptShortcutId(second.id);
        const QByteArray bound =
            "The desktop portal bound the hotkey CTRL+SHIFT+k for " + id.toLatin1();
        QVERIFY2(ravelo.logged(bound.constData()), ravelo.log().constData());
        QVERIFY(pressTrigger(id));
        QTRY_COMPARE_WITH_TIMEOUT(server.requests().size(), 1, 15000);
        QCOMPARE(server.sentMessage(0, 0), second.systemPrompt);
        QCOMPARE(server.sentMessage(0, 1), QStringLiteral("Guten Morgen"));
    }

    // Every preference write re-arms the triggers: stop, then register as stored. The portal's
    // session stays for unchanged keys, and only a change or a stop for good ends it.
    void reArmingKeepsTheSessionOfTheSameKeys()
    {
        BusCallCounter sessions(QStringLiteral("org.freedesktop.portal.GlobalShortcuts"),
                                QStringLiteral("CreateSession"));
        BusCallCounter closes(QStringLiteral("org.freedesktop.portal.Session"),
                              QStringLiteral("Close"));
        QVERIFY(sessions.start());
        QVERIFY(closes.start());
        auto owned = std::make_unique<PortalGlobalShortcuts>();
        PortalGlobalShortcuts* hotkey = owned.get();
        HotkeyManager manager(std::make_unique<NullGlobalKeyMonitor>(), std::move(owned));
        QSignalSpy bound(hotkey, &PortalGlobalShortcuts::bindingFinished);
        QSignalSpy triggered(&manager, &HotkeyManager::triggered);
        manager.registerHotkey(keyK, ctrlShift);
        QTRY_COMPARE_WITH_TIMEOUT(bound.size(), 1, 15000);
        QVERIFY(manager.isHotkeyRegistered());

        for (int write = 0; write < 3; ++write) {
            manager.stop();
            QVERIFY(!manager.isHotkeyRegistered());
            manager.registerHotkey(keyK, ctrlShift);
            QCoreApplication::processEvents();
        }
        QCOMPARE(sessions.count(), 1);
        QCOMPARE(closes.count(), 0);
        QVERIFY(manager.isHotkeyRegistered());
        QVERIFY(pressTrigger());
        QTRY_COMPARE(triggered.size(), 1);

        manager.stop();
        manager.registerHotkey(keyJ, ctrlShift);
        QTRY_COMPARE_WITH_TIMEOUT(bound.size(), 2, 15000);
        QCOMPARE(sessions.count(), 2);
        QCOMPARE(closes.count(), 1);

        // Stopped and not armed again: the session goes once the event loop is back.
        manager.stop();
        QTRY_COMPARE(closes.count(), 2);
        QVERIFY(!manager.isHotkeyRegistered());
        pressTrigger();
        QCoreApplication::processEvents();
        QCOMPARE(triggered.size(), 1);
    }

    // The recorded hotkey of a running ravelo opens its panel with the text copied last.
    void hotkeyOpensThePanelOfRavelo()
    {
        {
            PreferenceStore preferences(preferencesPastWalkthrough());
            preferences.setInteger(Preferences::customHotkeyKeyCode, keyK);
            preferences.setInteger(Preferences::customHotkeyModifiers, ctrlShift);
        }
        QVERIFY(QProcess::execute(QStringLiteral("wl-copy"), {QStringLiteral("copied by hand")}) ==
                0);
        RunningRavelo ravelo;
        QVERIFY(startWithPortalLog(ravelo));
        QVERIFY(ravelo.logged("The desktop portal bound the hotkey CTRL+SHIFT+k"));
        QVERIFY(pressTrigger());
        QVERIFY(ravelo.logged("Panel requested for 14 characters"));
    }
};

QTEST_GUILESS_MAIN(TestPortalGlobalShortcuts)
#include "tst_portalglobalshortcuts.moc"
