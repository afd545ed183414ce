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
    explicit CountingTrust(bool trusted)
        : trusted(trusted)
    {}
    bool isTrusted() const override { return trusted; }
    void requestTrust() override { ++requests; }

    bool trusted;
    int requests = 0;
};

} // namespace

class TestSettingsView : public QObject {
    Q_OBJECT

private slots:
    void init();

    void freshInstallShowsTheDefaultModel();
    void apiKeyIsStoredAtEveryEditUntrimmed();
    void choosingAModelStoresItsId();
    void unknownStoredModelIsKept();
    void customModelIsStoredAsTyped();
    void anotherServerIsChosenAndItsModelsListed();
    // In this order: the process keeps the first session bus it reaches.
    void keyStaysInTheFileWithoutAKeyring();
    void keyTypedLandsInTheKeyring();

    void addingOpensAnEmptyEditorAndSavesAsLast();
    void escAndBackLeaveTheListUntouched();
    void returnSavesFromTheTitleButNotFromTheSystemPrompt();
    void editingKeepsPositionAndId();
    void deletingRenumbersAndTheStateFollows();
    void deletingTheLastPromptFallsBackToDefaults();
    void altUpMovesTheCurrentRow();
    void draggingTheLastRowToTheTop();
    void resetReplacesUserPrompts();
    void promptEditorRecordsAHotkey();

    void hotkeyTabStartsIdle();
    void recordsCombinations_data();
    void recordsCombinations();
    void secondClickEndsRecordingWithoutStoring();
    void clearStoresZeros();
    void doubleCopySwitchIsStored();
    void permissionIsRequestedOnlyWhenMissing();

private:
    std::unique_ptr<QQuickView> showTab(QmlHarness& harness, int tab);
    QList<Prompt> storedPrompts(const PreferenceStore& store);

    QTemporaryDir m_dir;
    QString m_path;
    int m_case = 0;
    SecretService m_secrets;
};

void TestSettingsView::init()
{
    m_path = m_dir.filePath(u"case%1.conf"_s.arg(++m_case));
}

std::unique_ptr<QQuickView> TestSettingsView::showTab(QmlHarness& harness, int tab)
{
    auto view = harness.show(u"qrc:/Ravelo/settings/SettingsView.qml"_s);
    if (view && tab != 0) {
        findItem(view.get(), "tabs")->setProperty("currentIndex", tab);
    }
    return view;
}

QList<Prompt> TestSettingsView::storedPrompts(const PreferenceStore& store)
{
    return Prompt::decodeList(store.data(Preferences::userPrompts).value_or(QByteArray()))
        .value_or(QList<Prompt>());
}

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
        findItem(view.get(), "keyStorageLine")->property("text").toString(),
        u"No system keyring is available: the API key is kept in %1, readable by you alone."_s.arg(
            m_path));
    findItem(view.get(), "apiKeyField")->forceActiveFocus();
    for (const char c : QByteArrayView("sk-file")) {
        QTest::keyClick(view.get(), c);
    }
    QFile file(m_path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(file.readAll().contains("sk-file"));
}

