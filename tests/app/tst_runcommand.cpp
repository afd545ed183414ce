#include "ChatServer.h"
#include "ConnectProxy.h"
#include "RaveloProcess.h"
#include "SecretService.h"
#include "model/PreferenceStore.h"
#include "model/Prompt.h"

#include <QProcess>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>

namespace {

QString preferencesPath()
{
    return qEnvironmentVariable("XDG_CONFIG_HOME") + QStringLiteral("/Ravelo/Ravelo.conf");
}

QByteArray chunk(const QByteArray& text)
{
    return "data: {\"choices\":[{\"delta\":{\"content\":\"" + text + "\"}}]}\n\n";
}

ChatResponse says(const QByteArray& text)
{
    return ChatResponse::events({R"({"choices":[{"delta":{"content":")" + text + R"("}}]})"});
}

QString closedPort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return QString::number(probe.serverPort());
}

const QStringList runOne{QStringLiteral("run"), QStringLiteral("1")};

} // namespace

// `ravelo run` as users call it: the real binary, a preferences file and a loopback server.
class TestRunCommand : public QObject {
    Q_OBJECT

private:
    ChatServer* m_server = nullptr;
    std::unique_ptr<SecretService> m_secrets;

    static std::unique_ptr<PreferenceStore> preferences()
    {
        return std::make_unique<PreferenceStore>(preferencesPath());
    }

