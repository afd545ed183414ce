#include "QmlHarness.h"
#include "SecretService.h"
#include "model/PromptHotkeys.h"
#include "model/PromptStore.h"
#include "platform/AccessibilityTrust.h"
#include "settings/HotkeyRecording.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtQml/qqmlextensionplugin.h>

Q_IMPORT_QML_PLUGIN(RaveloPlugin)

using namespace Qt::StringLiterals;

namespace {

class CountingTrust : public AccessibilityTrust {
public:
    bool isTrusted() const override { return trusted; }
    void requestTrust() override { ++requests; }

    bool trusted = false;
    int requests = 0;
};

QList<Prompt> storedPrompts(const PreferenceStore& store)
{
    return Prompt::decodeList(store.data(Preferences::userPrompts).value_or(QByteArray()))
        .value_or(QList<Prompt>());
}

// How far the strongest pixel of a button's label stands out from the button's background.
int labelContrast(QQuickView* view, QQuickItem* button)
{
    const QImage image = view->grabWindow();
    const QRect area = button->mapRectToScene(QRectF(0, 0, button->width(), button->height()))
                           .toAlignedRect()
                           .adjusted(2, 2, -2, -2);
    const int base = image.pixelColor(area.topLeft() + QPoint(2, area.height() / 2)).lightness();
    int strongest = 0;
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x) {
            strongest = std::max(strongest, std::abs(image.pixelColor(x, y).lightness() - base));
        }
    }
    return strongest;
}

} // namespace

class TestSettingsView : public QObject {
    Q_OBJECT

private slots:
    void init() { m_path = m_dir.filePath(u"case%1.conf"_s.arg(++m_case)); }

    // In this order: the process keeps the first session bus it reaches.
    void keyStaysInTheFileWithoutAKeyring();
    void keyTypedLandsInTheKeyring();

    void generalTabStoresKeyAndModel();
    void anotherServerIsChosenAndItsModelsListed();
    void promptsAreAddedEditedAndGiveAHotkey();
    void promptsAreMovedDeletedAndReset();
    void hotkeyTabRecordsStopsAndClears();

private:
    std::unique_ptr<QQuickView> showTab(QmlHarness& harness, int tab, QVariantMap properties = {})
    {
        auto view = harness.show(u"qrc:/Ravelo/settings/SettingsView.qml"_s, properties);
        if (view) {
            findItem(view.get(), "tabs")->setProperty("currentIndex", tab);
        }
        return view;
    }

    QTemporaryDir m_dir;
    QString m_path;
    int m_case = 0;
    SecretService m_secrets;
};

void TestSettingsView::keyStaysInTheFileWithoutAKeyring()
{
    qputenv("DBUS_SESSION_BUS_ADDRESS",
            QFile::encodeName(m_dir.filePath(u"no-bus"_s)).prepend("unix:path="));
    QmlHarness harness(m_path);
    harness.store.useKeyring();
    QTRY_COMPARE(harness.store.apiKeyStorage(), PreferenceStore::ApiKeyStorage::File);
    auto view = showTab(harness, 0);
    QVERIFY(view);
    QCOMPARE(
        text(view.get(), "keyStorageLine"),
        u"No system keyring is available: the API key is kept in %1, readable by you alone."_s.arg(
            m_path));
}

