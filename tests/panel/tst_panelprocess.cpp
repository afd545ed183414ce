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

#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRect>
#include <QScopeGuard>
#include <QTest>

#include <xcb/xcb.h>
#include <xkbcommon/xkbcommon-keysyms.h>

#include <cstdlib>
#include <cstring>

namespace {

// The screen as another client sees it.
class Screen {
public:
    Screen()
        : m_connection(xcb_connect(nullptr, nullptr))
    {
        const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data;
        m_root = screen->root;
        m_size = QSize(screen->width_in_pixels, screen->height_in_pixels);
    }
    ~Screen() { xcb_disconnect(m_connection); }

    // _NET_WORKAREA of the first desktop, in pixels.
    QRect workArea()
    {
        const char name[] = "_NET_WORKAREA";
        auto* atom = xcb_intern_atom_reply(
            m_connection, xcb_intern_atom(m_connection, 0, sizeof(name) - 1, name), nullptr);
        auto* reply = xcb_get_property_reply(m_connection,
                                             xcb_get_property(m_connection, 0, m_root,
                                                              atom ? atom->atom : XCB_NONE,
                                                              XCB_ATOM_CARDINAL, 0, 4),
                                             nullptr);
        QRect area(QPoint(0, 0), m_size);
        if (reply && xcb_get_property_value_length(reply) == 16) {
            const auto* v = static_cast<const uint32_t*>(xcb_get_property_value(reply));
            area = QRect(int(v[0]), int(v[1]), int(v[2]), int(v[3]));
        }
        std::free(reply);
        std::free(atom);
        return area;
    }

    QImage grab()
    {
        auto* reply = xcb_get_image_reply(m_connection,
                                          xcb_get_image(m_connection, XCB_IMAGE_FORMAT_Z_PIXMAP,
                                                        m_root, 0, 0, uint16_t(m_size.width()),
                                                        uint16_t(m_size.height()), ~0u),
                                          nullptr);
        QImage image;
        if (reply && xcb_get_image_data_length(reply) == m_size.width() * m_size.height() * 4) {
            image = QImage(xcb_get_image_data(reply), m_size.width(), m_size.height(),
                           QImage::Format_RGB32)
                        .copy();
        }
        std::free(reply);
        return image;
    }

    // Where the panel's card is drawn whole: the bounds of the pixels in its background
    // colour, provided its four rounded corners and the round buttons under it show.
    QRect card(int scale)
    {
        const QImage image = grab();
        if (image.isNull()) {
            return {};
        }
        const auto isCard = [&](int x, int y) {
            return (image.pixel(x, y) & 0xffffff) == cardBackground;
        };
        QRect bounds;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                if (isCard(x, y)) {
                    bounds |= QRect(x, y, 1, 1);
                }
            }
        }
        if (bounds.isEmpty()) {
            return {};
        }
        // A card cut off by the screen's edge has a straight edge there, not a rounded one.
        for (int y : {bounds.top(), bounds.bottom()}) {
            if (isCard(bounds.left() + 10 * scale, y)) {
                return {};
            }
        }
        bool buttons = false;
        for (int y = bounds.bottom() + 1;
             y < std::min(image.height(), bounds.bottom() + 45 * scale); ++y) {
            const QRgb pixel = image.pixel(bounds.center().x() - 18 * scale, y) & 0xffffff;
            buttons |= pixel == 0x4c4c4c || pixel == 0x4d4d4d;
        }
        return buttons ? bounds : QRect();
    }

    // Whether the custom prompt field's fill shows in the card.
    bool showsFieldIn(const QRect& card)
    {
        const QImage image = grab();
        for (int y = card.top(); y <= card.bottom(); ++y) {
            if ((image.pixel(card.center().x(), y) & 0xffffff) == 0x38383b) {
                return true;
            }
        }
        return false;
    }

private:
    // The card's background, sRGB (0.243, 0.247, 0.251).
    static constexpr uint32_t cardBackground = 0x3e3f40;

    xcb_connection_t* m_connection;
    xcb_window_t m_root = XCB_NONE;
    QSize m_size;
};

} // namespace

class TestPanelProcess : public QObject {
    Q_OBJECT

private:
    DesktopSession m_desktop;
    std::unique_ptr<ChatServer> m_server;
    RunningRavelo m_app;
    QString m_preferencesPath;

    void startApp(const QString& scaleFactor = QString())
    {
        QProcessEnvironment environment;
        if (!scaleFactor.isEmpty()) {
            environment.insert(QStringLiteral("QT_SCALE_FACTOR"), scaleFactor);
        }
        QVERIFY2(m_app.start({}, environment), m_app.log().constData());
    }

private slots:
    void initTestCase()
    {
        QVERIFY(QFileInfo(raveloBinary()).isExecutable());
        QVERIFY(m_desktop.startWindowManager());
        m_server = std::make_unique<ChatServer>();
        m_preferencesPath = preferencesPastWalkthrough();
        PreferenceStore preferences(m_preferencesPath);
        preferences.setString(Preferences::apiKey, QStringLiteral("sk-test"));
        preferences.setString(Preferences::baseUrl, m_server->baseUrl());
    }

