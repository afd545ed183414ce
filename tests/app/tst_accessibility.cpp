// Ravelo as a screen reader meets it: the real process with its accessibility bridge on, on a
// session bus of the test's own with the AT-SPI bus behind it, on an X server with a window
// manager. Its accessibility tree is read from outside through AT-SPI (pyatspi) while the
// walkthrough, the panel and every preferences tab are driven with keys alone: every control
// must carry a name a screen reader can say.
#include "ChatServer.h"
#include "DesktopSession.h"
#include "RaveloProcess.h"
#include "SessionBus.h"
#include "model/PreferenceStore.h"

#include <QDBusMessage>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>

#include <functional>

using namespace Qt::StringLiterals;

namespace {

// Roles of what a user operates; their parts (a drop-down's own text) are the control's.
const QStringList operableRoles = {
    u"push button"_s, u"toggle button"_s, u"check box"_s, u"radio button"_s, u"combo box"_s,
    u"text"_s,        u"password text"_s, u"entry"_s,     u"page tab"_s,     u"list"_s,
    u"list item"_s,   u"link"_s,          u"slider"_s,    u"spin button"_s,  u"menu item"_s};

using Node = QJsonObject;

bool isShowing(const Node& node)
{
    return node[u"states"_s].toArray().contains(u"showing"_s);
}

bool isFocused(const Node& node)
{
    return node[u"states"_s].toArray().contains(u"focused"_s);
}

// Whether the window that receives the keys is one of `pid`'s, titled `title` unless that is
// null.
bool hasTheKeyboard(qint64 pid, const QString& title)
{
    QProcess xdotool;
    QStringList arguments = {u"getactivewindow"_s, u"getwindowpid"_s};
    if (!title.isNull()) {
        arguments << u"getwindowname"_s;
    }
    xdotool.start(u"xdotool"_s, arguments);
    if (!xdotool.waitForFinished(5000) || xdotool.exitCode() != 0) {
        return false;
    }
    const QStringList lines = QString::fromUtf8(xdotool.readAllStandardOutput()).split(u'\n');
    return lines.at(0).toLongLong() == pid && (title.isNull() || lines.value(1) == title);
}

void visit(const Node& node, const QString& path,
           const std::function<bool(const Node&, const QString&)>& f)
{
    if (!f(node, path)) {
        return;
    }
    const QJsonArray children = node[u"children"_s].toArray();
    for (const QJsonValue& child : children) {
        const Node c = child.toObject();
        visit(c,
              path + u" > "_s + c[u"role"_s].toString() + u" '"_s + c[u"name"_s].toString() + u'\'',
              f);
    }
}

// Every control without a name, and every name that is markup rather than words, by path.
QStringList namingFaults(const Node& window)
{
    QStringList faults;
    visit(window, window[u"name"_s].toString(), [&faults](const Node& node, const QString& path) {
        const QString role = node[u"role"_s].toString();
        const QString name = node[u"name"_s].toString();
        // Qt Quick never tells the name of a password field: its description says it.
        const QString said = role == u"password text"_s ? node[u"description"_s].toString() : name;
        if (operableRoles.contains(role) && said.trimmed().isEmpty()) {
            faults << u"nameless: "_s + path;
        }
        if (name.contains(u'<') && name.contains(u'>')) {
            faults << u"markup: "_s + path;
        }
        return role != u"combo box"_s;
    });
    return faults;
}

QList<Node> findAll(const Node& root, const std::function<bool(const Node&)>& match)
{
    QList<Node> found;
    visit(root, QString(), [&](const Node& node, const QString&) {
        if (match(node)) {
            found << node;
        }
        return true;
    });
    return found;
}

std::function<bool(const Node&)> named(const QString& role, const QString& name)
{
    return [role, name](const Node& node) {
        return node[u"role"_s].toString() == role && node[u"name"_s].toString() == name;
    };
}

} // namespace

#define VERIFY_NAMED(window)                                                                       \
    do {                                                                                           \
        const QStringList faults = namingFaults(window);                                           \
        QVERIFY2(faults.isEmpty(), qPrintable(faults.join(u'\n')));                                \
    } while (false)

class TestAccessibility : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void walkthroughPages();
    void panel();
    void preferencesTabs();
    void cleanupTestCase() { m_app.stop(); }

private:
    // The windows of the running Ravelo as AT-SPI lists them; empty while it is not there.
    QJsonArray windows();
    // The one showing window that holds a showing node matching `match`; empty when none.
    Node showingWindowWith(const std::function<bool(const Node&)>& match);
    bool showsNode(const std::function<bool(const Node&)>& match)
    {
        return !showingWindowWith(match).isEmpty();
    }

    SessionBus m_bus;
    QString m_preferences;
    DesktopSession m_desktop;
    ChatServer m_server;
    RunningRavelo m_app;
};

