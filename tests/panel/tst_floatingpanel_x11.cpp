// The panel under a real X server with a real window manager (openbox) and, for part of the
// test, a real compositing manager (xcompmgr). Clicks go through XTest (xdotool); the window's
// properties are read as another application reads them (xprop, xwininfo).
#include "DesktopSession.h"
#include "PanelFixture.h"

#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QtQml/qqmlextensionplugin.h>

#include <algorithm>

Q_IMPORT_QML_PLUGIN(RaveloPlugin)

namespace {

QString output(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    process.waitForFinished();
    return QString::fromUtf8(process.readAllStandardOutput());
}

// A property of the window, or of the root window for 0, as xprop prints it.
QString xprop(WId window, const char* name)
{
    return output(
        QStringLiteral("xprop"),
        window ? QStringList{QStringLiteral("-id"), QString::number(window), QLatin1String(name)}
               : QStringList{QStringLiteral("-root"), QLatin1String(name)});
}

// The windows of a root window property, as xprop prints their ids.
QStringList rootWindows(const char* name)
{
    return xprop(0, name).section(u'#', 1).simplified().split(QStringLiteral(", "));
}

QString hex(WId window)
{
    return QStringLiteral("0x%1").arg(window, 0, 16);
}

// Another application's window that counts the clicks it hears.
class ClickCounter : public QWindow {
public:
    int clicks = 0;

protected:
    void mousePressEvent(QMouseEvent*) override { ++clicks; }
};

// What the renderer drew: the card opaque in its own colour and, with the shadows, a margin
// that is transparent far from the card and holds more shadow below it than above.
QString drawingFault(const QImage& image, const QRect& card, bool shadows)
{
    const QColor inside = image.pixelColor(card.center().x(), card.top() + 14);
    if (inside.alpha() != 255 || qAbs(inside.red() - 62) > 2 || qAbs(inside.blue() - 64) > 2) {
        return QStringLiteral("card drawn as %1").arg(inside.name(QColor::HexArgb));
    }
    if (!shadows) {
        return {};
    }
    const int corner = image.pixelColor(2, 2).alpha();
    const int above = image.pixelColor(card.left() + 100, card.top() - 40).alpha();
    const int below = image.pixelColor(card.left() + 100, card.bottom() + 40).alpha();
    return corner > 2 || below < 20 || below < above + 10
               ? QString::asprintf("alpha: corner %d, above %d, below %d", corner, above, below)
               : QString();
}

// The bounds of the pixels that differ between the two pictures.
QRect changedArea(const QImage& before, const QImage& after)
{
    const QImage a = before.convertToFormat(QImage::Format_ARGB32);
    const QImage b = after.convertToFormat(QImage::Format_ARGB32);
    QRect changed;
    for (int y = 0; y < a.height(); ++y) {
        for (int x = 0; x < a.width(); ++x) {
            if (a.pixel(x, y) != b.pixel(x, y)) {
                changed |= QRect(x, y, 1, 1);
            }
        }
    }
    return changed;
}

// Real clicks at a point of the screen: button 1, or the wheel (4 up, 5 down), `times` times.
bool pointer(const QPoint& at, int button, int times = 1)
{
    return DesktopSession::xdotool({QStringLiteral("mousemove"), QString::number(at.x()),
                                    QString::number(at.y()), QStringLiteral("click"),
                                    QStringLiteral("--repeat"), QString::number(times),
                                    QString::number(button)});
}

} // namespace

