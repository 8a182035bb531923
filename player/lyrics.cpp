#include "player/lyrics.h"

#include <algorithm>

#include "engine/smf_producer.h"
#include "veldan/base/text_encoding.h"

namespace {

using veldan::is_valid_utf8;
using veldan::latin1_to_utf8;

constexpr uint8_t kMetaLyric = 0x05;

struct TRawText {
    uint32_t tick;
    std::string bytes;
};

// The lyric events of every track if the song has any, else its text events, by tick.
std::vector<TRawText> raw_texts(const TSMFProducer& producer, bool* fromLyrics) {
    std::vector<TRawText> lyrics, texts;
    for (size_t i = 0; i < producer.CountTracks(); ++i) {
        const TSMFTrack& track = producer.TrackAt(i);
        for (const TSMFTrack::TTextEvent& event : track.TextEvents())
            (event.type == kMetaLyric ? lyrics : texts)
                .push_back({event.tick, track.TextOf(event)});
    }
    *fromLyrics = !lyrics.empty();
    std::vector<TRawText>& chosen = *fromLyrics ? lyrics : texts;
    std::stable_sort(chosen.begin(), chosen.end(),
                     [](const TRawText& a, const TRawText& b) { return a.tick < b.tick; });
    return chosen;
}

}  // namespace

TLyrics::TEncoding TLyrics::Detect(const std::string& bytes) {
    // As the playlist plug-ins read lines.
    switch (veldan::detect_encoding(bytes)) {
        case veldan::TTextEncoding::kUtf8:
            return TEncoding::kUtf8;
        case veldan::TTextEncoding::kShiftJis:
            return TEncoding::kShiftJis;
        case veldan::TTextEncoding::kLatin1:
            break;
    }
    return TEncoding::kLatin1;
}

std::string TLyrics::Decode(const std::string& bytes, TEncoding encoding) {
    if (encoding == TEncoding::kAuto) encoding = Detect(bytes);
    std::string utf8;
    switch (encoding) {
        case TEncoding::kShiftJis:
            if (veldan::sjis_to_utf8(bytes, &utf8)) return utf8;
            break;  // not Shift-JIS after all: every byte still shows
        case TEncoding::kUtf8:
            if (is_valid_utf8(bytes)) return bytes;
            break;
        default:
            break;
    }
    return latin1_to_utf8(bytes);
}

TLyrics TLyrics::Read(const TSMFProducer& producer, TEncoding encoding) {
    bool fromLyrics = false;
    const std::vector<TRawText> texts = raw_texts(producer, &fromLyrics);
    TLyrics lyrics;
    std::string all;
    for (const TRawText& text : texts) all += text.bytes;
    lyrics.fEncoding = encoding == TEncoding::kAuto ? Detect(all) : encoding;
    for (const TRawText& text : texts)
        lyrics.Add(text.tick, Decode(text.bytes, lyrics.fEncoding), fromLyrics);
    return lyrics;
}

void TLyrics::Add(uint32_t tick, std::string text, bool fromLyricEvent) {
    if (!fromLyricEvent && !text.empty() && text[0] == '@') {
        fHeaders.push_back(text.size() > 2 ? text.substr(2) : std::string());
        return;
    }
    TSyllable syllable{tick, {}, false, false};
    if (!text.empty() && (text[0] == '\\' || text[0] == '/')) {
        syllable.newParagraph = text[0] == '\\';
        syllable.newLine = true;
        text.erase(0, 1);
    }
    // A line end in the text ends the line after it: an empty syllable that starts a line.
    bool endsLine = false;
    while (!text.empty() && (text.back() == '\r' || text.back() == '\n')) {
        text.pop_back();
        endsLine = true;
    }
    syllable.text = std::move(text);
    fSyllables.push_back(std::move(syllable));
    if (endsLine) fSyllables.push_back({tick, {}, true, false});
}

int32_t TLyrics::SyllableAt(uint32_t tick) const {
    const auto after = std::upper_bound(fSyllables.begin(), fSyllables.end(), tick,
                                        [](uint32_t t, const TSyllable& s) { return t < s.tick; });
    return int32_t(after - fSyllables.begin()) - 1;
}
