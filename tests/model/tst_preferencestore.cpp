#include "ChatServer.h"
#include "model/PreferenceStore.h"
#include "model/PromptStore.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

class TestPreferenceStore : public QObject {
    Q_OBJECT

private slots:
    void init();
    void freshStoreReadsAbsentValues();
    void readsTextWrittenByAnotherProcess_data();
    void readsTextWrittenByAnotherProcess();
    void writesAreVisibleToANewReader();
    void everyWriteNotifies();
    void fileIsOwnerOnly();
    void promptListFallsBackWithoutRepairing_data();
    void promptListFallsBackWithoutRepairing();
    void promptListIsSortedStably();
    void incrementsUsageCounter();
    void qmlAccessChecksNames();
    void corruptFileKeepsWorking();
    void damagedFileKeepsItsValues_data();
    void damagedFileKeepsItsValues();
    void everyDamagedFileIsKept();
    void lostAddressSendsNothing();
    void parallelRunsCountEveryPrompt();
    void cachedCountIsNeverWrittenBack();

private:
    QString writeFile(const QByteArray& contents);
    QByteArray readFile(const QString& path) const;
    /// A valid file as Ravelo writes it, sending runs to `server` with prompt 7.
    QByteArray validFile(const ChatServer& server);
    /// Starts `ravelo run` on this case's preferences; proxies only when given.
    std::unique_ptr<QProcess> startRun(const QString& prompt,
                                       const QString& proxy = QString()) const;
    static int exitCodeOf(QProcess& process);
    QString m_path;
    QString m_configHome;
    QTemporaryDir m_dir;
    int m_files = 0;
};

void TestPreferenceStore::init()
{
    QVERIFY(m_dir.isValid());
    m_configHome = m_dir.filePath(QStringLiteral("case%1").arg(++m_files));
    m_path = m_configHome + QStringLiteral("/Ravelo/Ravelo.conf");
}

QByteArray TestPreferenceStore::readFile(const QString& path) const
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray TestPreferenceStore::validFile(const ChatServer& server)
{
    const QString scratch = m_configHome + QStringLiteral("/scratch.conf");
    {
        PreferenceStore writer(scratch);
        writer.setString(Preferences::apiKey, QStringLiteral("sk-test"));
        writer.setString(Preferences::baseUrl, server.baseUrl());
        writer.setString(Preferences::model, QStringLiteral("model-of-the-user"));
        PromptStore::save(writer, {Prompt::create(7, QStringLiteral("Latin"),
                                                  QStringLiteral("Answer in Latin."))});
    }
    const QByteArray text = readFile(scratch);
    QFile::remove(scratch);
    return text;
}

std::unique_ptr<QProcess> TestPreferenceStore::startRun(const QString& prompt,
                                                        const QString& proxy) const
{
    auto process = std::make_unique<QProcess>();
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), m_configHome);
    for (const char* name : {"http_proxy", "https_proxy", "all_proxy", "no_proxy", "HTTP_PROXY",
                             "HTTPS_PROXY", "ALL_PROXY", "NO_PROXY"}) {
        environment.remove(QString::fromLatin1(name));
        if (!proxy.isEmpty() && QByteArrayView(name).endsWith("s_proxy")) {
            environment.insert(QString::fromLatin1(name), proxy);
        }
    }
    process->setProcessEnvironment(environment);
    process->start(qEnvironmentVariable("RAVELO_BINARY"), {QStringLiteral("run"), prompt});
    process->write("Guten Morgen");
    process->closeWriteChannel();
    return process;
}

