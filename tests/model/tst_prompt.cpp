#include "model/Prompt.h"

#include <QSet>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QByteArray id = "3F2504E0-4F89-41D3-9A0C-0305E82C3301";

/// One stored prompt with `field` (a member with its value) in place of that member.
QByteArray stored(const QByteArray& field = {})
{
    QList<QByteArray> members{"\"id\":\"" + id + '"', "\"number\":1", "\"title\":\"t\"",
                              "\"systemPrompt\":\"s\""};
    const QByteArray name = field.left(field.indexOf(':'));
    for (QByteArray& member : members) {
        if (!field.isEmpty() && member.startsWith(name)) {
            member = field.endsWith(":-") ? QByteArray() : field;
        }
    }
    members.removeAll(QByteArray());
    return "[{" + members.join(',') + "}]";
}

} // namespace

class TestPrompt : public QObject {
    Q_OBJECT

private slots:
    void encodesMembersInOrderCompactly()
    {
        Prompt prompt{QUuid::fromString(QString::fromLatin1(id).toLower()), 1, u"Translate"_s,
                      u"Say \"hi\"\n\\ in German/Swiss."_s};
        QCOMPARE(Prompt::encodeList({prompt}),
                 "[{\"id\":\"" + id +
                     "\",\"number\":1,\"title\":\"Translate\",\"systemPrompt\":\"Say "
                     "\\\"hi\\\"\\n\\\\ in German/Swiss.\"}]");
        QCOMPARE(Prompt::encodeList({}), QByteArray("[]"));
    }

    void roundTripsAnyText_data()
    {
        QTest::addColumn<qint64>("number");
        QTest::addColumn<QString>("text");
        QTest::newRow("line breaks and tabs") << qint64(0) << u"a\nb\r\nc\td"_s;
        QTest::newRow("quotes and backslashes") << qint64(-4) << u"\"q\" \\n \\\\ \\u0041"_s;
        QTest::newRow("control characters") << qint64(9) << u"\x01\x1f\b\f"_s;
        QTest::newRow("non-ASCII and emoji")
            << qint64(42) << u"Grüße, 日本語, 👩‍💻 🇩🇪"_s;
        QTest::newRow("empty") << qint64(3) << QString();
        QTest::newRow("largest number") << std::numeric_limits<qint64>::max() << u"x"_s;
        QTest::newRow("smallest number") << std::numeric_limits<qint64>::min() << u"x"_s;
    }

    void roundTripsAnyText()
    {
        QFETCH(qint64, number);
        QFETCH(QString, text);
        const QList<Prompt> prompts{Prompt::create(number, text, text + text),
                                    Prompt::create(2, u"second"_s, text)};
        QCOMPARE(Prompt::decodeList(Prompt::encodeList(prompts)), prompts);
    }

    void decodes_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<int>("count"); // -1: unreadable
        QTest::newRow("complete") << stored() << 1;
        QTest::newRow("any member order and whitespace")
            << "[ {\n \"systemPrompt\" : \"s\", \"title\":\"t\",\t\"number\": 5, \"id\": \"" + id +
                   "\" } ]"
            << 1;
        QTest::newRow("lower-case id") << stored("\"id\":\"" + id.toLower() + '"') << 1;
        QTest::newRow("extra member") << stored("\"title\":\"t\",\"color\":\"red\"") << 1;
        QTest::newRow("whole number with fraction") << stored("\"number\":2.0") << 1;
        QTest::newRow("empty array") << QByteArray("[]") << 0;
        QTest::newRow("number as string") << stored("\"number\":\"1\"") << -1;
        QTest::newRow("fractional number") << stored("\"number\":1.5") << -1;
        QTest::newRow("number too large") << stored("\"number\":1e30") << -1;
        QTest::newRow("missing systemPrompt") << stored("\"systemPrompt\":-") << -1;
        QTest::newRow("null title") << stored("\"title\":null") << -1;
        QTest::newRow("id in braces") << stored("\"id\":\"{" + id + "}\"") << -1;
        QTest::newRow("id not hexadecimal") << stored("\"id\":\"" + id.chopped(1) + "G\"") << -1;
        QTest::newRow("id without hyphens")
            << stored("\"id\":\"" + QByteArray(id).replace('-', "") + '"') << -1;
        QTest::newRow("one bad element spoils the list")
            << stored().chopped(1) + ",{\"id\":\"" + id + "\"}]" << -1;
        QTest::newRow("element not an object") << QByteArray("[1]") << -1;
        QTest::newRow("object instead of array") << stored().mid(1).chopped(1) << -1;
        QTest::newRow("not JSON") << QByteArray("Translate everything") << -1;
        QTest::newRow("empty") << QByteArray() << -1;
    }

    void decodes()
    {
        QFETCH(QByteArray, json);
        QFETCH(int, count);
        const std::optional<QList<Prompt>> prompts = Prompt::decodeList(json);
        QCOMPARE(prompts.has_value(), count >= 0);
        if (count > 0) {
            QCOMPARE(prompts->size(), count);
            const Prompt& prompt = prompts->first();
            QCOMPARE(prompt.title + prompt.systemPrompt, u"ts"_s);
            // Written back with the upper-case id and without unknown members.
            QCOMPARE(Prompt::encodeList(*prompts),
                     stored("\"number\":" + QByteArray::number(prompt.number)));
        }
    }

    void equalityIgnoresNormalisationButNotIdOrNumber()
    {
        const Prompt composed = Prompt::create(1, u"Caf\u00e9"_s, u"\u00c5"_s);
        Prompt decomposed = composed;
        decomposed.title = u"Cafe\u0301"_s;
        decomposed.systemPrompt = u"A\u030a"_s;
        QCOMPARE(decomposed, composed);
        QCOMPARE(QSet<Prompt>({composed, decomposed}).size(), 1);
        Prompt renumbered = composed;
        renumbered.number = 2;
        QVERIFY(renumbered != composed);
        Prompt other = composed;
        other.id = QUuid::createUuid();
        QVERIFY(other != composed);
    }

    void textThatCannotBeEncodedIsNotWritten()
    {
        const Prompt broken = Prompt::create(1, QString(QChar(0xd800)), u"s"_s);
        QVERIFY(broken.toJson().isEmpty());
        QVERIFY(Prompt::encodeList({Prompt::defaults().first(), broken}).isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestPrompt)
#include "tst_prompt.moc"