void TestSettingsView::keyTypedLandsInTheKeyring()
{
    QVERIFY2(m_secrets.start(), qPrintable(m_secrets.error()));
    m_secrets.useInThisProcess();
    QVERIFY(m_secrets.storeApiKey(u"sk-stored"_s));

    // The tab opens before the keyring has answered, and shows the key once it has.
    QmlHarness harness(m_path);
    harness.store.setKeyringWriteDelay(std::chrono::hours(1));
    auto view = showTab(harness, 0);
    QVERIFY(view);
    QQuickItem* field = findItem(view.get(), "apiKeyField");
    harness.store.useKeyring();
    QCOMPARE(text(view.get(), "keyStorageLine"),
             u"Reading the API key from the system keyring\u2026"_s);
    QTRY_COMPARE(field->property("text").toString(), u"sk-stored"_s);
    QCOMPARE(text(view.get(), "keyStorageLine"), u"The API key is kept in the system keyring."_s);

    // Written when the field loses the focus, not at each key.
    QSignalSpy stored(&harness.store, &PreferenceStore::apiKeyStoredInKeyring);
    field->forceActiveFocus();
    typeText(view.get(), u"-new"_s);
    QTest::keyClick(view.get(), Qt::Key_Tab);
    QVERIFY(stored.wait());
    QCOMPARE(stored.size(), 1);
    QCOMPARE(m_secrets.apiKey(), u"sk-stored-new"_s);
}

// A fresh store opens on "General" with an empty key and GPT-4o Mini; the key is stored as
// typed at every edit, a listed model by its id, another one as typed, and an unknown stored
// model is kept.
void TestSettingsView::generalTabStoresKeyAndModel()
{
    QmlHarness harness(m_path);
    QSignalSpy changed(&harness.store, &PreferenceStore::changed);
    auto view = showTab(harness, 0);
    QVERIFY(view);
    QCOMPARE(text(view.get(), "apiKeyField"), QString());
    QCOMPARE(findItem(view.get(), "modelPicker")->property("currentIndex").toInt(), 1);
    QCOMPARE(findItem(view.get(), "modelPicker")->property("currentText").toString(),
             u"GPT-4o Mini  \u2014  $0.15 in / $0.60 out"_s);
    QVERIFY(findItem(view.get(), "modelDetail")->isVisible());
    QCOMPARE(text(view.get(), "inputPrice"), u"Input: $0.15"_s);
    QCOMPARE(text(view.get(), "outputPrice"), u"Output: $0.60"_s);
    QCOMPARE(text(view.get(), "modelNote"),
             u"Very affordable. Good balance of speed and quality."_s);
    QCOMPARE(changed.count(), 0);

    findItem(view.get(), "apiKeyField")->forceActiveFocus();
    typeText(view.get(), u" sk-1 "_s);
    QCOMPARE(harness.store.string(Preferences::apiKey), u" sk-1 "_s);
    for (int i = 0; i < 6; ++i) {
        QTest::keyClick(view.get(), Qt::Key_Backspace);
    }
    QVERIFY(harness.store.contains(Preferences::apiKey));
    QCOMPARE(harness.store.string(Preferences::apiKey), QString());

    // Choosing "Other model…" alone stores nothing.
    QQuickItem* custom = findItem(view.get(), "customModelField");
    QVERIFY(!custom->isVisible());
    findItem(view.get(), "modelPicker")->forceActiveFocus();
    QTest::keyClick(view.get(), Qt::Key_End);
    QVERIFY(custom->isVisible());
    QVERIFY(!harness.store.contains(Preferences::model));
    QVERIFY(custom->hasActiveFocus());
    typeText(view.get(), u"qwen2:7b"_s);
    QCOMPARE(harness.store.string(Preferences::model), u"qwen2:7b"_s);

    findItem(view.get(), "modelPicker")->forceActiveFocus();
    QTest::keyClick(view.get(), Qt::Key_Home);
    QCOMPARE(harness.store.string(Preferences::model), u"gpt-4.1-nano"_s);
    for (int i = 0; i < 4; ++i) {
        QTest::keyClick(view.get(), Qt::Key_Down);
    }
    QCOMPARE(harness.store.string(Preferences::model), u"gpt-4o"_s);
    QCOMPARE(text(view.get(), "outputPrice"), u"Output: $10.00"_s);

    // Opened anew: the stored key (masked), and a model it does not know kept as it is.
    harness.store.setString(Preferences::apiKey, u"sk-stored"_s);
    harness.store.setString(Preferences::model, u"GPT-4O"_s);
    view.reset();
    view = showTab(harness, 0);
    QCOMPARE(text(view.get(), "apiKeyField"), u"sk-stored"_s);
    QVERIFY(!findItem(view.get(), "modelDetail")->isVisible());
    QVERIFY(findItem(view.get(), "customModelField")->isVisible());
    QCOMPARE(text(view.get(), "customModelField"), u"GPT-4O"_s);
    QCOMPARE(findItem(view.get(), "modelPicker")->property("currentIndex").toInt(), 5);
    QCOMPARE(harness.store.string(Preferences::model), u"GPT-4O"_s);
}

