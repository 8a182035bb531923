// The player controller against real files, the real chain and its threads: recorders
// on both public ports hear what would reach a synthesizer.

#include "player/quill_view.h"

#include <gtest/gtest.h>

#include <QLabel>
#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "engine/sys_reset.h"
#include "midi/recorder.h"
#include "player/pref.h"
#include "player/resources.h"
#include "playlist/orvick_view.h"
#include "playlist/quill_sitem.h"
#include "tests/support/message_recorder.h"
#include "tests/support/note_balance.h"
#include "tests/support/scoped_env.h"
#include "tests/support/smf_builder.h"
#include "tests/support/temp_dir.h"
#include "tests/support/wait.h"
#include "tests/support/widget_app.h"
#include "veldan/core/llt.h"

// The engine's state names; the control bar repeats the first three in its namespace.
using quill::kMsgKeyChanged;
using quill::kMsgPosChanged;
using quill::kMsgTempoChanged;
using quill::kMsgVolumeChanged;
using quill::kPlayModeAIRandom;
using quill::kPlayModeMonoRepeat;
using quill::kPlayModeRandom;
using quill::kPlayModeSeq;
using quill::kPlayModeSeqRepeat;
using quill::TLCDIndicator;
using quill::TQuillController;
using quill::TQuillView;

namespace {

constexpr uint8_t kNote = 60;
// At 480 ticks per quarter and the default tempo, 48 ticks last 50 ms.
constexpr uint32_t kShortSong = 48;
constexpr uint32_t kLongSong = 480 * 40;  // 20 s
constexpr int64_t kSecondUs = 1000000;

bool is_note_on(const std::vector<uint8_t>& bytes) {
    return bytes.size() == 3 && (bytes[0] & 0xF0) == 0x90 && bytes[1] == kNote && bytes[2] != 0;
}

bool is_note_off(const std::vector<uint8_t>& bytes) {
    return bytes.size() == 3 && bytes[1] == kNote &&
           ((bytes[0] & 0xF0) == 0x80 || ((bytes[0] & 0xF0) == 0x90 && bytes[2] == 0));
}

// The reset of that kind (1 GM, 2 GS, 4 88, 8 XG), as the port sends it after 0xF0.
bool is_reset(const std::vector<uint8_t>& bytes, int32_t kind) {
    for (const TSysReset& reset : kSysResets)
        if (reset.kind == kind)
            return bytes.size() > reset.length && bytes[0] == 0xF0 &&
                   std::memcmp(bytes.data() + 1, reset.bytes, reset.length) == 0;
    return false;
}

}  // namespace

class QuillViewTest : public TWidgetTest {
  protected:
    QuillViewTest() {
        fView = std::make_unique<TQuillView>(fTexts, fPrefs, fTemp.Path() / "no-loaders");
        fView->Controller().SetClock([this] { return fNow; });
        fView->Controller().Chain().PublicOut(0)->Connect(&fPortA);
        fView->Controller().Chain().PublicOut(1)->Connect(&fPortB);
    }
    ~QuillViewTest() override { fView.reset(); }

    // Whatever a test did, a stop leaves no note sounding on either port.
    void TearDown() override {
        fView->Controller().StopSong();
        ExpectNothingSounds("the final stop");
    }

    // Every note that reached a port has been released, once the lanes and the recorders
    // have handled everything sent so far.
    void ExpectNothingSounds(const std::string& after) {
        ASSERT_TRUE(fView->Controller().Chain().WaitIdle(2000000));
        ASSERT_TRUE(fPortA.WaitIdle(2000000) && fPortB.WaitIdle(2000000));
        EXPECT_EQ(sounding_notes(fPortA), 0) << "port A, after " << after;
        EXPECT_EQ(sounding_notes(fPortB), 0) << "port B, after " << after;
    }

    std::filesystem::path WriteSong(int number, uint32_t noteTicks, bool withGSReset = false) {
        TSmfBuilder smf(1, 480);
        TTrackBuilder& track = smf.AddTrack().Name(0, "Song " + std::to_string(number));
        if (withGSReset)
            track.SysEx(0, {0x41, 0x10, 0x42, 0x12, 0x40, 0x00, 0x7F, 0x00, 0x41, 0xF7});
        track.NoteOn(0, 0, kNote, 100).NoteOff(noteTicks, 0, kNote);
        return fTemp.Write("song" + std::to_string(number) + ".mid", smf.Bytes());
    }

