#include "completion/OpenAIError.h"

#include <QTest>

class TestOpenAIError : public QObject {
    Q_OBJECT

private slots:
    void messages_data()
    {
        QTest::addColumn<CompletionError>("error");
        QTest::addColumn<QString>("message");

        QTest::newRow("http") << CompletionError(OpenAIError::httpError(401, QStringLiteral("abc")))
                              << QStringLiteral("HTTP 401: abc");
        QTest::newRow("http, empty body")
            << CompletionError(OpenAIError::httpError(500, {})) << QStringLiteral("HTTP 500: ");
        QTest::newRow("status 0") << CompletionError(OpenAIError::httpError(
                                         0, QStringLiteral("Not an HTTP response")))
                                  << QStringLiteral("HTTP 0: Not an HTTP response");
        QTest::newRow("negative status")
            << CompletionError(OpenAIError::httpError(-12, QStringLiteral("x")))
            << QStringLiteral("HTTP -12: x");
        QTest::newRow("body kept whole")
            << CompletionError(OpenAIError::httpError(429, QStringLiteral(" {\"a\": 1}  ")))
            << QStringLiteral("HTTP 429:  {\"a\": 1}  ");
        QTest::newRow("decoding") << CompletionError(
                                         OpenAIError::decodingError(QStringLiteral("bad")))
                                  << QStringLiteral("Decoding error: bad");
        QTest::newRow("no key")
            << CompletionError(OpenAIError::noAPIKey())
            << QStringLiteral("No OpenAI API key configured. Open Preferences to set one.");
        QTest::newRow("invalid URL")
            << CompletionError(OpenAIError::invalidURL()) << QStringLiteral("Invalid API URL.");
        QTest::newRow("control characters left out")
            << CompletionError(OpenAIError::httpError(400, QStringLiteral("\x1b]2;owned\x07"
                                                                          "a\tb\u009bc\rd\x7f\x00"
                                                                          "e")))
            << QStringLiteral("HTTP 400: ]2;owneda\tbcde");
        QTest::newRow("line feeds and other text kept")
            << CompletionError(OpenAIError::httpError(500, QStringLiteral("a\nb é \u00a0 😀")))
            << QStringLiteral("HTTP 500: a\nb é \u00a0 😀");
        QTest::newRow("transport")
            << CompletionError(TransportError{QNetworkReply::ConnectionRefusedError,
                                              QStringLiteral("Could not connect.")})
            << QStringLiteral("Could not connect.");
    }

    void messages()
    {
        QFETCH(CompletionError, error);
        QFETCH(QString, message);
        QCOMPARE(error.description(), message);
    }
};

QTEST_GUILESS_MAIN(TestOpenAIError)
#include "tst_openaierror.moc"
