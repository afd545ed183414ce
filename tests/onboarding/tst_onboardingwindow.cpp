#include "app/AppState.h"
#include "model/PreferenceStore.h"
#include "onboarding/OnboardingWindow.h"
#include "platform/ModuleWindow.h"

#include <QGuiApplication>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QScreen>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QtQml/qqmlextensionplugin.h>

Q_IMPORT_QML_PLUGIN(RaveloPlugin)

using namespace Qt::StringLiterals;

class TestOnboardingWindow : public QObject {
    Q_OBJECT

private slots:
    void finishingStoresTheFlagThenCompletes();
    void closingStoresNothing();

private:
    QTemporaryDir m_dir;
};

void TestOnboardingWindow::finishingStoresTheFlagThenCompletes()
{
    PreferenceStore store(m_dir.filePath(u"a.conf"_s));
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

    for (int i = 0; i < 3; ++i) {
        QTest::keyClick(window, Qt::Key_Return);
    }
    QVERIFY(completed.isEmpty());
    QTest::keyClick(window, Qt::Key_Return);
    QCOMPARE(completed.count(), 1);
    QVERIFY(storedBefore);
}

void TestOnboardingWindow::closingStoresNothing()
{
    PreferenceStore store(m_dir.filePath(u"b.conf"_s));
    AppState state(&store);
    AppState::setQmlInstance(&state);
    const std::unique_ptr<QQmlEngine> engine = createModuleEngine();
    OnboardingWindow onboarding(engine.get());
    QSignalSpy completed(&onboarding, &OnboardingWindow::completed);
    onboarding.show();
    QVERIFY(QTest::qWaitForWindowExposed(onboarding.window()));
    QTest::keyClick(onboarding.window(), Qt::Key_Return);
    onboarding.close();
    QTRY_VERIFY(!onboarding.isVisible());
    QVERIFY(completed.isEmpty());
    QVERIFY(!store.contains(Preferences::hasCompletedOnboarding));
}

QTEST_MAIN(TestOnboardingWindow)
#include "tst_onboardingwindow.moc"
