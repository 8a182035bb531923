#include "playlist/ai_selector.h"

#include <random>

#include "playlist/orvick_view.h"
#include "tests/playlist/playlist_fixture.h"
#include "tests/support/fault_child.h"
#include "veldan/base/ini_file.h"

namespace fs = std::filesystem;

namespace {

class AISelector : public PlaylistTest {
  protected:
    AISelector() {
        fView = MakeView();
        fSelector.SetSongList(fView.get());
    }

    TQuillSItem* AddSong(const std::string& name) {
        return fView->AddMidiFile(fTemp.Path() / name, nullptr, -1);
    }
    // The random generator answers with these numbers in turn.
    void AnswerRandom(std::vector<uint32_t> answers) {
        fSelector.SetRandom([answers, next = size_t(0)]() mutable { return answers[next++]; });
    }
    int32_t Priority(const std::string& name) const { return fSelector.Scores().at(name).priority; }
    int32_t Count(const std::string& name) const {
        return fSelector.Scores().at(name).autoSelectCount;
    }

    std::unique_ptr<TOrvickView> fView;
    TAISelector fSelector;
};

}  // namespace

TEST_F(AISelector, PrioritiesZeroTwoAndFiveAreChosenOneToFourToThirtyTwo) {
    TQuillSItem* low = AddSong("low.mid");
    TQuillSItem* neutral = AddSong("neutral.mid");
    TQuillSItem* high = AddSong("high.mid");
    fSelector.ChangeScore(low, -2);
    fSelector.ChangeScore(neutral, 0);
    fSelector.ChangeScore(high, +3);
    std::mt19937 generator(20240611);
    fSelector.SetRandom([&generator] { return uint32_t(generator() >> 1); });

    const int draws = 37 * 2000;
    std::vector<int> chosen(3, 0);
    for (int i = 0; i < draws; i++) chosen[size_t(fSelector.Select())]++;

    // Expected 2000, 8000 and 64000; four standard deviations of a binomial each way.
    const double expected[] = {1.0 / 37, 4.0 / 37, 32.0 / 37};
    for (size_t i = 0; i < 3; i++) {
        const double mean = draws * expected[i];
        const double sigma = std::sqrt(draws * expected[i] * (1 - expected[i]));
        EXPECT_NEAR(chosen[i], mean, 4 * sigma) << "song " << i;
    }
    EXPECT_EQ(Count("low.mid") + Count("neutral.mid") + Count("high.mid"), draws);
}

TEST_F(AISelector, ASongMetForTheFirstTimeWeighsTwoAndFourFromTheNextCallOn) {
    fSelector.ChangeScore(AddSong("known.mid"), 0);
    AddSong("new.mid");
    // First call: known x4, new x2 -> six candidates, 6 % 6 = 0 picks known.
    // Second call: known x4, new x4 -> eight candidates, 6 % 8 = 6 picks new.
    AnswerRandom({6, 6});
    EXPECT_EQ(fSelector.Select(), 0);
    EXPECT_EQ(fSelector.Select(), 1);
    EXPECT_EQ(Priority("new.mid"), TAISelector::kNeutralPriority);
    EXPECT_EQ(Count("known.mid"), 1);
    EXPECT_EQ(Count("new.mid"), 1);
}

TEST_F(AISelector, APlaylistOfOneSongAlwaysGivesItAndCountsEachChoice) {
    TQuillSItem* only = AddSong("only.mid");
    fSelector.ChangeScore(only, -5);  // priority 0 still weighs 1
    AnswerRandom({0, 12345, 99, 7});
    for (int i = 0; i < 4; i++) EXPECT_EQ(fSelector.Select(), 0);
    EXPECT_EQ(Count("only.mid"), 4);
}

TEST_F(AISelector, RaisingSixTimesStopsAtFiveAndLoweringThreeTimesStopsAtZero) {
    TQuillSItem* raised = AddSong("raised.mid");
    TQuillSItem* lowered = AddSong("lowered.mid");
    std::vector<int32_t> steps;
    for (int i = 0; i < 6; i++) {
        fSelector.ChangeScore(raised, +1);
        steps.push_back(Priority("raised.mid"));
    }
    EXPECT_EQ(steps, (std::vector<int32_t>{3, 4, 5, 5, 5, 5}));
    steps.clear();
    for (int i = 0; i < 3; i++) {
        fSelector.ChangeScore(lowered, -1);
        steps.push_back(Priority("lowered.mid"));
    }
    EXPECT_EQ(steps, (std::vector<int32_t>{1, 0, 0}));
    fSelector.ChangeScore(nullptr, +1);
    EXPECT_EQ(fSelector.Scores().size(), 2u);
}

TEST_F(AISelector, SongsOfOneNameInDifferentFoldersShareOnePriority) {
    TQuillSItem* first = fView->AddMidiFile(fTemp.Path() / "a" / "same.mid", nullptr, -1);
    TQuillSItem* second = fView->AddMidiFile(fTemp.Path() / "b" / "same.mid", nullptr, -1);
    fSelector.ChangeScore(first, +1);
    fSelector.ChangeScore(second, +1);
    EXPECT_EQ(Priority("same.mid"), 4);
    EXPECT_EQ(fSelector.Scores().size(), 1u);
}

