#include "XTestKeyboard.h"
#include "platform/KeyMap.h"
#include "platform/PlatformServices.h"
#include "platform/x11/X11GlobalKeyMonitor.h"
#include "triggers/HotkeyManager.h"

#include <QGuiApplication>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

#include <xkbcommon/xkbcommon-keysyms.h>

using namespace Qt::StringLiterals;

namespace {

constexpr quint32 keyK = 40;
constexpr quint32 ctrlShift = KeyMap::commandMask | KeyMap::shiftMask;
constexpr quint16 x11CtrlShift = XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_SHIFT;

} // namespace

// The trigger manager on a real X server, typed at through XTest by another client that
// holds the input focus.
class TestHotkeyManager : public QObject {
    Q_OBJECT

    XTestKeyboard m_keyboard;
    std::unique_ptr<HotkeyManager> m_manager;
    X11GlobalKeyMonitor m_sentinel;
    int m_calls = 0;

    // Makes sure everything typed so far has been handled and every trigger it queued has
    // run: taps a key that nobody uses and waits until it has been seen.
    void settle()
    {
        QSignalSpy seen(&m_sentinel, &GlobalKeyMonitor::keyPressed);
        m_keyboard.tap(XKB_KEY_F12);
        QTRY_VERIFY(std::any_of(seen.cbegin(), seen.cend(), [](const QList<QVariant>& args) {
            return args.at(0).toUInt() == 111;
        }));
        QCoreApplication::sendPostedEvents();
    }

    void copy(std::initializer_list<quint32> modifiers = {XKB_KEY_Control_L})
    {
        m_keyboard.tap(XKB_KEY_c, modifiers);
    }

    void pressHotkey() { m_keyboard.tap(XKB_KEY_k, {XKB_KEY_Control_L, XKB_KEY_Shift_L}); }

    void setLocks(bool numLock, bool capsLock)
    {
        m_keyboard.setLocked(XKB_KEY_Num_Lock, m_keyboard.numLockMask(), numLock);
        m_keyboard.setLocked(XKB_KEY_Caps_Lock, XCB_MOD_MASK_LOCK, capsLock);
        QCOMPARE(m_keyboard.isLocked(m_keyboard.numLockMask()), numLock);
        QCOMPARE(m_keyboard.isLocked(XCB_MOD_MASK_LOCK), capsLock);
    }

private slots:
    void initTestCase()
    {
        QCOMPARE(QGuiApplication::platformName(), u"xcb"_s);
        QCOMPARE(PlatformServices::hotkeyPath(), PlatformServices::HotkeyPath::X11Grab);
        QVERIFY(m_keyboard.isValid());
        QVERIFY(m_keyboard.numLockMask() != 0);
        m_keyboard.createFocusedWindow();
        QVERIFY(m_sentinel.start());
    }

    void init()
    {
        m_calls = 0;
        m_manager = std::make_unique<HotkeyManager>();
        m_manager->onTrigger = [this] { ++m_calls; };
        m_keyboard.takeKeyPresses();
    }

    void cleanup()
    {
        m_manager.reset();
        setLocks(false, false);
    }

    void doubleCopyFiresOnce_data()
    {
        QTest::addColumn<bool>("ctrlHeld");
        QTest::newRow("Ctrl pressed for each copy") << false;
        QTest::newRow("Ctrl held across both") << true;
    }

    void doubleCopyFiresOnce()
    {
        QFETCH(bool, ctrlHeld);
        m_manager->startDoubleCopyMonitor();
        QVERIFY(m_manager->isDoubleCopyMonitorActive());
        QSignalSpy triggered(m_manager.get(), &HotkeyManager::triggered);
        if (ctrlHeld) {
            m_keyboard.press(m_keyboard.keycode(XKB_KEY_Control_L));
            copy({});
            copy({});
            m_keyboard.release(m_keyboard.keycode(XKB_KEY_Control_L));
        } else {
            copy();
            copy();
        }
        QVERIFY(triggered.wait());
        settle();
        QCOMPARE(triggered.size(), 1);
        QCOMPARE(m_calls, 1);
        // Nothing was taken from the focused application: it saw both presses of C.
        QCOMPARE(m_keyboard.takeKeyPresses().count(m_keyboard.keycode(XKB_KEY_c)), 2);
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
        setLocks(numLock, capsLock);
        m_manager->registerHotkey(keyK, ctrlShift);
        QVERIFY(m_manager->isHotkeyRegistered());
        QSignalSpy triggered(m_manager.get(), &HotkeyManager::triggered);
        pressHotkey();
        QVERIFY(triggered.wait());
        pressHotkey();
        // K alone and K with other modifiers are not the hotkey.
        m_keyboard.tap(XKB_KEY_k);
        m_keyboard.tap(XKB_KEY_k, {XKB_KEY_Control_L});
        settle();
        QCOMPARE(m_calls, 2);
        QCOMPARE(triggered.size(), 2);

        // Held: what auto-repeat sends, presses without releases in between, fires once.
        const xcb_keycode_t k = m_keyboard.keycode(XKB_KEY_k);
        const xcb_keycode_t control = m_keyboard.keycode(XKB_KEY_Control_L);
        const xcb_keycode_t shift = m_keyboard.keycode(XKB_KEY_Shift_L);
        m_keyboard.press(control);
        m_keyboard.press(shift);
        m_keyboard.press(k);
        m_keyboard.press(k);
        m_keyboard.press(k);
        m_keyboard.release(k);
        m_keyboard.release(shift);
        m_keyboard.release(control);
        settle();
        QCOMPARE(m_calls, 3);
    }