    void cleanup() { m_app.stop(); }

    void aHugeCopyOpensThePanelAndIsSentWhole()
    {
        startApp();
        const QString line = QStringLiteral("0123456789 abcdefghij ").repeated(4) + u'\n';
        const QString text = line.repeated(20'000'000 / line.size());
        QVERIFY(DesktopSession::copyInOtherApplication(text));
        QCOMPARE(runRavelo({QStringLiteral("trigger")}).exitCode, 0);
        QVERIFY2(m_app.logged(QByteArray("Panel requested for " + QByteArray::number(text.size()) +
                                         " characters")
                                  .constData()),
                 m_app.log().right(2000).constData());
        Screen screen;
        QTRY_VERIFY_WITH_TIMEOUT(screen.card(1).isValid(), 10000);
        // The instance still answers while the panel shows the copy.
        const RaveloResult again = runRavelo({QStringLiteral("trigger")});
        QCOMPARE(again.exitCode, 0);
        QCOMPARE(again.err, QByteArray());

        m_server->enqueue(
            ChatResponse::events({"{\"choices\":[{\"delta\":{\"content\":\"ok\"}}]}", "[DONE]"}));
        QVERIFY(DesktopSession::key(QStringLiteral("1")));
        QTRY_VERIFY_WITH_TIMEOUT(!m_server->requests().isEmpty(), 15000);
        QCOMPARE(m_server->sentMessage(0, 1).size(), text.size());
        QVERIFY(m_server->sentMessage(0, 1) == text);
    }

    void shownAgainNoFieldIsEdited()
    {
        startApp();
        QVERIFY(DesktopSession::copyInOtherApplication(QStringLiteral("Some copied text")));
        QCOMPARE(runRavelo({QStringLiteral("trigger")}).exitCode, 0);
        Screen screen;
        QRect card;
        QTRY_VERIFY_WITH_TIMEOUT((card = screen.card(1)).isValid(), 10000);
        // Return opens the custom field, then the close button closes the panel.
        QVERIFY(DesktopSession::key(QStringLiteral("Return")));
        QTRY_VERIFY(screen.showsFieldIn(card));
        QVERIFY(DesktopSession::xdotool(
            {QStringLiteral("mousemove"), QString::number(card.center().x() - 18),
             QString::number(card.bottom() + 26), QStringLiteral("click"), QStringLiteral("1")}));
        QTRY_VERIFY(!screen.card(1).isValid());

        const qsizetype before = m_server->requests().size();
        QCOMPARE(runRavelo({QStringLiteral("trigger")}).exitCode, 0);
        QTRY_VERIFY_WITH_TIMEOUT(screen.card(1).isValid(), 10000);
        // The digit runs prompt 2 instead of going into the field.
        QVERIFY(DesktopSession::key(QStringLiteral("2")));
        QTRY_COMPARE(m_server->requests().size(), before + 1);
    }

    // A prompt's own hotkey, pressed in another application, runs that prompt on the copied
    // text in a panel of its own; the application never sees the key.
    void aPromptHotkeyRunsItsPrompt()
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
        QProcessEnvironment environment;
        environment.insert(QStringLiteral("QT_LOGGING_RULES"),
                           QStringLiteral("ravelo.app.debug=true;ravelo.triggers.debug=true"));
        QVERIFY2(m_app.start({}, environment), m_app.log().constData());
        const QByteArray armed =
            "Hotkey Alt+T of " + HotkeyManager::promptShortcutId(second.id).toLatin1() + " armed";
        QVERIFY2(m_app.logged(armed.constData()), m_app.log().constData());

