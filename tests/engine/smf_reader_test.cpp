#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "engine/smf_producer.h"
#include "midi/recorder.h"
#include "tests/support/smf_builder.h"
#include "tests/support/temp_dir.h"

namespace {

struct TWalked {
    uint32_t tick, track, port;
    std::string bytes;  // status and data as hex, as --dump prints them
};

class TCollect : public TSMFEventSink {
  public:
    void Event(const TSMFEvent& e) override {
        std::vector<uint8_t> bytes{e.status};
        if (e.status == 0xFF) bytes.push_back(e.metaType);
        bytes.insert(bytes.end(), e.data, e.data + e.length);
        events.push_back({e.tick, e.track, e.port, hex_bytes(bytes.data(), bytes.size())});
    }
    std::vector<TWalked> events;
};

std::vector<TWalked> walk(TSMFProducer& producer) {
    TCollect collect;
    producer.Walk(collect);
    return collect.events;
}

TEST(SmfReader, FormatZeroWithThreeTracksLoadsOne) {
    TSmfBuilder smf(0);
    smf.AddTrack().NoteOn(0, 0, 60, 100).NoteOff(96, 0, 60);
    smf.AddTrack().NoteOn(0, 1, 62, 100);
    smf.DeclareTracks(3);
    TSMFProducer producer;
    ASSERT_EQ(producer.SetTo(smf.Bytes()), 0) << producer.LastError();
    EXPECT_EQ(producer.CountTracks(), 1u);
    EXPECT_EQ(producer.CountTicks(), 96u);
}

TEST(SmfReader, RefusesWhatItCannotPlayWithTheReason) {
    struct TCase {
        std::vector<uint8_t> bytes;
        std::string reason;
    };
    TSmfBuilder format2(2);
    format2.AddTrack();
    TSmfBuilder smpte(1, int16_t(0xE728));
    smpte.AddTrack();
    TSmfBuilder padded;
    padded.AddTrack().NoteOn(0, 0, 60, 1).Trailing({0, 0});
    TSmfBuilder unterminated;
    unterminated.AddTrack().NoteOn(0, 0, 60, 1).WithoutEnd();
    TSmfBuilder tooMany;
    tooMany.AddTrack();
    tooMany.DeclareTracks(2);
    std::vector<uint8_t> tinyChunk = {'M', 'T',  'h', 'd', 0,   0,   0, 6, 0, 1, 0,    1,
                                      1,   0xE0, 'M', 'T', 'r', 'k', 0, 0, 0, 2, 0x2F, 0x00};
    std::vector<uint8_t> hugeChunk = {'M',  'T', 'h', 'd', 0,   0, 0, 6, 0,    1,    0,    1,   1,
                                      0xE0, 'M', 'T', 'r', 'k', 0, 0, 3, 0x90, 0xFF, 0x2F, 0x00};
    std::vector<uint8_t> riff = {'R', 'I', 'F', 'F', 0, 0, 0, 0, 'R', 'M', 'I', 'D'};
    TCase cases[] = {
        {riff, "not a MIDI file"},
        {format2.Bytes(), "format 2"},
        {smpte.Bytes(), "SMPTE"},
        {padded.Bytes(), "track 1: bad track chunk"},
        {unterminated.Bytes(), "track 1: bad track chunk"},
        {tooMany.Bytes(), "track 2: file ends"},
        {tinyChunk, "track 1: chunk length 2 is too short"},
        {hugeChunk, "track 1: chunk length 912 exceeds the file"},
    };
    for (const TCase& c : cases) {
        TSMFProducer producer;
        EXPECT_EQ(producer.SetTo(c.bytes), -1) << c.reason;
        EXPECT_NE(producer.LastError().find(c.reason), std::string::npos)
            << "got: " << producer.LastError();
    }
}

TEST(SmfReader, HeaderLengthTenSkipsFourBytesAndTrailingBytesAreIgnored) {
    TSmfBuilder smf;
    smf.HeaderLength(10).AppendAfterTracks({'J', 'U', 'N', 'K', 1, 2, 3});
    smf.AddTrack().NoteOn(10, 0, 60, 100);
    TSMFProducer producer;
    ASSERT_EQ(producer.SetTo(smf.Bytes()), 0) << producer.LastError();
    EXPECT_EQ(producer.CountTicks(), 10u);
}

TEST(SmfReader, EndOfTrackAloneCountsZeroTicksAndTotalIsTheLongestTrack) {
    TSmfBuilder smf;
    smf.AddTrack();
    smf.AddTrack().NoteOn(300, 0, 60, 1).NoteOff(200, 0, 60);
    smf.AddTrack().NoteOn(100, 0, 60, 1);
    TSMFProducer producer;
    ASSERT_EQ(producer.SetTo(smf.Bytes()), 0);
    EXPECT_EQ(producer.TrackAt(0).CountTicks(), 0u);
    EXPECT_EQ(producer.CountTicks(), 500u);
}

TEST(SmfReader, TitleIsTheFirstNonEmptyTrackName) {
    TSmfBuilder smf;
    smf.AddTrack().NoteOn(0, 0, 60, 1);
    smf.AddTrack().Name(0, "");
    smf.AddTrack().Name(0, "Second Song").Name(0, "later name");
    TSMFProducer producer;
    ASSERT_EQ(producer.SetTo(smf.Bytes()), 0);
    std::string title;
    EXPECT_EQ(producer.GetTitle(&title), 0);
    EXPECT_EQ(title, "Second Song");
    EXPECT_EQ(producer.GetCopyright(&title), -1);

    TSmfBuilder nameless;
    nameless.AddTrack().Meta(0, 0x02, {'(', 'c', ')'});
    ASSERT_EQ(producer.SetTo(nameless.Bytes()), 0);
    EXPECT_EQ(producer.GetTitle(&title), -1);
    EXPECT_TRUE(producer.TrackAt(0).HasCopyright());
}

TEST(SmfReader, WalkResolvesRunningStatusAndKeepsOrderAcrossTracks) {
    TSmfBuilder smf;
    smf.AddTrack().NoteOn(0, 0, 60, 100).Event(0, {62, 90}).Event(10, {64, 80});
    smf.AddTrack().NoteOn(0, 1, 40, 100).Program(10, 1, 5);
    TSMFProducer producer;
    ASSERT_EQ(producer.SetTo(smf.Bytes()), 0);
    std::vector<TWalked> events = walk(producer);
    std::vector<std::string> expected = {"0 0 90 3c 64",  "0 0 90 3e 5a", "0 1 91 28 64",
                                         "10 0 90 40 50", "10 0 ff 2f",   "10 1 c1 05",
                                         "10 1 ff 2f"};
    ASSERT_EQ(events.size(), expected.size());
    for (size_t i = 0; i < events.size(); ++i)
        EXPECT_EQ(std::to_string(events[i].tick) + " " + std::to_string(events[i].track) + " " +
                      events[i].bytes,
                  expected[i]);
}

TEST(SmfReader, RunningStatusAfterMetaEventIsLookedUpAsMeta) {
    // kept: the meta status becomes the running status, so the byte after it reads as a
    // meta type.
    TSmfBuilder smf;
    smf.AddTrack().Name(0, "x").Event(5, {0x01, 0x01, 0x41});
    TSMFProducer producer;
    ASSERT_EQ(producer.SetTo(smf.Bytes()), 0);
    std::vector<TWalked> events = walk(producer);
    ASSERT_GE(events.size(), 2u);
    EXPECT_EQ(events[1].tick, 5u);
    EXPECT_EQ(events[1].bytes, "ff 01 41");
}

TEST(SmfReader, SystemCommonStatusSkipsNoBody) {
    // kept: after 0xF1..0xFE (not 0xFF) the next byte is read as a delta time.
    TSmfBuilder smf;
    smf.AddTrack().Event(0, {0xF8}).Event(7, {0x90, 60, 1});
    TSMFProducer producer;
    ASSERT_EQ(producer.SetTo(smf.Bytes()), 0);
    std::vector<TWalked> events = walk(producer);
    ASSERT_GE(events.size(), 2u);
    EXPECT_EQ(events[0].bytes, "f8");
    EXPECT_EQ(events[1].tick, 7u);
    EXPECT_EQ(events[1].bytes, "90 3c 01");
}

TEST(SmfReader, PortMetaEventMovesTheRestOfTheTrackToTheOtherLane) {
    TSmfBuilder smf;
    smf.AddTrack()
        .NoteOn(0, 0, 60, 1)
        .Port(0, 5)
        .NoteOn(1, 0, 61, 1)
        .Port(1, 0)
        .NoteOn(1, 0, 62, 1);
    TSMFProducer producer;
    ASSERT_EQ(producer.SetTo(smf.Bytes()), 0);
    std::vector<TWalked> events = walk(producer);
    ASSERT_EQ(events.size(), 6u);
    EXPECT_EQ(events[0].port, 0u);
    EXPECT_EQ(events[2].port, 1u);  // note 61
    EXPECT_EQ(events[4].port, 0u);  // note 62
}

TEST(SmfReader, SysExBytesAreThoseBehindTheLength) {
    TSmfBuilder smf;
    smf.AddTrack().SysEx(0, {0x41, 0x10, 0x42, 0x12, 0xF7});
    TSMFProducer producer;
    ASSERT_EQ(producer.SetTo(smf.Bytes()), 0);
    EXPECT_EQ(walk(producer)[0].bytes, "f0 41 10 42 12 f7");
}

TEST(SmfReader, TruncatedLengthsNeverReadPastTheChunk) {
    // A SysEx whose length runs past the chunk, and a name whose length does too.
    std::vector<uint8_t> body = {0x00, 0xF0, 0x7F, 0x01, 0x00, 0xFF, 0x2F, 0x00};
    std::vector<uint8_t> file = {'M', 'T', 'h', 'd', 0,   0,   0,   6, 0, 0, 0,
                                 1,   0,   96,  'M', 'T', 'r', 'k', 0, 0, 0, uint8_t(body.size())};
    file.insert(file.end(), body.begin(), body.end());
    TSMFProducer producer;
    ASSERT_EQ(producer.SetTo(file), 0);
    std::vector<TWalked> events = walk(producer);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].bytes, "f0 01 00 ff 2f 00");
}

