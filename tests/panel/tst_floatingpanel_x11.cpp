// The panel under a real X server with a real window manager (openbox) and, for part of the
// test, a real compositing manager (xcompmgr). Keys are typed through XTest (xdotool).
#include "PanelFixture.h"

#include <QClipboard>
#include <QHash>
#include <QProcess>
#include <QScreen>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QtQml/qqmlextensionplugin.h>

#include <xcb/xcb.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

Q_IMPORT_QML_PLUGIN(RaveloPlugin)

namespace {

// A connection of the test's own, standing for "another application".
class OtherClient {
public:
    OtherClient()
        : m_connection(xcb_connect(nullptr, nullptr))
    {
        m_root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
    }
    ~OtherClient() { xcb_disconnect(m_connection); }

    bool ok() const { return !xcb_connection_has_error(m_connection); }

    xcb_atom_t atom(const char* name)
    {
        auto* reply = xcb_intern_atom_reply(
            m_connection,
            xcb_intern_atom(m_connection, 0, static_cast<uint16_t>(std::strlen(name)), name),
            nullptr);
        const xcb_atom_t result = reply ? reply->atom : XCB_NONE;
        std::free(reply);
        return result;
    }

    QList<uint32_t> property(xcb_window_t window, const char* name, xcb_atom_t type)
    {
        auto* reply = xcb_get_property_reply(
            m_connection, xcb_get_property(m_connection, 0, window, atom(name), type, 0, 1024),
            nullptr);
        QList<uint32_t> values;
        if (reply && reply->format == 32) {
            const auto* data = static_cast<const uint32_t*>(xcb_get_property_value(reply));
            values = QList<uint32_t>(data, data + xcb_get_property_value_length(reply) / 4);
        }
        std::free(reply);
        return values;
    }

    QByteArray text(xcb_window_t window, const char* name)
    {
        auto* reply = xcb_get_property_reply(m_connection,
                                             xcb_get_property(m_connection, 0, window, atom(name),
                                                              XCB_GET_PROPERTY_TYPE_ANY, 0, 1024),
                                             nullptr);
        QByteArray value;
        if (reply) {
            value = QByteArray(static_cast<const char*>(xcb_get_property_value(reply)),
                               xcb_get_property_value_length(reply));
        }
        std::free(reply);
        return value;
    }

    xcb_window_t activeWindow()
    {
        const auto values = property(m_root, "_NET_ACTIVE_WINDOW", XCB_ATOM_WINDOW);
        return values.isEmpty() ? XCB_NONE : values.first();
    }

    uint8_t depth(xcb_window_t window)
    {
        auto* reply =
            xcb_get_geometry_reply(m_connection, xcb_get_geometry(m_connection, window), nullptr);
        const uint8_t result = reply ? reply->depth : 0;
        std::free(reply);
        return result;
    }

    bool hasWindowManager()
    {
        return !property(m_root, "_NET_SUPPORTING_WM_CHECK", XCB_ATOM_WINDOW).isEmpty();
    }

    xcb_window_t createWindow()
    {
        const xcb_window_t window = xcb_generate_id(m_connection);
        xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, window, m_root, 100, 100, 300, 200, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
        xcb_map_window(m_connection, window);
        xcb_flush(m_connection);
        return window;
    }

    // A window exactly there, unmanaged, below every other window, that hears its clicks.
    xcb_window_t createWindowBelowAll(const QRect& frame)
    {
        const xcb_window_t window = xcb_generate_id(m_connection);
        const uint32_t values[] = {1, XCB_EVENT_MASK_BUTTON_PRESS};
        xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, window, m_root, int16_t(frame.x()),
                          int16_t(frame.y()), uint16_t(frame.width()), uint16_t(frame.height()), 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                          XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values);
        xcb_map_window(m_connection, window);
        const uint32_t below = XCB_STACK_MODE_BELOW;
        xcb_configure_window(m_connection, window, XCB_CONFIG_WINDOW_STACK_MODE, &below);
        xcb_flush(m_connection);
        return window;
    }

    // How many button presses the window has heard so far.
    int clicks(xcb_window_t window)
    {
        while (xcb_generic_event_t* event = xcb_poll_for_event(m_connection)) {
            if ((event->response_type & 0x7f) == XCB_BUTTON_PRESS) {
                ++m_clicks[reinterpret_cast<xcb_button_press_event_t*>(event)->event];
            }
            std::free(event);
        }
        return m_clicks.value(window);
    }