    // Songs 0 to count - 1; the first one added becomes current and is loaded.
    void AddSongs(int count, uint32_t noteTicks) {
        for (int i = 0; i < count; ++i) AddSong(WriteSong(i, noteTicks));
        ASSERT_TRUE(
            process_until([this] { return fView->Controller().Producer().CountTracks() > 0; }));
    }
    void AddSong(const std::filesystem::path& file) {
        ASSERT_TRUE(fView->OrvickView()->AddListFolderFileToTopLevel(file)) << file;
    }
    // kNote held through the whole of kLongSong on channel 0, and a short note on channel 1
    // every beat, so that the play position moves in steps of a beat.
    std::filesystem::path WriteHeldNoteWithBeats() {
        TSmfBuilder smf(1, 480);
        smf.AddTrack().Name(0, "Held").NoteOn(0, 0, kNote, 100).NoteOff(kLongSong, 0, kNote);
        TTrackBuilder& beats = smf.AddTrack();
        for (uint32_t beat = 0; beat < kLongSong / 480; ++beat)
            beats.NoteOn(beat == 0 ? 0 : 360, 1, 48, 80).NoteOff(120, 1, 48);
        return fTemp.Write("held.mid", smf.Bytes());
    }
    // Songs that cannot be loaded, each for its own reason.
    std::filesystem::path WriteFormat2(const std::string& name) {
        TSmfBuilder smf(2, 480);
        smf.AddTrack().NoteOn(0, 0, kNote, 100).NoteOff(48, 0, kNote);
        return fTemp.Write(name, smf.Bytes());
    }
    std::filesystem::path WriteWithoutTracks(const std::string& name) {
        return fTemp.Write(name, TSmfBuilder(1, 480).Bytes());
    }
    // Listed while it exists, then gone.
    void AddMissingSong(const std::string& name) {
        std::filesystem::path file = WriteSong(99, kShortSong);
        std::filesystem::path renamed = fTemp.Path() / name;
        std::filesystem::rename(file, renamed);
        AddSong(renamed);
        std::filesystem::remove(renamed);
    }
    std::string StatusText() const {
        return fView->ControlBar()->findChild<QLabel*>("StatBar")->text().toStdString();
    }
    void SelectSong(int32_t index) {
        fView->OrvickView()->clearSelection();
        fView->OrvickView()->Song(index)->setSelected(true);
    }

    bool WaitForState(int32_t state) {
        return process_until([&] { return fView->Controller().State() == state; });
    }
    size_t Count(const TMidiRecorder& port, bool (*match)(const std::vector<uint8_t>&)) const {
        size_t count = 0;
        for (size_t i = 0; i < port.Count(); ++i) count += match(port.EventBytes(i)) ? 1 : 0;
        return count;
    }
    bool WaitForCount(const TMidiRecorder& port, bool (*match)(const std::vector<uint8_t>&),
                      size_t count) {
        return process_until([&] { return Count(port, match) >= count; });
    }
    int32_t Priority(int number) const {
        const auto& scores = fView->Controller().AISelector().Scores();
        auto at = scores.find("song" + std::to_string(number) + ".mid");
        return at == scores.end() ? TAISelector::kNeutralPriority : at->second.priority;
    }
    TLCDIndicator* Indicator(const char* name) const {
        return fView->ControlBar()->findChild<TLCDIndicator*>(name);
    }
    void Post(uint32_t what, const char* field, int32_t value) {
        veldan::TMessage message(what);
        message.AddInt32(field, value);
        veldan::post_message(fView.get(), message);
        QCoreApplication::sendPostedEvents();
    }

    TTempDir fTemp;
    TTempDir fConfig;
    TScopedEnv fXdg{"XDG_CONFIG_HOME", fConfig.Path().c_str()};
    veldan::TLLT fTexts;
    TPref fPrefs;
    int64_t fNow = 1000 * kSecondUs;
    TMidiRecorder fPortA{"port A", 1 << 16};
    TMidiRecorder fPortB{"port B", 1 << 16};
    std::unique_ptr<TQuillView> fView;
};

TEST_F(QuillViewTest, SequentialStopsAfterTheLastSong) {
    AddSongs(2, kShortSong);
    fView->Controller().SetPlayMode(kPlayModeSeq);
    ASSERT_TRUE(fView->Controller().ChangeSong(1, false));
    ASSERT_TRUE(fView->Controller().PlaySong());
    EXPECT_EQ(fView->Controller().State(), kStatePlaying);
    ASSERT_TRUE(WaitForState(kStateStopped));
    EXPECT_EQ(fView->Controller().CurSongIdx(), 1);
    EXPECT_EQ(fView->Controller().Producer().CountTracks(), 0u);
    EXPECT_EQ(Count(fPortA, is_note_on), 1u);
}

TEST_F(QuillViewTest, SequentialRepeatWrapsToTheFirstSong) {
    AddSongs(2, kShortSong);
    fView->Controller().SetPlayMode(kPlayModeSeqRepeat);
    ASSERT_TRUE(fView->Controller().ChangeSong(1, false));
    ASSERT_TRUE(fView->Controller().PlaySong());
    ASSERT_TRUE(process_until([this] { return fView->Controller().CurSongIdx() == 0; }));
    EXPECT_EQ(fView->Controller().State(), kStatePlaying);
    EXPECT_EQ(fView->Controller().SongTitle(), "Song 0");
    ASSERT_TRUE(WaitForCount(fPortA, is_note_on, 2));
}