TEST(SmfReader, ReadsFilesWithNonAsciiNamesAndNamesMissingOnes) {
    TTempDir dir;
    TSmfBuilder smf;
    smf.AddTrack().Name(0, "Ünïcødé").NoteOn(0, 0, 60, 1);
    auto path = dir.Write("èmpty ソング.mid", smf.Bytes());
    TSMFProducer producer;
    ASSERT_EQ(producer.SetTo(path.string()), 0) << producer.LastError();
    std::string title;
    ASSERT_EQ(producer.GetTitle(&title), 0);
    EXPECT_EQ(title, "Ünïcødé");
    EXPECT_EQ(producer.SetTo((dir.Path() / "missing.mid").string()), -1);
    EXPECT_NE(producer.LastError().find("cannot open"), std::string::npos);
    EXPECT_EQ(producer.CountTracks(), 0u);
}

}  // namespace

namespace {

// A RIFF chunk: tag, little-endian length, body, and the pad byte of an odd body.
std::vector<uint8_t> riff_chunk(const char* tag, const std::vector<uint8_t>& body) {
    std::vector<uint8_t> chunk(tag, tag + 4);
    const uint32_t length = uint32_t(body.size());
    for (int shift = 0; shift < 32; shift += 8) chunk.push_back(uint8_t(length >> shift));
    chunk.insert(chunk.end(), body.begin(), body.end());
    if (body.size() & 1) chunk.push_back(0);
    return chunk;
}

std::vector<uint8_t> riff_file(const char* form, const std::vector<std::vector<uint8_t>>& chunks) {
    std::vector<uint8_t> inside(form, form + 4);
    for (const auto& chunk : chunks) inside.insert(inside.end(), chunk.begin(), chunk.end());
    return riff_chunk("RIFF", inside);
}

}  // namespace

