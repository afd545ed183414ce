#include "DesktopSession.h"
#include "RaveloProcess.h"
#include "SessionBus.h"
#include "app/AppDelegate.h"
#include "app/AppState.h"
#include "app/RaveloApp.h"
#include "model/PreferenceStore.h"
#include "onboarding/OnboardingFlow.h"
#include "onboarding/OnboardingWindow.h"
#include "settings/SettingsWindow.h"

#include <QApplication>
#include <QDBusObjectPath>
#include <QDBusReply>
#include <QDBusVariant>
#include <QDir>
#include <QFile>
#include <QMessageBox>
#include <QProcess>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QSystemTrayIcon>
#include <QTemporaryDir>
#include <QTest>

// The tray icon, its menu and the About dialog on a real X server: the menu pops up and
// takes the keyboard as it does for a user; the tray is trayer, started late as at login.
class TestRaveloApp : public QObject {
    Q_OBJECT

private:
    /// The one visible message box; none when there is none or more than one.
    static QMessageBox* visibleMessageBox()
    {
        QMessageBox* found = nullptr;
        int count = 0;
        for (QWidget* widget : QApplication::topLevelWidgets()) {
            if (auto* box = qobject_cast<QMessageBox*>(widget); box && box->isVisible()) {
                found = box;
                ++count;
            }
        }
        return count == 1 ? found : nullptr;
    }

    /// Pops the menu up where a tray would, and waits until it has the keyboard.
    bool popUpMenu()
    {
        QMenu* menu = m_app->menu();
        menu->popup(QPoint(600, 40));
        return QTest::qWaitForWindowExposed(menu) &&
               QTest::qWaitFor([menu] { return QApplication::activePopupWidget() == menu; });
    }

    QAction* item(const QString& text) const
    {
        for (QAction* action : m_app->menu()->actions()) {
            if (action->text() == text) {
                return action;
            }
        }
        return nullptr;
    }

    DesktopSession m_desktop;
    QTemporaryDir m_iconTheme;
    std::unique_ptr<PreferenceStore> m_preferences;
    std::unique_ptr<AppState> m_state;
    std::unique_ptr<RaveloApp> m_app;

private slots:
    void initTestCase()
    {
        QCOMPARE(QGuiApplication::platformName(), QStringLiteral("xcb"));
        // An icon theme laid out as the installation lays it out.
        QVERIFY(m_iconTheme.isValid());
        const QDir hicolor(m_iconTheme.filePath(QStringLiteral("hicolor")));
        QVERIFY(hicolor.mkpath(QStringLiteral("scalable/apps")));
        QFile index(hicolor.filePath(QStringLiteral("index.theme")));
        QVERIFY(index.open(QIODevice::WriteOnly));
        index.write("[Icon Theme]\nName=Hicolor\nDirectories=scalable/apps\n\n"
                    "[scalable/apps]\nSize=48\nMinSize=8\nMaxSize=512\nType=Scalable\n");
        index.close();
        QVERIFY(QFile::copy(QStringLiteral(":/Ravelo/app/icons/ravelo.svg"),
                            hicolor.filePath(QStringLiteral("scalable/apps/ravelo.svg"))));
        QIcon::setThemeSearchPaths({m_iconTheme.path()});
    }

    void init()
    {
        const QString path = QDir(qEnvironmentVariable("XDG_CONFIG_HOME"))
                                 .filePath(QStringLiteral("Ravelo/app.conf"));
        QFile::remove(path);
        m_preferences = std::make_unique<PreferenceStore>(path);
        m_state = std::make_unique<AppState>(m_preferences.get());
        m_app = std::make_unique<RaveloApp>(m_state.get());
    }

    void cleanup()
    {
        m_app.reset();
        m_state.reset();
        m_preferences.reset();
    }

