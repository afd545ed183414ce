#include "ChatServer.h"
#include "model/Translations.h"
#include "settings/ServerModels.h"

#include <QSignalSpy>
#include <QTcpServer>
#include <QTest>

// The model list of an OpenAI-compatible server, read from a real loopback server.
class TestServerModels : public QObject {
    Q_OBJECT

private:
    /// Loads from `base` and waits for the answer.
    static bool loadFrom(ServerModels& models, const QString& base, const QString& key = {})
    {
        models.setBaseUrl(base);
        models.setApiKey(key);
        models.load();
        return QTest::qWaitFor([&models] { return !models.isLoading(); }, 15000);
    }

private slots:
    void initTestCase()
    {
        // The counts read as in the application, with the English catalogue's plural forms.
        QCOMPARE(ravelo::installTranslations(*QCoreApplication::instance()), QStringLiteral("en"));
    }

    void listsTheServersModels_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QStringList>("ids");
        QTest::addColumn<QString>("status");
        QTest::newRow("a key goes as Bearer")
            << QStringLiteral("sk-local")
            << QStringList{QStringLiteral("qwen2.5-0.5b-instruct"), QStringLiteral("llama3.2")}
            << QStringLiteral(
                   "Connected to 127.0.0.1:%1: 2 models (qwen2.5-0.5b-instruct, llama3.2).");
        QTest::newRow("one model, no key: no Authorization")
            << QString() << QStringList{QStringLiteral("llama3.2")}
            << QStringLiteral("Connected to 127.0.0.1:%1: 1 model (llama3.2).");
    }

    void listsTheServersModels()
    {
        QFETCH(QString, key);
        QFETCH(QStringList, ids);
        QFETCH(QString, status);
        ChatServer server;
        server.setModels(ids);
        ServerModels models;
        QSignalSpy changed(&models, &ServerModels::modelsChanged);
        QVERIFY(loadFrom(models, server.baseUrl(), key));

        QCOMPARE(models.models(), ids);
        QCOMPARE(changed.size(), 1);
        QVERIFY(!models.hasFailed());
        QCOMPARE(models.status(), status.arg(server.port()));
        QCOMPARE(server.requests().size(), 1);
        const RecordedRequest& request = server.requests().first();
        QCOMPARE(request.path, QByteArray("/v1/models"));
        if (key.isEmpty()) {
            QVERIFY(!request.hasHeader("Authorization"));
        } else {
            QCOMPARE(request.header("Authorization"), "Bearer " + key.toUtf8());
        }
    }

    void failures_data()
    {
        QTest::addColumn<ChatResponse>("response");
        QTest::addColumn<QString>("status");

        QTest::newRow("refused key") << ChatResponse::error(401, "{\"error\":\n\"bad key\"}")
                                     << QStringLiteral("HTTP 401: {\"error\":\"bad key\"}");
        QTest::newRow("not a model list")
            << ChatResponse::error(200, R"({"models":[]})")
            << QStringLiteral("The server 127.0.0.1:%1 answered, but not with a list of models.");
        QTest::newRow("not JSON")
            << ChatResponse::error(200, "<html>llama.cpp</html>")
            << QStringLiteral("The server 127.0.0.1:%1 answered, but not with a list of models.");
        QTest::newRow("empty list") << ChatResponse::error(200, R"({"data":[]})")
                                    << QStringLiteral("Connected to 127.0.0.1:%1: no models.");
        QTest::newRow("too large")
            << ChatResponse::split(QByteArray(5 * 1024 * 1024, ' '), 64 * 1024)
            << QStringLiteral("The server 127.0.0.1:%1 sent an answer larger than 4 MiB. It was "
                              "not read.");
        ChatResponse cut = ChatResponse::error(200, R"({"data":[{"id":"a"})");
        cut.declaredLength = 100;
        cut.ending = ChatResponse::Ending::Abort;
        QTest::newRow("cut short")
            << cut
            << QStringLiteral("The server 127.0.0.1:%1 closed the connection before the answer "
                              "was complete (19 of 100 bytes).");
    }

    void failures()
    {
        QFETCH(ChatResponse, response);
        QFETCH(QString, status);
        ChatServer server;
        server.enqueue(response);
        ServerModels models;
        QVERIFY(loadFrom(models, server.baseUrl()));
        QCOMPARE(models.status(),
                 status.contains(QLatin1String("%1")) ? status.arg(server.port()) : status);
        QCOMPARE(models.models(), QStringList());
        QCOMPARE(models.hasFailed(), !status.startsWith(QLatin1String("Connected")));
    }

    void unreachableServers_data()
    {
        QTest::addColumn<QString>("base");
        QTest::addColumn<QString>("status");
        QTcpServer probe;
        QVERIFY(probe.listen(QHostAddress::LocalHost, 0));
        const quint16 port = probe.serverPort();
        probe.close();
        QTest::newRow("nothing listens")
            << QStringLiteral("http://127.0.0.1:%1/v1").arg(port)
            << QStringLiteral("Could not connect to 127.0.0.1:%1: the connection was refused. Is "
                              "the server running?")
                   .arg(port);
        QTest::newRow("not an address")
            << QStringLiteral("llama on my laptop") << QStringLiteral("Invalid API URL.");
    }

    void unreachableServers()
    {
        QFETCH(QString, base);
        QFETCH(QString, status);
        ServerModels models;
        QVERIFY(loadFrom(models, base));
        QCOMPARE(models.status(), status);
        QVERIFY(models.hasFailed());
    }

    // A list that is damaged in parts still offers what can be read of it.
    void parseModels_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QStringList>("ids");
        QTest::newRow("repeats, blanks and odd entries")
            << QByteArray(
                   R"({"data":[{"id":"a"},{"id":"a"},{"id":"  "},{"id":7},"b",{},{"id":"c"}]})")
            << QStringList{QStringLiteral("a"), QStringLiteral("c")};
        QTest::newRow("control characters")
            << QByteArray("{\"data\":[{\"id\":\"m\\u001b[31m\\nx\"}]}")
            << QStringList{QStringLiteral("m[31m x")};
    }

    void parseModels()
    {
        QFETCH(QByteArray, body);
        QFETCH(QStringList, ids);
        QCOMPARE(ServerModels::parseModels(body), std::optional<QStringList>(ids));
    }
};

QTEST_GUILESS_MAIN(TestServerModels)
#include "tst_servermodels.moc"