TEST_F(QuillViewTest, MonoRepeatRestartsTheSongButNextMovesOn) {
    AddSongs(2, kShortSong);
    fView->Controller().SetPlayMode(kPlayModeMonoRepeat);
    ASSERT_TRUE(fView->Controller().PlaySong());
    ASSERT_TRUE(WaitForCount(fPortA, is_note_on, 3));
    EXPECT_EQ(fView->Controller().CurSongIdx(), 0);
    fView->Controller().NextSong();
    EXPECT_EQ(fView->Controller().CurSongIdx(), 1);
    EXPECT_EQ(fView->Controller().State(), kStatePlaying);
    fView->Controller().PauseSong();
    ExpectNothingSounds("next, then pause");
}

TEST_F(QuillViewTest, RandomWithOneSongPicksItAgain) {
    AddSongs(1, kShortSong);
    fView->Controller().SetRandom([] { return 12345u; });
    fView->Controller().SetPlayMode(kPlayModeRandom);
    ASSERT_TRUE(fView->Controller().PlaySong());
    ASSERT_TRUE(WaitForCount(fPortA, is_note_on, 2));
    EXPECT_EQ(fView->Controller().CurSongIdx(), 0);
    fView->Controller().NextSong();
    EXPECT_EQ(fView->Controller().CurSongIdx(), 0);
    EXPECT_GT(fView->Controller().Producer().CountTracks(), 0u);
}

TEST_F(QuillViewTest, RandomDrawsFromTheInjectedSource) {
    AddSongs(3, kLongSong);
    std::vector<uint32_t> draws = {0, 3, 5};  // modulo 3: the current song, again, then 2
    size_t next = 0;
    fView->Controller().SetRandom([&] { return draws[next++]; });
    fView->Controller().SetPlayMode(kPlayModeRandom);
    fView->Controller().NextSong();
    EXPECT_EQ(fView->Controller().CurSongIdx(), 2);
    EXPECT_EQ(next, 3u);
}

TEST_F(QuillViewTest, AnInjectedGeneratorReplaysTheSameRandomOrderInBothRandomModes) {
    AddSongs(6, kLongSong);
    auto engine = std::make_shared<std::mt19937>();
    fView->Controller().SetRandom([engine] { return uint32_t((*engine)()); });
    auto order = [&] {
        engine->seed(20261124);
        std::vector<int32_t> picked;
        if (!fView->Controller().ChangeSong(0, false)) return picked;
        for (int i = 0; i < 12; ++i) {
            fView->Controller().NextSong();
            picked.push_back(fView->Controller().CurSongIdx());
        }
        return picked;
    };
    for (int32_t mode : {int32_t(kPlayModeRandom), int32_t(kPlayModeAIRandom)}) {
        fView->Controller().SetPlayMode(mode);
        // The selector weighs a song it meets for the first time lower: meet them all.
        fView->Controller().NextSong();
        std::vector<int32_t> first = order();
        ASSERT_EQ(first.size(), 12u);
        EXPECT_EQ(order(), first) << "mode " << mode;
        std::sort(first.begin(), first.end());
        EXPECT_GE(std::unique(first.begin(), first.end()) - first.begin(), 3) << "mode " << mode;
    }
}

TEST_F(QuillViewTest, NextEarlyLowersTheScoreLateDoesNot) {
    AddSongs(2, kLongSong);
    fView->Controller().SetPlayMode(kPlayModeSeqRepeat);
    ASSERT_TRUE(fView->Controller().PlaySong());
    const int32_t first = Priority(0);
    fNow += 5 * kSecondUs;
    fView->Controller().NextSong();
    EXPECT_EQ(Priority(0), first - 1);
    ASSERT_EQ(fView->Controller().CurSongIdx(), 1);

    const int32_t second = Priority(1);
    fNow += 15 * kSecondUs;
    fView->Controller().NextSong();
    EXPECT_EQ(Priority(1), second);
    EXPECT_EQ(fView->Controller().CurSongIdx(), 0);
}

TEST_F(QuillViewTest, ScoresStayWhenLearningIsOff) {
    fPrefs.useAIDatabase = false;
    AddSongs(2, kLongSong);
    ASSERT_TRUE(fView->Controller().PlaySong());
    fNow += 5 * kSecondUs;
    fView->Controller().NextSong();
    fView->Controller().ScoreUpCurrentSong();
    EXPECT_TRUE(fView->Controller().AISelector().Scores().empty());
}

TEST_F(QuillViewTest, PlayingLearnsTheSongWhenLearningIsOn) {
    AddSongs(2, kLongSong);
    const int32_t before = Priority(0);
    fView->CButtonPlayClicked();
    EXPECT_EQ(Priority(0), before + 1);
    EXPECT_EQ(fView->Controller().State(), kStatePlaying);
}

