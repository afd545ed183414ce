#include "completion/SseEvent.h"

#include <QTest>

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
        QTest::newRow("content") << chunk(R"({"content":"Hello"})") << K::Fragment
                                 << QStringLiteral("Hello");
        QTest::newRow("empty content is a fragment")
            << chunk(R"({"content":""})") << K::Fragment << QString();
        QTest::newRow("null content") << chunk(R"({"content":null})") << K::Skip << QString();
        QTest::newRow("role only") << chunk(R"({"role":"assistant"})") << K::Skip << QString();
        QTest::newRow("number content") << chunk(R"({"content":5})") << K::Skip << QString();
        QTest::newRow("delta not an object") << chunk(R"("text")") << K::Skip << QString();
        QTest::newRow("escapes and non-ASCII")
            << chunk("{\"content\":\"\\\"q\\\" \\\\ \\n \\u00e9 \\ud83d\\ude00 \xc3\xbc\"}")
            << K::Fragment << QStringLiteral("\"q\" \\ \n é 😀 ü");
        QTest::newRow("two choices: the first counts")
            << QByteArray(
                   R"(data: {"choices":[{"delta":{"content":"one"}},{"delta":{"content":"two"}}]})")
            << K::Fragment << QStringLiteral("one");
        QTest::newRow("a choice that is not an object")
            << QByteArray(R"(data: {"choices":[{"delta":{"content":"one"}},1]})") << K::Skip
            << QString();
        QTest::newRow("no choices")
            << QByteArray(R"(data: {"choices":[]})") << K::Skip << QString();
        QTest::newRow("choices not a list")
            << QByteArray(R"(data: {"choices":{"delta":{"content":"x"}}})") << K::Skip << QString();
        QTest::newRow("error object")
            << QByteArray(R"(data: {"error":{"message":"overloaded"}})") << K::Skip << QString();
        QTest::newRow("top-level array")
            << QByteArray(R"(data: [{"choices":[{"delta":{"content":"x"}}]}])") << K::Skip
            << QString();
        QTest::newRow("not JSON") << QByteArray("data: {\"choices\":") << K::Skip << QString();
        QTest::newRow("blank before JSON is JSON whitespace")
            << QByteArray(R"(data:  {"choices":[{"delta":{"content":"x"}}]})") << K::Fragment
            << QStringLiteral("x");
        QTest::newRow("no blank after the colon")
            << QByteArray(R"(data:{"choices":[{"delta":{"content":"x"}}]})") << K::Skip
            << QString();
        QTest::newRow("prefix is case-sensitive")
            << QByteArray(R"(Data: {"choices":[{"delta":{"content":"x"}}]})") << K::Skip
            << QString();
        QTest::newRow("invalid UTF-8 reads as a replacement character")
            << chunk("{\"content\":\"a\xff"
                     "b\"}")
            << K::Fragment << QStringLiteral("a\uFFFDb");
        QTest::newRow("done") << QByteArray("data: [DONE]") << K::Done << QString();
        QTest::newRow("done without the blank")
            << QByteArray("data:[DONE]") << K::Skip << QString();
        QTest::newRow("done with a trailing blank")
            << QByteArray("data: [DONE] ") << K::Skip << QString();
        QTest::newRow("comment") << QByteArray(": OPENROUTER PROCESSING") << K::Skip << QString();
        QTest::newRow("event field") << QByteArray("event: error") << K::Skip << QString();
        QTest::newRow("empty line") << QByteArray() << K::Skip << QString();
    }

    void decodes()
    {
        QFETCH(QByteArray, line);
        QFETCH(SseEvent::Kind, kind);
        QFETCH(QString, fragment);
        const SseEvent event = SseEvent::decode(line);
        QCOMPARE(event.kind, kind);
        QCOMPARE(event.fragment, fragment);
        if (kind == SseEvent::Kind::Fragment) {
            QVERIFY(!event.fragment.isNull() || fragment.isEmpty());
        }
    }

    void readerStopsAtTheEndMarker()
    {
        SseEventReader reader;
        QStringList fragments;
        const auto collect = [&fragments](const QString& text) { fragments.append(text); };
        QVERIFY(reader.feed("data: {\"choices\":[{\"delta\":{\"content\":\"a\"}}]}\n\ndata: [DO",
                            collect));
        QVERIFY(
            !reader.feed("NE]\ndata: {\"choices\":[{\"delta\":{\"content\":\"b\"}}]}\n", collect));
        QVERIFY(reader.isDone());
        QVERIFY(!reader.feed("data: {\"choices\":[{\"delta\":{\"content\":\"c\"}}]}\n", collect));
        reader.finish(collect);
        QCOMPARE(fragments, QStringList{QStringLiteral("a")});
    }

    void readerTakesAnUnfinishedLastLine()
    {
        SseEventReader reader;
        QStringList fragments;
        const auto collect = [&fragments](const QString& text) { fragments.append(text); };
        reader.feed("data: {\"choices\":[{\"delta\":{\"content\":\"tail\"}}]}", collect);
        QVERIFY(fragments.isEmpty());
        reader.finish(collect);
        QCOMPARE(fragments, QStringList{QStringLiteral("tail")});
    }
};

QTEST_GUILESS_MAIN(TestSseEvent)
#include "tst_sseevent.moc"