        QVERIFY(DesktopSession::copyInOtherApplication(QStringLiteral("Guten Morgen")));
        XTestKeyboard other;
        QVERIFY(other.isValid());
        other.createFocusedWindow();
        const qsizetype before = m_server->requests().size();
        m_server->enqueue(
            ChatResponse::events({"{\"choices\":[{\"delta\":{\"content\":\"ok\"}}]}", "[DONE]"}));
        QVERIFY(DesktopSession::key(QStringLiteral("alt+t")));
        QTRY_COMPARE_WITH_TIMEOUT(m_server->requests().size(), before + 1, 10000);
        QCOMPARE(m_server->sentMessage(int(before), 0), second.systemPrompt);
        QCOMPARE(m_server->sentMessage(int(before), 1), QStringLiteral("Guten Morgen"));
        Screen screen;
        QTRY_VERIFY_WITH_TIMEOUT(screen.card(1).isValid(), 10000);
        // Alt itself reaches it, as with any shortcut; T does not.
        QCOMPARE(other.takeKeyPresses().count(other.keycode(XKB_KEY_t)), 0);
    }

    // The user copies in another application and types the digit at once, while the window
    // manager is still mapping and focusing the panel: the digit runs the prompt and never
    // reaches the other application.
    void aDigitTypedAtOnceReachesThePanel()
    {
        startApp();
        QVERIFY(DesktopSession::copyInOtherApplication(QStringLiteral("Some copied text")));
        XTestKeyboard other;
        QVERIFY(other.isValid());
        const xcb_window_t window = other.createFocusedWindow();
        Screen screen;
        for (int round = 1; round <= 20; ++round) {
            QTRY_VERIFY_WITH_TIMEOUT(
                DesktopSession::xdotool({QStringLiteral("windowactivate"), QStringLiteral("--sync"),
                                         QString::number(window)}),
                5000);
            other.takeKeyPresses();
            const qsizetype before = m_server->requests().size();
            QCOMPARE(runRavelo({QStringLiteral("trigger")}).exitCode, 0);
            QTRY_VERIFY_WITH_TIMEOUT(m_app.readLog().count("Panel requested for") == round, 10000);
            // Typed as soon as Ravelo has taken the trigger, not once the panel has the focus.
            QVERIFY(DesktopSession::key(QStringLiteral("1")));
            QTRY_VERIFY2_WITH_TIMEOUT(m_server->requests().size() == before + 1,
                                      qPrintable(QStringLiteral("round %1").arg(round)), 10000);
            QCOMPARE(other.takeKeyPresses(), QList<xcb_keycode_t>());
            QVERIFY(DesktopSession::key(QStringLiteral("Escape")));
            QTRY_VERIFY_WITH_TIMEOUT(!screen.card(1).isValid(), 10000);
        }
        // Twenty triggers leave the user's terminal quiet: debug lines only when asked for.
        QVERIFY2(!m_app.readLog().contains("ravelo.panel:"), m_app.log().right(500).constData());
    }

    // The software scene graph draws the panel; Qt's own variable still picks another renderer.
    void drawsWithoutAGlDriverUnlessAsked_data()
    {
        QTest::addColumn<QString>("backend");
        QTest::addColumn<bool>("glDriver");
        QTest::newRow("Ravelo's choice") << QString() << false;
        QTest::newRow("QT_QUICK_BACKEND=rhi") << QStringLiteral("rhi") << true;
    }

    void drawsWithoutAGlDriverUnlessAsked()
    {
        QFETCH(QString, backend);
        QFETCH(bool, glDriver);
        QProcessEnvironment environment;
        if (!backend.isEmpty()) {
            environment.insert(QStringLiteral("QT_QUICK_BACKEND"), backend);
        }
        QVERIFY2(m_app.start({}, environment), m_app.log().constData());
        QVERIFY(DesktopSession::copyInOtherApplication(QStringLiteral("Some copied text")));
        QCOMPARE(runRavelo({QStringLiteral("trigger")}).exitCode, 0);
        Screen screen;
        QTRY_VERIFY_WITH_TIMEOUT(screen.card(1).isValid(), 10000);
        QFile maps(QStringLiteral("/proc/%1/maps").arg(m_app.process()->processId()));
        QVERIFY(maps.open(QIODevice::ReadOnly));
        const QByteArray mapped = maps.readAll();
        // A GL vendor library (libGLX_mesa, libGLX_nvidia…) or one of Mesa's drivers.
        const bool loaded = mapped.contains("libGLX_") || mapped.contains("_dri.so");
        QCOMPARE(loaded, glDriver);
    }

    void fitsTheWorkArea_data()
    {
        QTest::addColumn<QString>("scale");
        QTest::addColumn<int>("lines");
        QTest::addColumn<bool>("compositor");
        QTest::newRow("one line") << QStringLiteral("1") << 1 << false;
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
        startApp(scale);
        QString text;
        for (int i = 1; i <= lines; ++i) {
            text += QStringLiteral("Line %1 of the copied text\n").arg(i);
        }
        QVERIFY(DesktopSession::copyInOtherApplication(text.trimmed()));
        QCOMPARE(runRavelo({QStringLiteral("trigger")}).exitCode, 0);

        Screen screen;
        const QRect area = screen.workArea();
        const int s = scale.toInt();
        // The panel is the card and, 12 below it, the 28 high round buttons; it sits 100 above
        // the middle of the work area, unless that would put part of it outside.
        // Looked at once the card no longer moves or grows between two looks.
        // QTRY_VERIFY asks once more after its last try: the first answer that counts stays.
        QRect last;
        bool seen = false;
        const auto placed = [&] {
            const QRect card = screen.card(s);
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
    }
};

QTEST_MAIN(TestPanelProcess)
#include "tst_panelprocess.moc"
