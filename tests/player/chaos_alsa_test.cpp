// The chaos run with two ALSA sequencer clients listening, each in a process of its own,
// port A connected to both and port B to the second, through the MIDI OUT menu's message.
// Four seconds in, the first is killed: its loss is told once, and the music goes on to
// the other and to the recorders. Needs /dev/snd/seq and is skipped without it;
// QUILLMIDI_ALSA_VM=1 ctest -L alsa-vm runs it in a virtual machine that has one.

#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>

#include "midi/alsa_backend.h"
#include "midi/backends.h"
#include "tests/player/chaos_fixture.h"
#include "tests/player/chaos_run.h"
#include "tests/support/wait.h"

extern char** environ;

namespace {

// A listener process (chaos_alsa_listener), killed and reaped in the destructor.
class TListener {
  public:
    TListener(const std::filesystem::path& folder, const std::string& name)
        : fAddressFile(folder / (name + ".address")), fCountFile(folder / (name + ".count")) {
        const std::string address = fAddressFile.string();
        const std::string count = fCountFile.string();
        const char* argv[] = {QUILL_CHAOS_LISTENER, address.c_str(), count.c_str(), name.c_str(),
                              nullptr};
        if (posix_spawn(&fPid, QUILL_CHAOS_LISTENER, nullptr, nullptr, const_cast<char**>(argv),
                        environ) != 0)
            fPid = -1;
    }
    ~TListener() { Kill(SIGTERM); }

    // "client:port" once the listener's port exists; empty after the timeout.
    std::string Address() const {
        std::string address;
        wait_for([&] {
            std::ifstream in(fAddressFile);
            return bool(in >> address);
        });
        return address;
    }
    // Events the listener has taken so far.
    uint64_t Taken() const {
        std::ifstream in(fCountFile);
        uint64_t taken = 0;
        in >> taken;
        return taken;
    }
    void Kill(int signal) {
        if (fPid <= 0) return;
        kill(fPid, signal);
        waitpid(fPid, nullptr, 0);
        fPid = -1;
    }

  private:
    std::filesystem::path fAddressFile;
    std::filesystem::path fCountFile;
    pid_t fPid = -1;
};

void toggle(TQuillView& view, int32_t port, int32_t id) {
    veldan::TMessage item(quill::TQuillController::kMsgMidiOut);
    item.AddInt32(quill::TQuillController::kMidiPortField, port);
    item.AddInt32(quill::TQuillController::kConsumerIdField, id);
    veldan::post_message(&view, item);
    QCoreApplication::sendPostedEvents();
}

}  // namespace

TEST_F(ChaosTest, AnAlsaConsumerKilledMidRunIsToldOnceAndThePlayGoesOnToTheOthers) {
    if (access("/dev/snd/seq", R_OK | W_OK) != 0)
        GTEST_SKIP() << "no ALSA sequencer (/dev/snd/seq) here";
    std::mutex problemsLock;
    std::vector<std::string> problems;
    TMidiBackends backends;
    backends.SetProblemHandler([&](const std::string& problem) {
        std::lock_guard lock(problemsLock);
        problems.push_back(problem);
    });
    auto reports = [&] {
        std::lock_guard lock(problemsLock);
        return problems;
    };
    TMidiBackends::TOptions systems;
    systems.useJack = false;
    ASSERT_EQ(backends.Start(systems), 1) << backends.Status();
    TListener doomed(fConfig.Path(), "Chaos listener A");
    TListener survivor(fConfig.Path(), "Chaos listener B");
    const std::string doomedAddress = doomed.Address();
    const std::string survivorAddress = survivor.Address();
    ASSERT_FALSE(doomedAddress.empty() || survivorAddress.empty()) << "a listener did not start";
    TMidiSystemConsumer* a = nullptr;
    TMidiSystemConsumer* b = nullptr;
    ASSERT_TRUE(wait_for([&] {
        a = backends.Alsa()->FindByAddress(doomedAddress);
        b = backends.Alsa()->FindByAddress(survivorAddress);
        return a && b;
    }));
    toggle(*fView, 0, a->ID());
    toggle(*fView, 1, b->ID());
    toggle(*fView, 0, b->ID());
    ASSERT_TRUE(fView->Controller().Ports().IsPortConnected(0));
    ASSERT_TRUE(fView->Controller().Ports().IsPortConnected(1));
    TMidiRecorder witness("witness", kRecorderEvents);
    fView->Controller().Chain().PublicOut(0)->Connect(&witness);
    fView->Controller().Chain().PublicOut(1)->Connect(&witness);

    TChaosRun::TOptions options;
    options.seed = 1125;
    options.seconds = 12;
    options.songs = 60;
    options.prefs = &fPrefs;
    TChaosRun run(*fView, fPortA, fPortB, fTemp.Path(), options);
    run.AddRosterConsumer(&fSynth1);
    ASSERT_TRUE(run.AddSongs());
    size_t heardAtKill = 0;
    uint64_t takenByDoomed = 0;
    uint64_t takenBySurvivorAtKill = 0;
    std::thread killer([&] {
        std::this_thread::sleep_for(std::chrono::seconds(4));
        takenByDoomed = doomed.Taken();
        takenBySurvivorAtKill = survivor.Taken();
        heardAtKill = witness.Count() + witness.Dropped();
        doomed.Kill(SIGKILL);
    });
    const TChaosRun::TFigures figures = run.Run();
    killer.join();
    const size_t heardAtEnd = witness.Count() + witness.Dropped();
    fView->Controller().Chain().PublicOut(0)->Disconnect(&witness);
    fView->Controller().Chain().PublicOut(1)->Disconnect(&witness);
    // The survivor drains its queue 20 times a second and tells its count as often.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const uint64_t takenBySurvivor = survivor.Taken();

    EXPECT_GT(takenByDoomed, 0u) << "the killed listener heard nothing before";
    EXPECT_GT(heardAtEnd, heardAtKill) << "the play stopped with the listener";
    EXPECT_GT(takenBySurvivor, takenBySurvivorAtKill) << "the other listener heard no more";
    ASSERT_TRUE(wait_for([&] { return !reports().empty(); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(reports(), (std::vector<std::string>{"ALSA: \"Chaos listener A:in " + doomedAddress +
                                                   "\" went away while connected"}));
    EXPECT_EQ(figures.hanging, 0u) << joined(figures.problems);
    EXPECT_EQ(figures.stalls, 0u) << joined(figures.problems);
    EXPECT_GE(figures.totalActions, 50u);
    survivor.Kill(SIGTERM);
    backends.Stop();
}
