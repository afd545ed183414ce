#include "ChatServer.h"
#include "model/PreferenceStore.h"
#include "model/Prompt.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTest>

namespace {

const QString preferencesPath()
{
    return qEnvironmentVariable("XDG_CONFIG_HOME") + QStringLiteral("/Ravelo/Ravelo.conf");
}

QByteArray chunk(const QByteArray& text)
{
    return "data: {\"choices\":[{\"delta\":{\"content\":\"" + text + "\"}}]}\n\n";
}

} // namespace

// `ravelo run` as users call it: the real binary, a preferences file and a loopback server.
class TestRunCommand : public QObject {
    Q_OBJECT

private:
    ChatServer* m_server = nullptr;

    std::unique_ptr<PreferenceStore> preferences()
    {
        return std::make_unique<PreferenceStore>(preferencesPath());
    }

    struct Result {
        int exitCode = -1;
        QByteArray out;
        QByteArray err;
    };

    Result run(const QStringList& args, const QByteArray& input)
    {
        QProcess process;
        process.start(qEnvironmentVariable("RAVELO_BINARY"), args);
        process.write(input);
        process.closeWriteChannel();
        // The server lives in this process: keep its event loop turning while waiting.
        if (!QTest::qWaitFor([&process] { return process.state() == QProcess::NotRunning; },
                             20000)) {
            process.kill();
            process.waitForFinished();
        }
        return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
                process.readAllStandardOutput(), process.readAllStandardError()};
    }

