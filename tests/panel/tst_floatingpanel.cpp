#include "DesktopSession.h"
#include "PanelFixture.h"
#include "model/Translations.h"

#include <QClipboard>
#include <QDir>
#include <QGuiApplication>
#include <QPainter>
#include <QScreen>
#include <QSignalSpy>
#include <QTextLayout>
#include <QtQml/qqmlextensionplugin.h>

Q_IMPORT_QML_PLUGIN(RaveloPlugin)

namespace {

const QColor panelBackground = QColor::fromRgbF(0.243f, 0.247f, 0.251f);

bool near(QColor a, const QColor& b)
{
    return qAbs(a.red() - b.red()) <= 3 && qAbs(a.green() - b.green()) <= 3 &&
           qAbs(a.blue() - b.blue()) <= 3;
}

// How many pixels of `area` have about that colour, or, without one, are light as text is.
int count(const QImage& image, const QRect& area, const QColor& colour = {})
{
    int n = 0;
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x) {
            const QColor pixel = image.pixelColor(x, y);
            n += (colour.isValid() ? near(pixel, colour) : pixel.lightness() > 160) ? 1 : 0;
        }
    }
    return n;
}

} // namespace

class TestFloatingPanel : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        // The counts read as in the application, with the English catalogue's plural forms.
        QCOMPARE(ravelo::installTranslations(*QCoreApplication::instance()), QStringLiteral("en"));
    }
    void init()
    {
        f = std::make_unique<PanelFixture>();
        m_events.clear();
        m_escConsumes = false;
        f->panel->onNumberKeyPressed = [this](int n) {
            m_events << QStringLiteral("number %1").arg(n);
        };
        f->panel->onCopyResultAndClose = [this] { m_events << QStringLiteral("copy"); };
        f->panel->onPasteResultAndClose = [this] { m_events << QStringLiteral("paste"); };
        f->panel->onEnterPressed = [this] { m_events << QStringLiteral("enter"); };
        f->panel->onEscPressed = [this] {
            m_events << QStringLiteral("esc");
            return m_escConsumes;
        };
        f->state->setClipboardText(QStringLiteral("Some copied text"));
        QVERIFY(f->showAndFocus());
    }
    void cleanup() { f.reset(); }
    void routesKeys_data()
    {
        QTest::addColumn<QString>("focus");
        QTest::addColumn<int>("key");
        QTest::addColumn<int>("modifiers");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("outcome");
        const auto row = [](const char* name, const char* focus, int key, int modifiers,
                            const char* text, const char* outcome) {
            QTest::newRow(name) << QString::fromLatin1(focus) << key << modifiers
                                << QString::fromLatin1(text) << QString::fromLatin1(outcome);
        };
        const int ctrl = Qt::ControlModifier, shift = Qt::ShiftModifier, alt = Qt::AltModifier,
                  super = Qt::MetaModifier, keypad = Qt::KeypadModifier;
        row("Esc closes", "content", Qt::Key_Escape, 0, "", "esc+closed");
        row("Esc kept by the owner", "content+keep", Qt::Key_Escape, 0, "", "esc");
        row("Esc while editing", "field", Qt::Key_Escape, 0, "", "nothing");
        row("Ctrl+C", "content", Qt::Key_C, ctrl, "", "copy");
        row("Ctrl+C editing, nothing selected", "field", Qt::Key_C, ctrl, "", "copy");
        row("Ctrl+C, field text selected", "field+selection", Qt::Key_C, ctrl, "", "nothing");
        row("Ctrl+C, answer selected", "answer+selection", Qt::Key_C, ctrl, "", "nothing");
        row("Ctrl+C in the answer", "answer", Qt::Key_C, ctrl, "", "copy");
        row("Ctrl+Super+C", "content", Qt::Key_C, ctrl | super, "", "copy");
        row("Ctrl+Shift+C", "content", Qt::Key_C, ctrl | shift, "", "nothing");
        row("Ctrl+Alt+C", "content", Qt::Key_C, ctrl | alt, "", "nothing");
        row("Ctrl+V", "content", Qt::Key_V, ctrl, "", "paste");
        row("Ctrl+V in the answer", "answer+selection", Qt::Key_V, ctrl, "", "paste");
        row("Ctrl+V while editing", "field", Qt::Key_V, ctrl, "", "nothing");
        row("Ctrl+Shift+V", "content", Qt::Key_V, ctrl | shift, "", "nothing");
        row("C alone", "content", Qt::Key_C, 0, "c", "nothing");
        row("Return", "content", Qt::Key_Return, 0, "\r", "enter");
        row("keypad Enter", "content", Qt::Key_Enter, keypad, "\r", "enter");
        row("Ctrl+Return", "content", Qt::Key_Return, ctrl, "", "enter");
        row("Return while editing", "field", Qt::Key_Return, 0, "\r", "nothing");
        row("3", "content", Qt::Key_3, 0, "3", "number 3");
        row("3, answer focused", "answer", Qt::Key_3, 0, "3", "number 3");
        row("keypad 7", "content", Qt::Key_7, keypad, "7", "number 7");
        row("9", "content", Qt::Key_9, 0, "9", "number 9");
        row("Shift gives a digit", "content", Qt::Key_Ampersand, shift, "1", "number 1");
        row("Shift+3 typing #", "content", Qt::Key_NumberSign, shift, "#", "nothing");
        row("0", "content", Qt::Key_0, 0, "0", "nothing");
        row("Alt+3", "content", Qt::Key_3, alt, "3", "nothing");
        row("Ctrl+3", "content", Qt::Key_3, ctrl, "3", "nothing");
        row("Super+3", "content", Qt::Key_3, super, "3", "nothing");
        row("3 while editing", "field", Qt::Key_3, 0, "3", "nothing");
    }
    void routesKeys()
    {
        QFETCH(QString, focus);
        QFETCH(int, key);
        QFETCH(int, modifiers);
        QFETCH(QString, text);
        QFETCH(QString, outcome);

        m_escConsumes = focus.endsWith(u"+keep");
        if (focus.startsWith(u"field")) {
            f->state->setShowCustomPromptInput(true);
            f->state->setCustomPromptText(QStringLiteral("typed"));
            QTRY_VERIFY(f->item("customField")->hasActiveFocus());
            if (focus.endsWith(u"+selection")) {
                QMetaObject::invokeMethod(f->item("customField"), "selectAll");
            }
        } else if (focus.startsWith(u"answer")) {
            f->state->setResultText(QStringLiteral("An answer"));
            f->item("answerText")->forceActiveFocus();
            QVERIFY(f->item("answerText")->hasActiveFocus());
            if (focus.endsWith(u"+selection")) {
                QMetaObject::invokeMethod(f->item("answerText"), "selectAll");
            }
        }

        const QKeyEvent event(QEvent::KeyPress, key, Qt::KeyboardModifiers(modifiers), text);
        QCOMPARE(f->panel->routeKeyDown(event), outcome != u"nothing");

        QStringList happened = m_events;
        if (!f->panel->isVisible()) {
            happened << QStringLiteral("closed");
        }
        QCOMPARE(happened.isEmpty() ? QStringLiteral("nothing") : happened.join(u'+'), outcome);
        if (outcome == u"enter" || outcome.startsWith(u"number")) {
            // The key takes the focus from any text: nothing is being edited or selected.
            QQuickItem* focused = f->panel->activeFocusItem();
            QVERIFY(focused == f->panel->contentItem() || focused == f->panel->view());
        }
    }
    // Digits type into the field; Esc leaves it, dropping the draft, and digits run prompts again.
    void editsAndDismissesTheCustomField()
    {
        f->state->setShowCustomPromptInput(true);
        QTRY_VERIFY(f->item("customField")->hasActiveFocus());
        QTest::keyClick(f->panel.get(), Qt::Key_4);
        QTest::keyClick(f->panel.get(), Qt::Key_2);
        QCOMPARE(f->state->customPromptText(), QStringLiteral("42"));
        QTest::keyClick(f->panel.get(), Qt::Key_Escape);
        QVERIFY(!f->state->showCustomPromptInput());
        QCOMPARE(f->state->customPromptText(), QString());
        QVERIFY(f->panel->isVisible() && f->item("promptStrip")->isVisible());
        QTest::keyClick(f->panel.get(), Qt::Key_5);
        QCOMPARE(m_events, QStringList{QStringLiteral("number 5")});
    }
    // Where the answer could only be copied, the panel says so for a moment, ignoring the keys
    // meant for it, then closes; the next show starts without the notice.
    void copiedNoticeShowsThenCloses()
    {
        f->state->setResultText(QStringLiteral("An answer"));
        QQuickItem* notice = f->item("copiedNotice");
        QVERIFY(!notice->isVisible());
        QSignalSpy closed(f->panel.get(), &FloatingPanel::closed);
        f->panel->closeAfterCopiedNotice();
        QVERIFY(notice->isVisible());
        QVERIFY(
            DesktopSession::findItemWithText(notice, QStringLiteral("Copied \u2014 press Ctrl+V")));
        QCOMPARE(f->item("copyButton")->opacity(), 0.0);
        QVERIFY(f->panel->routeKeyDown(
            QKeyEvent(QEvent::KeyPress, Qt::Key_2, {}, QStringLiteral("2"))));
        QVERIFY(
            f->panel->routeKeyDown(QKeyEvent(QEvent::KeyPress, Qt::Key_V, Qt::ControlModifier)));
        QVERIFY(m_events.isEmpty() && f->panel->isVisible());
        QVERIFY(closed.wait(int(2 * FloatingPanel::noticeDuration.count())));
        QVERIFY(!f->panel->isVisible());

        QVERIFY(f->showAndFocus());
        QVERIFY(!notice->isVisible());
        QCOMPARE(f->item("copyButton")->opacity(), 1.0);
        f->panel->closeAfterCopiedNotice();
        QVERIFY(f->panel->routeKeyDown(QKeyEvent(QEvent::KeyPress, Qt::Key_Escape, {})));
        QCOMPARE(closed.count(), 2);
    }
    void placesAboveTheMiddleOfTheScreenAtEachShow()
    {
        // A text taller than the last one: the panel is placed by the height it is about to take.
        f->panel->close();
        f->state->setClipboardText(QStringLiteral("A line of copied text\n").repeated(4));
        // Its first frame shows it at that height, and the window is cut to that card: the
        // clipboard box eases to a new height only while the panel is seen.
        f->panel->centerAndShow();
        QCOMPARE(f->item("clipboardBox")->height(),
                 f->item("clipboardBox")->property("measuredHeight").toReal());
        QVERIFY(qAbs(f->panel->inputRegion().boundingRect().height() -
                     f->panel->view()->property("settledHeight").toReal()) <= 1);
        QVERIFY(f->showAndFocus());
        const QRect window = f->panel->geometry();
        const QRect area = f->panel->screen()->availableGeometry();
        const QRect panel = f->panel->inputRegion().boundingRect().translated(window.topLeft());
        QVERIFY(qAbs(panel.center().x() - area.center().x()) <= 1);
        QVERIFY(qAbs(panel.top() + panel.height() / 2.0 - (area.y() + area.height() / 2.0 - 100)) <=
                1);
        QCOMPARE(f->panel->geometry(), window);
        // The card and its buttons sit in the middle of the shadow margin, which is cut short
        // above when the card is close to the top of the screen.
        const QRectF card = f->panel->cardGeometry();
        QCOMPARE(card.left(), qreal(FloatingPanel::shadowMargin));
        QCOMPARE(card.top(),
                 std::min<qreal>(FloatingPanel::shadowMargin, panel.top() - area.top()));
        QCOMPARE(card.width(), 544.0);

        // Moved, closed with Esc and shown again, it is placed anew.
        QSignalSpy closed(f->panel.get(), &FloatingPanel::closed);
        f->panel->setPosition(window.topLeft() + QPoint(37, 55));
        QTest::keyClick(f->panel.get(), Qt::Key_Escape);
        QCOMPARE(closed.count(), 1);
        QVERIFY(f->showAndFocus());
        QCOMPARE(f->panel->geometry(), window);
        QTest::keyClick(f->panel.get(), Qt::Key_2);
        QCOMPARE(m_events, (QStringList{QStringLiteral("esc"), QStringLiteral("number 2")}));
    }
    void showsTheStartOfALongCopy_data()
    {
        QTest::addColumn<QString>("copied");
        QTest::addColumn<QString>("shown");
        QTest::addColumn<QString>("more");
        QTest::newRow("short") << QStringLiteral("Short") << QStringLiteral("Short") << QString();
        const QString letters = QString(20'000'000, u'x');
        QTest::newRow("20 MB") << letters << letters.left(4000)
                               << QStringLiteral("\u2026 and 19,996,000 more characters");
        const QString lines = QStringLiteral("line\n").repeated(300);
        QTest::newRow("300 lines")
            << lines << lines.left(199 * 5 + 4) << QStringLiteral("\u2026 and 501 more characters");
        // An emoji across the cut is left out whole.
        const QString emoji = QString(3999, u'a') + QStringLiteral("\U0001F600b");
        QTest::newRow("surrogate pair at the cut")
            << emoji << emoji.left(3999) << QStringLiteral("\u2026 and 3 more characters");
        QTest::newRow("one more") << QString(4001, u'z') << QString(4000, u'z')
                                  << QStringLiteral("\u2026 and 1 more character");
    }
    void showsTheStartOfALongCopy()
    {
        QFETCH(QString, copied);
        QFETCH(QString, shown);
        QFETCH(QString, more);
        f->state->setClipboardText(copied);
        QCOMPARE(f->state->clipboardText().size(), copied.size());
        QCOMPARE(f->item("clipboardText")->property("text").toString(), shown);
        QQuickItem* moreLine = f->item("clipboardMore");
        QCOMPARE(moreLine->isVisible() ? moreLine->property("text").toString() : QString(), more);
    }
    void cutOffTextShowsItsScrollIndicator()
    {
        const auto indicator = [this](const char* box) {
            QQuickItem* bar = nullptr;
            for (auto* item : f->item(box)->findChildren<QQuickItem*>()) {
                if (item->inherits("QQuickScrollBar")) {
                    bar = item;
                }
            }
            auto* handle = bar ? bar->property("contentItem").value<QQuickItem*>() : nullptr;
            return handle && bar->isVisible() && handle->isVisible() && handle->opacity() > 0 &&
                   handle->height() > 0;
        };
        QTRY_COMPARE(f->item("clipboardBox")->height(),
                     f->item("clipboardBox")->property("measuredHeight").toReal());
        QVERIFY(!indicator("clipboardBox"));
        QVERIFY(!indicator("answerBox"));
        f->state->setClipboardText(QStringLiteral("A line of copied text\n").repeated(30));
        f->state->setResultText(QStringLiteral("A line of the answer\n").repeated(30));
        QTRY_COMPARE(f->item("clipboardBox")->height(), 250.0);
        QTRY_VERIFY(indicator("clipboardBox"));
        QTRY_VERIFY(indicator("answerBox"));
    }
    void forwardsTheViewsChoices()
    {
        QSignalSpy selected(f->panel.get(), &FloatingPanel::promptSelected);
        QSignalSpy closing(f->panel.get(), &FloatingPanel::closeRequested);
        QSignalSpy preferences(f->panel.get(), &FloatingPanel::openPreferencesRequested);
        QList<Prompt> prompts{Prompt::create(7, QStringLiteral("Seven"), QStringLiteral("s7")),
                              Prompt::create(2, QStringLiteral("Two"), QStringLiteral("s2"))};
        f->state->setPrompts(prompts);
        QQuickItem* second = nullptr;
        for (QQuickItem* item : f->item("customPromptTag")->parentItem()->childItems()) {
            if (item->objectName() == u"promptChip" && item->property("badge").toString() == u"2") {
                second = item;
            }
        }
        QVERIFY(second);
        QCOMPARE(second->property("tip").toString(), QStringLiteral("Press 2 \u2014 Two"));
        QTest::mouseClick(f->panel.get(), Qt::LeftButton, {},
                          second->mapToScene(QPointF(second->width() / 2, 16)).toPoint());
        QCOMPARE(selected.count(), 1);
        QCOMPARE(selected.at(0).at(0).value<Prompt>(), prompts.at(1));

        click("customPromptTag");
        QVERIFY(f->state->showCustomPromptInput());

        click("closeButton");
        QCOMPARE(closing.count(), 1);
        click("preferencesButton");
        QCOMPARE(preferences.count(), 1);
        QVERIFY(f->panel->isVisible());
    }
    void submitsTrimmedCustomPrompts_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<bool>("bySendButton");
        QTest::addColumn<QString>("submitted");

        QTest::newRow("spaces and newlines around") << QStringLiteral(" \n Make it formal \t\n")
                                                    << false << QStringLiteral("Make it formal");
        QTest::newRow("send button")
            << QStringLiteral("  Rhymes ") << true << QStringLiteral("Rhymes");
        QTest::newRow("blank") << QStringLiteral(" \n\t ") << false << QString();
        QTest::newRow("blank by send button") << QStringLiteral("   ") << true << QString();
    }
    void submitsTrimmedCustomPrompts()
    {
        QFETCH(QString, typed);
        QFETCH(bool, bySendButton);
        QFETCH(QString, submitted);

        QSignalSpy spy(f->panel.get(), &FloatingPanel::customPromptSubmitted);
        f->state->setShowCustomPromptInput(true);
        f->state->setCustomPromptText(typed);
        QTRY_VERIFY(f->item("customField")->hasActiveFocus());
        if (bySendButton) {
            click("sendButton");
        } else {
            QTest::keyClick(f->panel.get(), Qt::Key_Return);
        }
        QVERIFY(m_events.isEmpty());
        const bool blank = submitted.isEmpty();
        QCOMPARE(QList<QVariantList>(spy),
                 blank ? QList<QVariantList>() : QList<QVariantList>{{submitted}});
        QCOMPARE(f->state->showCustomPromptInput(), blank);
        QCOMPARE(f->state->customPromptText(), blank ? typed : QString());
        QCOMPARE(f->item("customField")->hasActiveFocus(), blank);
    }
    void captionsDisappearAfterTenRuns()
    {
        QQuickItem* caption = f->item("outputCaption");
        QVERIFY(caption->isVisible());
        f->store->setInteger(Preferences::totalPromptsUsed, 9);
        QVERIFY(caption->isVisible());
        f->store->setInteger(Preferences::totalPromptsUsed, 10);
        QVERIFY(!caption->isVisible());
        QVERIFY(!f->item("saveButton")->isVisible());
        f->state->setLastCustomPromptText(QStringLiteral("Make it shorter"));
        QVERIFY(f->item("saveButton")->isVisible());
        click("saveButton");
        QCOMPARE(f->state->lastCustomPromptText(), std::nullopt);
        QCOMPARE(f->state->prompts().last().systemPrompt, QStringLiteral("Make it shorter"));
        QVERIFY(!f->item("saveButton")->isVisible());
    }
    void stripScrollsToTheCustomChip()
    {
        auto* strip = f->item("promptStrip");
        QCOMPARE(strip->property("contentX").toReal(), 0.0);
        QList<Prompt> prompts = f->state->prompts();
        for (int n = 4; n < 10; ++n) {
            prompts << Prompt::create(n, QStringLiteral("Prompt number %1").arg(n), QString());
        }
        f->state->setPrompts(prompts);
        QQuickItem* chip = f->item("customPromptTag");
        QTRY_COMPARE(strip->property("contentX").toReal() + strip->width(),
                     chip->x() + chip->width());
    }
    void streamsALongAnswer()
    {
        QQuickItem* edit = f->item("answerText");
        QQuickItem* button = f->item("copyButton");
        QVERIFY(button->opacity() == 0 && !button->isEnabled());
        const QPointF place = button->mapToScene(QPointF());
        f->state->setIsLoading(true);
        QVERIFY(f->item("thinking")->isVisible());
        const QString first = streamAnswer(20);
        QVERIFY(!f->item("thinking")->isVisible());
        // The copy button shows with the first fragment, where it will stay.
        QCOMPARE(button->opacity(), 1.0);
        QCOMPARE(button->mapToScene(QPointF()), place);
        QTRY_COMPARE(answerText(), first);
        click("copyButton");
        QCOMPARE(QGuiApplication::clipboard()->text(), first);
        QVERIFY(f->panel->isVisible());
        const qreal shortHeight = edit->height();

        const QString longer = first + streamAnswer(10000);
        QTRY_COMPARE(answerText(), longer);
        const QString expected = longer + streamAnswer(90000);
        QTRY_COMPARE(answerText(), expected);
        QTRY_VERIFY(edit->height() > 100 * shortHeight);
        // Only what the answer box shows is drawn, however long the answer.
        QTRY_VERIFY(drawnRuns(edit) >= 1 && drawnRuns(edit) <= 3);
        f->state->setIsLoading(false);

        // A selected part copies as shown, with its paragraph breaks.
        edit->forceActiveFocus();
        QMetaObject::invokeMethod(edit, "select", Q_ARG(int, 90000), Q_ARG(int, 91000));
        QTest::keyClick(f->panel.get(), Qt::Key_C, Qt::ControlModifier);
        QCOMPARE(QGuiApplication::clipboard()->text(), expected.mid(90000, 1000));
        QTest::keyClick(f->panel.get(), Qt::Key_A, Qt::ControlModifier);
        QTest::keyClick(f->panel.get(), Qt::Key_C, Qt::ControlModifier);
        QCOMPARE(QGuiApplication::clipboard()->text(), expected);
        QVERIFY(m_events.isEmpty());

        // Copied right after the last fragment, the answer is whole.
        f->state->setResultText(QString());
        const QString whole = streamAnswer(20000) + u"The end.";
        f->state->appendResultText(QStringLiteral("The end."));
        click("copyButton");
        QCOMPARE(QGuiApplication::clipboard()->text(), whole);
    }
    void fragmentsBeforeAReplacementNeverShow_data()
    {
        QTest::addColumn<int>("length");
        QTest::addColumn<QString>("replacement");
        QTest::newRow("short answer, cleared") << 30 << QString();
        QTest::newRow("short answer, error") << 30 << QStringLiteral("Error: Invalid API URL.");
        QTest::newRow("long answer, cleared") << 20000 << QString();
        QTest::newRow("long answer, error") << 20000 << QStringLiteral("Error: Invalid API URL.");
    }
    void fragmentsBeforeAReplacementNeverShow()
    {
        QFETCH(int, length);
        QFETCH(QString, replacement);
        f->state->setIsLoading(true);
        const QString shown = streamAnswer(length);
        QTRY_COMPARE(answerText(), shown);
        f->state->appendResultText(QStringLiteral(" and a last fragment"));
        f->state->setResultText(replacement);
        QCOMPARE(answerText(), replacement);
        QTest::qWait(50); // several frames and event loop passes
        QCOMPARE(answerText(), replacement);
        // The next answer starts from the replacement, not from the dropped fragment.
        f->state->appendResultText(QStringLiteral("Next"));
        QTRY_COMPARE(answerText(), replacement + u"Next");
    }
    void longParagraphStreamedShowsAsSetAtOnce()
    {
        // Words of every length and now and then one longer than a line, with no line break.
        QString paragraph;
        for (int i = 0; paragraph.size() < 8000; ++i) {
            const int length = i % 53 == 52 ? 70 : 1 + (i * 7) % 11;
            paragraph += QString(length, QChar(u'a' + i % 26)) + u' ';
        }
        f->state->setIsLoading(true);
        for (qsizetype at = 0, piece = 1; at < paragraph.size();
             at += piece, piece = piece % 13 + 1) {
            f->state->appendResultText(paragraph.mid(at, piece));
            if (at % 7 == 0) {
                QTest::qWait(1); // lets the view lay out and draw between some pieces
            }
        }
        f->state->setIsLoading(false);
        QQuickItem* text = f->item("answerText");
        QTRY_COMPARE(answerText(), paragraph);
        const QStringList streamed = lines(text);

        // The lines break where the paragraph laid out whole breaks them.
        QTextLayout whole(paragraph, text->property("font").value<QFont>());
        QTextOption option;
        option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
        whole.setTextOption(option);
        QStringList expected;
        whole.beginLayout();
        for (QTextLine line = whole.createLine(); line.isValid(); line = whole.createLine()) {
            line.setLineWidth(text->width());
            expected << paragraph.mid(line.textStart(), line.textLength());
        }
        whole.endLayout();
        QVERIFY(expected.size() > 100);
        QCOMPARE(streamed, expected);

        // Set at once, the answer shows the same lines and the same pixels.
        QTRY_VERIFY(drawnRuns(text) > 0);
        const QImage streamedImage = answerImage();
        f->state->setResultText(QString());
        f->state->setResultText(paragraph);
        QCOMPARE(lines(text), expected);
        QTRY_COMPARE(answerImage(), streamedImage);
    }
    void followsAnAnswerThatGrowsFrameByFrame()
    {
        // Fragments of a few characters, each shown in a frame of its own before the next, so
        // that the box grows by fractions of a pixel and lines at a time.
        QQuickItem* flick = f->item("answerFlick");
        f->state->setIsLoading(true);
        const QString sentence = QStringLiteral("A fragment arrives, then the next one. ");
        QSignalSpy frames(f->panel.get(), &QQuickWindow::frameSwapped);
        for (int i = 0; i < 150; ++i) {
            f->state->appendResultText(sentence.mid((i * 6) % sentence.size(), 6));
            frames.clear();
            QVERIFY(frames.wait());
        }
        f->state->setIsLoading(false);
        const auto end = [flick] {
            return flick->property("contentHeight").toReal() - flick->height();
        };
        QVERIFY(end() > 100);
        QTRY_VERIFY(qAbs(flick->property("contentY").toReal() - end()) < 1);
    }
    void drawsTheCardAndItsParts()
    {
        f->panel->close();
        f->state->setClipboardText(QStringLiteral(
            "The quarterly report is due on Friday. Please make sure all figures are checked twice "
            "and the summary fits on one page."));
        QVERIFY(f->showAndFocus());
        const QRect strip = f->sceneRect("promptStrip");
        const QColor chipBorder = QColor::fromRgbF(0.35f, 0.35f, 0.35f);
        // The chips' backgrounds are painted once the window's scene graph runs.
        QTRY_VERIFY(count(picture(), strip, chipBorder) > 100);
        QTRY_VERIFY(count(picture(), f->sceneRect("clipboardText")) > 200);
        const QImage image = picture("panel-prompts.png");
        const QRect card = f->panel->cardGeometry().toAlignedRect();
        QVERIFY(near(image.pixelColor(card.center().x(), card.top() + 14), panelBackground));
        // The margin around the card holds only its shadow.
        QVERIFY(!near(image.pixelColor(card.center().x(), card.top() - 60), panelBackground));
        QVERIFY(count(image, strip) > 100);

        f->state->setIsLoading(true);
        const QString answer = QStringLiteral(
            "Le rapport trimestriel est à rendre vendredi. Merci de vérifier deux fois tous les "
            "chiffres et de faire tenir le résumé sur une page.\n\nCe texte arrive par morceaux");
        const QRect answerBox = f->sceneRect("answerBox");
        const int placeholder = count(image, answerBox);
        for (qsizetype i = 0; i < answer.size(); i += 7) {
            f->state->appendResultText(answer.mid(i, 7));
        }
        QTRY_VERIFY(count(picture(), answerBox) > placeholder + 500);
        picture("panel-streaming.png");

        f->state->setShowCustomPromptInput(true);
        f->state->setCustomPromptText(QStringLiteral("Rewrite as a haiku"));
        f->state->setLastCustomPromptText(QStringLiteral("Make it shorter"));
        f->state->setResultText(QStringLiteral("Report due Friday; check figures twice."));
        QTRY_VERIFY(f->item("customPromptField")->isVisible());
        const QImage withField = picture("panel-custom.png");
        const QRect field = f->sceneRect("customPromptField");
        QVERIFY(count(withField, field, QColor::fromRgbF(0.22f, 0.22f, 0.23f)) >
                field.width() * field.height() / 2);
        QVERIFY(count(withField, f->sceneRect("customField")) > 100);
    }
    void drawsTheStripHairlineAtEveryHeight_data()
    {
        QTest::addColumn<qreal>("fraction");
        for (qreal fraction : {0.0, 0.25, 0.5, 0.75}) {
            QTest::addRow("%.2f", fraction) << fraction;
        }
    }
    // The clipboard box passes through fractional heights while it grows; the hairline under it is
    // drawn at each of them.
    void drawsTheStripHairlineAtEveryHeight()
    {
        QFETCH(qreal, fraction);
        QQuickItem* box = f->item("clipboardBox");
        QTRY_COMPARE(box->height(), box->property("measuredHeight").toReal());
        const qreal height = std::floor(box->height()) + 10 + fraction;
        box->setProperty("contentHeight", height);
        QTRY_COMPARE(box->height(), height);
        QTRY_COMPARE(f->item("stripHairline")->mapToScene(QPointF()).y(),
                     box->mapToScene(QPointF(0, height)).y() + 16 + 25);
        // Left of the chips, across where the hairline lies.
        const QRect strip = f->sceneRect("promptStrip");
        QCOMPARE(count(picture(), QRect(strip.left() + 8, strip.top() + 20, 10, 10),
                       QColor::fromRgbF(0.329f, 0.329f, 0.329f)),
                 10);
    }

