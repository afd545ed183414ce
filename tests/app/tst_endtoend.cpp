// Ravelo as a user meets it: a real X server with a window manager (openbox), the real
// clipboard owned by another client (xclip), keys typed through XTest (xdotool), the real
// trigger backends and a loopback chat server.
#include "ChatServer.h"
#include "DesktopSession.h"
#include "RaveloProcess.h"
#include "XTestKeyboard.h"
#include "app/AppDelegate.h"
#include "app/AppState.h"
#include "app/SingleInstance.h"
#include "model/PreferenceStore.h"
#include "model/PromptHotkeys.h"
#include "model/PromptStore.h"
#include "onboarding/OnboardingWindow.h"
#include "panel/FloatingPanel.h"
#include "settings/SettingsWindow.h"
#include "triggers/HotkeyManager.h"

#include <QClipboard>
#include <QDir>
#include <QGuiApplication>
#include <QProcess>
#include <QQmlProperty>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QTest>

namespace {

QByteArray chunk(const QByteArray& text)
{
    return "data: {\"choices\":[{\"delta\":{\"content\":\"" + text + "\"}}]}\n\n";
}

// Everything the QML engine warns about while a test runs (a window that failed to load
// its view says so only there).
QStringList qmlWarnings;
QtMessageHandler previousHandler = nullptr;

void noteQmlWarnings(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    if (type != QtDebugMsg && type != QtInfoMsg &&
        (message.contains(QLatin1String("qml"), Qt::CaseInsensitive) ||
         QByteArray(context.category).contains("qml"))) {
        qmlWarnings.append(message);
    }
    previousHandler(type, context, message);
}

QQuickItem* find(QQuickWindow* window, const char* name)
{
    return window ? window->contentItem()->findChild<QQuickItem*>(QLatin1String(name)) : nullptr;
}

bool isShown(QQuickWindow* window, const char* name)
{
    const QQuickItem* item = find(window, name);
    return item && item->isVisible() && item->width() > 0 && item->height() > 0;
}

} // namespace

class TestEndToEnd : public QObject {
    Q_OBJECT

private:
    DesktopSession m_desktop;
    std::unique_ptr<XTestKeyboard> m_otherClient;
    std::unique_ptr<ChatServer> m_server;
    std::unique_ptr<PreferenceStore> m_preferences;
    std::unique_ptr<AppState> m_state;
    std::unique_ptr<AppDelegate> m_delegate;

    FloatingPanel* panel() const { return m_delegate->panel(); }

    QString viewText(const char* name) const
    {
        QQuickItem* item = panel()->view()->findChild<QQuickItem*>(QLatin1String(name));
        return item ? QQmlProperty::read(item, QStringLiteral("text")).toString() : QString();
    }

    /// A double copy typed while another application has the focus; the panel opens.
    bool doubleCopyOpensThePanel()
    {
        m_otherClient->createFocusedWindow();
        if (!DesktopSession::xdotool(
                {QStringLiteral("key"), QStringLiteral("ctrl+c"), QStringLiteral("ctrl+c")})) {
            return false;
        }
        return QTest::qWaitFor([this] { return panel() && panel()->isExposed(); }, 5000) &&
               QTest::qWaitForWindowActive(panel(), 5000);
    }

    static bool key(const QString& name) { return DesktopSession::key(name); }
    static bool copyInOtherApplication(const QString& text)
    {
        return DesktopSession::copyInOtherApplication(text);
    }

    // X11 needs no accessibility permission, and the bolt lives in a tray, not a menu bar.
    static bool saysNothingOfMacOnlyThings(const QQuickItem* item)
    {
        if (!item || !item->isVisible()) {
            return true;
        }
        const QString text = item->property("text").toString();
        if (text.contains(QLatin1String("Accessibility")) ||
            text.contains(QLatin1String("menu bar"))) {
            qWarning().noquote() << "shown:" << text;
            return false;
        }
        const auto children = item->childItems();
        return std::all_of(children.begin(), children.end(), &saysNothingOfMacOnlyThings);
    }

private slots:
    void initTestCase()
    {
        previousHandler = qInstallMessageHandler(noteQmlWarnings);
        QCOMPARE(QGuiApplication::platformName(), QStringLiteral("xcb"));
        QVERIFY(m_desktop.startWindowManager());
        m_otherClient = std::make_unique<XTestKeyboard>();
        QVERIFY(m_otherClient->isValid());
    }

