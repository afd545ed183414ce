#include "KeyboardWalk.h"
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

namespace {

QQuickItem* item(QQuickWindow* window, const QString& name)
{
    return window->contentItem()->findChild<QQuickItem*>(name);
}

void typeText(QQuickWindow* window, const QString& text)
{
    for (const QChar c : text) {
        QTest::keyClick(window, c.toLatin1());
    }
}

} // namespace

class TestSettingsWindow : public QObject {
    Q_OBJECT

private slots:
    void opensReopensAndWorksByKeyboardAlone();

private:
    QTemporaryDir m_dir;
};

// Opens centred at a fixed size; opened again while visible it stays as it is, closed with
// Ctrl+W it is built anew. Then someone without a mouse: Tab reaches every control of each tab,
// Ctrl+Tab / Ctrl+PgDown and back switch the tabs, the prompt list is walked, edited and pruned
// with the arrows, Return, Delete and Esc, a hotkey is recorded, and Esc closes the window.
void TestSettingsWindow::opensReopensAndWorksByKeyboardAlone()
{
    PreferenceStore store(m_dir.filePath(u"a.conf"_s));
    AppState state(&store);
    AppState::setQmlInstance(&state);
    const std::unique_ptr<QQmlEngine> engine = createModuleEngine();
    SettingsWindow settings(engine.get());
    QSignalSpy created(&settings, &SettingsWindow::windowCreated);
    QVERIFY(!settings.isVisible());
    QCOMPARE(settings.window(), nullptr);

    settings.open();
    QPointer<QQuickWindow> first = settings.window();
    QVERIFY(first);
    QVERIFY(QTest::qWaitForWindowExposed(first));
    QVERIFY(settings.isVisible());
    QCOMPARE(first->title(), u"Ravelo Preferences"_s);
    QCOMPARE(first->size(), QSize(520, 420));
    QCOMPARE(first->minimumSize(), QSize(520, 420));
    QCOMPARE(first->maximumSize(), QSize(520, 420));
    QVERIFY(!(first->flags() & Qt::WindowMaximizeButtonHint));
    const QRect area = QGuiApplication::primaryScreen()->availableGeometry();
    QVERIFY((first->geometry().center() - area.center()).manhattanLength() <= 2);
    item(first, u"tabs"_s)->setProperty("currentIndex", 2);

    settings.open();
    QCOMPARE(created.count(), 1);
    QCOMPARE(settings.window(), first.data());
    QCOMPARE(item(first, u"tabs"_s)->property("currentIndex").toInt(), 2);

    QTest::keyClick(first, Qt::Key_W, Qt::ControlModifier);
    QTRY_VERIFY(!settings.isVisible());
    settings.open();
    QCOMPARE(created.count(), 2);
    QQuickWindow* window = settings.window();
    QVERIFY(QTest::qWaitForWindowActive(window));
    QTRY_VERIFY(first.isNull());
    QVERIFY(settings.isVisible());
    QObject* tabBar = item(window, u"tabs"_s);
    QCOMPARE(tabBar->property("currentIndex").toInt(), 0);

    QVERIFY(KeyboardWalk::operableControls(window).size() >= 6);
    QCOMPARE(KeyboardWalk::tabMisses(window), QString());
    QVERIFY(KeyboardWalk::tabTo(window, u"apiKeyField"_s));
    typeText(window, u"sk-typed"_s);
    QCOMPARE(store.string(Preferences::apiKey), u"sk-typed"_s);

    QTest::keyClick(window, Qt::Key_PageDown, Qt::ControlModifier);
    QCOMPARE(tabBar->property("currentIndex").toInt(), 1);
    QTRY_VERIFY(item(window, u"promptList"_s));
    QCOMPARE(KeyboardWalk::tabMisses(window), QString());
    QVERIFY(KeyboardWalk::tabTo(window, u"promptList"_s));
    QTest::keyClick(window, Qt::Key_Down);
    QTest::keyClick(window, Qt::Key_Return);
    QTRY_VERIFY(item(window, u"titleField"_s));
    QVERIFY(item(window, u"titleField"_s)->hasActiveFocus());
    // Tab leaves the system prompt rather than typing into it.
    QCOMPARE(KeyboardWalk::tabMisses(window), QString());
    QVERIFY(KeyboardWalk::tabTo(window, u"titleField"_s));
    QTest::keyClick(window, Qt::Key_A, Qt::ControlModifier);
    typeText(window, u"Second"_s);
    QTest::keyClick(window, Qt::Key_Escape);
    QTRY_VERIFY(item(window, u"promptList"_s));
    QVERIFY(window->isVisible());
    QCOMPARE(state.prompts().at(1).title, Prompt::defaults().at(1).title);
    // Back on the row that was edited.
    QVERIFY(item(window, u"promptList"_s)->hasActiveFocus());
    QTRY_COMPARE(item(window, u"promptList"_s)->property("currentIndex").toInt(), 1);
    QTest::keyClick(window, Qt::Key_Return);
    QTRY_VERIFY(item(window, u"titleField"_s));
    QTest::keyClick(window, Qt::Key_A, Qt::ControlModifier);
    typeText(window, u"Second"_s);
    QTest::keyClick(window, Qt::Key_Return);
    QTRY_VERIFY(item(window, u"promptList"_s));
    QCOMPARE(state.prompts().at(1).title, u"Second"_s);
    QTest::keyClick(window, Qt::Key_Up);
    QTest::keyClick(window, Qt::Key_Delete);
    QCOMPARE(state.prompts().size(), Prompt::defaults().size() - 1);
    QCOMPARE(state.prompts().first().title, u"Second"_s);

    QTest::keyClick(window, Qt::Key_Tab, Qt::ControlModifier);
    QCOMPARE(tabBar->property("currentIndex").toInt(), 2);
    QTRY_VERIFY(item(window, u"recordButton"_s));
    QCOMPARE(KeyboardWalk::tabMisses(window), QString());
    QVERIFY(KeyboardWalk::tabTo(window, u"recordButton"_s));
    QTest::keyClick(window, Qt::Key_Space);
    QTest::keyClick(window, Qt::Key_K, Qt::ControlModifier | Qt::ShiftModifier);
    QCOMPARE(store.integer(Preferences::customHotkeyKeyCode), 40);
    QCOMPARE(store.integer(Preferences::customHotkeyModifiers), 768);

    QTest::keyClick(window, Qt::Key_Tab, Qt::ControlModifier);
    QCOMPARE(tabBar->property("currentIndex").toInt(), 0);
    QTest::keyClick(window, Qt::Key_Backtab, Qt::ControlModifier | Qt::ShiftModifier);
    QCOMPARE(tabBar->property("currentIndex").toInt(), 2);
    QTest::keyClick(window, Qt::Key_PageUp, Qt::ControlModifier);
    QCOMPARE(tabBar->property("currentIndex").toInt(), 1);

    QTest::keyClick(window, Qt::Key_Escape);
    QTRY_VERIFY(!settings.isVisible());
}

QTEST_MAIN(TestSettingsWindow)
#include "tst_settingswindow.moc"