    static QByteArray preferencesText()
    {
        QFile file(preferencesPath());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
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

    void runs_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("base"); // null: the loopback server
        QTest::addColumn<QList<ChatResponse>>("responses");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QByteArray>("out");
        QTest::addColumn<bool>("outMayBeCut");
        QTest::addColumn<QString>("err"); // %1: the server's port
        QTest::addColumn<QString>("system");

        const QString key = QStringLiteral("sk-test");
        const QString first = Prompt::defaults().first().systemPrompt;
        const auto row = [&](const char* name, const QList<ChatResponse>& responses, int exitCode,
                             const QByteArray& out, const QString& err, bool cut = false) {
            QTest::newRow(name) << runOne << key << QString() << responses << exitCode << out << cut
                                << err << first;
        };
        row("stored prompt",
            {ChatResponse::events({R"({"choices":[{"delta":{"content":"Hello"}}]})",
                                   R"({"choices":[{"delta":{"content":" world"}}]})", "[DONE]"})},
            0, "Hello world", QString());
        // A server of one's own (llama-server, Ollama) often takes requests without a key.
        QTest::newRow("own server without a key")
            << runOne << QString() << QString() << QList{says("Hi")} << 0 << QByteArray("Hi")
            << false << QString() << first;
        QTest::newRow("custom instruction")
            << QStringList{QStringLiteral("run"), QStringLiteral("--custom"),
                           QStringLiteral("  Summarize.  ")}
            << key << QString() << QList{says("ok")} << 0 << QByteArray("ok") << false << QString()
            << QStringLiteral("Summarize.");

        const QByteArray body = R"({"error":{"message":"Incorrect API key provided."}})";
        row("401", {ChatResponse::error(401, body)}, 1, {},
            QStringLiteral("Error: HTTP 401: ") + QString::fromUtf8(body));
        QTest::newRow("no key for OpenAI")
            << runOne << QString() << QStringLiteral("") << QList<ChatResponse>() << 2
            << QByteArray() << false
            << QStringLiteral("⚠️ No API key set. Open Preferences (Ctrl+,) "
                              "to add your OpenAI API key.")
            << first;
        QTest::newRow("no such prompt")
            << QStringList{QStringLiteral("run"), QStringLiteral("7")} << key << QString()
            << QList<ChatResponse>() << 2 << QByteArray() << false
            << QStringLiteral("ravelo run: no prompt is numbered 7") << first;
        QTest::newRow("empty custom instruction")
            << QStringList{QStringLiteral("run"), QStringLiteral("--custom"), QStringLiteral("  ")}
            << key << QString() << QList<ChatResponse>() << 2 << QByteArray() << false
            << QStringLiteral("ravelo run: the custom instruction is empty") << first;

        // A transfer that ends before its body does, or arrives damaged, is never an answer.
        const QByteArray events = chunk("one") + chunk("two");
        const QByteArray chunkedHead = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
        const QByteArray firstChunk = QByteArray::number(events.size(), 16) + "\r\n" + events;
        const QString server = QStringLiteral("Error: The server 127.0.0.1:%1");
        const QString cut =
            server + QStringLiteral(" closed the connection before the answer was complete");
        const QString broken =
            server + QStringLiteral(" sent a damaged answer: its chunked framing is broken.");
        ChatResponse shorter = ChatResponse::split(events, events.size());
        shorter.framing = ChatResponse::Framing::ContentLength;
        shorter.declaredLength = events.size() + 500;
        row("body shorter than its Content-Length", {shorter}, 1, "onetwo",
            cut + QStringLiteral(" (%1 of %2 bytes).").arg(events.size()).arg(events.size() + 500),
            true);
        row("chunk size that is no number",
            {ChatResponse::rawBytes(chunkedHead + firstChunk + "\r\nzz\r\nhello\r\n0\r\n\r\n")}, 1,
            "onetwo", broken, true);
        row("chunk not ended by CRLF",
            {ChatResponse::rawBytes(chunkedHead + firstChunk + "XX5\r\nhello\r\n0\r\n\r\n")}, 1,
            "onetwo", broken, true);

        // The stream ends normally, but a run that brought no text says so.
        const QString noAnswer = QStringLiteral("Error: The server sent no answer.");
        row("only the end marker", {ChatResponse::events({"[DONE]"})}, 1, {}, noAnswer);
        ChatResponse html = ChatResponse::split("<html><body>Welcome</body></html>", 100);
        html.headers = {qMakePair(QByteArray("Content-Type"), QByteArray("text/html"))};
        row("text/html", {html}, 1, {}, noAnswer);

        // Qt's HTTP stack reads these two as proxy failures; here they are statuses like any.
        ChatResponse proxyStatus = ChatResponse::error(407, R"({"error":"nope"})");
        proxyStatus.headers.append(
            qMakePair(QByteArray("Proxy-Authenticate"), QByteArray("Basic")));
        row("407", {proxyStatus}, 1, {}, QStringLiteral("Error: HTTP 407: {\"error\":\"nope\"}"));

        // Server text drives no terminal: no retitling, no colours, no cursor moves.
        row("control characters in an error",
            {ChatResponse::error(400,
                                 "\x1b]2;owned\x07title \x1b[31mred\xc2\x9b\x7f\tend\r\nnext\x08")},
            1, {}, QStringLiteral("Error: HTTP 400: ]2;ownedtitle [31mred\tendnext"));
        row("control characters in an answer",
            {ChatResponse::events({"{\"choices\":[{\"delta\":{\"content\":"
                                   "\"\\u001b]2;owned\\u0007a\\r\\nb\\tc\\u009b\\u0000\"}}]}"})},
            0, "]2;owneda\nb\tc", QString());

        // Memory stays bounded: only the start of a huge error body is kept; a two-byte
        // character straddling the limit is left out whole.
        row("huge error body",
            {ChatResponse::error(500, QByteArray(64 * 1024 - 1, 'x') + "\xc3\xa9" +
                                          QByteArray(300000, 'y'))},
            1, {},
            QStringLiteral("Error: HTTP 500: ") + QString(64 * 1024 - 1, u'x') +
                QStringLiteral("… (300002 bytes more)"));
        ChatResponse overlong;
        overlong.headers.append(
            qMakePair(QByteArray("Content-Type"), QByteArray("text/event-stream")));
        overlong.piece(chunk("kept"));
        overlong.piece("data: {\"choices\":[{\"delta\":{\"content\":\"");
        for (int i = 0; i < 17; ++i) {
            overlong.piece(QByteArray(1024 * 1024, 'z'));
        }
        overlong.piece("\"}}]}\n\n" + chunk("never"));
        row("overlong event line", {overlong}, 1, "kept",
            server + QStringLiteral(" sent an event line longer than 16 MiB. "
                                    "The rest of the answer was not read."));
    }

