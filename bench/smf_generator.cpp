#include "bench/smf_generator.h"

namespace {

void put_vlq(std::vector<uint8_t>& out, uint32_t value) {
    uint8_t bytes[5];
    int n = 0;
    bytes[n++] = value & 0x7F;
    while (value >>= 7) bytes[n++] = uint8_t(0x80 | (value & 0x7F));
    while (n) out.push_back(bytes[--n]);
}

void put32(std::vector<uint8_t>& out, uint32_t v) {
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(uint8_t(v >> shift));
}

void put_meta(std::vector<uint8_t>& body, uint32_t delta, uint8_t type,
              std::initializer_list<uint8_t> data) {
    put_vlq(body, delta);
    body.push_back(0xFF);
    body.push_back(type);
    put_vlq(body, uint32_t(data.size()));
    body.insert(body.end(), data);
}

std::vector<uint8_t> track_body(const TGeneratedSong& song, uint32_t track, uint32_t notes) {
    std::vector<uint8_t> body;
    body.reserve(notes * 7 + 64);
    uint8_t channel = uint8_t(track % 16 == 9 ? 0 : track % 16);
    if (song.bothPorts && (track & 1)) put_meta(body, 0, 0x21, {1});
    if (track == 0) put_meta(body, 0, 0x51, {0x07, 0xA1, 0x20});
    uint32_t last = 0;
    uint32_t nextTempo = song.tempoChangeEveryTicks;
    bool statusSent = false;
    for (uint32_t i = 0; i < notes; ++i) {
        uint32_t on = (i + 1) * song.ticksPerNote + track;  // tracks interleave
        if (track == 0 && song.tempoChangeEveryTicks) {
            while (nextTempo < on) {
                uint32_t at = nextTempo > last ? nextTempo : last;
                uint32_t us = (nextTempo / song.tempoChangeEveryTicks) % 2 ? 400000 : 500000;
                put_meta(body, at - last, 0x51, {uint8_t(us >> 16), uint8_t(us >> 8), uint8_t(us)});
                last = at;
                statusSent = false;  // the meta event became the running status
                nextTempo += song.tempoChangeEveryTicks;
            }
        }
        uint8_t note = uint8_t(36 + (i * 7 + track) % 60);
        put_vlq(body, on - last);
        if (!statusSent) body.push_back(uint8_t(0x90 | channel));
        body.push_back(note);
        body.push_back(100);
        put_vlq(body, song.noteLengthTicks);  // note-on with velocity 0 ends it: running status
        body.push_back(note);
        body.push_back(0);
        statusSent = true;
        last = on + song.noteLengthTicks;
        if (song.controlEveryNotes && i % song.controlEveryNotes == 0) {
            body.insert(body.end(), {0x00, uint8_t(0xB0 | channel), 11, uint8_t(i % 128)});
            body.insert(body.end(), {0x00, uint8_t(0xE0 | channel), 0, uint8_t(i % 128)});
            statusSent = false;
        }
    }
    body.insert(body.end(), {0x00, 0xFF, 0x2F, 0x00});
    return body;
}

}  // namespace

std::vector<uint8_t> generate_smf(const TGeneratedSong& song) {
    std::vector<uint8_t> out{'M', 'T', 'h', 'd', 0, 0, 0, 6, 0, 1};
    out.push_back(uint8_t(song.tracks >> 8));
    out.push_back(uint8_t(song.tracks));
    out.push_back(uint8_t(uint16_t(song.division) >> 8));
    out.push_back(uint8_t(song.division));
    for (uint32_t track = 0; track < song.tracks; ++track) {
        uint32_t notes = song.notes / song.tracks + (track < song.notes % song.tracks ? 1 : 0);
        std::vector<uint8_t> body = track_body(song, track, notes);
        out.insert(out.end(), {'M', 'T', 'r', 'k'});
        put32(out, uint32_t(body.size()));
        out.insert(out.end(), body.begin(), body.end());
    }
    return out;
}