    // Top-level windows from bottom to top, as the window manager stacks them.
    QList<uint32_t> stacking()
    {
        return property(m_root, "_NET_CLIENT_LIST_STACKING", XCB_ATOM_WINDOW);
    }

private:
    xcb_connection_t* m_connection;
    xcb_window_t m_root = XCB_NONE;
    QHash<xcb_window_t, int> m_clicks;
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
    if (corner > 2 || below < 20 || below < above + 10) {
        return QStringLiteral("alpha: corner %1, above %2, below %3")
            .arg(corner)
            .arg(above)
            .arg(below);
    }
    return {};
}

// Where `after` differs from `before` outside `box`, or that it does not differ at all.
QString drawnOutside(const QImage& before, const QImage& after, const QRect& box)
{
    const QImage a = before.convertToFormat(QImage::Format_ARGB32);
    const QImage b = after.convertToFormat(QImage::Format_ARGB32);
    QRect changed;
    for (int y = 0; y < a.height(); ++y) {
        const auto* lineA = reinterpret_cast<const QRgb*>(a.constScanLine(y));
        const auto* lineB = reinterpret_cast<const QRgb*>(b.constScanLine(y));
        for (int x = 0; x < a.width(); ++x) {
            if (lineA[x] != lineB[x]) {
                changed |= QRect(x, y, 1, 1);
            }
        }
    }
    if (changed.isEmpty()) {
        return QStringLiteral("nothing drawn");
    }
    if (box.contains(changed)) {
        return {};
    }
    return QStringLiteral("drawn over %1,%2 %3x%4, outside %5,%6 %7x%8")
        .arg(changed.x())
        .arg(changed.y())
        .arg(changed.width())
        .arg(changed.height())
        .arg(box.x())
        .arg(box.y())
        .arg(box.width())
        .arg(box.height());
}

bool run(const QString& program, const QStringList& arguments)
{
    return QProcess::execute(program, arguments) == 0;
}

// Real clicks at a point of the screen: button 1, or the wheel (4 up, 5 down), `times` times.
bool pointer(const QPoint& at, int button, int times = 1)
{
    return run(QStringLiteral("xdotool"),
               {QStringLiteral("mousemove"), QString::number(at.x()), QString::number(at.y()),
                QStringLiteral("click"), QStringLiteral("--repeat"), QString::number(times),
                QString::number(button)});
}

} // namespace

class TestFloatingPanelX11 : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();
    void isAFloatingPanelOnEveryWorkspace();
    void takesTheFocusFromAnotherApplication();
    void routesTypedKeys();
    void shadowMarginFollowsTheCompositor();
    void cardGrowsInsideAStillWindow();
    void marginLetsClicksThrough();
    void preferencesComeOverThePanel();
    void stripStartsAtItsFirstChipAndTurnsWithTheWheel();
    void answerFollowsTheStreamUntilScrolledUp();
    void selectionCopiesAcrossRuns();
    void textIsDrawnInsideItsBox_data();
    void textIsDrawnInsideItsBox();

private:
    QRect sceneRect(const char* name) const
    {
        QQuickItem* item = f->item(name);
        return item->mapRectToScene(item->boundingRect()).toAlignedRect();
    }
    xcb_window_t panelWindow() const { return static_cast<xcb_window_t>(f->panel->winId()); }
    QPoint onScreen(const char* name) const
    {
        QQuickItem* item = f->item(name);
        return f->panel->mapToGlobal(
            item->mapToScene(QPointF(item->width() / 2, item->height() / 2)).toPoint());
    }
    void startProcess(QProcess& process, const QString& program, const QStringList& arguments);

    QProcess m_openbox;
    QProcess m_compositor;
    OtherClient m_x;
    std::unique_ptr<PanelFixture> f;
    QList<int> m_numbers;
    int m_enters = 0;
    int m_copies = 0;
};

void TestFloatingPanelX11::startProcess(QProcess& process, const QString& program,
                                        const QStringList& arguments)
{
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(program, arguments);
    QVERIFY2(process.waitForStarted(), qPrintable(program));
}