void TestSettingsView::keyTypedLandsInTheKeyring()
{
    QVERIFY2(m_secrets.start(), qPrintable(m_secrets.error()));
    m_secrets.useInThisProcess();
    const QString service = QString::fromLatin1(PreferenceStore::keyringService);
    const QString key = QString::fromLatin1(Preferences::apiKey.name);
    QVERIFY(m_secrets.store(service, key, u"sk-stored"_s));

    // The tab opens before the keyring has answered, and shows the key once it has.
    QmlHarness harness(m_path);
    harness.store.setKeyringWriteDelay(std::chrono::hours(1));
    auto view = showTab(harness, 0);
    QVERIFY(view);
    QQuickItem* field = findItem(view.get(), "apiKeyField");
    harness.store.useKeyring();
    QCOMPARE(findItem(view.get(), "keyStorageLine")->property("text").toString(),
             u"Reading the API key from the system keyring\u2026"_s);
    QTRY_COMPARE(field->property("text").toString(), u"sk-stored"_s);
    QCOMPARE(findItem(view.get(), "keyStorageLine")->property("text").toString(),
             u"The API key is kept in the system keyring."_s);

    // Written when the field loses the focus, not at each key.
    QSignalSpy stored(&harness.store, &PreferenceStore::apiKeyStoredInKeyring);
    field->forceActiveFocus();
    for (const char c : QByteArrayView("-new")) {
        QTest::keyClick(view.get(), c);
    }
    QCOMPARE(harness.store.string(Preferences::apiKey), u"sk-stored-new"_s);
    QTest::keyClick(view.get(), Qt::Key_Tab);
    QVERIFY(stored.wait());
    QCOMPARE(stored.size(), 1);
    QCOMPARE(m_secrets.lookup(service, key), u"sk-stored-new"_s);
    QFile file(m_path);
    QVERIFY(!file.open(QIODevice::ReadOnly) || !file.readAll().contains("sk-stored"));
}

// A fresh store: the window opens on "General" with an empty key and GPT-4o Mini.
void TestSettingsView::freshInstallShowsTheDefaultModel()
{
    QmlHarness harness(m_path);
    QSignalSpy changed(&harness.store, &PreferenceStore::changed);
    auto view = showTab(harness, 0);
    QVERIFY(view);
    QCOMPARE(view->size(), QSize(520, 420));
    QCOMPARE(findItem(view.get(), "tabs")->property("currentIndex").toInt(), 0);
    QCOMPARE(findItem(view.get(), "apiKeyField")->property("text").toString(), QString());
    QCOMPARE(findItem(view.get(), "modelPicker")->property("currentIndex").toInt(), 1);
    QCOMPARE(findItem(view.get(), "modelPicker")->property("currentText").toString(),
             u"GPT-4o Mini  \u2014  $0.15 in / $0.60 out"_s);
    QVERIFY(findItem(view.get(), "modelDetail")->isVisible());
    QCOMPARE(findItem(view.get(), "inputPrice")->property("text").toString(), u"Input: $0.15"_s);
    QCOMPARE(findItem(view.get(), "outputPrice")->property("text").toString(), u"Output: $0.60"_s);
    QCOMPARE(findItem(view.get(), "modelNote")->property("text").toString(),
             u"Very affordable. Good balance of speed and quality."_s);
    QVERIFY(findItem(view.get(), "apiKeyLink")
                ->property("text")
                .toString()
                .contains(u">platform.openai.com</a>"_s));
    QCOMPARE(changed.count(), 0);
}

void TestSettingsView::apiKeyIsStoredAtEveryEditUntrimmed()
{
    QmlHarness harness(m_path);
    auto view = showTab(harness, 0);
    QVERIFY(view);
    QQuickItem* field = findItem(view.get(), "apiKeyField");
    field->forceActiveFocus();
    QString typed;
    for (const QChar c : u" sk-1 "_s) {
        QTest::keyClick(view.get(), c.toLatin1());
        typed += c;
        QCOMPARE(harness.store.string(Preferences::apiKey), typed);
    }
    for (int i = 0; i < typed.size(); ++i) {
        QTest::keyClick(view.get(), Qt::Key_Backspace);
    }
    QVERIFY(harness.store.contains(Preferences::apiKey));
    QCOMPARE(harness.store.string(Preferences::apiKey), QString());

    // Shown again (masked) when the window opens anew.
    harness.store.setString(Preferences::apiKey, u"sk-stored"_s);
    view.reset();
    view = showTab(harness, 0);
    QCOMPARE(findItem(view.get(), "apiKeyField")->property("text").toString(), u"sk-stored"_s);
}