QJsonArray TestAccessibility::windows()
{
    QProcess reader;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, m_bus.address());
    reader.setProcessEnvironment(environment);
    reader.start(u"/usr/bin/python3"_s,
                 {qEnvironmentVariable("RAVELO_SOURCE_DIR") + u"/tests/support/atspi-tree.py"_s,
                  QString::number(m_app.process()->processId())});
    if (!reader.waitForFinished(20000) || reader.exitCode() != 0) {
        reader.kill();
        return {};
    }
    return QJsonDocument::fromJson(reader.readAllStandardOutput()).array();
}

Node TestAccessibility::showingWindowWith(const std::function<bool(const Node&)>& match)
{
    const QJsonArray all = windows();
    for (const QJsonValue& value : all) {
        const Node window = value.toObject();
        if (isShowing(window) && !findAll(window, [&match](const Node& node) {
                                      return isShowing(node) && match(node);
                                  }).isEmpty()) {
            return window;
        }
    }
    return {};
}

void TestAccessibility::initTestCase()
{
    QVERIFY2(QProcess::execute(u"/usr/bin/python3"_s, {u"-c"_s, u"import pyatspi"_s}) == 0,
             "python3-pyatspi is missing (scripts/deps.sh installs it)");
    QVERIFY(QFileInfo(raveloBinary()).isExecutable());
    QVERIFY(m_bus.start());
    // The AT-SPI bus starts on the first request for its address, as a desktop session's
    // does at login; Ravelo joins it when it starts.
    const QDBusMessage reply = m_bus.connection().call(QDBusMessage::createMethodCall(
        u"org.a11y.Bus"_s, u"/org/a11y/bus"_s, u"org.a11y.Bus"_s, u"GetAddress"_s));
    QVERIFY2(reply.type() == QDBusMessage::ReplyMessage, qPrintable(reply.errorMessage()));
    QVERIFY(m_desktop.startWindowManager());
    // Listing the server's models takes nothing from the queue of chat answers.
    m_server.setModels({u"local-model"_s});

    m_preferences = preferencesPastWalkthrough();
    QFile::remove(m_preferences);
    PreferenceStore(m_preferences).setBoolean(Preferences::useDoubleCopy, false);
    QProcessEnvironment environment;
    environment.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, m_bus.address());
    environment.insert(u"QT_LINUX_ACCESSIBILITY_ALWAYS_ON"_s, u"1"_s);
    QVERIFY2(m_app.start({}, environment), m_app.log().constData());
}

// All four pages are in the walkthrough's tree at once; the server rows join once another
// server is chosen. The key field has the focus on the key page.
void TestAccessibility::walkthroughPages()
{
    Node walkthrough;
    QTRY_VERIFY_WITH_TIMEOUT(
        !(walkthrough = showingWindowWith(named(u"push button"_s, u"Continue"_s))).isEmpty(),
        20000);
    QTRY_VERIFY_WITH_TIMEOUT(hasTheKeyboard(m_app.process()->processId(), QString()), 10000);
    VERIFY_NAMED(walkthrough);
    QVERIFY(!findAll(walkthrough, named(u"link"_s, u"Get your API key from platform.openai.com"_s))
                 .isEmpty());

    QVERIFY(DesktopSession::key(u"Return"_s));
    QVERIFY(DesktopSession::key(u"Return"_s));
    QTRY_VERIFY_WITH_TIMEOUT(showsNode([](const Node& node) {
                                 return node[u"role"_s] == u"password text"_s &&
                                        node[u"description"_s] == u"API Key"_s && isFocused(node);
                             }),
                             10000);
    QVERIFY(DesktopSession::key(u"shift+Tab"_s));
    QVERIFY(DesktopSession::key(u"Down"_s));
    QTRY_VERIFY_WITH_TIMEOUT(showsNode(named(u"text"_s, u"Server address"_s)), 10000);
    walkthrough = showingWindowWith(named(u"text"_s, u"Server address"_s));
    VERIFY_NAMED(walkthrough);

    // Runs in the panel go to the test's server.
    QVERIFY(DesktopSession::key(u"Tab"_s));
    QVERIFY(DesktopSession::key(u"ctrl+a"_s));
    QVERIFY(DesktopSession::type(m_server.baseUrl()));
    QVERIFY(DesktopSession::key(u"Return"_s));
    QVERIFY(DesktopSession::key(u"Return"_s));
    QTRY_VERIFY_WITH_TIMEOUT(!showsNode(named(u"push button"_s, u"Get Started"_s)) &&
                                 !showsNode(named(u"push button"_s, u"Continue"_s)),
                             10000);
    QCOMPARE(PreferenceStore(m_preferences).string(Preferences::baseUrl), m_server.baseUrl());
}

