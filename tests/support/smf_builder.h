#pragma once
// Builds Standard MIDI Files in code: a test says what it means instead of hiding bytes.
//
//   TSmfBuilder smf(1, 480);
//   smf.AddTrack().Name(0, "Piano").NoteOn(0, 0, 60, 100).NoteOff(480, 0, 60);
//   std::vector<uint8_t> bytes = smf.Bytes();   // End of Track is appended

#include <cstdint>
#include <deque>
#include <initializer_list>
#include <string>
#include <vector>

std::vector<uint8_t> vlq(uint32_t value);

class TTrackBuilder {
  public:
    // delta, then the bytes as they stand (status or running-status data).
    TTrackBuilder& Event(uint32_t delta, std::initializer_list<uint8_t> bytes);
    TTrackBuilder& Event(uint32_t delta, const std::vector<uint8_t>& bytes);
    TTrackBuilder& NoteOn(uint32_t delta, uint8_t channel, uint8_t note, uint8_t velocity);
    TTrackBuilder& NoteOff(uint32_t delta, uint8_t channel, uint8_t note, uint8_t velocity = 0);
    TTrackBuilder& Control(uint32_t delta, uint8_t channel, uint8_t controller, uint8_t value);
    TTrackBuilder& Program(uint32_t delta, uint8_t channel, uint8_t program);
    TTrackBuilder& Tempo(uint32_t delta, uint32_t usPerQuarter);
    TTrackBuilder& Meta(uint32_t delta, uint8_t type, const std::vector<uint8_t>& data);
    TTrackBuilder& Name(uint32_t delta, const std::string& name);
    TTrackBuilder& Port(uint32_t delta, uint8_t port);
    // data excludes the leading 0xF0 and includes the closing 0xF7 if wanted.
    TTrackBuilder& SysEx(uint32_t delta, const std::vector<uint8_t>& data);
    // Leaves the End of Track meta event out (for rejection tests).
    TTrackBuilder& WithoutEnd();
    TTrackBuilder& Trailing(const std::vector<uint8_t>& bytes);

    std::vector<uint8_t> Body() const;

  private:
    std::vector<uint8_t> fBody;
    std::vector<uint8_t> fTrailing;
    bool fEnd = true;
};

class TSmfBuilder {
  public:
    TSmfBuilder(uint16_t format = 1, int16_t division = 480);
    TTrackBuilder& AddTrack();
    // Overrides the track count written in the header (default: the tracks added).
    TSmfBuilder& DeclareTracks(uint16_t count);
    // Header length above 6 adds that many extra zero bytes to the header.
    TSmfBuilder& HeaderLength(uint32_t length);
    TSmfBuilder& AppendAfterTracks(const std::vector<uint8_t>& bytes);
    std::vector<uint8_t> Bytes() const;

  private:
    uint16_t fFormat;
    int16_t fDivision;
    int fDeclared = -1;
    uint32_t fHeaderLength = 6;
    std::deque<TTrackBuilder> fTracks;
    std::vector<uint8_t> fAfter;
};
