// Ctrl+V in the quick panel of the real ravelo process, in a real desktop session: on X11
// (Xvfb with openbox) the answer is pasted into the text field of another process the text
// was copied from; in sway, where Ravelo cannot type into Wayland windows, it is copied and
// the panel says so before it closes. Keys come through XTest (xdotool), answers from a
// loopback chat server.
#include "ChatServer.h"
#include "DesktopSession.h"
#include "RaveloProcess.h"
#include "model/PreferenceStore.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QScopeGuard>
#include <QTest>

namespace {

/// The test's text field in a process of its own, as its reports tell it.
class TextField {
public:
    struct State {
        QString text;
        QString window;
        bool active = false;
    };

    explicit TextField(const QString& text)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
        m_process.setProcessEnvironment(environment);
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(qEnvironmentVariable("RAVELO_TEXT_FIELD"), {text});
        m_state.text = text;
    }
    ~TextField() { close(); }

    const State& read()
    {
        while (m_process.canReadLine()) {
            const QByteArray line = m_process.readLine().trimmed();
            if (line.startsWith("text ")) {
                m_state.text =
                    QJsonDocument::fromJson("[" + line.mid(5) + "]").array().at(0).toString();
            } else if (line.startsWith("active ")) {
                m_state.active = line.endsWith('1');
            } else if (line.startsWith("window ")) {
                m_state.window = QString::fromLatin1(line.mid(7));
            }
        }
        return m_state;
    }
    void close()
    {
        m_process.kill();
        m_process.waitForFinished();
    }

private:
    QProcess m_process;
    State m_state;
};

/// The id of the focused window, or with `getwindowname` its title.
QString activeWindow(const QStringList& then = {})
{
    return DesktopSession::xdotoolSays(QStringList{QStringLiteral("getactivewindow")} + then);
}

} // namespace

class TestPasteBack : public QObject {
    Q_OBJECT

private:
    bool m_wayland = false;
    DesktopSession m_desktop;
    std::unique_ptr<ChatServer> m_server;
    RunningRavelo m_ravelo;

    /// Opens the panel on what the clipboard holds and runs prompt 1, which answers `answer`.
    bool runPrompt(const QByteArray& answer)
    {
        m_ravelo.clearLog();
        if (runRavelo({QStringLiteral("trigger")}).exitCode != 0 ||
            !m_ravelo.logged("Panel drawn")) {
            return false;
        }
        // The digit is the panel's once it has the keyboard, even before it has the focus.
        m_server->enqueue(ChatResponse::events(
            {"{\"choices\":[{\"delta\":{\"content\":\"" + answer + "\"}}]}", "[DONE]"}));
        return DesktopSession::key(QStringLiteral("1")) && m_ravelo.logged("Answer complete");
    }

