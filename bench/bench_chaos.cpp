// A restless user at the player controller for as long as asked: random transport, slider,
// mode and port actions over a few hundred generated songs, with every port heard by a
// recorder. Prints the actions done, the notes checked for hanging, the pings the GUI thread
// was late to answer and the resident memory as the run went.
//
//   bench_chaos [seconds=300] [seed=1] [--skip=ACTION,...] [--jack]
//
// --jack also connects the ports to two clients of a jackd of the run's own; a third of
// the way in one client quits, two thirds in the server stops. Each loss must be told once
// and the recorders must go on hearing the music.
//
// ACTION is one of the names printed under "actions"; leaving one out looks past a fault
// that it is known to cause.

#include <QApplication>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "midi/recorder.h"
#include "player/pref.h"
#include "player/quill_view.h"
#include "playlist/orvick_view.h"
#include "tests/player/chaos_jack.h"
#include "tests/player/chaos_run.h"
#include "tests/support/temp_dir.h"
#include "veldan/core/llt.h"

namespace {

constexpr size_t kRecorderEvents = 1 << 18;

uint32_t parse_skip(const char* list) {
    uint32_t skip = 0;
    std::string names(list);
    size_t at = 0;
    while (at <= names.size()) {
        size_t comma = names.find(',', at);
        if (comma == std::string::npos) comma = names.size();
        const std::string name = names.substr(at, comma - at);
        bool known = false;
        for (int action = 0; action < TChaosRun::kActions; ++action)
            if (name == TChaosRun::ActionName(action)) {
                skip |= 1u << action;
                known = true;
            }
        if (!known && !name.empty()) {
            std::fprintf(stderr, "bench_chaos: no action \"%s\"\n", name.c_str());
            std::exit(2);
        }
        at = comma + 1;
    }
    return skip;
}

}  // namespace