    void init()
    {
        qmlWarnings.clear();
        const QString path = QDir(qEnvironmentVariable("XDG_CONFIG_HOME"))
                                 .filePath(QStringLiteral("Ravelo/endtoend.conf"));
        QFile::remove(path);
        m_server = std::make_unique<ChatServer>();
        m_preferences = std::make_unique<PreferenceStore>(path);
        if (QByteArray(QTest::currentTestFunction()) != "firstRun") {
            m_preferences->setBoolean(Preferences::hasCompletedOnboarding, true);
            m_preferences->setString(Preferences::apiKey, QStringLiteral("sk-test"));
            m_preferences->setString(Preferences::baseUrl, m_server->baseUrl());
        }
        m_state = std::make_unique<AppState>(m_preferences.get());
        m_delegate = std::make_unique<AppDelegate>(m_state.get());
        m_delegate->applicationDidFinishLaunching();
    }

    void cleanup()
    {
        QCOMPARE(qmlWarnings, QStringList());
        m_delegate.reset();
        m_state.reset();
        m_preferences.reset();
        m_server.reset();
    }

    // A first start: the walkthrough, then double copy, then the preferences opened by
    // starting Ravelo a second time, where a prompt renamed shows in the next panel.
    void firstRun()
    {
        SingleInstance instance;
        QVERIFY(instance.listen());
        connect(&instance, &SingleInstance::activationRequested, m_delegate.get(),
                &AppDelegate::openSettings);
        QVERIFY(m_delegate->onboardingWindow());
        QQuickWindow* walkthrough = m_delegate->onboardingWindow()->window();
        QVERIFY(QTest::qWaitForWindowActive(walkthrough, 5000));
        QVERIFY(!m_delegate->hotkeyManager()->isDoubleCopyMonitorActive());

        QVERIFY(key(QStringLiteral("Return")));
        QVERIFY(key(QStringLiteral("Return")));
        QQuickItem* keyField = nullptr;
        QTRY_VERIFY((keyField = find(walkthrough, "apiKeyField")) && keyField->isVisible());
        QVERIFY(DesktopSession::click(keyField));
        QVERIFY(DesktopSession::type(QStringLiteral("sk-first run")));
        QTRY_COMPARE(m_preferences->string(Preferences::apiKey), QStringLiteral("sk-first run"));
        QVERIFY(m_delegate->hotkeyManager()->isDoubleCopyMonitorActive());
        QVERIFY(key(QStringLiteral("Return")));
        // This desktop has no tray: the last page says how to reach Ravelo instead.
        QTRY_VERIFY(DesktopSession::findItemWithText(
            walkthrough->contentItem(),
            QStringLiteral("Or run \"ravelo preferences\"; \"ravelo quit\" quits Ravelo.")));
        QVERIFY(saysNothingOfMacOnlyThings(walkthrough->contentItem()));
        QVERIFY(key(QStringLiteral("Return")));
        QTRY_VERIFY(!m_delegate->onboardingWindow());
        QVERIFY(m_preferences->boolean(Preferences::hasCompletedOnboarding));

        QVERIFY(copyInOtherApplication(QStringLiteral("first words")));
        QVERIFY(doubleCopyOpensThePanel());
        QCOMPARE(m_state->clipboardText(), QStringLiteral("first words"));
        QVERIFY(key(QStringLiteral("Escape")));
        QTRY_VERIFY(!panel()->isVisible());

        QCOMPARE(runRavelo({}).exitCode, 0);
        QTRY_VERIFY(m_delegate->settingsWindow() && m_delegate->settingsWindow()->isVisible());
        QQuickWindow* settings = m_delegate->settingsWindow()->window();
        QVERIFY(QTest::qWaitForWindowActive(settings, 5000));
        find(settings, "tabs")->setProperty("currentIndex", 2);
        QTRY_VERIFY(DesktopSession::findItemWithText(
            settings->contentItem(),
            QStringLiteral("Press Ctrl+C twice quickly to open the Ravelo panel.")));
        QVERIFY(saysNothingOfMacOnlyThings(settings->contentItem()));
        find(settings, "tabs")->setProperty("currentIndex", 1);
        QQuickItem* list = nullptr;
        QTRY_VERIFY((list = find(settings, "promptList")) && list->isVisible());
        QTRY_COMPARE(DesktopSession::findItems(list, QStringLiteral("editButton")).size(), 3);
        QVERIFY(DesktopSession::click(
            DesktopSession::findItems(list, QStringLiteral("editButton")).first()));
        QQuickItem* title = nullptr;
        QTRY_VERIFY((title = find(settings, "titleField")) && title->isVisible());
        QVERIFY(DesktopSession::click(title));
        QVERIFY(key(QStringLiteral("ctrl+a")));
        QVERIFY(DesktopSession::type(QStringLiteral("Auf Deutsch")));
        QVERIFY(key(QStringLiteral("Return")));
        QTRY_COMPARE(PromptStore::load(*m_preferences).first().title,
                     QStringLiteral("Auf Deutsch"));
        QCOMPARE(m_state->prompts().first().title, QStringLiteral("Auf Deutsch"));

        QVERIFY(copyInOtherApplication(QStringLiteral("second words")));
        QVERIFY(doubleCopyOpensThePanel());
        QTRY_VERIFY(
            DesktopSession::findItemWithText(panel()->view(), QStringLiteral("Auf Deutsch")));
    }

