#include "platform/KeyMap.h"
#include "triggers/DoubleCopyDetector.h"

#include <QTest>

#include <vector>

namespace {

using namespace std::chrono_literals;

struct Press {
    quint32 keyCode;
    quint32 modifiers;
    std::chrono::milliseconds at;
};

constexpr quint32 copyKey = KeyMap::copyKeyCode;
constexpr quint32 ctrl = KeyMap::commandMask;
constexpr quint32 keyV = 9;

Press copyAt(std::chrono::milliseconds at)
{
    return {copyKey, ctrl, at};
}

struct OwnerChange {
    quint64 owner;
    std::chrono::milliseconds at;
};

OwnerChange ownedAt(std::chrono::milliseconds at, quint64 owner = 7)
{
    return {owner, at};
}

} // namespace

Q_DECLARE_METATYPE(std::vector<Press>)
Q_DECLARE_METATYPE(std::vector<OwnerChange>)

class TestDoubleCopyDetector : public QObject {
    Q_OBJECT

private slots:
    void presses_data()
    {
        QTest::addColumn<std::vector<Press>>("presses");
        // For each press: whether it completes a double copy.
        QTest::addColumn<QList<bool>>("fires");

        QTest::newRow("one press") << std::vector{copyAt(0ms)} << QList<bool>{false};
        QTest::newRow("0.39 s apart")
            << std::vector{copyAt(0ms), copyAt(390ms)} << QList<bool>{false, true};
        QTest::newRow("just under 0.4 s")
            << std::vector{copyAt(0ms), copyAt(399ms)} << QList<bool>{false, true};
        QTest::newRow("0.4 s apart is too slow")
            << std::vector{copyAt(0ms), copyAt(400ms)} << QList<bool>{false, false};
        QTest::newRow("a slow second press becomes the first")
            << std::vector{copyAt(0ms), copyAt(400ms), copyAt(790ms)}
            << QList<bool>{false, false, true};
        QTest::newRow("three presses fire once")
            << std::vector{copyAt(0ms), copyAt(100ms), copyAt(200ms)}
            << QList<bool>{false, true, false};
        QTest::newRow("four presses fire twice")
            << std::vector{copyAt(0ms), copyAt(100ms), copyAt(200ms), copyAt(300ms)}
            << QList<bool>{false, true, false, true};
        QTest::newRow("auto-repeat counts as presses")
            << std::vector{copyAt(0ms), copyAt(30ms), copyAt(60ms), copyAt(90ms), copyAt(120ms)}
            << QList<bool>{false, true, false, true, false};
        QTest::newRow("another key in between")
            << std::vector{copyAt(0ms), Press{keyV, ctrl, 100ms}, copyAt(200ms)}
            << QList<bool>{false, false, false};
        QTest::newRow("plain c in between")
            << std::vector{copyAt(0ms), Press{copyKey, 0, 100ms}, copyAt(200ms)}
            << QList<bool>{false, false, false};
        QTest::newRow("an unknown key in between")
            << std::vector{copyAt(0ms), Press{KeyMap::unknownKeyCode, 0, 100ms}, copyAt(200ms)}
            << QList<bool>{false, false, false};
        QTest::newRow("the key in between starts nothing")
            << std::vector{copyAt(0ms), Press{keyV, ctrl, 100ms}, copyAt(200ms), copyAt(300ms)}
            << QList<bool>{false, false, false, true};
        QTest::newRow("C without Ctrl twice")
            << std::vector{Press{copyKey, 0, 0ms}, Press{copyKey, 0, 100ms}}
            << QList<bool>{false, false};

        // Ctrl plus any other modifier is another shortcut: it never counts and it clears.
        const struct {
            const char* name;
            quint32 mask;
        } others[] = {{"Shift", KeyMap::shiftMask},
                      {"Alt", KeyMap::optionMask},
                      {"Super", KeyMap::controlMask}};
        for (const auto& other : others) {
            QTest::addRow("Ctrl+%s+C pair", other.name)
                << std::vector{Press{copyKey, ctrl | other.mask, 0ms},
                               Press{copyKey, ctrl | other.mask, 100ms}}
                << QList<bool>{false, false};
            QTest::addRow("Ctrl+%s+C clears a pending press", other.name)
                << std::vector{copyAt(0ms), Press{copyKey, ctrl | other.mask, 100ms}, copyAt(200ms)}
                << QList<bool>{false, false, false};
            QTest::addRow("%s+C alone clears", other.name)
                << std::vector{copyAt(0ms), Press{copyKey, other.mask, 100ms}, copyAt(200ms)}
                << QList<bool>{false, false, false};
        }
    }