TEST_F(QuillViewTest, ResetsGoOutInOrderWithTheirSilences) {
    fPrefs.sendSysResets = true;
    fPrefs.sysResetCombination = 0x0A;  // GS and XG
    fPrefs.silenceAfterResetsUs = 150000;
    AddSongs(1, kShortSong);
    ASSERT_TRUE(fView->Controller().PlaySong());
    EXPECT_EQ(fView->Controller().State(), kStateAfterGS);
    EXPECT_EQ(Indicator("StrViewSysGS")->Lit(), TLCDIndicator::TLit::kHalfLit);
    EXPECT_EQ(Indicator("StrViewSysGM")->Lit(), TLCDIndicator::TLit::kUnlit);
    ASSERT_TRUE(WaitForState(kStateAfterXG));
    ASSERT_TRUE(WaitForState(kStatePlaying));
    ASSERT_TRUE(WaitForCount(fPortA, is_note_on, 1));

    ASSERT_GE(fPortA.Count(), 3u);
    EXPECT_TRUE(is_reset(fPortA.EventBytes(0), 2));
    EXPECT_TRUE(is_reset(fPortA.EventBytes(1), 8));
    EXPECT_TRUE(is_note_on(fPortA.EventBytes(2)));
    auto entries = fPortA.Entries();
    EXPECT_GE(entries[1].arrivalUs - entries[0].arrivalUs, 140000);
    EXPECT_GE(entries[2].arrivalUs - entries[1].arrivalUs, 140000);
    ASSERT_TRUE(wait_for([this] { return fPortB.Count() >= 2; }));
    EXPECT_TRUE(is_reset(fPortB.EventBytes(0), 2));
    EXPECT_TRUE(is_reset(fPortB.EventBytes(1), 8));
}

TEST_F(QuillViewTest, PlayOnAnotherSongWhilePlayingStartsItOnceWithItsWholeResetWait) {
    fPrefs.sendSysResets = true;
    fPrefs.sysResetCombination = 0x02;  // GS
    fPrefs.silenceAfterResetsUs = 150000;
    AddSongs(2, kLongSong);
    ASSERT_TRUE(fView->Controller().PlaySong());
    ASSERT_TRUE(WaitForState(kStatePlaying));
    ASSERT_TRUE(WaitForCount(fPortA, is_note_on, 1));
    SelectSong(1);
    fView->CButtonPlayClicked();
    EXPECT_EQ(fView->Controller().CurSongIdx(), 1);
    EXPECT_EQ(fView->Controller().State(), kStateAfterGS) << "waiting after the reset";
    ASSERT_TRUE(WaitForCount(fPortA, is_note_on, 2));
    auto entries = fPortA.Entries();
    size_t reset = 0;
    size_t note = 0;
    for (size_t i = 0; i < entries.size(); ++i) {
        if (is_reset(fPortA.EventBytes(i), 2)) reset = i;
        if (is_note_on(fPortA.EventBytes(i))) note = i;
    }
    ASSERT_LT(reset, note);
    EXPECT_GE(entries[note].arrivalUs - entries[reset].arrivalUs, 140000)
        << "the second song's first note came before the silence after its reset";
}

TEST_F(QuillViewTest, PlayAgainWhilePreparingLeavesTheWaitAlone) {
    fPrefs.sendSysResets = true;
    fPrefs.sysResetCombination = 0x02;  // GS
    fPrefs.silenceAfterResetsUs = 150000;
    AddSongs(1, kLongSong);
    ASSERT_TRUE(fView->Controller().PlaySong());
    ASSERT_EQ(fView->Controller().State(), kStateAfterGS);
    fView->CButtonPlayClicked();  // as the media keys' Play does while not playing yet
    EXPECT_EQ(fView->Controller().State(), kStateAfterGS);
    ASSERT_TRUE(WaitForCount(fPortA, is_note_on, 1));
    auto entries = fPortA.Entries();
    ASSERT_GE(entries.size(), 2u);
    EXPECT_TRUE(is_reset(fPortA.EventBytes(0), 2));
    EXPECT_GE(entries[1].arrivalUs - entries[0].arrivalUs, 140000);
}

TEST_F(QuillViewTest, WithoutSilencesOrResetsASongStartsAtOnce) {
    AddSongs(1, kLongSong);
    ASSERT_TRUE(fView->Controller().PlaySong());
    EXPECT_EQ(fView->Controller().State(), kStatePlaying);
    ASSERT_TRUE(WaitForCount(fPortA, is_note_on, 1));
    EXPECT_EQ(fPortA.Count(), 1u);
}

TEST_F(QuillViewTest, SilenceBetweenSongsWaitsBeforeTheStart) {
    fPrefs.waitBetweenSongs = true;
    fPrefs.silenceBetweenSongsUs = 100000;
    AddSongs(1, kLongSong);
    ASSERT_TRUE(fView->Controller().PlaySong());
    EXPECT_EQ(fView->Controller().State(), kStateAfterSilence);
    ASSERT_TRUE(WaitForState(kStatePlaying));
    ASSERT_TRUE(WaitForCount(fPortA, is_note_on, 1));
}

TEST_F(QuillViewTest, StopSilencesTheSoundingNoteAndUnloads) {
    AddSongs(1, kLongSong);
    ASSERT_TRUE(fView->Controller().PlaySong());
    ASSERT_TRUE(WaitForCount(fPortA, is_note_on, 1));
    fView->Controller().StopSong();
    EXPECT_EQ(fView->Controller().State(), kStateStopped);
    EXPECT_EQ(fView->Controller().Producer().CountTracks(), 0u);
    EXPECT_TRUE(WaitForCount(fPortA, is_note_off, 1));
    ExpectNothingSounds("stop");
}

