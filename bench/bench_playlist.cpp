// The playlist at 100,000 songs: adding them, walking the song sequence (Song, SongIdx), and
// drawing with the AI random selector.
//   bench_playlist           100,000 songs in 100 lists
//   bench_playlist SONGS     another size

#include <QApplication>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "playlist/ai_selector.h"
#include "playlist/orvick_view.h"
#include "veldan/core/llt.h"

namespace {

using TClock = std::chrono::steady_clock;

double ms_since(TClock::time_point start) {
    return std::chrono::duration<double, std::milli>(TClock::now() - start).count();
}

void fill(TOrvickView* view, int32_t songs) {
    auto* top = static_cast<TQuillSItem*>(view->topLevelItem(0));
    const int32_t perList = 1000;
    TQuillSItem* list = nullptr;
    for (int32_t i = 0; i < songs; i++) {
        if (i % perList == 0) list = view->AddNewList(top);
        view->AddMidiFile(
            "/music/list" + std::to_string(i / perList) + "/song" + std::to_string(i) + ".mid",
            list, i % perList);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const int32_t songs = argc > 1 ? std::atoi(argv[1]) : 100000;
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    QApplication application(argc, argv);
    veldan::TLLT texts;
    TOrvickView view(texts, false, "/nonexistent");

    auto start = TClock::now();
    fill(&view, songs);
    std::printf("add %d songs: %.1f ms\n", songs, ms_since(start));

    start = TClock::now();
    view.Song(0);
    std::printf("rebuild of the song sequence after a change: %.2f ms\n", ms_since(start));

    start = TClock::now();
    size_t touched = 0;
    for (int32_t i = 0; i < view.Songs(); i++) touched += view.Song(i) != nullptr;
    std::printf("Song for all %d songs: %.2f ms (%.1f ns each)\n", songs, ms_since(start),
                ms_since(start) * 1e6 / songs);

    const int32_t rows = view.FullListCountItems();
    start = TClock::now();
    int64_t sum = 0;
    for (int32_t i = 0; i < rows; i++) sum += view.SongIdx(i);
    std::printf("SongIdx for all %d rows: %.2f ms (%.1f ns each)\n", rows, ms_since(start),
                ms_since(start) * 1e6 / rows);

    TAISelector selector;
    selector.SetSongList(&view);
    selector.SetRandom([] { return uint32_t(std::rand()); });
    start = TClock::now();
    selector.Select();
    std::printf("first Select (enters %d records): %.2f ms\n", songs, ms_since(start));
    const int draws = 50;
    double worst = 0;
    start = TClock::now();
    for (int i = 0; i < draws; i++) {
        const auto one = TClock::now();
        sum += selector.Select();
        worst = std::max(worst, ms_since(one));
    }
    std::printf("Select: %.2f ms mean, %.2f ms worst over %d draws (limit 50 ms)\n",
                ms_since(start) / draws, worst, draws);
    return touched == size_t(songs) && sum != 0 ? 0 : 1;
}
