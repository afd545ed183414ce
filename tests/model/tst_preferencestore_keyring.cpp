#include "SecretService.h"
#include "model/PreferenceStore.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;
using Storage = PreferenceStore::ApiKeyStorage;

// The API key in a real Secret Service (gnome-keyring on a bus of this test's own).
class TestPreferenceStoreKeyring : public QObject {
    Q_OBJECT

    SecretService m_secrets;
    QTemporaryDir m_dir;
    QString m_path;
    int m_case = 0;
    std::optional<QString> inKeyring() const { return m_secrets.apiKey(); }

    QByteArray fileText() const
    {
        QFile file(m_path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    /// A store that has had its answer from the keyring.
    std::unique_ptr<PreferenceStore> keyringStore()
    {
        auto store = std::make_unique<PreferenceStore>(m_path);
        store->useKeyring();
        [&] { QTRY_VERIFY(store->apiKeyStorage() != Storage::ReadingKeyring); }();
        return store;
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(m_secrets.start(), qPrintable(m_secrets.error()));
        m_secrets.useInThisProcess();
    }

    void init()
    {
        m_path = m_dir.filePath(u"case%1/Ravelo.conf"_s.arg(++m_case));
        m_secrets.clearApiKey();
    }

    void keyInFileMovesToKeyring_data()
    {
        QTest::addColumn<QString>("keyringBefore");
        QTest::newRow("keyring empty") << QString();
        // A key in the file was typed while the keyring was away: it is the newer one.
        QTest::newRow("older key in keyring") << u"sk-old"_s;
    }

    void keyInFileMovesToKeyring()
    {
        QFETCH(QString, keyringBefore);
        if (!keyringBefore.isEmpty()) {
            QVERIFY(m_secrets.storeApiKey(keyringBefore));
        }
        PreferenceStore(m_path).setString(Preferences::apiKey, u"sk-from-file"_s);
        QVERIFY(fileText().contains("sk-from-file"));
        {
            PreferenceStore store(m_path);
            QSignalSpy stored(&store, &PreferenceStore::apiKeyStoredInKeyring);
            store.useKeyring();
            QVERIFY(stored.wait());
            QCOMPARE(store.apiKeyStorage(), Storage::Keyring);
            QCOMPARE(store.string(Preferences::apiKey), u"sk-from-file"_s);
        }
        QCOMPARE(inKeyring(), u"sk-from-file"_s);
        QVERIFY2(!fileText().contains(Preferences::apiKey.name), fileText().constData());
    }

    // The controller re-arms the triggers at every write: the keyring's answer is none.
    void keyringAnswerIsNoWrite()
    {
        QVERIFY(m_secrets.storeApiKey(u"sk-kept"_s));
        PreferenceStore store(m_path);
        QSignalSpy changed(&store, &PreferenceStore::changed);
        QSignalSpy storage(&store, &PreferenceStore::apiKeyStorageChanged);
        store.useKeyring();
        QTRY_COMPARE(store.apiKeyStorage(), Storage::Keyring);
        QCOMPARE(storage.size(), 2);
        QCOMPARE(changed.size(), 0);
    }

    // Typed key by key, each step is readable at once; the end comes long before the write
    // would be due, and the key is kept all the same.
    void typedKeyIsReadBackAfterRestart()
    {
        const QString key = u"sk-0123456789abcdefghij"_s;
        {
            auto store = keyringStore();
            store->setKeyringWriteDelay(1h);
            QSignalSpy changed(store.get(), &PreferenceStore::changed);
            for (qsizetype length = 1; length <= key.size(); ++length) {
                store->setString(Preferences::apiKey, key.left(length));
                QCOMPARE(store->string(Preferences::apiKey), key.left(length));
            }
            QCOMPARE(changed.size(), key.size());
        }
        QVERIFY(!fileText().contains("sk-0"));
        QCOMPARE(inKeyring(), key);
        auto store = keyringStore();
        QCOMPARE(store->apiKeyStorage(), Storage::Keyring);
        QCOMPARE(store->string(Preferences::apiKey), key);
        QVERIFY(store->contains(Preferences::apiKey));
    }

    void keyTypedBeforeTheKeyringAnswersWins()
    {
        QVERIFY(m_secrets.storeApiKey(u"sk-stored"_s));
        {
            PreferenceStore store(m_path);
            store.useKeyring();
            QCOMPARE(store.apiKeyStorage(), Storage::ReadingKeyring);
            QVERIFY(!store.string(Preferences::apiKey));
            store.setString(Preferences::apiKey, u"sk-early"_s);
            QTRY_COMPARE(store.apiKeyStorage(), Storage::Keyring);
            QCOMPARE(store.string(Preferences::apiKey), u"sk-early"_s);
        }
        QCOMPARE(inKeyring(), u"sk-early"_s);
    }

    void clearedKeyLeavesKeyring()
    {
        QVERIFY(m_secrets.storeApiKey(u"sk-gone"_s));
        auto store = keyringStore();
        QSignalSpy stored(store.get(), &PreferenceStore::apiKeyStoredInKeyring);
        store->setString(Preferences::apiKey, QString());
        store->saveApiKeyNow();
        QVERIFY(stored.wait());
        QCOMPARE(inKeyring(), std::nullopt);
        QCOMPARE(store->string(Preferences::apiKey), QString());
    }

    // Last: the keyring ends here.
    void keyringThatGoesAwayLeavesTheKeyInTheFile()
    {
        auto store = keyringStore();
        QCOMPARE(store->apiKeyStorage(), Storage::Keyring);
        m_secrets.stopKeyring();
        QSignalSpy storage(store.get(), &PreferenceStore::apiKeyStorageChanged);
        store->setString(Preferences::apiKey, u"sk-no-keyring"_s);
        store->saveApiKeyNow();
        QVERIFY(storage.wait());
        QCOMPARE(store->apiKeyStorage(), Storage::File);
        QVERIFY(fileText().contains("sk-no-keyring"));
        // And a later start keeps it there.
        auto next = keyringStore();
        QCOMPARE(next->apiKeyStorage(), Storage::File);
        QCOMPARE(next->string(Preferences::apiKey), u"sk-no-keyring"_s);
    }
};

QTEST_GUILESS_MAIN(TestPreferenceStoreKeyring)
#include "tst_preferencestore_keyring.moc"
