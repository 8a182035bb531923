#pragma once
// Hanging notes, counted the way a synthesizer that stacks voices would hear them; and a
// dense song that keeps many notes sounding at every moment.

#include <algorithm>
#include <cstdint>
#include <map>
#include <tuple>
#include <vector>

#include "midi/recorder.h"
#include "tests/support/smf_builder.h"

// Notes still sounding after everything recorder received: each note-on of a channel's
// note needs a note-off (or a note-on of velocity 0) of that same note. A release of a
// note that does not sound ends nothing and is not counted against the balance.
inline int32_t sounding_notes(const TMidiRecorder& recorder) {
    std::map<std::pair<uint8_t, uint8_t>, int32_t> sounding;
    for (const TMidiRecorder::TEntry& entry : recorder.Entries()) {
        if (entry.length != 3) continue;
        const uint8_t* bytes = recorder.BytesOf(entry);
        const uint8_t kind = bytes[0] & 0xF0;
        const auto key = std::make_pair(uint8_t(bytes[0] & 0x0F), bytes[1]);
        if (kind == 0x90 && bytes[2] != 0)
            ++sounding[key];
        else if ((kind == 0x80 || kind == 0x90) && sounding[key] > 0)
            --sounding[key];
    }
    int32_t total = 0;
    for (const auto& [key, count] : sounding) total += count;
    return total;
}

// One track per channel (the percussion channel left out, the key does not move it),
// the second half of them on port B: every step ticks a note starts, lasting length
// ticks, so about length / step notes overlap on each channel. Pitches differ between
// overlapping notes, so a sound that hangs cannot be ended by a later note.
inline std::vector<uint8_t> dense_song(uint32_t ticks, uint32_t step = 10, uint32_t length = 35,
                                       int channels = 8) {
    TSmfBuilder smf(1, 480);
    for (int i = 0; i < channels; ++i) {
        const uint8_t channel = uint8_t(i < 9 ? i : i + 1);
        struct TNote {
            uint32_t tick;
            bool on;
            uint8_t note;
        };
        std::vector<TNote> events;
        for (uint32_t n = 0, start = uint32_t(i); start + length <= ticks; ++n, start += step) {
            const uint8_t note = uint8_t(36 + (n * 7 + uint32_t(i) * 5) % 60);
            events.push_back({start, true, note});
            events.push_back({start + length, false, note});
        }
        // At one tick the releases go first, as a player would write them.
        std::stable_sort(events.begin(), events.end(), [](const TNote& a, const TNote& b) {
            return std::tie(a.tick, a.on) < std::tie(b.tick, b.on);
        });
        TTrackBuilder& track = smf.AddTrack();
        uint32_t at = 0;
        if (i >= channels / 2) track.Port(0, 1);
        for (const TNote& e : events) {
            if (e.on)
                track.NoteOn(e.tick - at, channel, e.note, 100);
            else
                track.NoteOff(e.tick - at, channel, e.note);
            at = e.tick;
        }
    }
    return smf.Bytes();
}