TEST_F(QuillViewTest, PauseSilencesAndResumes) {
    AddSongs(1, kLongSong);
    ASSERT_TRUE(fView->Controller().PlaySong());
    ASSERT_TRUE(WaitForCount(fPortA, is_note_on, 1));
    fView->Controller().PauseSong();
    EXPECT_EQ(fView->Controller().State(), kStatePaused);
    EXPECT_TRUE(fView->Controller().Producer().IsPaused());
    EXPECT_TRUE(WaitForCount(fPortA, is_note_off, 1));
    ExpectNothingSounds("pause");
    fView->CButtonPlayClicked();
    EXPECT_EQ(fView->Controller().State(), kStatePlaying);
    EXPECT_FALSE(fView->Controller().Producer().IsPaused());
}

TEST_F(QuillViewTest, APauseAfterTheLastEventEndsTheSongOnPlay) {
    AddSongs(2, kShortSong);
    fView->Controller().SetPlayMode(kPlayModeSeq);
    ASSERT_TRUE(fView->Controller().PlaySong());
    // The song plays to its end and reports it; the report waits in the queue while the
    // user pauses.
    ASSERT_TRUE(wait_for([this] { return !fView->Controller().Producer().IsPlaying(); }));
    fView->Controller().PauseSong();
    EXPECT_EQ(fView->Controller().State(), kStatePaused);
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(fView->Controller().State(), kStatePaused);
    fView->CButtonPlayClicked();
    EXPECT_EQ(fView->Controller().CurSongIdx(), 1) << "the song had ended";
    EXPECT_EQ(fView->Controller().State(), kStatePlaying);
    EXPECT_TRUE(WaitForCount(fPortA, is_note_on, 2));
    EXPECT_TRUE(WaitForState(kStateStopped)) << "the last song ends the sequence";
}

TEST_F(QuillViewTest, ChangeWhileStoppedLoadsButDoesNotStart) {
    AddSongs(2, kShortSong);
    ASSERT_TRUE(fView->Controller().ChangeSong(1, false));
    EXPECT_EQ(fView->Controller().State(), kStateStopped);
    EXPECT_EQ(fView->Controller().CurSongIdx(), 1);
    EXPECT_GT(fView->Controller().Producer().CountTracks(), 0u);
    EXPECT_FALSE(fView->Controller().Producer().IsPlaying());
    EXPECT_EQ(fView->Controller().SongTitle(), "Song 1");
    QTest::qWait(150);
    EXPECT_EQ(fPortA.Count(), 0u);
}

TEST_F(QuillViewTest, AnUnloadableSongChosenWhileStoppedLeavesTheProducerEmpty) {
    AddSongs(1, kLongSong);
    AddSong(fTemp.Write("truncated.mid", std::string("MThd")));
    ASSERT_EQ(fView->OrvickView()->Songs(), 2);
    EXPECT_FALSE(fView->Controller().ChangeSong(1, false));
    EXPECT_EQ(fView->Controller().Producer().CountTracks(), 0u);
    EXPECT_FALSE(fView->Controller().Producer().IsPlaying());
    EXPECT_EQ(fView->Controller().State(), kStateStopped);
    EXPECT_EQ(fView->Controller().CurSongIdx(), 1);
    EXPECT_EQ(fView->Controller().SongTitle(), "");
    EXPECT_NE(StatusText().find("truncated.mid"), std::string::npos) << StatusText();
    EXPECT_FALSE(fView->Controller().PlaySong());
}

TEST_F(QuillViewTest, NextPassesOverSongsThatCannotPlayAndNamesThem) {
    AddSongs(1, kLongSong);
    AddSong(WriteFormat2("format2.mid"));
    AddMissingSong("gone.mid");
    AddSong(WriteWithoutTracks("empty.mid"));
    AddSong(WriteSong(4, kLongSong));
    ASSERT_EQ(fView->OrvickView()->Songs(), 5);
    fView->Controller().SetPlayMode(kPlayModeSeq);
    ASSERT_TRUE(fView->Controller().PlaySong());
    ASSERT_TRUE(WaitForCount(fPortA, is_note_on, 1));
    std::vector<std::string> passed;
    QObject::connect(&fView->Controller(), &TQuillController::CannotPlay,
                     [&](const std::filesystem::path& song, const std::string& reason) {
                         passed.push_back(song.filename().string() + ": " + reason);
                     });
    fView->Controller().NextSong();
    EXPECT_EQ(passed,
              (std::vector<std::string>{"format2.mid: format 2 is not supported",
                                        "gone.mid: cannot open the file: No such file or directory",
                                        "empty.mid: the file has no tracks"}));
    EXPECT_EQ(fView->Controller().CurSongIdx(), 4);
    EXPECT_EQ(fView->Controller().State(), kStatePlaying);
    EXPECT_EQ(fView->Controller().SongTitle(), "Song 4");
    EXPECT_TRUE(WaitForCount(fPortA, is_note_on, 2));
    // The last song passed over, with its reason.
    EXPECT_NE(StatusText().find("empty.mid"), std::string::npos) << StatusText();
    EXPECT_NE(StatusText().find("no tracks"), std::string::npos) << StatusText();
}