void TestFloatingPanelX11::initTestCase()
{
    QCOMPARE(QGuiApplication::platformName(), QStringLiteral("xcb"));
    QVERIFY(m_x.ok());
    for (const char* tool : {"openbox", "xcompmgr", "xdotool"}) {
        QVERIFY2(!QStandardPaths::findExecutable(QLatin1String(tool)).isEmpty(), tool);
    }
    startProcess(m_openbox, QStringLiteral("openbox"), {QStringLiteral("--sm-disable")});
    QTRY_VERIFY_WITH_TIMEOUT(m_x.hasWindowManager(), 10000);
}

void TestFloatingPanelX11::cleanupTestCase()
{
    for (QProcess* process : {&m_compositor, &m_openbox}) {
        if (process->state() != QProcess::NotRunning) {
            process->terminate();
            process->waitForFinished(3000);
        }
    }
}

void TestFloatingPanelX11::init()
{
    f = std::make_unique<PanelFixture>();
    m_numbers.clear();
    m_enters = m_copies = 0;
    f->panel->onNumberKeyPressed = [this](int n) { m_numbers << n; };
    f->panel->onEnterPressed = [this] { ++m_enters; };
    f->panel->onCopyResultAndClose = [this] { ++m_copies; };
    f->state->setClipboardText(QStringLiteral("Copied elsewhere"));
}

void TestFloatingPanelX11::cleanup()
{
    f.reset();
}

void TestFloatingPanelX11::isAFloatingPanelOnEveryWorkspace()
{
    QVERIFY(f->showAndFocus());
    const xcb_window_t window = panelWindow();
    QCOMPARE(m_x.text(window, "_NET_WM_NAME"), QByteArray("Ravelo"));
    const auto states = m_x.property(window, "_NET_WM_STATE", XCB_ATOM_ATOM);
    // Openbox keeps "on every desktop" in _NET_WM_DESKTOP alone and drops the sticky state.
    for (const char* state :
         {"_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER", "_NET_WM_STATE_ABOVE"}) {
        QVERIFY2(states.contains(m_x.atom(state)), state);
    }
    QCOMPARE(m_x.property(window, "_NET_WM_DESKTOP", XCB_ATOM_CARDINAL),
             QList<uint32_t>{0xFFFFFFFF});
    QVERIFY(m_x.property(window, "_NET_WM_WINDOW_TYPE", XCB_ATOM_ATOM)
                .contains(m_x.atom("_NET_WM_WINDOW_TYPE_UTILITY")));

    // Placement under the window manager follows the same rule as anywhere.
    const QRect area = f->panel->screen()->availableGeometry();
    QTRY_COMPARE(f->item("clipboardBox")->height(),
                 f->item("clipboardBox")->property("measuredHeight").toReal());
    const QRect frame = f->panel->inputRegion().boundingRect().translated(f->panel->position());
    QVERIFY(qAbs(frame.center().x() - area.center().x()) <= 1);
    QVERIFY(qAbs(frame.y() + frame.height() / 2 - (area.y() + area.height() / 2 - 100)) <= 1);

    // Closed and shown again, it is marked the same way.
    f->panel->close();
    QTRY_VERIFY(!m_x.property(window, "_NET_WM_STATE", XCB_ATOM_ATOM)
                     .contains(m_x.atom("_NET_WM_STATE_SKIP_PAGER")));
    QVERIFY(f->showAndFocus());
    QTRY_VERIFY(m_x.property(window, "_NET_WM_STATE", XCB_ATOM_ATOM)
                    .contains(m_x.atom("_NET_WM_STATE_SKIP_TASKBAR")));
}

void TestFloatingPanelX11::takesTheFocusFromAnotherApplication()
{
    const xcb_window_t other = m_x.createWindow();
    QTRY_VERIFY_WITH_TIMEOUT(
        run(QStringLiteral("xdotool"),
            {QStringLiteral("windowactivate"), QStringLiteral("--sync"), QString::number(other)}),
        5000);
    QTRY_COMPARE(m_x.activeWindow(), other);

    f->panel->centerAndShow();
    QTRY_VERIFY_WITH_TIMEOUT(f->panel->isActive(), 5000);
    QTRY_COMPARE(m_x.activeWindow(), panelWindow());

    // The keyboard now reaches the panel.
    QVERIFY(run(QStringLiteral("xdotool"), {QStringLiteral("key"), QStringLiteral("4")}));
    QTRY_COMPARE(m_numbers, QList<int>{4});
}

