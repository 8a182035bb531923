#pragma once
// TSMFTrack: one MTrk chunk of a Standard MIDI File and the index the play thread walks.
//
// The index is built once at load as flat arrays in file order. A track's ticks never
// decrease (unless a hostile file wraps them past 2^32; the index is then stably sorted),
// so file order is tick order and ties keep file order, as in an insert-equal multimap.
// Per event the index costs 9 bytes: tick, offset of the event in the chunk, and the
// running status that applies when the event has no status byte of its own.
//
// kept: every status byte, 0xF0 and 0xFF included, becomes the running status, and
// 0xF1..0xFE other than 0xFF skip no body; data following them is read as a delta time.

#include <cstdint>
#include <string>
#include <vector>

class TSMFProducer;

// What a track hands out when one of its events is due.
struct TSMFEvent {
    uint32_t tick;
    uint32_t track;       // index in the producer's track list
    uint32_t port;        // the track's lane when the event is reached
    uint8_t status;       // resolved for running status; 0 when none was ever seen
    uint8_t metaType;     // for status 0xFF
    const uint8_t* data;  // channel: the data bytes; SysEx: the bytes sprayed; meta: its data
    uint32_t length;
    uint8_t channelData[2];  // where data points for channel messages
};

class TSMFEventSink {
  public:
    virtual ~TSMFEventSink() = default;
    // Called on the thread that walks the track (the play thread while playing).
    virtual void Event(const TSMFEvent& event) = 0;
};

class TSMFTrack {
  public:
    static constexpr uint32_t kNoEvent = 0xFFFFFFFF;
    // Events reserved for at most, before a track's index grows by itself: more than the
    // busiest tracks of real songs hold (9 MiB of index).
    static constexpr size_t kReserveEvents = size_t(1) << 20;

    TSMFTrack(TSMFProducer* owner, uint32_t index);

    // Reads the chunk at data[offset]; on success offset moves past it. 0, or -1 with a
    // reason in *error, also when memory runs out for the index.
    int32_t SetTo(const uint8_t* file, size_t fileSize, size_t* offset, std::string* error);

    uint32_t CountTicks() const;
    size_t CountEvents() const { return fEvents.size(); }
    uint32_t Length() const { return fLength; }
    uint32_t Port() const { return fPort; }
    void SetPort(uint32_t port) { fPort = port; }

    // Sends every event from the current position whose tick is at or before tick.
    void Spray(uint32_t tick, TSMFEventSink& sink);
    // Ticks from tick to the first event of the whole track later than tick, or kNoEvent.
    uint32_t WaitTick(uint32_t tick) const;
    // Current position = the first event whose tick is not less than tick.
    void SetCurrentTick(uint32_t tick);

    // 0 and the name of the first track-name meta event, or -1 (none, or length 0).
    int32_t GetTrackName(std::string* name) const;
    // kept: copyright text is never offered, although the event is found.
    int32_t GetCopyright(std::string* text) const;
    bool HasCopyright() const { return fCopyrightOffset != kNoEvent; }

    // Tempo changes of this track in file order: (tick, microseconds per quarter note).
    struct TTempoEvent {
        uint32_t tick;
        uint32_t usPerQuarter;
    };
    const std::vector<TTempoEvent>& TempoEvents() const { return fTempoEvents; }

    // Text (0x01) and lyric (0x05) meta events in tick order, for the lyrics: their bytes
    // stay in the file, read with TextOf.
    struct TTextEvent {
        uint32_t tick;
        uint8_t type;
        uint32_t offset;  // of the text's first byte
        uint32_t length;
    };
    const std::vector<TTextEvent>& TextEvents() const { return fTextEvents; }
    std::string TextOf(const TTextEvent& event) const;

    // What this track marks of a loop for game music, kNoEvent for what it does not mark:
    // the earliest controller 111 on any channel, the earliest marker "loopStart" and the
    // earliest "loopEnd" (any case).
    uint32_t LoopControllerTick() const { return fLoopControllerTick; }
    uint32_t LoopStartMarkerTick() const { return fLoopStartMarkerTick; }
    uint32_t LoopEndMarkerTick() const { return fLoopEndMarkerTick; }

    // Reads a variable-length number at *pos, never past end (bytes beyond read as 0);
    // values wrap at 32 bits.
    static uint32_t GetVNum(const uint8_t** pos, const uint8_t* end);

  private:
    struct TEntry {
        uint32_t tick;
        uint32_t offset;
    };

    void CreateDataMap();
    void Decode(size_t index, TSMFEvent* event) const;
    uint8_t ByteAt(uint32_t offset) const { return offset < fLength ? fData[offset] : 0; }
    void ApplyMeta(const TSMFEvent& event);
    void NoteLoopMarker(uint32_t tick, const uint8_t* text, size_t length);

    TSMFProducer* fOwner;
    uint32_t fIndex;
    const uint8_t* fData = nullptr;  // into the producer's copy of the file
    uint32_t fLength = 0;
    uint32_t fPort = 0;
    std::vector<TEntry> fEvents;
    std::vector<uint8_t> fRunningStatus;  // per event; meaningful where the byte is data
    std::vector<TTempoEvent> fTempoEvents;
    std::vector<TTextEvent> fTextEvents;
    uint32_t fNameOffset = kNoEvent;
    uint32_t fCopyrightOffset = kNoEvent;
    uint32_t fLoopControllerTick = kNoEvent;
    uint32_t fLoopStartMarkerTick = kNoEvent;
    uint32_t fLoopEndMarkerTick = kNoEvent;
    size_t fCurrent = 0;
};
