#include "midi/alsa_encoder.h"

namespace {

// Bytes a status byte needs, itself included; 0 for status bytes with no sequencer form.
size_t needed_length(uint8_t status) {
    switch (status & 0xF0) {
        case midi::kProgramChange:
        case midi::kChannelPressure:
            return 2;
        case 0xF0:
            break;
        default:
            return 3;
    }
    switch (status) {
        case 0xF1:
        case 0xF3:
            return 2;
        case 0xF2:
            return 3;
        case 0xF6:
        case 0xF8:
        case 0xFA:
        case 0xFB:
        case 0xFC:
        case 0xFE:
        case 0xFF:
            return 1;
        default:
            return 0;
    }
}

snd_seq_event_type_t system_type(uint8_t status) {
    switch (status) {
        case 0xF1:
            return SND_SEQ_EVENT_QFRAME;
        case 0xF2:
            return SND_SEQ_EVENT_SONGPOS;
        case 0xF3:
            return SND_SEQ_EVENT_SONGSEL;
        case 0xF6:
            return SND_SEQ_EVENT_TUNE_REQUEST;
        case 0xF8:
            return SND_SEQ_EVENT_CLOCK;
        case 0xFA:
            return SND_SEQ_EVENT_START;
        case 0xFB:
            return SND_SEQ_EVENT_CONTINUE;
        case 0xFC:
            return SND_SEQ_EVENT_STOP;
        case 0xFE:
            return SND_SEQ_EVENT_SENSING;
        default:
            return SND_SEQ_EVENT_RESET;
    }
}

void encode_channel(const uint8_t* data, size_t length, snd_seq_event_t* event) {
    const uint8_t channel = data[0] & 0x0F;
    const uint8_t data1 = data[1] & 0x7F;
    const uint8_t data2 = length > 2 ? data[2] & 0x7F : 0;
    switch (data[0] & 0xF0) {
        case midi::kNoteOff:
            snd_seq_ev_set_noteoff(event, channel, data1, data2);
            break;
        case midi::kNoteOn:
            snd_seq_ev_set_noteon(event, channel, data1, data2);
            break;
        case midi::kKeyPressure:
            snd_seq_ev_set_keypress(event, channel, data1, data2);
            break;
        case midi::kControlChange:
            snd_seq_ev_set_controller(event, channel, data1, data2);
            break;
        case midi::kProgramChange:
            snd_seq_ev_set_pgmchange(event, channel, data1);
            break;
        case midi::kChannelPressure:
            snd_seq_ev_set_chanpress(event, channel, data1);
            break;
        default:
            snd_seq_ev_set_pitchbend(event, channel, ((data2 << 7) | data1) - 8192);
            break;
    }
}

}  // namespace

bool TAlsaEncoder::EncodeShort(const uint8_t* data, size_t length, snd_seq_event_t* event) {
    const uint8_t status = data[0];
    if (status < 0x80 || status == midi::kSysExStart) return false;
    const size_t needed = needed_length(status);
    if (needed == 0 || length < needed || midi::is_meta_event(data, length)) return false;
    snd_seq_ev_clear(event);
    if (status < 0xF0) {
        encode_channel(data, length, event);
        return true;
    }
    event->type = system_type(status);
    snd_seq_ev_set_fixed(event);
    if (needed == 2) event->data.control.value = data[1] & 0x7F;
    if (needed == 3) event->data.control.value = (data[1] & 0x7F) | ((data[2] & 0x7F) << 7);
    return true;
}
