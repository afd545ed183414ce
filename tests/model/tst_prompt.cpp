#include "model/Prompt.h"

#include <QSet>
#include <QTest>

class TestPrompt : public QObject {
    Q_OBJECT

private slots:
    void defaultsAreBuiltOnce();
    void encodesMembersInOrderCompactly();
    void roundTripsAnyText_data();
    void roundTripsAnyText();
    void decodes_data();
    void decodes();
    void equalityIgnoresNormalisationButNotId();
    void textThatCannotBeEncodedIsNotWritten();
};

void TestPrompt::defaultsAreBuiltOnce()
{
    const QList<Prompt>& first = Prompt::defaults();
    const QList<Prompt>& second = Prompt::defaults();
    QCOMPARE(first, second);
    QCOMPARE(first.size(), 3);
    QCOMPARE(first.at(0).title, QStringLiteral("Translate"));
    QCOMPARE(first.at(1).title, QStringLiteral("Fix"));
    QCOMPARE(first.at(2).title, QStringLiteral("English word for"));
    QCOMPARE(
        first.at(2).systemPrompt,
        QStringLiteral("What is the English word or phrase for the following? Provide the best "
                       "English translation and a brief explanation."));
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(first.at(i).number, qint64(i + 1));
        QCOMPARE(first.at(i).id.version(), QUuid::Random);
    }
    QVERIFY(first.at(0) != first.at(1));
    Prompt copy = first.at(0);
    copy.id = QUuid::createUuid();
    QVERIFY(copy != first.at(0));
}

void TestPrompt::encodesMembersInOrderCompactly()
{
    Prompt prompt{QUuid::fromString(QStringLiteral("3f2504e0-4f89-41d3-9a0c-0305e82c3301")), 1,
                  QStringLiteral("Translate"), QStringLiteral("Say \"hi\"\n\\ in German/Swiss.")};
    QCOMPARE(Prompt::encodeList({prompt}),
             QByteArray("[{\"id\":\"3F2504E0-4F89-41D3-9A0C-0305E82C3301\",\"number\":1,"
                        "\"title\":\"Translate\",\"systemPrompt\":\"Say \\\"hi\\\"\\n\\\\ in "
                        "German/Swiss.\"}]"));
    QCOMPARE(Prompt::encodeList({}), QByteArray("[]"));
}

void TestPrompt::roundTripsAnyText_data()
{
    QTest::addColumn<qint64>("number");
    QTest::addColumn<QString>("text");
    QTest::newRow("plain") << qint64(1) << QStringLiteral("Translate");
    QTest::newRow("line breaks and tabs") << qint64(0) << QStringLiteral("a\nb\r\nc\td");
    QTest::newRow("quotes and backslashes")
        << qint64(-4) << QStringLiteral("\"q\" \\n \\\\ \\u0041");
    QTest::newRow("control characters") << qint64(9) << QStringLiteral("\x01\x1f\b\f");
    QTest::newRow("non-ASCII") << qint64(42) << QStringLiteral("Grüße, 日本語, ελληνικά");
    QTest::newRow("emoji") << qint64(7) << QStringLiteral("👩‍💻 🇩🇪");
    QTest::newRow("empty") << qint64(3) << QString();
    QTest::newRow("largest number") << std::numeric_limits<qint64>::max() << QStringLiteral("x");
    QTest::newRow("smallest number") << std::numeric_limits<qint64>::min() << QStringLiteral("x");
}

void TestPrompt::roundTripsAnyText()
{
    QFETCH(qint64, number);
    QFETCH(QString, text);
    const QList<Prompt> prompts{Prompt::create(number, text, text + text),
                                Prompt::create(2, QStringLiteral("second"), text)};
    const std::optional<QList<Prompt>> decoded = Prompt::decodeList(Prompt::encodeList(prompts));
    QVERIFY(decoded);
    QCOMPARE(*decoded, prompts);
}

