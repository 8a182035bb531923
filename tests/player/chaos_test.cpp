// A restless user at the player controller for half a minute, with a fixed seed: whatever
// was pressed, no note may sound once the player rests, the GUI thread keeps answering and
// the memory stays where it was after the first seconds.

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <chrono>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/player/chaos_fixture.h"
#include "tests/player/chaos_jack.h"
#include "tests/player/chaos_run.h"

namespace {

// Memory allowed to grow from its level after the first seconds to the end.
constexpr int64_t kRssGrowthKB = 6 * 1024;
constexpr double kBaselineSeconds = 5;
// A sanitizer's shadow memory and history grow with the run on their own.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr bool kMemoryIsOurs = false;
#else
constexpr bool kMemoryIsOurs = true;
#endif

}  // namespace

TEST_F(ChaosTest, ARestlessUserLeavesNoNoteSoundingNoStallAndNoGrowth) {
    TChaosRun::TOptions options;
    options.seed = 20261124;
    options.seconds = 25;
    options.songs = 300;
    options.prefs = &fPrefs;
    TChaosRun run(*fView, fPortA, fPortB, fTemp.Path(), options);
    run.AddRosterConsumer(&fSynth1);
    run.AddRosterConsumer(&fSynth2);
    ASSERT_TRUE(run.AddSongs());
    ASSERT_EQ(fView->OrvickView()->Songs(), options.songs);

    const TChaosRun::TFigures figures = run.Run();

    std::string problems;
    for (const std::string& problem : figures.problems) problems += "\n  " + problem;
    std::string actions;
    for (int action = 0; action < TChaosRun::kActions; ++action)
        actions += std::string(" ") + TChaosRun::ActionName(action) + "=" +
                   std::to_string(figures.actions[action]) + "/" +
                   std::to_string(figures.slowestUs[action] / 1000) + "ms";
    std::cout << "chaos: " << figures.seconds << " s, " << figures.totalActions << " actions ("
              << actions << " ), " << figures.songsStarted << " songs started, " << figures.checks
              << " checks, " << figures.notesChecked << " notes of " << figures.eventsChecked
              << " events checked, longest ping " << figures.longestStallUs / 1000 << " ms\n";

    EXPECT_EQ(figures.hanging, 0u) << problems;
    EXPECT_EQ(figures.stalls, 0u) << problems;
    EXPECT_EQ(figures.droppedEvents, 0u);
    EXPECT_EQ(figures.unsettled, 0u);
    // The run did what it claims: the figures of a run that did nothing would pass the above.
    EXPECT_GE(figures.totalActions, 100u);
    EXPECT_GE(figures.songsStarted, 10u);
    EXPECT_GE(figures.checks, 10u);
    EXPECT_GE(figures.notesChecked, 1000u);

    int64_t baselineKB = 0;
    for (const auto& [seconds, kB] : figures.rss)
        if (seconds >= kBaselineSeconds) {
            baselineKB = kB;
            break;
        }
    ASSERT_GT(baselineKB, 0);
    std::string curve;
    for (const auto& [seconds, kB] : figures.rss)
        curve += " " + std::to_string(int(seconds)) + "s:" + std::to_string(kB / 1024) + "MB";
    std::cout << "chaos: resident memory" << curve << "\n";
    if (kMemoryIsOurs) {
        EXPECT_LE(figures.rss.back().second - baselineKB, kRssGrowthKB) << curve;
    }
}