    void presses()
    {
        QFETCH(std::vector<Press>, presses);
        QFETCH(QList<bool>, fires);
        QCOMPARE(qsizetype(presses.size()), fires.size());

        DoubleCopyDetector detector;
        const DoubleCopyDetector::Clock::time_point start{std::chrono::hours(5)};
        for (std::size_t i = 0; i < presses.size(); ++i) {
            const Press& press = presses[i];
            QVERIFY2(detector.keyDown(press.keyCode, press.modifiers, start + press.at) ==
                         fires[qsizetype(i)],
                     qPrintable(QStringLiteral("press %1").arg(i + 1)));
        }
    }

    void ownerChanges_data()
    {
        QTest::addColumn<std::vector<OwnerChange>>("changes");
        QTest::addColumn<QList<bool>>("fires");

        QTest::newRow("two copies 0.2 s apart")
            << std::vector{ownedAt(0ms), ownedAt(200ms)} << QList<bool>{false, true};
        QTest::newRow("0.4 s apart is too slow")
            << std::vector{ownedAt(0ms), ownedAt(400ms)} << QList<bool>{false, false};
        QTest::newRow("three copies fire once")
            << std::vector{ownedAt(0ms), ownedAt(150ms), ownedAt(300ms)}
            << QList<bool>{false, true, false};
        QTest::newRow("four copies fire twice")
            << std::vector{ownedAt(0ms), ownedAt(100ms), ownedAt(200ms), ownedAt(300ms)}
            << QList<bool>{false, true, false, true};
        QTest::newRow("a cleared clipboard is no copy")
            << std::vector{ownedAt(0ms), ownedAt(100ms, 0), ownedAt(200ms, 0)}
            << QList<bool>{false, false, false};
        QTest::newRow("clear then set is one copy")
            << std::vector{ownedAt(0ms, 0), ownedAt(0ms), ownedAt(200ms, 0), ownedAt(200ms)}
            << QList<bool>{false, false, false, true};
        QTest::newRow("a manager taking each copy over")
            << std::vector{ownedAt(0ms), ownedAt(5ms, 9), ownedAt(200ms), ownedAt(230ms, 9)}
            << QList<bool>{false, false, true, false};
        QTest::newRow("changes 59 ms apart are one copy")
            << std::vector{ownedAt(0ms), ownedAt(59ms)} << QList<bool>{false, false};
        QTest::newRow("changes 60 ms apart are two")
            << std::vector{ownedAt(0ms), ownedAt(60ms)} << QList<bool>{false, true};
        QTest::newRow("copies in two applications")
            << std::vector{ownedAt(0ms, 7), ownedAt(200ms, 8), ownedAt(300ms, 8)}
            << QList<bool>{false, false, true};
    }

    void ownerChanges()
    {
        QFETCH(std::vector<OwnerChange>, changes);
        QFETCH(QList<bool>, fires);
        QCOMPARE(qsizetype(changes.size()), fires.size());

        DoubleCopyDetector detector;
        const DoubleCopyDetector::Clock::time_point start{std::chrono::hours(5)};
        for (std::size_t i = 0; i < changes.size(); ++i) {
            QVERIFY2(detector.ownerChanged(changes[i].owner, start + changes[i].at) ==
                         fires[qsizetype(i)],
                     qPrintable(QStringLiteral("change %1").arg(i + 1)));
        }
    }

    void resetForgetsThePendingPress()
    {
        DoubleCopyDetector detector;
        const DoubleCopyDetector::Clock::time_point start{};
        QVERIFY(!detector.keyDown(copyKey, ctrl, start));
        QVERIFY(detector.isPending());
        detector.reset();
        QVERIFY(!detector.isPending());
        QVERIFY(!detector.keyDown(copyKey, ctrl, start + 100ms));
        QVERIFY(detector.keyDown(copyKey, ctrl, start + 200ms));
        QVERIFY(!detector.isPending());
    }
};

QTEST_GUILESS_MAIN(TestDoubleCopyDetector)
#include "tst_doublecopydetector.moc"
