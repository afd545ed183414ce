#include "XTestKeyboard.h"
#include "platform/KeyMap.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11GlobalKeyMonitor.h"

#include <QGuiApplication>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

#include <xkbcommon/xkbcommon-keysyms.h>

using namespace Qt::StringLiterals;
using Seen = QList<QPair<quint32, quint32>>; // key code and modifier mask of each key-down

// What the monitor reports for keys typed by another client, on several layouts.
class TestX11GlobalKeyMonitor : public QObject {
    Q_OBJECT

    XTestKeyboard m_keyboard;
    X11GlobalKeyMonitor m_monitor;
    QSignalSpy m_spy{&m_monitor, &GlobalKeyMonitor::keyPressed};

    // Everything seen until the F12 that closes the sequence.
    Seen seen()
    {
        m_keyboard.tap(XKB_KEY_F12);
        if (!QTest::qWaitFor(
                [this] { return !m_spy.isEmpty() && m_spy.last().at(0).toUInt() == 111; })) {
            return {{0xdead, 0}};
        }
        Seen result;
        for (const QList<QVariant>& args : std::as_const(m_spy)) {
            result.append({args.at(0).toUInt(), args.at(1).toUInt()});
        }
        m_spy.clear();
        result.removeLast();
        return result;
    }

    bool setLayout(const QStringList& arguments)
    {
        QSignalSpy changed(X11Connection::shared().get(), &X11Connection::keymapChanged);
        if (QProcess::execute(u"setxkbmap"_s, arguments) != 0 || !changed.wait(5000)) {
            return false;
        }
        m_keyboard.refreshMapping();
        return true;
    }

private slots:
    void initTestCase()
    {
        QCOMPARE(QGuiApplication::platformName(), u"xcb"_s);
        QVERIFY(m_keyboard.isValid());
        m_keyboard.createFocusedWindow();
        QVERIFY(m_monitor.start());
        QVERIFY(m_monitor.isActive());
        // Every preference write arms the triggers again.
        QVERIFY(m_monitor.start());
    }

    void cleanup()
    {
        if (QTest::currentTestFunction() == QByteArrayView("layouts")) {
            setLayout({u"us"_s});
        }
        m_spy.clear();
    }

    void modifiersOfEachKeyDown_data()
    {
        QTest::addColumn<quint32>("keysym");
        QTest::addColumn<QList<quint32>>("modifierKeysyms");
        QTest::addColumn<bool>("locks");
        QTest::addColumn<quint32>("keyCode");
        QTest::addColumn<quint32>("mask");
        using Keys = QList<quint32>;
        QTest::newRow("c") << quint32(XKB_KEY_c) << Keys{} << false << 8u << 0u;
        QTest::newRow("right Ctrl+C")
            << quint32(XKB_KEY_c) << Keys{XKB_KEY_Control_R} << false << 8u << 256u;
        // Caps Lock and Num Lock are no modifiers.
        QTest::newRow("Ctrl+C, locks on")
            << quint32(XKB_KEY_c) << Keys{XKB_KEY_Control_L} << true << 8u << 256u;
        QTest::newRow("Shift+K") << quint32(XKB_KEY_k) << Keys{XKB_KEY_Shift_L} << false << 40u
                                 << 512u;
        QTest::newRow("Alt+Super+Space")
            << quint32(XKB_KEY_space) << Keys{XKB_KEY_Alt_L, XKB_KEY_Super_L} << false << 49u
            << 6144u;
        QTest::newRow("all four + F5")
            << quint32(XKB_KEY_F5)
            << Keys{XKB_KEY_Control_L, XKB_KEY_Shift_L, XKB_KEY_Alt_L, XKB_KEY_Super_L} << false
            << 96u << 6912u;
        QTest::newRow("an unmapped key")
            << quint32(XKB_KEY_Print) << Keys{} << false << KeyMap::unknownKeyCode << 0u;
    }

    void modifiersOfEachKeyDown()
    {
        QFETCH(quint32, keysym);
        QFETCH(QList<quint32>, modifierKeysyms);
        QFETCH(bool, locks);
        QFETCH(quint32, keyCode);
        QFETCH(quint32, mask);
        const quint16 numLock = m_keyboard.numLockMask();
        QVERIFY(numLock != 0);
        m_keyboard.setLocked(XKB_KEY_Num_Lock, numLock, locks);
        m_keyboard.setLocked(XKB_KEY_Caps_Lock, XCB_MOD_MASK_LOCK, locks);
        m_spy.clear();
        // Typed as fast as the server takes it: the state of each key-down must be the one
        // at that key-down, not the one when the event is read.
        for (const quint32 modifier : modifierKeysyms) {
            m_keyboard.press(m_keyboard.keycode(modifier));
        }
        m_keyboard.press(m_keyboard.keycode(keysym));
        m_keyboard.release(m_keyboard.keycode(keysym));
        for (auto it = modifierKeysyms.crbegin(); it != modifierKeysyms.crend(); ++it) {
            m_keyboard.release(m_keyboard.keycode(*it));
        }
        m_keyboard.tap(keysym);
        const Seen result = seen();
        m_keyboard.setLocked(XKB_KEY_Num_Lock, numLock, false);
        m_keyboard.setLocked(XKB_KEY_Caps_Lock, XCB_MOD_MASK_LOCK, false);
        QCOMPARE(result, (Seen{{keyCode, mask}, {keyCode, 0}}));
    }