void TestFloatingPanelX11::routesTypedKeys()
{
    QVERIFY(f->showAndFocus());
    const auto key = [](const char* name) {
        return run(QStringLiteral("xdotool"), {QStringLiteral("key"), QLatin1String(name)});
    };
    QVERIFY(key("2"));
    QVERIFY(key("0"));
    QVERIFY(key("alt+3"));
    QVERIFY(key("KP_Enter"));
    QVERIFY(key("ctrl+c"));
    QTRY_COMPARE(m_copies, 1);
    QCOMPARE(m_numbers, QList<int>{2});
    QCOMPARE(m_enters, 1);

    f->state->setShowCustomPromptInput(true);
    QTRY_VERIFY(f->item("customField")->hasActiveFocus());
    QVERIFY(key("7"));
    QTRY_COMPARE(f->state->customPromptText(), QStringLiteral("7"));
    QCOMPARE(m_numbers, QList<int>{2});

    QVERIFY(key("Escape"));
    QTRY_VERIFY(!f->state->showCustomPromptInput());
    QVERIFY(f->panel->isVisible());
    QVERIFY(key("Escape"));
    QTRY_VERIFY(!f->panel->isVisible());
}

void TestFloatingPanelX11::shadowMarginFollowsTheCompositor()
{
    QVERIFY(f->showAndFocus());
    QVERIFY(!f->panel->hasShadowMargin());
    QCOMPARE(f->panel->width(), 544);
    QVERIFY(!f->panel->mask().isEmpty());
    // Without a compositor the window is cut to the card: its rounded corners are outside.
    QVERIFY(!f->panel->mask().contains(QPoint(2, 2)));
    QVERIFY(f->panel->mask().contains(QPoint(272, 100)));
    // Translucent windows need a visual with alpha, whichever renderer draws them.
    QCOMPARE(m_x.depth(panelWindow()), uint8_t(32));
    QTRY_COMPARE(
        drawingFault(f->panel->grabWindow(), f->panel->cardGeometry().toAlignedRect(), false),
        QString());
    const QPoint cardOnScreen = f->panel->mapToGlobal(f->panel->cardGeometry().topLeft().toPoint());

    startProcess(m_compositor, QStringLiteral("xcompmgr"), {});
    QTRY_VERIFY_WITH_TIMEOUT(f->panel->hasShadowMargin(), 5000);
    QTRY_COMPARE(f->panel->width(), 544 + 2 * FloatingPanel::shadowMargin);
    QVERIFY(f->panel->mask().isEmpty());
    QCOMPARE(f->panel->cardGeometry().topLeft(),
             QPointF(FloatingPanel::shadowMargin, FloatingPanel::shadowMargin));
    QTRY_COMPARE(f->panel->mapToGlobal(f->panel->cardGeometry().topLeft().toPoint()), cardOnScreen);
    QTRY_COMPARE(
        drawingFault(f->panel->grabWindow(), f->panel->cardGeometry().toAlignedRect(), true),
        QString());

    m_compositor.terminate();
    QVERIFY(m_compositor.waitForFinished(3000));
    QTRY_VERIFY_WITH_TIMEOUT(!f->panel->hasShadowMargin(), 5000);
    QTRY_COMPARE(f->panel->width(), 544);
    QVERIFY(!f->panel->mask().isEmpty());
}

void TestFloatingPanelX11::cardGrowsInsideAStillWindow()
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

