#include "XTestKeyboard.h"
#include "platform/KeyMap.h"
#include "platform/PlatformServices.h"
#include "platform/x11/X11GlobalKeyMonitor.h"
#include "triggers/HotkeyManager.h"

#include <QGuiApplication>
#include <QSignalSpy>
#include <QTest>

#include <xkbcommon/xkbcommon-keysyms.h>

using namespace Qt::StringLiterals;

namespace {

QStringList warnings;

void collectWarnings(QtMsgType type, const QMessageLogContext&, const QString& message)
{
    if (type != QtDebugMsg && type != QtInfoMsg) {
        warnings.append(message);
    }
}

constexpr quint32 keyK = 40;
constexpr quint32 ctrlShift = KeyMap::commandMask | KeyMap::shiftMask;
constexpr quint16 x11Control = XCB_MOD_MASK_CONTROL;
constexpr quint16 x11Shift = XCB_MOD_MASK_SHIFT;

} // namespace

// The trigger manager on a real X server, typed at through XTest by another client that
// holds the input focus.
class TestHotkeyManager : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<XTestKeyboard> m_keyboard;
    std::unique_ptr<HotkeyManager> m_manager;
    std::unique_ptr<X11GlobalKeyMonitor> m_sentinelMonitor;
    int m_calls = 0;

    // Makes sure everything typed so far has been handled and every trigger it queued has
    // run: taps a key that nobody uses and waits until it has been seen.
    void settle()
    {
        QSignalSpy seen(m_sentinelMonitor.get(), &GlobalKeyMonitor::keyPressed);
        m_keyboard->tap(XKB_KEY_F12);
        QTRY_VERIFY(std::any_of(seen.cbegin(), seen.cend(), [](const QList<QVariant>& args) {
            return args.at(0).toUInt() == 111;
        }));
        QCoreApplication::sendPostedEvents();
    }

    void doubleCopy(quint32 ctrlKeysym = XKB_KEY_Control_L)
    {
        m_keyboard->tap(XKB_KEY_c, {ctrlKeysym});
        m_keyboard->tap(XKB_KEY_c, {ctrlKeysym});
    }

    void pressHotkey() { m_keyboard->tap(XKB_KEY_k, {XKB_KEY_Control_L, XKB_KEY_Shift_L}); }

    void setLock(quint32 keysym, bool on)
    {
        const quint16 bit =
            keysym == XKB_KEY_Num_Lock ? m_keyboard->numLockMask() : quint16(XCB_MOD_MASK_LOCK);
        QVERIFY(bit != 0);
        m_keyboard->setLocked(keysym, bit, on);
        QCOMPARE(m_keyboard->isLocked(bit), on);
    }

