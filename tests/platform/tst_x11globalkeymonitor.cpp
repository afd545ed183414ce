#include "XTestKeyboard.h"
#include "platform/KeyMap.h"
#include "platform/x11/X11Connection.h"
#include "platform/x11/X11GlobalKeyMonitor.h"

#include <QGuiApplication>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

#include <xkbcommon/xkbcommon-keysyms.h>

namespace {

struct Seen {
    quint32 keyCode;
    quint32 modifiers;
    friend bool operator==(const Seen&, const Seen&) = default;
};

char* toString(const Seen& seen)
{
    return QTest::toString(QStringLiteral("(%1, %2)").arg(seen.keyCode).arg(seen.modifiers));
}

} // namespace

// What the monitor reports for keys typed by another client, on several layouts.
class TestX11GlobalKeyMonitor : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<XTestKeyboard> m_keyboard;
    std::unique_ptr<X11GlobalKeyMonitor> m_monitor;
    std::unique_ptr<QSignalSpy> m_spy;

    // Everything seen until the F12 that closes the sequence.
    QList<Seen> seen()
    {
        m_keyboard->tap(XKB_KEY_F12);
        QList<Seen> result;
        const bool complete = QTest::qWaitFor(
            [this] { return !m_spy->isEmpty() && m_spy->last().at(0).toUInt() == 111; });
        if (!complete) {
            return {{0xdead, 0}};
        }
        for (const QList<QVariant>& args : std::as_const(*m_spy)) {
            result.append({args.at(0).toUInt(), args.at(1).toUInt()});
        }
        m_spy->clear();
        result.removeLast();
        return result;
    }

    bool setLayout(const QStringList& arguments)
    {
        const std::shared_ptr<X11Connection> connection = X11Connection::shared();
        QSignalSpy changed(connection.get(), &X11Connection::keymapChanged);
        if (QProcess::execute(QStringLiteral("setxkbmap"), arguments) != 0) {
            return false;
        }
        if (!changed.wait(5000)) {
            return false;
        }
        m_keyboard->refreshMapping();
        return true;
    }