void TestSettingsView::anotherServerIsChosenAndItsModelsListed()
{
    ChatServer server;
    QmlHarness harness(m_path);
    auto view = showTab(harness, 0);
    QVERIFY(view);
    QVERIFY(!harness.store.contains(Preferences::baseUrl));
    chooseAnotherServer(view.get(), harness.store, server);
    if (QTest::currentTestFailed()) {
        return;
    }
    QVERIFY(!findItem(view.get(), "apiKeyLink")->isVisible());

    // Shown again as chosen when the window opens anew; OpenAI again on request.
    view.reset();
    view = showTab(harness, 0);
    QVERIFY(findItem(view.get(), "serverForm")->isVisible());
    QCOMPARE(text(view.get(), "serverAddressField"), server.baseUrl());
    QCOMPARE(findItem(view.get(), "serverModelPicker")->property("editText").toString(),
             u"mistral:7b"_s);
    findItem(view.get(), "serverChoice")->forceActiveFocus();
    QTest::keyClick(view.get(), Qt::Key_Up);
    QCOMPARE(harness.store.string(Preferences::baseUrl), QString());
    QVERIFY(findItem(view.get(), "apiKeyField")->isVisible());
    QVERIFY(findItem(view.get(), "apiKeyLink")->isVisible());
}