    // The shortcuts the menu shows work while it is open, typed as a user types them.
    void shownShortcutsWorkInTheOpenMenu()
    {
        QAction* preferences = item(QStringLiteral("Preferences…"));
        QAction* quit = item(QStringLiteral("Quit Ravelo"));
        QVERIFY(preferences && quit);
        QCOMPARE(preferences->shortcut().toString(QKeySequence::NativeText),
                 QStringLiteral("Ctrl+,"));
        QCOMPARE(quit->shortcut().toString(QKeySequence::NativeText), QStringLiteral("Ctrl+Q"));

        QSignalSpy settings(m_app->appDelegate(), &AppDelegate::settingsRequested);
        QVERIFY(popUpMenu());
        QVERIFY(DesktopSession::key(QStringLiteral("ctrl+comma")));
        QTRY_COMPARE(settings.size(), 1);
        QTRY_VERIFY(!m_app->menu()->isVisible());
        SettingsWindow* window = m_app->appDelegate()->settingsWindow();
        QVERIFY(window);
        QTRY_VERIFY(window->isVisible());

        // Quitting in a test leaves the test running: the item's action tells it was chosen.
        QSignalSpy quitChosen(quit, &QAction::triggered);
        QVERIFY(popUpMenu());
        QVERIFY(DesktopSession::key(QStringLiteral("ctrl+q")));
        QTRY_COMPARE(quitChosen.size(), 1);
        QTRY_VERIFY(!m_app->menu()->isVisible());
        QCOMPARE(settings.size(), 1);

        QSignalSpy onboarding(m_app->appDelegate(), &AppDelegate::onboardingRequested);
        item(QStringLiteral("Show Onboarding…"))->trigger();
        QCOMPARE(onboarding.size(), 1);
    }

    void aboutShowsVersionBuildAndCredits()
    {
        m_app->menu()->actions().at(0)->trigger();
        QMessageBox* about = nullptr;
        QTRY_VERIFY((about = visibleMessageBox()) != nullptr);
        QVERIFY2(about->informativeText().contains(QLatin1String("Version 1.0 (1)")),
                 qPrintable(about->informativeText()));

        // A second request brings the same dialog forward.
        m_app->menu()->actions().at(0)->trigger();
        QCOMPARE(visibleMessageBox(), about);
        about->close();
    }

    // The same with a tray that takes its items over D-Bus (Plasma, waybar, xfce4-panel): the
    // real program, and no XEmbed tray; the panel's watcher and host start after it or before.
    void statusNotifierHostGetsTheItem_data()
    {
        QTest::addColumn<bool>("hostStartsLater");
        QTest::addColumn<bool>("firstRun");
        QTest::newRow("host started later") << true << false;
        QTest::newRow("host started later, walkthrough open") << true << true;
        QTest::newRow("host there at start") << false << false;
    }

