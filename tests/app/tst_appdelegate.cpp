#include "ChatServer.h"
#include "SecretService.h"
#include "XTestKeyboard.h"
#include "app/AppDelegate.h"
#include "app/AppState.h"
#include "model/PreferenceStore.h"
#include "model/Prompt.h"
#include "settings/HotkeyRecording.h"
#include "triggers/HotkeyManager.h"

#include <QClipboard>
#include <QDir>
#include <QGuiApplication>
#include <QMimeData>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <xkbcommon/xkbcommon-keysyms.h>

// The controller's launch sequence, arming and trigger handling on a real X server with the
// real clipboard.
class TestAppDelegate : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<XTestKeyboard> m_keyboard;
    std::unique_ptr<PreferenceStore> m_preferences;
    std::unique_ptr<AppState> m_state;
    std::unique_ptr<AppDelegate> m_delegate;
    SecretService m_secrets;

    void launch()
    {
        m_state = std::make_unique<AppState>(m_preferences.get());
        m_delegate = std::make_unique<AppDelegate>(m_state.get());
        m_delegate->applicationDidFinishLaunching();
    }

    HotkeyManager* manager() const { return m_delegate->hotkeyManager(); }

    void completeOnboarding()
    {
        m_preferences->setBoolean(Preferences::hasCompletedOnboarding, true);
    }

