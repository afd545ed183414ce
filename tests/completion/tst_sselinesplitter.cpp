#include "completion/SseLineSplitter.h"

#include <QTest>

namespace {

using Lines = QList<QByteArray>;

// Feeds the pieces one after the other; a splitter that refused a line is not finished.
Lines splitPieces(const QList<QByteArray>& pieces, SseLineSplitter& splitter)
{
    Lines lines;
    const auto collect = [&lines](QByteArrayView line) {
        lines.append(line.toByteArray());
        return true;
    };
    for (const QByteArray& piece : pieces) {
        splitter.feed(piece, collect);
    }
    if (!splitter.lineTooLong()) {
        splitter.finish(collect);
    }
    return lines;
}

Lines splitPieces(const QList<QByteArray>& pieces)
{
    SseLineSplitter splitter;
    return splitPieces(pieces, splitter);
}

} // namespace

class TestSseLineSplitter : public QObject {
    Q_OBJECT

private slots:
    void splitsLines_data()
    {
        QTest::addColumn<QList<QByteArray>>("pieces");
        QTest::addColumn<Lines>("expected");

        QTest::newRow("LF") << QList<QByteArray>{"a\nb\n"} << Lines{"a", "b"};
        QTest::newRow("CRLF") << QList<QByteArray>{"a\r\nb\r\n"} << Lines{"a", "b"};
        QTest::newRow("CR") << QList<QByteArray>{"a\rb\r"} << Lines{"a", "b"};
        QTest::newRow("mixed") << QList<QByteArray>{"a\rb\nc\r\nd"} << Lines{"a", "b", "c", "d"};
        QTest::newRow("empty lines kept")
            << QList<QByteArray>{"a\n\nb\r\n\r\nc\r\rd"} << Lines{"a", "", "b", "", "c", "", "d"};
        QTest::newRow("CRLF split across pieces")
            << QList<QByteArray>{"a\r", "\nb\n"} << Lines{"a", "b"};
        QTest::newRow("CR at a piece's end, then text")
            << QList<QByteArray>{"a\r", "b\n"} << Lines{"a", "b"};
        QTest::newRow("CR, empty piece, LF")
            << QList<QByteArray>{"a\r", "", "\nb"} << Lines{"a", "b"};
        QTest::newRow("CR CR across pieces")
            << QList<QByteArray>{"a\r", "\r", "b"} << Lines{"a", "", "b"};
        QTest::newRow("line across three pieces")
            << QList<QByteArray>{"da", "ta: x", "yz\n"} << Lines{"data: xyz"};
        QTest::newRow("UTF-8 character split")
            << QList<QByteArray>{"caf\xc3", "\xa9\n\xf0\x9f", "\x98\x80\n"}
            << Lines{"caf\xc3\xa9", "\xf0\x9f\x98\x80"};
        QTest::newRow("last line without terminator")
            << QList<QByteArray>{"a\nlast"} << Lines{"a", "last"};
        QTest::newRow("nothing") << QList<QByteArray>{} << Lines{};
        QTest::newRow("only a terminator") << QList<QByteArray>{"\r\n"} << Lines{""};
    }

    void splitsLines()
    {
        QFETCH(QList<QByteArray>, pieces);
        QFETCH(Lines, expected);
        QCOMPARE(splitPieces(pieces), expected);
    }

    // Wherever the network cuts the stream, the lines are the same.
    void anyCutGivesTheSameLines()
    {
        const QByteArray stream =
            "data: {\"a\":\"\xc3\xa9\"}\r\n\r\ndata: x\rdata: y\n\n: comment\r\ndata: [DONE]\r\n";
        const Lines whole = splitPieces({stream});
        QCOMPARE(whole.size(), 7);
        for (qsizetype cut = 0; cut <= stream.size(); ++cut) {
            for (qsizetype second = cut; second <= stream.size(); ++second) {
                const Lines lines = splitPieces(
                    {stream.left(cut), stream.mid(cut, second - cut), stream.mid(second)});
                QVERIFY2(lines == whole,
                         qPrintable(QStringLiteral("cuts %1 %2").arg(cut).arg(second)));
            }
        }
        QList<QByteArray> bytes;
        for (char c : stream) {
            bytes.append(QByteArray(1, c));
        }
        QCOMPARE(splitPieces(bytes), whole);
    }

    void stopsWhenAsked()
    {
        SseLineSplitter splitter;
        Lines lines;
        const bool more = splitter.feed("a\nstop\nc\n", [&lines](QByteArrayView line) {
            lines.append(line.toByteArray());
            return line != QByteArrayView("stop");
        });
        QVERIFY(!more);
        QCOMPARE(lines, (Lines{"a", "stop"}));
    }

    void refusesALineOverItsLimit_data()
    {
        QTest::addColumn<QList<QByteArray>>("pieces");
        QTest::addColumn<Lines>("expected");
        QTest::addColumn<bool>("tooLong");
        QTest::newRow("at the limit") << QList<QByteArray>{"12345\n"} << Lines{"12345"} << false;
        QTest::newRow("over it in one piece")
            << QList<QByteArray>{"ok\n123456\nlater\n"} << Lines{"ok"} << true;
        QTest::newRow("over it across pieces")
            << QList<QByteArray>{"ok\n123", "456", "\nlater\n"} << Lines{"ok"} << true;
        QTest::newRow("unfinished, over it") << QList<QByteArray>{"1234", "56"} << Lines{} << true;
    }

    void refusesALineOverItsLimit()
    {
        QFETCH(QList<QByteArray>, pieces);
        QFETCH(Lines, expected);
        QFETCH(bool, tooLong);
        SseLineSplitter splitter(5);
        QCOMPARE(splitPieces(pieces, splitter), expected);
        QCOMPARE(splitter.lineTooLong(), tooLong);
    }
};

QTEST_GUILESS_MAIN(TestSseLineSplitter)
#include "tst_sselinesplitter.moc"