void TestSettingsView::choosingAModelStoresItsId()
{
    QmlHarness harness(m_path);
    auto view = showTab(harness, 0);
    QVERIFY(view);
    findItem(view.get(), "modelPicker")->forceActiveFocus();
    for (int i = 0; i < 3; ++i) {
        QTest::keyClick(view.get(), Qt::Key_Down);
    }
    QCOMPARE(harness.store.string(Preferences::model), u"gpt-4o"_s);
    QCOMPARE(findItem(view.get(), "outputPrice")->property("text").toString(), u"Output: $10.00"_s);
    QTest::keyClick(view.get(), Qt::Key_Home);
    QCOMPARE(harness.store.string(Preferences::model), u"gpt-4.1-nano"_s);
}

void TestSettingsView::unknownStoredModelIsKept()
{
    QmlHarness harness(m_path);
    harness.store.setString(Preferences::model, u"GPT-4O"_s);
    auto view = showTab(harness, 0);
    QVERIFY(view);
    QVERIFY(!findItem(view.get(), "modelDetail")->isVisible());
    QQuickItem* custom = findItem(view.get(), "customModelField");
    QVERIFY(custom->isVisible());
    QCOMPARE(custom->property("text").toString(), u"GPT-4O"_s);
    QCOMPARE(findItem(view.get(), "modelPicker")->property("currentIndex").toInt(), 5);
    QCOMPARE(harness.store.string(Preferences::model), u"GPT-4O"_s);
}

void TestSettingsView::customModelIsStoredAsTyped()
{
    QmlHarness harness(m_path);
    auto view = showTab(harness, 0);
    QVERIFY(view);
    QQuickItem* custom = findItem(view.get(), "customModelField");
    QVERIFY(!custom->isVisible());
    findItem(view.get(), "modelPicker")->forceActiveFocus();
    QTest::keyClick(view.get(), Qt::Key_End);
    QVERIFY(custom->isVisible());
    // Choosing "Other model…" alone stores nothing.
    QCOMPARE(harness.store.contains(Preferences::model), false);
    QVERIFY(custom->hasActiveFocus());
    typeText(view.get(), u"qwen2:7b"_s);
    QCOMPARE(harness.store.string(Preferences::model), u"qwen2:7b"_s);
    QVERIFY(!findItem(view.get(), "modelDetail")->isVisible());
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
    QCOMPARE(findItem(view.get(), "serverAddressField")->property("text").toString(),
             server.baseUrl());
    QCOMPARE(findItem(view.get(), "serverModelPicker")->property("editText").toString(),
             u"mistral:7b"_s);
    findItem(view.get(), "serverChoice")->forceActiveFocus();
    QTest::keyClick(view.get(), Qt::Key_Up);
    QCOMPARE(harness.store.string(Preferences::baseUrl), QString());
    QVERIFY(findItem(view.get(), "apiKeyField")->isVisible());
    QVERIFY(findItem(view.get(), "apiKeyLink")->isVisible());
}

void TestSettingsView::addingOpensAnEmptyEditorAndSavesAsLast()
{
    QmlHarness harness(m_path);
    auto view = showTab(harness, 1);
    QVERIFY(view);
    QSignalSpy changed(&harness.store, &PreferenceStore::changed);
    click(findItem(view.get(), "addPromptButton"));
    QTRY_VERIFY(findItem(view.get(), "header"));
    QCOMPARE(findItem(view.get(), "header")->property("text").toString(), u"New Prompt"_s);
    QQuickItem* save = findItem(view.get(), "saveButton");
    QQuickItem* title = findItem(view.get(), "titleField");
    QCOMPARE(title->property("text").toString(), QString());
    QVERIFY(!save->isEnabled());
    QVERIFY(title->hasActiveFocus());
    typeText(view.get(), u"Shout"_s);
    QVERIFY(!save->isEnabled());
    // A disabled Save reads fainter than the Cancel button beside it: its label's strongest
    // pixel stands out less from the button's own background.
    const auto contrast = [&view](QQuickItem* button) {
        const QImage image = view->grabWindow();
        const QRect area = button->mapRectToScene(QRectF(0, 0, button->width(), button->height()))
                               .toAlignedRect()
                               .adjusted(2, 2, -2, -2);
        const int base =
            image.pixelColor(area.topLeft() + QPoint(2, area.height() / 2)).lightness();
        int strongest = 0;
        for (int y = area.top(); y <= area.bottom(); ++y) {
            for (int x = area.left(); x <= area.right(); ++x) {
                strongest =
                    std::max(strongest, std::abs(image.pixelColor(x, y).lightness() - base));
            }
        }
        return strongest;
    };
    QVERIFY2(contrast(save) < contrast(findItem(view.get(), "cancelButton")) * 2 / 3,
             qPrintable(u"%1 against %2"_s.arg(contrast(save))
                            .arg(contrast(findItem(view.get(), "cancelButton")))));
    findItem(view.get(), "systemPromptArea")->forceActiveFocus();
    QTest::keyClick(view.get(), 'U');
    QVERIFY(save->isEnabled());
    QCOMPARE(changed.count(), 0);
    click(save);

    QTRY_VERIFY(findItem(view.get(), "promptList"));
    const QList<Prompt> stored = storedPrompts(harness.store);
    QCOMPARE(stored.size(), 4);
    QCOMPARE(stored.last().number, 4);
    QCOMPARE(stored.last().title, u"Shout"_s);
    QCOMPARE(stored.last().systemPrompt, u"U"_s);
    QCOMPARE(harness.state.prompts(), stored);
}

