#include "completion/SseEvent.h"

#include <QTest>

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(SseEvent::Kind)

class TestSseEvent : public QObject {
    Q_OBJECT

private slots:
    void decodes_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<SseEvent::Kind>("kind");
        QTest::addColumn<QString>("fragment");
        using K = SseEvent::Kind;
        const auto chunk = [](const QByteArray& delta) -> QByteArray {
            return "data: {\"choices\":[{\"index\":0,\"delta\":" + delta + "}]}";
        };
        const auto skipped = [](const char* name, const QByteArray& line) {
            QTest::newRow(name) << line << K::Skip << QString();
        };
        QTest::newRow("content") << chunk(R"({"content":"Hello"})") << K::Fragment << u"Hello"_s;
        QTest::newRow("empty content is a fragment")
            << chunk(R"({"content":""})") << K::Fragment << u""_s;
        QTest::newRow("escapes and non-ASCII")
            << chunk("{\"content\":\"\\\"q\\\" \\\\ \\n \\u00e9 \\ud83d\\ude00 \xc3\xbc\"}")
            << K::Fragment << u"\"q\" \\ \n é 😀 ü"_s;
        QTest::newRow("two choices: the first counts")
            << QByteArray(
                   R"(data: {"choices":[{"delta":{"content":"one"}},{"delta":{"content":"two"}}]})")
            << K::Fragment << u"one"_s;
        QTest::newRow("blank before JSON is JSON whitespace")
            << QByteArray(R"(data:  {"choices":[{"delta":{"content":"x"}}]})") << K::Fragment
            << u"x"_s;
        QTest::newRow("invalid UTF-8 reads as a replacement character")
            << chunk("{\"content\":\"a\xff"
                     "b\"}")
            << K::Fragment << u"a\uFFFDb"_s;
        QTest::newRow("done") << QByteArray("data: [DONE]") << K::Done << QString();
        skipped("null content", chunk(R"({"content":null})"));
        skipped("role only", chunk(R"({"role":"assistant"})"));
        skipped("number content", chunk(R"({"content":5})"));
        skipped("delta not an object", chunk(R"("text")"));
        skipped("a choice that is not an object",
                R"(data: {"choices":[{"delta":{"content":"one"}},1]})");
        skipped("no choices", R"(data: {"choices":[]})");
        skipped("choices not a list", R"(data: {"choices":{"delta":{"content":"x"}}})");
        skipped("error object", R"(data: {"error":{"message":"overloaded"}})");
        skipped("top-level array", R"(data: [{"choices":[{"delta":{"content":"x"}}]}])");
        skipped("not JSON", "data: {\"choices\":");
        skipped("no blank after the colon", R"(data:{"choices":[{"delta":{"content":"x"}}]})");
        skipped("prefix is case-sensitive", R"(Data: {"choices":[{"delta":{"content":"x"}}]})");
        skipped("done without the blank", "data:[DONE]");
        skipped("done with a trailing blank", "data: [DONE] ");
        skipped("comment", ": OPENROUTER PROCESSING");
        skipped("event field", "event: error");
        skipped("empty line", QByteArray());
    }

    void decodes()
    {
        QFETCH(QByteArray, line);
        QFETCH(SseEvent::Kind, kind);
        QFETCH(QString, fragment);
        const SseEvent event = SseEvent::decode(line);
        QCOMPARE(event.kind, kind);
        QCOMPARE(event.fragment, fragment);
        QCOMPARE(event.fragment.isNull(), fragment.isNull());
    }
};

QTEST_GUILESS_MAIN(TestSseEvent)
#include "tst_sseevent.moc"
