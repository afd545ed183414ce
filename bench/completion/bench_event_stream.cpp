// How fast the event-stream reader turns a recorded stream into fragments, whatever the
// size of the network's reads, and whether the cost of a fragment grows with the answer.
//
//   build/bench/bench_event_stream
#include "CommandBench.h"
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
    const int rounds = bench::quick() ? 3 : 7;

    const QByteArray stream = recordedStream(1 << 20);
    std::fprintf(stderr, "Recorded stream: %.2f MB\n\n", stream.size() / 1e6);
    std::fprintf(stderr, "%-12s %12s %14s %10s\n", "read size", "fragments", "fragments/s", "MB/s");
    std::vector<double> megabytesPerSecond;
    for (const qsizetype pieceSize : {qsizetype(1), qsizetype(7), qsizetype(16384)}) {
        std::vector<double> rates;
        qsizetype fragments = 0;
        for (int round = 0; round < rounds; ++round) {
            fragments = 0;
            const qint64 ns =
                readStream(stream, pieceSize, [&fragments](const QString&) { ++fragments; });
            rates.push_back(stream.size() / 1e6 / (ns / 1e9));
        }
        const double best = *std::max_element(rates.begin(), rates.end());
        std::fprintf(stderr, "%-12lld %12lld %14.0f %10.1f\n", static_cast<long long>(pieceSize),
                     static_cast<long long>(fragments), fragments * best / (stream.size() / 1e6),
                     best);
        megabytesPerSecond = rates;
    }
    bench::printRow("event stream: reading 1 MB in 16 KB reads", "MB/s", megabytesPerSecond, "-",
                    {}, "-");

    // The answer grows in the application state as the panel shows it.
    QTemporaryDir dir;
    PreferenceStore preferences(dir.filePath(QStringLiteral("bench.conf")));
    AppState state(&preferences);
    std::fprintf(stderr, "\n%-14s %12s %18s %22s\n", "answer", "fragments", "ns/fragment (read)",
                 "ns/fragment (appended)");
    std::vector<double> appendedSmall;
    std::vector<double> appendedLarge;
    for (const qsizetype answerBytes : {qsizetype(10'000), qsizetype(1'000'000)}) {
        const QByteArray answer = answerStream(answerBytes);
        std::vector<double> read;
        std::vector<double> appended;
        qsizetype fragments = 0;
        for (int round = 0; round < rounds; ++round) {
            fragments = 0;
            const qint64 readNs =
                readStream(answer, 16384, [&fragments](const QString&) { ++fragments; });
            state.setResultText(QString());
            const qint64 appendedNs = readStream(
                answer, 16384, [&state](const QString& f) { state.appendResultText(f); });
            read.push_back(double(readNs) / fragments);
            appended.push_back(double(appendedNs) / fragments);
        }
        std::fprintf(stderr, "%-14lld %12lld %18.0f %22.0f\n", static_cast<long long>(answerBytes),
                     static_cast<long long>(fragments), bench::median(read),
                     bench::median(appended));
        (answerBytes == 10'000 ? appendedSmall : appendedLarge) = appended;
    }
    bench::printRow("event stream: a fragment read and appended, 1 MB answer", "ns", appendedLarge,
                    "the same, 10 KB answer", appendedSmall, "within 1.5x of 10 KB");
    return 0;
}