private:
    // The window as drawn over a light backdrop, as on a desktop, so that the shadows show; kept
    // as `name` in $RAVELO_SCREENSHOT_DIR when that is set (the pictures under docs/).
    QImage picture(const char* name = nullptr) const
    {
        const QImage panel = f->panel->grabWindow();
        QImage image(panel.size(), QImage::Format_ARGB32_Premultiplied);
        image.fill(QColor(0xd8, 0xdc, 0xe0));
        QPainter(&image).drawImage(0, 0, panel);
        const QString dir = qEnvironmentVariable("RAVELO_SCREENSHOT_DIR");
        if (name && !dir.isEmpty() && QDir().mkpath(dir)) {
            image.save(QDir(dir).filePath(QLatin1String(name)));
        }
        return image;
    }
    // Streams an answer of at least `length` characters in small fragments, a new paragraph now
    // and then; returns the whole answer.
    QString streamAnswer(qsizetype length)
    {
        QString expected;
        const QString paragraph =
            QStringLiteral("Streaming text arrives in small pieces, and each piece is appended. ");
        int count = 0;
        while (expected.size() < length) {
            QString fragment = paragraph.mid(count % paragraph.size(), 5);
            if (++count % 40 == 0) {
                fragment += u'\n';
            }
            expected += fragment;
            f->state->appendResultText(fragment);
            if (count % 500 == 0) {
                QCoreApplication::processEvents(); // some fragments land between frames
            }
        }
        return expected;
    }
    QString answerText() const { return f->item("answerText")->property("text").toString(); }
    // The answer box as shown, without the scroll bar at its right edge.
    QImage answerImage() const
    {
        QQuickItem* box = f->item("answerBox");
        const QRectF rect = box->mapRectToScene(QRectF(0, 0, box->width() - 16, box->height()));
        const qreal ratio = f->panel->effectiveDevicePixelRatio();
        return f->panel->grabWindow().copy(
            QRectF(rect.topLeft() * ratio, rect.size() * ratio).toRect());
    }
    int drawnRuns(QQuickItem* text)
    {
        int runs = -1;
        QMetaObject::invokeMethod(text, "drawnRuns", Q_RETURN_ARG(int, runs));
        return runs;
    }
    QStringList lines(QQuickItem* text)
    {
        QStringList lines;
        QMetaObject::invokeMethod(text, "lines", Q_RETURN_ARG(QStringList, lines));
        return lines;
    }
    void click(const char* name)
    {
        QTest::mouseClick(f->panel.get(), Qt::LeftButton, {}, f->sceneRect(name).center());
    }

    std::unique_ptr<PanelFixture> f;
    QStringList m_events; // what the panel asked its owner to do, in order
    bool m_escConsumes = false;
};

QTEST_MAIN(TestFloatingPanel)
#include "tst_floatingpanel.moc"
