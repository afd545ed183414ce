// A first start as a new user meets it, under a real window manager: the walkthrough, then
// double copy, then the preferences opened by starting Ravelo a second time.
#include "DesktopSession.h"
#include "XTestKeyboard.h"
#include "app/AppDelegate.h"
#include "app/AppState.h"
#include "app/SingleInstance.h"
#include "model/PreferenceStore.h"
#include "model/PromptStore.h"
#include "onboarding/OnboardingWindow.h"
#include "panel/FloatingPanel.h"
#include "settings/SettingsWindow.h"
#include "triggers/HotkeyManager.h"

#include <QDir>
#include <QGuiApplication>
#include <QProcess>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTest>

class TestFirstRun : public QObject {
    Q_OBJECT

private:
    DesktopSession m_desktop;
    std::unique_ptr<XTestKeyboard> m_otherClient;

    static QQuickItem* find(QQuickWindow* window, const char* name)
    {
        return window ? window->contentItem()->findChild<QQuickItem*>(QLatin1String(name))
                      : nullptr;
    }

    // Every text shown in the window, one per line.
    static QString shownTexts(const QQuickItem* item)
    {
        if (!item || !item->isVisible()) {
            return {};
        }
        QString texts = item->property("text").toString() + QLatin1Char('\n');
        for (const QQuickItem* child : item->childItems()) {
            texts += shownTexts(child);
        }
        return texts;
    }

private slots:
    void initTestCase()
    {
        QCOMPARE(QGuiApplication::platformName(), QStringLiteral("xcb"));
        QVERIFY(m_desktop.startWindowManager());
        m_otherClient = std::make_unique<XTestKeyboard>();
        QVERIFY(m_otherClient->isValid());
    }

