#include "tests/support/smf_builder.h"

namespace {

void put32(std::vector<uint8_t>& out, uint32_t v) {
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(uint8_t(v >> shift));
}

void put16(std::vector<uint8_t>& out, uint16_t v) {
    out.push_back(uint8_t(v >> 8));
    out.push_back(uint8_t(v));
}

}  // namespace

std::vector<uint8_t> vlq(uint32_t value) {
    std::vector<uint8_t> bytes{uint8_t(value & 0x7F)};
    while (value >>= 7) bytes.insert(bytes.begin(), uint8_t(0x80 | (value & 0x7F)));
    return bytes;
}

TTrackBuilder& TTrackBuilder::Event(uint32_t delta, std::initializer_list<uint8_t> bytes) {
    return Event(delta, std::vector<uint8_t>(bytes));
}

TTrackBuilder& TTrackBuilder::Event(uint32_t delta, const std::vector<uint8_t>& bytes) {
    std::vector<uint8_t> d = vlq(delta);
    fBody.insert(fBody.end(), d.begin(), d.end());
    fBody.insert(fBody.end(), bytes.begin(), bytes.end());
    return *this;
}

TTrackBuilder& TTrackBuilder::NoteOn(uint32_t delta, uint8_t channel, uint8_t note,
                                     uint8_t velocity) {
    return Event(delta, {uint8_t(0x90 | channel), note, velocity});
}

TTrackBuilder& TTrackBuilder::NoteOff(uint32_t delta, uint8_t channel, uint8_t note,
                                      uint8_t velocity) {
    return Event(delta, {uint8_t(0x80 | channel), note, velocity});
}

TTrackBuilder& TTrackBuilder::Control(uint32_t delta, uint8_t channel, uint8_t controller,
                                      uint8_t value) {
    return Event(delta, {uint8_t(0xB0 | channel), controller, value});
}

TTrackBuilder& TTrackBuilder::Program(uint32_t delta, uint8_t channel, uint8_t program) {
    return Event(delta, {uint8_t(0xC0 | channel), program});
}

TTrackBuilder& TTrackBuilder::Tempo(uint32_t delta, uint32_t us) {
    return Meta(delta, 0x51, {uint8_t(us >> 16), uint8_t(us >> 8), uint8_t(us)});
}

TTrackBuilder& TTrackBuilder::Meta(uint32_t delta, uint8_t type, const std::vector<uint8_t>& data) {
    std::vector<uint8_t> bytes{0xFF, type};
    std::vector<uint8_t> length = vlq(uint32_t(data.size()));
    bytes.insert(bytes.end(), length.begin(), length.end());
    bytes.insert(bytes.end(), data.begin(), data.end());
    return Event(delta, bytes);
}

TTrackBuilder& TTrackBuilder::Name(uint32_t delta, const std::string& name) {
    return Meta(delta, 0x03, std::vector<uint8_t>(name.begin(), name.end()));
}

TTrackBuilder& TTrackBuilder::Port(uint32_t delta, uint8_t port) {
    return Meta(delta, 0x21, {port});
}

TTrackBuilder& TTrackBuilder::SysEx(uint32_t delta, const std::vector<uint8_t>& data) {
    std::vector<uint8_t> bytes{0xF0};
    std::vector<uint8_t> length = vlq(uint32_t(data.size()));
    bytes.insert(bytes.end(), length.begin(), length.end());
    bytes.insert(bytes.end(), data.begin(), data.end());
    return Event(delta, bytes);
}

TTrackBuilder& TTrackBuilder::WithoutEnd() {
    fEnd = false;
    return *this;
}

TTrackBuilder& TTrackBuilder::Trailing(const std::vector<uint8_t>& bytes) {
    fTrailing = bytes;
    return *this;
}

std::vector<uint8_t> TTrackBuilder::Body() const {
    std::vector<uint8_t> body = fBody;
    if (fEnd) body.insert(body.end(), {0x00, 0xFF, 0x2F, 0x00});
    body.insert(body.end(), fTrailing.begin(), fTrailing.end());
    return body;
}

TSmfBuilder::TSmfBuilder(uint16_t format, int16_t division)
    : fFormat(format), fDivision(division) {}

TTrackBuilder& TSmfBuilder::AddTrack() { return fTracks.emplace_back(); }

TSmfBuilder& TSmfBuilder::DeclareTracks(uint16_t count) {
    fDeclared = count;
    return *this;
}

TSmfBuilder& TSmfBuilder::HeaderLength(uint32_t length) {
    fHeaderLength = length;
    return *this;
}

TSmfBuilder& TSmfBuilder::AppendAfterTracks(const std::vector<uint8_t>& bytes) {
    fAfter = bytes;
    return *this;
}

std::vector<uint8_t> TSmfBuilder::Bytes() const {
    std::vector<uint8_t> out{'M', 'T', 'h', 'd'};
    put32(out, fHeaderLength);
    put16(out, fFormat);
    put16(out, uint16_t(fDeclared >= 0 ? fDeclared : int(fTracks.size())));
    put16(out, uint16_t(fDivision));
    for (uint32_t i = 6; i < fHeaderLength; ++i) out.push_back(0);
    for (const TTrackBuilder& track : fTracks) {
        std::vector<uint8_t> body = track.Body();
        out.insert(out.end(), {'M', 'T', 'r', 'k'});
        put32(out, uint32_t(body.size()));
        out.insert(out.end(), body.begin(), body.end());
    }
    out.insert(out.end(), fAfter.begin(), fAfter.end());
    return out;
}
