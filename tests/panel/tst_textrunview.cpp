// Moving and selecting in the answer with the keyboard, a character at a time, where some
// characters are two UTF-16 units.
#include "panel/TextRunView.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QTest>

using namespace Qt::StringLiterals;

class TestTextRunView : public QObject {
    Q_OBJECT

private slots:
    void shiftArrowsSelectWholeCharacters_data()
    {
        QTest::addColumn<QList<int>>("keys"); // Qt::Key_Right or Qt::Key_Left, with Shift
        QTest::addColumn<QString>("selected");
        QTest::newRow("one right") << QList<int>{Qt::Key_Right} << u"a"_s;
        QTest::newRow("over the emoji") << QList<int>{Qt::Key_Right, Qt::Key_Right} << u"a😀"_s;
        QTest::newRow("to the end and beyond")
            << QList<int>{Qt::Key_Right, Qt::Key_Right, Qt::Key_Right, Qt::Key_Right, Qt::Key_Right}
            << u"a😀bc"_s;
        QTest::newRow("back over the emoji")
            << QList<int>{Qt::Key_Right, Qt::Key_Right, Qt::Key_Right, Qt::Key_Left, Qt::Key_Left}
            << u"a"_s;
    }

    void shiftArrowsSelectWholeCharacters()
    {
        QFETCH(QList<int>, keys);
        QFETCH(QString, selected);
        TextRunView view;
        view.setWidth(400);
        view.reset(u"a😀bc"_s);
        view.select(0, 0);
        for (const int key : keys) {
            QKeyEvent press(QEvent::KeyPress, key, Qt::ShiftModifier);
            QCoreApplication::sendEvent(&view, &press);
            QVERIFY(press.isAccepted());
        }
        QCOMPARE(view.selectedText(), selected);
    }

    void ctrlShiftLeftStopsAtTheWordStart()
    {
        TextRunView view;
        view.setWidth(400);
        view.reset(u"one two"_s);
        view.select(5, 5);
        QKeyEvent press(QEvent::KeyPress, Qt::Key_Left, Qt::ControlModifier | Qt::ShiftModifier);
        QCoreApplication::sendEvent(&view, &press);
        QCOMPARE(view.selectedText(), u"t"_s);
    }

    // Shift+Down takes whole lines, across the runs of a long paragraph; a drag selects from the
    // press to where the pointer is, into the next paragraph; a click takes the selection away.
    void selectsLinesAndDragsAcrossRuns()
    {
        TextRunView view;
        view.setWidth(400);
        view.reset(u"A sentence of a long first paragraph that wraps. "_s.repeated(40) +
                   u"\nA second paragraph."_s);
        const QStringList lines = view.lines();
        QVERIFY(lines.size() > 24);
        view.select(0, 0);
        for (int i = 0; i < 20; ++i) {
            QKeyEvent press(QEvent::KeyPress, Qt::Key_Down, Qt::ShiftModifier);
            QCoreApplication::sendEvent(&view, &press);
        }
        QCOMPARE(view.selectedText(), lines.mid(0, 20).join(QString()));

        const auto mouse = [&view](QEvent::Type type, QPointF at, Qt::MouseButtons buttons) {
            QMouseEvent event(type, at, at, Qt::LeftButton, buttons, {});
            QCoreApplication::sendEvent(&view, &event);
        };
        const QPointF from(30, 5), to(60, view.implicitHeight() - 5);
        const int start = view.positionAt(from.x(), from.y());
        const int end = view.positionAt(to.x(), to.y());
        QVERIFY(start > 0 && end > start + 40);
        mouse(QEvent::MouseButtonPress, from, Qt::LeftButton);
        mouse(QEvent::MouseMove, to, Qt::LeftButton);
        mouse(QEvent::MouseButtonRelease, to, Qt::NoButton);
        QCOMPARE(view.selectedText(), view.text().mid(start, end - start));
        mouse(QEvent::MouseButtonPress, from, Qt::LeftButton);
        mouse(QEvent::MouseMove, to, Qt::NoButton);
        QCOMPARE(view.selectedText(), QString());
    }

    // A press above the text selects from its start, below it to its end.
    void positionsOutsideTheText()
    {
        TextRunView view;
        view.setWidth(400);
        QCOMPARE(view.positionAt(50, 5), 0);
        view.reset(u"first line\nsecond line"_s);
        QCOMPARE(view.positionAt(50, -5), 0);
        QCOMPARE(view.positionAt(50, 100000), 22);
        QCOMPARE_GT(view.positionAt(50, 1), 0);
    }
};

QTEST_MAIN(TestTextRunView)
#include "tst_textrunview.moc"
