#include "model/PreferenceStore.h"
#include "model/PromptHotkeys.h"
#include "model/PromptStore.h"

#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QUuid first(u"6F9619FF-8B86-D011-B42D-00C04FC964FF"_s);
const QUuid second(u"0B2A1E55-3C4D-4E5F-8A9B-0C1D2E3F4A5B"_s);

} // namespace

// The prompts' hotkeys in a real preferences file, beside a prompt list they never touch.
class TestPromptHotkeys : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    int m_case = 0;

    QString freshPath() { return m_dir.filePath(u"case%1.conf"_s.arg(++m_case)); }

private slots:
    void roundTripWritesOnlyChanges()
    {
        const QString path = freshPath();
        const PromptHotkeys::Map hotkeys{{first, {40, 768}}, {second, {49, 2048}}};
        QByteArray promptsBefore;
        {
            PreferenceStore store(path);
            PromptStore::save(store, Prompt::defaults());
            promptsBefore = store.data(Preferences::userPrompts).value();
            PromptHotkeys::save(store, hotkeys);
        }
        PreferenceStore store(path);
        QCOMPARE(PromptHotkeys::load(store), hotkeys);
        QCOMPARE(store.data(Preferences::userPrompts).value(), promptsBefore);

        int writes = 0;
        connect(&store, &PreferenceStore::changed, this, [&writes] { ++writes; });
        PromptHotkeys::save(store, hotkeys);
        QCOMPARE(writes, 0);
        PromptHotkeys::save(store, {});
        QCOMPARE(writes, 1);
        QVERIFY(PromptHotkeys::load(store).isEmpty());
    }

    void damagedValueReadsAsNoHotkeys_data()
    {
        QTest::addColumn<QByteArray>("stored");
        QTest::addColumn<int>("readable");
        const QByteArray id = first.toString(QUuid::WithoutBraces).toUpper().toLatin1();
        const auto entry = [&id](const QByteArray& body) -> QByteArray {
            return "{\"" + id + "\":" + body + "}";
        };
        QTest::newRow("empty") << QByteArray() << 0;
        QTest::newRow("not JSON") << QByteArray("keycode=40") << 0;
        QTest::newRow("cut short") << entry(R"({"keycode":40,"modifiers":7)") << 0;
        QTest::newRow("a list") << QByteArray(R"([{"keycode":40,"modifiers":768}])") << 0;
        QTest::newRow("id no uuid")
            << QByteArray(R"({"nope":{"keycode":40,"modifiers":768}})") << 0;
        QTest::newRow("entry no object") << entry("40") << 0;
        QTest::newRow("key code text") << entry(R"({"keycode":"40","modifiers":768})") << 0;
        QTest::newRow("key code 0") << entry(R"({"keycode":0,"modifiers":768})") << 0;
        QTest::newRow("key code negative") << entry(R"({"keycode":-40,"modifiers":768})") << 0;
        QTest::newRow("key code fraction") << entry(R"({"keycode":40.5,"modifiers":768})") << 0;
        QTest::newRow("key code too big")
            << entry(R"({"keycode":4294967296,"modifiers":768})") << 0;
        QTest::newRow("modifier bits unknown") << entry(R"({"keycode":40,"modifiers":769})") << 0;
        QTest::newRow("no modifiers") << entry(R"({"keycode":40})") << 0;
        QTest::newRow("one good, one bad") << QByteArray(R"({"nope":{"keycode":1},")" + id +
                                                         R"(":{"keycode":40,"modifiers":768}})")
                                           << 1;
    }

    void damagedValueReadsAsNoHotkeys()
    {
        QFETCH(QByteArray, stored);
        QFETCH(int, readable);
        PreferenceStore store(freshPath());
        store.setData(Preferences::promptHotkeys, stored);
        const PromptHotkeys::Map hotkeys = PromptHotkeys::load(store);
        QCOMPARE(hotkeys.size(), readable);
        if (readable == 1) {
            QCOMPARE(hotkeys.value(first), (StoredHotkey{40, 768}));
        }
    }
};

QTEST_GUILESS_MAIN(TestPromptHotkeys)
#include "tst_prompthotkeys.moc"
