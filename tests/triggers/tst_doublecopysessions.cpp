// Double copy as the clipboard's owner changes, in a real ravelo process and a real desktop
// session: Xvfb with openbox, headless sway or headless KWin (the test runs under
// with-xvfb, with-sway or with-kwin). The copies come from another application: an X11
// client of this test on X11, wl-copy on Wayland. No key is typed anywhere.
#include "DesktopSession.h"
#include "RaveloProcess.h"
#include "X11ClipboardSource.h"
#include "model/PreferenceStore.h"
#include "platform/x11/X11Helpers.h"

#include <QGuiApplication>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>

#include <memory>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

/// One step of a row: wait, then copy the text (or clear the clipboard when it is null).
struct Copy {
    std::chrono::milliseconds after;
    QByteArray text;
};

// Apart from anything copied before, whichever way the detector rounds.
constexpr int quietMs = 700;

/// The WM_CLASS of the X11 top-level window that has the keyboard focus, its place on the
/// screen, and the screen's size.
struct FocusedWindow {
    QByteArray wmClass;
    QRect geometry;
    QSize screen;
};

FocusedWindow focusedWindow()
{
    using ravelo::XcbReply;
    const ravelo::XcbConnection connection(xcb_connect(nullptr, nullptr));
    xcb_connection_t* c = connection.get();
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    FocusedWindow result{{}, {}, QSize(screen->width_in_pixels, screen->height_in_pixels)};
    const XcbReply<xcb_get_input_focus_reply_t> focus(
        xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
    // Up to the window that carries WM_CLASS.
    for (xcb_window_t window = focus ? focus->focus : XCB_NONE;
         window != XCB_NONE && window != screen->root;) {
        const XcbReply<xcb_get_property_reply_t> wmClass(xcb_get_property_reply(
            c, xcb_get_property(c, 0, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 0, 64), nullptr));
        if (wmClass && xcb_get_property_value_length(wmClass.get()) > 0) {
            result.wmClass =
                QByteArray(static_cast<const char*>(xcb_get_property_value(wmClass.get())),
                           xcb_get_property_value_length(wmClass.get()));
            const XcbReply<xcb_get_geometry_reply_t> geometry(
                xcb_get_geometry_reply(c, xcb_get_geometry(c, window), nullptr));
            const XcbReply<xcb_translate_coordinates_reply_t> origin(
                xcb_translate_coordinates_reply(
                    c, xcb_translate_coordinates(c, window, screen->root, 0, 0), nullptr));
            if (geometry && origin) {
                result.geometry =
                    QRect(origin->dst_x, origin->dst_y, geometry->width, geometry->height);
            }
            break;
        }
        const XcbReply<xcb_query_tree_reply_t> tree(
            xcb_query_tree_reply(c, xcb_query_tree(c, window), nullptr));
        window = tree ? tree->parent : XCB_NONE;
    }
    return result;
}

} // namespace

Q_DECLARE_METATYPE(QList<Copy>)

class TestDoubleCopySessions : public QObject {
    Q_OBJECT

    bool m_wayland = !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
    DesktopSession m_desktop;
    std::unique_ptr<X11ClipboardSource> m_x11Source;
    RunningRavelo m_ravelo;
    bool m_drawn = false;

    bool copy(const QByteArray& text)
    {
        if (!m_wayland) {
            if (text.isNull()) {
                m_x11Source->clear();
                return true;
            }
            return m_x11Source->copy(text);
        }
        // wl-copy hands the selection to a child of its own that serves it, and returns.
        QProcess wlCopy;
        wlCopy.start(u"wl-copy"_s, text.isNull() ? QStringList{u"--clear"_s}
                                                 : QStringList{u"--"_s, QString::fromUtf8(text)});
        return wlCopy.waitForFinished(5000) && wlCopy.exitCode() == 0;
    }

    /// A double copy that must fire.
    bool doubleCopy(const QByteArray& text)
    {
        const bool first = copy(text);
        QTest::qWait(200);
        return first && copy(text + ", again");
    }

