#include "model/PreferenceStore.h"
#include "model/PromptHotkeys.h"
#include "model/PromptStore.h"
#include "settings/HotkeySettings.h"
#include "settings/PromptListEditor.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(StoredHotkey)

namespace {

// An editor over a preference file of its own, with these prompts and hotkeys stored and loaded.
struct Editor {
    Editor(const QString& path, const QList<Prompt>& prompts,
           const PromptHotkeys::Map& hotkeys = {})
        : store(path)
    {
        PromptStore::save(store, prompts);
        PromptHotkeys::save(store, hotkeys);
        editor.setPreferences(&store);
        editor.load(prompts);
    }

    PreferenceStore store;
    PromptListEditor editor;
};

} // namespace

class TestPromptListEditor : public QObject {
    Q_OBJECT

private slots:
    void init();
    void movesLikeAListMove_data();
    void movesLikeAListMove();
    void addNumbersAfterTheHighest_data();
    void addNumbersAfterTheHighest();
    void unknownDeleteChangesNothing();
    void hotkeyDisplay_data();
    void hotkeyDisplay();
    void hotkeyLoadWritesBackAStoredOff();
    void promptHotkeyIsStoredWithThePrompt();
    void promptHotkeyConflicts_data();
    void promptHotkeyConflicts();
    void deleteAndResetDropHotkeys();
    void triggerRecorderRefusesAPromptsHotkey();

private:
    QList<Prompt> lettered(const QString& letters);
    QString order(const QList<Prompt>& prompts);

    QTemporaryDir m_dir;
    QString m_path;
    int m_case = 0;
};

void TestPromptListEditor::init()
{
    m_path = m_dir.filePath(u"case%1.conf"_s.arg(++m_case));
}

QList<Prompt> TestPromptListEditor::lettered(const QString& letters)
{
    QList<Prompt> prompts;
    for (qsizetype i = 0; i < letters.size(); ++i) {
        prompts.append(Prompt::create(i + 1, QString(letters[i]), u"s"_s));
    }
    return prompts;
}

QString TestPromptListEditor::order(const QList<Prompt>& prompts)
{
    QString text;
    for (const Prompt& prompt : prompts) {
        text += prompt.title;
    }
    return text;
}

void TestPromptListEditor::movesLikeAListMove_data()
{
    QTest::addColumn<QList<int>>("rows");
    QTest::addColumn<int>("destination");
    QTest::addColumn<QString>("expected");

    QTest::newRow("last to top") << QList<int>{4} << 0 << u"EABCD"_s;
    QTest::newRow("first to end") << QList<int>{0} << 5 << u"BCDEA"_s;
    QTest::newRow("down by one") << QList<int>{1} << 3 << u"ACBDE"_s;
    QTest::newRow("onto itself") << QList<int>{1} << 1 << u"ABCDE"_s;
    QTest::newRow("just below itself") << QList<int>{1} << 2 << u"ABCDE"_s;
    QTest::newRow("two to top") << QList<int>{1, 3} << 0 << u"BDACE"_s;
    QTest::newRow("two to the middle") << QList<int>{0, 4} << 2 << u"BAECD"_s;
    QTest::newRow("unordered sources") << QList<int>{3, 0} << 5 << u"BCEAD"_s;
}

void TestPromptListEditor::movesLikeAListMove()
{
    QFETCH(QList<int>, rows);
    QFETCH(int, destination);
    QFETCH(QString, expected);

    auto [store, editor] = Editor(m_path, lettered(u"ABCDE"_s));
    QSignalSpy committed(&editor, &PromptListEditor::committed);
    editor.movePrompts(rows, destination);

    QCOMPARE(order(editor.prompts()), expected);
    const QList<Prompt> stored = PromptStore::load(store);
    QCOMPARE(order(stored), expected);
    for (qsizetype i = 0; i < stored.size(); ++i) {
        QCOMPARE(stored[i].number, i + 1);
        QCOMPARE(editor.prompts()[i], stored[i]);
    }
    QCOMPARE(committed.count(), 1);
    QCOMPARE(committed.first().first().value<QList<Prompt>>(), stored);
}

void TestPromptListEditor::addNumbersAfterTheHighest_data()
{
    QTest::addColumn<QList<qint64>>("numbers");
    QTest::addColumn<qint64>("expected");
    QTest::newRow("empty") << QList<qint64>{} << qint64(1);
    QTest::newRow("one to five") << QList<qint64>{1, 2, 3, 4, 5} << qint64(6);
    QTest::newRow("unordered, with gaps") << QList<qint64>{9, 2, 4} << qint64(10);
}

