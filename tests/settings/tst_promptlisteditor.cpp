#include "model/PreferenceStore.h"
#include "model/PromptStore.h"
#include "settings/HotkeySettings.h"
#include "settings/PromptListEditor.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

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

    PreferenceStore store(m_path);
    PromptListEditor editor;
    editor.setPreferences(&store);
    editor.load(lettered(u"ABCDE"_s));
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

    PreferenceStore store(m_path);
    PromptListEditor editor;
    editor.setPreferences(&store);
    QList<Prompt> prompts;
    for (qint64 number : numbers) {
        prompts.append(Prompt::create(number, u"t"_s, u"s"_s));
    }
    editor.load(prompts);
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
    PreferenceStore store(m_path);
    PromptListEditor editor;
    editor.setPreferences(&store);
    editor.load(lettered(u"AB"_s));
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

    QTest::newRow("nothing stored") << qint64(0) << qint64(0) << u"Not set"_s;
    QTest::newRow("code 0 with modifiers") << qint64(0) << qint64(768) << u"Not set"_s;
    QTest::newRow("Command+Shift+Space") << qint64(49) << qint64(768) << u"Ctrl+Shift+Space"_s;
    QTest::newRow("Option+Control+K") << qint64(40) << qint64(6144) << u"Alt+Super+K"_s;
    QTest::newRow("all four, fixed order")
        << qint64(40) << qint64(6912) << u"Ctrl+Shift+Alt+Super+K"_s;
    QTest::newRow("no name") << qint64(122) << qint64(0) << u"Key122"_s;
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

QTEST_GUILESS_MAIN(TestPromptListEditor)
#include "tst_promptlisteditor.moc"
