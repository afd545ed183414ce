#include "completion/SseLineSplitter.h"

#include <QTest>

namespace {

using Lines = QList<QByteArray>;

// Feeds the pieces one after the other; a splitter that refused a line is not finished.
Lines splitPieces(const Lines& pieces, qsizetype limit = -1, bool* tooLong = nullptr)
{
    SseLineSplitter splitter(limit);
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
    if (tooLong) {
        *tooLong = splitter.lineTooLong();
    }
    return lines;
}

} // namespace

class TestSseLineSplitter : public QObject {
    Q_OBJECT

private slots:
    void splitsLines_data()
    {
        QTest::addColumn<Lines>("pieces");
        QTest::addColumn<Lines>("expected");
        QTest::newRow("mixed ends, empty lines kept")
            << Lines{"a\n\nb\r\n\r\nc\r\rd\re\nf\r\ng"}
            << Lines{"a", "", "b", "", "c", "", "d", "e", "f", "g"};
        QTest::newRow("CRLF split across pieces") << Lines{"a\r", "\nb\n"} << Lines{"a", "b"};
        QTest::newRow("CR at a piece's end, then text") << Lines{"a\r", "b\n"} << Lines{"a", "b"};
        QTest::newRow("CR, empty piece, LF") << Lines{"a\r", "", "\nb"} << Lines{"a", "b"};
        QTest::newRow("CR CR across pieces") << Lines{"a\r", "\r", "b"} << Lines{"a", "", "b"};
        QTest::newRow("line across three pieces")
            << Lines{"da", "ta: x", "yz\n"} << Lines{"data: xyz"};
        QTest::newRow("nothing") << Lines{} << Lines{};
        QTest::newRow("only a terminator") << Lines{"\r\n"} << Lines{""};
    }

    void splitsLines()
    {
        QFETCH(Lines, pieces);
        QFETCH(Lines, expected);
        QCOMPARE(splitPieces(pieces), expected);
    }

    void stopsWhenAsked()
    {
        SseLineSplitter splitter;
        Lines lines;
        QVERIFY(!splitter.feed("a\nstop\nc\n", [&lines](QByteArrayView line) {
            lines.append(line.toByteArray());
            return line != QByteArrayView("stop");
        }));
        QCOMPARE(lines, (Lines{"a", "stop"}));
    }

    void refusesALineOverItsLimit_data()
    {
        QTest::addColumn<Lines>("pieces");
        QTest::addColumn<Lines>("expected");
        QTest::addColumn<bool>("tooLong");
        QTest::newRow("at the limit") << Lines{"12345\n"} << Lines{"12345"} << false;
        QTest::newRow("over it in one piece")
            << Lines{"ok\n123456\nlater\n"} << Lines{"ok"} << true;
        QTest::newRow("over it across pieces")
            << Lines{"ok\n123", "456", "\nlater\n"} << Lines{"ok"} << true;
        QTest::newRow("unfinished, over it") << Lines{"1234", "56"} << Lines{} << true;
    }

    void refusesALineOverItsLimit()
    {
        QFETCH(Lines, pieces);
        QFETCH(Lines, expected);
        QFETCH(bool, tooLong);
        bool refused = false;
        QCOMPARE(splitPieces(pieces, 5, &refused), expected);
        QCOMPARE(refused, tooLong);
    }
};

QTEST_GUILESS_MAIN(TestSseLineSplitter)
#include "tst_sselinesplitter.moc"