void TestPromptListEditor::addNumbersAfterTheHighest()
{
    QFETCH(QList<qint64>, numbers);
    QFETCH(qint64, expected);

    QList<Prompt> prompts;
    for (qint64 number : numbers) {
        prompts.append(Prompt::create(number, u"t"_s, u"s"_s));
    }
    auto [store, editor] = Editor(m_path, prompts);
    QSignalSpy changed(&store, &PreferenceStore::changed);
    editor.addPrompt();
    QVERIFY(editor.editing());
    QVERIFY(editor.isNewPrompt());
    QCOMPARE(editor.editingPrompt().number, expected);
    QCOMPARE(editor.count(), numbers.size());
    editor.cancelEdit();
    QVERIFY(!editor.editing());
    QCOMPARE(changed.count(), 0);

    editor.addPrompt();
    editor.saveEditing(u"New"_s, u"Text"_s);
    QCOMPARE(editor.count(), numbers.size() + 1);
    QCOMPARE(editor.prompts().last().title, u"New"_s);
    QCOMPARE(editor.prompts().last().number, numbers.size() + 1);
    QCOMPARE(changed.count(), 1);
}

void TestPromptListEditor::unknownDeleteChangesNothing()
{
    auto [store, editor] = Editor(m_path, lettered(u"AB"_s));
    QSignalSpy changed(&store, &PreferenceStore::changed);
    editor.deletePrompt(QUuid::createUuid().toString(QUuid::WithoutBraces));
    editor.movePrompts({7}, 0);
    QCOMPARE(changed.count(), 0);
    // The stored id is upper case; a lower-case spelling names the same prompt.
    editor.deletePrompt(editor.prompts().first().idText().toLower());
    QCOMPARE(order(PromptStore::load(store)), u"B"_s);
}

void TestPromptListEditor::hotkeyDisplay_data()
{
    QTest::addColumn<qint64>("keyCode");
    QTest::addColumn<qint64>("modifiers");
    QTest::addColumn<QString>("display");

    QTest::newRow("code 0 with modifiers") << qint64(0) << qint64(768) << u"Not set"_s;
    QTest::newRow("Command+Shift+Space") << qint64(49) << qint64(768) << u"Ctrl+Shift+Space"_s;
    QTest::newRow("bits the recorder never writes")
        << qint64(49) << qint64(256 | 1 | (1 << 20)) << u"Invalid shortcut"_s;
    QTest::newRow("mask of 2^32") << qint64(40) << (qint64(1) << 32) << u"Invalid shortcut"_s;
    QTest::newRow("negative code") << qint64(-1) << qint64(256) << u"Invalid shortcut"_s;
    QTest::newRow("huge code") << (qint64(1) << 40) << qint64(256) << u"Invalid shortcut"_s;
    QTest::newRow("negative mask") << qint64(49) << qint64(-256) << u"Invalid shortcut"_s;
}

void TestPromptListEditor::hotkeyDisplay()
{
    QFETCH(qint64, keyCode);
    QFETCH(qint64, modifiers);
    QFETCH(QString, display);
    QCOMPARE(HotkeySettings::displayText(keyCode, modifiers), display);
}

void TestPromptListEditor::hotkeyLoadWritesBackAStoredOff()
{
    PreferenceStore store(m_path);
    HotkeySettings settings;
    settings.setPreferences(&store);
    QSignalSpy changed(&store, &PreferenceStore::changed);
    settings.load();
    QCOMPARE(changed.count(), 0);
    QVERIFY(settings.useDoubleCopy());

    store.setBoolean(Preferences::useDoubleCopy, false);
    changed.clear();
    HotkeySettings again;
    again.setPreferences(&store);
    again.load();
    QVERIFY(!again.useDoubleCopy());
    QCOMPARE(changed.count(), 1);
    QCOMPARE(store.boolean(Preferences::useDoubleCopy), false);
}

namespace {

constexpr StoredHotkey ctrlShiftK{40, 768};
constexpr StoredHotkey ctrlShiftJ{38, 768};
constexpr StoredHotkey ctrlK{40, 256};
constexpr StoredHotkey altSpace{49, 2048};

} // namespace

void TestPromptListEditor::promptHotkeyIsStoredWithThePrompt()
{
    auto [store, editor] = Editor(m_path, lettered(u"AB"_s));
    const QUuid a = editor.prompts().at(0).id;
    const QModelIndex rowA = editor.index(0);

    editor.editPrompt(0);
    QVERIFY(editor.editingHotkey().isEmpty());
    QVERIFY(editor.recordHotkey(ctrlShiftK.keyCode, ctrlShiftK.modifiers));
    QCOMPARE(editor.editingHotkey(), u"Ctrl+Shift+K"_s);
    // Nothing is stored before the prompt is saved, and nothing when it is not.
    QVERIFY(PromptHotkeys::load(store).isEmpty());
    editor.cancelEdit();
    QVERIFY(PromptHotkeys::load(store).isEmpty());

    editor.editPrompt(0);
    QVERIFY(editor.recordHotkey(ctrlShiftK.keyCode, ctrlShiftK.modifiers));
    editor.saveEditing(u"A"_s, u"s"_s);
    QCOMPARE(PromptHotkeys::load(store), (PromptHotkeys::Map{{a, ctrlShiftK}}));
    QCOMPARE(rowA.data(PromptListEditor::HotkeyRole).toString(), u"Ctrl+Shift+K"_s);
    QVERIFY(editor.index(1).data(PromptListEditor::HotkeyRole).toString().isEmpty());

    // Opened again the editor shows it; cleared and saved, it is gone.
    editor.editPrompt(0);
    QCOMPARE(editor.editingHotkey(), u"Ctrl+Shift+K"_s);
    editor.clearHotkey();
    editor.saveEditing(u"A"_s, u"s"_s);
    QVERIFY(PromptHotkeys::load(store).isEmpty());
    QVERIFY(rowA.data(PromptListEditor::HotkeyRole).toString().isEmpty());

    // A new prompt gets its hotkey under the id it is saved with.
    editor.addPrompt();
    const QUuid added = editor.editingPrompt().id;
    QVERIFY(editor.recordHotkey(altSpace.keyCode, altSpace.modifiers));
    editor.saveEditing(u"C"_s, u"s"_s);
    QCOMPARE(PromptHotkeys::load(store), (PromptHotkeys::Map{{added, altSpace}}));
}

