// The quick panel of the real ravelo process on a desktop: a real X server with a window
// manager (openbox), the clipboard owned by another client (xclip), `ravelo trigger` from
// outside, keys typed through XTest and a loopback chat server. What the panel shows is read
// back from the screen.
#include "ChatServer.h"
#include "DesktopSession.h"
#include "RaveloProcess.h"
#include "XTestKeyboard.h"
#include "model/PreferenceStore.h"
#include "model/PromptHotkeys.h"
#include "model/PromptStore.h"
#include "triggers/HotkeyManager.h"

#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QProcess>
#include <QScopeGuard>
#include <QScreen>
#include <QTest>

#include <xkbcommon/xkbcommon-keysyms.h>

namespace {

QImage grabScreen()
{
    return QGuiApplication::primaryScreen()->grabWindow(0).toImage().convertToFormat(
        QImage::Format_RGB32);
}

// Where the panel's card is drawn whole: the bounds of the pixels in its background colour
// (sRGB 0.243, 0.247, 0.251), provided its four rounded corners and the round buttons under
// it show.
QRect card(int scale = 1)
{
    const QImage image = grabScreen();
    const auto isCard = [&](int x, int y) { return (image.pixel(x, y) & 0xffffff) == 0x3e3f40; };
    QRect bounds;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            if (isCard(x, y)) {
                bounds |= QRect(x, y, 1, 1);
            }
        }
    }
    // A card cut off by the screen's edge has a straight edge there, not a rounded one.
    if (bounds.isEmpty() || isCard(bounds.left() + 10 * scale, bounds.top()) ||
        isCard(bounds.left() + 10 * scale, bounds.bottom())) {
        return {};
    }
    for (int y = bounds.bottom() + 1; y < std::min(image.height(), bounds.bottom() + 45 * scale);
         ++y) {
        const QRgb pixel = image.pixel(bounds.center().x() - 18 * scale, y) & 0xffffff;
        if (pixel == 0x4c4c4c || pixel == 0x4d4d4d) {
            return bounds;
        }
    }
    return {};
}

// _NET_WORKAREA of the first desktop.
QRect workArea()
{
    QProcess xprop;
    xprop.start(QStringLiteral("xprop"),
                {QStringLiteral("-root"), QStringLiteral("_NET_WORKAREA")});
    xprop.waitForFinished();
    const QStringList v =
        QString::fromLatin1(xprop.readAllStandardOutput()).section(u'=', 1).split(u',');
    return v.size() < 4 ? QRect() : QRect(v[0].toInt(), v[1].toInt(), v[2].toInt(), v[3].toInt());
}

bool glDriverLoaded(const QProcess* process)
{
    QFile maps(QStringLiteral("/proc/%1/maps").arg(process->processId()));
    const QByteArray mapped = maps.open(QIODevice::ReadOnly) ? maps.readAll() : QByteArray();
    // A GL vendor library (libGLX_mesa, libGLX_nvidia…) or one of Mesa's drivers.
    return mapped.contains("libGLX_") || mapped.contains("_dri.so");
}

// The window with the X input focus, whether or not the window manager knows it.
xcb_window_t focusedWindow()
{
    return xcb_window_t(
        DesktopSession::xdotoolSays({QStringLiteral("getwindowfocus"), QStringLiteral("-f")})
            .toULong());
}

bool trigger()
{
    return runRavelo({QStringLiteral("trigger")}).exitCode == 0;
}

} // namespace

class TestPanelProcess : public QObject {
    Q_OBJECT

private:
    DesktopSession m_desktop;
    ChatServer m_server;
    RunningRavelo m_app;
    QString m_preferencesPath;