private slots:
    void init()
    {
        QFile::remove(preferencesPath());
        m_server = new ChatServer(this);
        auto store = preferences();
        store->setString(Preferences::apiKey, QStringLiteral("sk-test"));
        store->setString(Preferences::baseUrl, m_server->baseUrl());
    }

    void cleanup()
    {
        delete m_server;
        m_server = nullptr;
    }

    void streamsTheAnswerOfAStoredPrompt()
    {
        m_server->enqueue(
            ChatResponse::events({R"({"choices":[{"delta":{"content":"Hello"}}]})",
                                  R"({"choices":[{"delta":{"content":" world"}}]})", "[DONE]"}));
        const Result result = run({QStringLiteral("run"), QStringLiteral("1")}, "Hallo Welt");
        QCOMPARE(result.err, QByteArray());
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, QByteArray("Hello world"));

        QCOMPARE(m_server->requests().size(), 1);
        const QJsonArray messages = QJsonDocument::fromJson(m_server->requests().first().body)
                                        .object()
                                        .value(QLatin1String("messages"))
                                        .toArray();
        QCOMPARE(messages.at(0).toObject().value(QLatin1String("content")).toString(),
                 Prompt::defaults().first().systemPrompt);
        QCOMPARE(messages.at(1).toObject().value(QLatin1String("content")).toString(),
                 QStringLiteral("Hallo Welt"));
        QCOMPARE(preferences()->integer(Preferences::totalPromptsUsed), 1);
    }

    void writesEachFragmentAsItArrives()
    {
        ChatResponse response;
        response.piece(chunk("first"));
        response.piece(chunk("second") + "data: [DONE]\n\n", 1500);
        m_server->enqueue(response);

        QProcess process;
        process.start(qEnvironmentVariable("RAVELO_BINARY"),
                      {QStringLiteral("run"), QStringLiteral("2")});
        process.write("text");
        process.closeWriteChannel();
        QByteArray out;
        connect(&process, &QProcess::readyReadStandardOutput, this,
                [&] { out += process.readAllStandardOutput(); });
        QTRY_COMPARE_WITH_TIMEOUT(out, QByteArray("first"), 10000);
        QCOMPARE(m_server->completedResponses(), 0);
        QTRY_COMPARE_WITH_TIMEOUT(process.state(), QProcess::NotRunning, 10000);
        QCOMPARE(out, QByteArray("firstsecond"));
        QCOMPARE(process.exitCode(), 0);
    }

    void customInstruction()
    {
        m_server->enqueue(ChatResponse::events({R"({"choices":[{"delta":{"content":"ok"}}]})"}));
        const Result result = run(
            {QStringLiteral("run"), QStringLiteral("--custom"), QStringLiteral("  Summarize.  ")},
            "Grüße\n");
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, QByteArray("ok"));
        const QJsonArray messages = QJsonDocument::fromJson(m_server->requests().first().body)
                                        .object()
                                        .value(QLatin1String("messages"))
                                        .toArray();
        QCOMPARE(messages.at(0).toObject().value(QLatin1String("content")).toString(),
                 QStringLiteral("Summarize."));
        QCOMPARE(messages.at(1).toObject().value(QLatin1String("content")).toString(),
                 QStringLiteral("Grüße\n"));
    }

    void failures_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("storedKey");
        QTest::addColumn<QString>("storedBase");
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("message");
        QTest::addColumn<int>("requests");

        const QStringList runOne{QStringLiteral("run"), QStringLiteral("1")};
        const QByteArray body = R"({"error":{"message":"Incorrect API key provided."}})";
        QTest::newRow("401") << runOne << QStringLiteral("sk-test") << QString() << 401 << body << 1
                             << QStringLiteral("Error: HTTP 401: ") + QString::fromUtf8(body) << 1;
        QTest::newRow("no key") << runOne << QString() << QString() << 0 << QByteArray() << 2
                                << QStringLiteral(
                                       "⚠️ No API key set. Open Preferences (Ctrl+,) "
                                       "to add your OpenAI API key.")
                                << 0;
        QTest::newRow("no such prompt")
            << QStringList{QStringLiteral("run"), QStringLiteral("7")} << QStringLiteral("sk-test")
            << QString() << 0 << QByteArray() << 2
            << QStringLiteral("ravelo run: no prompt is numbered 7") << 0;
        QTest::newRow("empty custom instruction")
            << QStringList{QStringLiteral("run"), QStringLiteral("--custom"), QStringLiteral("  ")}
            << QStringLiteral("sk-test") << QString() << 0 << QByteArray() << 2
            << QStringLiteral("ravelo run: the custom instruction is empty") << 0;
        QTest::newRow("invalid endpoint")
            << runOne << QStringLiteral("sk-test") << QStringLiteral("ftp://example.com") << 0
            << QByteArray() << 1 << QStringLiteral("Error: Invalid API URL.") << 0;
    }

    void failures()
    {
        QFETCH(QStringList, args);
        QFETCH(QString, storedKey);
        QFETCH(QString, storedBase);
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(int, exitCode);
        QFETCH(QString, message);
        QFETCH(int, requests);

        auto store = preferences();
        store->setString(Preferences::apiKey, storedKey);
        if (!storedBase.isEmpty()) {
            store->setString(Preferences::baseUrl, storedBase);
        }
        if (status != 0) {
            m_server->enqueue(ChatResponse::error(status, body));
        }
        const Result result = run(args, "text");
        QCOMPARE(result.exitCode, exitCode);
        QCOMPARE(QString::fromUtf8(result.err).trimmed(), message);
        QCOMPARE(result.out, QByteArray());
        QCOMPARE(m_server->requests().size(), requests);
        QCOMPARE(preferences()->integer(Preferences::totalPromptsUsed), exitCode == 2 ? 0 : 1);
    }

    void helpAndUnknownCommands()
    {
        const Result help = run({QStringLiteral("--help")}, {});
        QCOMPARE(help.exitCode, 0);
        QVERIFY(help.out.contains("ravelo run N"));
        QVERIFY(help.out.contains("ravelo trigger"));
        const Result unknown = run({QStringLiteral("frobnicate")}, {});
        QCOMPARE(unknown.exitCode, 2);
        QVERIFY(unknown.err.contains("frobnicate"));
    }
};

QTEST_GUILESS_MAIN(TestRunCommand)
#include "tst_runcommand.moc"