TEST_F(AISelector, TheDatabaseRoundTripKeepsNonNeutralRecordsAndDropsNeutralOnes) {
    TQuillSItem* bach = AddSong("bach_invention.mid");
    TQuillSItem* march = AddSong("march.mid");
    TQuillSItem* back = AddSong("back_to_two.mid");
    AddSong("Upper.mid");
    fSelector.ChangeScore(AddSong("Case.mid"), +1);
    fSelector.ChangeScore(AddSong("case.mid"), -1);
    fSelector.ChangeScore(bach, +2);
    fSelector.ChangeScore(march, -2);
    fSelector.ChangeScore(back, +1);
    fSelector.ChangeScore(back, -1);
    AnswerRandom({0, 0, 0});  // every draw takes the first candidate: the first song
    for (int i = 0; i < 3; i++) fSelector.Select();

    fs::path database;
    ASSERT_TRUE(TAISelector::DatabaseEntry(&database));
    EXPECT_EQ(database, fConfig.Path() / "VELDAN" / "QuillMIDI" / "QuillMIDI_AIDatabase.dat");
    EXPECT_EQ(fSelector.Save(database), 0);

    TAISelector reread;
    EXPECT_EQ(reread.Load(database), 0);
    const TAISelector::TScoreTable expected = {{"Case.mid", {3, 0}},
                                               {"bach_invention.mid", {4, 3}},
                                               {"case.mid", {1, 0}},
                                               {"march.mid", {0, 0}}};
    EXPECT_EQ(reread.Scores(), expected);

    const auto bytes = read_file_bytes(database);
    const std::string text(bytes.begin(), bytes.end());
    EXPECT_LT(text.find("Priority"), text.find("AutoSelectCount"));
    EXPECT_LT(text.find("bach_invention.mid"), text.find("march.mid"));
    EXPECT_EQ(text.find("back_to_two.mid"), std::string::npos);
    EXPECT_EQ(text.find("Upper.mid"), std::string::npos);
}

TEST_F(AISelector, SavingFewerRecordsLeavesNoTailOfTheOldFile) {
    const fs::path database = fTemp.Path() / "scores.dat";
    TQuillSItem* song = AddSong("a_rather_long_name_of_a_song_file.mid");
    fSelector.ChangeScore(song, +1);
    fSelector.Save(database);
    fSelector.ChangeScore(song, -1);
    fSelector.Save(database);
    TAISelector reread;
    reread.Load(database);
    EXPECT_TRUE(reread.Scores().empty());
}

TEST_F(AISelector, LoadingReadsOnceAndIgnoresCountsWithoutAPriority) {
    const fs::path database =
        fTemp.Write("scores.dat",
                    "[Priority]\nfirst.mid = 4\nSECOND.mid = 1\nsecond.mid = 0\nwords.mid = high\n"
                    "huge.mid = 99\n[AutoSelectCount]\nfirst.mid = 17\norphan.mid = 5\n");
    TAISelector selector;
    selector.Load(database);
    const TAISelector::TScoreTable expected = {{"SECOND.mid", {1, 0}},
                                               {"first.mid", {4, 17}},
                                               {"huge.mid", {5, 0}},
                                               {"second.mid", {0, 0}}};
    EXPECT_EQ(selector.Scores(), expected);

    const fs::path other = fTemp.Write("other.dat", "[Priority]\nlater.mid = 3\n");
    selector.Load(other);
    EXPECT_EQ(selector.Scores(), expected);
}

TEST_F(AISelector, AMissingDatabaseLeavesTheTableEmpty) {
    EXPECT_EQ(fSelector.Load(fTemp.Path() / "none.dat"), 0);
    EXPECT_TRUE(fSelector.Scores().empty());
}

TEST_F(AISelector, AFullDiskLeavesTheLearnedScoresByteForByte) {
    const fs::path database = fTemp.Path() / "scores.dat";
    fSelector.ChangeScore(AddSong("kept.mid"), +2);
    ASSERT_EQ(fSelector.Save(database), 0);
    const std::vector<uint8_t> before = read_file_bytes(database);
    for (int i = 0; i < 200; i++)
        fSelector.ChangeScore(AddSong("new " + std::to_string(i) + ".mid"), -1);

    const int result = run_in_child(
        [&] {
            std::string error;
            if (fSelector.Save(database, &error) == 0) return 0;
            return error.find("scores.dat") != std::string::npos ? 1 : 2;
        },
        TChildFaults{.fileSizeLimit = int64_t(before.size())});

    EXPECT_EQ(result, 1) << "0: the save claimed success; 2: the reason names no file";
    EXPECT_EQ(read_file_bytes(database), before);
    TAISelector reread;
    reread.Load(database);
    EXPECT_EQ(reread.Scores().at("kept.mid").priority, 4);
}