TEST_F(QuillViewTest, AtASongsEndTheSongsThatCannotPlayAreSkipped) {
    AddSongs(1, kShortSong);
    AddSong(WriteFormat2("format2.mid"));
    AddSong(WriteSong(2, kShortSong));
    fView->Controller().SetPlayMode(kPlayModeSeq);
    ASSERT_TRUE(fView->Controller().PlaySong());
    ASSERT_TRUE(process_until([this] { return fView->Controller().CurSongIdx() == 2; }));
    EXPECT_TRUE(WaitForCount(fPortA, is_note_on, 2));
    EXPECT_NE(StatusText().find("format2.mid"), std::string::npos) << StatusText();
    EXPECT_NE(StatusText().find("format 2"), std::string::npos) << StatusText();
    EXPECT_TRUE(WaitForState(kStateStopped)) << "the last song ends the sequence";
}

TEST_F(QuillViewTest, PlayOnASongThatCannotPlayStartsTheNextOneThatCan) {
    AddSongs(1, kLongSong);
    AddSong(WriteWithoutTracks("empty.mid"));
    AddSong(WriteSong(2, kLongSong));
    fView->Controller().SetPlayMode(kPlayModeSeq);
    SelectSong(1);
    fView->CButtonPlayClicked();
    EXPECT_EQ(fView->Controller().CurSongIdx(), 2);
    EXPECT_EQ(fView->Controller().State(), kStatePlaying);
    EXPECT_TRUE(WaitForCount(fPortA, is_note_on, 1));
}

TEST_F(QuillViewTest, AFileDeclaringNoTracksCannotPlayAndSaysSo) {
    AddSongs(1, kLongSong);
    AddSong(WriteWithoutTracks("empty.mid"));
    EXPECT_FALSE(fView->Controller().ChangeSong(1, false));
    EXPECT_EQ(fView->Controller().Producer().CountTracks(), 0u);
    EXPECT_NE(StatusText().find("empty.mid"), std::string::npos) << StatusText();
}

TEST_F(QuillViewTest, WhenNoSongCanPlayEachIsTriedOnceAndThePlayerStops) {
    AddSong(WriteFormat2("a.mid"));
    AddSong(WriteWithoutTracks("b.mid"));
    AddSong(WriteFormat2("c.mid"));
    ASSERT_EQ(fView->OrvickView()->Songs(), 3);
    std::vector<std::string> tried;
    QObject::connect(&fView->Controller(), &TQuillController::CannotPlay,
                     [&](const std::filesystem::path& song, const std::string&) {
                         tried.push_back(song.filename().string());
                     });
    for (int32_t mode : {int32_t(kPlayModeSeqRepeat), int32_t(kPlayModeRandom)}) {
        tried.clear();
        fView->Controller().SetPlayMode(mode);
        fView->CButtonPlayClicked();
        EXPECT_EQ(fView->Controller().State(), kStateStopped) << "mode " << mode;
        EXPECT_EQ(fView->Controller().Producer().CountTracks(), 0u);
        std::sort(tried.begin(), tried.end());
        EXPECT_EQ(tried, (std::vector<std::string>{"a.mid", "b.mid", "c.mid"})) << "mode " << mode;
    }
}

TEST_F(QuillViewTest, AResetInTheSongLightsItsIndicator) {
    AddSong(WriteSong(0, kShortSong, true));
    ASSERT_TRUE(process_until([this] { return fView->Controller().Producer().CountTracks() > 0; }));
    ASSERT_TRUE(fView->Controller().PlaySong());
    EXPECT_TRUE(process_until(
        [this] { return Indicator("StrViewSysGS")->Lit() == TLCDIndicator::TLit::kLit; }));
    EXPECT_EQ(Indicator("StrViewSysXG")->Lit(), TLCDIndicator::TLit::kUnlit);
}

TEST_F(QuillViewTest, SlidersReachTheChainAndTheProducer) {
    AddSong(WriteHeldNoteWithBeats());
    ASSERT_TRUE(process_until([this] { return fView->Controller().Producer().CountTracks() > 0; }));
    Post(kMsgVolumeChanged, TQuillController::kSliderValueField, 150);
    EXPECT_EQ(fView->Controller().Chain().Filter(0).Volume(), 150);
    EXPECT_EQ(fView->Controller().Chain().Filter(1).Volume(), 150);
    Post(kMsgTempoChanged, TQuillController::kSliderValueField, 200);
    EXPECT_EQ(fView->Controller().Producer().TempoRate(), 200);

    ASSERT_TRUE(fView->Controller().PlaySong());
    ASSERT_TRUE(WaitForCount(fPortA, is_note_on, 1));
    Post(kMsgKeyChanged, TQuillController::kSliderValueField, 3);
    EXPECT_EQ(fView->Controller().Chain().Filter(0).Key(), 3);
    // The held note, started in the old key, is silenced in it at once.
    EXPECT_TRUE(WaitForCount(fPortA, is_note_off, 1));

    fView->Controller().PauseSong();  // the play position stays where the seek puts it
    ASSERT_LT(fView->Controller().Producer().CurrentTick(), kLongSong / 2);
    Post(kMsgPosChanged, TQuillController::kSliderValueField, 50);
    EXPECT_EQ(fView->Controller().Producer().CurrentTick(), kLongSong / 2);
}

