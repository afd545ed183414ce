#include "KeyboardWalk.h"
#include "app/AppState.h"
#include "model/PreferenceStore.h"
#include "onboarding/OnboardingWindow.h"
#include "platform/ModuleWindow.h"

#include <QGuiApplication>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickView>
#include <QQuickWindow>
#include <QScreen>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QtQml/qqmlextensionplugin.h>

Q_IMPORT_QML_PLUGIN(RaveloPlugin)

using namespace Qt::StringLiterals;

namespace {

QQuickItem* item(QQuickWindow* window, const QString& name)
{
    return window->contentItem()->findChild<QQuickItem*>(name);
}

int currentStep(QQuickWindow* window)
{
    const QQuickItem* root = qobject_cast<QQuickView*>(window)->rootObject();
    return root->property("flow").value<QObject*>()->property("currentStep").toInt();
}

} // namespace

class TestOnboardingWindow : public QObject {
    Q_OBJECT

private slots:
    // Opens centred at a fixed size. Tab reaches every control of every page, the key is typed and
    // the server chosen without a mouse, Return on the focused Back goes back, Return elsewhere
    // goes on, and Esc or closing stores nothing. Finishing stores the flag before it completes.
    void walkedByKeyboardClosedAndFinished()
    {
        QTemporaryDir dir;
        PreferenceStore store(dir.filePath(u"a.conf"_s));
        AppState state(&store);
        AppState::setQmlInstance(&state);
        const std::unique_ptr<QQmlEngine> engine = createModuleEngine();
        OnboardingWindow onboarding(engine.get());
        bool storedBefore = false;
        QSignalSpy completed(&onboarding, &OnboardingWindow::completed);
        connect(&onboarding, &OnboardingWindow::completed,
                [&] { storedBefore = store.boolean(Preferences::hasCompletedOnboarding); });
        onboarding.show();
        QQuickWindow* window = onboarding.window();
        QVERIFY(QTest::qWaitForWindowActive(window));
        QCOMPARE(window->title(), QString());
        QCOMPARE(window->size(), QSize(560, 460));
        QCOMPARE(window->maximumSize(), QSize(560, 460));
        const QRect area = QGuiApplication::primaryScreen()->availableGeometry();
        QVERIFY((window->geometry().center() - area.center()).manhattanLength() <= 2);

        for (int step = 0; step < 4; ++step) {
            QTRY_COMPARE(currentStep(window), step);
            QCOMPARE(KeyboardWalk::tabMisses(window), QString());
            if (step == 2) {
                QVERIFY(KeyboardWalk::tabTo(window, u"apiKeyField"_s));
                for (const char c : QByteArrayView("sk-typed")) {
                    QTest::keyClick(window, c);
                }
                QCOMPARE(store.string(Preferences::apiKey), u"sk-typed"_s);
                QVERIFY(KeyboardWalk::tabTo(window, u"serverChoice"_s));
                QTest::keyClick(window, Qt::Key_Down);
                QTRY_VERIFY(item(window, u"serverForm"_s)->isVisible());
                QCOMPARE(KeyboardWalk::tabMisses(window), QString());
                QVERIFY(KeyboardWalk::tabTo(window, u"serverChoice"_s));
                QTest::keyClick(window, Qt::Key_Up);
                QTRY_VERIFY(!item(window, u"serverForm"_s)->isVisible());
                QVERIFY(KeyboardWalk::tabTo(window, u"backButton"_s));
                QTest::keyClick(window, Qt::Key_Return);
                QCOMPARE(currentStep(window), 1);
                QVERIFY(KeyboardWalk::tabTo(window, u"continueButton"_s));
                QTest::keyClick(window, Qt::Key_Return);
                QCOMPARE(currentStep(window), 2);
            }
            if (step < 3) {
                QVERIFY(KeyboardWalk::tabTo(window, u"continueButton"_s));
                QTest::keyClick(window, Qt::Key_Return);
            }
        }
        QVERIFY(completed.isEmpty());
        QTest::keyClick(window, Qt::Key_Escape);
        QTRY_VERIFY(!onboarding.isVisible());
        QVERIFY(completed.isEmpty());
        QVERIFY(!store.contains(Preferences::hasCompletedOnboarding));

        onboarding.show();
        QVERIFY(QTest::qWaitForWindowActive(onboarding.window()));
        QTest::keyClick(onboarding.window(), Qt::Key_Return);
        onboarding.close();
        QTRY_VERIFY(!onboarding.isVisible());
        QVERIFY(completed.isEmpty());
        QVERIFY(!store.contains(Preferences::hasCompletedOnboarding));

        onboarding.show();
        window = onboarding.window();
        QVERIFY(QTest::qWaitForWindowActive(window));
        for (int i = 0; i < 3; ++i) {
            QTest::keyClick(window, Qt::Key_Return);
        }
        QVERIFY(completed.isEmpty());
        QTest::keyClick(window, Qt::Key_Return);
        QCOMPARE(completed.count(), 1);
        QVERIFY(storedBefore);
    }
};

QTEST_MAIN(TestOnboardingWindow)
#include "tst_onboardingwindow.moc"