    void runs()
    {
        QFETCH(QStringList, args);
        QFETCH(QString, key);
        QFETCH(QString, base);
        QFETCH(QList<ChatResponse>, responses);
        QFETCH(int, exitCode);
        QFETCH(QByteArray, out);
        QFETCH(bool, outMayBeCut);
        QFETCH(QString, err);
        QFETCH(QString, system);

        auto store = preferences();
        store->setString(Preferences::apiKey, key);
        if (!base.isNull()) {
            store->setString(Preferences::baseUrl, base);
        }
        for (const ChatResponse& response : responses) {
            m_server->enqueue(response);
        }
        QTemporaryDir traceFolder;
        const LibraryTrace trace(traceFolder.path());
        const RaveloResult result = runRavelo(args, trace.environment(), "Grüße\n");
        QCOMPARE(QString::fromUtf8(result.err).trimmed(), err.arg(m_server->port()));
        QCOMPARE(result.exitCode, exitCode);
        if (outMayBeCut) {
            QVERIFY2(out.startsWith(result.out), result.out.constData());
        } else {
            QCOMPARE(result.out, out);
        }
        // Running a prompt needs no display, nor any of Qt's graphical libraries.
        QVERIFY(!trace.qtLibraries().isEmpty());
        QVERIFY2(trace.graphicalLibraries().isEmpty(),
                 qPrintable(trace.graphicalLibraries().join(u' ')));
        QCOMPARE(m_server->requests().size(), responses.size());
        if (!responses.isEmpty()) {
            QCOMPARE(m_server->sentMessage(0, 0), system);
            QCOMPARE(m_server->sentMessage(0, 1), QStringLiteral("Grüße\n"));
            QCOMPARE(m_server->requests().first().hasHeader("Authorization"), !key.isEmpty());
        }
        QCOMPARE(preferences()->integer(Preferences::totalPromptsUsed), exitCode == 2 ? 0 : 1);
    }

    void usesTheKeyInTheKeyring_data()
    {
        QTest::addColumn<bool>("keyInFile");
        QTest::addColumn<bool>("bus");
        QTest::addColumn<QString>("sentKey");
        QTest::newRow("key in the keyring") << false << true << QStringLiteral("sk-in-keyring");
        QTest::newRow("key moved from the file") << true << true << QStringLiteral("sk-test");
        QTest::newRow("no session bus: the key stays in the file")
            << true << false << QStringLiteral("sk-test");
    }

    void usesTheKeyInTheKeyring()
    {
        QFETCH(bool, keyInFile);
        QFETCH(bool, bus);
        QFETCH(QString, sentKey);
        if (!m_secrets) {
            m_secrets = std::make_unique<SecretService>();
            QVERIFY2(m_secrets->start(), qPrintable(m_secrets->error()));
        }
        m_secrets->clearApiKey();
        if (!keyInFile) {
            QFile::remove(preferencesPath());
            preferences()->setString(Preferences::baseUrl, m_server->baseUrl());
            QVERIFY(m_secrets->storeApiKey(QStringLiteral("sk-in-keyring")));
        }
        m_server->enqueue(says("Hi"));
        QProcessEnvironment env = m_secrets->environment();
        if (!bus) {
            env.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
            env.remove(QStringLiteral("DISPLAY"));
        }
        const RaveloResult result = runRavelo(runOne, env, "text");
        QCOMPARE(result.err, QByteArray());
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(m_server->requests().first().header("Authorization"),
                 "Bearer " + sentKey.toUtf8());
        QCOMPARE(preferencesText().contains(Preferences::apiKey.name), !bus);
        if (bus) {
            QCOMPARE(m_secrets->apiKey(), sentKey);
        }
    }

