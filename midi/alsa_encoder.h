#pragma once
// TAlsaEncoder: the chain's raw events as ALSA sequencer events.
//
// One raw event becomes one sequencer event, except SysEx longer than kSysExPieceBytes,
// which leaves as consecutive SYSEX events of at most that size, the way the kernel's
// raw MIDI ports pass SysEx on; shorter SysEx leaves whole, because some receivers take
// each SYSEX event for a complete message. A SysEx whose raw data lacks the closing 0xF7
// gets one. Meta events (0xFF with data, such as the chain's tempo changes) have no form
// on the wire and are not encoded.
//
// Threads: one encoder per sending port, used under that port's write lock. Encoding never
// allocates: the one copy needed (a last SysEx piece closed with 0xF7) goes into storage
// reserved at construction.

#include <alsa/asoundlib.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "midi/midi_defs.h"

class TAlsaEncoder {
  public:
    // 146 cells of a receiver's input pool (200 by default), so a whole piece fits.
    static constexpr size_t kSysExPieceBytes = 4096;

    TAlsaEncoder() : fTail(kSysExPieceBytes + 1) {}

    // Calls emit(snd_seq_event_t*) for each event, in order; the caller adds source and
    // destination. false, emitting nothing, when the raw event has no sequencer form.
    template <typename F>
    bool Encode(const uint8_t* data, size_t length, F&& emit) {
        if (length == 0) return false;
        if (data[0] == midi::kSysExStart) {
            EncodeSysEx(data, length, emit);
            return true;
        }
        snd_seq_event_t event;
        if (!EncodeShort(data, length, &event)) return false;
        emit(&event);
        return true;
    }

    // A channel, system common or system real-time message as one event; false for
    // anything else, or when data is shorter than its status byte needs.
    static bool EncodeShort(const uint8_t* data, size_t length, snd_seq_event_t* event);

  private:
    template <typename F>
    void EncodeSysEx(const uint8_t* data, size_t length, F& emit) {
        const bool closed = data[length - 1] == midi::kSysExEnd;
        for (size_t offset = 0; offset < length; offset += kSysExPieceBytes) {
            size_t size = std::min(kSysExPieceBytes, length - offset);
            const uint8_t* piece = data + offset;
            if (offset + size == length && !closed) {
                std::copy(piece, piece + size, fTail.begin());
                fTail[size++] = midi::kSysExEnd;
                piece = fTail.data();
            }
            snd_seq_event_t event;
            snd_seq_ev_clear(&event);
            snd_seq_ev_set_sysex(&event, size, const_cast<uint8_t*>(piece));
            emit(&event);
        }
    }

    std::vector<uint8_t> fTail;
};