void TestSettingsView::escAndBackLeaveTheListUntouched()
{
    QmlHarness harness(m_path);
    auto view = showTab(harness, 1);
    QVERIFY(view);
    QSignalSpy changed(&harness.store, &PreferenceStore::changed);
    click(findItem(view.get(), "editButton"));
    QTRY_VERIFY(findItem(view.get(), "titleField"));
    QCOMPARE(findItem(view.get(), "header")->property("text").toString(), u"Edit Prompt"_s);
    typeText(view.get(), u"xyz"_s);
    QTest::keyClick(view.get(), Qt::Key_Escape);
    QTRY_VERIFY(findItem(view.get(), "promptList"));

    click(findItem(view.get(), "addPromptButton"));
    QTRY_VERIFY(findItem(view.get(), "backButton"));
    click(findItem(view.get(), "backButton"));
    QTRY_VERIFY(findItem(view.get(), "promptList"));

    click(findItem(view.get(), "addPromptButton"));
    QTRY_VERIFY(findItem(view.get(), "cancelButton"));
    click(findItem(view.get(), "cancelButton"));
    QTRY_VERIFY(findItem(view.get(), "promptList"));

    QCOMPARE(changed.count(), 0);
    QCOMPARE(harness.state.prompts(), Prompt::defaults());
}

void TestSettingsView::returnSavesFromTheTitleButNotFromTheSystemPrompt()
{
    QmlHarness harness(m_path);
    auto view = showTab(harness, 1);
    QVERIFY(view);
    click(findItem(view.get(), "addPromptButton"));
    QTRY_VERIFY(findItem(view.get(), "titleField"));
    typeText(view.get(), u"   "_s);
    QQuickItem* area = findItem(view.get(), "systemPromptArea");
    area->forceActiveFocus();
    QTest::keyClick(view.get(), ' ');
    // In the system prompt Return starts a new line; Ctrl+Return saves.
    QTest::keyClick(view.get(), Qt::Key_Return);
    QCOMPARE(area->property("text").toString(), u" \n"_s);
    QTest::keyClick(view.get(), Qt::Key_Backspace);
    findItem(view.get(), "titleField")->forceActiveFocus();
    QTest::keyClick(view.get(), Qt::Key_Return);
    QTRY_VERIFY(findItem(view.get(), "promptList"));
    QCOMPARE(storedPrompts(harness.store).last().title, u"   "_s);
    QCOMPARE(storedPrompts(harness.store).last().systemPrompt, u" "_s);
}