// A new prompt is saved as the last one; Esc, Back and Cancel leave the list untouched; Return
// saves from the title but starts a line in the system prompt; an edited prompt keeps its place
// and id; a hotkey the panel already has is refused, another one saved with the prompt.
void TestSettingsView::promptsAreAddedEditedAndGiveAHotkey()
{
    QmlHarness harness(m_path);
    harness.store.setInteger(Preferences::customHotkeyKeyCode, 40);
    harness.store.setInteger(Preferences::customHotkeyModifiers, 768);
    auto view = showTab(harness, 1);
    QVERIFY(view);
    QSignalSpy changed(&harness.store, &PreferenceStore::changed);
    click(findItem(view.get(), "addPromptButton"));
    QTRY_VERIFY(findItem(view.get(), "header"));
    QCOMPARE(text(view.get(), "header"), u"New Prompt"_s);
    QQuickItem* save = findItem(view.get(), "saveButton");
    QQuickItem* title = findItem(view.get(), "titleField");
    QCOMPARE(title->property("text").toString(), QString());
    QVERIFY(!save->isEnabled());
    QVERIFY(title->hasActiveFocus());
    typeText(view.get(), u"Shout"_s);
    QVERIFY(!save->isEnabled());
    // A disabled Save reads fainter than the Cancel button beside it.
    const int saveContrast = labelContrast(view.get(), save);
    const int cancelContrast = labelContrast(view.get(), findItem(view.get(), "cancelButton"));
    QVERIFY2(saveContrast < cancelContrast * 2 / 3,
             qPrintable(u"%1 against %2"_s.arg(saveContrast).arg(cancelContrast)));
    findItem(view.get(), "systemPromptArea")->forceActiveFocus();
    QTest::keyClick(view.get(), 'U');
    QVERIFY(save->isEnabled());
    QCOMPARE(changed.count(), 0);
    click(save);
    QTRY_VERIFY(findItem(view.get(), "promptList"));
    const QList<Prompt> stored = storedPrompts(harness.store);
    QCOMPARE(stored.size(), 4);
    QCOMPARE(stored.last(), (Prompt{stored.last().id, 4, u"Shout"_s, u"U"_s}));
    QCOMPARE(harness.state.prompts(), stored);

    changed.clear();
    click(findItem(view.get(), "editButton"));
    QTRY_VERIFY(findItem(view.get(), "titleField"));
    QCOMPARE(text(view.get(), "header"), u"Edit Prompt"_s);
    typeText(view.get(), u"xyz"_s);
    QTest::keyClick(view.get(), Qt::Key_Escape);
    QTRY_VERIFY(findItem(view.get(), "promptList"));
    for (const char* leave : {"backButton", "cancelButton"}) {
        click(findItem(view.get(), "addPromptButton"));
        QTRY_VERIFY(findItem(view.get(), leave));
        click(findItem(view.get(), leave));
        QTRY_VERIFY(findItem(view.get(), "promptList"));
    }
    QCOMPARE(changed.count(), 0);
    QCOMPARE(harness.state.prompts(), stored);

    click(findItem(view.get(), "addPromptButton"));
    QTRY_VERIFY(findItem(view.get(), "titleField"));
    typeText(view.get(), u"   "_s);
    QQuickItem* area = findItem(view.get(), "systemPromptArea");
    area->forceActiveFocus();
    QTest::keyClick(view.get(), ' ');
    QTest::keyClick(view.get(), Qt::Key_Return);
    QCOMPARE(area->property("text").toString(), u" \n"_s);
    QTest::keyClick(view.get(), Qt::Key_Backspace);
    findItem(view.get(), "titleField")->forceActiveFocus();
    QTest::keyClick(view.get(), Qt::Key_Return);
    QTRY_VERIFY(findItem(view.get(), "promptList"));
    QCOMPARE(storedPrompts(harness.store).last().title, u"   "_s);
    QCOMPARE(storedPrompts(harness.store).last().systemPrompt, u" "_s);

    auto* list = findItem(view.get(), "promptList");
    QTRY_COMPARE(findItemsByPosition(list, "editButton").size(), 5);
    click(findItemsByPosition(list, "editButton").at(1));
    QTRY_VERIFY(findItem(view.get(), "titleField"));
    findItem(view.get(), "titleField")->forceActiveFocus();
    QTest::keyClick(view.get(), Qt::Key_End);
    typeText(view.get(), u"!"_s);
    QQuickItem* button = findItem(view.get(), "promptHotkeyButton");
    QCOMPARE(button->property("text").toString(), u"Not set"_s);
    click(button);
    QVERIFY(HotkeyRecording::instance()->isActive());
    QTest::keyClick(view.get(), Qt::Key_K, Qt::ControlModifier | Qt::ShiftModifier);
    QVERIFY(!HotkeyRecording::instance()->isActive());
    QCOMPARE(button->property("text").toString(), u"Not set"_s);
    QCOMPARE(text(view.get(), "promptHotkeyConflict"), u"Ctrl+Shift+K already opens the panel."_s);
    QVERIFY(findItem(view.get(), "promptHotkeyConflict")->isVisible());
    click(button);
    QTest::keyClick(view.get(), Qt::Key_T, Qt::AltModifier);
    QCOMPARE(button->property("text").toString(), u"Alt+T"_s);
    QVERIFY(!findItem(view.get(), "promptHotkeyConflict")->isVisible());
    QVERIFY(!harness.store.contains(Preferences::promptHotkeys));
    findItem(view.get(), "titleField")->forceActiveFocus();
    QTest::keyClick(view.get(), Qt::Key_Return);
    QTRY_VERIFY(findItem(view.get(), "promptList"));
    Prompt edited = Prompt::defaults()[1];
    edited.title += u"!"_s;
    QCOMPARE(storedPrompts(harness.store).at(1), edited);
    QCOMPARE(PromptHotkeys::load(harness.store),
             (PromptHotkeys::Map{{Prompt::defaults()[1].id, StoredHotkey{17, 2048}}}));
    list = findItem(view.get(), "promptList");
    QTRY_COMPARE(findItemsByPosition(list, "hotkey").size(), 1);
    QCOMPARE(findItemsByPosition(list, "hotkey").first()->property("text").toString(), u"Alt+T"_s);
}

