#include "app/AppState.h"
#include "model/PreferenceStore.h"
#include "model/PromptStore.h"

#include <QMetaProperty>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

class TestAppState : public QObject {
    Q_OBJECT

private slots:
    void init();
    void creationSeedsAnEmptyStore();
    void creationKeepsUnreadablePrompts();
    void eachPropertyNotifiesOnlyItsReaders_data();
    void eachPropertyNotifiesOnlyItsReaders();
    void appendingNotifiesOncePerFragment();
    void savesCustomPromptAsQuickAction_data();
    void savesCustomPromptAsQuickAction();

private:
    QTemporaryDir m_dir;
    QString m_path;
    int m_case = 0;
};

void TestAppState::init()
{
    m_path = m_dir.filePath(QStringLiteral("case%1.conf").arg(++m_case));
}

void TestAppState::creationSeedsAnEmptyStore()
{
    PreferenceStore store(m_path);
    AppState state(&store);
    QCOMPARE(state.prompts(), Prompt::defaults());
    QCOMPARE(store.data(Preferences::userPrompts), Prompt::encodeList(Prompt::defaults()));
}

void TestAppState::creationKeepsUnreadablePrompts()
{
    PreferenceStore store(m_path);
    store.setData(Preferences::userPrompts, "not json");
    QSignalSpy changed(&store, &PreferenceStore::changed);
    AppState state(&store);
    QCOMPARE(changed.count(), 0);
    QCOMPARE(state.prompts(), Prompt::defaults());
    QCOMPARE(store.data(Preferences::userPrompts), QByteArray("not json"));
}

void TestAppState::eachPropertyNotifiesOnlyItsReaders_data()
{
    QTest::addColumn<QByteArray>("property");
    QTest::addColumn<QVariant>("value");
    QTest::newRow("clipboardText") << QByteArray("clipboardText") << QVariant(QStringLiteral("c"));
    QTest::newRow("resultText") << QByteArray("resultText") << QVariant(QStringLiteral("r"));
    QTest::newRow("isLoading") << QByteArray("isLoading") << QVariant(true);
    QTest::newRow("showCustomPromptInput") << QByteArray("showCustomPromptInput") << QVariant(true);
    QTest::newRow("customPromptText")
        << QByteArray("customPromptText") << QVariant(QStringLiteral("p"));
    QTest::newRow("lastCustomPromptText empty, not none")
        << QByteArray("lastCustomPromptText") << QVariant(QStringLiteral(""));
    QTest::newRow("prompts") << QByteArray("prompts")
                             << QVariant::fromValue(QList<Prompt>{Prompt::defaults().first()});
}

void TestAppState::eachPropertyNotifiesOnlyItsReaders()
{
    QFETCH(QByteArray, property);
    QFETCH(QVariant, value);
    PreferenceStore store(m_path);
    AppState state(&store);

    const QMetaObject* meta = state.metaObject();
    // One spy per signal: read-only views of a property share its signal.
    QList<QSignalSpy*> spies;
    QList<int> signalIndices;
    int target = -1;
    for (int i = meta->propertyOffset(); i < meta->propertyCount(); ++i) {
        const QMetaProperty p = meta->property(i);
        if (!p.hasNotifySignal()) {
            continue;
        }
        if (!signalIndices.contains(p.notifySignalIndex())) {
            signalIndices.append(p.notifySignalIndex());
            spies.append(new QSignalSpy(&state, p.notifySignal()));
        }
        if (property == p.name()) {
            target = int(signalIndices.indexOf(p.notifySignalIndex()));
        }
    }
    QVERIFY(target >= 0);

    QVERIFY(state.setProperty(property, value));
    QVERIFY(state.setProperty(property, value)); // equal: nobody is told
    for (qsizetype i = 0; i < spies.size(); ++i) {
        QCOMPARE(spies.at(i)->count(), i == target ? 1 : 0);
    }
    qDeleteAll(spies);
}