    void writesEachFragmentAsItArrives()
    {
        ChatResponse response;
        response.piece(chunk("first"));
        response.piece(chunk("second") + "data: [DONE]\n\n", 1500);
        m_server->enqueue(response);
        QProcess process;
        process.start(raveloBinary(), {QStringLiteral("run"), QStringLiteral("2")});
        process.write("text");
        process.closeWriteChannel();
        QByteArray out;
        connect(&process, &QProcess::readyReadStandardOutput, this,
                [&] { out += process.readAllStandardOutput(); });
        QTRY_COMPARE_WITH_TIMEOUT(out, QByteArray("first"), 10000);
        QCOMPARE(m_server->completedResponses(), 0);
        QTRY_COMPARE_WITH_TIMEOUT(process.state(), QProcess::NotRunning, 10000);
        QCOMPARE(out, QByteArray("firstsecond"));
        QCOMPARE(m_server->sentMessage(0, 1), QStringLiteral("text"));
    }

    void throughTheUsersProxy_data()
    {
        QTest::addColumn<int>("mode"); // -1: no proxy listens
        QTest::addColumn<bool>("withCredentials");
        QTest::addColumn<QByteArray>("error");
        const int credentials = int(ConnectProxy::Mode::Credentials);
        QTest::newRow("tunnel") << int(ConnectProxy::Mode::Tunnel) << false << QByteArray();
        QTest::newRow("credentials in the proxy address") << credentials << true << QByteArray();
        QTest::newRow("refused") << int(ConnectProxy::Mode::Refuse) << false
                                 << QByteArray("refused the connection to api.ravelo.test:");
        QTest::newRow("credentials missing")
            << credentials << false
            << QByteArray("requires authentication. Put the user name and password");
        QTest::newRow("proxy not running") << -1 << false << QByteArray("refused the connection.");
    }

    // A user behind a proxy reaches the server through a tunnel the proxy opens; the key
    // travels inside it, never in what the proxy reads. The proxy resolves the server's
    // name, to this machine's loopback.
    void throughTheUsersProxy()
    {
        QFETCH(int, mode);
        QFETCH(bool, withCredentials);
        QFETCH(QByteArray, error);
        ConnectProxy proxy(static_cast<ConnectProxy::Mode>(qMax(mode, 0)));
        QUrl address(proxy.address());
        if (mode < 0) {
            address.setPort(closedPort().toInt());
        }
        if (!withCredentials) {
            address.setUserInfo(QString());
        }
        const QByteArray server = "api.ravelo.test:" + QByteArray::number(m_server->port());
        preferences()->setString(Preferences::baseUrl,
                                 QStringLiteral("http://%1/v1").arg(QString::fromLatin1(server)));
        m_server->enqueue(says("Hi"));
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("http_proxy"), address.toString());
        environment.remove(QStringLiteral("no_proxy"));
        const RaveloResult result = runRavelo(runOne, environment, "text");
        QCOMPARE(proxy.heads().isEmpty(), mode < 0);
        for (const QByteArray& head : proxy.heads()) {
            QVERIFY2(head.startsWith(QByteArray("CONNECT " + server + " HTTP/1.1\r\n")),
                     head.constData());
            QVERIFY(!head.contains("sk-test"));
        }
        if (error.isEmpty()) {
            QCOMPARE(result.err, QByteArray());
            QCOMPARE(result.out, QByteArray("Hi"));
            QCOMPARE(m_server->requests().first().header("Authorization"), "Bearer sk-test");
        } else {
            QVERIFY2(result.err.startsWith(QByteArray("Error: The proxy 127.0.0.1:" +
                                                      QByteArray::number(address.port()) + ' ')) &&
                         result.err.contains(error),
                     result.err.constData());
            QVERIFY(!result.err.contains(ConnectProxy::password));
            QCOMPARE(result.exitCode, 1);
            QVERIFY(m_server->requests().isEmpty());
        }
    }
};

QTEST_GUILESS_MAIN(TestRunCommand)
#include "tst_runcommand.moc"