TEST(SmfReader, AnRmidFilePlaysAsTheSongInsideIt) {
    TSmfBuilder smf(1, 96);
    smf.AddTrack().Name(0, "Wrapped").NoteOn(0, 0, 60, 100).NoteOff(96, 0, 60);
    // An odd-length chunk before the song, so the word alignment counts.
    std::vector<uint8_t> rmid = riff_file(
        "RMID", {riff_chunk("LIST", {'I', 'N', 'F', 'O', 'x'}), riff_chunk("data", smf.Bytes())});
    TTempDir dir;
    TSMFProducer plain, wrapped;
    ASSERT_EQ(plain.SetTo(smf.Bytes()), 0);
    ASSERT_EQ(wrapped.SetTo(dir.Write("wrapped.rmi", rmid).string()), 0) << wrapped.LastError();
    // The reader itself still takes only the song.
    EXPECT_EQ(TSMFProducer().SetTo(rmid), -1);
    std::string title;
    ASSERT_EQ(wrapped.GetTitle(&title), 0);
    EXPECT_EQ(title, "Wrapped");
    EXPECT_EQ(wrapped.CountTicks(), 96u);
    const std::vector<TWalked> a = walk(plain), b = walk(wrapped);
    ASSERT_EQ(a.size(), b.size());
    for (size_t i = 0; i < a.size(); ++i) EXPECT_EQ(a[i].bytes, b[i].bytes) << i;
}