    /// The length of the text each panel shown so far was shown with.
    QList<int> panelTexts()
    {
        static const QRegularExpression shown(u"Panel requested for (\\d+) characters"_s);
        QList<int> lengths;
        auto matches = shown.globalMatch(QString::fromUtf8(m_ravelo.readLog()));
        while (matches.hasNext()) {
            lengths.append(matches.next().captured(1).toInt());
        }
        return lengths;
    }

private slots:
    void initTestCase()
    {
        if (m_wayland) {
            QVERIFY2(QProcess::execute(u"wl-copy"_s, {u"--version"_s}) == 0,
                     "wl-copy (package wl-clipboard) is missing");
        } else {
            QVERIFY(m_desktop.startWindowManager());
            m_x11Source = std::make_unique<X11ClipboardSource>();
            QVERIFY(m_x11Source->isValid());
        }
        PreferenceStore(preferencesPastWalkthrough()).setBoolean(Preferences::useDoubleCopy, true);
        QProcessEnvironment environment;
        // Ravelo picks its own platform, as when a user starts it.
        environment.insert(u"QT_QPA_PLATFORM"_s, QString());
        environment.insert(u"QT_LOGGING_RULES"_s,
                           u"ravelo.app.debug=true;ravelo.triggers.debug=true"_s);
        QVERIFY(m_ravelo.start({}, environment));
        QVERIFY(m_ravelo.logged("Double copy armed (clipboard owner)") ||
                m_ravelo.logged("Double copy armed (copy keys, clipboard owner)"));
    }

    void copies_data()
    {
        QTest::addColumn<QList<Copy>>("copies");
        // The length of the text of each panel the copies open.
        QTest::addColumn<QList<int>>("panels");
        QTest::newRow("two copies 0.2 s apart")
            << QList<Copy>{{0ms, "first of a pair"}, {200ms, "second of the pair"}}
            << QList<int>{18};
        QTest::newRow("two copies 0.5 s apart")
            << QList<Copy>{{0ms, "slow one"}, {500ms, "slow two!"}} << QList<int>{};
        QTest::newRow("three copies fire once")
            << QList<Copy>{{0ms, "one"}, {150ms, "three, two"}, {150ms, "three copies"}}
            << QList<int>{10};
        QTest::newRow("a copy and a cleared clipboard")
            << QList<Copy>{{0ms, "then cleared"}, {150ms, QByteArray()}} << QList<int>{};
    }

    void copies()
    {
        QFETCH(QList<Copy>, copies);
        QFETCH(QList<int>, panels);
        QTest::qWait(quietMs);
        m_ravelo.clearLog();
        for (const Copy& step : copies) {
            QTest::qWait(int(step.after.count()));
            QVERIFY(copy(step.text));
        }
        // A double copy that must fire, after everything else: once its panel is logged,
        // every copy before it has been seen.
        QTest::qWait(quietMs);
        QVERIFY(doubleCopy("end"));
        panels.append(10);
        QTRY_VERIFY_WITH_TIMEOUT(panelTexts().size() >= panels.size(), 10000);
        QCOMPARE(panelTexts(), panels);
        // The panel first shown draws its first frame; later triggers may only change its text.
        m_drawn = m_drawn || m_ravelo.logged("Panel drawn");
        QVERIFY(m_drawn);
    }

    // The panel a double copy opens is an X11 window wherever there is X (XWayland in the
    // Wayland sessions): it has the keyboard, in the middle of the screen, its top half above.
    void panelHasTheKeyboardInTheMiddle()
    {
        QVERIFY(doubleCopy("the panel's place"));
        QTRY_VERIFY_WITH_TIMEOUT(focusedWindow().wmClass.contains("ravelo"), 10000);
        const FocusedWindow panel = focusedWindow();
        qInfo() << "panel" << panel.geometry << "on" << panel.screen;
        QVERIFY(qAbs(panel.geometry.center().x() - panel.screen.width() / 2) <= 2);
        QVERIFY(panel.geometry.top() < panel.screen.height() / 2);
    }

    void cleanupTestCase() { m_ravelo.stop(); }
};

QTEST_MAIN(TestDoubleCopySessions)
#include "tst_doublecopysessions.moc"