// Delete, dragging and Alt+Up / Alt+Down renumber the prompts and the state follows; Reset
// brings the defaults back, and deleting the last prompt falls back to them.
void TestSettingsView::promptsAreMovedDeletedAndReset()
{
    QmlHarness harness(m_path);
    QList<Prompt> four;
    for (int i = 1; i <= 4; ++i) {
        four.append(Prompt::create(i, u"P%1"_s.arg(i), u"S%1"_s.arg(i)));
    }
    PromptStore::save(harness.store, four);
    harness.state.setPrompts(four);
    auto view = showTab(harness, 1);
    QVERIFY(view);
    QQuickItem* list = findItem(view.get(), "promptList");
    const auto titles = [&harness] {
        QStringList result;
        for (const Prompt& prompt : storedPrompts(harness.store)) {
            result << u"%1%2"_s.arg(prompt.number).arg(prompt.title);
        }
        if (harness.state.prompts() != storedPrompts(harness.store)) {
            result << u"(not in the state)"_s;
        }
        return result.join(u' ');
    };

    // The rows as shown from top to bottom, once they stand evenly spaced.
    const auto shownRows = [list] {
        QStringList texts;
        QList<qreal> tops;
        for (QQuickItem* row : findItemsByPosition(list, "systemPromptPreview")) {
            texts << row->property("text").toString();
            tops << row->mapToItem(list, {}).y();
        }
        for (qsizetype i = 2; i < tops.size(); ++i) {
            if (!qFuzzyCompare(tops[i] - tops[i - 1], tops[1] - tops[0])) {
                return u"moving"_s;
            }
        }
        return texts.join(u' ');
    };

    QTRY_COMPARE(shownRows(), u"S1 S2 S3 S4"_s);
    click(findItemsByPosition(list, "deleteButton").at(1));
    QCOMPARE(titles(), u"1P1 2P3 3P4"_s);
    QCOMPARE(list->property("count").toInt(), 3);

    QTRY_COMPARE(shownRows(), u"S1 S3 S4"_s);
    const QList<QQuickItem*> numbers = findItemsByPosition(list, "number");
    const QPoint from = numbers.last()->mapToScene({30, 8}).toPoint();
    const QPoint to = numbers.first()->mapToScene({30, 0}).toPoint();
    QTest::mousePress(view.get(), Qt::LeftButton, Qt::NoModifier, from);
    for (int step = 1; step <= 10; ++step) {
        QTest::mouseMove(view.get(), from + (to - from) * step / 10);
    }
    QTest::mouseRelease(view.get(), Qt::LeftButton, Qt::NoModifier, to);
    QCOMPARE(titles(), u"1P4 2P1 3P3"_s);

    list->forceActiveFocus();
    list->setProperty("currentIndex", 2);
    for (int i = 0; i < 3; ++i) {
        QTest::keyClick(view.get(), Qt::Key_Up, Qt::AltModifier);
    }
    QCOMPARE(titles(), u"1P3 2P4 3P1"_s);
    QCOMPARE(list->property("currentIndex").toInt(), 0);
    QTest::keyClick(view.get(), Qt::Key_Down, Qt::AltModifier);
    QCOMPARE(titles(), u"1P4 2P3 3P1"_s);

    click(findItem(view.get(), "resetButton"));
    QCOMPARE(storedPrompts(harness.store), Prompt::defaults());
    QCOMPARE(harness.state.prompts(), Prompt::defaults());
    QCOMPARE(list->property("count").toInt(), 3);

    for (int left = 3; left > 0; --left) {
        QTRY_COMPARE(findItemsByPosition(list, "deleteButton").size(), left);
        click(findItemsByPosition(list, "deleteButton").first());
    }
    QCOMPARE(harness.store.data(Preferences::userPrompts), QByteArray("[]"));
    QCOMPARE(harness.state.prompts(), Prompt::defaults());
    QTRY_COMPARE(list->property("count").toInt(), 0);
}

