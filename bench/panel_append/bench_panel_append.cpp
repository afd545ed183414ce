// How much streaming an answer into the quick panel costs once the answer is already long, and
// whether a fragment's cost grows with the text already shown. For each length the answer is
// first set whole, then fragments are appended while the window renders: one fragment per
// frame (a slow stream) and a burst of many per frame (a fast one). Figures per row, all in
// CPU time of the GUI thread, so that other work on the machine does not count:
//   append     spent in AppState::appendResultText and the view's handlers, per fragment
//   frame      from a frame's start to its end (polish, sync, render), per frame
//   worst      the slowest of those frames
//   thread     everything the thread did while streaming (appends, timers, frames), per
//              fragment: the figure that must stay flat
//
//   QT_QPA_PLATFORM=offscreen build/bench/bench_panel_append [lengths...]
#include "PanelFixture.h"

#include <QEventLoop>
#include <QGuiApplication>
#include <QQuickTextDocument>
#include <QTextDocument>
#include <QTimer>
#include <QtQml/qqmlextensionplugin.h>

#include <algorithm>
#include <cstdio>
#include <ctime>

Q_IMPORT_QML_PLUGIN(RaveloPlugin)

namespace {

constexpr int fragmentSize = 6;
constexpr int fragmentsPerParagraph = 60;

qint64 threadCpuNs()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return qint64(now.tv_sec) * 1000000000 + now.tv_nsec;
}

/// The answer as a model streams it: sentences in fragments of six characters, a new
/// paragraph every 60 fragments unless `oneParagraph`.
class Answer {
public:
    explicit Answer(bool oneParagraph)
        : m_oneParagraph(oneParagraph)
    {}

    QString next()
    {
        static const QString sentence = QStringLiteral(
            "A streamed answer arrives a few characters at a time and grows paragraph by "
            "paragraph. ");
        QString fragment = sentence.mid((m_count * fragmentSize) % sentence.size(), fragmentSize);
        if (++m_count % fragmentsPerParagraph == 0 && !m_oneParagraph) {
            fragment += u'\n';
        }
        return fragment;
    }

    QString text(qsizetype length)
    {
        QString text;
        text.reserve(length + 2 * fragmentSize);
        while (text.size() < length) {
            text += next();
        }
        return text;
    }

private:
    bool m_oneParagraph;
    int m_count = 0;
};

struct Figures {
    double appendUs = 0;
    double frameUs = 0;
    double worstFrameUs = 0;
    double threadUs = 0;
    int frames = 0;
};

/// Appends `frames` times `perFrame` fragments to an answer already `length` long, waiting
/// for the window to render after each group.
Figures measure(qsizetype length, int perFrame, int frames, bool oneParagraph)
{
    PanelFixture f;
    f.state->setClipboardText(QStringLiteral("Copied text"));
    if (!f.showAndFocus()) {
        qFatal("the panel did not show");
    }
    Answer answer(oneParagraph);
    f.state->setResultText(answer.text(length));

    int rendered = 0;
    qint64 frameNs = 0;
    qint64 worstNs = 0;
    qint64 frameStart = 0;
    QObject::connect(
        f.panel.get(), &QQuickWindow::beforeFrameBegin, f.panel.get(),
        [&] { frameStart = threadCpuNs(); }, Qt::DirectConnection);
    QObject::connect(
        f.panel.get(), &QQuickWindow::afterFrameEnd, f.panel.get(),
        [&] {
            const qint64 ns = threadCpuNs() - frameStart;
            frameNs += ns;
            worstNs = std::max(worstNs, ns);
            ++rendered;
        },
        Qt::DirectConnection);
    QEventLoop loop;
    QObject::connect(f.panel.get(), &QQuickWindow::afterFrameEnd, &loop, &QEventLoop::quit,
                     Qt::QueuedConnection);
    QTimer timeout;
    timeout.setSingleShot(true);
    timeout.setInterval(10000);
    QObject::connect(&timeout, &QTimer::timeout, &loop, [] { qFatal("no frame was rendered"); });
    const auto nextFrame = [&] {
        timeout.start();
        loop.exec();
        timeout.stop();
    };
    // Let the whole answer be laid out and shown before measuring: a long document is
    // otherwise laid out bit by bit over the first frames.
    f.item("answerText")
        ->property("textDocument")
        .value<QQuickTextDocument*>()
        ->textDocument()
        ->size();
    for (int settle = 0; settle < 3; ++settle) {
        f.panel->update();
        nextFrame();
    }
    QTest::qWait(600);
    rendered = 0;
    frameNs = worstNs = 0;

    qint64 appendNs = 0;
    const qint64 cpuStart = threadCpuNs();
    for (int frame = 0; frame < frames; ++frame) {
        const qint64 appendStart = threadCpuNs();
        for (int i = 0; i < perFrame; ++i) {
            f.state->appendResultText(answer.next());
        }
        appendNs += threadCpuNs() - appendStart;
        nextFrame();
    }
    const qint64 cpuNs = threadCpuNs() - cpuStart;

    const double fragments = double(frames) * perFrame;
    Figures figures;
    figures.appendUs = appendNs / fragments / 1000.0;
    figures.frameUs = rendered ? frameNs / double(rendered) / 1000.0 : 0;
    figures.worstFrameUs = worstNs / 1000.0;
    figures.threadUs = cpuNs / fragments / 1000.0;
    figures.frames = rendered;
    return figures;
}

} // namespace

int main(int argc, char** argv)
{
    QGuiApplication app(argc, argv);
    QList<qsizetype> lengths;
    for (const QString& argument : app.arguments().mid(1)) {
        lengths << argument.toLongLong();
    }
    if (lengths.isEmpty()) {
        lengths = {10000, 100000, 1000000};
    }

    std::printf("%-10s %-14s %10s %12s %12s %12s %12s\n", "length", "shape", "per frame",
                "append µs", "frame µs", "worst µs", "thread µs");
    for (const bool oneParagraph : {false, true}) {
        for (const qsizetype length : lengths) {
            if (oneParagraph && length > 100000) {
                continue;
            }
            for (const int perFrame : {1, 16}) {
                const int frames = perFrame == 1 ? 300 : 60;
                const Figures figures = measure(length, perFrame, frames, oneParagraph);
                std::printf("%-10lld %-14s %10d %12.1f %12.1f %12.1f %12.1f\n",
                            static_cast<long long>(length),
                            oneParagraph ? "one paragraph" : "paragraphs", perFrame,
                            figures.appendUs, figures.frameUs, figures.worstFrameUs,
                            figures.threadUs);
                std::fflush(stdout);
            }
        }
    }
    return 0;
}
