#include "engine/smf_producer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <new>

#include "engine/play_thread.h"
#include "engine/rmid.h"
#include "midi/midi_defs.h"
#include "veldan/base/clock.h"

namespace {

uint32_t get_uint32(const uint8_t* p) {
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

uint16_t get_uint16(const uint8_t* p) { return uint16_t(p[0] << 8 | p[1]); }

// As the note-on manager silences notes.
constexpr uint8_t kReleaseVelocity = 64;

size_t sounding_index(uint32_t port, uint8_t channel, uint8_t note) {
    return (size_t(port & 1) * 16 + (channel & 0x0F)) * 128 + (note & 0x7F);
}

}  // namespace

void TPlaySink::Event(const TSMFEvent& event) {
    const uint8_t kind = event.status & 0xF0;
    if ((kind == midi::kNoteOn || kind == midi::kNoteOff) && event.length >= 2) {
        uint8_t& count = fSounding[sounding_index(event.port, event.status, event.data[0])];
        if (kind == midi::kNoteOn && event.data[1] > 0) {
            if (count < UINT8_MAX) ++count;
        } else if (count > 0) {
            --count;
        }
    }
    Deliver(event);
}

void TPlaySink::ReleaseSounding(uint32_t tick) {
    TSMFEvent off{};
    off.tick = tick;
    off.length = 2;
    for (uint32_t port = 0; port < 2; ++port) {
        for (uint8_t channel = 0; channel < 16; ++channel) {
            for (uint8_t note = 0; note < 128; ++note) {
                uint8_t& count = fSounding[sounding_index(port, channel, note)];
                off.port = port;
                off.status = uint8_t(midi::kNoteOff | channel);
                off.channelData[0] = note;
                off.channelData[1] = kReleaseVelocity;
                off.data = off.channelData;
                // A synthesizer that stacks voices owes one note-off per strike.
                for (; count > 0; --count) Deliver(off);
            }
        }
    }
}

void TPlaySink::SetFadeLevel(int32_t level, uint32_t tick) {
    if (level == fFadeLevel) return;
    fFadeLevel = level;
    FadeLevelChanged(level, tick);
}

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
    FindLoopPoints();
    UpdateLoopPlan();
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
    fLoopPoints = {};
    fLoopPlan = {};
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

void TSMFProducer::FindLoopPoints() {
    uint32_t controller = TSMFTrack::kNoEvent;
    uint32_t start = TSMFTrack::kNoEvent;
    uint32_t end = TSMFTrack::kNoEvent;
    for (const auto& track : fTracks) {
        controller = std::min(controller, track->LoopControllerTick());
        start = std::min(start, track->LoopStartMarkerTick());
        end = std::min(end, track->LoopEndMarkerTick());
    }
    fLoopPoints = {};
    // The markers name both ends; controller 111 names the start, and the song's end ends it.
    if (start != TSMFTrack::kNoEvent) {
        fLoopPoints.startTick = start;
        fLoopPoints.endTick = end != TSMFTrack::kNoEvent ? end : fTotalTicks;
    } else if (controller != TSMFTrack::kNoEvent) {
        fLoopPoints.startTick = controller;
        fLoopPoints.endTick = fTotalTicks;
    }
    fLoopPoints.found = fLoopPoints.endTick > fLoopPoints.startTick;
}

void TSMFProducer::SetLoopSettings(const TLoopSettings& settings) {
    fLoopSettings = settings;
    UpdateLoopPlan();
}

void TSMFProducer::UpdateLoopPlan() {
    if (fPlayThread) return;
    fLoopPlan = TLoopPlan(fLoopPoints, fLoopSettings, fTempoMap);
    fFadeLevel.store(TLoopPlan::kFadeFull, std::memory_order_relaxed);
    if (fLoopPlan.IsActive() && !fChaseIndex) BuildChaseIndex();
}

TLoopPlan::TPos TSMFProducer::LastPos() const {
    return fLoopPlan.IsActive() ? fLoopPlan.Last() : TLoopPlan::TPos{0, fTotalTicks};
}

uint64_t TSMFProducer::PlayedTick() const {
    return fPlayThread ? fLoopPlan.PlayedTick(fPlayThread->PlayingPos()) : 0;
}

int32_t TSMFProducer::SetPlayedTick(uint64_t playedTick) {
    return SetPlayedPos(fLoopPlan.PosOfPlayed(playedTick));
}

int64_t TSMFProducer::PlayedTickToUs(uint64_t playedTick, int32_t ratePercent) const {
    const TLoopPlan::TPos pos = fLoopPlan.PosOfPlayed(playedTick);
    int64_t us = fTempoMap.TickToUs(pos.tick, ratePercent);
    if (pos.pass > 0)
        us += int64_t(pos.pass) * (fTempoMap.TickToUs(fLoopPlan.EndTick(), ratePercent) -
                                   fTempoMap.TickToUs(fLoopPlan.StartTick(), ratePercent));
    return us;
}

bool TSMFProducer::LoopStep(TLoopPlan::TPos* pos, int64_t fadeElapsedUs, TPlaySink& sink,
                            TChaseIndex::TState* scratch) {
    if (fLoopPlan.IsActive() && pos->tick >= fLoopPlan.StopTick(pos->pass)) {
        // What sounds at the jump would hang: its note-off lies past the loop's end.
        sink.ReleaseSounding(pos->tick);
        // A fade that runs out right on a loop's end ends the song there, not one jump on.
        const TLoopPlan::TPos last = fLoopPlan.Last();
        if (pos->pass >= last.pass ||
            (pos->pass + 1 == last.pass && last.tick <= fLoopPlan.StartTick())) {
            sink.SetFadeLevel(fLoopPlan.FadeLevel(fadeElapsedUs), pos->tick);
            return false;
        }
        ++pos->pass;
        pos->tick = fLoopPlan.StartTick();
        sink.SetPass(pos->pass);
        for (auto& track : fTracks) track->SetCurrentTick(pos->tick);
        SendStateAt(pos->tick, sink, scratch);
        fTempo.store(fTempoMap.TempoAt(pos->tick), std::memory_order_relaxed);
    }
    sink.SetPass(pos->pass);
    sink.SetFadeLevel(fLoopPlan.FadeLevel(fadeElapsedUs), pos->tick);
    return true;
}

uint32_t TSMFProducer::NextTick(TLoopPlan::TPos pos, uint32_t wait, int64_t* fadeElapsedUs) const {
    uint32_t next = wait == TSMFTrack::kNoEvent ? TSMFTrack::kNoEvent : pos.tick + wait;
    if (!fLoopPlan.IsActive()) return next;
    next = std::min(next, fLoopPlan.StopTick(pos.pass));
    if (fLoopPlan.IsFading(pos.pass)) {
        // Held notes fade by steps of their channel volume: the level moves on at least
        // every kFadeStepUs, also where the song sends nothing.
        const uint64_t stepTicks = std::max<uint64_t>(
            1, uint64_t(kFadeStepUs) * uint16_t(std::max<int16_t>(fDivision, 1)) /
                   std::max<uint32_t>(Tempo(), 1));
        next = uint32_t(std::min<uint64_t>(next, pos.tick + stepTicks));
        // The tempo cannot change between two stops: every Set Tempo is one.
        *fadeElapsedUs += ticks_to_us(next - pos.tick, Tempo(), fDivision, 100);
    }
    return next;
}

void TSMFProducer::ChaseTo(uint32_t tick, TSMFEventSink& sink, TChaseIndex::TState* scratch) {
    if (IsChaseOn()) SendStateAt(tick, sink, scratch);
}

void TSMFProducer::SendStateAt(uint32_t tick, TSMFEventSink& sink, TChaseIndex::TState* scratch) {
    if (!fChaseIndex) return;
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
    UpdateLoopPlan();
    return 0;
}

bool TSMFProducer::IsPlaying() const {
    return fPlayThread && !fPlayThread->IsTerminated() && !fPlayThread->IsSuspended();
}

void TSMFProducer::SetTempoRate(int32_t percent) {
    fTempoRate.store(std::max<int32_t>(percent, 1), std::memory_order_relaxed);
    if (fPlayThread) fPlayThread->Wake();
}

int32_t TSMFProducer::SetCurrentTick(uint32_t tick) { return SetPlayedPos({0, tick}); }

int32_t TSMFProducer::SetPlayedPos(TLoopPlan::TPos pos) {
    if (!fPlayThread) return -1;
    if (fPlayThread->IsStarted() && !fPlayThread->IsTerminated()) {
        fPlayThread->RequestSeek(pos);
        return 0;
    }
    for (auto& track : fTracks) track->SetCurrentTick(pos.tick);
    fPlayThread->SetCurrentPos(pos);
    return 0;
}

uint32_t TSMFProducer::CurrentTick() const {
    return fPlayThread ? fPlayThread->PlayingPos().tick : 0;
}

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

void TSMFProducer::WalkPlayed(TPlaySink& sink) {
    if (fPlayThread) return;
    Rewind();
    TChaseIndex::TState scratch;
    if (fChaseIndex) fChaseIndex->Prepare(&scratch);
    TLoopPlan::TPos pos;
    int64_t fadeElapsedUs = 0;
    while (LoopStep(&pos, fadeElapsedUs, sink, &scratch)) {
        const uint32_t next = NextTick(pos, SprayTick(pos.tick, sink), &fadeElapsedUs);
        if (next == TSMFTrack::kNoEvent) break;
        pos.tick = next;
    }
    Rewind();
}

void TSMFProducer::SongEnded() {
    if (fEndOfSong) fEndOfSong();
}