    // Moved to another modifier by the user, Super still reads as Super.
    void superOnAnotherModifier()
    {
        QSignalSpy changed(X11Connection::shared().get(), &X11Connection::keymapChanged);
        QCOMPARE(QProcess::execute(u"xmodmap"_s,
                                   {u"-e"_s, u"clear mod4"_s, u"-e"_s, u"add mod3 = Super_L"_s}),
                 0);
        QVERIFY(changed.wait(5000));
        m_keyboard.refreshMapping();
        m_spy.clear();
        m_keyboard.press(m_keyboard.keycode(XKB_KEY_Super_L));
        m_keyboard.tap(XKB_KEY_space);
        m_keyboard.release(m_keyboard.keycode(XKB_KEY_Super_L));
        const Seen result = seen();
        QVERIFY(setLayout({u"us"_s}));
        QCOMPARE(result, (Seen{{49u, 4096u}}));
    }

    // Modifier keys alone report nothing; repeated key-downs are each reported.
    void keyDownsOfOtherKeys()
    {
        const xcb_keycode_t control = m_keyboard.keycode(XKB_KEY_Control_L);
        const xcb_keycode_t c = m_keyboard.keycode(XKB_KEY_c);
        for (int i = 0; i < 3; ++i) {
            m_keyboard.press(control);
            m_keyboard.release(control);
        }
        m_keyboard.tap(XKB_KEY_Shift_R);
        m_keyboard.tap(XKB_KEY_Super_L);
        m_keyboard.press(c);
        m_keyboard.press(c);
        m_keyboard.press(c);
        m_keyboard.release(c);
        QCOMPARE(seen(), (Seen{{8, 0}, {8, 0}, {8, 0}}));
    }

    // The copy key is the key that types c in the active layout; when that layout has no
    // Latin c, the key in the C position.
    void layouts_data()
    {
        QTest::addColumn<QStringList>("setxkbmap");
        QTest::addColumn<int>("group");
        QTest::addColumn<QByteArray>("position");
        QTest::addColumn<quint32>("keyCode");
        const QStringList dvorak{u"-layout"_s, u"us"_s, u"-variant"_s, u"dvorak"_s};
        const QStringList usRu{u"-layout"_s, u"us,ru"_s};
        const QStringList ru{u"ru"_s};
        const quint32 none = KeyMap::unknownKeyCode;
        QTest::newRow("dvorak: the key that types c") << dvorak << 0 << QByteArray("AD08") << 8u;
        QTest::newRow("dvorak: the C position types j") << dvorak << 0 << QByteArray("AB03") << 38u;
        QTest::newRow("Russian: the C position") << ru << 0 << QByteArray("AB03") << 8u;
        QTest::newRow("Russian: another Cyrillic letter") << ru << 0 << QByteArray("AB04") << none;
        QTest::newRow("Greek: the C position")
            << QStringList{u"gr"_s} << 0 << QByteArray("AB03") << 8u;
        QTest::newRow("us,ru: first group") << usRu << 0 << QByteArray("AB03") << 8u;
        QTest::newRow("us,ru: second group") << usRu << 1 << QByteArray("AB03") << 8u;
        QTest::newRow("us,ru: second group, V") << usRu << 1 << QByteArray("AB04") << none;
    }

    void layouts()
    {
        QFETCH(QStringList, setxkbmap);
        QFETCH(int, group);
        QFETCH(QByteArray, position);
        QFETCH(quint32, keyCode);
        QVERIFY(setLayout(setxkbmap));
        m_keyboard.lockGroup(group);
        const xcb_keycode_t key = m_keyboard.keycodeAt(position.constData());
        QVERIFY(key != 0);
        m_keyboard.tapKeycode(key, {XKB_KEY_Control_L});
        m_keyboard.lockGroup(0);
        QCOMPARE(seen(), (Seen{{keyCode, 256}}));
    }
};

QTEST_MAIN(TestX11GlobalKeyMonitor)
#include "tst_x11globalkeymonitor.moc"