TEST_F(QuillViewTest, KeyChangesAtRandomMomentsOfADenseSongLeaveNoNoteHanging) {
    AddSong(fTemp.Write("dense.mid", dense_song(1500)));
    ASSERT_TRUE(process_until([this] { return fView->Controller().Producer().CountTracks() > 0; }));
    fView->Controller().SetPlayMode(kPlayModeSeq);
    ASSERT_TRUE(fView->Controller().PlaySong());
    std::mt19937 random(std::random_device{}());
    std::uniform_int_distribution<int32_t> key(-12, 12);
    std::uniform_int_distribution<int> pauseMs(0, 20);
    int changes = 0;
    while (fView->Controller().State() != kStateStopped && changes < 1000) {
        Post(kMsgKeyChanged, TQuillController::kSliderValueField, key(random));
        ++changes;
        QTest::qWait(pauseMs(random));
    }
    ASSERT_TRUE(WaitForState(kStateStopped));
    ASSERT_TRUE(fView->Controller().Chain().WaitIdle(2000000));
    ASSERT_TRUE(fPortA.WaitIdle(2000000) && fPortB.WaitIdle(2000000));
    EXPECT_GT(changes, 20);
    EXPECT_GT(fPortA.Count(), 1000u);
    EXPECT_EQ(fPortA.Dropped() + fPortB.Dropped(), 0u);
    EXPECT_EQ(sounding_notes(fPortA), 0) << "after " << changes << " key changes";
    EXPECT_EQ(sounding_notes(fPortB), 0);
}

TEST_F(QuillViewTest, APortMenuItemConnectsThenLetsGoWithSilence) {
    fView->Controller().Chain().PublicOut(1)->Disconnect(&fPortB);
    TMidiRecorder synth("synth", 256);
    synth.Register();
    Post(TQuillController::kMsgMidiOut, TQuillController::kMidiPortField, 1);
    EXPECT_FALSE(
        fView->Controller().Ports().IsPortConnected(1));  // no consumer named: nothing happens

    veldan::TMessage item(TQuillController::kMsgMidiOut);
    item.AddInt32(TQuillController::kMidiPortField, 1);
    item.AddInt32(TQuillController::kConsumerIdField, synth.ID());
    veldan::post_message(fView.get(), item);
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(Indicator("StrViewPortB")->Lit(), TLCDIndicator::TLit::kLit);

    veldan::post_message(fView.get(), item);
    QCoreApplication::sendPostedEvents();
    EXPECT_FALSE(fView->Controller().Ports().IsPortConnected(1));
    EXPECT_EQ(Indicator("StrViewPortB")->Lit(), TLCDIndicator::TLit::kUnlit);
    EXPECT_TRUE(wait_for([&] { return synth.Count() == 48; }));
    synth.Unregister();
}

TEST_F(QuillViewTest, PositionSliderFollowsTheSongWhilePlaying) {
    AddSong(WriteHeldNoteWithBeats());
    ASSERT_TRUE(process_until([this] { return fView->Controller().Producer().CountTracks() > 0; }));
    fView->Controller().Producer().SetTempoRate(300);
    ASSERT_EQ(fView->ControlBar()->SliderValue(quill::TControlBar::kPos), 0);
    ASSERT_TRUE(fView->Controller().PlaySong());
    // A tenth of the song lies four beats in, two thirds of a second at this rate.
    EXPECT_TRUE(process_until(
        [&] { return fView->ControlBar()->SliderValue(quill::TControlBar::kPos) >= 10; }));
    fView->Controller().StopSong();
}

