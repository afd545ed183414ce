#include "ChatServer.h"
#include "model/PreferenceStore.h"
#include "model/PromptStore.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

const QByteArray okAnswer = R"({"choices":[{"delta":{"content":"ok"}}]})";

} // namespace

class TestPreferenceStore : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    int m_files = 0;
    QString m_configHome;
    QString m_path;

    // Each case gets a file no store of this process has seen, so reads parse its text
    // exactly as a new process would.
    QString writeFile(const QByteArray& contents)
    {
        QDir().mkpath(QFileInfo(m_path).absolutePath());
        QFile file(m_path);
        return file.open(QIODevice::WriteOnly) && file.write(contents) >= 0 ? m_path : QString();
    }

    /// A valid file as Ravelo writes it, sending runs to `server` with prompt 7.
    QByteArray validFile(const ChatServer& server)
    {
        const QString scratch = m_configHome + u"/scratch.conf"_s;
        {
            PreferenceStore writer(scratch);
            writer.setString(Preferences::apiKey, u"sk-test"_s);
            writer.setString(Preferences::baseUrl, server.baseUrl());
            writer.setString(Preferences::model, u"model-of-the-user"_s);
            PromptStore::save(writer, {Prompt::create(7, u"Latin"_s, u"Answer in Latin."_s)});
        }
        const QByteArray text = readFile(scratch);
        QFile::remove(scratch);
        return text;
    }

    /// Starts `ravelo run 7` on this case's preferences; proxies only when given.
    std::unique_ptr<QProcess> startRun(const QString& proxy = QString()) const
    {
        auto process = std::make_unique<QProcess>();
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"XDG_CONFIG_HOME"_s, m_configHome);
        for (const char* name : {"http_proxy", "https_proxy", "all_proxy", "no_proxy", "HTTP_PROXY",
                                 "HTTPS_PROXY", "ALL_PROXY", "NO_PROXY"}) {
            environment.remove(QString::fromLatin1(name));
            if (!proxy.isEmpty() && QByteArrayView(name).endsWith("s_proxy")) {
                environment.insert(QString::fromLatin1(name), proxy);
            }
        }
        process->setProcessEnvironment(environment);
        process->start(qEnvironmentVariable("RAVELO_BINARY"), {u"run"_s, u"7"_s});
        process->write("Guten Morgen");
        process->closeWriteChannel();
        return process;
    }

    // The server lives in this process: its event loop turns while the run goes on.
    static int exitCodeOf(QProcess& process)
    {
        if (!QTest::qWaitFor([&process] { return process.state() == QProcess::NotRunning; },
                             60000)) {
            process.kill();
            process.waitForFinished();
        }
        return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    }