void TestFloatingPanelX11::marginLetsClicksThrough()
{
    startProcess(m_compositor, QStringLiteral("xcompmgr"), {});
    QTRY_VERIFY_WITH_TIMEOUT(f->panel->hasShadowMargin(), 5000);
    QVERIFY(f->showAndFocus());
    QTRY_COMPARE(f->panel->width(), 544 + 2 * FloatingPanel::shadowMargin);
    // Another application's window under the panel's left margin.
    const QRect card = QRect(f->panel->mapToGlobal(f->panel->cardGeometry().topLeft().toPoint()),
                             f->panel->cardGeometry().size().toSize());
    const QRect below(card.left() - 150, card.top(), 140, 200);
    QVERIFY(f->panel->geometry().contains(below));
    const xcb_window_t other = m_x.createWindowBelowAll(below);

    QVERIFY(pointer(below.center(), 1));
    QTRY_COMPARE(m_x.clicks(other), 1);
    // The card and its buttons still take their clicks.
    QSignalSpy closing(f->panel.get(), &FloatingPanel::closeRequested);
    QVERIFY(pointer(onScreen("closeButton"), 1));
    QTRY_COMPARE(closing.count(), 1);
    QCOMPARE(m_x.clicks(other), 1);

    m_compositor.terminate();
    QVERIFY(m_compositor.waitForFinished(3000));
    QTRY_VERIFY_WITH_TIMEOUT(!f->panel->hasShadowMargin(), 5000);
}

void TestFloatingPanelX11::preferencesComeOverThePanel()
{
    QVERIFY(f->showAndFocus());
    QWindow preferences;
    preferences.resize(400, 300);
    f->panel->stepBack();
    preferences.show();
    preferences.requestActivate();
    QVERIFY(QTest::qWaitForWindowExposed(&preferences));
    const auto over = [&] {
        const auto order = m_x.stacking();
        return order.indexOf(static_cast<uint32_t>(preferences.winId())) >
               order.indexOf(panelWindow());
    };
    QTRY_VERIFY(over());
    QTRY_VERIFY(!m_x.property(panelWindow(), "_NET_WM_STATE", XCB_ATOM_ATOM)
                     .contains(m_x.atom("_NET_WM_STATE_ABOVE")));
    // The next trigger puts the panel above everything again.
    QVERIFY(f->showAndFocus());
    QTRY_VERIFY(!over());
    QVERIFY(m_x.property(panelWindow(), "_NET_WM_STATE", XCB_ATOM_ATOM)
                .contains(m_x.atom("_NET_WM_STATE_ABOVE")));
}

void TestFloatingPanelX11::stripStartsAtItsFirstChipAndTurnsWithTheWheel()
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

void TestFloatingPanelX11::answerFollowsTheStreamUntilScrolledUp()
{
    QVERIFY(f->showAndFocus());
    QQuickItem* flick = f->item("answerFlick");
    const auto atEnd = [flick] {
        const qreal end = flick->property("contentHeight").toReal() - flick->height();
        return end > 0 && qAbs(flick->property("contentY").toReal() - end) < 1;
    };
    f->state->setIsLoading(true);
    for (int i = 1; i <= 40; ++i) {
        f->state->appendResultText(QStringLiteral("Answer line %1\n").arg(i));
    }
    QTRY_VERIFY(atEnd());

    // The user scrolls up: the box stays where the user put it while more arrives.
    QVERIFY(pointer(onScreen("answerBox"), 4, 3));
    QTRY_VERIFY(!atEnd() && !flick->property("moving").toBool());
    const qreal kept = flick->property("contentY").toReal();
    const qreal grown = flick->property("contentHeight").toReal();
    for (int i = 41; i <= 60; ++i) {
        f->state->appendResultText(QStringLiteral("Answer line %1\n").arg(i));
    }
    QTRY_VERIFY(flick->property("contentHeight").toReal() > grown + 400);
    QCOMPARE(flick->property("contentY").toReal(), kept);

    // Back at the end, it follows again.
    QTRY_VERIFY_WITH_TIMEOUT(pointer(onScreen("answerBox"), 5, 10) && atEnd(), 20000);
    QTRY_VERIFY(!flick->property("moving").toBool());
    const qreal before = flick->property("contentHeight").toReal();
    for (int i = 61; i <= 80; ++i) {
        f->state->appendResultText(QStringLiteral("Answer line %1\n").arg(i));
    }
    QTRY_VERIFY(flick->property("contentHeight").toReal() > before + 400 && atEnd());
    f->state->setIsLoading(false);
}