    // Each window shows its controls whichever opened first, and as often as it is opened.
    void everyWindowInAnyOrder()
    {
        QVERIFY(copyInOtherApplication(QStringLiteral("any order")));
        for (int round = 0; round < 2; ++round) {
            QVERIFY(doubleCopyOpensThePanel());
            QTRY_COMPARE(DesktopSession::countItems(panel()->view(), QStringLiteral("promptChip")),
                         3);
            QVERIFY(key(QStringLiteral("Escape")));
            QTRY_VERIFY(!panel()->isVisible());

            m_delegate->openSettings();
            QQuickWindow* settings = m_delegate->settingsWindow()->window();
            QVERIFY(QTest::qWaitForWindowExposed(settings));
            QTRY_VERIFY(isShown(settings, "serverChoice"));
            QVERIFY(isShown(settings, "autostartToggle"));
            settings->close();
            QTRY_VERIFY(!m_delegate->settingsWindow()->isVisible());

            m_delegate->showOnboarding();
            QQuickWindow* walkthrough = m_delegate->onboardingWindow()->window();
            QVERIFY(QTest::qWaitForWindowExposed(walkthrough));
            QTRY_VERIFY(isShown(walkthrough, "continueButton"));
            QVERIFY(isShown(walkthrough, "pageDots"));
            m_delegate->onboardingWindow()->close();
            QTRY_VERIFY(!walkthrough->isVisible());
        }
        QVERIFY(doubleCopyOpensThePanel());
        QTRY_COMPARE(DesktopSession::countItems(panel()->view(), QStringLiteral("promptChip")), 3);
    }

    // A prompt streams in; Ctrl+C copies the answer and closes. Copying twice in Ravelo's own
    // windows copies; it is not a request for the panel.
    void runCopyAndCloseWithoutTriggeringInRavelosWindows()
    {
        QVERIFY(copyInOtherApplication(QStringLiteral("Hallo Welt")));
        QVERIFY(doubleCopyOpensThePanel());
        QCOMPARE(m_state->clipboardText(), QStringLiteral("Hallo Welt"));
        QTRY_COMPARE(viewText("clipboardText"), QStringLiteral("Hallo Welt"));
        ChatResponse response;
        response.piece(chunk("Hello"));
        response.piece(chunk(" world") + "data: [DONE]\n\n", 200);
        m_server->enqueue(response);
        QVERIFY(key(QStringLiteral("1")));
        QTRY_COMPARE(m_state->resultText(), QStringLiteral("Hello"));
        QVERIFY(m_state->isLoading());
        QTRY_COMPARE(m_state->resultText(), QStringLiteral("Hello world"));
        QTRY_VERIFY(!m_state->isLoading());
        QTRY_COMPARE(viewText("answerText"), QStringLiteral("Hello world"));
        QCOMPARE(m_server->sentMessage(0, 0), m_state->prompts().first().systemPrompt);
        QCOMPARE(m_preferences->integer(Preferences::totalPromptsUsed), 1);

        QSignalSpy shown(m_delegate.get(), &AppDelegate::panelRequested);
        QSignalSpy triggered(m_delegate->hotkeyManager(), &HotkeyManager::triggered);
        // A trigger may wait this long for the clipboard before it shows the panel.
        const auto settle = [] { QTest::qWait(int(2 * AppDelegate::clipboardWait.count())); };
        const auto doubleCopy = [] {
            return DesktopSession::xdotool(
                {QStringLiteral("key"), QStringLiteral("ctrl+c"), QStringLiteral("ctrl+c")});
        };
        QVERIFY(doubleCopy());
        QVERIFY(triggered.wait());
        settle();
        QCOMPARE(DesktopSession::pasteInOtherApplication(), QStringLiteral("Hello world"));
        QVERIFY(!panel()->isVisible());
        QCOMPARE(m_state->resultText(), QString());
        QCOMPARE(shown.size(), 0);

        m_delegate->openSettings();
        QVERIFY(QTest::qWaitForWindowActive(m_delegate->settingsWindow()->window(), 5000));
        QVERIFY(doubleCopy());
        QVERIFY(triggered.wait());
        settle();
        QCOMPARE(shown.size(), 0);

        // The same keys in another application still open the panel.
        QVERIFY(doubleCopyOpensThePanel());
        QCOMPARE(shown.size(), 1);
    }

