// The hotkey through KDE's shortcut service in a real headless KWin session (with-kwin).
// KWin there has no input devices: presses are invoked through the service itself, which
// reports them exactly as a key press.
#include "BusCallCounter.h"
#include "platform/KeyMap.h"
#include "platform/kde/KGlobalAccelHotkey.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusReply>
#include <QSignalSpy>
#include <QTest>

namespace {

constexpr quint32 keyK = 40;
constexpr quint32 ctrlShift = KeyMap::commandMask | KeyMap::shiftMask;
const int ctrlShiftK = (Qt::CTRL | Qt::SHIFT | Qt::Key_K).toCombined();

QDBusMessage callService(const QString& method, const QVariantList& arguments,
                         const QString& path = QStringLiteral("/kglobalaccel"),
                         const QString& interface = QStringLiteral("org.kde.KGlobalAccel"))
{
    QDBusMessage message = QDBusMessage::createMethodCall(QStringLiteral("org.kde.kglobalaccel"),
                                                          path, interface, method);
    message.setArguments(arguments);
    return QDBusConnection::sessionBus().call(message);
}

const QStringList raveloAction{QStringLiteral("ravelo"), QStringLiteral("trigger"),
                               QStringLiteral("Ravelo"), QString()};

QList<int> keysOf(const QStringList& action)
{
    const QDBusReply<QList<int>> keys = callService(QStringLiteral("shortcut"), {action});
    return keys.value();
}

/// Presses Ravelo's action as the service would on its keys; returns once the press has been
/// sent to everyone listening.
bool invokeRavelo(const QString& action = QStringLiteral("trigger"))
{
    const QDBusReply<QDBusObjectPath> component =
        callService(QStringLiteral("getComponent"), {QStringLiteral("ravelo")});
    if (!component.isValid()) {
        return false;
    }
    const QDBusMessage reply =
        callService(QStringLiteral("invokeShortcut"), {action}, component.value().path(),
                    QStringLiteral("org.kde.kglobalaccel.Component"));
    QCoreApplication::processEvents();
    return reply.type() == QDBusMessage::ReplyMessage;
}

} // namespace

class TestKGlobalAccelHotkey : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(KGlobalAccelHotkey::isAvailable()); }

    void pressesArriveUntilUnregistered()
    {
        KGlobalAccelHotkey hotkey;
        QSignalSpy activated(&hotkey, &GlobalHotkey::activated);
        QVERIFY(hotkey.registerHotkey(keyK, ctrlShift));
        QVERIFY(hotkey.isRegistered());
        QCOMPARE(keysOf(raveloAction), QList<int>{ctrlShiftK});

        QVERIFY(invokeRavelo());
        QTRY_COMPARE(activated.size(), 1);
        QVERIFY(invokeRavelo());
        QTRY_COMPARE(activated.size(), 2);

        hotkey.unregisterHotkey();
        QVERIFY(!hotkey.isRegistered());
        QTRY_COMPARE(keysOf(raveloAction), QList<int>{});
        QVERIFY(invokeRavelo());
        QCOMPARE(activated.size(), 2);
    }

    void promptActionsBesideTheTrigger()
    {
        KGlobalAccelHotkey hotkey;
        QSignalSpy activated(&hotkey, &GlobalHotkey::activated);
        const QString prompt = QStringLiteral("prompt-6F9619FF-8B86-D011-B42D-00C04FC964FF");
        const QStringList promptAction{QStringLiteral("ravelo"), prompt, QStringLiteral("Ravelo"),
                                       QString()};
        QVERIFY(hotkey.registerShortcuts(
            {{QString::fromLatin1(GlobalHotkey::triggerId), keyK, ctrlShift, {}},
             {prompt, 49, KeyMap::optionMask, QStringLiteral("Run \u201cTranslate\u201d")}}));
        QVERIFY(hotkey.isRegistered(prompt));
        QCOMPARE(keysOf(promptAction), QList<int>{(Qt::ALT | Qt::Key_Space).toCombined()});
        QCOMPARE(keysOf(raveloAction), QList<int>{ctrlShiftK});

        QVERIFY(invokeRavelo(prompt));
        QTRY_COMPARE(activated.size(), 1);
        QCOMPARE(activated.last().first().toString(), prompt);
        QVERIFY(invokeRavelo());
        QTRY_COMPARE(activated.size(), 2);
        QCOMPARE(activated.last().first().toString(), QStringLiteral("trigger"));

        // Armed again with the trigger alone, the prompt's keys are given back.
        QVERIFY(hotkey.registerHotkey(keyK, ctrlShift));
        QVERIFY(!hotkey.isRegistered(prompt));
        QCOMPARE(keysOf(promptAction), QList<int>{});
        QVERIFY(invokeRavelo(prompt));
        QVERIFY(invokeRavelo());
        QTRY_COMPARE(activated.size(), 3);
        QCOMPARE(activated.last().first().toString(), QStringLiteral("trigger"));
    }

    // Re-arming with unchanged keys, as every preference write does, leaves the service alone;
    // a stop not followed by the same keys frees them.
    void reArmingTheSameKeysKeepsThem()
    {
        BusCallCounter writes(QStringLiteral("org.kde.KGlobalAccel"),
                              QStringLiteral("setShortcut"));
        QVERIFY(writes.start());
        KGlobalAccelHotkey hotkey;
        QSignalSpy activated(&hotkey, &GlobalHotkey::activated);
        QVERIFY(hotkey.registerHotkey(keyK, ctrlShift));
        const int first = writes.count();
        for (int write = 0; write < 3; ++write) {
            hotkey.unregisterHotkey();
            QVERIFY(!hotkey.isRegistered());
            QVERIFY(hotkey.registerHotkey(keyK, ctrlShift));
            QCoreApplication::processEvents();
        }
        QCOMPARE(writes.count(), first);
        QCOMPARE(keysOf(raveloAction), QList<int>{ctrlShiftK});
        QVERIFY(invokeRavelo());
        QTRY_COMPARE(activated.size(), 1);

        hotkey.unregisterHotkey();
        QVERIFY(invokeRavelo());
        QTRY_COMPARE(keysOf(raveloAction), QList<int>{});
        QCOMPARE(activated.size(), 1);
    }

    void combinationHeldByAnotherActionIsRefused()
    {
        const QStringList other{QStringLiteral("otherapp"), QStringLiteral("thing"),
                                QStringLiteral("Other"), QStringLiteral("Thing")};
        callService(QStringLiteral("doRegister"), {other});
        callService(QStringLiteral("setShortcut"),
                    {other, QVariant::fromValue(QList<int>{ctrlShiftK}), 6u});
        QCOMPARE(keysOf(other), QList<int>{ctrlShiftK});

        KGlobalAccelHotkey hotkey;
        QVERIFY(!hotkey.registerHotkey(keyK, ctrlShift));
        QVERIFY(!hotkey.isRegistered());
        QCOMPARE(keysOf(other), QList<int>{ctrlShiftK});
        callService(QStringLiteral("setShortcut"), {other, QVariant::fromValue(QList<int>{}), 6u});
    }
};

QTEST_GUILESS_MAIN(TestKGlobalAccelHotkey)
#include "tst_kglobalaccelhotkey.moc"