    void walkthroughThenDoubleCopyThenPreferences()
    {
        const QString path = QDir(qEnvironmentVariable("XDG_CONFIG_HOME"))
                                 .filePath(QStringLiteral("Ravelo/first.conf"));
        QFile::remove(path);
        PreferenceStore preferences(path);
        AppState state(&preferences);
        AppDelegate delegate(&state);
        SingleInstance instance;
        QVERIFY(instance.listen());
        connect(&instance, &SingleInstance::activationRequested, &delegate,
                &AppDelegate::openSettings);
        delegate.applicationDidFinishLaunching();

        // Nothing stored: the walkthrough opens and nothing is armed yet.
        QVERIFY(delegate.onboardingWindow());
        QQuickWindow* walkthrough = delegate.onboardingWindow()->window();
        QVERIFY(QTest::qWaitForWindowActive(walkthrough, 5000));
        QVERIFY(!delegate.hotkeyManager()->isDoubleCopyMonitorActive());

        QVERIFY(DesktopSession::key(QStringLiteral("Return")));
        QVERIFY(DesktopSession::key(QStringLiteral("Return")));
        QQuickItem* keyField = nullptr;
        QTRY_VERIFY((keyField = find(walkthrough, "apiKeyField")) && keyField->isVisible());
        QVERIFY(DesktopSession::click(keyField));
        QVERIFY(DesktopSession::type(QStringLiteral("sk-first run")));
        QTRY_COMPARE(preferences.string(Preferences::apiKey), QStringLiteral("sk-first run"));
        // The first write already arms the triggers.
        QVERIFY(delegate.hotkeyManager()->isDoubleCopyMonitorActive());
        QVERIFY(DesktopSession::key(QStringLiteral("Return")));

        // The last page: X11 has no permission to grant, and this desktop has no tray, so
        // it says how to reach Ravelo instead of pointing at a bolt.
        QTRY_VERIFY(DesktopSession::findItemWithText(walkthrough->contentItem(),
                                                     QStringLiteral("You're All Set!")));
        QTRY_VERIFY(DesktopSession::findItemWithText(
            walkthrough->contentItem(),
            QStringLiteral("Or run \"ravelo preferences\"; \"ravelo quit\" quits Ravelo.")));
        const QString lastPage = shownTexts(walkthrough->contentItem());
        QVERIFY2(!lastPage.contains(QLatin1String("menu bar")), qPrintable(lastPage));
        QVERIFY2(!lastPage.contains(QLatin1String("Accessibility")), qPrintable(lastPage));
        QVERIFY(DesktopSession::key(QStringLiteral("Return")));
        QTRY_VERIFY(!delegate.onboardingWindow());
        QVERIFY(preferences.boolean(Preferences::hasCompletedOnboarding));

        // A double copy now opens the panel with the copied text.
        QVERIFY(DesktopSession::copyInOtherApplication(QStringLiteral("first words")));
        m_otherClient->createFocusedWindow();
        QVERIFY(DesktopSession::xdotool(
            {QStringLiteral("key"), QStringLiteral("ctrl+c"), QStringLiteral("ctrl+c")}));
        QTRY_VERIFY_WITH_TIMEOUT(delegate.panel() && delegate.panel()->isExposed(), 5000);
        QCOMPARE(state.clipboardText(), QStringLiteral("first words"));
        QVERIFY(DesktopSession::key(QStringLiteral("Escape")));
        QTRY_VERIFY(!delegate.panel()->isVisible());

        // Starting Ravelo again opens the preferences of this instance.
        QProcess second;
        second.start(qEnvironmentVariable("RAVELO_BINARY"), {});
        QVERIFY(QTest::qWaitFor([&] { return second.state() == QProcess::NotRunning; }, 10000));
        QCOMPARE(second.exitCode(), 0);
        QTRY_VERIFY(delegate.settingsWindow() && delegate.settingsWindow()->isVisible());
        QQuickWindow* settings = delegate.settingsWindow()->window();
        QVERIFY(QTest::qWaitForWindowExposed(settings));
        QCOMPARE(settings->title(), QStringLiteral("Ravelo Preferences"));

        // Hotkey tab: no permission to ask for on X11.
        find(settings, "tabs")->setProperty("currentIndex", 2);
        QTRY_VERIFY(DesktopSession::findItemWithText(
            settings->contentItem(), QStringLiteral("Press Ctrl+C twice quickly to open the "
                                                    "Ravelo panel.")));
        const QString hotkeyTab = shownTexts(settings->contentItem());
        QVERIFY2(!hotkeyTab.contains(QLatin1String("Accessibility")), qPrintable(hotkeyTab));

        // Prompts tab: the first prompt gets a new title.
        find(settings, "tabs")->setProperty("currentIndex", 1);
        QQuickItem* list = nullptr;
        QTRY_VERIFY((list = find(settings, "promptList")) && list->isVisible());
        QTRY_COMPARE(DesktopSession::findItems(list, QStringLiteral("editButton")).size(), 3);
        const QList<QQuickItem*> edits =
            DesktopSession::findItems(list, QStringLiteral("editButton"));
        QVERIFY(QTest::qWaitForWindowActive(settings, 5000));
        QVERIFY(DesktopSession::click(edits.first()));
        QQuickItem* title = nullptr;
        QTRY_VERIFY((title = find(settings, "titleField")) && title->isVisible());
        QVERIFY(DesktopSession::click(title));
        QVERIFY(DesktopSession::key(QStringLiteral("ctrl+a")));
        QVERIFY(DesktopSession::type(QStringLiteral("Auf Deutsch")));
        QVERIFY(DesktopSession::key(QStringLiteral("Return")));
        QTRY_COMPARE(PromptStore::load(preferences).first().title, QStringLiteral("Auf Deutsch"));
        QCOMPARE(state.prompts().first().title, QStringLiteral("Auf Deutsch"));

        // The next trigger's panel shows the new title.
        QVERIFY(DesktopSession::copyInOtherApplication(QStringLiteral("second words")));
        m_otherClient->createFocusedWindow();
        QVERIFY(DesktopSession::xdotool(
            {QStringLiteral("key"), QStringLiteral("ctrl+c"), QStringLiteral("ctrl+c")}));
        QTRY_VERIFY_WITH_TIMEOUT(delegate.panel()->isExposed(), 5000);
        QTRY_VERIFY(DesktopSession::findItemWithText(delegate.panel()->view(),
                                                     QStringLiteral("Auf Deutsch")));
    }
};

QTEST_MAIN(TestFirstRun)
#include "tst_firstrun.moc"
