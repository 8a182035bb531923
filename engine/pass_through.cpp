#include "engine/pass_through.h"

#include "midi/midi_defs.h"

void TMidiPassThrough::Data(const uint8_t* data, size_t length, bool atomic, int64_t time) {
    if (length && data[0] == midi::kSystemReset) return;
    TMidiLocalConsumer::Data(data, length, atomic, time);
}

void TMidiPassThrough::NoteOff(uint8_t channel, uint8_t note, uint8_t velocity, int64_t time) {
    fOutput.SprayNoteOff(channel, note, velocity, time);
}

void TMidiPassThrough::NoteOn(uint8_t channel, uint8_t note, uint8_t velocity, int64_t time) {
    fOutput.SprayNoteOn(channel, note, velocity, time);
}

void TMidiPassThrough::KeyPressure(uint8_t channel, uint8_t note, uint8_t pressure, int64_t time) {
    fOutput.SprayKeyPressure(channel, note, pressure, time);
}

void TMidiPassThrough::ControlChange(uint8_t channel, uint8_t controller, uint8_t value,
                                     int64_t time) {
    fOutput.SprayControlChange(channel, controller, value, time);
}

void TMidiPassThrough::ProgramChange(uint8_t channel, uint8_t program, int64_t time) {
    fOutput.SprayProgramChange(channel, program, time);
}

void TMidiPassThrough::ChannelPressure(uint8_t channel, uint8_t pressure, int64_t time) {
    fOutput.SprayChannelPressure(channel, pressure, time);
}

void TMidiPassThrough::PitchBend(uint8_t channel, uint8_t lsb, uint8_t msb, int64_t time) {
    fOutput.SprayPitchBend(channel, lsb, msb, time);
}

void TMidiPassThrough::SystemExclusive(const uint8_t* data, size_t length, int64_t time) {
    fOutput.SpraySystemExclusive(data, length, time);
}

void TMidiPassThrough::SystemCommon(uint8_t status, uint8_t data1, uint8_t data2, int64_t time) {
    fOutput.SpraySystemCommon(status, data1, data2, time);
}

void TMidiPassThrough::SystemRealTime(uint8_t status, int64_t time) {
    fOutput.SpraySystemRealTime(status, time);
}

void TMidiPassThrough::TempoChange(int32_t beatsPerMinute, int64_t time) {
    fOutput.SprayTempoChange(beatsPerMinute, time);
}
