#pragma once
// TMidiPassThrough: a consumer that sends every event it receives on, unchanged and with
// its time stamp, through a producer of its own. Raw data starting with 0xFF (a system
// reset byte, or a meta event) is never passed on. The chain's stages derive from it
// and override only the hooks they change.

#include <cstdint>
#include <string>

#include "midi/local_consumer.h"
#include "midi/local_producer.h"

class TMidiPassThrough : public TMidiLocalConsumer {
  public:
    explicit TMidiPassThrough(std::string outputName = {}) : fOutput(std::move(outputName)) {}
    // A stage riding on host's receive thread (see TMidiLocalConsumer).
    TMidiPassThrough(TMidiLocalConsumer& host, std::string outputName)
        : TMidiLocalConsumer(host, outputName), fOutput(std::move(outputName)) {}

    TMidiLocalProducer* Producer() { return &fOutput; }
    int32_t Connect(TMidiConsumer* consumer) { return fOutput.Connect(consumer); }

    void Data(const uint8_t* data, size_t length, bool atomic, int64_t time) override;
    void NoteOff(uint8_t channel, uint8_t note, uint8_t velocity, int64_t time) override;
    void NoteOn(uint8_t channel, uint8_t note, uint8_t velocity, int64_t time) override;
    void KeyPressure(uint8_t channel, uint8_t note, uint8_t pressure, int64_t time) override;
    void ControlChange(uint8_t channel, uint8_t controller, uint8_t value, int64_t time) override;
    void ProgramChange(uint8_t channel, uint8_t program, int64_t time) override;
    void ChannelPressure(uint8_t channel, uint8_t pressure, int64_t time) override;
    void PitchBend(uint8_t channel, uint8_t lsb, uint8_t msb, int64_t time) override;
    void SystemExclusive(const uint8_t* data, size_t length, int64_t time) override;
    void SystemCommon(uint8_t status, uint8_t data1, uint8_t data2, int64_t time) override;
    void SystemRealTime(uint8_t status, int64_t time) override;
    void TempoChange(int32_t beatsPerMinute, int64_t time) override;

  protected:
    TMidiLocalProducer fOutput;
};
