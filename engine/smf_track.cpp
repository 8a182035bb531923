#include "engine/smf_track.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <new>

#include "engine/smf_producer.h"
#include "midi/midi_defs.h"

namespace {

constexpr uint8_t kMetaCopyright = 0x02;
constexpr uint8_t kMetaTrackName = 0x03;
constexpr uint8_t kMetaPort = 0x21;
constexpr uint8_t kMetaTempo = 0x51;
constexpr uint8_t kMetaText = 0x01;
constexpr uint8_t kMetaLyric = 0x05;
constexpr uint8_t kMetaMarker = 0x06;
constexpr uint8_t kCtrlLoopStart = 111;

bool equals_ignoring_case(const uint8_t* text, size_t length, const char* word) {
    const size_t wordLength = std::strlen(word);
    if (length != wordLength) return false;
    for (size_t i = 0; i < length; ++i)
        if (std::tolower(text[i]) != std::tolower(static_cast<unsigned char>(word[i])))
            return false;
    return true;
}

uint32_t get_uint32_at(const uint8_t* p) {
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

// Data bytes that follow a channel status: 2, or 1 for program change and channel pressure.
uint32_t channel_data_length(uint8_t status) {
    uint8_t kind = status & 0xF0;
    return (kind == midi::kProgramChange || kind == midi::kChannelPressure) ? 1 : 2;
}

}  // namespace

TSMFTrack::TSMFTrack(TSMFProducer* owner, uint32_t index) : fOwner(owner), fIndex(index) {}

uint32_t TSMFTrack::GetVNum(const uint8_t** pos, const uint8_t* end) {
    const uint8_t* p = *pos;
    uint8_t byte = p < end ? *p : 0;
    ++p;
    uint32_t value = byte & 0x7F;
    while (byte & 0x80) {
        byte = p < end ? *p : 0;
        ++p;
        value = (value << 7) | (byte & 0x7F);
    }
    *pos = p;
    return value;
}

int32_t TSMFTrack::SetTo(const uint8_t* file, size_t fileSize, size_t* offset, std::string* error) {
    size_t at = *offset;
    std::string where = "track " + std::to_string(fIndex + 1) + ": ";
    if (fileSize - at < 8) {
        *error = where + "file ends before the track chunk";
        return -1;
    }
    if (std::memcmp(file + at, "MTrk", 4) != 0) {
        *error = where + "bad track chunk (no \"MTrk\" tag)";
        return -1;
    }
    uint32_t length = get_uint32_at(file + at + 4);
    at += 8;
    if (length > fileSize - at) {
        *error = where + "chunk length " + std::to_string(length) + " exceeds the file";
        return -1;
    }
    if (length < 3) {
        *error = where + "chunk length " + std::to_string(length) + " is too short";
        return -1;
    }
    const uint8_t* body = file + at;
    if (body[length - 3] != 0xFF || body[length - 2] != 0x2F || body[length - 1] != 0x00) {
        *error = where + "bad track chunk (it does not close with End of Track)";
        return -1;
    }
    fData = body;
    fLength = length;
    try {
        CreateDataMap();
    } catch (const std::bad_alloc&) {
        // A hostile file can ask for an index larger than memory; that is the file's
        // failure, not the program's.
        std::vector<TEntry>().swap(fEvents);
        std::vector<uint8_t>().swap(fRunningStatus);
        std::vector<TTempoEvent>().swap(fTempoEvents);
        std::vector<TTextEvent>().swap(fTextEvents);
        *error = where + "not enough memory for its events (chunk length " +
                 std::to_string(length) + ")";
        return -1;
    }
    fCurrent = 0;
    *offset = at + length;
    return 0;
}

void TSMFTrack::CreateDataMap() {
    const uint8_t* data = fData;
    const uint8_t* end = fData + fLength;
    // The smallest event (a one-byte delta and a byte without a body) has two bytes, so
    // the chunk holds at most length / 2 + 1 events. Reserved up to what real songs use
    // in a track; a larger one grows as its events come, so that a long chunk of few
    // events (one huge SysEx) asks for no more than it needs.
    const size_t most = std::min<size_t>(size_t(fLength) / 2 + 1, kReserveEvents);
    fEvents.reserve(most);
    fRunningStatus.reserve(most);
    const uint8_t* pos = data;
    uint32_t tick = 0;
    uint8_t running = 0;
    bool sorted = true;
    while (pos < end) {
        uint32_t previous = tick;
        tick += GetVNum(&pos, end);
        sorted = sorted && tick >= previous;
        if (pos >= end) break;  // a trailing delta time names no event
        uint32_t eventOffset = uint32_t(pos - data);
        uint8_t b = *pos;
        uint8_t status;
        if (b & 0x80) {
            running = status = b;
            ++pos;
            fRunningStatus.push_back(0);
        } else {
            status = running;
            fRunningStatus.push_back(running);
        }
        fEvents.push_back({tick, eventOffset});
        switch (status >> 4) {
            case 0xB:
                if ((pos < end ? *pos : 0) == kCtrlLoopStart)
                    fLoopControllerTick = std::min(fLoopControllerTick, tick);
                pos += 2;
                break;
            case 0x8:
            case 0x9:
            case 0xA:
            case 0xE:
                pos += 2;
                break;
            case 0xC:
            case 0xD:
                pos += 1;
                break;
            case 0xF:
                if (status == midi::kSysExStart) {
                    uint32_t length = GetVNum(&pos, end);
                    pos += std::min<size_t>(length, size_t(end - std::min(pos, end)));
                } else if (status == midi::kMetaEvent) {
                    uint8_t type = pos < end ? *pos : 0;
                    ++pos;
                    if (type == kMetaCopyright && fCopyrightOffset == kNoEvent)
                        fCopyrightOffset = eventOffset;
                    if (type == kMetaTrackName && fNameOffset == kNoEvent)
                        fNameOffset = eventOffset;
                    uint32_t length = GetVNum(&pos, end);
                    if (type == kMetaTempo) {
                        uint32_t us = uint32_t(pos < end ? pos[0] : 0) << 16 |
                                      uint32_t(pos + 1 < end ? pos[1] : 0) << 8 |
                                      uint32_t(pos + 2 < end ? pos[2] : 0);
                        fTempoEvents.push_back({tick, us});
                    }
                    if (type == kMetaMarker) {
                        const size_t available = size_t(end - std::min(pos, end));
                        NoteLoopMarker(tick, pos, std::min<size_t>(length, available));
                    }
                    if (type == kMetaText || type == kMetaLyric) {
                        const size_t available = size_t(end - std::min(pos, end));
                        fTextEvents.push_back({tick, type, uint32_t(pos - fData),
                                               uint32_t(std::min<size_t>(length, available))});
                    }
                    pos += std::min<size_t>(length, size_t(end - std::min(pos, end)));
                }
                break;
            default:
                break;  // no status seen yet: nothing to skip
        }
    }
    if (!sorted) {
        // Ticks wrapped at 32 bits: order as the tick-keyed multimap would.
        std::vector<size_t> order(fEvents.size());
        for (size_t i = 0; i < order.size(); ++i) order[i] = i;
        std::stable_sort(order.begin(), order.end(),
                         [this](size_t a, size_t b) { return fEvents[a].tick < fEvents[b].tick; });
        std::vector<TEntry> events(order.size());
        std::vector<uint8_t> running_status(order.size());
        for (size_t i = 0; i < order.size(); ++i) {
            events[i] = fEvents[order[i]];
            running_status[i] = fRunningStatus[order[i]];
        }
        fEvents.swap(events);
        fRunningStatus.swap(running_status);
        std::stable_sort(
            fTempoEvents.begin(), fTempoEvents.end(),
            [](const TTempoEvent& a, const TTempoEvent& b) { return a.tick < b.tick; });
        std::stable_sort(fTextEvents.begin(), fTextEvents.end(),
                         [](const TTextEvent& a, const TTextEvent& b) { return a.tick < b.tick; });
    }
}

void TSMFTrack::NoteLoopMarker(uint32_t tick, const uint8_t* text, size_t length) {
    if (equals_ignoring_case(text, length, "loopStart"))
        fLoopStartMarkerTick = std::min(fLoopStartMarkerTick, tick);
    else if (equals_ignoring_case(text, length, "loopEnd"))
        fLoopEndMarkerTick = std::min(fLoopEndMarkerTick, tick);
}

std::string TSMFTrack::TextOf(const TTextEvent& event) const {
    if (event.offset > fLength || event.length > fLength - event.offset) return {};
    return std::string(reinterpret_cast<const char*>(fData) + event.offset, event.length);
}

uint32_t TSMFTrack::CountTicks() const { return fEvents.empty() ? 0 : fEvents.back().tick; }

void TSMFTrack::Decode(size_t index, TSMFEvent* event) const {
    const TEntry& entry = fEvents[index];
    uint32_t at = entry.offset;
    uint8_t b = fData[at];
    event->tick = entry.tick;
    event->track = fIndex;
    event->port = fPort;
    event->metaType = 0;
    event->data = nullptr;
    event->length = 0;
    if (b & 0x80) {
        event->status = b;
        ++at;
    } else {
        event->status = fRunningStatus[index];
    }
    uint8_t status = event->status;
    const uint8_t* end = fData + fLength;
    if (status >= 0x80 && status < 0xF0) {
        event->length = channel_data_length(status);
        event->channelData[0] = ByteAt(at);
        event->channelData[1] = ByteAt(at + 1);
        event->data = event->channelData;
    } else if (status == midi::kSysExStart || status == midi::kMetaEvent) {
        const uint8_t* pos = fData + at;
        if (status == midi::kMetaEvent) {
            event->metaType = ByteAt(at);
            ++pos;
        }
        uint32_t length = GetVNum(&pos, end);
        size_t available = pos < end ? size_t(end - pos) : 0;
        event->data = pos < end ? pos : end;
        event->length = uint32_t(std::min<size_t>(length, available));
    }
}

void TSMFTrack::ApplyMeta(const TSMFEvent& event) {
    if (event.status != midi::kMetaEvent) return;
    // kept: the first data byte is read whatever the declared length says.
    const uint8_t* d = event.data;
    const uint8_t* end = fData + fLength;
    auto byte = [&](int i) -> uint8_t { return d + i < end ? d[i] : 0; };
    if (event.metaType == kMetaPort) fPort = byte(0) != 0 ? 1 : 0;
    if (event.metaType == kMetaTempo)
        fOwner->SetTempo(uint32_t(byte(0)) << 16 | uint32_t(byte(1)) << 8 | byte(2));
}

void TSMFTrack::Spray(uint32_t tick, TSMFEventSink& sink) {
    TSMFEvent event;
    while (fCurrent < fEvents.size() && fEvents[fCurrent].tick <= tick) {
        Decode(fCurrent, &event);
        ++fCurrent;
        sink.Event(event);
        ApplyMeta(event);
    }
}

uint32_t TSMFTrack::WaitTick(uint32_t tick) const {
    // After Spray(tick) the current event is the first one later than tick; the search
    // covers positions set elsewhere.
    if (fCurrent < fEvents.size() && fEvents[fCurrent].tick > tick &&
        (fCurrent == 0 || fEvents[fCurrent - 1].tick <= tick))
        return fEvents[fCurrent].tick - tick;
    auto next = std::upper_bound(fEvents.begin(), fEvents.end(), tick,
                                 [](uint32_t t, const TEntry& e) { return t < e.tick; });
    return next == fEvents.end() ? kNoEvent : next->tick - tick;
}

void TSMFTrack::SetCurrentTick(uint32_t tick) {
    auto at = std::lower_bound(fEvents.begin(), fEvents.end(), tick,
                               [](const TEntry& e, uint32_t t) { return e.tick < t; });
    fCurrent = size_t(at - fEvents.begin());
}

int32_t TSMFTrack::GetTrackName(std::string* name) const {
    if (fNameOffset == kNoEvent) return -1;
    const uint8_t* pos = fData + fNameOffset + 2;
    const uint8_t* end = fData + fLength;
    if (pos > end) return -1;
    uint32_t length = GetVNum(&pos, end);
    if (length == 0) return -1;
    size_t available = pos < end ? size_t(end - pos) : 0;
    name->assign(reinterpret_cast<const char*>(pos), std::min<size_t>(length, available));
    return 0;
}

int32_t TSMFTrack::GetCopyright(std::string*) const { return -1; }
