// What streaming an answer into the quick panel costs while the user watches, under the
// OpenGL scene graph (Mesa's llvmpipe here) and the software one. Each renderer runs in a
// child process of its own, which measures:
//   cpu     the process's CPU time (every thread) per second of wall time, in % of a core,
//           while fragments of 6 characters arrive at 50 per second into an empty answer;
//           one sample per second, for paragraphs and for one paragraph without a line break
//   frames  how long each frame takes, from the animation step that starts it to the swap
//           that ends it, while the last 10,000 characters of a 100,000 character answer
//           arrive at 50 fragments per second
//   redraw  the CPU % of the panel drawn again at 50 Hz with nothing changed: the floor under
//           the streaming figures
// and the same for a bare window as big as the panel that changes one Text at 50 Hz, the
// baseline each row compares with.
//
//   tests/support/with-xvfb build-bench/bench/bench_panel_stream
#include "PanelFixture.h"
#include "StreamedAnswer.h"

#include <QElapsedTimer>
#include <QGuiApplication>
#include <QProcess>
#include <QQmlComponent>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTimer>
#include <QtQml/qqmlextensionplugin.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <functional>
#include <map>

Q_IMPORT_QML_PLUGIN(RaveloPlugin)

using namespace Qt::StringLiterals;

namespace {

constexpr int tickMs = 20;

double seconds()
{
    return bench::quick() ? 0.5 : 1.0;
}

/// Calls `tick` every 20 ms and returns the process's CPU % over each of `samples` windows,
/// after half a second that is not counted.
QList<double> cpuWhileTicking(const std::function<void()>& tick, int samples)
{
    QTimer timer;
    timer.setTimerType(Qt::PreciseTimer);
    timer.setInterval(tickMs);
    QObject::connect(&timer, &QTimer::timeout, tick);
    timer.start();
    QTest::qWait(500);
    QList<double> cpu;
    for (int i = 0; i < samples; ++i) {
        QElapsedTimer wall;
        wall.start();
        const qint64 start = bench::processCpuNs();
        QTest::qWait(int(seconds() * 1000));
        cpu << 100.0 * double(bench::processCpuNs() - start) / double(wall.nsecsElapsed());
    }
    return cpu;
}

/// Records the wall time of every frame of `window` while alive.
class FrameTimes {
public:
    explicit FrameTimes(QQuickWindow* window)
    {
        m_clock.start();
        m_start = QObject::connect(
            window, &QQuickWindow::afterAnimating, window,
            [this] { m_frameStart = m_clock.nsecsElapsed(); }, Qt::DirectConnection);
        m_end = QObject::connect(
            window, &QQuickWindow::frameSwapped, window,
            [this] {
                const qint64 start = m_frameStart.exchange(-1);
                if (start >= 0) {
                    m_ms << (m_clock.nsecsElapsed() - start) / 1e6;
                }
            },
            Qt::DirectConnection);
    }
    ~FrameTimes()
    {
        QObject::disconnect(m_start);
        QObject::disconnect(m_end);
    }