void TestSettingsView::editingKeepsPositionAndId()
{
    QmlHarness harness(m_path);
    auto view = showTab(harness, 1);
    QVERIFY(view);
    auto* list = findItem<QQuickItem>(view.get(), "promptList");
    QTRY_COMPARE(findItemsByPosition(list, "editButton").size(), 3);
    const QList<QQuickItem*> edits = findItemsByPosition(list, "editButton");
    click(edits.at(1));
    QTRY_VERIFY(findItem(view.get(), "titleField"));
    findItem(view.get(), "titleField")->forceActiveFocus();
    QTest::keyClick(view.get(), Qt::Key_End);
    typeText(view.get(), u"!"_s);
    QTest::keyClick(view.get(), Qt::Key_Return);
    QTRY_VERIFY(findItem(view.get(), "promptList"));
    const QList<Prompt> stored = storedPrompts(harness.store);
    QCOMPARE(stored.size(), 3);
    QCOMPARE(stored[1].id, Prompt::defaults()[1].id);
    QCOMPARE(stored[1].number, 2);
    QCOMPARE(stored[1].title, Prompt::defaults()[1].title + u"!"_s);
    QCOMPARE(stored[1].systemPrompt, Prompt::defaults()[1].systemPrompt);
}

// Ctrl+Shift+K opens the panel already: the editor says so and keeps recording's result out;
// Alt+T is taken, saved with the prompt and shown in its row.
void TestSettingsView::promptEditorRecordsAHotkey()
{
    QmlHarness harness(m_path);
    harness.store.setInteger(Preferences::customHotkeyKeyCode, 40);
    harness.store.setInteger(Preferences::customHotkeyModifiers, 768);
    auto view = showTab(harness, 1);
    QVERIFY(view);
    auto* list = findItem<QQuickItem>(view.get(), "promptList");
    QTRY_COMPARE(findItemsByPosition(list, "editButton").size(), 3);
    click(findItemsByPosition(list, "editButton").at(1));
    QTRY_VERIFY(findItem(view.get(), "promptHotkeyButton"));
    QQuickItem* button = findItem(view.get(), "promptHotkeyButton");
    QCOMPARE(button->property("text").toString(), u"Not set"_s);

    click(button);
    QVERIFY(HotkeyRecording::instance()->isActive());
    QTest::keyClick(view.get(), Qt::Key_K, Qt::ControlModifier | Qt::ShiftModifier);
    QVERIFY(!HotkeyRecording::instance()->isActive());
    QCOMPARE(button->property("text").toString(), u"Not set"_s);
    QCOMPARE(findItem(view.get(), "promptHotkeyConflict")->property("text").toString(),
             u"Ctrl+Shift+K already opens the panel."_s);
    QVERIFY(findItem(view.get(), "promptHotkeyConflict")->isVisible());

    click(button);
    QTest::keyClick(view.get(), Qt::Key_T, Qt::AltModifier);
    QCOMPARE(button->property("text").toString(), u"Alt+T"_s);
    QVERIFY(!findItem(view.get(), "promptHotkeyConflict")->isVisible());
    QVERIFY(!harness.store.contains(Preferences::promptHotkeys));
    click(findItem(view.get(), "saveButton"));

    QTRY_VERIFY(findItem(view.get(), "promptList"));
    QCOMPARE(PromptHotkeys::load(harness.store),
             (PromptHotkeys::Map{{Prompt::defaults()[1].id, StoredHotkey{17, 2048}}}));
    list = findItem<QQuickItem>(view.get(), "promptList");
    QTRY_COMPARE(findItemsByPosition(list, "hotkey").size(), 1);
    QCOMPARE(findItemsByPosition(list, "hotkey").first()->property("text").toString(), u"Alt+T"_s);
}

void TestSettingsView::deletingRenumbersAndTheStateFollows()
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
    auto* list = findItem<QQuickItem>(view.get(), "promptList");
    QTRY_COMPARE(findItemsByPosition(list, "deleteButton").size(), 4);
    const QList<QQuickItem*> deletes = findItemsByPosition(list, "deleteButton");
    click(deletes.at(1));
    const QList<Prompt> stored = storedPrompts(harness.store);
    QCOMPARE(stored.size(), 3);
    QCOMPARE(stored[0].title, u"P1"_s);
    QCOMPARE(stored[1].title, u"P3"_s);
    QCOMPARE(stored[2].title, u"P4"_s);
    QCOMPARE((QList<qint64>{stored[0].number, stored[1].number, stored[2].number}),
             (QList<qint64>{1, 2, 3}));
    QCOMPARE(harness.state.prompts(), stored);
    QCOMPARE(list->property("count").toInt(), 3);
}

