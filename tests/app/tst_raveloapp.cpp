#include "app/AppDelegate.h"
#include "app/AppState.h"
#include "app/RaveloApp.h"
#include "model/PreferenceStore.h"

#include <QApplication>
#include <QDir>
#include <QLabel>
#include <QMessageBox>
#include <QSignalSpy>
#include <QSystemTrayIcon>
#include <QTest>

// The tray menu and the About dialog. Offscreen there is no tray: the menu is built all the
// same and Ravelo keeps running without the icon.
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

    std::unique_ptr<PreferenceStore> m_preferences;
    std::unique_ptr<AppState> m_state;
    std::unique_ptr<RaveloApp> m_app;

private slots:
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

    void menuItemsInOrder()
    {
        QStringList items;
        QStringList shortcuts;
        for (QAction* action : m_app->menu()->actions()) {
            items.append(action->isSeparator() ? QStringLiteral("-") : action->text());
            shortcuts.append(action->shortcut().toString(QKeySequence::NativeText));
        }
        QCOMPARE(items, (QStringList{QStringLiteral("About Ravelo"), QStringLiteral("-"),
                                     QStringLiteral("Preferences…"), QStringLiteral("-"),
                                     QStringLiteral("Show Onboarding…"), QStringLiteral("-"),
                                     QStringLiteral("Quit Ravelo")}));
        QCOMPARE(shortcuts.at(2), QStringLiteral("Ctrl+,"));
        QCOMPARE(shortcuts.at(6), QStringLiteral("Ctrl+Q"));
        QCOMPARE(shortcuts.at(0), QString());
    }

    void menuItemsReachTheController()
    {
        QSignalSpy settings(m_app->appDelegate(), &AppDelegate::settingsRequested);
        QSignalSpy onboarding(m_app->appDelegate(), &AppDelegate::onboardingRequested);
        m_app->menu()->actions().at(2)->trigger();
        m_app->menu()->actions().at(4)->trigger();
        QCOMPARE(settings.size(), 1);
        QCOMPARE(onboarding.size(), 1);
    }

    void noTrayHereYetRunning()
    {
        QCOMPARE(m_app->trayIcon() != nullptr, QSystemTrayIcon::isSystemTrayAvailable());
    }

    void aboutShowsVersionBuildAndCredits()
    {
        m_app->menu()->actions().at(0)->trigger();
        QMessageBox* about = nullptr;
        QTRY_VERIFY((about = visibleMessageBox()) != nullptr);
        QCOMPARE(about->windowTitle(), QStringLiteral("About Ravelo"));
        QVERIFY(about->text().contains(QLatin1String("Ravelo")));
        QVERIFY2(about->informativeText().contains(QLatin1String("Version 1.0 (1)")),
                 qPrintable(about->informativeText()));
        QVERIFY(about->informativeText().contains(
            QLatin1String("AI-powered clipboard actions at your fingertips.")));

        // A second request brings the same dialog forward.
        m_app->menu()->actions().at(0)->trigger();
        QCOMPARE(visibleMessageBox(), about);
        about->close();
    }
};

QTEST_MAIN(TestRaveloApp)
#include "tst_raveloapp.moc"
