#include "SecretService.h"
#include "model/PreferenceStore.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace std::chrono_literals;

// The API key in a real Secret Service (gnome-keyring on a bus of this test's own).
class TestPreferenceStoreKeyring : public QObject {
    Q_OBJECT

private:
    SecretService m_secrets;
    QTemporaryDir m_dir;
    QString m_path;
    int m_case = 0;

    const QString service = QString::fromLatin1(PreferenceStore::keyringService);
    const QString keyName = QString::fromLatin1(Preferences::apiKey.name);

    std::optional<QString> inKeyring() const { return m_secrets.lookup(service, keyName); }

    QByteArray fileText() const
    {
        QFile file(m_path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    void writeKeyToFile(const QString& key)
    {
        PreferenceStore(m_path).setString(Preferences::apiKey, key);
        QVERIFY(fileText().contains(key.toUtf8()));
    }

    /// A store that has had its answer from the keyring.
    std::unique_ptr<PreferenceStore> keyringStore()
    {
        auto store = std::make_unique<PreferenceStore>(m_path);
        store->useKeyring();
        [&] {
            QTRY_VERIFY(store->apiKeyStorage() != PreferenceStore::ApiKeyStorage::ReadingKeyring);
        }();
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
        m_path = m_dir.filePath(QStringLiteral("case%1/Ravelo.conf").arg(++m_case));
        m_secrets.clear(service, keyName);
    }

    void keyInFileMovesToKeyring_data()
    {
        QTest::addColumn<std::optional<QString>>("keyringBefore");
        QTest::newRow("keyring empty") << std::optional<QString>();
        // A key in the file was typed while the keyring was away: it is the newer one.
        QTest::newRow("older key in keyring") << std::optional<QString>(QStringLiteral("sk-old"));
    }

    void keyInFileMovesToKeyring()
    {
        QFETCH(std::optional<QString>, keyringBefore);
        if (keyringBefore) {
            QVERIFY(m_secrets.store(service, keyName, *keyringBefore));
        }
        writeKeyToFile(QStringLiteral("sk-from-file"));
        {
            auto store = std::make_unique<PreferenceStore>(m_path);
            QSignalSpy stored(store.get(), &PreferenceStore::apiKeyStoredInKeyring);
            store->useKeyring();
            QVERIFY(stored.wait());
            QCOMPARE(store->apiKeyStorage(), PreferenceStore::ApiKeyStorage::Keyring);
            QCOMPARE(store->string(Preferences::apiKey), QStringLiteral("sk-from-file"));
        }
        QCOMPARE(inKeyring(), QStringLiteral("sk-from-file"));
        QVERIFY2(!fileText().contains(Preferences::apiKey.name), fileText().constData());
    }

    void keyIsReadBackAfterRestart()
    {
        keyringStore()->setString(Preferences::apiKey, QStringLiteral("sk-typed"));
        QVERIFY(!fileText().contains("sk-typed"));
        auto store = keyringStore();
        QCOMPARE(store->apiKeyStorage(), PreferenceStore::ApiKeyStorage::Keyring);
        QCOMPARE(store->string(Preferences::apiKey), QStringLiteral("sk-typed"));
        QVERIFY(store->contains(Preferences::apiKey));
    }

    // The controller re-arms the triggers at every write: the keyring's answer is none.
    void keyringAnswerIsNoWrite()
    {
        QVERIFY(m_secrets.store(service, keyName, QStringLiteral("sk-kept")));
        PreferenceStore store(m_path);
        QSignalSpy changed(&store, &PreferenceStore::changed);
        QSignalSpy storage(&store, &PreferenceStore::apiKeyStorageChanged);
        store.useKeyring();
        QTRY_COMPARE(store.apiKeyStorage(), PreferenceStore::ApiKeyStorage::Keyring);
        QCOMPARE(storage.size(), 2);
        QCOMPARE(changed.size(), 0);
    }

    void typingIsWrittenOnceWhenItPauses()
    {
        auto store = keyringStore();
        store->setKeyringWriteDelay(1h);
        QSignalSpy stored(store.get(), &PreferenceStore::apiKeyStoredInKeyring);
        QSignalSpy changed(store.get(), &PreferenceStore::changed);
        const QString key = QStringLiteral("sk-0123456789abcdefghij");
        for (qsizetype length = 1; length <= key.size(); ++length) {
            store->setString(Preferences::apiKey, key.left(length));
            QCOMPARE(store->string(Preferences::apiKey), key.left(length));
        }
        QCOMPARE(changed.size(), key.size());
        store->saveApiKeyNow();
        QVERIFY(stored.wait());
        QCOMPARE(stored.size(), 1);
        QCOMPARE(inKeyring(), key);
    }

    void keyTypedJustBeforeTheEndIsKept()
    {
        {
            auto store = keyringStore();
            store->setKeyringWriteDelay(1h);
            store->setString(Preferences::apiKey, QStringLiteral("sk-last-moment"));
        }
        QCOMPARE(inKeyring(), QStringLiteral("sk-last-moment"));
    }

    void keyTypedBeforeTheKeyringAnswersWins()
    {
        QVERIFY(m_secrets.store(service, keyName, QStringLiteral("sk-stored")));
        {
            PreferenceStore store(m_path);
            store.useKeyring();
            QCOMPARE(store.apiKeyStorage(), PreferenceStore::ApiKeyStorage::ReadingKeyring);
            QVERIFY(!store.string(Preferences::apiKey));
            store.setString(Preferences::apiKey, QStringLiteral("sk-early"));
            QTRY_COMPARE(store.apiKeyStorage(), PreferenceStore::ApiKeyStorage::Keyring);
            QCOMPARE(store.string(Preferences::apiKey), QStringLiteral("sk-early"));
        }
        QCOMPARE(inKeyring(), QStringLiteral("sk-early"));
    }

    void clearedKeyLeavesKeyring()
    {
        QVERIFY(m_secrets.store(service, keyName, QStringLiteral("sk-gone")));
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
        QCOMPARE(store->apiKeyStorage(), PreferenceStore::ApiKeyStorage::Keyring);
        m_secrets.stopKeyring();
        QSignalSpy storage(store.get(), &PreferenceStore::apiKeyStorageChanged);
        store->setString(Preferences::apiKey, QStringLiteral("sk-no-keyring"));
        store->saveApiKeyNow();
        QVERIFY(storage.wait());
        QCOMPARE(store->apiKeyStorage(), PreferenceStore::ApiKeyStorage::File);
        QCOMPARE(store->string(Preferences::apiKey), QStringLiteral("sk-no-keyring"));
        QVERIFY(fileText().contains("sk-no-keyring"));

        // And a later start keeps it there.
        auto next = keyringStore();
        QCOMPARE(next->apiKeyStorage(), PreferenceStore::ApiKeyStorage::File);
        QCOMPARE(next->string(Preferences::apiKey), QStringLiteral("sk-no-keyring"));
    }
};

QTEST_GUILESS_MAIN(TestPreferenceStoreKeyring)
#include "tst_preferencestore_keyring.moc"