private slots:
    void initTestCase()
    {
        QCOMPARE(QGuiApplication::platformName(), QStringLiteral("xcb"));
        m_keyboard = std::make_unique<XTestKeyboard>();
        QVERIFY(m_keyboard->isValid());
        m_keyboard->createFocusedWindow();
    }

    void init()
    {
        const QString path =
            QDir(qEnvironmentVariable("XDG_CONFIG_HOME"))
                .filePath(QStringLiteral("Ravelo/%1.conf")
                              .arg(QString::fromLatin1(QTest::currentTestFunction())));
        QFile::remove(path);
        m_preferences = std::make_unique<PreferenceStore>(path);
    }

    void cleanup()
    {
        m_delegate.reset();
        m_state.reset();
        m_preferences.reset();
    }

    // Just started, the keyring has not answered yet: the run waits for the key instead of
    // going out without it.
    void runChosenBeforeTheKeyringAnswersWaitsForTheKey()
    {
        QVERIFY2(m_secrets.start(), qPrintable(m_secrets.error()));
        m_secrets.useInThisProcess();
        QVERIFY(m_secrets.storeApiKey(QStringLiteral("sk-in-keyring")));
        ChatServer server;
        server.enqueue(ChatResponse::events({R"({"choices":[{"delta":{"content":"Hi"}}]})"}));
        m_preferences->setString(Preferences::baseUrl, server.baseUrl());
        completeOnboarding();
        m_preferences->useKeyring();
        launch();
        QCOMPARE(m_preferences->apiKeyStorage(), PreferenceStore::ApiKeyStorage::ReadingKeyring);
        m_delegate->runPrompt(Prompt::defaults().first());
        QVERIFY(m_state->isLoading());
        QCOMPARE(m_state->resultText(), QString());
        QTRY_COMPARE(m_state->resultText(), QStringLiteral("Hi"));
        QCOMPARE(server.requests().size(), 1);
        QCOMPARE(server.requests().first().header("Authorization"),
                 QByteArray("Bearer sk-in-keyring"));
    }

    // Launch arms what is stored; every write re-arms, except while a hotkey is recorded.
    void armingFollowsTheStoredSettings()
    {
        completeOnboarding();
        m_preferences->setInteger(Preferences::customHotkeyKeyCode, 40);
        m_preferences->setInteger(Preferences::customHotkeyModifiers, 768);
        launch();
        QVERIFY(manager()->isDoubleCopyMonitorActive());
        QVERIFY(manager()->doubleCopyEnabled());
        QVERIFY(manager()->isHotkeyRegistered());

        const int recorder = 0;
        HotkeyRecording::instance()->setRecorderActive(&recorder, true);
        QVERIFY(!manager()->isDoubleCopyMonitorActive());
        QVERIFY(!manager()->isHotkeyRegistered());
        m_preferences->setInteger(Preferences::customHotkeyKeyCode, 49);
        QVERIFY(!manager()->isHotkeyRegistered());
        QVERIFY(!manager()->isDoubleCopyMonitorActive());
        HotkeyRecording::instance()->setRecorderActive(&recorder, false);
        QVERIFY(manager()->isDoubleCopyMonitorActive());
        QVERIFY(manager()->isHotkeyRegistered());

        m_preferences->setBoolean(Preferences::useDoubleCopy, false);
        QVERIFY(!manager()->isDoubleCopyMonitorActive());
        QVERIFY(!manager()->doubleCopyEnabled());
        // Cleared: the grab goes at once.
        m_preferences->setInteger(Preferences::customHotkeyKeyCode, 0);
        QVERIFY(!manager()->isHotkeyRegistered());
        m_preferences->setInteger(Preferences::customHotkeyKeyCode, 49);
        m_preferences->setInteger(Preferences::customHotkeyModifiers, 2048);
        QVERIFY(manager()->isHotkeyRegistered());
        m_preferences->setBoolean(Preferences::useDoubleCopy, true);
        QVERIFY(manager()->isDoubleCopyMonitorActive());
    }

    void storedValuesTheRecorderNeverWritesAreNoHotkey_data()
    {
        QTest::addColumn<qint64>("keyCode");
        QTest::addColumn<qint64>("modifiers");
        QTest::newRow("negative key code") << qint64(-40) << qint64(256);
        QTest::newRow("key code beyond 32 bits") << (qint64(1) << 32 | 40) << qint64(256);
        QTest::newRow("modifiers of 2^32") << qint64(40) << (qint64(1) << 32);
        QTest::newRow("modifiers beyond 32 bits") << qint64(40) << (qint64(1) << 40 | 256);
        QTest::newRow("negative modifiers") << qint64(40) << qint64(-256);
        QTest::newRow("an unknown modifier bit") << qint64(40) << qint64(1 << 20);
        QTest::newRow("an unknown bit beside Ctrl") << qint64(40) << qint64(256 | 1);
        QTest::newRow("unknown key code") << qint64(4000) << qint64(256);
    }

    void storedValuesTheRecorderNeverWritesAreNoHotkey()
    {
        QFETCH(qint64, keyCode);
        QFETCH(qint64, modifiers);
        completeOnboarding();
        m_preferences->setInteger(Preferences::customHotkeyKeyCode, keyCode);
        m_preferences->setInteger(Preferences::customHotkeyModifiers, modifiers);
        launch();
        QVERIFY(manager()->isDoubleCopyMonitorActive());
        QVERIFY(!manager()->isHotkeyRegistered());
        // Nothing of K is held: another application can take K alone and with Ctrl.
        const xcb_keycode_t k = m_keyboard->keycode(XKB_KEY_k);
        for (const quint16 x11Modifiers : {quint16(0), quint16(XCB_MOD_MASK_CONTROL)}) {
            QCOMPARE(m_keyboard->grabKey(k, x11Modifiers), quint8(0));
            m_keyboard->ungrabKey(k, x11Modifiers);
        }
    }

    void triggerReadsTheClipboard_data()
    {
        QTest::addColumn<QString>("content");
        QTest::addColumn<bool>("image");
        QTest::addColumn<bool>("shown");
        QTest::newRow("text") << QStringLiteral("Hello, Welt ✓") << false << true;
        QTest::newRow("empty clipboard") << QString() << false << false;
        QTest::newRow("only an image") << QString() << true << false;
    }

    void triggerReadsTheClipboard()
    {
        QFETCH(QString, content);
        QFETCH(bool, image);
        QFETCH(bool, shown);
        completeOnboarding();
        launch();
        QClipboard* clipboard = QGuiApplication::clipboard();
        if (image) {
            auto* data = new QMimeData;
            data->setData(QStringLiteral("image/png"), QByteArray("\x89PNG\r\n", 6));
            clipboard->setMimeData(data);
        } else if (content.isEmpty()) {
            clipboard->clear();
        } else {
            clipboard->setText(content);
        }
        m_state->setClipboardText(QStringLiteral("earlier"));
        m_state->setResultText(QStringLiteral("an earlier answer"));
        m_state->setIsLoading(true);
        m_state->setLastCustomPromptText(QStringLiteral("shorter"));
        QSignalSpy panel(m_delegate.get(), &AppDelegate::panelRequested);

        manager()->trigger();
        QTRY_COMPARE(m_state->clipboardText(), content);
        QCOMPARE(m_state->resultText(), QString());
        QVERIFY(!m_state->isLoading());
        QCOMPARE(m_state->lastCustomPromptText(), std::nullopt);
        QCOMPARE(panel.size(), shown ? 1 : 0);
    }

    void keysReadTheClipboard_data()
    {
        QTest::addColumn<bool>("hotkey");
        QTest::addColumn<bool>("copyLandsLate");
        QTest::addColumn<QString>("read");
        QTest::newRow("double copy, the copy lands late")
            << false << true << QStringLiteral("fresh");
        QTest::newRow("double copy, nothing changes") << false << false << QStringLiteral("old");
        QTest::newRow("hotkey") << true << false << QStringLiteral("old");
    }

    // Right after the second copy press the application that has the focus may not have
    // put the copied text on the clipboard yet: a double copy waits for it, up to a deadline;
    // the hotkey reads at once.
    void keysReadTheClipboard()
    {
        QFETCH(bool, hotkey);
        QFETCH(bool, copyLandsLate);
        QFETCH(QString, read);
        completeOnboarding();
        m_preferences->setInteger(Preferences::customHotkeyKeyCode, 40);
        m_preferences->setInteger(Preferences::customHotkeyModifiers, 768);
        launch();
        QGuiApplication::clipboard()->setText(QStringLiteral("old"));
        QSignalSpy panel(m_delegate.get(), &AppDelegate::panelRequested);
        QSignalSpy triggered(manager(), &HotkeyManager::triggered);
        if (copyLandsLate) {
            connect(manager(), &HotkeyManager::triggered, this, [this] {
                QTimer::singleShot(60, m_delegate.get(), [] {
                    QGuiApplication::clipboard()->setText(QStringLiteral("fresh"));
                });
            });
        }
        if (hotkey) {
            m_keyboard->tap(XKB_KEY_k, {XKB_KEY_Control_L, XKB_KEY_Shift_L});
        } else {
            m_keyboard->tap(XKB_KEY_c, {XKB_KEY_Control_L});
            m_keyboard->tap(XKB_KEY_c, {XKB_KEY_Control_L});
        }
        QVERIFY(triggered.wait());
        QCOMPARE(panel.size(), hotkey ? 1 : 0);
        if (!hotkey) {
            QVERIFY(panel.wait());
        }
        QCOMPARE(m_state->clipboardText(), read);
        QCOMPARE(panel.size(), 1);
    }
};

QTEST_MAIN(TestAppDelegate)
#include "tst_appdelegate.moc"