void TestFloatingPanelX11::selectionCopiesAcrossRuns()
{
    QVERIFY(f->showAndFocus());
    QString answer;
    for (int i = 1; i <= 40; ++i) {
        answer += QStringLiteral("Sentence %1 of a long first paragraph that wraps. ").arg(i);
    }
    answer += QStringLiteral("\nA second paragraph.\n\nAnd a third.");
    f->state->setIsLoading(true);
    for (qsizetype at = 0; at < answer.size(); at += 17) {
        f->state->appendResultText(answer.mid(at, 17));
    }
    f->state->setIsLoading(false);
    QQuickItem* text = f->item("answerText");
    QTRY_COMPARE(text->property("text").toString(), answer);
    QStringList lines;
    QMetaObject::invokeMethod(text, "lines", Q_RETURN_ARG(QStringList, lines));
    QVERIFY(lines.size() > 24);
    const auto key = [](const char* name) {
        return run(QStringLiteral("xdotool"), {QStringLiteral("key"), QLatin1String(name)});
    };
    QClipboard* clipboard = QGuiApplication::clipboard();

    // From the start, twenty lines down by keyboard: the lines of two runs and part of a third.
    QVERIFY(pointer(onScreen("answerBox"), 1));
    QTRY_VERIFY(text->hasActiveFocus());
    QVERIFY(key("ctrl+Home"));
    for (int i = 0; i < 20; ++i) {
        QVERIFY(key("shift+Down"));
    }
    QTRY_COMPARE(text->property("selectedText").toString(), lines.mid(0, 20).join(QString()));
    clipboard->setText(QStringLiteral("before"));
    QVERIFY(key("ctrl+c"));
    QTRY_COMPARE(clipboard->text(), lines.mid(0, 20).join(QString()));
    QCOMPARE(m_copies, 0);

    // Dragged with the mouse over the box, the selection copies as it stands in the answer.
    const QPoint box = onScreen("answerBox");
    const int half = int(f->item("answerBox")->height() / 2) - 4;
    QVERIFY(run(QStringLiteral("xdotool"),
                {QStringLiteral("mousemove"), QString::number(box.x() - 200),
                 QString::number(box.y() - half), QStringLiteral("mousedown"), QStringLiteral("1"),
                 QStringLiteral("mousemove"), QString::number(box.x()), QString::number(box.y()),
                 QStringLiteral("mousemove"), QString::number(box.x() + 100),
                 QString::number(box.y() + half), QStringLiteral("mouseup"), QStringLiteral("1")}));
    QTRY_VERIFY(text->property("selectedText").toString().size() > 40);
    const int start = text->property("selectionStart").toInt();
    const int end = text->property("selectionEnd").toInt();
    QVERIFY(key("ctrl+c"));
    QTRY_COMPARE(clipboard->text(), answer.mid(start, end - start));

    // Everything, with its paragraph breaks.
    QVERIFY(key("ctrl+a"));
    QVERIFY(key("ctrl+c"));
    QTRY_COMPARE(clipboard->text(), answer);
    QCOMPARE(m_copies, 0);

    // A click takes the selection away; Ctrl+C then copies the answer and closes.
    QVERIFY(pointer(onScreen("answerBox"), 1));
    QTRY_COMPARE(text->property("selectedText").toString(), QString());
    QVERIFY(key("ctrl+c"));
    QTRY_COMPARE(m_copies, 1);
}

void TestFloatingPanelX11::textIsDrawnInsideItsBox_data()
{
    QTest::addColumn<bool>("shownBefore");
    QTest::addColumn<int>("lines");
    QTest::newRow("first show") << false << 3;
    QTest::newRow("shown again") << true << 3;
    QTest::newRow("long answer, scrolled to its end") << true << 60;
}

// Text arriving after the panel's first frame changes the pixels of its own box and nowhere
// else, however the panel was shown before.
void TestFloatingPanelX11::textIsDrawnInsideItsBox()
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
    QTRY_COMPARE(drawnOutside(shown, f->panel->grabWindow(), sceneRect("clipboardBox")), QString());
    const QImage copied = f->panel->grabWindow();

    QQuickItem* flick = f->item("answerFlick");
    for (int i = 1; i <= lines; ++i) {
        f->state->appendResultText(QStringLiteral("Answer line %1\n").arg(i));
    }
    QTRY_COMPARE(flick->property("contentY").toReal(),
                 std::max(0.0, flick->property("contentHeight").toReal() - flick->height()));
    QCOMPARE(drawnOutside(copied, f->panel->grabWindow(),
                          sceneRect("answerBox") | sceneRect("copyButton")),
             QString());
}

QTEST_MAIN(TestFloatingPanelX11)
#include "tst_floatingpanel_x11.moc"