int main(int argc, char** argv) {
    TChaosRun::TOptions options;
    options.seconds = 300;
    options.rssEverySeconds = 10;
    int positional = 0;
    bool withJack = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--jack") == 0)
            withJack = true;
        else if (std::strncmp(argv[i], "--skip=", 7) == 0)
            options.skipActions = parse_skip(argv[i] + 7);
        else if (positional++ == 0)
            options.seconds = std::atof(argv[i]);
        else
            options.seed = uint32_t(std::strtoul(argv[i], nullptr, 10));
    }
    options.log = [](const std::string& line) { std::printf("  ! %s\n", line.c_str()); };

    // The learning database and the settings go to a folder of the run's own, not the user's.
    TTempDir config;
    setenv("XDG_CONFIG_HOME", config.Path().c_str(), 1);
    if (!getenv("QT_QPA_PLATFORM")) setenv("QT_QPA_PLATFORM", "offscreen", 1);
    int qtArgc = 1;
    QApplication app(qtArgc, argv);

    TTempDir songs;
    veldan::TLLT texts;
    TPref prefs;
    prefs.waitBetweenSongs = true;
    prefs.silenceBetweenSongsUs = 150000;
    prefs.sendSysResets = true;
    prefs.sysResetCombination = 0x0F;
    prefs.silenceAfterResetsUs = 40000;
    TMidiRecorder portA("port A", kRecorderEvents, kRecorderEvents * 8);
    TMidiRecorder portB("port B", kRecorderEvents, kRecorderEvents * 8);
    TMidiRecorder synth1("chaos synth 1", kRecorderEvents, kRecorderEvents * 8);
    TMidiRecorder synth2("chaos synth 2", kRecorderEvents, kRecorderEvents * 8);
    synth1.Register();
    synth2.Register();
    TChaosRun::TFigures figures;
    std::unique_ptr<TChaosJack> jack;
    TMidiRecorder witness("witness", kRecorderEvents);
    size_t heardAtEnd = 0;
    {
        quill::TQuillView view(texts, prefs, songs.Path() / "no-loaders");
        view.Controller().Chain().PublicOut(0)->Connect(&portA);
        view.Controller().Chain().PublicOut(1)->Connect(&portB);
        options.prefs = &prefs;
        TChaosRun run(view, portA, portB, songs.Path(), options);
        run.AddRosterConsumer(&synth1);
        run.AddRosterConsumer(&synth2);
        if (!run.AddSongs()) {
            std::fprintf(stderr, "bench_chaos: the playlist refused a song\n");
            return 1;
        }
        std::printf("chaos: %d songs, seed %u, %.0f s\n", view.OrvickView()->Songs(), options.seed,
                    options.seconds);
        std::fflush(stdout);
        if (withJack) {
            jack = std::make_unique<TChaosJack>();
            if (!TChaosJack::Available() || !jack->Start(view)) {
                std::fprintf(stderr, "bench_chaos: no JACK: %s\n", jack->Error().c_str());
                return 1;
            }
            view.Controller().Chain().PublicOut(0)->Connect(&witness);
            view.Controller().Chain().PublicOut(1)->Connect(&witness);
            const auto third = std::chrono::microseconds(int64_t(options.seconds * 1e6 / 3));
            jack->KillLater(third, 2 * third, witness);
        }
        figures = run.Run();
        if (jack) {
            jack->Join();
            heardAtEnd = witness.Count() + witness.Dropped();
            view.Controller().Chain().PublicOut(0)->Disconnect(&witness);
            view.Controller().Chain().PublicOut(1)->Disconnect(&witness);
        }
    }
    synth1.Unregister();
    synth2.Unregister();

    std::printf("length            %.1f s\n", figures.seconds);
    std::printf("actions           %llu:", static_cast<unsigned long long>(figures.totalActions));
    for (int action = 0; action < TChaosRun::kActions; ++action)
        std::printf(" %s=%llu", TChaosRun::ActionName(action),
                    static_cast<unsigned long long>(figures.actions[action]));
    std::printf("\nslowest action   ");
    for (int action = 0; action < TChaosRun::kActions; ++action)
        std::printf(" %s=%lldms", TChaosRun::ActionName(action),
                    static_cast<long long>(figures.slowestUs[action] / 1000));
    std::printf("\nsongs started     %llu\n",
                static_cast<unsigned long long>(figures.songsStarted));
    std::printf("checks            %llu (every rest of the player and the end)\n",
                static_cast<unsigned long long>(figures.checks));
    std::printf("notes checked     %llu of %llu events\n",
                static_cast<unsigned long long>(figures.notesChecked),
                static_cast<unsigned long long>(figures.eventsChecked));
    std::printf("hanging notes     %llu\n", static_cast<unsigned long long>(figures.hanging));
    std::printf("late pings        %llu (longest %lld ms)\n",
                static_cast<unsigned long long>(figures.stalls),
                static_cast<long long>(figures.longestStallUs / 1000));
    std::printf("unsettled checks  %llu, dropped events %llu\n",
                static_cast<unsigned long long>(figures.unsettled),
                static_cast<unsigned long long>(figures.droppedEvents));
    std::printf("resident memory  ");
    int64_t afterMinuteKB = 0;
    for (const auto& [seconds, kB] : figures.rss) {
        std::printf(" %.0fs:%.1fMB", seconds, double(kB) / 1024);
        if (afterMinuteKB == 0 && seconds >= 60) afterMinuteKB = kB;
    }
    std::printf("\n");
    if (afterMinuteKB > 0)
        std::printf("growth after the first minute: %+.1f MB\n",
                    double(figures.rss.back().second - afterMinuteKB) / 1024);
    for (const std::string& problem : figures.problems) std::printf("  %s\n", problem.c_str());
    bool clean = figures.hanging == 0 && figures.stalls == 0 && figures.droppedEvents == 0;
    if (jack) {
        wait_for([&] { return jack->Problems().size() >= 2; });
        const std::vector<std::string> reports = jack->Problems();
        const bool once =
            reports == std::vector<std::string>{jack->ClientGoneReport(), jack->ServerGoneReport()};
        std::printf("JACK reports      %zu%s\n", reports.size(), once ? " (one each)" : "");
        for (const std::string& report : reports) std::printf("  %s\n", report.c_str());
        std::printf(
            "heard by the recorders: %zu at the client's loss, %zu at the server's, "
            "%zu at the end; the JACK clients got %zu and %zu\n",
            jack->HeardAtFirst(), jack->HeardAtSecond(), heardAtEnd, jack->ReceivedByA(),
            jack->ReceivedByB());
        clean = clean && once && heardAtEnd > jack->HeardAtSecond() &&
                jack->HeardAtSecond() > jack->HeardAtFirst();
        jack.reset();
    }
    return clean ? 0 : 1;
}
