// Feeds arbitrary bytes, cut into arbitrary pieces, through the line splitter and the
// event decoder, and checks that the cut never changes what is read.
#include "completion/SseEvent.h"

#include <QStringList>

#include <cstdint>
#include <cstdlib>

namespace {

struct Reading {
    QStringList fragments;
    bool done = false;
};

Reading read(QByteArrayView body, QByteArrayView cuts)
{
    SseEventReader reader;
    Reading reading;
    const auto collect = [&reading](const QString& fragment) {
        reading.fragments.append(fragment);
    };
    qsizetype at = 0;
    for (const char cut : cuts) {
        if (at >= body.size()) {
            break;
        }
        const qsizetype size =
            std::min<qsizetype>(static_cast<unsigned char>(cut) % 17, body.size() - at);
        reader.feed(body.sliced(at, size), collect);
        at += size;
    }
    reader.feed(body.sliced(at), collect);
    reader.finish(collect);
    reading.done = reader.isDone();
    return reading;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // The first 16 bytes choose where the pieces are cut; the rest is the body.
    const QByteArrayView input(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const qsizetype cutBytes = std::min<qsizetype>(16, input.size());
    const QByteArrayView cuts = input.first(cutBytes);
    const QByteArrayView body = input.sliced(cutBytes);

    const Reading whole = read(body, {});
    const Reading pieces = read(body, cuts);
    if (whole.fragments != pieces.fragments || whole.done != pieces.done) {
        std::abort();
    }
    return 0;
}
