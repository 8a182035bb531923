#include "engine/prepare_sequence.h"

#include "engine/sys_reset.h"

int64_t TPrepareSequence::StepToPlay(TMarnelState* state) {
    for (;;) {
        if (*state == kStateStopped) {
            *state = kStateAfterSilence;
            // A zero interval would be a timer that fires at once: no wait at all.
            if (fSettings.silenceBetweenSongs && fSettings.silenceBetweenSongsUs > 0)
                return fSettings.silenceBetweenSongsUs;
        } else if (*state >= kStateAfterSilence && *state < kStateAfterXG) {
            const TSysReset& reset = kSysResets[*state - kStateAfterSilence];
            *state = TMarnelState(*state + 1);
            if (!fSettings.sendResets || !(fSettings.resetMask & reset.kind)) continue;
            if (fResetSent) fResetSent(reset.kind);
            // Straight through the public ports: the note-on managers must not take the
            // player's own reset for one in the song.
            for (int port = 0; port < TOutputChain::kPorts; ++port)
                fChain.PublicOut(port)->SpraySystemExclusive(reset.bytes, reset.length, 0);
            if (fSettings.silenceAfterResetsUs > 0) return fSettings.silenceAfterResetsUs;
        } else if (*state == kStateAfterXG) {
            *state = kStatePlaying;
            return 0;
        } else {
            return 0;
        }
    }
}
