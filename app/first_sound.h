#pragma once
// For start-up benchmarks: with QUILLMIDI_FIRST_SOUND=FILE in the environment, the program
// writes into FILE the CLOCK_MONOTONIC microseconds at which the first note-on reached the
// built-in synthesizer, once it has. A benchmark that notes the time before it starts the
// program then knows the launch-to-first-sound time on the same clock.
//
// Threads: the owner's (GUI) thread looks at the synthesizer every few milliseconds until
// the note came; the synthesizer's receive thread only keeps the time.

#include <QObject>
#include <functional>

class TSynthConsumer;

// synth: the synthesizer in use at each look, or nullptr.
void watch_first_sound(QObject* context, std::function<const TSynthConsumer*()> synth);