private slots:
    void initTestCase()
    {
        QCOMPARE(QGuiApplication::platformName(), QStringLiteral("xcb"));
        m_keyboard = std::make_unique<XTestKeyboard>();
        QVERIFY(m_keyboard->isValid());
        m_keyboard->createFocusedWindow();
        m_monitor = std::make_unique<X11GlobalKeyMonitor>();
        QVERIFY(m_monitor->start());
        QVERIFY(m_monitor->isActive());
        m_spy = std::make_unique<QSignalSpy>(m_monitor.get(), &GlobalKeyMonitor::keyPressed);
    }

    void cleanup()
    {
        if (QTest::currentTestFunction() == QByteArrayLiteral("layouts")) {
            setLayout({QStringLiteral("us")});
        }
        m_spy->clear();
    }

    void modifiersOfEachKeyDown_data()
    {
        QTest::addColumn<quint32>("keysym");
        QTest::addColumn<QList<quint32>>("modifierKeysyms");
        QTest::addColumn<quint32>("keyCode");
        QTest::addColumn<quint32>("mask");
        QTest::newRow("c") << quint32(XKB_KEY_c) << QList<quint32>{} << 8u << 0u;
        QTest::newRow("Ctrl+C") << quint32(XKB_KEY_c) << QList<quint32>{XKB_KEY_Control_L} << 8u
                                << 256u;
        QTest::newRow("right Ctrl+C")
            << quint32(XKB_KEY_c) << QList<quint32>{XKB_KEY_Control_R} << 8u << 256u;
        QTest::newRow("Shift+K") << quint32(XKB_KEY_k) << QList<quint32>{XKB_KEY_Shift_L} << 40u
                                 << 512u;
        QTest::newRow("Alt+Super+Space")
            << quint32(XKB_KEY_space) << QList<quint32>{XKB_KEY_Alt_L, XKB_KEY_Super_L} << 49u
            << 6144u;
        QTest::newRow("all four + F5")
            << quint32(XKB_KEY_F5)
            << QList<quint32>{XKB_KEY_Control_L, XKB_KEY_Shift_L, XKB_KEY_Alt_L, XKB_KEY_Super_L}
            << 96u << 6912u;
        QTest::newRow("an unmapped key")
            << quint32(XKB_KEY_Print) << QList<quint32>{} << KeyMap::unknownKeyCode << 0u;
    }

    void modifiersOfEachKeyDown()
    {
        QFETCH(quint32, keysym);
        QFETCH(QList<quint32>, modifierKeysyms);
        QFETCH(quint32, keyCode);
        QFETCH(quint32, mask);
        // Typed as fast as the server takes it: the state of each key-down must be the one
        // at that key-down, not the one when the event is read.
        for (const quint32 modifier : modifierKeysyms) {
            m_keyboard->press(m_keyboard->keycode(modifier));
        }
        m_keyboard->press(m_keyboard->keycode(keysym));
        m_keyboard->release(m_keyboard->keycode(keysym));
        for (auto it = modifierKeysyms.crbegin(); it != modifierKeysyms.crend(); ++it) {
            m_keyboard->release(m_keyboard->keycode(*it));
        }
        m_keyboard->tap(keysym);
        QCOMPARE(seen(), (QList<Seen>{{keyCode, mask}, {keyCode, 0}}));
    }

    void locksAreNoModifiers()
    {
        const quint16 numLock = m_keyboard->numLockMask();
        QVERIFY(numLock != 0);
        m_keyboard->setLocked(XKB_KEY_Num_Lock, numLock, true);
        m_keyboard->setLocked(XKB_KEY_Caps_Lock, XCB_MOD_MASK_LOCK, true);
        m_spy->clear();
        m_keyboard->tap(XKB_KEY_c, {XKB_KEY_Control_L});
        const QList<Seen> withLocks = seen();
        m_keyboard->setLocked(XKB_KEY_Num_Lock, numLock, false);
        m_keyboard->setLocked(XKB_KEY_Caps_Lock, XCB_MOD_MASK_LOCK, false);
        m_spy->clear();
        QCOMPARE(withLocks, (QList<Seen>{{8, 256}}));
    }

    void modifierKeysAloneReportNothing()
    {
        const xcb_keycode_t control = m_keyboard->keycode(XKB_KEY_Control_L);
        for (int i = 0; i < 3; ++i) {
            m_keyboard->press(control);
            m_keyboard->release(control);
        }
        m_keyboard->tap(XKB_KEY_Shift_R);
        m_keyboard->tap(XKB_KEY_Super_L);
        QCOMPARE(seen(), QList<Seen>{});
    }

    void repeatedKeyDownsAreReported()
    {
        const xcb_keycode_t c = m_keyboard->keycode(XKB_KEY_c);
        m_keyboard->press(c);
        m_keyboard->press(c);
        m_keyboard->press(c);
        m_keyboard->release(c);
        QCOMPARE(seen(), (QList<Seen>{{8, 0}, {8, 0}, {8, 0}}));
    }

    // The copy key is the key that types c in the active layout; when that layout has no
    // Latin c, the key in the C position.
    void layouts_data()
    {
        QTest::addColumn<QStringList>("setxkbmap");
        QTest::addColumn<int>("group");
        QTest::addColumn<QByteArray>("position");
        QTest::addColumn<quint32>("keyCode");
        const QStringList dvorak{QStringLiteral("-layout"), QStringLiteral("us"),
                                 QStringLiteral("-variant"), QStringLiteral("dvorak")};
        const QStringList usRu{QStringLiteral("-layout"), QStringLiteral("us,ru")};
        QTest::newRow("dvorak: the key that types c") << dvorak << 0 << QByteArray("AD08") << 8u;
        QTest::newRow("dvorak: the C position types j") << dvorak << 0 << QByteArray("AB03") << 38u;
        QTest::newRow("Russian: the C position")
            << QStringList{QStringLiteral("ru")} << 0 << QByteArray("AB03") << 8u;
        QTest::newRow("Russian: another Cyrillic letter")
            << QStringList{QStringLiteral("ru")} << 0 << QByteArray("AB04")
            << KeyMap::unknownKeyCode;
        QTest::newRow("Greek: the C position")
            << QStringList{QStringLiteral("gr")} << 0 << QByteArray("AB03") << 8u;
        QTest::newRow("us,ru: first group") << usRu << 0 << QByteArray("AB03") << 8u;
        QTest::newRow("us,ru: second group") << usRu << 1 << QByteArray("AB03") << 8u;
        QTest::newRow("us,ru: second group, V")
            << usRu << 1 << QByteArray("AB04") << KeyMap::unknownKeyCode;
    }

    void layouts()
    {
        QFETCH(QStringList, setxkbmap);
        QFETCH(int, group);
        QFETCH(QByteArray, position);
        QFETCH(quint32, keyCode);
        QVERIFY(setLayout(setxkbmap));
        m_keyboard->lockGroup(group);
        const xcb_keycode_t key = m_keyboard->keycodeAt(position.constData());
        QVERIFY(key != 0);
        m_keyboard->tapKeycode(key, {XKB_KEY_Control_L});
        m_keyboard->lockGroup(0);
        QCOMPARE(seen(), (QList<Seen>{{keyCode, 256}}));
    }
};

QTEST_MAIN(TestX11GlobalKeyMonitor)
#include "tst_x11globalkeymonitor.moc"