    // A prompt's own hotkey pressed in another application opens the panel on the copied text
    // and runs exactly that prompt; with nothing copied it does nothing, as a trigger would.
    void promptHotkeyRunsItsPromptAtOnce()
    {
        const Prompt second = m_state->prompts().at(1);
        // Ctrl+Shift+K, stored the way the prompt editor stores it; the write re-arms.
        PromptHotkeys::save(*m_preferences, {{second.id, StoredHotkey{40, 768}}});
        QVERIFY(m_delegate->hotkeyManager()->isPromptHotkeyRegistered(second.id));
        QVERIFY(!m_delegate->hotkeyManager()->isHotkeyRegistered());

        QVERIFY(copyInOtherApplication(QStringLiteral("Guten Morgen")));
        m_otherClient->createFocusedWindow();
        m_server->enqueue(ChatResponse::events(
            {"{\"choices\":[{\"delta\":{\"content\":\"Good morning\"}}]}", "[DONE]"}));
        QVERIFY(key(QStringLiteral("ctrl+shift+k")));
        QTRY_VERIFY(panel() && panel()->isExposed());
        QTRY_COMPARE(m_state->resultText(), QStringLiteral("Good morning"));
        QCOMPARE(m_server->requests().size(), 1);
        QCOMPARE(m_server->sentMessage(0, 0), second.systemPrompt);
        QCOMPARE(m_server->sentMessage(0, 1), QStringLiteral("Guten Morgen"));
        QTRY_COMPARE(viewText("answerText"), QStringLiteral("Good morning"));
        QVERIFY(key(QStringLiteral("Escape")));
        QTRY_VERIFY(!panel()->isVisible());

        QGuiApplication::clipboard()->clear();
        QTRY_VERIFY(QGuiApplication::clipboard()->text().isEmpty());
        m_otherClient->createFocusedWindow();
        QSignalSpy pressed(m_delegate->hotkeyManager(), &HotkeyManager::promptTriggered);
        QVERIFY(key(QStringLiteral("ctrl+shift+k")));
        QVERIFY(pressed.wait());
        QCOMPARE(pressed.first().first().value<QUuid>(), second.id);
        QCoreApplication::processEvents();
        QVERIFY(!panel()->isVisible());
        QCOMPARE(m_server->requests().size(), 1);
    }