    /// The text field, focused, with its text copied the way a user copies it.
    bool copyInField(TextField& field, const QString& text)
    {
        if (!QTest::qWaitFor([&] { return field.read().active; }, 10000)) {
            return false;
        }
        return DesktopSession::key(QStringLiteral("ctrl+c")) &&
               QTest::qWaitFor([&] { return DesktopSession::pasteInOtherApplication() == text; },
                               5000);
    }

private slots:
    void initTestCase()
    {
        m_wayland = !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
        if (m_wayland) {
            QVERIFY2(QProcess::execute(QStringLiteral("wl-paste"), {QStringLiteral("--version")}) ==
                         0,
                     "wl-paste (package wl-clipboard) is missing");
        } else {
            QVERIFY(m_desktop.startWindowManager());
        }
        m_server = std::make_unique<ChatServer>();
        PreferenceStore preferences(preferencesPastWalkthrough());
        preferences.setString(Preferences::apiKey, QStringLiteral("sk-test"));
        preferences.setString(Preferences::baseUrl, m_server->baseUrl());
        QProcessEnvironment environment;
        // Ravelo picks its own platform, as when a user starts it.
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QString());
        environment.insert(QStringLiteral("QT_LOGGING_RULES"),
                           QStringLiteral("ravelo.app.debug=true;ravelo.paste.debug=true;"
                                          "ravelo.panel.debug=true"));
        QVERIFY2(m_ravelo.start({}, environment), m_ravelo.log().constData());
    }

    void cleanupTestCase() { m_ravelo.stop(); }

    void pastesWhereTheTextCameFrom_data()
    {
        QTest::addColumn<bool>("holdCtrl");
        QTest::newRow("keys let go at once") << false;
        QTest::newRow("Ctrl held until pasted") << true;
    }

    // The answer replaces the selected text it was made from, the field has the focus again,
    // and typing goes on there as usual: no key is left down.
    void pastesWhereTheTextCameFrom()
    {
        QFETCH(bool, holdCtrl);
        if (m_wayland) {
            QSKIP("Ravelo types into X11 windows only");
        }
        TextField field(QStringLiteral("Hallo Welt"));
        QVERIFY(copyInField(field, QStringLiteral("Hallo Welt")));
        QVERIFY2(runPrompt("Hello world"), m_ravelo.log().constData());
        QTRY_VERIFY(!field.read().active);

        if (holdCtrl) {
            QVERIFY(DesktopSession::xdotool({QStringLiteral("keydown"), QStringLiteral("ctrl")}));
            QVERIFY(DesktopSession::key(QStringLiteral("v")));
        } else {
            QVERIFY(DesktopSession::key(QStringLiteral("ctrl+v")));
        }
        {
            // The Ctrl of this test is let go even when the paste fails.
            const auto letGo = qScopeGuard([holdCtrl] {
                if (holdCtrl) {
                    DesktopSession::xdotool({QStringLiteral("keyup"), QStringLiteral("ctrl")});
                }
            });
            QTRY_VERIFY2_WITH_TIMEOUT(field.read().text == QStringLiteral("Hello world"),
                                      m_ravelo.readLog().constData(), 5000);
            QVERIFY(m_ravelo.logged("Answer pasted"));
        }
        QTRY_VERIFY(field.read().active);
        QCOMPARE(activeWindow(), field.read().window);
        QVERIFY(DesktopSession::type(QStringLiteral("!")));
        QTRY_COMPARE(field.read().text, QStringLiteral("Hello world!"));
        QCOMPARE(DesktopSession::pasteInOtherApplication(), QStringLiteral("Hello world"));
    }

    void copiesWhenThereIsNoOtherWindow_data()
    {
        QTest::addColumn<bool>("preferences");
        QTest::newRow("the window went away meanwhile") << false;
        QTest::newRow("Ravelo's preferences had the focus") << true;
    }

    // Never into a window that is gone or one of Ravelo's own: the answer is copied instead.
    void copiesWhenThereIsNoOtherWindow()
    {
        QFETCH(bool, preferences);
        if (m_wayland) {
            QSKIP("the Wayland session has its own test");
        }
        TextField field(QStringLiteral("Short lived"));
        QVERIFY(copyInField(field, QStringLiteral("Short lived")));
        if (preferences) {
            QCOMPARE(runRavelo({QStringLiteral("preferences")}).exitCode, 0);
            QTRY_VERIFY_WITH_TIMEOUT(!field.read().active, 10000);
            // Not merely away from the field: a panel opened while the preferences are still
            // on their way would lose the focus to them.
            QTRY_COMPARE(activeWindow({QStringLiteral("getwindowname")}),
                         QStringLiteral("Ravelo Preferences"));
        }
        QVERIFY2(runPrompt("Copied only"), m_ravelo.log().constData());
        if (!preferences) {
            field.close();
        }
        QVERIFY(DesktopSession::key(QStringLiteral("ctrl+v")));
        QVERIFY(m_ravelo.logged("there is no window to paste it into"));
        QVERIFY(m_ravelo.logged("Panel closed"));
        QCOMPARE(DesktopSession::pasteInOtherApplication(), QStringLiteral("Copied only"));
        QCOMPARE(field.read().text, QStringLiteral("Short lived"));
    }

    // Where Ravelo cannot type into other applications, Ctrl+V copies, says so and closes.
    void copiesAndSaysSoOnWayland()
    {
        if (!m_wayland) {
            QSKIP("X11 pastes");
        }
        QProcess wlCopy;
        wlCopy.start(QStringLiteral("wl-copy"), {QStringLiteral("--"), QStringLiteral("Hallo")});
        QVERIFY(wlCopy.waitForFinished(5000) && wlCopy.exitCode() == 0);
        QVERIFY2(runPrompt("Hello from Wayland"), m_ravelo.log().constData());
        QVERIFY(DesktopSession::key(QStringLiteral("ctrl+v")));
        QVERIFY(m_ravelo.logged("there is no window to paste it into"));
        QVERIFY(m_ravelo.logged("Copied notice shown"));
        QVERIFY(m_ravelo.logged("Panel closed"));
        QProcess wlPaste;
        wlPaste.start(QStringLiteral("wl-paste"), {QStringLiteral("--no-newline")});
        QVERIFY(wlPaste.waitForFinished(5000));
        QCOMPARE(QString::fromUtf8(wlPaste.readAllStandardOutput()),
                 QStringLiteral("Hello from Wayland"));
    }
};

QTEST_MAIN(TestPasteBack)
#include "tst_pasteback.moc"
