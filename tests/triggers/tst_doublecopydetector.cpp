#include "platform/KeyMap.h"
#include "triggers/DoubleCopyDetector.h"

#include <QTest>

#include <vector>

namespace {

using namespace std::chrono_literals;
using ms = std::chrono::milliseconds;

/// A key-down, or with `keyCode` 0 and `owner` set, a change of the clipboard's owner.
struct Event {
    ms at;
    quint32 keyCode = KeyMap::copyKeyCode;
    quint32 modifiers = KeyMap::commandMask;
    std::optional<quint64> owner = {};
};

using Events = std::vector<Event>;

Event ownedAt(ms at, quint64 owner = 7)
{
    return {at, 0, 0, owner};
}

} // namespace

Q_DECLARE_METATYPE(Events)

class TestDoubleCopyDetector : public QObject {
    Q_OBJECT

private slots:
    void events_data()
    {
        QTest::addColumn<Events>("events");
        // For each event, whether it completes a double copy: 'x' it does, '-' it does not.
        QTest::addColumn<QByteArray>("fires");
        constexpr quint32 c = KeyMap::copyKeyCode, ctrl = KeyMap::commandMask, v = 9;
        QTest::newRow("one press") << Events{{0ms}} << QByteArray("-");
        QTest::newRow("just under 0.4 s") << Events{{0ms}, {399ms}} << QByteArray("-x");
        QTest::newRow("0.4 s apart is too slow") << Events{{0ms}, {400ms}} << QByteArray("--");
        QTest::newRow("a slow second press becomes the first")
            << Events{{0ms}, {400ms}, {790ms}} << QByteArray("--x");
        QTest::newRow("auto-repeat fires every second press")
            << Events{{0ms}, {30ms}, {60ms}, {90ms}, {120ms}} << QByteArray("-x-x-");
        QTest::newRow("the key in between starts nothing")
            << Events{{0ms}, {100ms, v, ctrl}, {200ms}, {300ms}} << QByteArray("---x");
        QTest::newRow("plain c in between")
            << Events{{0ms}, {100ms, c, 0}, {200ms}} << QByteArray("---");
        QTest::newRow("an unknown key in between")
            << Events{{0ms}, {100ms, KeyMap::unknownKeyCode, 0}, {200ms}} << QByteArray("---");
        QTest::newRow("C without Ctrl twice")
            << Events{{0ms, c, 0}, {100ms, c, 0}} << QByteArray("--");
        // Ctrl plus any other modifier is another shortcut: it never counts and it clears.
        for (const quint32 other : {KeyMap::shiftMask, KeyMap::optionMask, KeyMap::controlMask}) {
            QTest::addRow("Ctrl+%u+C pair", other)
                << Events{{0ms, c, ctrl | other}, {100ms, c, ctrl | other}} << QByteArray("--");
            QTest::addRow("Ctrl+%u+C clears a pending press", other)
                << Events{{0ms}, {100ms, c, ctrl | other}, {200ms}} << QByteArray("---");
            QTest::addRow("%u+C alone clears", other)
                << Events{{0ms}, {100ms, c, other}, {200ms}} << QByteArray("---");
        }

        QTest::newRow("two copies 0.2 s apart")
            << Events{ownedAt(0ms), ownedAt(200ms)} << QByteArray("-x");
        QTest::newRow("two copies 0.4 s apart")
            << Events{ownedAt(0ms), ownedAt(400ms)} << QByteArray("--");
        QTest::newRow("four copies fire twice")
            << Events{ownedAt(0ms), ownedAt(100ms), ownedAt(200ms), ownedAt(300ms)}
            << QByteArray("-x-x");
        QTest::newRow("a cleared clipboard is no copy")
            << Events{ownedAt(0ms), ownedAt(100ms, 0), ownedAt(200ms, 0)} << QByteArray("---");
        QTest::newRow("clear then set is one copy")
            << Events{ownedAt(0ms, 0), ownedAt(0ms), ownedAt(200ms, 0), ownedAt(200ms)}
            << QByteArray("---x");
        QTest::newRow("a manager taking each copy over")
            << Events{ownedAt(0ms), ownedAt(5ms, 9), ownedAt(200ms), ownedAt(230ms, 9)}
            << QByteArray("--x-");
        QTest::newRow("changes 59 ms apart are one copy")
            << Events{ownedAt(0ms), ownedAt(59ms)} << QByteArray("--");
        QTest::newRow("changes 60 ms apart are two")
            << Events{ownedAt(0ms), ownedAt(60ms)} << QByteArray("-x");
        QTest::newRow("copies in two applications")
            << Events{ownedAt(0ms, 7), ownedAt(200ms, 8), ownedAt(300ms, 8)} << QByteArray("--x");
    }

    void events()
    {
        QFETCH(Events, events);
        QFETCH(QByteArray, fires);
        QCOMPARE(qsizetype(events.size()), fires.size());
        DoubleCopyDetector detector;
        const DoubleCopyDetector::Clock::time_point start{std::chrono::hours(5)};
        for (std::size_t i = 0; i < events.size(); ++i) {
            const Event& e = events[i];
            const bool fired = e.owner ? detector.ownerChanged(*e.owner, start + e.at)
                                       : detector.keyDown(e.keyCode, e.modifiers, start + e.at);
            QVERIFY2(fired == (fires.at(i) == 'x'), qPrintable(QString::number(i + 1)));
        }
    }
};

QTEST_GUILESS_MAIN(TestDoubleCopyDetector)
#include "tst_doublecopydetector.moc"
