// The words of songs: karaoke conventions, lyric events, encodings, and the view following
// the play position.

#include "player/lyrics.h"

#include <gtest/gtest.h>

#include <QComboBox>

#include "engine/smf_producer.h"
#include "player/lyrics_view.h"
#include "tests/support/smf_builder.h"
#include "tests/support/widget_app.h"
#include "veldan/core/llt.h"

namespace {

std::vector<uint8_t> bytes_of(const std::string& text) { return {text.begin(), text.end()}; }

TSMFProducer* load(TSMFProducer* producer, const TSmfBuilder& smf) {
    EXPECT_EQ(producer->SetTo(smf.Bytes()), 0) << producer->LastError();
    return producer;
}

std::vector<std::string> texts_of(const TLyrics& lyrics) {
    std::vector<std::string> texts;
    for (const auto& syllable : lyrics.Syllables())
        texts.push_back((syllable.newParagraph ? "\\\\"
                         : syllable.newLine    ? "/"
                                               : "") +
                        syllable.text);
    return texts;
}

TEST(Lyrics, KaraokeTextsGiveHeadersLinesAndParagraphs) {
    TSmfBuilder smf(1, 480);
    smf.AddTrack().NoteOn(0, 0, 60, 100).NoteOff(480 * 4, 0, 60);
    smf.AddTrack()
        .Meta(0, 0x01, bytes_of("@KMIDI KARAOKE FILE"))
        .Meta(0, 0x01, bytes_of("@TMy Song"))
        .Meta(100, 0x01, bytes_of("\\Hel"))
        .Meta(100, 0x01, bytes_of("lo "))
        .Meta(100, 0x01, bytes_of("/world"));
    TSMFProducer producer;
    TLyrics lyrics = TLyrics::Read(*load(&producer, smf));
    EXPECT_EQ(lyrics.Headers(), (std::vector<std::string>{"MIDI KARAOKE FILE", "My Song"}));
    EXPECT_EQ(texts_of(lyrics), (std::vector<std::string>{"\\\\Hel", "lo ", "/world"}));
    EXPECT_EQ(lyrics.SyllableAt(0), -1);
    EXPECT_EQ(lyrics.SyllableAt(100), 0);
    EXPECT_EQ(lyrics.SyllableAt(250), 1);
    EXPECT_EQ(lyrics.SyllableAt(300), 2);
    EXPECT_EQ(lyrics.SyllableAt(100000), 2);
}

TEST(Lyrics, LyricEventsWinOverTextEventsAndTheirLineEndsEndLines) {
    TSmfBuilder smf(1, 480);
    smf.AddTrack()
        .Meta(0, 0x01, bytes_of("a text, not a lyric"))
        .Meta(10, 0x05, bytes_of("Twin"))
        .Meta(10, 0x05, bytes_of("kle\r"))
        .Meta(10, 0x05, bytes_of("little"));
    TSMFProducer producer;
    TLyrics lyrics = TLyrics::Read(*load(&producer, smf));
    EXPECT_TRUE(lyrics.Headers().empty());
    EXPECT_EQ(texts_of(lyrics), (std::vector<std::string>{"Twin", "kle", "/", "little"}));
}

TEST(Lyrics, EncodingsAreDetectedAndCanBeNamed) {
    const std::string sjis = "\x82\xb1\x82\xf1\x82\xc9\x82\xbf\x82\xcd";  // "こんにちは"
    const std::string latin1 =
        "Caf\xe9 cr\xe8me \xc0 \xc9t\xe9";  // capitals: katakana in Shift-JIS
    const std::string utf8 = "Caf\xc3\xa9";
    EXPECT_EQ(TLyrics::Detect(sjis), TLyrics::TEncoding::kShiftJis);
    EXPECT_EQ(TLyrics::Detect(latin1), TLyrics::TEncoding::kLatin1);
    EXPECT_EQ(TLyrics::Detect(utf8), TLyrics::TEncoding::kUtf8);
    EXPECT_EQ(TLyrics::Decode(sjis, TLyrics::TEncoding::kAuto),
              "\xe3\x81\x93\xe3\x82\x93\xe3\x81\xab\xe3\x81\xa1\xe3\x81\xaf");
    EXPECT_EQ(TLyrics::Decode(latin1, TLyrics::TEncoding::kAuto),
              "Caf\xc3\xa9 cr\xc3\xa8me \xc3\x80 \xc3\x89t\xc3\xa9");
    EXPECT_EQ(TLyrics::Decode(utf8, TLyrics::TEncoding::kAuto), utf8);
    // Named by the user: the Shift-JIS bytes read as Latin-1 are other letters.
    EXPECT_EQ(TLyrics::Decode(sjis, TLyrics::TEncoding::kLatin1).size(), sjis.size() * 2);
    // Bytes that are not of the named encoding still all show.
    EXPECT_EQ(TLyrics::Decode(latin1, TLyrics::TEncoding::kUtf8),
              TLyrics::Decode(latin1, TLyrics::TEncoding::kLatin1));

    TSmfBuilder smf(1, 480);
    smf.AddTrack().Meta(0, 0x05, bytes_of(sjis));
    TSMFProducer producer;
    TLyrics lyrics = TLyrics::Read(*load(&producer, smf));
    EXPECT_EQ(lyrics.Encoding(), TLyrics::TEncoding::kShiftJis);
    EXPECT_EQ(TLyrics::Read(producer, TLyrics::TEncoding::kLatin1).Encoding(),
              TLyrics::TEncoding::kLatin1);
}

class LyricsView : public TWidgetTest {};

TEST_F(LyricsView, TheSyllableSungIsFollowedWhilePlaying) {
    TSmfBuilder smf(1, 480);  // a syllable every eighth of a second
    TTrackBuilder& track = smf.AddTrack();
    for (const char* syllable : {"one ", "two ", "three ", "four ", "five"})
        track.Meta(60, 0x05, bytes_of(syllable));
    track.NoteOn(0, 0, 60, 1).NoteOff(480 * 4, 0, 60);
    TSMFProducer producer;
    load(&producer, smf);
    veldan::TLLT texts;
    quill::TLyricsView view(texts, producer);
    view.SongChanged();
    EXPECT_EQ(view.ShownText(), "one two three four five");
    EXPECT_EQ(view.CurrentSyllable(), -1);
    producer.Play();
    EXPECT_TRUE(process_until([&] {
        view.FollowPosition();
        return view.CurrentSyllable() >= 3;
    }));
    producer.Stop();

    auto* encoding = view.findChild<QComboBox*>("MFieldLyricsEncoding");
    ASSERT_NE(encoding, nullptr);
    encoding->setCurrentIndex(3);  // Latin-1 by hand
    EXPECT_EQ(view.Lyrics().Encoding(), TLyrics::TEncoding::kLatin1);
}

}  // namespace