void TestSettingsView::deletingTheLastPromptFallsBackToDefaults()
{
    QmlHarness harness(m_path);
    const QList<Prompt> one{Prompt::create(1, u"Only"_s, u"S"_s)};
    PromptStore::save(harness.store, one);
    harness.state.setPrompts(one);
    auto view = showTab(harness, 1);
    QVERIFY(view);
    click(findItem(view.get(), "deleteButton"));
    QCOMPARE(harness.store.data(Preferences::userPrompts), QByteArray("[]"));
    QCOMPARE(harness.state.prompts(), Prompt::defaults());
    QTRY_COMPARE(findItem(view.get(), "promptList")->property("count").toInt(), 0);
}

void TestSettingsView::altUpMovesTheCurrentRow()
{
    QmlHarness harness(m_path);
    auto view = showTab(harness, 1);
    QVERIFY(view);
    QQuickItem* list = findItem(view.get(), "promptList");
    list->forceActiveFocus();
    list->setProperty("currentIndex", 2);
    QTest::keyClick(view.get(), Qt::Key_Up, Qt::AltModifier);
    QTest::keyClick(view.get(), Qt::Key_Up, Qt::AltModifier);
    QTest::keyClick(view.get(), Qt::Key_Up, Qt::AltModifier);
    const QList<Prompt>& d = Prompt::defaults();
    QList<Prompt> expected{d[2], d[0], d[1]};
    for (int i = 0; i < 3; ++i) {
        expected[i].number = i + 1;
    }
    QCOMPARE(storedPrompts(harness.store), expected);
    QCOMPARE(harness.state.prompts(), expected);
    QCOMPARE(list->property("currentIndex").toInt(), 0);
    QTest::keyClick(view.get(), Qt::Key_Down, Qt::AltModifier);
    QCOMPARE(storedPrompts(harness.store)[1].id, d[2].id);
}

void TestSettingsView::draggingTheLastRowToTheTop()
{
    QmlHarness harness(m_path);
    auto view = showTab(harness, 1);
    QVERIFY(view);
    QQuickItem* list = findItem(view.get(), "promptList");
    QTRY_COMPARE(findItemsByPosition(list, "number").size(), 3);
    const QList<QQuickItem*> numbers = findItemsByPosition(list, "number");
    const QPoint from = numbers.last()->mapToScene({30, 8}).toPoint();
    const QPoint to = numbers.first()->mapToScene({30, 0}).toPoint();
    QTest::mousePress(view.get(), Qt::LeftButton, Qt::NoModifier, from);
    for (int step = 1; step <= 10; ++step) {
        QTest::mouseMove(view.get(), from + (to - from) * step / 10);
    }
    QTest::mouseRelease(view.get(), Qt::LeftButton, Qt::NoModifier, to);
    const QList<Prompt> stored = storedPrompts(harness.store);
    const QList<Prompt>& d = Prompt::defaults();
    QCOMPARE(stored.size(), 3);
    QCOMPARE(stored[0].id, d[2].id);
    QCOMPARE(stored[1].id, d[0].id);
    QCOMPARE(stored[2].id, d[1].id);
    QCOMPARE(stored[0].number, 1);
    QCOMPARE(stored[2].number, 3);
    QCOMPARE(harness.state.prompts(), stored);
}