    QList<double> take() { return std::exchange(m_ms, {}); }

private:
    QElapsedTimer m_clock;
    std::atomic<qint64> m_frameStart = -1;
    QList<double> m_ms;
    QMetaObject::Connection m_start;
    QMetaObject::Connection m_end;
};

void sample(const char* key, const QList<double>& values)
{
    std::printf("SAMPLE\t%s\t%s\n", key, qPrintable(bench::joined(values)));
    std::fflush(stdout);
}

// The 90th percentile and the worst frame.
QList<double> summary(QList<double> frames)
{
    if (frames.isEmpty()) {
        return {};
    }
    std::sort(frames.begin(), frames.end());
    return {frames.at(qsizetype(std::ceil(0.9 * double(frames.size()))) - 1), frames.last()};
}

int child(QGuiApplication& app)
{
    Q_UNUSED(app);
    const int samples = 3;
    QSize panelSize;
    for (const bool oneParagraph : {false, true}) {
        PanelFixture f;
        f.state->setClipboardText(QStringLiteral("Copied text"));
        if (!f.showAndFocus()) {
            qFatal("the panel did not show");
        }
        panelSize = f.panel->size();
        bench::Answer answer(oneParagraph);
        f.state->setIsLoading(true);
        const QList<double> cpu =
            cpuWhileTicking([&] { f.state->appendResultText(answer.next()); }, samples);
        std::fprintf(stderr, "  %d characters streamed\n", int(f.state->resultText().size()));
        sample(oneParagraph ? "cpu-one" : "cpu-paragraphs", cpu);
    }
    {
        // The floor: the same panel and answer drawn again at 50 Hz with nothing changed.
        PanelFixture f;
        f.state->setClipboardText(QStringLiteral("Copied text"));
        if (!f.showAndFocus()) {
            qFatal("the panel did not show");
        }
        f.state->setResultText(bench::Answer(false).text(1000));
        QTest::qWait(300);
        sample("cpu-redraw", cpuWhileTicking([&] { f.panel->update(); }, samples));
    }
    for (const bool oneParagraph : {false, true}) {
        PanelFixture f;
        f.state->setClipboardText(QStringLiteral("Copied text"));
        if (!f.showAndFocus()) {
            qFatal("the panel did not show");
        }
        bench::Answer answer(oneParagraph, 50);
        f.state->setIsLoading(true);
        f.state->setResultText(answer.text(90000));
        QTest::qWait(1000);
        FrameTimes frames(f.panel.get());
        int fragments = 0;
        QTimer timer;
        timer.setTimerType(Qt::PreciseTimer);
        timer.setInterval(tickMs);
        QObject::connect(&timer, &QTimer::timeout, [&] {
            if (f.state->resultText().size() < 100000) {
                f.state->appendResultText(answer.next());
                ++fragments;
            }
        });
        timer.start();
        QTest::qWait(bench::quick() ? 2000 : 4000);
        timer.stop();
        const QList<double> times = frames.take();
        std::fprintf(stderr, "  %d fragments, %d frames\n", fragments, int(times.size()));
        sample(oneParagraph ? "frames-one" : "frames-paragraphs", summary(times));
    }

    QQuickWindow bare;
    bare.resize(panelSize);
    QQmlEngine engine;
    QQmlComponent component(&engine);
    component.setData("import QtQuick\nText { x: 200; y: 200; font.pixelSize: 20 }", QUrl());
    std::unique_ptr<QQuickItem> text(qobject_cast<QQuickItem*>(component.create()));
    text->setParentItem(bare.contentItem());
    bare.show();
    if (!QTest::qWaitForWindowExposed(&bare)) {
        qFatal("the bare window did not show");
    }
    int ticks = 0;
    const auto tick = [&] { text->setProperty("text", QStringLiteral("Tick %1").arg(++ticks)); };
    sample("cpu-bare", cpuWhileTicking(tick, samples));
    FrameTimes frames(&bare);
    cpuWhileTicking(tick, 1);
    sample("frames-bare", summary(frames.take()));
    return 0;
}

// Runs the child for one renderer and returns its samples by key.
std::map<QString, QList<double>> run(const QString& backend)
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    if (backend.isEmpty()) {
        env.remove(QStringLiteral("QT_QUICK_BACKEND"));
    } else {
        env.insert(QStringLiteral("QT_QUICK_BACKEND"), backend);
    }
    process.setProcessEnvironment(env);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(QCoreApplication::applicationFilePath(), {QStringLiteral("--child")});
    process.waitForFinished(120000);
    std::map<QString, QList<double>> samples;
    for (const QByteArray& line : process.readAllStandardOutput().split('\n')) {
        const QList<QByteArray> fields = line.split('\t');
        if (fields.size() != 3 || fields.at(0) != "SAMPLE") {
            continue;
        }
        QList<double>& values = samples[QString::fromUtf8(fields.at(1))];
        for (const QByteArray& value : fields.at(2).split(',')) {
            bool ok = false;
            const double number = value.toDouble(&ok);
            if (ok) {
                values << number;
            }
        }
    }
    return samples;
}

} // namespace

int main(int argc, char** argv)
{
    QGuiApplication app(argc, argv);
    if (app.arguments().contains(QStringLiteral("--child"))) {
        return child(app);
    }
    for (const auto& [backend, name] :
         {std::pair{QString(), QStringLiteral("GL")},
          std::pair{QStringLiteral("software"), QStringLiteral("software")}}) {
        std::fprintf(stderr, "%s scene graph\n", qPrintable(name));
        auto samples = run(backend);
        const QString bare = QStringLiteral("bare window, one Text at 50 Hz, ") + name;
        bench::row(QStringLiteral("CPU while streaming at 50 fragments/s, paragraphs, ") + name,
                   QStringLiteral("%"), samples[u"cpu-paragraphs"_s], bare, samples[u"cpu-bare"_s],
                   QStringLiteral("within 2x of the baseline"));
        bench::row(QStringLiteral("CPU while streaming at 50 fragments/s, one paragraph, ") + name,
                   QStringLiteral("%"), samples[u"cpu-one"_s], bare, samples[u"cpu-bare"_s],
                   QStringLiteral("within 2x of the baseline"));
        bench::row(QStringLiteral("CPU of the panel drawn again at 50 Hz, nothing changed, ") +
                       name,
                   QStringLiteral("%"), samples[u"cpu-redraw"_s], bare, samples[u"cpu-bare"_s],
                   QStringLiteral("what streaming costs at least"));
        for (const auto& [key, shape] :
             {std::pair{u"frames-paragraphs"_s, QStringLiteral("paragraphs")},
              std::pair{u"frames-one"_s, QStringLiteral("one paragraph")}}) {
            bench::row(QStringLiteral("frame p90,max streaming to 100k characters, ") + shape +
                           u", "_s + name,
                       QStringLiteral("ms"), samples[key], bare + QStringLiteral(" p90,max"),
                       samples[u"frames-bare"_s], QStringLiteral("no frame over 16 ms"));
        }
    }
    return 0;
}
