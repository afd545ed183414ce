#include "app/AppState.h"
#include "model/PreferenceStore.h"
#include "platform/ModuleWindow.h"
#include "settings/SettingsWindow.h"

#include <QGuiApplication>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QScreen>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QtQml/qqmlextensionplugin.h>

Q_IMPORT_QML_PLUGIN(RaveloPlugin)

using namespace Qt::StringLiterals;

class TestSettingsWindow : public QObject {
    Q_OBJECT

private slots:
    void opensCentredWithFixedSize();
    void reopeningKeepsAVisibleWindowAndRebuildsAClosedOne();

private:
    QTemporaryDir m_dir;
};

namespace {

QObject* tabs(QQuickWindow* window)
{
    return window->contentItem()->findChild<QObject*>(u"tabs"_s);
}

} // namespace

void TestSettingsWindow::opensCentredWithFixedSize()
{
    PreferenceStore store(m_dir.filePath(u"a.conf"_s));
    AppState state(&store);
    AppState::setQmlInstance(&state);
    const std::unique_ptr<QQmlEngine> engine = createModuleEngine();
    SettingsWindow settings(engine.get());
    QVERIFY(!settings.isVisible());
    QCOMPARE(settings.window(), nullptr);

    settings.open();
    QQuickWindow* window = settings.window();
    QVERIFY(window);
    QVERIFY(QTest::qWaitForWindowExposed(window));
    QVERIFY(settings.isVisible());
    QCOMPARE(window->title(), u"Ravelo Preferences"_s);
    QCOMPARE(window->size(), QSize(520, 420));
    QCOMPARE(window->minimumSize(), QSize(520, 420));
    QCOMPARE(window->maximumSize(), QSize(520, 420));
    QVERIFY(!(window->flags() & Qt::WindowMaximizeButtonHint));
    const QRect area = QGuiApplication::primaryScreen()->availableGeometry();
    QVERIFY((window->geometry().center() - area.center()).manhattanLength() <= 2);
    QVERIFY(tabs(window));
}

void TestSettingsWindow::reopeningKeepsAVisibleWindowAndRebuildsAClosedOne()
{
    PreferenceStore store(m_dir.filePath(u"b.conf"_s));
    AppState state(&store);
    AppState::setQmlInstance(&state);
    const std::unique_ptr<QQmlEngine> engine = createModuleEngine();
    SettingsWindow settings(engine.get());
    QSignalSpy created(&settings, &SettingsWindow::windowCreated);

    settings.open();
    QPointer<QQuickWindow> first = settings.window();
    QVERIFY(QTest::qWaitForWindowExposed(first));
    tabs(first)->setProperty("currentIndex", 2);

    settings.open();
    QCOMPARE(created.count(), 1);
    QCOMPARE(settings.window(), first.data());
    QCOMPARE(tabs(first)->property("currentIndex").toInt(), 2);

    QTest::keyClick(first, Qt::Key_W, Qt::ControlModifier);
    QTRY_VERIFY(!settings.isVisible());
    settings.open();
    QCOMPARE(created.count(), 2);
    QVERIFY(QTest::qWaitForWindowExposed(settings.window()));
    QTRY_VERIFY(first.isNull());
    QCOMPARE(tabs(settings.window())->property("currentIndex").toInt(), 0);
    QVERIFY(settings.isVisible());
}

QTEST_MAIN(TestSettingsWindow)
#include "tst_settingswindow.moc"
