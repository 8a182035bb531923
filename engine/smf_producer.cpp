#include "engine/smf_producer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <new>

#include "engine/play_thread.h"
#include "engine/rmid.h"
#include "veldan/base/clock.h"

namespace {

uint32_t get_uint32(const uint8_t* p) {
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

uint16_t get_uint16(const uint8_t* p) { return uint16_t(p[0] << 8 | p[1]); }

}  // namespace

TSMFProducer::TSMFProducer() {
    for (int i = 0; i < 2; ++i)
        fProducers[i] = std::make_unique<TMidiLocalProducer>("SMFProducer_" + std::to_string(i));
}

TSMFProducer::~TSMFProducer() { Unset(); }

int32_t TSMFProducer::Fail(std::string reason) {
    fLastError = std::move(reason);
    return -1;
}

int32_t TSMFProducer::SetTo(const std::string& path) {
    Unset();
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    if (!in) return Fail(std::string("cannot open the file: ") + std::strerror(errno));
    std::streamoff size = in.tellg();
    if (size < 0) return Fail("cannot read the file");
    if (size_t(size) > kMaxFileBytes) return Fail("the file is larger than 1 GiB");
    std::vector<uint8_t> bytes;
    try {
        bytes.resize(static_cast<size_t>(size));
        in.seekg(0);
        if (!in.read(reinterpret_cast<char*>(bytes.data()), size))
            return Fail("cannot read the file");
        // Out of its RIFF wrapper first: the reader itself takes only what starts with "MThd".
        if (std::string error; unwrap_rmid(&bytes, &error) != 0) return Fail(std::move(error));
    } catch (const std::bad_alloc&) {
        return Fail("not enough memory to read the file (" + std::to_string(size) + " bytes)");
    }
    return SetTo(std::move(bytes));
}

int32_t TSMFProducer::ReadHeader(const uint8_t* data, size_t size, size_t* offset,
                                 uint16_t* tracks) {
    if (size < 4 || std::memcmp(data, "MThd", 4) != 0)
        return Fail("not a MIDI file (no \"MThd\" header)");
    if (size < 14) return Fail("the file ends inside its header");
    uint32_t headerLength = get_uint32(data + 4);
    uint16_t format = get_uint16(data + 8);
    *tracks = get_uint16(data + 10);
    if (format > 1) return Fail("format " + std::to_string(format) + " is not supported");
    // kept: a format-0 file is read as one track whatever its header says.
    if (format == 0 && *tracks != 0) *tracks = 1;
    fDivision = int16_t(get_uint16(data + 12));
    if (fDivision < 0) return Fail("SMPTE time-code division is not supported");
    *offset = 14;
    if (headerLength > 6) {
        if (headerLength - 6 > size - 14) return Fail("the file ends inside its header");
        *offset += headerLength - 6;
    }
    return 0;
}

int32_t TSMFProducer::SetTo(std::vector<uint8_t> bytes) {
    Unset();
    fFile = std::move(bytes);
    fTempo.store(TTempoMap::kDefaultTempo, std::memory_order_relaxed);
    fTotalTicks = 0;
    if (ReadTracks() != 0) {
        // Nothing of a failed load is kept: the tracks read before the failure would
        // only hold the file's memory, and half a song must not play by mistake.
        std::string reason = std::move(fLastError);
        Unset();
        return Fail(std::move(reason));
    }
    if (IsChaseOn()) BuildChaseIndex();
    fLastError.clear();
    return 0;
}

int32_t TSMFProducer::ReadTracks() {
    size_t offset = 0;
    uint16_t trackCount = 0;
    if (ReadHeader(fFile.data(), fFile.size(), &offset, &trackCount) != 0) return -1;
    try {
        for (uint16_t i = 0; i < trackCount; ++i) {
            auto track = std::make_unique<TSMFTrack>(this, i);
            std::string error;
            if (track->SetTo(fFile.data(), fFile.size(), &offset, &error) != 0) return Fail(error);
            fTracks.push_back(std::move(track));
        }
        BuildTempoMap();
    } catch (const std::bad_alloc&) {
        return Fail("not enough memory to read the file");
    }
    for (const auto& track : fTracks) fTotalTicks = std::max(fTotalTicks, track->CountTicks());
    return 0;
}

void TSMFProducer::BuildTempoMap() {
    std::vector<TTempoMap::TChange> changes;
    for (const auto& track : fTracks)
        for (const TSMFTrack::TTempoEvent& e : track->TempoEvents())
            changes.push_back({e.tick, e.usPerQuarter});
    // Stable: equal ticks keep track order, then file order, as the play thread meets them.
    std::stable_sort(changes.begin(), changes.end(),
                     [](const auto& a, const auto& b) { return a.tick < b.tick; });
    fTempoMap = TTempoMap(std::move(changes), fDivision);
}

void TSMFProducer::Unset() {
    Stop();
    fTracks.clear();
    fFile.clear();
    fFile.shrink_to_fit();
    fTempoMap = TTempoMap();
    fTotalTicks = 0;
    fChaseIndex.reset();
}

void TSMFProducer::SetChase(bool on) {
    fChaseOn.store(on, std::memory_order_relaxed);
    if (on && !fChaseIndex) BuildChaseIndex();
}

void TSMFProducer::BuildChaseIndex() {
    if (fPlayThread || fTracks.empty()) return;
    try {
        fChaseIndex = std::make_unique<TChaseIndex>(*this);
    } catch (const std::bad_alloc&) {
        // The song still plays; a seek then skips, as with chase off.
        fChaseIndex.reset();
        Rewind();
    }
}

void TSMFProducer::ChaseTo(uint32_t tick, TSMFEventSink& sink, TChaseIndex::TState* scratch) {
    if (!IsChaseOn() || !fChaseIndex) return;
    fChaseIndex->StateAt(tick, scratch);
    fChaseIndex->Send(*scratch, tick, sink);
    fTempo.store(fTempoMap.TempoAt(tick), std::memory_order_relaxed);
}

int32_t TSMFProducer::GetTitle(std::string* title) const {
    int32_t result = -1;
    for (const auto& track : fTracks)
        if ((result = track->GetTrackName(title)) == 0) break;
    return result;
}

int32_t TSMFProducer::Play() {
    fPaused = false;
    if (!fPlayThread) fPlayThread = std::make_unique<TPlayThread>(this);
    fPlayThread->Resume();
    return 0;
}

int32_t TSMFProducer::Pause() {
    if (!fPlayThread || fPlayThread->IsTerminated() || fPaused) return 0;
    fPauseRequest.store(1, std::memory_order_release);
    fPlayThread->Wake();
    // The thread answers at once (its sleep is interrupted), so this wait is short.
    while (fPauseRequest.load(std::memory_order_acquire) != 0 && !fPlayThread->IsTerminated())
        veldan::futex_wait_until(&fPauseRequest, 1, veldan::system_time() + 20000);
    fPauseRequest.store(0, std::memory_order_release);
    fPaused = !fPlayThread->IsTerminated();
    return 0;
}

int32_t TSMFProducer::Stop() {
    fPlayThread.reset();
    fPauseRequest.store(0, std::memory_order_release);
    fPaused = false;
    return 0;
}

bool TSMFProducer::IsPlaying() const {
    return fPlayThread && !fPlayThread->IsTerminated() && !fPlayThread->IsSuspended();
}

void TSMFProducer::SetTempoRate(int32_t percent) {
    fTempoRate.store(std::max<int32_t>(percent, 1), std::memory_order_relaxed);
    if (fPlayThread) fPlayThread->Wake();
}

int32_t TSMFProducer::SetCurrentTick(uint32_t tick) {
    if (!fPlayThread) return -1;
    if (fPlayThread->IsStarted() && !fPlayThread->IsTerminated()) {
        fPlayThread->RequestSeek(tick);
        return 0;
    }
    for (auto& track : fTracks) track->SetCurrentTick(tick);
    fPlayThread->SetCurrentTick(tick);
    return 0;
}

uint32_t TSMFProducer::CurrentTick() const { return fPlayThread ? fPlayThread->CurrentTick() : 0; }

void TSMFProducer::Rewind() {
    fTempo.store(TTempoMap::kDefaultTempo, std::memory_order_relaxed);
    for (auto& track : fTracks) {
        track->SetCurrentTick(0);
        track->SetPort(0);
    }
}

uint32_t TSMFProducer::SprayTick(uint32_t tick, TSMFEventSink& sink) {
    for (auto& track : fTracks) track->Spray(tick, sink);
    uint32_t wait = TSMFTrack::kNoEvent;
    for (const auto& track : fTracks) wait = std::min(wait, track->WaitTick(tick));
    return wait;
}

void TSMFProducer::Walk(TSMFEventSink& sink) {
    if (fPlayThread) return;
    Rewind();
    uint32_t tick = 0;
    for (;;) {
        uint32_t wait = SprayTick(tick, sink);
        if (wait == TSMFTrack::kNoEvent) break;
        tick += wait;
    }
    Rewind();
}

void TSMFProducer::SongEnded() {
    if (fEndOfSong) fEndOfSong();
}