void TestAppState::appendingNotifiesOncePerFragment()
{
    PreferenceStore store(m_path);
    AppState state(&store);
    QSignalSpy changed(&state, &AppState::resultTextChanged);
    QSignalSpy appended(&state, &AppState::resultTextAppended);
    state.appendResultText(QStringLiteral("Hal"));
    state.appendResultText(QString());
    state.appendResultText(QStringLiteral("lo"));
    QCOMPARE(state.resultText(), QStringLiteral("Hallo"));
    QCOMPARE(changed.count(), 3);
    QCOMPARE(appended.count(), 3);
    QCOMPARE(appended.at(2).at(0).toString(), QStringLiteral("lo"));
}

void TestAppState::savesCustomPromptAsQuickAction_data()
{
    QTest::addColumn<QList<qint64>>("numbers");
    QTest::addColumn<QVariant>("text");
    QTest::addColumn<qint64>("expectedNumber");
    QTest::addColumn<QString>("expectedTitle");

    const QString withBlank = QStringLiteral("Summarise this for a ch") + QStringLiteral(" ") +
                              QStringLiteral("ild, please, thanks");
    QTest::newRow("blank kept at the end of the title")
        << QList<qint64>{1, 2, 3} << QVariant(withBlank) << qint64(4) << withBlank.left(24);
    QTest::newRow("after the highest number")
        << QList<qint64>{1, 2, 7} << QVariant(QStringLiteral("Shorter")) << qint64(8)
        << QStringLiteral("Shorter");
    QTest::newRow("only negative numbers") << QList<qint64>{-5, -3} << QVariant(QStringLiteral("x"))
                                           << qint64(-2) << QStringLiteral("x");
    const QString accented = QStringLiteral("e\u0301").repeated(30);
    QTest::newRow("combining marks count once")
        << QList<qint64>{1} << QVariant(accented) << qint64(2)
        << QStringLiteral("e\u0301").repeated(24);
    const QString flags = QStringLiteral("🇩🇪").repeated(25);
    QTest::newRow("flags count once")
        << QList<qint64>{1} << QVariant(flags) << qint64(2) << QStringLiteral("🇩🇪").repeated(24);
    // Without a custom prompt nothing is saved, nor written.
    QTest::newRow("none") << QList<qint64>{1} << QVariant() << qint64(0) << QString();
    QTest::newRow("empty") << QList<qint64>{1} << QVariant(QStringLiteral("")) << qint64(0)
                           << QString();
}

void TestAppState::savesCustomPromptAsQuickAction()
{
    QFETCH(QList<qint64>, numbers);
    QFETCH(QVariant, text);
    QFETCH(qint64, expectedNumber);
    QFETCH(QString, expectedTitle);

    PreferenceStore store(m_path);
    QList<Prompt> initial;
    for (qint64 number : numbers) {
        initial.append(
            Prompt::create(number, QStringLiteral("p%1").arg(number), QStringLiteral("s")));
    }
    PromptStore::save(store, initial);
    AppState state(&store);
    state.setLastCustomPromptTextValue(text);
    QSignalSpy promptsChanged(&state, &AppState::promptsChanged);
    QSignalSpy written(&store, &PreferenceStore::changed);

    state.saveCustomPromptAsQuickAction();

    if (expectedNumber == 0) {
        QCOMPARE(written.count(), 0);
        QCOMPARE(promptsChanged.count(), 0);
        QCOMPARE(state.prompts(), initial);
        return;
    }
    QCOMPARE(promptsChanged.count(), 1);
    QCOMPARE(state.prompts().size(), initial.size() + 1);
    QCOMPARE(state.prompts().mid(0, initial.size()), initial);
    const Prompt added = state.prompts().last();
    QCOMPARE(added.number, expectedNumber);
    QCOMPARE(added.title, expectedTitle);
    QCOMPARE(added.systemPrompt, text.toString());
    QVERIFY(!added.id.isNull());
    QCOMPARE(state.lastCustomPromptText(), std::nullopt);
    QCOMPARE(Prompt::decodeList(*store.data(Preferences::userPrompts)), state.prompts());
}

QTEST_GUILESS_MAIN(TestAppState)
#include "tst_appstate.moc"
