// Loads arbitrary bytes as a song and reads its words in every encoding; decodes the raw
// bytes as words too.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "engine/rmid.h"
#include "engine/smf_producer.h"
#include "player/lyrics.h"

namespace {

constexpr TLyrics::TEncoding kEncodings[] = {TLyrics::TEncoding::kAuto, TLyrics::TEncoding::kUtf8,
                                             TLyrics::TEncoding::kShiftJis,
                                             TLyrics::TEncoding::kLatin1};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string raw(reinterpret_cast<const char*>(data), size);
    for (TLyrics::TEncoding encoding : kEncodings) TLyrics::Decode(raw, encoding);
    std::vector<uint8_t> file(data, data + size);
    std::string error;
    if (unwrap_rmid(&file, &error) != 0) return 0;
    TSMFProducer producer;
    if (producer.SetTo(std::move(file)) != 0) return 0;
    for (TLyrics::TEncoding encoding : kEncodings) {
        const TLyrics lyrics = TLyrics::Read(producer, encoding);
        lyrics.SyllableAt(producer.CountTicks() / 2);
    }
    return 0;
}