    void startApp(const QString& variable = {}, const QString& value = {})
    {
        QProcessEnvironment environment;
        if (!variable.isEmpty()) {
            environment.insert(variable, value);
        }
        QVERIFY2(m_app.start({}, environment), m_app.log().constData());
    }
    /// The focused window when it is one of Ravelo's, else none.
    xcb_window_t ownActiveWindow()
    {
        const QString window = DesktopSession::xdotoolSays({QStringLiteral("getactivewindow")});
        const QString pid = DesktopSession::xdotoolSays({QStringLiteral("getwindowpid"), window});
        return !window.isEmpty() && pid.toLongLong() == m_app.process()->processId()
                   ? xcb_window_t(window.toULong())
                   : XCB_NONE;
    }
    void enqueueAnswer()
    {
        m_server.enqueue(
            ChatResponse::events({"{\"choices\":[{\"delta\":{\"content\":\"ok\"}}]}", "[DONE]"}));
    }

private slots:
    void initTestCase()
    {
        QVERIFY(QFileInfo(raveloBinary()).isExecutable());
        QVERIFY(m_desktop.startWindowManager());
        m_preferencesPath = preferencesPastWalkthrough();
        PreferenceStore preferences(m_preferencesPath);
        preferences.setString(Preferences::apiKey, QStringLiteral("sk-test"));
        preferences.setString(Preferences::baseUrl, m_server.baseUrl());
    }

    void cleanup() { m_app.stop(); }

    // One instance through what a user does with the panel, in turn.
    void walksThroughThePanel()
    {
        const Prompt second = Prompt::defaults().at(1);
        {
            PreferenceStore preferences(m_preferencesPath);
            // The built-in prompts get fresh ids in each process until the list is stored.
            PromptStore::save(preferences, Prompt::defaults());
            PromptHotkeys::save(preferences, {{second.id, StoredHotkey{17, 2048}}});
        }
        const auto forget = qScopeGuard([this] {
            PreferenceStore preferences(m_preferencesPath);
            PromptHotkeys::save(preferences, {});
        });
        startApp(QStringLiteral("QT_LOGGING_RULES"),
                 QStringLiteral("ravelo.app.debug=true;ravelo.triggers.debug=true"));
        const QByteArray armed =
            "Hotkey Alt+T of " + HotkeyManager::promptShortcutId(second.id).toLatin1() + " armed";
        QVERIFY2(m_app.logged(armed.constData()), m_app.log().constData());

        // A prompt's own hotkey, pressed in another application, runs that prompt on the copied
        // text in a panel of its own; the application never sees the key (Alt it does, as with
        // any shortcut).
        QVERIFY(DesktopSession::copyInOtherApplication(QStringLiteral("Guten Morgen")));
        XTestKeyboard other;
        QVERIFY(other.isValid());
        other.createFocusedWindow();
        enqueueAnswer();
        QVERIFY(DesktopSession::key(QStringLiteral("alt+t")));
        QTRY_COMPARE_WITH_TIMEOUT(m_server.requests().size(), 1, 10000);
        QCOMPARE(m_server.sentMessage(0, 0), second.systemPrompt);
        QCOMPARE(m_server.sentMessage(0, 1), QStringLiteral("Guten Morgen"));
        QTRY_VERIFY_WITH_TIMEOUT(card().isValid(), 10000);
        QCOMPARE(other.takeKeyPresses().count(other.keycode(XKB_KEY_t)), 0);
        QVERIFY(DesktopSession::key(QStringLiteral("Escape")));
        QTRY_VERIFY_WITH_TIMEOUT(!card().isValid(), 10000);

        // A huge copy opens the panel, the instance still answers, and the copy is sent whole.
        const QString line = QStringLiteral("0123456789 abcdefghij ").repeated(4) + u'\n';
        const QString text = line.repeated(20'000'000 / line.size());
        QVERIFY(DesktopSession::copyInOtherApplication(text));
        QVERIFY(trigger());
        QVERIFY2(m_app.logged(QByteArray("Panel requested for " + QByteArray::number(text.size()) +
                                         " characters")
                                  .constData()),
                 m_app.log().right(2000).constData());
        QTRY_VERIFY_WITH_TIMEOUT(card().isValid(), 10000);
        const RaveloResult again = runRavelo({QStringLiteral("trigger")});
        QCOMPARE(again.exitCode, 0);
        QCOMPARE(again.err, QByteArray());
        const qsizetype before = m_server.requests().size();
        enqueueAnswer();
        QVERIFY(DesktopSession::key(QStringLiteral("1")));
        QTRY_VERIFY_WITH_TIMEOUT(m_server.requests().size() == before + 1, 15000);
        QVERIFY(m_server.sentMessage(int(before), 1) == text);
        // Debug lines only when asked for.
        QVERIFY2(!m_app.readLog().contains("ravelo.panel:"), m_app.log().right(500).constData());
    }