private slots:
    void initTestCase()
    {
        QCOMPARE(QGuiApplication::platformName(), QStringLiteral("xcb"));
        QCOMPARE(PlatformServices::hotkeyPath(), PlatformServices::HotkeyPath::X11Grab);
        m_keyboard = std::make_unique<XTestKeyboard>();
        QVERIFY(m_keyboard->isValid());
        m_keyboard->createFocusedWindow();
        m_sentinelMonitor = std::make_unique<X11GlobalKeyMonitor>();
        QVERIFY(m_sentinelMonitor->start());
    }

    void init()
    {
        m_calls = 0;
        warnings.clear();
        m_manager = std::make_unique<HotkeyManager>();
        m_manager->onTrigger = [this] { ++m_calls; };
        m_keyboard->takeKeyPresses();
    }

    void cleanup()
    {
        qInstallMessageHandler(nullptr);
        m_manager.reset();
        setLock(XKB_KEY_Num_Lock, false);
        setLock(XKB_KEY_Caps_Lock, false);
    }

    void doubleCopyInAnotherApplicationFiresOnce_data()
    {
        QTest::addColumn<quint32>("ctrl");
        QTest::newRow("left Ctrl") << quint32(XKB_KEY_Control_L);
        QTest::newRow("right Ctrl") << quint32(XKB_KEY_Control_R);
    }

    void doubleCopyInAnotherApplicationFiresOnce()
    {
        QFETCH(quint32, ctrl);
        m_manager->startDoubleCopyMonitor();
        QVERIFY(m_manager->isDoubleCopyMonitorActive());
        QSignalSpy triggered(m_manager.get(), &HotkeyManager::triggered);

        doubleCopy(ctrl);
        QVERIFY(triggered.wait());
        settle();
        QCOMPARE(triggered.size(), 1);
        QCOMPARE(m_calls, 1);
        // Nothing was taken from the focused application: it saw both presses of C.
        const QList<xcb_keycode_t> presses = m_keyboard->takeKeyPresses();
        QCOMPARE(presses.count(m_keyboard->keycode(XKB_KEY_c)), 2);
    }

    void doubleCopyWithLocksOn()
    {
        setLock(XKB_KEY_Caps_Lock, true);
        setLock(XKB_KEY_Num_Lock, true);
        m_manager->startDoubleCopyMonitor();
        doubleCopy();
        settle();
        QCOMPARE(m_calls, 1);
    }

    void otherShortcutsFireNothing_data()
    {
        QTest::addColumn<quint32>("extra");
        QTest::newRow("Ctrl+Shift+C") << quint32(XKB_KEY_Shift_L);
        QTest::newRow("Ctrl+Alt+C") << quint32(XKB_KEY_Alt_L);
        QTest::newRow("Ctrl+Super+C") << quint32(XKB_KEY_Super_L);
    }

    void otherShortcutsFireNothing()
    {
        QFETCH(quint32, extra);
        m_manager->startDoubleCopyMonitor();
        m_keyboard->tap(XKB_KEY_c, {XKB_KEY_Control_L, extra});
        m_keyboard->tap(XKB_KEY_c, {XKB_KEY_Control_L, extra});
        // ...and one of them between two copies clears the first.
        m_keyboard->tap(XKB_KEY_c, {XKB_KEY_Control_L});
        m_keyboard->tap(XKB_KEY_c, {XKB_KEY_Control_L, extra});
        m_keyboard->tap(XKB_KEY_c, {XKB_KEY_Control_L});
        settle();
        QCOMPARE(m_calls, 0);
    }

    void anotherKeyBetweenTheCopiesFiresNothing()
    {
        m_manager->startDoubleCopyMonitor();
        m_keyboard->tap(XKB_KEY_c, {XKB_KEY_Control_L});
        m_keyboard->tap(XKB_KEY_v);
        m_keyboard->tap(XKB_KEY_c, {XKB_KEY_Control_L});
        settle();
        QCOMPARE(m_calls, 0);
    }

    void holdingCtrlAcrossBothPressesFires()
    {
        m_manager->startDoubleCopyMonitor();
        const xcb_keycode_t control = m_keyboard->keycode(XKB_KEY_Control_L);
        m_keyboard->press(control);
        m_keyboard->tap(XKB_KEY_c);
        m_keyboard->tap(XKB_KEY_c);
        m_keyboard->release(control);
        settle();
        QCOMPARE(m_calls, 1);
    }

    void hotkeyFiresOncePerPress_data()
    {
        QTest::addColumn<bool>("numLock");
        QTest::addColumn<bool>("capsLock");
        QTest::newRow("locks off") << false << false;
        QTest::newRow("Num Lock on") << true << false;
        QTest::newRow("Caps Lock on") << false << true;
        QTest::newRow("both on") << true << true;
    }

    void hotkeyFiresOncePerPress()
    {
        QFETCH(bool, numLock);
        QFETCH(bool, capsLock);
        setLock(XKB_KEY_Num_Lock, numLock);
        setLock(XKB_KEY_Caps_Lock, capsLock);
        m_manager->registerHotkey(keyK, ctrlShift);
        QVERIFY(m_manager->isHotkeyRegistered());
        QSignalSpy triggered(m_manager.get(), &HotkeyManager::triggered);

        pressHotkey();
        QVERIFY(triggered.wait());
        pressHotkey();
        QTRY_COMPARE(triggered.size(), 2);
        settle();
        QCOMPARE(m_calls, 2);
        // K alone and K with other modifiers are not the hotkey.
        m_keyboard->tap(XKB_KEY_k);
        m_keyboard->tap(XKB_KEY_k, {XKB_KEY_Control_L});
        settle();
        QCOMPARE(m_calls, 2);
    }

    void heldHotkeyFiresOnce()
    {
        m_manager->registerHotkey(keyK, ctrlShift);
        const xcb_keycode_t k = m_keyboard->keycode(XKB_KEY_k);
        const xcb_keycode_t control = m_keyboard->keycode(XKB_KEY_Control_L);
        const xcb_keycode_t shift = m_keyboard->keycode(XKB_KEY_Shift_L);
        m_keyboard->press(control);
        m_keyboard->press(shift);
        // What auto-repeat sends: presses without releases in between.
        m_keyboard->press(k);
        m_keyboard->press(k);
        m_keyboard->press(k);
        m_keyboard->release(k);
        m_keyboard->release(shift);
        m_keyboard->release(control);
        m_keyboard->sync();
        settle();
        QCOMPARE(m_calls, 1);
    }

    void hotkeyHeldByAnotherClientFailsSilently()
    {
        const xcb_keycode_t k = m_keyboard->keycode(XKB_KEY_k);
        QCOMPARE(m_keyboard->grabKey(k, x11Control | x11Shift), quint8(0));
        qInstallMessageHandler(collectWarnings);

        m_manager->startDoubleCopyMonitor();
        m_manager->registerHotkey(keyK, ctrlShift);
        QVERIFY(!m_manager->isHotkeyRegistered());
        pressHotkey();
        settle();
        QCOMPARE(m_calls, 0);

        // Double copy is unaffected.
        doubleCopy();
        settle();
        QCOMPARE(m_calls, 1);
        QVERIFY2(warnings.isEmpty(), qPrintable(warnings.join(u'\n')));
        m_keyboard->ungrabKey(k, x11Control | x11Shift);

        // The partial grabs were given back: once the other client lets go, a new
        // registration gets every combination.
        m_manager->stop();
        m_manager->registerHotkey(keyK, ctrlShift);
        QVERIFY(m_manager->isHotkeyRegistered());
    }

    void stopReleasesEverythingAndForgetsAPendingCopy()
    {
        // The clock stands still: a press from before stop would still be recent enough.
        // No other key may come between the copy presses here, so no settle() there.
        const DoubleCopyDetector::Clock::time_point frozen = DoubleCopyDetector::Clock::now();
        m_manager->setClock([frozen] { return frozen; });
        m_manager->startDoubleCopyMonitor();
        m_manager->registerHotkey(keyK, ctrlShift);
        m_keyboard->tap(XKB_KEY_c, {XKB_KEY_Control_L});
        QTRY_VERIFY(m_manager->lastCopyPress().has_value());
        m_manager->stop();
        QVERIFY(!m_manager->isDoubleCopyMonitorActive());
        QVERIFY(!m_manager->isHotkeyRegistered());

        // Armed again, one copy press is the first of a new pair.
        m_manager->startDoubleCopyMonitor();
        m_keyboard->tap(XKB_KEY_c, {XKB_KEY_Control_L});
        QTRY_VERIFY(m_manager->lastCopyPress().has_value());
        QCoreApplication::sendPostedEvents();
        QCOMPARE(m_calls, 0);
        m_keyboard->tap(XKB_KEY_c, {XKB_KEY_Control_L});
        QTRY_COMPARE(m_calls, 1);

        // Stopped, nothing fires, and the grab is given back to the server: another client
        // can take the combination.
        m_manager->stop();
        doubleCopy();
        pressHotkey();
        settle();
        QCOMPARE(m_calls, 1);
        const xcb_keycode_t k = m_keyboard->keycode(XKB_KEY_k);
        QCOMPARE(m_keyboard->grabKey(k, x11Control | x11Shift), quint8(0));
        m_keyboard->ungrabKey(k, x11Control | x11Shift);
        m_keyboard->sync();

        // Registered again, the hotkey fires.
        m_manager->registerHotkey(keyK, ctrlShift);
        QVERIFY(m_manager->isHotkeyRegistered());
        pressHotkey();
        QTRY_COMPARE(m_calls, 2);
    }

    void promptHotkeysFireBesideTheTrigger()
    {
        const QUuid translate = QUuid::createUuid();
        const QUuid summarise = QUuid::createUuid();
        const QString trigger = QString::fromLatin1(GlobalHotkey::triggerId);
        // The third one repeats the trigger's keys: only the first of the two is taken.
        m_manager->registerHotkeys(
            {{trigger, keyK, ctrlShift, {}},
             {HotkeyManager::promptShortcutId(translate), 49, KeyMap::optionMask, u"Translate"_s},
             {HotkeyManager::promptShortcutId(summarise), keyK, ctrlShift, u"Summarise"_s}});
        QVERIFY(m_manager->isHotkeyRegistered());
        QVERIFY(m_manager->isPromptHotkeyRegistered(translate));
        QVERIFY(!m_manager->isPromptHotkeyRegistered(summarise));
        QList<QUuid> prompts;
        m_manager->onPromptHotkey = [&prompts](const QUuid& id) { prompts.append(id); };
        QSignalSpy promptTriggered(m_manager.get(), &HotkeyManager::promptTriggered);

        m_keyboard->tap(XKB_KEY_space, {XKB_KEY_Alt_L});
        QVERIFY(promptTriggered.wait());
        pressHotkey();
        m_keyboard->tap(XKB_KEY_space, {XKB_KEY_Alt_L});
        settle();
        QCOMPARE(prompts, (QList<QUuid>{translate, translate}));
        QCOMPARE(m_calls, 1);
        // The focused application saw none of the grabbed presses.
        QCOMPARE(m_keyboard->takeKeyPresses().count(m_keyboard->keycode(XKB_KEY_space)), 0);

        // Re-armed without the prompt, its keys are free again.
        m_manager->stop();
        m_manager->registerHotkey(keyK, ctrlShift);
        QVERIFY(!m_manager->isPromptHotkeyRegistered(translate));
        m_keyboard->tap(XKB_KEY_space, {XKB_KEY_Alt_L});
        settle();
        QCOMPARE(prompts.size(), 2);
        QCOMPARE(m_keyboard->takeKeyPresses().count(m_keyboard->keycode(XKB_KEY_space)), 1);
    }

    void rearmingReplacesTheHotkey()
    {
        m_manager->registerHotkey(keyK, ctrlShift);
        m_manager->stop();
        // Alt+Space, the way the owner re-arms after a preference change.
        m_manager->registerHotkey(49, KeyMap::optionMask);
        QVERIFY(m_manager->isHotkeyRegistered());
        pressHotkey();
        m_keyboard->tap(XKB_KEY_space, {XKB_KEY_Alt_L});
        settle();
        QCOMPARE(m_calls, 1);
    }
};

QTEST_MAIN(TestHotkeyManager)
#include "tst_hotkeymanager.moc"
