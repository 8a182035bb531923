#pragma once
// TLyrics: the words of a song for the lyrics view. They come from the song's lyric meta
// events, or, in a song that has none, from its text events, as karaoke (.kar) files keep
// them: a text starting with "@" is a header (title, language, notes), one starting with
// "/" begins a new line and one with "\" a new paragraph; a line end inside a lyric ends
// its line too.
//
// The bytes are taken as UTF-8 when they are well-formed UTF-8, else as Shift-JIS when they
// are well-formed Shift-JIS without half-width katakana, else as Latin-1, unless the user
// names the encoding.

#include <cstdint>
#include <string>
#include <vector>

class TSMFProducer;

class TLyrics {
  public:
    enum class TEncoding { kAuto, kUtf8, kShiftJis, kLatin1 };

    struct TSyllable {
        uint32_t tick;
        std::string text;  // UTF-8, without its line marks
        bool newLine;
        bool newParagraph;
    };

    TLyrics() = default;
    static TLyrics Read(const TSMFProducer& producer, TEncoding encoding = TEncoding::kAuto);

    const std::vector<TSyllable>& Syllables() const { return fSyllables; }
    const std::vector<std::string>& Headers() const { return fHeaders; }
    // What the bytes were read as; never kAuto.
    TEncoding Encoding() const { return fEncoding; }
    // The syllable being sung at tick: the last one that began at or before it; -1 before
    // the first.
    int32_t SyllableAt(uint32_t tick) const;

    // Raw bytes as UTF-8, in the given encoding or the one detected.
    static std::string Decode(const std::string& bytes, TEncoding encoding);
    static TEncoding Detect(const std::string& bytes);

  private:
    void Add(uint32_t tick, std::string text, bool fromLyricEvent);

    std::vector<TSyllable> fSyllables;
    std::vector<std::string> fHeaders;
    TEncoding fEncoding = TEncoding::kUtf8;
};