    void aDigitTypedAtOnceReachesThePanel_data()
    {
        QTest::addColumn<QString>("focused");
        QTest::addColumn<bool>("windowManagerBusy");
        QTest::addColumn<int>("rounds");
        QTest::newRow("another application") << QStringLiteral("other") << false << 20;
        // The window manager stopped until the digit has run the prompt: the panel is shown
        // but cannot be mapped or focused, and the digit always comes while the panel only
        // holds the keyboard.
        QTest::newRow("another application, window manager busy")
            << QStringLiteral("other") << true << 3;
        QTest::newRow("Ravelo's preferences, window manager busy")
            << QStringLiteral("preferences") << true << 3;
        QTest::newRow("the walkthrough, window manager busy")
            << QStringLiteral("walkthrough") << true << 3;
    }

    // The user copies and types the digit at once, while the window manager is still mapping
    // and focusing the panel: the digit runs the prompt and never reaches the window that had
    // the focus, be it another application's or one of Ravelo's own.
    void aDigitTypedAtOnceReachesThePanel()
    {
        QFETCH(QString, focused);
        QFETCH(bool, windowManagerBusy);
        QFETCH(int, rounds);
        PreferenceStore(m_preferencesPath)
            .setBoolean(Preferences::hasCompletedOnboarding, focused != u"walkthrough");
        const auto pastWalkthrough = qScopeGuard([this] {
            PreferenceStore(m_preferencesPath)
                .setBoolean(Preferences::hasCompletedOnboarding, true);
        });
        startApp(QStringLiteral("QT_LOGGING_RULES"),
                 QStringLiteral("ravelo.app.debug=true;ravelo.panel.debug=true"));
        XTestKeyboard other;
        QVERIFY(DesktopSession::copyInOtherApplication(QStringLiteral("Some copied text")));
        xcb_window_t window = XCB_NONE;
        if (focused == u"other") {
            window = other.createFocusedWindow();
        } else {
            if (focused == u"preferences") {
                QCOMPARE(runRavelo({QStringLiteral("preferences")}).exitCode, 0);
            }
            QTRY_VERIFY_WITH_TIMEOUT((window = ownActiveWindow()) != XCB_NONE, 10000);
        }
        const qsizetype requested = m_app.readLog().count("Panel requested for");
        for (int round = 1; round <= rounds; ++round) {
            QTRY_VERIFY_WITH_TIMEOUT(
                DesktopSession::xdotool({QStringLiteral("windowactivate"), QStringLiteral("--sync"),
                                         QString::number(window)}),
                5000);
            other.takeKeyPresses();
            const qsizetype before = m_server.requests().size();
            if (windowManagerBusy) {
                QVERIFY(m_desktop.pauseWindowManager(true));
            }
            const auto resume = qScopeGuard([this] { m_desktop.pauseWindowManager(false); });
            QVERIFY(trigger());
            // Typed as soon as Ravelo has taken the trigger, not once the panel has the focus.
            QTRY_VERIFY_WITH_TIMEOUT(
                m_app.readLog().count("Panel requested for") == requested + round, 10000);
            QVERIFY(DesktopSession::key(QStringLiteral("1")));
            QTRY_VERIFY2_WITH_TIMEOUT(
                m_server.requests().size() == before + 1,
                qPrintable(QStringLiteral("round %1: %2")
                               .arg(round)
                               .arg(QString::fromUtf8(m_app.readLog().right(300)))),
                10000);
            QCOMPARE(other.takeKeyPresses(), QList<xcb_keycode_t>());
            if (windowManagerBusy && round == rounds) {
                // Closed before the window manager got round to the panel: the keyboard is
                // back with the window that had it.
                QVERIFY(DesktopSession::key(QStringLiteral("Escape")));
                QTRY_COMPARE(focusedWindow(), window);
                break;
            }
            QVERIFY(m_desktop.pauseWindowManager(false));
            QTRY_VERIFY_WITH_TIMEOUT(card().isValid(), 10000);
            QVERIFY(DesktopSession::key(QStringLiteral("Escape")));
            QTRY_VERIFY_WITH_TIMEOUT(!card().isValid(), 10000);
        }
    }