void TestSettingsView::resetReplacesUserPrompts()
{
    QmlHarness harness(m_path);
    const QList<Prompt> mine{Prompt::create(7, u"Mine"_s, u"S"_s)};
    PromptStore::save(harness.store, mine);
    harness.state.setPrompts(mine);
    auto view = showTab(harness, 1);
    QVERIFY(view);
    click(findItem(view.get(), "resetButton"));
    QCOMPARE(storedPrompts(harness.store), Prompt::defaults());
    QCOMPARE(harness.state.prompts(), Prompt::defaults());
    QCOMPARE(findItem(view.get(), "promptList")->property("count").toInt(), 3);
}

void TestSettingsView::hotkeyTabStartsIdle()
{
    QmlHarness harness(m_path);
    auto view = showTab(harness, 2);
    QVERIFY(view);
    QTRY_VERIFY(findItem(view.get(), "recordButton"));
    QVERIFY(findItem(view.get(), "doubleCopySwitch")->property("checked").toBool());
    QCOMPARE(findItem(view.get(), "recordButton")->property("text").toString(), u"Not set"_s);
    QVERIFY(!findItem(view.get(), "clearButton")->isVisible());
    QVERIFY(!harness.store.contains(Preferences::useDoubleCopy));
}

void TestSettingsView::recordsCombinations_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<Qt::KeyboardModifiers>("modifiers");
    QTest::addColumn<qint64>("keyCode");
    QTest::addColumn<qint64>("mask");
    QTest::addColumn<QString>("display");
    QTest::addColumn<bool>("clearShown");

    QTest::newRow("Ctrl+Shift+Space")
        << int(Qt::Key_Space) << (Qt::ControlModifier | Qt::ShiftModifier) << qint64(49)
        << qint64(768) << u"Ctrl+Shift+Space"_s << true;
    QTest::newRow("all four with K")
        << int(Qt::Key_K)
        << (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier | Qt::ShiftModifier)
        << qint64(40) << qint64(6912) << u"Ctrl+Shift+Alt+Super+K"_s << true;
    QTest::newRow("Alt+Super+K") << int(Qt::Key_K) << (Qt::AltModifier | Qt::MetaModifier)
                                 << qint64(40) << qint64(6144) << u"Alt+Super+K"_s << true;
    QTest::newRow("Ctrl+F5 has no name")
        << int(Qt::Key_F5) << Qt::KeyboardModifiers(Qt::ControlModifier) << qint64(96)
        << qint64(256) << u"Ctrl+Key96"_s << true;
    QTest::newRow("the A key reads as no hotkey")
        << int(Qt::Key_A) << Qt::KeyboardModifiers(Qt::ControlModifier) << qint64(0) << qint64(256)
        << u"Not set"_s << false;
}

void TestSettingsView::recordsCombinations()
{
    QFETCH(int, key);
    QFETCH(Qt::KeyboardModifiers, modifiers);
    QFETCH(qint64, keyCode);
    QFETCH(qint64, mask);
    QFETCH(QString, display);
    QFETCH(bool, clearShown);

    QmlHarness harness(m_path);
    auto view = showTab(harness, 2);
    QVERIFY(view);
    QTRY_VERIFY(findItem(view.get(), "recordButton"));
    QQuickItem* button = findItem(view.get(), "recordButton");
    QSignalSpy recording(HotkeyRecording::instance(), &HotkeyRecording::activeChanged);
    click(button);
    QCOMPARE(button->property("text").toString(), u"Press keys\u2026"_s);
    QVERIFY(findItem(view.get(), "recorder")->hasActiveFocus());
    QVERIFY(HotkeyRecording::instance()->isActive());

    // Keys without a modifier, Esc included, leave the recorder waiting.
    QTest::keyClick(view.get(), Qt::Key_Space);
    QTest::keyClick(view.get(), Qt::Key_Escape);
    QVERIFY(!harness.store.contains(Preferences::customHotkeyKeyCode));
    QCOMPARE(button->property("text").toString(), u"Press keys\u2026"_s);

    QTest::keyClick(view.get(), Qt::Key(key), modifiers);
    QCOMPARE(harness.store.integer(Preferences::customHotkeyKeyCode), keyCode);
    QCOMPARE(harness.store.integer(Preferences::customHotkeyModifiers), mask);
    QCOMPARE(button->property("text").toString(), display);
    QCOMPARE(findItem(view.get(), "clearButton")->isVisible(), clearShown);
    QVERIFY(!HotkeyRecording::instance()->isActive());
    QCOMPARE(recording.count(), 2);
}

