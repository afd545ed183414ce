#include "ChatServer.h"
#include "ConnectProxy.h"
#include "RaveloProcess.h"
#include "SecretService.h"
#include "model/PreferenceStore.h"
#include "model/Prompt.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSignalSpy>
#include <QSslCertificate>
#include <QSslKey>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTemporaryDir>
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
    std::unique_ptr<SecretService> m_secrets;

    QByteArray preferencesText() const
    {
        QFile file(preferencesPath());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    std::unique_ptr<PreferenceStore> preferences()
    {
        return std::make_unique<PreferenceStore>(preferencesPath());
    }

    struct Result {
        int exitCode = -1;
        QByteArray out;
        QByteArray err;
    };

    Result run(const QStringList& args, const QByteArray& input,
               const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment())
    {
        QProcess process;
        process.setProcessEnvironment(environment);
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
        QTemporaryDir traceFolder;
        const LibraryTrace trace(traceFolder.path());
        const Result result =
            run({QStringLiteral("run"), QStringLiteral("1")}, "Hallo Welt", trace.environment());
        QCOMPARE(result.err, QByteArray());
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, QByteArray("Hello world"));
        // Running a prompt needs no display, nor any of Qt's graphical libraries.
        QVERIFY2(trace.qtLibraries().contains(QStringLiteral("Qt6Network")),
                 qPrintable(trace.qtLibraries().join(u' ')));
        QVERIFY2(trace.graphicalLibraries().isEmpty(),
                 qPrintable(trace.graphicalLibraries().join(u' ')));

        QCOMPARE(m_server->requests().size(), 1);
        QCOMPARE(m_server->sentMessage(0, 0), Prompt::defaults().first().systemPrompt);
        QCOMPARE(m_server->sentMessage(0, 1), QStringLiteral("Hallo Welt"));
        QCOMPARE(preferences()->integer(Preferences::totalPromptsUsed), 1);
    }

    // A server of one's own (llama-server, Ollama) often takes requests without a key.
    void baseAddressWithoutAKeySendsNoAuthorization()
    {
        preferences()->setString(Preferences::apiKey, QString());
        m_server->enqueue(ChatResponse::events({R"({"choices":[{"delta":{"content":"Hi"}}]})"}));
        const Result result = run({QStringLiteral("run"), QStringLiteral("1")}, "text");
        QCOMPARE(result.err, QByteArray());
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(result.out, QByteArray("Hi"));
        QCOMPARE(m_server->requests().size(), 1);
        QVERIFY(!m_server->requests().first().hasHeader("Authorization"));
    }

    void usesTheKeyInTheKeyring_data()
    {
        QTest::addColumn<bool>("keyInFile");
        QTest::addColumn<QString>("sentKey");
        QTest::newRow("key in the keyring") << false << QStringLiteral("sk-in-keyring");
        QTest::newRow("key moved from the file") << true << QStringLiteral("sk-test");
    }

    void usesTheKeyInTheKeyring()
    {
        QFETCH(bool, keyInFile);
        QFETCH(QString, sentKey);
        if (!m_secrets) {
            m_secrets = std::make_unique<SecretService>();
            QVERIFY2(m_secrets->start(), qPrintable(m_secrets->error()));
        }
        const QString service = QString::fromLatin1(PreferenceStore::keyringService);
        const QString key = QString::fromLatin1(Preferences::apiKey.name);
        m_secrets->clear(service, key);
        if (!keyInFile) {
            QFile::remove(preferencesPath());
            preferences()->setString(Preferences::baseUrl, m_server->baseUrl());
            QVERIFY(m_secrets->store(service, key, QStringLiteral("sk-in-keyring")));
        }
        m_server->enqueue(ChatResponse::events({R"({"choices":[{"delta":{"content":"Hi"}}]})"}));
        const Result result =
            run({QStringLiteral("run"), QStringLiteral("1")}, "text", m_secrets->environment());
        QCOMPARE(result.err, QByteArray());
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(m_server->requests().size(), 1);
        QCOMPARE(m_server->requests().first().header("Authorization"),
                 "Bearer " + sentKey.toUtf8());
        QCOMPARE(m_secrets->lookup(service, key), sentKey);
        QVERIFY2(!preferencesText().contains(Preferences::apiKey.name),
                 preferencesText().constData());
    }

    void keyStaysInTheFileWithoutASessionBus()
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.remove(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"));
        environment.remove(QStringLiteral("DISPLAY"));
        m_server->enqueue(ChatResponse::events({R"({"choices":[{"delta":{"content":"Hi"}}]})"}));
        const Result result =
            run({QStringLiteral("run"), QStringLiteral("1")}, "text", environment);
        QCOMPARE(result.err, QByteArray());
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(m_server->requests().first().header("Authorization"),
                 QByteArray("Bearer sk-test"));
        QVERIFY(preferencesText().contains("sk-test"));
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
        QCOMPARE(m_server->sentMessage(0, 0), QStringLiteral("Summarize."));
        QCOMPARE(m_server->sentMessage(0, 1), QStringLiteral("Grüße\n"));
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
        QTest::newRow("no key for OpenAI")
            << runOne << QString() << QStringLiteral("") << 0 << QByteArray() << 2
            << QStringLiteral("⚠️ No API key set. Open Preferences (Ctrl+,) "
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
        if (!storedBase.isNull()) { // else the loopback server
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

    // A transfer that ends before its body does, or arrives damaged, is never an answer.
    void cutShortOrDamaged_data()
    {
        QTest::addColumn<ChatResponse>("response");
        QTest::addColumn<QString>("message");

        const QByteArray events = chunk("one") + chunk("two");
        const QByteArray chunkedHead = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
        const QByteArray firstChunk = QByteArray::number(events.size(), 16) + "\r\n" + events;
        const QString cut = QStringLiteral(" closed the connection before the answer was complete");

        ChatResponse shorter = ChatResponse::split(events, events.size());
        shorter.framing = ChatResponse::Framing::ContentLength;
        shorter.declaredLength = events.size() + 500;
        QTest::newRow("body shorter than its Content-Length")
            << shorter
            << cut +
                   QStringLiteral(" (%1 of %2 bytes).").arg(events.size()).arg(events.size() + 500);
        QTest::newRow("chunked, cut between chunks")
            << ChatResponse::rawBytes(chunkedHead + firstChunk + "\r\n") << cut + QLatin1Char('.');
        QTest::newRow("chunked, cut inside a chunk")
            << ChatResponse::rawBytes(chunkedHead + "400\r\n" + events) << cut + QLatin1Char('.');
        ChatResponse reset = ChatResponse::split(events, events.size());
        reset.piece({}, 100);
        reset.ending = ChatResponse::Ending::Reset;
        QTest::newRow("connection reset") << reset << cut + QLatin1Char('.');
        QTest::newRow("chunk size that is no number")
            << ChatResponse::rawBytes(chunkedHead + firstChunk + "\r\nzz\r\nhello\r\n0\r\n\r\n")
            << QStringLiteral(" sent a damaged answer: its chunked framing is broken.");
        QTest::newRow("chunk not ended by CRLF")
            << ChatResponse::rawBytes(chunkedHead + firstChunk + "XX5\r\nhello\r\n0\r\n\r\n")
            << QStringLiteral(" sent a damaged answer: its chunked framing is broken.");
        QTest::newRow("Content-Length that is no number")
            << ChatResponse::rawBytes("HTTP/1.1 200 OK\r\nContent-Length: 12x\r\n\r\n" + events)
            << QStringLiteral(" sent a damaged answer: its Content-Length cannot be read.");
        QTest::newRow("compressed although not asked for")
            << ChatResponse::rawBytes("HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\n"
                                      "Content-Length: 20\r\n\r\n\x1f\x8b" +
                                      QByteArray(18, 'x'))
            << QStringLiteral(" sent a compressed answer (gzip) although an uncompressed one "
                              "was asked for.");
    }

    void cutShortOrDamaged()
    {
        QFETCH(ChatResponse, response);
        QFETCH(QString, message);
        m_server->enqueue(response);
        const Result result = run({QStringLiteral("run"), QStringLiteral("1")}, "text");
        QCOMPARE(result.exitCode, 1);
        QCOMPARE(QString::fromUtf8(result.err).trimmed(),
                 QStringLiteral("Error: The server 127.0.0.1:%1").arg(m_server->port()) + message);
        QVERIFY2(QByteArray("onetwo").startsWith(result.out), result.out);
    }

    // The stream ends normally, but a run that brought no text says so.
    void noAnswer_data()
    {
        QTest::addColumn<ChatResponse>("response");
        QTest::addColumn<QByteArray>("out");

        QTest::newRow("only the end marker") << ChatResponse::events({"[DONE]"}) << QByteArray();
        QTest::newRow("events without text")
            << ChatResponse::events({R"({"choices":[{"delta":{"role":"assistant"}}]})",
                                     R"({"choices":[{"delta":{"content":""}}]})",
                                     R"({"choices":[{"delta":{"content":null}}]})", "[DONE]"})
            << QByteArray();
        QTest::newRow("empty 200")
            << ChatResponse::rawBytes("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n")
            << QByteArray();
        ChatResponse html = ChatResponse::split("<html><body>Welcome</body></html>", 100);
        html.headers = {qMakePair(QByteArray("Content-Type"), QByteArray("text/html"))};
        QTest::newRow("text/html") << html << QByteArray();
    }

    void noAnswer()
    {
        QFETCH(ChatResponse, response);
        m_server->enqueue(response);
        const Result result = run({QStringLiteral("run"), QStringLiteral("1")}, "text");
        QCOMPARE(result.out, QByteArray());
        QCOMPARE(result.err, QByteArray("Error: The server sent no answer.\n"));
        QCOMPARE(result.exitCode, 1);
    }

    // Qt's HTTP stack reads these two as proxy failures; here they are statuses like any.
    void proxyStatusesAreStatuses_data()
    {
        QTest::addColumn<int>("status");
        QTest::newRow("305") << 305;
        QTest::newRow("407") << 407;
    }

    void proxyStatusesAreStatuses()
    {
        QFETCH(int, status);
        ChatResponse response = ChatResponse::error(status, R"({"error":"nope"})");
        response.headers.append(qMakePair(QByteArray("Proxy-Authenticate"), QByteArray("Basic")));
        response.headers.append(
            qMakePair(QByteArray("Location"), QByteArray("http://127.0.0.1:1/")));
        m_server->enqueue(response);
        const Result result = run({QStringLiteral("run"), QStringLiteral("1")}, "text");
        QCOMPARE(result.exitCode, 1);
        QCOMPARE(result.err,
                 "Error: HTTP " + QByteArray::number(status) + ": {\"error\":\"nope\"}\n");
    }

    void throughTheUsersProxy_data()
    {
        QTest::addColumn<QString>("host");
        QTest::addColumn<int>("mode");
        QTest::addColumn<bool>("withCredentials");
        QTest::addColumn<QString>("noProxy");
        QTest::addColumn<QByteArray>("error");
        const QString server = QStringLiteral("api.ravelo.test");
        QTest::newRow("tunnel") << server << int(ConnectProxy::Mode::Tunnel) << false << QString()
                                << QByteArray();
        QTest::newRow("other hosts in no_proxy")
            << server << int(ConnectProxy::Mode::Tunnel) << false
            << QStringLiteral("localhost,example.com,ravelo.test.example") << QByteArray();
        QTest::newRow("credentials in the proxy address")
            << server << int(ConnectProxy::Mode::Credentials) << true << QString() << QByteArray();
        QTest::newRow("refused") << server << int(ConnectProxy::Mode::Refuse) << false << QString()
                                 << QByteArray("refused the connection to api.ravelo.test:");
        QTest::newRow("credentials missing")
            << server << int(ConnectProxy::Mode::Credentials) << false << QString()
            << QByteArray("requires authentication. Put the user name and password");
        QTest::newRow("loopback address")
            << QStringLiteral("127.0.0.1") << int(ConnectProxy::Mode::Refuse) << false << QString()
            << QByteArray();
        QTest::newRow("localhost") << QStringLiteral("localhost") << int(ConnectProxy::Mode::Refuse)
                                   << false << QString() << QByteArray();
    }

    // A user behind a proxy reaches the server through a tunnel the proxy opens; the key
    // travels inside it, never in what the proxy reads. The proxy resolves the server's
    // name, to this machine's loopback. A server on the loopback is always reached directly:
    // the proxy's loopback is another machine's.
    void throughTheUsersProxy()
    {
        QFETCH(QString, host);
        QFETCH(int, mode);
        QFETCH(bool, withCredentials);
        QFETCH(QString, noProxy);
        QFETCH(QByteArray, error);
        ConnectProxy proxy(static_cast<ConnectProxy::Mode>(mode));
        QUrl address(proxy.address());
        if (!withCredentials) {
            address.setUserInfo(QString());
        }
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("http_proxy"), address.toString());
        environment.insert(QStringLiteral("no_proxy"), noProxy);
        preferences()->setString(Preferences::baseUrl,
                                 QStringLiteral("http://%1:%2/v1").arg(host).arg(m_server->port()));
        m_server->enqueue(ChatResponse::events({R"({"choices":[{"delta":{"content":"Hi"}}]})"}));

        const Result result =
            run({QStringLiteral("run"), QStringLiteral("1")}, "text", environment);
        QCOMPARE(proxy.heads().isEmpty(), !host.contains(QLatin1String("ravelo")));
        for (const QByteArray& head : proxy.heads()) {
            QVERIFY2(
                head.startsWith(QByteArray("CONNECT api.ravelo.test:" +
                                           QByteArray::number(m_server->port()) + " HTTP/1.1\r\n")),
                head.constData());
            QVERIFY(!head.contains("sk-test"));
        }
        if (error.isEmpty()) {
            QCOMPARE(result.err, QByteArray());
            QCOMPARE(result.out, QByteArray("Hi"));
            QCOMPARE(result.exitCode, 0);
            QCOMPARE(m_server->requests().size(), 1);
            QCOMPARE(m_server->requests().first().header("Authorization"), "Bearer sk-test");
        } else {
            QVERIFY2(result.err.startsWith(QByteArray(
                         "Error: The proxy 127.0.0.1:" + QByteArray::number(proxy.port()) + ' ')) &&
                         result.err.contains(error),
                     result.err.constData());
            QVERIFY(!result.err.contains(ConnectProxy::password));
            QCOMPARE(result.exitCode, 1);
            QVERIFY(m_server->requests().isEmpty());
        }
    }

    void proxyThatIsNotRunning()
    {
        QTcpServer probe;
        QVERIFY(probe.listen(QHostAddress::LocalHost, 0));
        const QByteArray port = QByteArray::number(probe.serverPort());
        probe.close();
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("http_proxy"),
                           QStringLiteral("http://127.0.0.1:") + QString::fromLatin1(port));
        environment.remove(QStringLiteral("no_proxy"));
        preferences()->setString(Preferences::baseUrl, QStringLiteral("http://api.ravelo.test/v1"));
        const Result result =
            run({QStringLiteral("run"), QStringLiteral("1")}, "text", environment);
        QCOMPARE(result.exitCode, 1);
        QVERIFY2(result.err.startsWith(
                     QByteArray("Error: The proxy 127.0.0.1:" + port + " refused the connection.")),
                 result.err.constData());
        QVERIFY(m_server->requests().isEmpty());
    }

    // https takes https_proxy, not http_proxy; TLS runs through the tunnel with the server
    // itself, whose certificate this machine does not trust.
    void httpsTakesTheHttpsProxy()
    {
        const auto pem = [](const char* name) {
            QFile file(qEnvironmentVariable("RAVELO_FIXTURES_DIR") + QStringLiteral("/tls/") +
                       QLatin1String(name));
            return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
        };
        m_server->encrypt(QSslCertificate(pem("server.pem")), QSslKey(pem("server.key"), QSsl::Ec));
        ConnectProxy proxy;
        QTcpServer closed;
        QVERIFY(closed.listen(QHostAddress::LocalHost, 0));
        const QString closedPort = QString::number(closed.serverPort());
        closed.close();
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("https_proxy"), proxy.address());
        environment.insert(QStringLiteral("http_proxy"),
                           QStringLiteral("http://127.0.0.1:") + closedPort);
        environment.remove(QStringLiteral("no_proxy"));
        const QByteArray server = "api.ravelo.test:" + QByteArray::number(m_server->port());
        preferences()->setString(Preferences::baseUrl,
                                 QStringLiteral("https://%1/v1").arg(QString::fromLatin1(server)));

        const Result result =
            run({QStringLiteral("run"), QStringLiteral("1")}, "text", environment);
        QCOMPARE(proxy.heads().size(), 1);
        QVERIFY(proxy.heads().first().startsWith(QByteArray("CONNECT " + server + ' ')));
        QVERIFY2(result.err.startsWith(QByteArray("Error: A secure connection to " + server +
                                                  " could not be established (TLS): ")),
                 result.err.constData());
        QCOMPARE(result.exitCode, 1);
        QVERIFY(m_server->requests().isEmpty());
    }

    // Server text drives no terminal: no retitling, no colours, no cursor moves.
    void serverTextCarriesNoControlCharacters()
    {
        m_server->enqueue(ChatResponse::error(
            400, "\x1b]2;owned\x07title \x1b[31mred\xc2\x9b\x7f\tend\r\nnext\x08"));
        Result result = run({QStringLiteral("run"), QStringLiteral("1")}, "text");
        QCOMPARE(result.err, QByteArray("Error: HTTP 400: ]2;ownedtitle [31mred\tendnext\n"));

        m_server->enqueue(
            ChatResponse::events({"{\"choices\":[{\"delta\":{\"content\":"
                                  "\"\\u001b]2;owned\\u0007a\\r\\nb\\tc\\u009b\\u0000\"}}]}"}));
        result = run({QStringLiteral("run"), QStringLiteral("1")}, "text");
        QCOMPARE(result.out, QByteArray("]2;owneda\nb\tc"));
        QCOMPARE(result.exitCode, 0);
    }

    // Memory stays bounded: only the start of a huge error body is kept and shown.
    void hugeErrorBodyIsCut()
    {
        // A two-byte character straddles the limit: it is left out whole.
        const QByteArray body =
            QByteArray(64 * 1024 - 1, 'x') + "\xc3\xa9" + QByteArray(300000, 'y');
        m_server->enqueue(ChatResponse::error(500, body));
        const Result result = run({QStringLiteral("run"), QStringLiteral("1")}, "text");
        QCOMPARE(result.exitCode, 1);
        QCOMPARE(QString::fromUtf8(result.err), QStringLiteral("Error: HTTP 500: ") +
                                                    QString(64 * 1024 - 1, QLatin1Char('x')) +
                                                    QStringLiteral("… (300002 bytes more)\n"));
    }

    void overlongEventLineIsRefused()
    {
        ChatResponse response;
        response.headers.append(
            qMakePair(QByteArray("Content-Type"), QByteArray("text/event-stream")));
        response.piece(chunk("kept"));
        response.piece("data: {\"choices\":[{\"delta\":{\"content\":\"");
        const QByteArray mebibyte(1024 * 1024, 'z');
        for (int i = 0; i < 17; ++i) {
            response.piece(mebibyte);
        }
        response.piece("\"}}]}\n\n" + chunk("never"));
        m_server->enqueue(response);
        const Result result = run({QStringLiteral("run"), QStringLiteral("1")}, "text");
        QCOMPARE(result.exitCode, 1);
        QCOMPARE(result.out, QByteArray("kept"));
        QCOMPARE(
            QString::fromUtf8(result.err).trimmed(),
            QStringLiteral("Error: The server 127.0.0.1:%1 sent an event line longer than 16 MiB. "
                           "The rest of the answer was not read.")
                .arg(m_server->port()));
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