// A JACK client that quits and then the JACK server itself, in the middle of the run: each
// is told once, the run goes on without a stall, and the recorders still hear the music.
TEST_F(ChaosTest, JackDyingUnderneathIsToldOnceAndThePlayGoesOnToTheOthers) {
    if (!TChaosJack::Available()) GTEST_SKIP() << "jackd is not installed";
    TChaosJack jack;
    ASSERT_TRUE(jack.Start(*fView)) << jack.Error();
    TMidiRecorder witness("witness", kRecorderEvents);
    fView->Controller().Chain().PublicOut(0)->Connect(&witness);
    fView->Controller().Chain().PublicOut(1)->Connect(&witness);

    TChaosRun::TOptions options;
    options.seed = 1124;
    options.seconds = 12;
    options.songs = 60;
    TChaosRun run(*fView, fPortA, fPortB, fTemp.Path(), options);
    run.AddRosterConsumer(&fSynth1);
    ASSERT_TRUE(run.AddSongs());
    jack.KillLater(std::chrono::seconds(4), std::chrono::seconds(8), witness);
    const TChaosRun::TFigures figures = run.Run();
    jack.Join();
    const size_t heardAtEnd = witness.Count() + witness.Dropped();
    fView->Controller().Chain().PublicOut(0)->Disconnect(&witness);
    fView->Controller().Chain().PublicOut(1)->Disconnect(&witness);

    EXPECT_GT(jack.ReceivedByA(), 0u) << "the JACK client heard nothing before it quit";
    EXPECT_GT(jack.ReceivedByB(), 0u) << "the JACK client heard nothing before the server went";
    EXPECT_GT(jack.HeardAtSecond(), jack.HeardAtFirst()) << "the play stopped with the client";
    EXPECT_GT(heardAtEnd, jack.HeardAtSecond()) << "the play stopped with the server";
    ASSERT_TRUE(wait_for([&] { return jack.Problems().size() >= 2; })) << joined(jack.Problems());
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(jack.Problems(),
              (std::vector<std::string>{jack.ClientGoneReport(), jack.ServerGoneReport()}));
    EXPECT_EQ(figures.hanging, 0u) << joined(figures.problems);
    EXPECT_EQ(figures.stalls, 0u) << joined(figures.problems);
    EXPECT_GE(figures.totalActions, 50u);
    EXPECT_GT(figures.actions[TChaosRun::kAllNotesOff], 0u) << "no silencing through JACK";
}

// A JACK server that stops answering (on its way down, or held) never holds the window:
// letting its client go and All Notes Off both silence through the server, and return at
// once; when the server then stops, that is the one thing told.
TEST_F(ChaosTest, AJackServerThatStopsAnsweringNeverHoldsTheWindow) {
    if (!TChaosJack::Available()) GTEST_SKIP() << "jackd is not installed";
    TChaosJack jack;
    ASSERT_TRUE(jack.Start(*fView)) << jack.Error();
    jack.FreezeServer();
    const auto millisecondsOf = [](auto&& action) {
        const auto start = std::chrono::steady_clock::now();
        action();
        return std::chrono::duration_cast<std::chrono::milliseconds>(
                   std::chrono::steady_clock::now() - start)
            .count();
    };
    const auto letGoMs = millisecondsOf([&] { TChaosJack::Toggle(*fView, 0, jack.ConsumerA()); });
    const auto allNotesOffMs = millisecondsOf([&] {
        veldan::post_message(fView.get(),
                             veldan::TMessage(quill::TQuillController::kMsgAllNotesOff));
        QCoreApplication::sendPostedEvents();
    });
    jack.StopServer();

    EXPECT_LT(letGoMs, 500) << "letting the JACK client go waited for the server";
    EXPECT_LT(allNotesOffMs, 500) << "All Notes Off waited for the server";
    EXPECT_TRUE(wait_for([&] { return !jack.Problems().empty(); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(jack.Problems(), std::vector<std::string>{jack.ServerGoneReport()});
}

// The check itself: a note struck behind the chain's back, which no note table knows and so
// nothing silences, is found sounding; its release is not.
TEST_F(ChaosTest, TheCheckFindsANoteLeftSoundingAndNothingElse) {
    TChaosRun::TOptions options;
    options.seconds = 0.3;
    options.songs = 2;
    options.skipActions = ~(1u << TChaosRun::kListen);
    TChaosRun run(*fView, fPortA, fPortB, fTemp.Path(), options);
    ASSERT_TRUE(run.AddSongs());
    fView->Controller().Chain().PublicOut(0)->SprayNoteOn(2, 61, 90, 0);
    fView->Controller().Chain().PublicOut(1)->SprayNoteOn(3, 62, 90, 0);
    fView->Controller().Chain().PublicOut(1)->SprayNoteOn(3, 62, 0, 0);
    const TChaosRun::TFigures figures = run.Run();
    EXPECT_EQ(figures.hanging, 1u) << joined(figures.problems);
    ASSERT_FALSE(figures.problems.empty());
    EXPECT_EQ(figures.problems[0].rfind("port A: channel 3 key 61 sounds 1x", 0), 0u)
        << figures.problems[0];
    EXPECT_EQ(figures.notesChecked, 2u);
}
