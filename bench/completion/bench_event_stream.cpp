// How fast the event-stream reader turns a recorded stream into fragments, whatever the
// size of the network's reads, and whether the cost of a fragment grows with the answer.
//
//   build/bench/bench_event_stream
#include "app/AppState.h"
#include "completion/SseEvent.h"
#include "model/PreferenceStore.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>

namespace {

/// A recorded llama.cpp stream, its events repeated up to `size` bytes, then the end marker.
QByteArray recordedStream(qsizetype size)
{
    QFile file(
        QStringLiteral(RAVELO_SOURCE_DIR "/tests/fixtures/sse/llamacpp-stream-long-300.sse"));
    if (!file.open(QIODevice::ReadOnly)) {
        qFatal("fixture missing");
    }
    QByteArray events = file.readAll();
    events.truncate(events.indexOf("data: [DONE]"));
    QByteArray stream;
    while (stream.size() < size) {
        stream += events;
    }
    return stream + "data: [DONE]\n\n";
}

/// A stream whose answer is `answerBytes` long, in fragments of four characters.
QByteArray answerStream(qsizetype answerBytes)
{
    const QByteArray event = "data: {\"id\":\"chatcmpl-1\",\"object\":\"chat.completion.chunk\","
                             "\"choices\":[{\"index\":0,\"delta\":{\"content\":\"abc \"},"
                             "\"finish_reason\":null}]}\n\n";
    QByteArray stream;
    stream.reserve(event.size() * (answerBytes / 4) + 16);
    for (qsizetype i = 0; i < answerBytes / 4; ++i) {
        stream += event;
    }
    return stream + "data: [DONE]\n\n";
}

template<typename OnFragment>
qint64 readStream(const QByteArray& stream, qsizetype pieceSize, OnFragment&& onFragment)
{
    SseEventReader reader;
    QElapsedTimer timer;
    timer.start();
    for (qsizetype at = 0; at < stream.size(); at += pieceSize) {
        reader.feed(QByteArrayView(stream).sliced(at, std::min(pieceSize, stream.size() - at)),
                    onFragment);
    }
    reader.finish(onFragment);
    return timer.nsecsElapsed();
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);

    const QByteArray stream = recordedStream(1 << 20);
    std::printf("Recorded stream: %.2f MB\n\n", stream.size() / 1e6);
    std::printf("%-12s %12s %14s %10s\n", "read size", "fragments", "fragments/s", "MB/s");
    for (const qsizetype pieceSize : {qsizetype(1), qsizetype(7), qsizetype(16384)}) {
        qint64 best = std::numeric_limits<qint64>::max();
        qsizetype fragments = 0;
        for (int round = 0; round < 5; ++round) {
            fragments = 0;
            best = std::min(
                best, readStream(stream, pieceSize, [&fragments](const QString&) { ++fragments; }));
        }
        std::printf("%-12lld %12lld %14.0f %10.1f\n", static_cast<long long>(pieceSize),
                    static_cast<long long>(fragments), fragments / (best / 1e9),
                    stream.size() / 1e6 / (best / 1e9));
    }

    // The answer grows in the application state as the panel shows it.
    QTemporaryDir dir;
    PreferenceStore preferences(dir.filePath(QStringLiteral("bench.conf")));
    AppState state(&preferences);
    std::printf("\n%-14s %12s %18s %22s\n", "answer", "fragments", "ns/fragment (read)",
                "ns/fragment (appended)");
    for (const qsizetype answerBytes : {qsizetype(10'000), qsizetype(1'000'000)}) {
        const QByteArray answer = answerStream(answerBytes);
        qint64 bestRead = std::numeric_limits<qint64>::max();
        qint64 bestAppended = std::numeric_limits<qint64>::max();
        qsizetype fragments = 0;
        for (int round = 0; round < 5; ++round) {
            fragments = 0;
            bestRead = std::min(
                bestRead, readStream(answer, 16384, [&fragments](const QString&) { ++fragments; }));
            state.setResultText(QString());
            bestAppended =
                std::min(bestAppended, readStream(answer, 16384, [&state](const QString& f) {
                             state.appendResultText(f);
                         }));
        }
        std::printf("%-14lld %12lld %18.0f %22.0f\n", static_cast<long long>(answerBytes),
                    static_cast<long long>(fragments), double(bestRead) / fragments,
                    double(bestAppended) / fragments);
    }
    return 0;
}
