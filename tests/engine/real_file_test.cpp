#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/engine/chain_fixture.h"

namespace {

const char* kRealMidiFolder = "/usr/share/games/openttd/baseset/openmsx";

std::vector<std::filesystem::path> real_files() {
    std::vector<std::filesystem::path> files;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(kRealMidiFolder, error))
        if (entry.path().extension() == ".mid") files.push_back(entry.path());
    std::sort(files.begin(), files.end(), [](const auto& a, const auto& b) {
        return std::filesystem::file_size(a) < std::filesystem::file_size(b);
    });
    return files;
}

// What the play thread should send, per port, by the reader's own walk of the file.
class TExpected : public TSMFEventSink {
  public:
    void Event(const TSMFEvent& e) override {
        if (e.status < 0x80 || (e.status >= 0xF1)) return;  // meta and system: not sent
        std::vector<uint8_t> bytes{e.status};
        bytes.insert(bytes.end(), e.data, e.data + e.length);
        ports[e.port].push_back(hex_bytes(bytes.data(), bytes.size()));
    }
    std::vector<std::string> ports[2];
};

TEST(RealFiles, EveryShippedSongLoadsWithASaneLength) {
    std::vector<std::filesystem::path> files = real_files();
    if (files.empty())
        GTEST_SKIP() << "openttd-openmsx is not installed (scripts/install-deps --test)";
    TSMFProducer producer;
    for (const auto& path : files) {
        ASSERT_EQ(producer.SetTo(path.string()), 0) << path << ": " << producer.LastError();
        EXPECT_GT(producer.CountTicks(), 0u) << path;
        int64_t seconds = producer.TempoMap().TickToUs(producer.CountTicks(), 100) / 1000000;
        EXPECT_GT(seconds, 10) << path;
        EXPECT_LT(seconds, 1200) << path;
    }
}

TEST(RealFiles, ASongPlaysThroughTheChainExactlyAsTheReaderWalksIt) {
    std::vector<std::filesystem::path> files = real_files();
    if (files.empty())
        GTEST_SKIP() << "openttd-openmsx is not installed (scripts/install-deps --test)";
    TChainFixture f;
    ASSERT_EQ(f.producer.SetTo(files.front().string()), 0) << f.producer.LastError();
    TExpected expected;
    f.producer.Walk(expected);
    // Twenty times faster than written: the order and content are what is checked here.
    f.producer.SetTempoRate(2000);
    f.producer.Play();
    ASSERT_TRUE(wait_for([&] { return f.ended.load() == 1; }, std::chrono::seconds(60)));
    f.Drain();
    EXPECT_GT(expected.ports[0].size(), 100u);
    EXPECT_EQ(recorded(f.portA), expected.ports[0]);
    EXPECT_EQ(recorded(f.portB), expected.ports[1]);
    EXPECT_EQ(f.portA.Dropped(), 0u);
}

}  // namespace