    void fitsTheWorkArea_data()
    {
        QTest::addColumn<QString>("scale");
        QTest::addColumn<int>("lines");
        QTest::addColumn<bool>("compositor");
        // Qt's own variable still picks another renderer than the software one.
        QTest::newRow("one line, drawn with GL") << QStringLiteral("1") << 1 << false;
        QTest::newRow("10,000 lines") << QStringLiteral("1") << 10000 << false;
        QTest::newRow("10,000 lines at scale 2") << QStringLiteral("2") << 10000 << false;
        QTest::newRow("40 lines at scale 2") << QStringLiteral("2") << 40 << false;
        // The shadow margin must not push the card down when it sits at the top.
        QTest::newRow("10,000 lines, compositor") << QStringLiteral("1") << 10000 << true;
        QTest::newRow("40 lines at scale 2, compositor") << QStringLiteral("2") << 40 << true;
    }

    void fitsTheWorkArea()
    {
        QFETCH(QString, scale);
        QFETCH(int, lines);
        QFETCH(bool, compositor);
        QProcess compositing;
        if (compositor) {
            compositing.start(QStringLiteral("xcompmgr"), {});
            QVERIFY(compositing.waitForStarted());
        }
        const auto stopCompositing = qScopeGuard([&] {
            compositing.terminate();
            compositing.waitForFinished();
        });
        // The pointer away from the panel, so that nothing on it reacts to hovering.
        QVERIFY(DesktopSession::xdotool(
            {QStringLiteral("mousemove"), QStringLiteral("0"), QStringLiteral("0")}));
        const bool gl = QByteArray(QTest::currentDataTag()).endsWith("GL");
        startApp(gl ? QStringLiteral("QT_QUICK_BACKEND") : QStringLiteral("QT_SCALE_FACTOR"),
                 gl ? QStringLiteral("rhi") : scale);
        QString text;
        for (int i = 1; i <= lines; ++i) {
            text += QStringLiteral("Line %1 of the copied text\n").arg(i);
        }
        QVERIFY(DesktopSession::copyInOtherApplication(text.trimmed()));
        QVERIFY(trigger());
        const QRect area = workArea();
        const int s = scale.toInt();
        // The panel is the card and, 12 below it, the 28 high round buttons; it sits 100 above
        // the middle of the work area, unless that would put part of it outside.
        // Looked at once the card no longer moves or grows between two looks.
        // QTRY_VERIFY asks once more after its last try: the first answer that counts stays.
        QRect last;
        bool seen = false;
        const auto placed = [&] {
            const QRect card = ::card(s);
            const bool settled = card == last;
            last = card;
            if (seen) {
                return true;
            }
            if (!card.isValid() || !settled) {
                return false;
            }
            const QRect panel = card.adjusted(0, 0, 0, 40 * s);
            const int centre = area.center().y() - 100 * s;
            const int wanted =
                std::clamp(centre - panel.height() / 2, area.top(), area.bottom() - panel.height());
            seen = area.contains(panel) && std::abs(panel.top() - wanted) <= 3 * s &&
                   std::abs(panel.center().x() - area.center().x()) <= 2 * s;
            if (!seen) {
                qDebug() << "card at" << card << "wanted top" << wanted;
            }
            return seen;
        };
        QTRY_VERIFY_WITH_TIMEOUT(placed(), 20000);
        // Otherwise the software scene graph draws the panel, without a GL driver.
        QCOMPARE(glDriverLoaded(m_app.process()), gl);
    }
};

QTEST_MAIN(TestPanelProcess)
#include "tst_panelprocess.moc"