// The panel's buttons and chips are named; "save prompt?" is there after a custom prompt and
// Ctrl+S presses it; Ctrl+, opens the preferences.
void TestAccessibility::panel()
{
    QVERIFY(DesktopSession::copyInOtherApplication(u"Some words to shorten"_s));
    m_server.enqueue(
        ChatResponse::events({"{\"choices\":[{\"delta\":{\"content\":\"Words\"}}]}", "[DONE]"}));
    QCOMPARE(runRavelo({u"trigger"_s}).exitCode, 0);
    const auto preferencesButton = named(u"push button"_s, u"Preferences"_s);
    QTRY_VERIFY_WITH_TIMEOUT(showsNode(preferencesButton), 10000);
    const auto chip = [](const Node& node) {
        return node[u"role"_s].toString() == u"push button"_s &&
               node[u"description"_s].toString().startsWith(u"Press "_s);
    };
    const qsizetype chips = findAll(showingWindowWith(preferencesButton), chip).size();
    QCOMPARE(chips, 4); // three prompts and the custom prompt

    QVERIFY(DesktopSession::key(u"Return"_s));
    QVERIFY(DesktopSession::type(u"Shorter"_s));
    QVERIFY(DesktopSession::key(u"Return"_s));
    const auto saveButton = named(u"push button"_s, u"save prompt?"_s);
    QTRY_VERIFY_WITH_TIMEOUT(showsNode(saveButton), 10000);
    const Node panel = showingWindowWith(saveButton);
    VERIFY_NAMED(panel);

    QVERIFY(DesktopSession::key(u"ctrl+s"_s));
    QTRY_VERIFY_WITH_TIMEOUT(!showsNode(saveButton), 10000);
    QCOMPARE(findAll(showingWindowWith(preferencesButton), chip).size(), chips + 1);

    QVERIFY(DesktopSession::key(u"ctrl+comma"_s));
    QTRY_VERIFY_WITH_TIMEOUT(hasTheKeyboard(m_app.process()->processId(), u"Ravelo Preferences"_s),
                             10000);
}

// Each tab, and the prompt editor, as the keys reach them.
void TestAccessibility::preferencesTabs()
{
    const auto general = named(u"page tab"_s, u"General"_s);
    QTRY_VERIFY_WITH_TIMEOUT(showsNode(general), 10000);
    const Node window = showingWindowWith(general);
    QCOMPARE(window[u"name"_s].toString(), u"Ravelo Preferences"_s);
    VERIFY_NAMED(window);

    const auto promptList = named(u"list"_s, u"Prompts"_s);
    QVERIFY(DesktopSession::key(u"ctrl+Tab"_s));
    QTRY_VERIFY_WITH_TIMEOUT(showsNode(promptList), 10000);
    // From the tab to the list.
    QVERIFY(DesktopSession::key(u"Tab"_s));
    QTRY_VERIFY_WITH_TIMEOUT(
        showsNode([&promptList](const Node& node) { return promptList(node) && isFocused(node); }),
        10000);
    Node tab = showingWindowWith(promptList);
    VERIFY_NAMED(tab);
    // The three default prompts and the one saved from the panel.
    QCOMPARE(findAll(tab,
                     [](const Node& n) {
                         return QRegularExpression(u"^[1-4]\\. \\S"_s)
                             .match(n[u"name"_s].toString())
                             .hasMatch();
                     })
                 .size(),
             4);

    QVERIFY(DesktopSession::key(u"Return"_s));
    const auto title = named(u"text"_s, u"Title"_s);
    QTRY_VERIFY_WITH_TIMEOUT(showsNode(title), 10000);
    VERIFY_NAMED(showingWindowWith(title));
    QVERIFY(DesktopSession::key(u"Escape"_s));
    QTRY_VERIFY_WITH_TIMEOUT(showsNode(promptList), 10000);

    QVERIFY(DesktopSession::key(u"ctrl+Tab"_s));
    const auto recordButton = [](const Node& node) {
        return node[u"role"_s].toString() == u"push button"_s &&
               node[u"name"_s].toString() == u"Shortcut: Not set"_s;
    };
    QTRY_VERIFY_WITH_TIMEOUT(showsNode(recordButton), 10000);
    VERIFY_NAMED(showingWindowWith(recordButton));

    QVERIFY(DesktopSession::key(u"Escape"_s));
    QTRY_VERIFY_WITH_TIMEOUT(!showsNode(recordButton), 10000);
}

QTEST_MAIN(TestAccessibility)
#include "tst_accessibility.moc"
