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

using namespace Qt::StringLiterals;

namespace {

constexpr quint32 keyK = 40;
constexpr quint32 ctrlShift = KeyMap::commandMask | KeyMap::shiftMask;
const int ctrlShiftK = (Qt::CTRL | Qt::SHIFT | Qt::Key_K).toCombined();
const QString prompt = u"prompt-6F9619FF-8B86-D011-B42D-00C04FC964FF"_s;

QDBusMessage callService(const QString& method, const QVariantList& arguments,
                         const QString& path = u"/kglobalaccel"_s,
                         const QString& interface = u"org.kde.KGlobalAccel"_s)
{
    QDBusMessage message =
        QDBusMessage::createMethodCall(u"org.kde.kglobalaccel"_s, path, interface, method);
    message.setArguments(arguments);
    return QDBusConnection::sessionBus().call(message);
}

QList<int> keysOf(const QString& action)
{
    const QDBusReply<QList<int>> keys =
        callService(u"shortcut"_s, {QStringList{u"ravelo"_s, action, u"Ravelo"_s, QString()}});
    return keys.value();
}

/// Presses Ravelo's action as the service would on its keys; returns once the press has been
/// sent to everyone listening.
bool invoke(const QString& action = u"trigger"_s)
{
    const QDBusReply<QDBusObjectPath> component = callService(u"getComponent"_s, {u"ravelo"_s});
    if (!component.isValid()) {
        return false;
    }
    const QDBusMessage reply = callService(u"invokeShortcut"_s, {action}, component.value().path(),
                                           u"org.kde.kglobalaccel.Component"_s);
    QCoreApplication::processEvents();
    return reply.type() == QDBusMessage::ReplyMessage;
}

} // namespace

class TestKGlobalAccelHotkey : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(KGlobalAccelHotkey::isAvailable()); }

    // Re-arming with unchanged keys, as every preference write does, leaves the service alone;
    // armed again with the trigger alone, the prompt's keys are given back, and a stop not
    // followed by the same keys frees the trigger's.
    void promptActionsBesideTheTrigger()
    {
        BusCallCounter writes(u"org.kde.KGlobalAccel"_s, u"setShortcut"_s);
        QVERIFY(writes.start());
        KGlobalAccelHotkey hotkey;
        QSignalSpy activated(&hotkey, &GlobalHotkey::activated);
        const QList<GlobalHotkey::Shortcut> both{
            {QString::fromLatin1(GlobalHotkey::triggerId), keyK, ctrlShift, {}},
            {prompt, 49, KeyMap::optionMask, u"Run \u201cTranslate\u201d"_s}};
        QVERIFY(hotkey.registerShortcuts(both));
        const int first = writes.count();
        for (int write = 0; write < 3; ++write) {
            hotkey.unregisterHotkey();
            QVERIFY(!hotkey.isRegistered());
            QVERIFY(hotkey.registerShortcuts(both));
            QCoreApplication::processEvents();
        }
        QCOMPARE(writes.count(), first);
        QVERIFY(hotkey.isRegistered(prompt));
        QCOMPARE(keysOf(prompt), QList<int>{(Qt::ALT | Qt::Key_Space).toCombined()});
        QCOMPARE(keysOf(u"trigger"_s), QList<int>{ctrlShiftK});

        QVERIFY(invoke(prompt));
        QTRY_COMPARE(activated.size(), 1);
        QCOMPARE(activated.last().first().toString(), prompt);
        QVERIFY(invoke());
        QTRY_COMPARE(activated.size(), 2);
        QCOMPARE(activated.last().first().toString(), u"trigger"_s);

        QVERIFY(hotkey.registerHotkey(keyK, ctrlShift));
        QVERIFY(!hotkey.isRegistered(prompt));
        QCOMPARE(keysOf(prompt), QList<int>{});
        QVERIFY(invoke(prompt));
        QVERIFY(invoke());
        QTRY_COMPARE(activated.size(), 3);
        QCOMPARE(activated.last().first().toString(), u"trigger"_s);

        hotkey.unregisterHotkey();
        QVERIFY(invoke());
        QTRY_COMPARE(keysOf(u"trigger"_s), QList<int>{});
        QCOMPARE(activated.size(), 3);
    }

    void combinationHeldByAnotherActionIsRefused()
    {
        const QStringList other{u"otherapp"_s, u"thing"_s, u"Other"_s, u"Thing"_s};
        callService(u"doRegister"_s, {other});
        callService(u"setShortcut"_s, {other, QVariant::fromValue(QList<int>{ctrlShiftK}), 6u});
        KGlobalAccelHotkey hotkey;
        QVERIFY(!hotkey.registerHotkey(keyK, ctrlShift));
        QVERIFY(!hotkey.isRegistered());
        const QDBusReply<QList<int>> keys = callService(u"shortcut"_s, {other});
        QCOMPARE(keys.value(), QList<int>{ctrlShiftK});
        callService(u"setShortcut"_s, {other, QVariant::fromValue(QList<int>{}), 6u});
    }
};

QTEST_GUILESS_MAIN(TestKGlobalAccelHotkey)
#include "tst_kglobalaccelhotkey.moc"
