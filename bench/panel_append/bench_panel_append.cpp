// Whether a fragment of a streamed answer costs the same however long the answer already is.
// For each length the answer is first set whole, then fragments are appended one per frame
// while the window renders. A sample is the CPU time of the whole process (every thread,
// rendering included) divided by the fragments of one block; the 10 KB answer is the
// baseline the 1 MB answer is compared with, for paragraphs and for one paragraph without a
// line break. Details per length on stderr.
//
//   tests/support/with-xvfb build-bench/bench/bench_panel_append
#include "PanelFixture.h"
#include "StreamedAnswer.h"

#include <QEventLoop>
#include <QGuiApplication>
#include <QTimer>
#include <QtQml/qqmlextensionplugin.h>

#include <algorithm>

Q_IMPORT_QML_PLUGIN(RaveloPlugin)

namespace {

/// Per block of fragments, the process's CPU µs per fragment.
QList<double> measure(qsizetype length, bool oneParagraph, int blocks, int fragments)
{
    PanelFixture f;
    f.state->setClipboardText(QStringLiteral("Copied text"));
    if (!f.showAndFocus()) {
        qFatal("the panel did not show");
    }
    bench::Answer answer(oneParagraph);
    f.state->setIsLoading(true);
    f.state->setResultText(answer.text(length));

    QEventLoop loop;
    QObject::connect(f.panel.get(), &QQuickWindow::frameSwapped, &loop, &QEventLoop::quit,
                     Qt::QueuedConnection);
    QTimer timeout;
    timeout.setSingleShot(true);
    timeout.setInterval(60000);
    QObject::connect(&timeout, &QTimer::timeout, &loop, [] { qFatal("no frame was rendered"); });
    const auto nextFrame = [&] {
        timeout.start();
        loop.exec();
        timeout.stop();
    };
    for (int settle = 0; settle < 3; ++settle) {
        f.panel->update();
        nextFrame();
    }
    QTest::qWait(600);

    // A block ends early once it has taken two seconds: the old view needs far longer per
    // fragment for a long paragraph.
    constexpr qint64 budgetNs = 2000000000;
    QList<double> samples;
    for (int block = 0; block < blocks; ++block) {
        const qint64 start = bench::processCpuNs();
        int done = 0;
        while (done < fragments && (done < 3 || bench::processCpuNs() - start < budgetNs)) {
            f.state->appendResultText(answer.next());
            nextFrame();
            ++done;
        }
        samples << (bench::processCpuNs() - start) / double(done) / 1000.0;
    }
    return samples;
}

} // namespace

int main(int argc, char** argv)
{
    QGuiApplication app(argc, argv);
    const int blocks = bench::quick() ? 3 : 5;
    const int fragments = bench::quick() ? 40 : 100;
    for (const bool oneParagraph : {false, true}) {
        const QString shape =
            oneParagraph ? QStringLiteral("one paragraph") : QStringLiteral("paragraphs");
        QList<double> small;
        QList<double> large;
        for (const qsizetype length : {10000, 100000, 1000000}) {
            const QList<double> samples = measure(length, oneParagraph, blocks, fragments);
            std::fprintf(stderr, "%-14s %8lld chars: %s µs per fragment\n", qPrintable(shape),
                         static_cast<long long>(length), qPrintable(bench::joined(samples)));
            if (length == 10000) {
                small = samples;
            } else if (length == 1000000) {
                large = samples;
            }
        }
        bench::row(QStringLiteral("panel_append: CPU per fragment, 1 MB answer, ") + shape,
                   QStringLiteral("µs"), large, QStringLiteral("10 KB answer"), small,
                   QStringLiteral("within 1.5x of the 10 KB answer"));
    }
    return 0;
}
