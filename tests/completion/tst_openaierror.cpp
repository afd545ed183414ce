#include "completion/OpenAIError.h"

#include <QTest>

using namespace Qt::StringLiterals;

class TestOpenAIError : public QObject {
    Q_OBJECT

private slots:
    void messages_data()
    {
        QTest::addColumn<CompletionError>("error");
        QTest::addColumn<QString>("message");
        const auto http = [](qint64 status, const QString& body) {
            return CompletionError(OpenAIError::httpError(status, body));
        };
        QTest::newRow("http") << http(401, u"abc"_s) << u"HTTP 401: abc"_s;
        QTest::newRow("negative status") << http(-12, u"x"_s) << u"HTTP -12: x"_s;
        QTest::newRow("body kept whole")
            << http(429, u" {\"a\": 1}  "_s) << u"HTTP 429:  {\"a\": 1}  "_s;
        QTest::newRow("decoding") << CompletionError(OpenAIError::decodingError(u"bad"_s))
                                  << u"Decoding error: bad"_s;
        QTest::newRow("no key") << CompletionError(OpenAIError::noAPIKey())
                                << u"No OpenAI API key configured. Open Preferences to set one."_s;
        QTest::newRow("invalid URL")
            << CompletionError(OpenAIError::invalidURL()) << u"Invalid API URL."_s;
        QTest::newRow("control characters left out") << http(400, u"\x1b]2;owned\x07"
                                                                  "a\tb\u009bc\rd\x7f\x00"
                                                                  "e"_s)
                                                     << u"HTTP 400: ]2;owneda\tbcde"_s;
        QTest::newRow("line feeds and other text kept")
            << http(500, u"a\nb é \u00a0 😀"_s) << u"HTTP 500: a\nb é \u00a0 😀"_s;
        QTest::newRow("transport")
            << CompletionError(
                   TransportError{QNetworkReply::ConnectionRefusedError, u"Could not connect."_s})
            << u"Could not connect."_s;
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