TEST(SmfReader, ADamagedOrForeignRiffWrapperIsRefusedWithTheReason) {
    TSmfBuilder smf(1, 96);
    smf.AddTrack().NoteOn(0, 0, 60, 100).NoteOff(96, 0, 60);
    std::vector<uint8_t> cut = riff_file("RMID", {riff_chunk("data", smf.Bytes())});
    cut.resize(cut.size() - 5);
    struct TCase {
        std::vector<uint8_t> bytes;
        std::string reason;
    };
    const TCase cases[] = {
        {cut, "damaged RMID file: a chunk runs past the end of the file"},
        {riff_file("RMID", {riff_chunk("LIST", {1, 2})}),
         "damaged RMID file: it holds no \"data\" chunk"},
        {riff_file("WAVE", {riff_chunk("fmt ", {1, 2})}), "not a MIDI file (a RIFF \"WAVE\" file)"},
        {{'R', 'I', 'F', 'F', 4, 0}, "damaged RMID file: the RIFF header is cut short"},
    };
    TTempDir dir;
    for (const TCase& c : cases) {
        TSMFProducer producer;
        EXPECT_EQ(producer.SetTo(dir.Write("song.rmi", c.bytes).string()), -1) << c.reason;
        EXPECT_EQ(producer.LastError(), c.reason);
    }
}

TEST(SmfReader, AFailedLoadLeavesNoTracksBehind) {
    // Tracks read before the failure are not kept: the song cannot be played, and a
    // half-read song must not play by mistake or hold its file's memory.
    TSmfBuilder smf;
    smf.AddTrack().NoteOn(0, 0, 60, 1).NoteOff(96, 0, 60);
    smf.AddTrack().NoteOn(0, 0, 62, 1).WithoutEnd();
    TSMFProducer producer;
    ASSERT_EQ(producer.SetTo(smf.Bytes()), -1);
    EXPECT_NE(producer.LastError().find("track 2"), std::string::npos) << producer.LastError();
    EXPECT_EQ(producer.CountTracks(), 0u);
    EXPECT_EQ(producer.CountTicks(), 0u);
    EXPECT_TRUE(walk(producer).empty());
}

TEST(SmfReader, SysExStatusServesAsRunningStatusForTheNextEvent) {
    // kept: 0xF0 becomes the running status, so a data byte after a SysEx starts another
    // SysEx whose length it is.
    TSmfBuilder smf;
    smf.AddTrack().SysEx(0, {0x41, 0x42, 0xF7}).Event(5, {0x02, 0x43, 0xF7}).NoteOn(1, 0, 60, 1);
    TSMFProducer producer;
    ASSERT_EQ(producer.SetTo(smf.Bytes()), 0);
    std::vector<TWalked> events = walk(producer);
    ASSERT_GE(events.size(), 3u);
    EXPECT_EQ(events[0].bytes, "f0 41 42 f7");
    EXPECT_EQ(events[1].tick, 5u);
    EXPECT_EQ(events[1].bytes, "f0 43 f7");
    EXPECT_EQ(events[2].tick, 6u);
    EXPECT_EQ(events[2].bytes, "90 3c 01");
}

TEST(SmfReader, TicksThatWrapPastTwoToTheThirtyTwoSortAsTheyWrapped) {
    // Seventeen deltas of 2^28 - 1 pass 2^32: the last note's tick wraps to a small one,
    // and it plays where its wrapped tick sorts, as in a tick-keyed multimap.
    TSmfBuilder smf;
    TTrackBuilder& track = smf.AddTrack();
    constexpr uint32_t kDelta = (1u << 28) - 1;
    for (uint8_t i = 0; i < 17; ++i) track.NoteOn(kDelta, 0, uint8_t(40 + i), 1);
    TSMFProducer producer;
    ASSERT_EQ(producer.SetTo(smf.Bytes()), 0);
    EXPECT_EQ(producer.CountTicks(), 16u * kDelta);
    std::vector<TWalked> events = walk(producer);
    ASSERT_EQ(events.size(), 18u);  // and End of Track
    const uint32_t wrapped = uint32_t(uint64_t(17) * kDelta);
    EXPECT_EQ(events[0].tick, wrapped);
    EXPECT_EQ(events[0].bytes, "90 38 01");  // note 56, the seventeenth
    EXPECT_EQ(events[1].tick, wrapped) << "End of Track shares its tick";
    EXPECT_EQ(events[2].tick, kDelta);
    EXPECT_EQ(events[2].bytes, "90 28 01");
    for (size_t i = 1; i < events.size(); ++i) EXPECT_LE(events[i - 1].tick, events[i].tick);
    EXPECT_EQ(producer.TrackAt(0).WaitTick(wrapped), kDelta - wrapped);
}