// A fresh tab records nothing and stores the double-copy switch; the permission is asked for
// only when missing; keys without a modifier leave the recorder waiting; a second click ends
// recording without storing, and Clear stores zeros.
void TestSettingsView::hotkeyTabRecordsStopsAndClears()
{
    QmlHarness harness(m_path);
    CountingTrust trust;
    const QVariantMap properties{{u"trust"_s, QVariant::fromValue<QObject*>(&trust)}};
    auto view = showTab(harness, 2, properties);
    QVERIFY(view);
    QTRY_VERIFY(findItem(view.get(), "recordButton"));
    QQuickItem* button = findItem(view.get(), "recordButton");
    QCOMPARE(button->property("text").toString(), u"Not set"_s);
    QVERIFY(!findItem(view.get(), "clearButton")->isVisible());
    QQuickItem* toggle = findItem(view.get(), "doubleCopySwitch");
    QVERIFY(toggle->property("checked").toBool());
    QVERIFY(!harness.store.contains(Preferences::useDoubleCopy));
    click(toggle);
    QVERIFY(harness.store.contains(Preferences::useDoubleCopy));
    QCOMPARE(harness.store.boolean(Preferences::useDoubleCopy), false);

    // The permission's box lines up with the boxes above it.
    const QQuickItem* section = findItem(view.get(), "permissionSection");
    QCOMPARE(section->width(), section->parentItem()->width());
    click(findItem(view.get(), "accessibilityButton"));
    QCOMPARE(trust.requests, 1);
    trust.trusted = true;
    click(findItem(view.get(), "accessibilityButton"));
    QCOMPARE(trust.requests, 1);

    QSignalSpy recording(HotkeyRecording::instance(), &HotkeyRecording::activeChanged);
    click(button);
    QCOMPARE(button->property("text").toString(), u"Press keys\u2026"_s);
    QVERIFY(findItem(view.get(), "recorder")->hasActiveFocus());
    QVERIFY(HotkeyRecording::instance()->isActive());
    QTest::keyClick(view.get(), Qt::Key_Space);
    QTest::keyClick(view.get(), Qt::Key_Escape);
    QVERIFY(!harness.store.contains(Preferences::customHotkeyKeyCode));
    QTest::keyClick(view.get(), Qt::Key_Space, Qt::ControlModifier | Qt::ShiftModifier);
    QCOMPARE(harness.store.integer(Preferences::customHotkeyKeyCode), 49);
    QCOMPARE(harness.store.integer(Preferences::customHotkeyModifiers), 768);
    QVERIFY(findItem(view.get(), "clearButton")->isVisible());
    QVERIFY(!HotkeyRecording::instance()->isActive());
    QCOMPARE(recording.count(), 2);

    view.reset();
    view = showTab(harness, 2, properties);
    QTRY_VERIFY(findItem(view.get(), "recordButton"));
    QVERIFY(!findItem(view.get(), "doubleCopySwitch")->property("checked").toBool());
    button = findItem(view.get(), "recordButton");
    QCOMPARE(button->property("text").toString(), u"Ctrl+Shift+Space"_s);
    QSignalSpy changed(&harness.store, &PreferenceStore::changed);
    click(button);
    QVERIFY(HotkeyRecording::instance()->isActive());
    click(button);
    QCOMPARE(button->property("text").toString(), u"Ctrl+Shift+Space"_s);
    QVERIFY(!HotkeyRecording::instance()->isActive());
    QCOMPARE(changed.count(), 0);

    QQuickItem* clear = findItem(view.get(), "clearButton");
    click(clear);
    QCOMPARE(harness.store.integer(Preferences::customHotkeyKeyCode), 0);
    QCOMPARE(harness.store.integer(Preferences::customHotkeyModifiers), 0);
    QCOMPARE(button->property("text").toString(), u"Not set"_s);
    QVERIFY(!clear->isVisible());
}

QTEST_MAIN(TestSettingsView)
#include "tst_settingsview.moc"