TEST_F(QuillViewTest, AfterStopAChangeOrASeekWhileStoppedThePositionShowsWhereItWouldStart) {
    using quill::TControlBar;
    AddSongs(2, kLongSong);
    TControlBar* bar = fView->ControlBar();
    auto* readout = bar->findChild<QLabel*>("StrViewPos");
    ASSERT_NE(readout, nullptr);
    // As the user drags the thumb and lets go.
    auto seek = [&](int32_t percent) {
        bar->SetSliderValue(TControlBar::kPos, percent);
        Post(kMsgPosChanged, TQuillController::kSliderValueField, percent);
    };
    ASSERT_TRUE(fView->Controller().PlaySong());
    seek(50);
    ASSERT_TRUE(process_until([&] { return bar->SliderValue(TControlBar::kPos) >= 50; }));
    fView->Controller().StopSong();
    EXPECT_EQ(bar->SliderValue(TControlBar::kPos), 0) << "after stop";
    EXPECT_TRUE(readout->text().endsWith(" 0%") || readout->text() == "0%")
        << readout->text().toStdString();

    fView->CButtonPlayClicked();
    seek(50);
    fView->Controller().PauseSong();
    ASSERT_TRUE(process_until([&] { return bar->SliderValue(TControlBar::kPos) >= 50; }));
    fView->Controller().NextSong();
    ASSERT_EQ(fView->Controller().CurSongIdx(), 1);
    EXPECT_EQ(bar->SliderValue(TControlBar::kPos), 0) << "after a change of song while paused";

    fView->Controller().StopSong();
    ASSERT_TRUE(fView->Controller().ChangeSong(0, false));
    seek(70);
    EXPECT_EQ(bar->SliderValue(TControlBar::kPos), 0) << "a seek while stopped does not hold";
    EXPECT_TRUE(readout->text().endsWith(" 0%") || readout->text() == "0%")
        << readout->text().toStdString();
}

TEST_F(QuillViewTest, PositionsInMicrosecondsFollowTheTempoRate) {
    AddSongs(1, kLongSong);
    ASSERT_EQ(fView->Controller().SongLengthUs(), 20 * kSecondUs);
    fView->Controller().Producer().SetTempoRate(200);
    EXPECT_EQ(fView->Controller().SongLengthUs(), 10 * kSecondUs);
    ASSERT_TRUE(fView->Controller().PlaySong());
    fView->Controller().PauseSong();  // the position stays where it is put
    auto seekTo = [&](int64_t us, uint32_t tick) {
        fView->Controller().SetPositionUs(us);
        return process_until([&] { return fView->Controller().Producer().CurrentTick() == tick; });
    };
    // 2.5 s at double speed is 5 s of the song: tick 4800 of 19200.
    EXPECT_TRUE(seekTo(2500000, 4800));
    EXPECT_EQ(fView->Controller().PositionUs(), 2500000);
    // Between two ticks the later one is taken; past the end, the end.
    EXPECT_TRUE(seekTo(2500001, 4801));
    EXPECT_TRUE(seekTo(60 * kSecondUs, kLongSong));
    EXPECT_EQ(fView->Controller().CurSongRef().filename(), "song0.mid");
    fView->Controller().StopSong();
    EXPECT_TRUE(fView->Controller().CurSongRef().filename() == "song0.mid")
        << "stop keeps the song current";
}

TEST_F(QuillViewTest, TheTitleDisplayShowsElapsedAndTotalTimeAtTheTempoRate) {
    AddSongs(1, kLongSong);
    fView->Controller().Producer().SetTempoRate(200);
    ASSERT_TRUE(fView->Controller().PlaySong());
    fView->Controller().PauseSong();
    fView->Controller().SetPositionUs(2500000);
    auto* time = fView->ControlBar()->findChild<QLabel*>("StrViewTime");
    ASSERT_NE(time, nullptr);
    EXPECT_EQ(time->text(), "0:02 / 0:10");
    fView->Controller().StopSong();
}

TEST_F(QuillViewTest, ChaseOnSeekFollowsThePreferenceFromTheNextLoad) {
    EXPECT_FALSE(fView->Controller().Producer().IsChaseOn());
    fPrefs.chaseOnSeek = true;
    veldan::post_message(fView.get(), veldan::TMessage(quill::kMsgPrefChanged));
    QCoreApplication::sendPostedEvents();
    EXPECT_TRUE(fView->Controller().Producer().IsChaseOn());
    AddSongs(1, kLongSong);
    EXPECT_TRUE(fView->Controller().Producer().HasChaseIndex())
        << "a song loaded with chase on is indexed";
}

TEST_F(QuillViewTest, RosterChangesReachTheWindowAsAMenuRebuild) {
    TMessageRecorder window;
    fView->SetTitleTarget(&window);
    {
        TMidiRecorder newcomer("newcomer", 16);
        newcomer.Register();
        ASSERT_TRUE(process_until([&] {
            for (const veldan::TMessage& message : window.Deliver())
                if (message.what == TQuillController::kMsgRecreateMenuMidiOut) return true;
            return false;
        }));
    }
}

TEST_F(QuillViewTest, WindowTitleNamesTheFirstListAndItsKind) {
    quill::init_resources();
    ASSERT_EQ(fTexts.LoadResource(QString::fromUtf8(quill::kBuiltinLanguagePath)), 0);
    TQuillSItem* first = static_cast<TQuillSItem*>(fView->OrvickView()->topLevelItem(0));
    ASSERT_NE(first, nullptr);
    std::string native = fView->WinTitle();
    EXPECT_EQ(native, first->ExpFName(fTexts) + " - Quill MIDI");
    fView->OrvickView()->ClearList();
    fView->OrvickView()->AddSSItem(new TQuillSItem(fTemp.Path() / "songs.txt", kFmtRawList),
                                   nullptr);
    EXPECT_EQ(fView->WinTitle(),
              "songs.txt" + std::string(fTexts.Text("List_Kind_Raw")) + " - Quill MIDI");
}