void TestPromptListEditor::promptHotkeyConflicts_data()
{
    QTest::addColumn<StoredHotkey>("recorded");
    QTest::addColumn<QString>("conflict");

    QTest::newRow("the trigger's") << ctrlShiftK << u"Ctrl+Shift+K already opens the panel."_s;
    QTest::newRow("another prompt's")
        << ctrlShiftJ << u"Ctrl+Shift+J already runs \u201cB\u201d."_s;
    QTest::newRow("its own") << altSpace << QString();
    QTest::newRow("a deleted prompt's") << StoredHotkey{41, 768} << QString();
    QTest::newRow("same key, other modifiers") << ctrlK << QString();
}

void TestPromptListEditor::promptHotkeyConflicts()
{
    QFETCH(StoredHotkey, recorded);
    QFETCH(QString, conflict);

    const QList<Prompt> prompts = lettered(u"AB"_s);
    auto [store, editor] = Editor(m_path, prompts,
                                  {{prompts.at(0).id, altSpace},
                                   {prompts.at(1).id, ctrlShiftJ},
                                   {QUuid::createUuid(), StoredHotkey{41, 768}}});
    store.setInteger(Preferences::customHotkeyKeyCode, ctrlShiftK.keyCode);
    store.setInteger(Preferences::customHotkeyModifiers, ctrlShiftK.modifiers);

    editor.editPrompt(0);
    QCOMPARE(editor.recordHotkey(recorded.keyCode, recorded.modifiers), conflict.isEmpty());
    QCOMPARE(editor.hotkeyConflict(), conflict);
    QCOMPARE(editor.editingHotkey(),
             conflict.isEmpty() ? HotkeySettings::displayText(recorded.keyCode, recorded.modifiers)
                                : u"Alt+Space"_s);
    // A refused combination leaves the stored ones as they were.
    editor.saveEditing(u"A"_s, u"s"_s);
    QVERIFY(PromptHotkeys::load(store).value(prompts.at(0).id) ==
            (conflict.isEmpty() ? recorded : altSpace));
    QVERIFY(PromptHotkeys::load(store).value(prompts.at(1).id) == ctrlShiftJ);
}

void TestPromptListEditor::deleteAndResetDropHotkeys()
{
    const QList<Prompt> prompts = lettered(u"ABC"_s);
    auto [store, editor] =
        Editor(m_path, prompts, {{prompts.at(0).id, altSpace}, {prompts.at(1).id, ctrlShiftJ}});

    editor.deletePrompt(prompts.at(0).idText());
    QCOMPARE(PromptHotkeys::load(store), (PromptHotkeys::Map{{prompts.at(1).id, ctrlShiftJ}}));
    // A prompt without a hotkey goes without touching the others'.
    editor.deletePrompt(prompts.at(2).idText());
    QCOMPARE(PromptHotkeys::load(store), (PromptHotkeys::Map{{prompts.at(1).id, ctrlShiftJ}}));

    editor.resetToDefaults();
    QVERIFY(PromptHotkeys::load(store).isEmpty());
    QCOMPARE(PromptStore::load(store), Prompt::defaults());
}

void TestPromptListEditor::triggerRecorderRefusesAPromptsHotkey()
{
    PreferenceStore store(m_path);
    const QList<Prompt> prompts = lettered(u"AB"_s);
    PromptStore::save(store, prompts);
    PromptHotkeys::save(store, {{prompts.at(1).id, ctrlShiftJ}});
    HotkeySettings settings;
    settings.setPreferences(&store);
    settings.load();
    settings.setIsRecording(true);

    settings.recordHotkey(ctrlShiftJ.keyCode, ctrlShiftJ.modifiers);
    QCOMPARE(settings.conflictText(), u"Ctrl+Shift+J already runs \u201cB\u201d."_s);
    QVERIFY(!settings.isRecording());
    QVERIFY(!store.customHotkey());
    QCOMPARE(settings.hotkeyDisplay(), u"Not set"_s);

    settings.recordHotkey(ctrlShiftK.keyCode, ctrlShiftK.modifiers);
    QVERIFY(settings.conflictText().isEmpty());
    QVERIFY(store.customHotkey() == ctrlShiftK);
}

QTEST_GUILESS_MAIN(TestPromptListEditor)
#include "tst_promptlisteditor.moc"