    // Esc closes the custom field before the panel; a custom prompt run is saved as the
    // fourth action. The preferences open over the panel, from its button and by Ctrl+,.
    void customPromptAndPreferencesFromThePanel()
    {
        QVERIFY(copyInOtherApplication(QStringLiteral("quiet words")));
        QVERIFY(doubleCopyOpensThePanel());
        QVERIFY(key(QStringLiteral("ctrl+comma")));
        QTRY_VERIFY(m_delegate->settingsWindow() && m_delegate->settingsWindow()->isVisible());
        QVERIFY(QTest::qWaitForWindowExposed(m_delegate->settingsWindow()->window()));
        m_delegate->settingsWindow()->window()->close();
        QTRY_VERIFY(!m_delegate->settingsWindow()->isVisible());

        QVERIFY(doubleCopyOpensThePanel());
        QVERIFY(key(QStringLiteral("Return")));
        QTRY_VERIFY(m_state->showCustomPromptInput());
        QVERIFY(DesktopSession::type(QStringLiteral("draft")));
        QTRY_COMPARE(m_state->customPromptText(), QStringLiteral("draft"));
        QVERIFY(key(QStringLiteral("Escape")));
        QTRY_VERIFY(!m_state->showCustomPromptInput());
        QCOMPARE(m_state->customPromptText(), QString());
        QVERIFY(panel()->isVisible());

        m_server->enqueue(
            ChatResponse::events({R"({"choices":[{"delta":{"content":"QUIET WORDS"}}]})"}));
        QVERIFY(key(QStringLiteral("Return")));
        QTRY_VERIFY(m_state->showCustomPromptInput());
        QVERIFY(DesktopSession::type(QStringLiteral("Shout it")));
        QVERIFY(key(QStringLiteral("Return")));
        QTRY_COMPARE(m_state->resultText(), QStringLiteral("QUIET WORDS"));
        QCOMPARE(m_server->sentMessage(0, 0), QStringLiteral("Shout it"));
        QCOMPARE(m_state->lastCustomPromptText(),
                 std::optional<QString>(QStringLiteral("Shout it")));
        QQuickItem* save = panel()->view()->findChild<QQuickItem*>(QStringLiteral("saveButton"));
        QVERIFY(save);
        QTRY_VERIFY(save->isVisible());
        QVERIFY(DesktopSession::click(save));
        QTRY_COMPARE(m_state->prompts().size(), 4);
        QCOMPARE(m_state->prompts().last().systemPrompt, QStringLiteral("Shout it"));
        QCOMPARE(m_state->prompts().last().number, 4);
        QCOMPARE(PromptStore::load(*m_preferences).size(), 4);
        QTRY_COMPARE(DesktopSession::countItems(panel()->view(), QStringLiteral("promptChip")), 4);

        QVERIFY(DesktopSession::click(
            panel()->view()->findChild<QQuickItem*>(QStringLiteral("preferencesButton"))));
        QTRY_VERIFY(m_delegate->settingsWindow() && m_delegate->settingsWindow()->isVisible());
        const QString preferences =
            QString::number(m_delegate->settingsWindow()->window()->winId());
        const QString quickPanel = QString::number(panel()->winId());
        // Bottom to top, as the window manager stacks them.
        const auto stacking = [] {
            QProcess xprop;
            xprop.start(QStringLiteral("xprop"),
                        {QStringLiteral("-root"), QStringLiteral("_NET_CLIENT_LIST_STACKING")});
            xprop.waitForFinished();
            QStringList windows;
            const QString out = QString::fromLatin1(xprop.readAllStandardOutput());
            for (const QString& id : out.section(u'#', 1).split(u',', Qt::SkipEmptyParts)) {
                windows << QString::number(id.trimmed().toULongLong(nullptr, 16));
            }
            return windows;
        };
        QTRY_VERIFY(stacking().indexOf(preferences) > stacking().indexOf(quickPanel));
        QVERIFY(panel()->isVisible());
        m_delegate->settingsWindow()->window()->close();
    }

    void newTriggerCancelsTheStreamingRun()
    {
        QVERIFY(copyInOtherApplication(QStringLiteral("first text")));
        QVERIFY(doubleCopyOpensThePanel());
        ChatResponse slow;
        slow.piece(chunk("old"));
        slow.piece(chunk("STALE") + "data: [DONE]\n\n", 1500);
        m_server->enqueue(slow);
        QVERIFY(key(QStringLiteral("1")));
        QTRY_COMPARE(m_state->resultText(), QStringLiteral("old"));

        QVERIFY(copyInOtherApplication(QStringLiteral("second text")));
        QVERIFY(doubleCopyOpensThePanel());
        QTRY_COMPARE(m_state->clipboardText(), QStringLiteral("second text"));
        QCOMPARE(m_state->resultText(), QString());
        QVERIFY(!m_state->isLoading());

        ChatResponse quick;
        quick.piece(chunk("new"));
        quick.piece(chunk("er") + "data: [DONE]\n\n", 2500);
        m_server->enqueue(quick);
        QVERIFY(key(QStringLiteral("2")));
        QTRY_COMPARE(m_state->resultText(), QStringLiteral("new"));
        // The first run's transfer ends while the second still streams: it must neither
        // append nor end the second run's loading.
        QTRY_COMPARE_WITH_TIMEOUT(m_server->completedResponses(), 1, 5000);
        QTest::qWait(100);
        QCOMPARE(m_state->resultText(), QStringLiteral("new"));
        QVERIFY(m_state->isLoading());
        QTRY_COMPARE_WITH_TIMEOUT(m_state->resultText(), QStringLiteral("newer"), 5000);
        QTRY_VERIFY(!m_state->isLoading());
        QCOMPARE(m_preferences->integer(Preferences::totalPromptsUsed), 2);

        // A failed run shows its error in place of an answer.
        m_server->enqueue(ChatResponse::error(401, "bad key"));
        QVERIFY(key(QStringLiteral("3")));
        QTRY_COMPARE(m_state->resultText(), QStringLiteral("Error: HTTP 401: bad key"));
        QTRY_COMPARE(viewText("answerText"), m_state->resultText());
        QVERIFY(!m_state->isLoading());
    }
};

QTEST_MAIN(TestEndToEnd)
#include "tst_endtoend.moc"
