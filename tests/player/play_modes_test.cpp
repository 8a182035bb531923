#include "player/play_modes.h"

#include <gtest/gtest.h>

#include <vector>

using namespace quill;

namespace {

TSongPick pick(int32_t mode, int32_t current, int32_t songs) {
    TSongPick p;
    p.mode = mode;
    p.current = current;
    p.songs = songs;
    return p;
}

}  // namespace

TEST(PlayModes, SequentialStopsAfterTheLastAndBeforeTheFirst) {
    int32_t index = -7;
    EXPECT_FALSE(next_song_idx(pick(kPlayModeSeq, 2, 3), true, &index));
    EXPECT_FALSE(next_song_idx(pick(kPlayModeSeq, 2, 3), false, &index));
    EXPECT_EQ(index, -7);
    ASSERT_TRUE(next_song_idx(pick(kPlayModeSeq, 1, 3), true, &index));
    EXPECT_EQ(index, 2);
    EXPECT_FALSE(prev_song_idx(pick(kPlayModeSeq, 0, 3), &index));
    ASSERT_TRUE(prev_song_idx(pick(kPlayModeSeq, 2, 3), &index));
    EXPECT_EQ(index, 1);
}

TEST(PlayModes, SequentialRepeatWrapsBothWaysThroughTheFold) {
    int32_t index = 0;
    ASSERT_TRUE(next_song_idx(pick(kPlayModeSeqRepeat, 2, 3), true, &index));
    EXPECT_EQ(fold_song_idx(index, 3), 0);
    ASSERT_TRUE(prev_song_idx(pick(kPlayModeSeqRepeat, 0, 3), &index));
    EXPECT_EQ(fold_song_idx(index, 3), 2);
}

TEST(PlayModes, MonoStopsAtTheEndButNextMovesOn) {
    int32_t index = 0;
    EXPECT_FALSE(next_song_idx(pick(kPlayModeMono, 0, 3), true, &index));
    ASSERT_TRUE(next_song_idx(pick(kPlayModeMono, 0, 3), false, &index));
    EXPECT_EQ(index, 1);
    EXPECT_FALSE(next_song_idx(pick(kPlayModeMono, 2, 3), false, &index));
}

TEST(PlayModes, MonoRepeatRepeatsAtTheEndButNextMovesOn) {
    int32_t index = 0;
    ASSERT_TRUE(next_song_idx(pick(kPlayModeMonoRepeat, 1, 3), true, &index));
    EXPECT_EQ(index, 1);
    ASSERT_TRUE(next_song_idx(pick(kPlayModeMonoRepeat, 1, 3), false, &index));
    EXPECT_EQ(index, 2);
    ASSERT_TRUE(next_song_idx(pick(kPlayModeMonoRepeat, 2, 3), false, &index));
    EXPECT_EQ(fold_song_idx(index, 3), 0);
}

TEST(PlayModes, RandomDrawsAgainUntilTheSongDiffers) {
    std::vector<int32_t> draws = {5, 11, 7};  // modulo 3: 2 (current), 2 again, then 1
    size_t next = 0;
    TSongPick p = pick(kPlayModeRandom, 2, 3);
    p.draw = [&] { return draws[next++]; };
    int32_t index = -1;
    ASSERT_TRUE(next_song_idx(p, true, &index));
    EXPECT_EQ(index, 1);
    EXPECT_EQ(next, 3u);
}

TEST(PlayModes, RandomWithOneSongChoosesIt) {
    int draws = 0;
    TSongPick p = pick(kPlayModeRandom, 0, 1);
    p.draw = [&] { return ++draws * 13; };
    int32_t index = -1;
    ASSERT_TRUE(next_song_idx(p, true, &index));
    EXPECT_EQ(index, 0);
    EXPECT_EQ(draws, 1);
}

TEST(PlayModes, AIRandomTakesTheDrawAsTheIndex) {
    std::vector<int32_t> draws = {0, 0, 4};
    size_t next = 0;
    TSongPick p = pick(kPlayModeAIRandom, 0, 5);
    p.draw = [&] { return draws[next++]; };
    int32_t index = -1;
    ASSERT_TRUE(prev_song_idx(p, &index));
    EXPECT_EQ(index, 4);
}

TEST(PlayModes, NothingToChooseFromLeavesTheIndex) {
    TSongPick random = pick(kPlayModeRandom, 0, 0);
    random.draw = [] { return 3; };
    int32_t index = 9;
    EXPECT_TRUE(next_song_idx(random, true, &index));
    EXPECT_EQ(index, 9);
    EXPECT_TRUE(next_song_idx(pick(17, 0, 4), true, &index));
    EXPECT_TRUE(prev_song_idx(pick(-1, 0, 4), &index));
    EXPECT_EQ(index, 9);
}