private slots:
    void init()
    {
        QVERIFY(m_dir.isValid());
        m_configHome = m_dir.filePath(u"case%1"_s.arg(++m_files));
        m_path = m_configHome + u"/Ravelo/Ravelo.conf"_s;
    }

    void freshStoreReadsAbsentValues()
    {
        PreferenceStore store(m_path);
        QCOMPARE(store.string(Preferences::apiKey), std::nullopt);
        QCOMPARE(store.string(Preferences::model), u"gpt-4o-mini"_s);
        QCOMPARE(store.data(Preferences::userPrompts), std::nullopt);
        QVERIFY(!store.boolean(Preferences::hasCompletedOnboarding));
        QVERIFY(store.readUseDoubleCopy());
        QCOMPARE(store.integer(Preferences::customHotkeyKeyCode), 0);
        QCOMPARE(PromptStore::load(store), Prompt::defaults());
        QVERIFY(!QFile::exists(m_path));
    }

    void readsTextWrittenByAnotherProcess_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<QVariant>("expected");
        QTest::newRow("double copy off") << QByteArray("use_double_copy=false") << QVariant(false);
        QTest::newRow("double copy not a boolean")
            << QByteArray("use_double_copy=no") << QVariant(true);
        QTest::newRow("double copy as number") << QByteArray("use_double_copy=0") << QVariant(true);
        QTest::newRow("onboarding done")
            << QByteArray("has_completed_onboarding=true") << QVariant(true);
        QTest::newRow("onboarding garbage")
            << QByteArray("has_completed_onboarding=maybe") << QVariant(false);
        QTest::newRow("key code") << QByteArray("custom_hotkey_keycode=49") << QVariant(qint64(49));
        QTest::newRow("key code not a number")
            << QByteArray("custom_hotkey_keycode=space") << QVariant(qint64(0));
        QTest::newRow("negative modifiers")
            << QByteArray("custom_hotkey_modifiers=-256") << QVariant(qint64(-256));
        QTest::newRow("counter beyond double precision")
            << QByteArray("total_prompts_used=9007199254740993")
            << QVariant(qint64(9007199254740993));
        QTest::newRow("key with blanks kept")
            << QByteArray("openai_api_key=\"  sk-1 \"") << QVariant(u"  sk-1 "_s);
        QTest::newRow("address with a comma")
            << QByteArray("openai_base_url=http://127.0.0.1:8080/v1?a=1,2")
            << QVariant(u"http://127.0.0.1:8080/v1?a=1,2"_s);
        QTest::newRow("model that looks like a number")
            << QByteArray("openai_model=4") << QVariant(u"4"_s);
        QTest::newRow("unknown key") << QByteArray("colour=red") << QVariant();
    }

    void readsTextWrittenByAnotherProcess()
    {
        QFETCH(QByteArray, line);
        QFETCH(QVariant, expected);
        const PreferenceStore store(writeFile("[General]\n" + line + "\n"));
        QCOMPARE(store.value(QString::fromLatin1(line.left(line.indexOf('=')))), expected);
    }

    void promptListEditedByHandAsText()
    {
        const QList<Prompt> prompts{Prompt::create(1, u"Shorten"_s, u"Make it short."_s)};
        QSettings(m_path, QSettings::IniFormat)
            .setValue(u"userPrompts"_s, QString::fromUtf8(Prompt::encodeList(prompts)));
        const PreferenceStore store(m_path);
        QCOMPARE(PromptStore::load(store), prompts);
    }

    // Read back by another store, the file is owner-only and nothing of its atomic
    // replacement is left behind; every write notifies.
    void writesAreVisibleToANewReader()
    {
        QTest::failOnWarning(QRegularExpression(u"Could not save"_s));
        const QByteArray prompts = Prompt::encodeList(Prompt::defaults());
        const auto mode = [this] {
            struct stat info {};
            return ::stat(QFile::encodeName(m_path).constData(), &info) == 0 ? (info.st_mode & 0777)
                                                                             : 0u;
        };
        {
            PreferenceStore writer(m_path);
            QSignalSpy changed(&writer, &PreferenceStore::changed);
            writer.setString(Preferences::apiKey, u" sk-abc "_s);
            QCOMPARE(mode(), 0600u);
            writer.setString(Preferences::apiKey, u" sk-abc "_s);
            writer.setString(Preferences::model, u"gpt-4o"_s);
            writer.setBoolean(Preferences::useDoubleCopy, false);
            writer.setInteger(Preferences::customHotkeyKeyCode, 4294967295LL);
            writer.setData(Preferences::userPrompts, prompts);
            writer.incrementPromptsUsed();
            QCOMPARE(changed.count(), 7);
        }
        QVERIFY(QFile::setPermissions(m_path, QFile::ReadOwner | QFile::WriteOwner |
                                                  QFile::ReadGroup | QFile::ReadOther));
        PreferenceStore(m_path).setString(Preferences::model, u"gpt-4o"_s);
        QCOMPARE(mode(), 0600u);
        QCOMPARE(QDir(QFileInfo(m_path).absolutePath()).entryList(QDir::Files),
                 QStringList{u"Ravelo.conf"_s});

        const QByteArray text = readFile(m_path);
        QFile::remove(m_path);
        PreferenceStore reader(writeFile(text));
        QCOMPARE(reader.string(Preferences::apiKey), u" sk-abc "_s);
        QCOMPARE(reader.string(Preferences::model), u"gpt-4o"_s);
        QVERIFY(!reader.readUseDoubleCopy());
        QCOMPARE(reader.integer(Preferences::customHotkeyKeyCode), 4294967295LL);
        QCOMPARE(reader.data(Preferences::userPrompts), prompts);
        QCOMPARE(PromptStore::load(reader), Prompt::defaults());
    }

    void unsavableFileIsReported()
    {
        PreferenceStore store(u"/dev/null/Ravelo.conf"_s);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"Could not save the preferences"_s));
        store.setString(Preferences::model, u"gpt-4o"_s);
    }

    void promptListFallsBackWithoutRepairing_data()
    {
        QTest::addColumn<QByteArray>("stored");
        QTest::newRow("empty list") << QByteArray("[]");
        QTest::newRow("not JSON") << QByteArray("Translate: to German");
        QTest::newRow("binary") << QByteArray("\x00\xff\xfe", 3);
    }

    void promptListFallsBackWithoutRepairing()
    {
        QFETCH(QByteArray, stored);
        PreferenceStore(m_path).setData(Preferences::userPrompts, stored);
        PreferenceStore store(m_path);
        QCOMPARE(PromptStore::load(store), Prompt::defaults());
        QCOMPARE(store.data(Preferences::userPrompts), stored);
    }

    void promptListIsSortedStably()
    {
        const Prompt three = Prompt::create(3, u"three"_s, u"c"_s);
        const Prompt one = Prompt::create(1, u"one"_s, u"a"_s);
        const Prompt twoFirst = Prompt::create(2, u"two, stored first"_s, u"b"_s);
        const Prompt twoSecond = Prompt::create(2, u"two, stored second"_s, u"b"_s);
        PreferenceStore store(m_path);
        PromptStore::save(store, {three, twoFirst, one, twoSecond});
        QCOMPARE(PromptStore::load(store), (QList<Prompt>{one, twoFirst, twoSecond, three}));
    }

    void usageCounterStopsAtItsLargestValue()
    {
        PreferenceStore store(m_path);
        store.setInteger(Preferences::totalPromptsUsed, std::numeric_limits<qint64>::max());
        store.incrementPromptsUsed();
        QCOMPARE(store.integer(Preferences::totalPromptsUsed), std::numeric_limits<qint64>::max());
    }

    void qmlAccessChecksNames()
    {
        PreferenceStore store(m_path);
        QSignalSpy changed(&store, &PreferenceStore::changed);
        store.setValue(u"openai_model"_s, u"gpt-4.1-nano"_s);
        store.setValue(u"custom_hotkey_keycode"_s, 49);
        store.setValue(u"not_a_preference"_s, 1);
        QCOMPARE(changed.count(), 2);
        QCOMPARE(store.value(u"openai_model"_s), QVariant(u"gpt-4.1-nano"_s));
        QCOMPARE(store.integer(Preferences::customHotkeyKeyCode), 49);
        QVERIFY(!store.value(u"not_a_preference"_s).isValid());
        QVERIFY(!store.value(u"openai_api_key"_s).isValid());
    }

    // Readable lines survive; each damaged file is kept beside the new one.
    void everyDamagedFileIsKept()
    {
        QByteArray first("[General]\nopenai_model=first\n[Gen");
        for (int i = 0; i < 512; ++i) {
            first.append(char((i * 7919) % 251));
        }
        const QByteArray second = QByteArrayLiteral("[General]\nopenai_model=second\n\x00\x01junk");
        {
            PreferenceStore store(writeFile(first));
            QVERIFY(store.readUseDoubleCopy());
            QCOMPARE(PromptStore::load(store), Prompt::defaults());
            store.setString(Preferences::apiKey, u"sk-after-corruption"_s);
        }
        const QByteArray text = readFile(m_path);
        QVERIFY2(text.contains("openai_api_key=sk-after-corruption") &&
                     text.contains("openai_model=first"),
                 text.constData());
        writeFile(second);
        const PreferenceStore store(m_path);
        QCOMPARE(store.string(Preferences::model), u"second"_s);
        QCOMPARE(readFile(m_path + u".unreadable"_s), first);
        QCOMPARE(readFile(m_path + u".unreadable.1"_s), second);
    }

    void damagedFileKeepsItsValues_data()
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

    // Found with the real `ravelo run`: the requests must go to the stored server with the
    // stored model and prompt, and the damaged file stays as it was. The runs at the same time
    // all find it: one sets it aside, the others use its repair, and every run is counted.
    void damagedFileKeepsItsValues()
    {
        QFETCH(QByteArray, damage);
        QFETCH(bool, appended);
        constexpr int runs = 20;
        ChatServer server;
        QByteArray damaged = validFile(server);
        const qsizetype address = damaged.indexOf("openai_base_url");
        QVERIFY(address > 0);
        damaged.insert(appended ? damaged.size() : address, damage);
        writeFile(damaged);
        std::vector<std::unique_ptr<QProcess>> processes;
        for (int i = 0; i < runs; ++i) {
            server.enqueue(ChatResponse::events({okAnswer, "[DONE]"}));
            processes.push_back(startRun());
        }
        for (const auto& process : processes) {
            QCOMPARE(exitCodeOf(*process), 0);
            QCOMPARE(process->readAllStandardOutput(), QByteArray("ok"));
        }
        QCOMPARE(server.requests().size(), runs);
        const QJsonObject body = QJsonDocument::fromJson(server.requests().last().body).object();
        QCOMPARE(body.value(u"model"_s).toString(), u"model-of-the-user"_s);
        QCOMPARE(server.sentMessage(runs - 1, 0), u"Answer in Latin."_s);
        QCOMPARE(PreferenceStore(m_path).integer(Preferences::totalPromptsUsed), runs);
        QCOMPARE(readFile(m_path + u".unreadable"_s), damaged);
        QVERIFY(!QFile::exists(m_path + u".unreadable.1"_s));

        // The new file holds the known keys, at the top level, and nothing else.
        const QString copy = m_configHome + u"/copy.conf"_s;
        QVERIFY(QFile::copy(m_path, copy));
        const QSettings settings(copy, QSettings::IniFormat);
        for (const QString& key : settings.allKeys()) {
            QVERIFY2(Preferences::find(key), qPrintable(key));
        }
        QCOMPARE(settings.value(u"openai_base_url"_s).toString(), server.baseUrl());
    }

    // A server address that cannot be read never turns into the default one: the runs fail and
    // send nothing. Any request to another host would pass through the proxy on loopback.
    void lostAddressSendsNothing()
    {
        ChatServer proxy;
        QByteArray damaged = validFile(proxy);
        damaged.insert(damaged.indexOf("openai_base_url"), QByteArray("\x00\x00", 2));
        writeFile(damaged);
        for (int run = 0; run < 2; ++run) {
            auto process = startRun(proxy.baseUrl());
            QCOMPARE(exitCodeOf(*process), 1);
            const QByteArray error = process->readAllStandardError();
            QVERIFY2(
                error.contains("Error: ") &&
                    error.contains("The server address was lost with a damaged preferences file"),
                error.constData());
            QCOMPARE(proxy.requests().size(), 0);
        }
        QVERIFY(!QFile::exists(m_path + u".unreadable.1"_s));
        QCOMPARE(PreferenceStore(m_path).string(Preferences::baseUrl),
                 PreferenceStore::lostBaseUrlNote(m_path + u".unreadable"_s));
    }

    // The application keeps its store open while `ravelo run` counts in other processes.
    void cachedCountIsNeverWrittenBack()
    {
        ChatServer server;
        writeFile(validFile(server));
        const auto runs = [&](int count) {
            for (int i = 0; i < count; ++i) {
                server.enqueue(ChatResponse::events({okAnswer, "[DONE]"}));
                auto process = startRun();
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
};

QTEST_GUILESS_MAIN(TestPreferenceStore)
#include "tst_preferencestore.moc"