// The server lives in this process: its event loop turns while the run goes on.
int TestPreferenceStore::exitCodeOf(QProcess& process)
{
    if (!QTest::qWaitFor([&process] { return process.state() == QProcess::NotRunning; }, 60000)) {
        process.kill();
        process.waitForFinished();
    }
    return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

// Each case gets a file no store of this process has seen, so reads parse its text
// exactly as a new process would.
QString TestPreferenceStore::writeFile(const QByteArray& contents)
{
    QDir().mkpath(QFileInfo(m_path).absolutePath());
    QFile file(m_path);
    if (!file.open(QIODevice::WriteOnly)) {
        return {};
    }
    file.write(contents);
    return m_path;
}

void TestPreferenceStore::freshStoreReadsAbsentValues()
{
    PreferenceStore store(m_path);
    QCOMPARE(store.string(Preferences::apiKey), std::nullopt);
    QCOMPARE(store.string(Preferences::model), QStringLiteral("gpt-4o-mini"));
    QCOMPARE(store.string(Preferences::baseUrl), std::nullopt);
    QCOMPARE(store.data(Preferences::userPrompts), std::nullopt);
    QVERIFY(!store.boolean(Preferences::hasCompletedOnboarding));
    QVERIFY(store.readUseDoubleCopy());
    QCOMPARE(store.integer(Preferences::customHotkeyKeyCode), 0);
    QCOMPARE(store.integer(Preferences::customHotkeyModifiers), 0);
    QCOMPARE(store.integer(Preferences::totalPromptsUsed), 0);
    QCOMPARE(PromptStore::load(store), Prompt::defaults());
    QVERIFY(!QFile::exists(m_path));
}

void TestPreferenceStore::readsTextWrittenByAnotherProcess_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("expected");

    QTest::newRow("double copy off")
        << QByteArray("use_double_copy=false") << "use_double_copy" << QVariant(false);
    QTest::newRow("double copy on")
        << QByteArray("use_double_copy=true") << "use_double_copy" << QVariant(true);
    QTest::newRow("double copy not a boolean")
        << QByteArray("use_double_copy=no") << "use_double_copy" << QVariant(true);
    QTest::newRow("double copy as number")
        << QByteArray("use_double_copy=0") << "use_double_copy" << QVariant(true);
    QTest::newRow("onboarding done") << QByteArray("has_completed_onboarding=true")
                                     << "has_completed_onboarding" << QVariant(true);
    QTest::newRow("onboarding garbage") << QByteArray("has_completed_onboarding=maybe")
                                        << "has_completed_onboarding" << QVariant(false);
    QTest::newRow("key code") << QByteArray("custom_hotkey_keycode=49") << "custom_hotkey_keycode"
                              << QVariant(qint64(49));
    QTest::newRow("key code not a number") << QByteArray("custom_hotkey_keycode=space")
                                           << "custom_hotkey_keycode" << QVariant(qint64(0));
    QTest::newRow("negative modifiers") << QByteArray("custom_hotkey_modifiers=-256")
                                        << "custom_hotkey_modifiers" << QVariant(qint64(-256));
    QTest::newRow("counter beyond double precision")
        << QByteArray("total_prompts_used=9007199254740993") << "total_prompts_used"
        << QVariant(qint64(9007199254740993));
    QTest::newRow("key with blanks kept")
        << QByteArray("openai_api_key=\"  sk-1 \"") << "openai_api_key"
        << QVariant(QStringLiteral("  sk-1 "));
    QTest::newRow("model") << QByteArray("openai_model=gpt-4.1") << "openai_model"
                           << QVariant(QStringLiteral("gpt-4.1"));
    QTest::newRow("address with a comma")
        << QByteArray("openai_base_url=http://127.0.0.1:8080/v1?a=1,2") << "openai_base_url"
        << QVariant(QStringLiteral("http://127.0.0.1:8080/v1?a=1,2"));
    QTest::newRow("model that looks like a number")
        << QByteArray("openai_model=4") << "openai_model" << QVariant(QStringLiteral("4"));
    QTest::newRow("unknown key") << QByteArray("colour=red") << "colour" << QVariant();
}

void TestPreferenceStore::readsTextWrittenByAnotherProcess()
{
    QFETCH(QByteArray, line);
    QFETCH(QString, key);
    QFETCH(QVariant, expected);
    const PreferenceStore store(writeFile("[General]\n" + line + "\n"));
    QCOMPARE(store.value(key), expected);
}