void TestPrompt::decodes_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<int>("count"); // -1: unreadable
    const QByteArray id = "\"3F2504E0-4F89-41D3-9A0C-0305E82C3301\"";
    const auto object = [](const QByteArray& members) -> QByteArray {
        return "[{" + members + "}]";
    };

    QTest::newRow("complete") << object("\"id\":" + id +
                                        ",\"number\":1,\"title\":\"t\",\"systemPrompt\":\"s\"")
                              << 1;
    QTest::newRow("any member order and whitespace")
        << QByteArray("[ {\n \"systemPrompt\" : \"s\", \"title\":\"t\",\t\"number\": 5, \"id\": " +
                      id + " } ]")
        << 1;
    QTest::newRow("lower-case id") << object("\"id\":\"3f2504e0-4f89-41d3-9a0c-0305e82c3301\","
                                             "\"number\":1,\"title\":\"t\",\"systemPrompt\":\"s\"")
                                   << 1;
    QTest::newRow("extra member") << object("\"id\":" + id +
                                            ",\"number\":1,\"title\":\"t\",\"systemPrompt\":\"s\","
                                            "\"color\":\"red\"")
                                  << 1;
    QTest::newRow("whole number with fraction")
        << object("\"id\":" + id + ",\"number\":2.0,\"title\":\"t\",\"systemPrompt\":\"s\"") << 1;
    QTest::newRow("empty array") << QByteArray("[]") << 0;

    QTest::newRow("number as string")
        << object("\"id\":" + id + ",\"number\":\"1\",\"title\":\"t\",\"systemPrompt\":\"s\"")
        << -1;
    QTest::newRow("fractional number")
        << object("\"id\":" + id + ",\"number\":1.5,\"title\":\"t\",\"systemPrompt\":\"s\"") << -1;
    QTest::newRow("number too large")
        << object("\"id\":" + id + ",\"number\":1e30,\"title\":\"t\",\"systemPrompt\":\"s\"") << -1;
    QTest::newRow("missing systemPrompt")
        << object("\"id\":" + id + ",\"number\":1,\"title\":\"t\"") << -1;
    QTest::newRow("null title") << object("\"id\":" + id +
                                          ",\"number\":1,\"title\":null,\"systemPrompt\":\"s\"")
                                << -1;
    QTest::newRow("id in braces")
        << object("\"id\":\"{3F2504E0-4F89-41D3-9A0C-0305E82C3301}\",\"number\":1,\"title\":\"t\","
                  "\"systemPrompt\":\"s\"")
        << -1;
    QTest::newRow("id not hexadecimal")
        << object("\"id\":\"3F2504E0-4F89-41D3-9A0C-0305E82C330G\",\"number\":1,\"title\":\"t\","
                  "\"systemPrompt\":\"s\"")
        << -1;
    QTest::newRow("id without hyphens")
        << object("\"id\":\"3F2504E04F8941D39A0C0305E82C3301\",\"number\":1,\"title\":\"t\","
                  "\"systemPrompt\":\"s\"")
        << -1;
    QTest::newRow("one bad element spoils the list")
        << QByteArray("[{\"id\":" + id +
                      ",\"number\":1,\"title\":\"t\",\"systemPrompt\":\"s\"},{\"id\":" + id + "}]")
        << -1;
    QTest::newRow("element not an object") << QByteArray("[1]") << -1;
    QTest::newRow("object instead of array")
        << QByteArray("{\"id\":" + id + ",\"number\":1,\"title\":\"t\",\"systemPrompt\":\"s\"}")
        << -1;
    QTest::newRow("not JSON") << QByteArray("Translate everything") << -1;
    QTest::newRow("truncated") << QByteArray("[{\"id\":" + id) << -1;
    QTest::newRow("empty") << QByteArray() << -1;
}

void TestPrompt::decodes()
{
    QFETCH(QByteArray, json);
    QFETCH(int, count);
    const std::optional<QList<Prompt>> prompts = Prompt::decodeList(json);
    if (count < 0) {
        QVERIFY(!prompts);
        return;
    }
    QVERIFY(prompts);
    QCOMPARE(prompts->size(), count);
    if (count > 0) {
        const Prompt& prompt = prompts->first();
        QCOMPARE(prompt.idText(), QStringLiteral("3F2504E0-4F89-41D3-9A0C-0305E82C3301"));
        QCOMPARE(prompt.title, QStringLiteral("t"));
        QCOMPARE(prompt.systemPrompt, QStringLiteral("s"));
        // Written back with the upper-case id and without unknown members.
        QVERIFY(Prompt::encodeList(*prompts).startsWith(
            "[{\"id\":\"3F2504E0-4F89-41D3-9A0C-0305E82C3301\",\"number\":"));
        QVERIFY(!Prompt::encodeList(*prompts).contains("color"));
    }
}

void TestPrompt::equalityIgnoresNormalisationButNotId()
{
    const Prompt composed =
        Prompt::create(1, QStringLiteral("Caf\u00e9"), QStringLiteral("\u00c5"));
    Prompt decomposed = composed;
    decomposed.title = QStringLiteral("Cafe\u0301");
    decomposed.systemPrompt = QStringLiteral("A\u030a");
    QCOMPARE(decomposed, composed);
    QCOMPARE(qHash(decomposed), qHash(composed));
    QCOMPARE(QSet<Prompt>({composed, decomposed}).size(), 1);

    Prompt renumbered = composed;
    renumbered.number = 2;
    QVERIFY(renumbered != composed);
}

void TestPrompt::textThatCannotBeEncodedIsNotWritten()
{
    const Prompt broken = Prompt::create(1, QString(QChar(0xd800)), QStringLiteral("s"));
    QVERIFY(broken.toJson().isEmpty());
    QVERIFY(Prompt::encodeList({Prompt::defaults().first(), broken}).isEmpty());
}

QTEST_GUILESS_MAIN(TestPrompt)
#include "tst_prompt.moc"
