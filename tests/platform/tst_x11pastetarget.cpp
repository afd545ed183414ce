// The paste target on an X server without a window manager: which window it comes back to,
// and the Ctrl+V that window receives.
#include "platform/x11/X11Helpers.h"
#include "platform/x11/X11PasteTarget.h"

#include <QGuiApplication>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTest>

#include <xcb/xtest.h>

#include <map>

using ravelo::XcbReply;

class TestX11PasteTarget : public QObject {
    Q_OBJECT

    ravelo::XcbConnection m_connection{xcb_connect(nullptr, nullptr)};
    xcb_window_t m_root = XCB_NONE;
    xcb_window_t m_windows[2] = {};

    xcb_connection_t* c() const { return m_connection.get(); }

    xcb_window_t createWindow(xcb_window_t parent = XCB_NONE)
    {
        const xcb_window_t window = xcb_generate_id(c());
        const uint32_t events = XCB_EVENT_MASK_KEY_PRESS;
        xcb_create_window(c(), XCB_COPY_FROM_PARENT, window, parent ? parent : m_root, 0, 0, 100,
                          100, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                          XCB_CW_EVENT_MASK, &events);
        xcb_map_window(c(), window);
        return window;
    }

    // The server ignores a focus change timed before the last one, and the last one may carry
    // a fresh timestamp the server's current time has not caught up with yet.
    bool focus(xcb_window_t window)
    {
        return QTest::qWaitFor([&] {
            xcb_set_input_focus(c(), XCB_INPUT_FOCUS_POINTER_ROOT, window, XCB_CURRENT_TIME);
            return focusedWindow() == window;
        });
    }

    xcb_window_t focusedWindow()
    {
        XcbReply<xcb_get_input_focus_reply_t> reply(
            xcb_get_input_focus_reply(c(), xcb_get_input_focus(c()), nullptr));
        return reply ? reply->focus : XCB_NONE;
    }

    // The key presses with Ctrl down that reached `window` since the last call.
    int controlPressesIn(xcb_window_t window)
    {
        while (xcb_generic_event_t* event = xcb_poll_for_event(c())) {
            const auto* key = reinterpret_cast<const xcb_key_press_event_t*>(event);
            if ((event->response_type & 0x7f) == XCB_KEY_PRESS &&
                (key->state & XCB_MOD_MASK_CONTROL)) {
                ++m_controlPresses[key->event];
            }
            std::free(event);
        }
        return std::exchange(m_controlPresses[window], 0);
    }
    std::map<xcb_window_t, int> m_controlPresses;

private slots:
    void initTestCase()
    {
        QCOMPARE(QGuiApplication::platformName(), QStringLiteral("xcb"));
        QVERIFY(!xcb_connection_has_error(c()));
        m_root = ravelo::screenRoot(c(), 0);
        m_windows[0] = createWindow();
        m_windows[1] = createWindow();
    }

    void comesBackToTheWindowThatWasActive_data()
    {
        QTest::addColumn<int>("active");  // index into m_windows, -1 for no _NET_ACTIVE_WINDOW
        QTest::addColumn<int>("focused"); // -1: the focus follows the pointer on the root
        QTest::addColumn<int>("expected");
        QTest::newRow("the active window, not the one with the focus") << 0 << 1 << 0;
        QTest::newRow("no active window named: the focused one") << -1 << 1 << 1;
        QTest::newRow("nothing to come back to") << -1 << -1 << -1;
    }

    void comesBackToTheWindowThatWasActive()
    {
        QFETCH(int, active);
        QFETCH(int, focused);
        QFETCH(int, expected);
        const xcb_atom_t activeAtom = ravelo::atom(c(), "_NET_ACTIVE_WINDOW");
        if (active < 0) {
            xcb_delete_property(c(), m_root, activeAtom);
        } else {
            xcb_change_property(c(), XCB_PROP_MODE_REPLACE, m_root, activeAtom, XCB_ATOM_WINDOW, 32,
                                1, &m_windows[active]);
        }
        QVERIFY(
            focus(focused < 0 ? xcb_window_t(XCB_INPUT_FOCUS_POINTER_ROOT) : m_windows[focused]));
        controlPressesIn(XCB_NONE);
        m_controlPresses.clear();

        const std::unique_ptr<X11PasteTarget> target = X11PasteTarget::create();
        QVERIFY(target);
        target->rememberActiveWindow();
        QCOMPARE(target->hasTarget(), expected >= 0);
        // The panel took the focus meanwhile.
        QVERIFY(focus(XCB_INPUT_FOCUS_POINTER_ROOT));

        QSignalSpy pasted(target.get(), &PasteTarget::pasted);
        QSignalSpy failed(target.get(), &PasteTarget::failed);
        target->paste();
        QVERIFY(pasted.isEmpty() && failed.isEmpty());
        QTRY_COMPARE(pasted.size() + failed.size(), 1);
        if (expected < 0) {
            QCOMPARE(failed.size(), 1);
            return;
        }
        QCOMPARE(pasted.size(), 1);
        QCOMPARE(focusedWindow(), m_windows[expected]);
        QVERIFY(QTest::qWaitFor([&] { return controlPressesIn(m_windows[expected]) == 1; }));
        QCOMPARE(controlPressesIn(m_windows[1 - expected]), 0);
    }

    // The application may hand the focus on to a window inside its own while the paste waits
    // for a key to be let go: the paste goes there.
    void pastesIntoAWindowInsideTheTarget()
    {
        xcb_delete_property(c(), m_root, ravelo::atom(c(), "_NET_ACTIVE_WINDOW"));
        const xcb_window_t inner = createWindow(m_windows[0]);
        const auto dropInner = qScopeGuard([&] { xcb_destroy_window(c(), inner); });
        QVERIFY(focus(m_windows[0]));
        const std::unique_ptr<X11PasteTarget> target = X11PasteTarget::create();
        QVERIFY(target);
        target->rememberActiveWindow();
        QVERIFY(target->hasTarget());
        QVERIFY(focus(XCB_INPUT_FOCUS_POINTER_ROOT));
        controlPressesIn(XCB_NONE);
        m_controlPresses.clear();

        const auto keyA = [this](uint8_t type) {
            xcb_test_fake_input(c(), type, 38, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
            xcb_flush(c());
        };
        keyA(XCB_KEY_PRESS);
        bool held = true;
        const auto letGo = qScopeGuard([&] {
            if (held) {
                keyA(XCB_KEY_RELEASE);
            }
        });
        QSignalSpy pasted(target.get(), &PasteTarget::pasted);
        target->paste();
        QTRY_COMPARE(focusedWindow(), m_windows[0]);
        QVERIFY(focus(inner));
        keyA(XCB_KEY_RELEASE);
        held = false;
        QTRY_COMPARE(pasted.size(), 1);
        QVERIFY(QTest::qWaitFor([&] { return controlPressesIn(inner) == 1; }));
    }
};

QTEST_MAIN(TestX11PasteTarget)
#include "tst_x11pastetarget.moc"