class TestFloatingPanelX11 : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QCOMPARE(QGuiApplication::platformName(), QStringLiteral("xcb"));
        QVERIFY(!QStandardPaths::findExecutable(QStringLiteral("xcompmgr")).isEmpty());
        QVERIFY(m_desktop.startWindowManager());
        m_compositor.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    }
    void cleanupTestCase() { stopCompositor(); }
    void init()
    {
        f = std::make_unique<PanelFixture>();
        f->state->setClipboardText(QStringLiteral("Copied elsewhere"));
    }
    void cleanup() { f.reset(); }
    void isAFloatingPanelOnEveryWorkspaceBehindPreferences()
    {
        QVERIFY(f->showAndFocus());
        const WId window = f->panel->winId();
        QVERIFY(xprop(window, "_NET_WM_NAME").contains(QStringLiteral("\"Ravelo\"")));
        // Openbox keeps "on every desktop" in _NET_WM_DESKTOP alone and drops the sticky state.
        for (const char* state :
             {"_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER", "_NET_WM_STATE_ABOVE"}) {
            QVERIFY2(hasState(state), state);
        }
        QVERIFY(xprop(window, "_NET_WM_DESKTOP").contains(QStringLiteral("= 4294967295")));
        QVERIFY(xprop(window, "_NET_WM_WINDOW_TYPE").contains(QStringLiteral("_UTILITY")));

        // The preferences come over the panel; the next trigger puts the panel above them again.
        QWindow preferences;
        preferences.resize(400, 300);
        f->panel->stepBack();
        preferences.show();
        preferences.requestActivate();
        QVERIFY(QTest::qWaitForWindowExposed(&preferences));
        const auto over = [&] {
            const QStringList order = rootWindows("_NET_CLIENT_LIST_STACKING");
            return order.indexOf(hex(preferences.winId())) > order.indexOf(hex(window));
        };
        QTRY_VERIFY(over());
        QTRY_VERIFY(!hasState("_NET_WM_STATE_ABOVE"));
        QVERIFY(f->showAndFocus());
        QTRY_VERIFY(!over());
        QVERIFY(hasState("_NET_WM_STATE_ABOVE"));

        // Closed and shown again, it is marked the same way.
        f->panel->close();
        QTRY_VERIFY(!hasState("_NET_WM_STATE_SKIP_PAGER"));
        QVERIFY(f->showAndFocus());
        QTRY_VERIFY(hasState("_NET_WM_STATE_SKIP_TASKBAR") && hasState("_NET_WM_STATE_SKIP_PAGER"));
    }
    void shadowMarginFollowsTheCompositorAndLetsClicksThrough()
    {
        QVERIFY(f->showAndFocus());
        QVERIFY(!f->panel->hasShadowMargin());
        QCOMPARE(f->panel->width(), 544);
        // Without a compositor the window is cut to the card: its rounded corners are outside.
        QVERIFY(!f->panel->mask().contains(QPoint(2, 2)));
        QVERIFY(f->panel->mask().contains(QPoint(272, 100)));
        // Translucent windows need a visual with alpha, whichever renderer draws them.
        QVERIFY(output(QStringLiteral("xwininfo"),
                       {QStringLiteral("-id"), QString::number(f->panel->winId())})
                    .contains(QStringLiteral("Depth: 32")));
        QTRY_COMPARE(
            drawingFault(f->panel->grabWindow(), f->panel->cardGeometry().toAlignedRect(), false),
            QString());
        const QPoint cardOnScreen =
            f->panel->mapToGlobal(f->panel->cardGeometry().topLeft().toPoint());

        m_compositor.start(QStringLiteral("xcompmgr"), QStringList());
        QTRY_VERIFY_WITH_TIMEOUT(f->panel->hasShadowMargin(), 5000);
        QTRY_COMPARE(f->panel->width(), 544 + 2 * FloatingPanel::shadowMargin);
        QVERIFY(f->panel->mask().isEmpty());
        QCOMPARE(f->panel->cardGeometry().topLeft(),
                 QPointF(FloatingPanel::shadowMargin, FloatingPanel::shadowMargin));
        QTRY_COMPARE(f->panel->mapToGlobal(f->panel->cardGeometry().topLeft().toPoint()),
                     cardOnScreen);
        QTRY_COMPARE(
            drawingFault(f->panel->grabWindow(), f->panel->cardGeometry().toAlignedRect(), true),
            QString());

        // A window under the panel's left margin hears the clicks there; the card keeps its own.
        const QRect card(cardOnScreen, f->panel->cardGeometry().size().toSize());
        ClickCounter below;
        below.setFlags(Qt::X11BypassWindowManagerHint | Qt::FramelessWindowHint);
        below.setGeometry(card.left() - 150, card.top(), 140, 200);
        QVERIFY(f->panel->geometry().contains(below.geometry()));
        below.show();
        below.lower();
        QVERIFY(QTest::qWaitForWindowExposed(&below));
        QVERIFY(pointer(below.geometry().center(), 1));
        QTRY_COMPARE(below.clicks, 1);
        QSignalSpy closing(f->panel.get(), &FloatingPanel::closeRequested);
        QVERIFY(pointer(onScreen("closeButton"), 1));
        QTRY_COMPARE(closing.count(), 1);
        QCOMPARE(below.clicks, 1);

        stopCompositor();
        QTRY_VERIFY_WITH_TIMEOUT(!f->panel->hasShadowMargin(), 5000);
        QTRY_COMPARE(f->panel->width(), 544);
        QVERIFY(!f->panel->mask().isEmpty());
    }
    void cardGrowsInsideAStillWindow()
    {
        QVERIFY(f->showAndFocus());
        const QRect window = f->panel->geometry();
        QSignalSpy moved(f->panel.get(), &QWindow::yChanged);
        QSignalSpy resized(f->panel.get(), &QWindow::heightChanged);
        const qreal cardTop = f->panel->cardGeometry().top();

        f->state->setClipboardText(QStringLiteral("A long line of copied text. ").repeated(40));
        QTRY_COMPARE(f->item("clipboardBox")->height(), 250.0);
        QTRY_COMPARE(f->item("answerBox")->height(), 250.0);
        f->state->setClipboardText(QStringLiteral("short"));
        QTRY_VERIFY(f->item("clipboardBox")->height() < 80);
        QTRY_COMPARE(f->item("answerBox")->height(), 80.0);
        // The card's top edge stays; neither the native window nor its place changed once.
        QCOMPARE(f->panel->cardGeometry().top(), cardTop);
        QCOMPARE(resized.count(), 0);
        QCOMPARE(moved.count(), 0);
        QCOMPARE(f->panel->geometry(), window);
    }
    void stripStartsAtItsFirstChipAndTurnsWithTheWheel()
    {
        QList<Prompt> prompts = f->state->prompts();
        for (int n = 4; n < 10; ++n) {
            prompts << Prompt::create(n, QStringLiteral("Prompt number %1").arg(n), QString());
        }
        f->state->setPrompts(prompts);
        QVERIFY(f->showAndFocus());
        QQuickItem* strip = f->item("promptStrip");
        QTRY_COMPARE(strip->property("contentX").toReal(), 0.0);

        QVERIFY(pointer(onScreen("promptStrip"), 5));
        QTRY_VERIFY(strip->property("contentX").toReal() > 0);
        QVERIFY(pointer(onScreen("promptStrip"), 5, 20));
        const qreal end = strip->property("contentWidth").toReal() - strip->width();
        QTRY_COMPARE(strip->property("contentX").toReal(), end);
        QVERIFY(pointer(onScreen("promptStrip"), 4));
        QTRY_VERIFY(strip->property("contentX").toReal() < end);

        f->panel->close();
        QVERIFY(f->showAndFocus());
        QCOMPARE(strip->property("contentX").toReal(), 0.0);
    }
    void answerFollowsTheStreamUntilScrolledUp()
    {
        QVERIFY(f->showAndFocus());
        QQuickItem* flick = f->item("answerFlick");
        const auto atEnd = [flick] {
            const qreal end = flick->property("contentHeight").toReal() - flick->height();
            return end > 0 && qAbs(flick->property("contentY").toReal() - end) < 1;
        };
        const auto append = [this](int from, int to) {
            for (int i = from; i <= to; ++i) {
                f->state->appendResultText(QStringLiteral("Answer line %1\n").arg(i));
            }
        };
        f->state->setIsLoading(true);
        append(1, 40);
        QTRY_VERIFY(atEnd());

        // The user scrolls up: the box stays where the user put it while more arrives.
        QVERIFY(pointer(onScreen("answerBox"), 4, 3));
        QTRY_VERIFY(!atEnd() && !flick->property("moving").toBool());
        const qreal kept = flick->property("contentY").toReal();
        const qreal grown = flick->property("contentHeight").toReal();
        append(41, 60);
        QTRY_VERIFY(flick->property("contentHeight").toReal() > grown + 400);
        QCOMPARE(flick->property("contentY").toReal(), kept);

        // Back at the end, it follows again.
        QTRY_VERIFY_WITH_TIMEOUT(pointer(onScreen("answerBox"), 5, 10) && atEnd(), 20000);
        QTRY_VERIFY(!flick->property("moving").toBool());
        const qreal before = flick->property("contentHeight").toReal();
        append(61, 80);
        QTRY_VERIFY(flick->property("contentHeight").toReal() > before + 400 && atEnd());
        f->state->setIsLoading(false);
    }
    void textIsDrawnInsideItsBox_data()
    {
        QTest::addColumn<bool>("shownBefore");
        QTest::addColumn<int>("lines");
        QTest::newRow("first show") << false << 3;
        QTest::newRow("shown again") << true << 3;
        QTest::newRow("long answer, scrolled to its end") << true << 60;
    }
    // Text arriving after the panel's first frame changes the pixels of its own box and nowhere
    // else, however the panel was shown before.
    void textIsDrawnInsideItsBox()
    {
        QFETCH(bool, shownBefore);
        QFETCH(int, lines);
        QCOMPARE(f->panel->devicePixelRatio(), 1.0);
        if (shownBefore) {
            QVERIFY(f->showAndFocus());
            f->state->appendResultText(QStringLiteral("An earlier answer"));
            QTRY_COMPARE(f->item("answerText")->property("text").toString(),
                         QStringLiteral("An earlier answer"));
            f->panel->close();
            QTRY_VERIFY(!f->panel->isVisible());
            f->state->setResultText(QString());
            // Copied anew while the panel is hidden, as long as before.
            f->state->setClipboardText(QStringLiteral("Copied otherwise"));
        }
        QVERIFY(f->showAndFocus());
        QTRY_COMPARE(f->item("clipboardBox")->height(),
                     f->item("clipboardBox")->property("measuredHeight").toReal());
        const QImage shown = f->panel->grabWindow();

        f->state->setClipboardText(QStringLiteral("Copied somewhere"));
        const auto drawnInside = [this](const QImage& before, const QRect& box) {
            const QRect changed = changedArea(before, f->panel->grabWindow());
            return !changed.isEmpty() && box.contains(changed);
        };
        QTRY_VERIFY(drawnInside(shown, f->sceneRect("clipboardBox")));
        const QImage copied = f->panel->grabWindow();

        QQuickItem* flick = f->item("answerFlick");
        for (int i = 1; i <= lines; ++i) {
            f->state->appendResultText(QStringLiteral("Answer line %1\n").arg(i));
        }
        QTRY_COMPARE(flick->property("contentY").toReal(),
                     std::max(0.0, flick->property("contentHeight").toReal() - flick->height()));
        QVERIFY(drawnInside(copied, f->sceneRect("answerBox") | f->sceneRect("copyButton")));
    }

private:
    QPoint onScreen(const char* name) const
    {
        return f->panel->mapToGlobal(f->sceneRect(name).center());
    }
    bool hasState(const char* state) const
    {
        return xprop(f->panel->winId(), "_NET_WM_STATE").contains(QLatin1String(state));
    }
    void stopCompositor()
    {
        m_compositor.terminate();
        m_compositor.waitForFinished(3000);
    }

    DesktopSession m_desktop;
    QProcess m_compositor;
    std::unique_ptr<PanelFixture> f;
};

QTEST_MAIN(TestFloatingPanelX11)
#include "tst_floatingpanel_x11.moc"