void TestPreferenceStore::writesAreVisibleToANewReader()
{
    const QByteArray prompts = Prompt::encodeList(Prompt::defaults());
    {
        PreferenceStore writer(m_path);
        writer.setString(Preferences::apiKey, QStringLiteral(" sk-abc "));
        writer.setString(Preferences::model, QStringLiteral("gpt-4o"));
        writer.setBoolean(Preferences::useDoubleCopy, false);
        writer.setInteger(Preferences::customHotkeyKeyCode, 4294967295LL);
        writer.setData(Preferences::userPrompts, prompts);
    }
    // Read back the text as another process would.
    QFile file(m_path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray text = file.readAll();
    file.close();
    QFile::remove(m_path);
    PreferenceStore reader(writeFile(text));
    QCOMPARE(reader.string(Preferences::apiKey), QStringLiteral(" sk-abc "));
    QCOMPARE(reader.string(Preferences::model), QStringLiteral("gpt-4o"));
    QVERIFY(!reader.readUseDoubleCopy());
    QCOMPARE(reader.integer(Preferences::customHotkeyKeyCode), 4294967295LL);
    QCOMPARE(reader.data(Preferences::userPrompts), prompts);
    QCOMPARE(PromptStore::load(reader), Prompt::defaults());
}

void TestPreferenceStore::everyWriteNotifies()
{
    PreferenceStore store(m_path);
    QSignalSpy changed(&store, &PreferenceStore::changed);
    store.setString(Preferences::apiKey, QStringLiteral("k"));
    store.setString(Preferences::apiKey, QStringLiteral("k"));
    store.setBoolean(Preferences::useDoubleCopy, true);
    store.incrementPromptsUsed();
    PromptStore::save(store, Prompt::defaults());
    QCOMPARE(changed.count(), 5);
}

void TestPreferenceStore::fileIsOwnerOnly()
{
    const auto mode = [this] {
        struct stat info {};
        return ::stat(QFile::encodeName(m_path).constData(), &info) == 0 ? (info.st_mode & 0777)
                                                                         : 0u;
    };
    {
        PreferenceStore store(m_path);
        store.setString(Preferences::apiKey, QStringLiteral("sk-secret"));
        QCOMPARE(mode(), 0600u);
        store.setString(Preferences::apiKey, QStringLiteral("sk-secret-2"));
        QCOMPARE(mode(), 0600u);
    }
    QVERIFY(QFile::setPermissions(m_path, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup |
                                              QFile::ReadOther));
    PreferenceStore store(m_path);
    store.setBoolean(Preferences::useDoubleCopy, false);
    QCOMPARE(mode(), 0600u);
    // Nothing of the atomic replacement is left behind.
    QCOMPARE(QDir(QFileInfo(m_path).absolutePath()).entryList(QDir::Files),
             QStringList{QStringLiteral("Ravelo.conf")});
}

void TestPreferenceStore::promptListFallsBackWithoutRepairing_data()
{
    QTest::addColumn<QByteArray>("stored");
    QTest::newRow("empty list") << QByteArray("[]");
    QTest::newRow("not JSON") << QByteArray("Translate: to German");
    QTest::newRow("wrong shape") << QByteArray("{\"prompts\":[]}");
    QTest::newRow("binary") << QByteArray("\x00\xff\xfe", 3);
}

void TestPreferenceStore::promptListFallsBackWithoutRepairing()
{
    QFETCH(QByteArray, stored);
    {
        PreferenceStore store(m_path);
        store.setData(Preferences::userPrompts, stored);
    }
    PreferenceStore store(m_path);
    QCOMPARE(PromptStore::load(store), Prompt::defaults());
    QCOMPARE(store.data(Preferences::userPrompts), stored);
}

void TestPreferenceStore::promptListIsSortedStably()
{
    const Prompt three = Prompt::create(3, QStringLiteral("three"), QStringLiteral("c"));
    const Prompt one = Prompt::create(1, QStringLiteral("one"), QStringLiteral("a"));
    const Prompt twoFirst =
        Prompt::create(2, QStringLiteral("two, stored first"), QStringLiteral("b"));
    const Prompt twoSecond =
        Prompt::create(2, QStringLiteral("two, stored second"), QStringLiteral("b"));
    PreferenceStore store(m_path);
    PromptStore::save(store, {three, twoFirst, one, twoSecond});
    const QList<Prompt> expected{one, twoFirst, twoSecond, three};
    QCOMPARE(PromptStore::load(store), expected);
}

void TestPreferenceStore::incrementsUsageCounter()
{
    PreferenceStore store(m_path);
    store.incrementPromptsUsed();
    store.incrementPromptsUsed();
    QCOMPARE(store.integer(Preferences::totalPromptsUsed), 2);
    store.setInteger(Preferences::totalPromptsUsed, std::numeric_limits<qint64>::max());
    store.incrementPromptsUsed();
    QCOMPARE(store.integer(Preferences::totalPromptsUsed), std::numeric_limits<qint64>::max());
}

void TestPreferenceStore::qmlAccessChecksNames()
{
    PreferenceStore store(m_path);
    QSignalSpy changed(&store, &PreferenceStore::changed);
    store.setValue(QStringLiteral("openai_model"), QStringLiteral("gpt-4.1-nano"));
    store.setValue(QStringLiteral("custom_hotkey_keycode"), 49);
    store.setValue(QStringLiteral("not_a_preference"), 1);
    QCOMPARE(changed.count(), 2);
    QCOMPARE(store.value(QStringLiteral("openai_model")), QVariant(QStringLiteral("gpt-4.1-nano")));
    QCOMPARE(store.integer(Preferences::customHotkeyKeyCode), 49);
    QVERIFY(!store.value(QStringLiteral("not_a_preference")).isValid());
    QVERIFY(!store.value(QStringLiteral("openai_api_key")).isValid());
}

void TestPreferenceStore::corruptFileKeepsWorking()
{
    // Readable lines survive; the damaged file is kept beside the new one.
    QByteArray damaged("[General]\nopenai_model=gpt-4.1\n[Gen");
    for (int i = 0; i < 512; ++i) {
        damaged.append(char((i * 7919) % 251));
    }
    PreferenceStore store(writeFile(damaged));
    QVERIFY(store.readUseDoubleCopy());
    QCOMPARE(PromptStore::load(store), Prompt::defaults());
    store.setString(Preferences::apiKey, QStringLiteral("sk-after-corruption"));

    QFile saved(m_path);
    QVERIFY(saved.open(QIODevice::ReadOnly));
    const QByteArray text = saved.readAll();
    QVERIFY2(text.contains("openai_api_key=sk-after-corruption"), text.constData());
    QVERIFY(text.contains("openai_model=gpt-4.1"));
    QFile aside(m_path + QStringLiteral(".unreadable"));
    QVERIFY(aside.open(QIODevice::ReadOnly));
    QCOMPARE(aside.readAll(), damaged);
}

void TestPreferenceStore::damagedFileKeepsItsValues_data()
{
    QTest::addColumn<QByteArray>("damage");
    QTest::addColumn<bool>("appended");
    QTest::newRow("unclosed section before the address") << QByteArray("[oops\n") << false;
    QByteArray junk = QByteArrayLiteral("\n\x00\x01=\xff\xfe[\x7f\xc3\n");
    for (int i = 0; i < 512; ++i) {
        junk.append(char((i * 7919) % 251));
    }
    QTest::newRow("binary junk appended") << junk << true;
}

// Found with the real `ravelo run`: the request must go to the stored server with the stored
// model and prompt, and the damaged file stays as it was.
void TestPreferenceStore::damagedFileKeepsItsValues()
{
    QFETCH(QByteArray, damage);
    QFETCH(bool, appended);
    ChatServer server;
    QByteArray damaged = validFile(server);
    const qsizetype address = damaged.indexOf("openai_base_url");
    QVERIFY(address > 0);
    damaged.insert(appended ? damaged.size() : address, damage);
    writeFile(damaged);
    server.enqueue(
        ChatResponse::events({R"({"choices":[{"delta":{"content":"Salve"}}]})", "[DONE]"}));

    auto run = startRun(QStringLiteral("7"));
    QCOMPARE(exitCodeOf(*run), 0);
    QCOMPARE(run->readAllStandardOutput(), QByteArray("Salve"));
    QCOMPARE(server.requests().size(), 1);
    const QJsonObject body = QJsonDocument::fromJson(server.requests().first().body).object();
    QCOMPARE(body.value(QLatin1String("model")).toString(), QStringLiteral("model-of-the-user"));
    QCOMPARE(server.sentMessage(0, 0), QStringLiteral("Answer in Latin."));

    QCOMPARE(readFile(m_path + QStringLiteral(".unreadable")), damaged);
    // The new file holds the known keys, at the top level, and nothing else.
    const QByteArray repaired = readFile(m_path);
    QVERIFY2(!repaired.contains("oops") && !repaired.contains('\xff'), repaired.constData());
    const QString copy = m_configHome + QStringLiteral("/copy.conf");
    QVERIFY(QFile::copy(m_path, copy));
    const QSettings settings(copy, QSettings::IniFormat);
    for (const QString& key : settings.allKeys()) {
        QVERIFY2(Preferences::find(key), qPrintable(key));
    }
    QCOMPARE(settings.value(QStringLiteral("openai_base_url")).toString(), server.baseUrl());
}

void TestPreferenceStore::everyDamagedFileIsKept()
{
    const QByteArray first("[General]\nopenai_model=first\n[Gen");
    const QByteArray second = QByteArrayLiteral("[General]\nopenai_model=second\n\x00\x01junk");
    writeFile(first);
    PreferenceStore(m_path).setString(Preferences::apiKey, QStringLiteral("sk-test"));
    QFile::remove(m_path);
    writeFile(second);
    const PreferenceStore store(m_path);
    QCOMPARE(store.string(Preferences::model), QStringLiteral("second"));
    QCOMPARE(readFile(m_path + QStringLiteral(".unreadable")), first);
    QCOMPARE(readFile(m_path + QStringLiteral(".unreadable.1")), second);
}

// A server address that cannot be read never turns into the default one: the runs fail and
// send nothing. Any request to another host would pass through the proxy on loopback.
void TestPreferenceStore::lostAddressSendsNothing()
{
    ChatServer proxy;
    QByteArray damaged = validFile(proxy);
    const qsizetype address = damaged.indexOf("openai_base_url");
    damaged.insert(address, QByteArray("\x00\x00", 2));
    writeFile(damaged);

    for (int run = 0; run < 2; ++run) {
        auto process = startRun(QStringLiteral("7"), proxy.baseUrl());
        QCOMPARE(exitCodeOf(*process), 1);
        const QByteArray error = process->readAllStandardError();
        QVERIFY2(error.contains("The server address was lost with a damaged preferences file") &&
                     error.contains("Error: "),
                 error.constData());
        QCOMPARE(proxy.requests().size(), 0);
    }
    QVERIFY(QFile::exists(m_path + QStringLiteral(".unreadable")));
    QVERIFY(!QFile::exists(m_path + QStringLiteral(".unreadable.1")));
    const PreferenceStore store(m_path);
    QCOMPARE(store.string(Preferences::baseUrl),
             PreferenceStore::lostBaseUrlNote(m_path + QStringLiteral(".unreadable")));
}

void TestPreferenceStore::parallelRunsCountEveryPrompt()
{
    constexpr int runs = 20;
    ChatServer server;
    // All of them find the same damaged file: one sets it aside, the others use its repair.
    writeFile(validFile(server) + QByteArrayLiteral("\x00junk"));
    std::vector<std::unique_ptr<QProcess>> processes;
    for (int i = 0; i < runs; ++i) {
        server.enqueue(
            ChatResponse::events({R"({"choices":[{"delta":{"content":"ok"}}]})", "[DONE]"}));
        processes.push_back(startRun(QStringLiteral("7")));
    }
    for (const auto& process : processes) {
        QCOMPARE(exitCodeOf(*process), 0);
    }
    QCOMPARE(server.requests().size(), runs);
    QCOMPARE(PreferenceStore(m_path).integer(Preferences::totalPromptsUsed), runs);
    QVERIFY(QFile::exists(m_path + QStringLiteral(".unreadable")));
    QVERIFY(!QFile::exists(m_path + QStringLiteral(".unreadable.1")));
}

// The application keeps its store open while `ravelo run` counts in other processes.
void TestPreferenceStore::cachedCountIsNeverWrittenBack()
{
    ChatServer server;
    writeFile(validFile(server));
    const auto runs = [&](int count) {
        for (int i = 0; i < count; ++i) {
            server.enqueue(
                ChatResponse::events({R"({"choices":[{"delta":{"content":"ok"}}]})", "[DONE]"}));
            auto process = startRun(QStringLiteral("7"));
            exitCodeOf(*process);
        }
    };
    PreferenceStore application(m_path);
    application.incrementPromptsUsed();
    runs(10);
    application.incrementPromptsUsed();
    QCOMPARE(readFile(m_path).count("total_prompts_used=12"), 1);

    // A run within one tick of the file system's clock: the file keeps its size and time,
    // so the application's settings object cannot see that it changed.
    const QDateTime modified = QFileInfo(m_path).lastModified();
    runs(1);
    QFile file(m_path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(file.setFileTime(modified, QFileDevice::FileModificationTime));
    file.close();
    application.setBoolean(Preferences::useDoubleCopy, false);
    const QByteArray text = readFile(m_path);
    QVERIFY2(text.contains("total_prompts_used=13") && text.contains("use_double_copy=false"),
             text.constData());
    QCOMPARE(server.requests().size(), 11);
}

QTEST_GUILESS_MAIN(TestPreferenceStore)
#include "tst_preferencestore.moc"