    void hotkeyHeldByAnotherClientFailsSilently()
    {
        const xcb_keycode_t k = m_keyboard.keycode(XKB_KEY_k);
        QCOMPARE(m_keyboard.grabKey(k, x11CtrlShift), quint8(0));
        QTest::failOnWarning(QRegularExpression(u"."_s));
        m_manager->startDoubleCopyMonitor();
        m_manager->registerHotkey(keyK, ctrlShift);
        QVERIFY(!m_manager->isHotkeyRegistered());
        pressHotkey();
        // Double copy is unaffected.
        copy();
        copy();
        settle();
        QCOMPARE(m_calls, 1);
        m_keyboard.ungrabKey(k, x11CtrlShift);

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
        copy();
        QTRY_VERIFY(m_manager->lastCopyPress().has_value());
        m_manager->stop();
        QVERIFY(!m_manager->isDoubleCopyMonitorActive());
        QVERIFY(!m_manager->isHotkeyRegistered());

        // Armed again, one copy press is the first of a new pair.
        m_manager->startDoubleCopyMonitor();
        copy();
        QTRY_VERIFY(m_manager->lastCopyPress().has_value());
        QCoreApplication::sendPostedEvents();
        QCOMPARE(m_calls, 0);
        copy();
        QTRY_COMPARE(m_calls, 1);

        // Stopped, nothing fires, and the grab is given back to the server: another client
        // can take the combination.
        m_manager->stop();
        copy();
        copy();
        pressHotkey();
        settle();
        QCOMPARE(m_calls, 1);
        const xcb_keycode_t k = m_keyboard.keycode(XKB_KEY_k);
        QCOMPARE(m_keyboard.grabKey(k, x11CtrlShift), quint8(0));
        m_keyboard.ungrabKey(k, x11CtrlShift);
    }

    void promptHotkeysFireBesideTheTrigger()
    {
        const QUuid translate = QUuid::createUuid();
        const QUuid summarise = QUuid::createUuid();
        // The third one repeats the trigger's keys: only the first of the two is taken.
        m_manager->registerHotkeys(
            {{QString::fromLatin1(GlobalHotkey::triggerId), keyK, ctrlShift, {}},
             {HotkeyManager::promptShortcutId(translate), 49, KeyMap::optionMask, u"Translate"_s},
             {HotkeyManager::promptShortcutId(summarise), keyK, ctrlShift, u"Summarise"_s}});
        QVERIFY(m_manager->isHotkeyRegistered());
        QVERIFY(m_manager->isPromptHotkeyRegistered(translate));
        QVERIFY(!m_manager->isPromptHotkeyRegistered(summarise));
        QList<QUuid> prompts;
        m_manager->onPromptHotkey = [&prompts](const QUuid& id) { prompts.append(id); };
        QSignalSpy promptTriggered(m_manager.get(), &HotkeyManager::promptTriggered);

        m_keyboard.tap(XKB_KEY_space, {XKB_KEY_Alt_L});
        QVERIFY(promptTriggered.wait());
        pressHotkey();
        m_keyboard.tap(XKB_KEY_space, {XKB_KEY_Alt_L});
        settle();
        QCOMPARE(prompts, (QList<QUuid>{translate, translate}));
        QCOMPARE(m_calls, 1);
        // The focused application saw none of the grabbed presses.
        QCOMPARE(m_keyboard.takeKeyPresses().count(m_keyboard.keycode(XKB_KEY_space)), 0);

        // Re-armed without the prompt, its keys are free again.
        m_manager->stop();
        m_manager->registerHotkey(keyK, ctrlShift);
        QVERIFY(!m_manager->isPromptHotkeyRegistered(translate));
        m_keyboard.tap(XKB_KEY_space, {XKB_KEY_Alt_L});
        settle();
        QCOMPARE(prompts.size(), 2);
        QCOMPARE(m_keyboard.takeKeyPresses().count(m_keyboard.keycode(XKB_KEY_space)), 1);
    }
};

QTEST_MAIN(TestHotkeyManager)
#include "tst_hotkeymanager.moc"
