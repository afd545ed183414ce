// Decodes arbitrary bytes as a stored prompt list; whatever decodes must survive a round
// trip through its own encoding unchanged.
#include "model/Prompt.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray json =
        QByteArray::fromRawData(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    const std::optional<QList<Prompt>> prompts = Prompt::decodeList(json);
    if (!prompts) {
        return 0;
    }
    const QByteArray encoded = Prompt::encodeList(*prompts);
    if (encoded.isEmpty()) {
        return 0; // a text that cannot be written (an unpaired surrogate) is not saved
    }
    const std::optional<QList<Prompt>> again = Prompt::decodeList(encoded);
    if (!again || *again != *prompts || Prompt::encodeList(*again) != encoded) {
        std::abort();
    }
    return 0;
}