    void statusNotifierHostGetsTheItem()
    {
        QFETCH(bool, hostStartsLater);
        QFETCH(bool, firstRun);
        SessionBus bus;
        QVERIFY(bus.start());
        if (!hostStartsLater) {
            QVERIFY(bus.startStatusNotifierHost());
        }
        PreferenceStore(preferencesPastWalkthrough())
            .setBoolean(Preferences::hasCompletedOnboarding, !firstRun);
        QProcessEnvironment busAddress;
        busAddress.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), bus.address());
        RunningRavelo ravelo;
        QVERIFY2(ravelo.start({}, busAddress), ravelo.log().constData());
        if (hostStartsLater) {
            // The walkthrough tells whether there is a tray without deciding Qt's kind of tray.
            QVERIFY(ravelo.logged(firstRun ? "Walkthrough shown" : "shows no tray icons yet"));
            QVERIFY(bus.startStatusNotifierHost());
        }
        QTRY_COMPARE_WITH_TIMEOUT(bus.watcher().registeredItems().size(), 1, 10000);
        // The item answers on the bus: shown, with the menu.
        const QString item = bus.watcher().registeredItems().constFirst();
        const auto property = [&](const QString& name) {
            QDBusMessage get = QDBusMessage::createMethodCall(
                item.section(QLatin1Char('/'), 0, 0),
                QLatin1Char('/') + item.section(QLatin1Char('/'), 1),
                QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
            get << QStringLiteral("org.kde.StatusNotifierItem") << name;
            const QDBusReply<QDBusVariant> reply = bus.connection().call(get);
            return reply.isValid() ? reply.value().variant() : QVariant();
        };
        QCOMPARE(property(QStringLiteral("Status")).toString(), QStringLiteral("Active"));
        QCOMPARE(qvariant_cast<QDBusObjectPath>(property(QStringLiteral("Menu"))).path(),
                 QStringLiteral("/MenuBar"));
    }

    // No tray when Ravelo starts, as when the desktop's panel is still starting at login:
    // the tray that comes later gets the icon.
    void trayStartedLaterGetsTheIconByName()
    {
        QVERIFY(!QSystemTrayIcon::isSystemTrayAvailable());
        QVERIFY(m_desktop.startTray());
        QTRY_VERIFY_WITH_TIMEOUT(!m_desktop.trayIcons().isEmpty(), 10000);
        QCOMPARE(m_desktop.trayIcons().size(), 1);
        QVERIFY(m_app->trayIcon());
        QVERIFY(!m_app->trayIcon()->geometry().isEmpty());
        // The tray item names its icon, so that the tray and the icon theme can draw their
        // own; the walkthrough's last page points at it.
        QCOMPARE(m_app->trayIcon()->icon().name(), QStringLiteral("ravelo"));

        m_app->appDelegate()->showOnboarding();
        QQuickWindow* walkthrough = m_app->appDelegate()->onboardingWindow()->window();
        QVERIFY(QTest::qWaitForWindowExposed(walkthrough));
        auto* flow = walkthrough->contentItem()->findChild<OnboardingFlow*>();
        QVERIFY(flow);
        flow->setCurrentStep(3);
        QTRY_VERIFY(DesktopSession::findItemWithText(
            walkthrough->contentItem(),
            QStringLiteral("Ravelo is ready to go.\nLook for the bolt icon in your tray.")));
        QVERIFY(DesktopSession::findItemWithText(walkthrough->contentItem(),
                                                 QStringLiteral("Find Ravelo in your tray")));
    }

    // The real program: its icon clicked in the tray, then Ctrl+Q in the menu that opens.
    void ctrlQInTheTrayMenuQuitsRavelo()
    {
        QVERIFY(m_desktop.startTray());
        preferencesPastWalkthrough();
        RunningRavelo ravelo;
        QVERIFY2(ravelo.start(), ravelo.log().constData());

        // Its icon is the tray's window of the class "ravelo".
        QString icon;
        QTRY_VERIFY_WITH_TIMEOUT(
            [&] {
                for (const QString& line : m_desktop.trayIcons()) {
                    if (line.contains(QLatin1String("(\"ravelo\""))) {
                        icon = line.section(QLatin1Char(' '), 0, 0);
                        return true;
                    }
                }
                return false;
            }(),
            10000);
        QVERIFY(DesktopSession::xdotool({QStringLiteral("mousemove"), QStringLiteral("--window"),
                                         icon, QStringLiteral("8"), QStringLiteral("8"),
                                         QStringLiteral("click"), QStringLiteral("1")}));
        // The menu has the keyboard once it shows: wait for a window of the class "ravelo"
        // besides the icon.
        QVERIFY(QTest::qWaitFor(
            [] {
                return DesktopSession::xdotoolSays(
                           {QStringLiteral("search"), QStringLiteral("--onlyvisible"),
                            QStringLiteral("--classname"), QStringLiteral("ravelo")})
                           .count(QLatin1Char('\n')) >= 1;
            },
            5000));
        QVERIFY(DesktopSession::key(QStringLiteral("ctrl+q")));
        QProcess* process = ravelo.process();
        QVERIFY(QTest::qWaitFor([&] { return process->state() == QProcess::NotRunning; }, 10000));
        QCOMPARE(process->exitStatus(), QProcess::NormalExit);
        QCOMPARE(process->exitCode(), 0);
    }
};

QTEST_MAIN(TestRaveloApp)
#include "tst_raveloapp.moc"