void TestSettingsView::secondClickEndsRecordingWithoutStoring()
{
    QmlHarness harness(m_path);
    harness.store.setInteger(Preferences::customHotkeyKeyCode, 49);
    harness.store.setInteger(Preferences::customHotkeyModifiers, 768);
    auto view = showTab(harness, 2);
    QVERIFY(view);
    QTRY_VERIFY(findItem(view.get(), "recordButton"));
    QQuickItem* button = findItem(view.get(), "recordButton");
    QCOMPARE(button->property("text").toString(), u"Ctrl+Shift+Space"_s);
    QSignalSpy changed(&harness.store, &PreferenceStore::changed);
    click(button);
    QVERIFY(HotkeyRecording::instance()->isActive());
    click(button);
    QCOMPARE(button->property("text").toString(), u"Ctrl+Shift+Space"_s);
    QVERIFY(!HotkeyRecording::instance()->isActive());
    QCOMPARE(changed.count(), 0);
}

void TestSettingsView::clearStoresZeros()
{
    QmlHarness harness(m_path);
    harness.store.setInteger(Preferences::customHotkeyKeyCode, 122);
    harness.store.setInteger(Preferences::customHotkeyModifiers, 512);
    auto view = showTab(harness, 2);
    QVERIFY(view);
    QTRY_VERIFY(findItem(view.get(), "clearButton"));
    QCOMPARE(findItem(view.get(), "recordButton")->property("text").toString(), u"Shift+Key122"_s);
    QQuickItem* clear = findItem(view.get(), "clearButton");
    QVERIFY(clear->isVisible());
    click(clear);
    QVERIFY(harness.store.contains(Preferences::customHotkeyKeyCode));
    QCOMPARE(harness.store.integer(Preferences::customHotkeyKeyCode), 0);
    QCOMPARE(harness.store.integer(Preferences::customHotkeyModifiers), 0);
    QCOMPARE(findItem(view.get(), "recordButton")->property("text").toString(), u"Not set"_s);
    QVERIFY(!clear->isVisible());
}

void TestSettingsView::doubleCopySwitchIsStored()
{
    QmlHarness harness(m_path);
    auto view = showTab(harness, 2);
    QVERIFY(view);
    QTRY_VERIFY(findItem(view.get(), "doubleCopySwitch"));
    QQuickItem* toggle = findItem(view.get(), "doubleCopySwitch");
    QCOMPARE(toggle->property("text").toString(), u"Ctrl+C, C (double copy)"_s);
    click(toggle);
    QVERIFY(harness.store.contains(Preferences::useDoubleCopy));
    QCOMPARE(harness.store.boolean(Preferences::useDoubleCopy), false);
    view.reset();
    view = showTab(harness, 2);
    QTRY_VERIFY(findItem(view.get(), "doubleCopySwitch"));
    QVERIFY(!findItem(view.get(), "doubleCopySwitch")->property("checked").toBool());
}

void TestSettingsView::permissionIsRequestedOnlyWhenMissing()
{
    QmlHarness harness(m_path);
    CountingTrust trust(false);
    auto view = harness.show(u"qrc:/Ravelo/settings/SettingsView.qml"_s,
                             {{u"trust"_s, QVariant::fromValue<QObject*>(&trust)}});
    QVERIFY(view);
    findItem(view.get(), "tabs")->setProperty("currentIndex", 2);
    QTRY_VERIFY(findItem(view.get(), "accessibilityButton"));
    click(findItem(view.get(), "accessibilityButton"));
    QCOMPARE(trust.requests, 1);
    trust.trusted = true;
    click(findItem(view.get(), "accessibilityButton"));
    QCOMPARE(trust.requests, 1);
}

QTEST_MAIN(TestSettingsView)
#include "tst_settingsview.moc"
