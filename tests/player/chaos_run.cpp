#include "tests/player/chaos_run.h"

#include <unistd.h>

#include <QCoreApplication>
#include <QMetaObject>
#include <QTest>
#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <mutex>
#include <thread>

#include "engine/sys_reset.h"
#include "player/pref.h"
#include "player/quill_view.h"
#include "playlist/orvick_view.h"
#include "tests/support/smf_builder.h"
#include "veldan/core/handler.h"

using quill::TQuillController;
using quill::TQuillView;

namespace {

using TClock = std::chrono::steady_clock;

int64_t now_us() {
    return std::chrono::duration_cast<std::chrono::microseconds>(TClock::now().time_since_epoch())
        .count();
}

// One timed event of a generated track; at one tick, note-offs go before note-ons so
// that a key struck again right at its release is never taken for an overlap.
struct TTimed {
    uint32_t tick;
    int order;
    std::vector<uint8_t> bytes;  // a channel message, or meta/SysEx marked by the first byte
};

void write_track(TTrackBuilder& track, std::vector<TTimed> events) {
    std::stable_sort(events.begin(), events.end(), [](const TTimed& a, const TTimed& b) {
        return a.tick != b.tick ? a.tick < b.tick : a.order < b.order;
    });
    uint32_t at = 0;
    for (const TTimed& event : events) {
        const uint32_t delta = event.tick - at;
        at = event.tick;
        if (event.bytes[0] == 0xFF && event.bytes[1] == 0x51) {
            track.Tempo(delta, (uint32_t(event.bytes[2]) << 16) | (uint32_t(event.bytes[3]) << 8) |
                                   event.bytes[4]);
        } else if (event.bytes[0] == 0xFF && event.bytes[1] == 0x21) {
            track.Port(delta, event.bytes[2]);
        } else if (event.bytes[0] == 0xF0) {
            track.SysEx(delta, std::vector<uint8_t>(event.bytes.begin() + 1, event.bytes.end()));
        } else {
            track.Event(delta, event.bytes);
        }
    }
}

struct TSongShape {
    int tracks = 4;
    uint32_t spacingMin = 60, spacingMax = 240;  // ticks between a track's note-ons
    uint32_t lengthMin = 30, lengthMax = 400;    // ticks a note lasts
    uint32_t totalTicks = 480 * 8;
    int chord = 1;  // notes struck together
    bool tempoMap = false;
    bool bothPorts = false;
    bool sysEx = false;
};

// Notes never overlap on one channel and key within a track, and each track has a channel
// of its own, so every note-on of the file has exactly one release.
std::vector<uint8_t> make_song(const TSongShape& shape, const std::string& title,
                               std::mt19937& random) {
    auto pick = [&](uint32_t low, uint32_t high) {
        return std::uniform_int_distribution<uint32_t>(low, std::max(low, high))(random);
    };
    TSmfBuilder smf(1, 480);
    for (int t = 0; t < shape.tracks; ++t) {
        TTrackBuilder& track = smf.AddTrack();
        if (t == 0) track.Name(0, title);
        const uint8_t channel = uint8_t(t % 16);
        std::vector<TTimed> events;
        events.push_back({0, 0, {uint8_t(0xC0 | channel), uint8_t(pick(0, 127))}});
        events.push_back({0, 0, {uint8_t(0xB0 | channel), 7, uint8_t(pick(60, 127))}});
        if (shape.bothPorts) {
            // Odd tracks play through port B; one track moves to the other port halfway.
            events.push_back({0, -1, {0xFF, 0x21, uint8_t(t % 2)}});
            if (t == 0) events.push_back({shape.totalTicks / 2, -1, {0xFF, 0x21, 1}});
        }
        if (t == 0 && shape.tempoMap)
            for (uint32_t tick = 0; tick < shape.totalTicks; tick += pick(120, 960)) {
                const uint32_t tempo = pick(250000, 1000000);
                events.push_back(
                    {tick,
                     -1,
                     {0xFF, 0x51, uint8_t(tempo >> 16), uint8_t(tempo >> 8), uint8_t(tempo)}});
            }
        if (t == 0 && shape.sysEx) {
            // A GS reset at the start, a master volume and a long vendor message later.
            events.push_back(
                {0, -1, {0xF0, 0x41, 0x10, 0x42, 0x12, 0x40, 0x00, 0x7F, 0x00, 0x41, 0xF7}});
            events.push_back({shape.totalTicks / 3,
                              -1,
                              {0xF0, 0x7F, 0x7F, 0x04, 0x01, 0x00, uint8_t(pick(40, 127)), 0xF7}});
            std::vector<uint8_t> vendor = {0xF0, 0x43, 0x10};
            for (int i = 0; i < 120; ++i) vendor.push_back(uint8_t(pick(0, 127)));
            vendor.push_back(0xF7);
            events.push_back({shape.totalTicks / 2, -1, vendor});
        }
        std::array<uint32_t, 128> busyUntil{};
        for (uint32_t tick = pick(0, shape.spacingMax); tick < shape.totalTicks;
             tick += pick(shape.spacingMin, shape.spacingMax)) {
            for (int n = 0; n < shape.chord; ++n) {
                const uint8_t note = uint8_t(pick(channel == 9 ? 35 : 0, channel == 9 ? 81 : 127));
                if (busyUntil[note] > tick) continue;
                const uint32_t end =
                    std::min(tick + pick(shape.lengthMin, shape.lengthMax), shape.totalTicks);
                busyUntil[note] = end + 1;
                events.push_back({tick, 1, {uint8_t(0x90 | channel), note, uint8_t(pick(1, 127))}});
                // Half of the releases are velocity-0 note-ons.
                if (pick(0, 1))
                    events.push_back({end, 0, {uint8_t(0x80 | channel), note, 64}});
                else
                    events.push_back({end, 0, {uint8_t(0x90 | channel), note, 0}});
            }
            if (pick(0, 7) == 0) {
                const uint16_t bend = uint16_t(pick(0, 16383));
                events.push_back(
                    {tick, 1, {uint8_t(0xE0 | channel), uint8_t(bend & 0x7F), uint8_t(bend >> 7)}});
            }
        }
        write_track(track, std::move(events));
    }
    return smf.Bytes();
}

// What a user's folder holds besides good songs.
std::vector<uint8_t> make_unplayable(int kind, std::mt19937& random) {
    switch (kind) {
        case 0:
            return {'M', 'T', 'h', 'd'};  // cut in the header
        case 1:
            return TSmfBuilder(1, 480).DeclareTracks(0).Bytes();  // no tracks at all
        case 2: {
            // A track chunk claiming far more than the file holds.
            TSmfBuilder smf(1, 480);
            smf.AddTrack().NoteOn(0, 0, 60, 100).NoteOff(480, 0, 60);
            std::vector<uint8_t> bytes = smf.Bytes();
            bytes[18] = 0x7F;
            return bytes;
        }
        default: {
            std::vector<uint8_t> bytes = {'M', 'T', 'h', 'd', 0, 0, 0, 6, 0, 1, 0, 3, 1, 0xE0};
            for (int i = 0; i < 400; ++i) bytes.push_back(uint8_t(random()));
            return bytes;
        }
    }
}

bool is_reset(const uint8_t* data, size_t length) {
    if (length < 2 || data[0] != 0xF0) return false;
    for (const TSysReset& reset : kSysResets)
        if (length > reset.length && std::memcmp(data + 1, reset.bytes, reset.length) == 0)
            return true;
    return false;
}

}  // namespace

// What a synthesizer listening to one recorder would still sound.
struct TChaosRun::TBalance {
    std::array<std::array<int32_t, 128>, 16> sounding{};
    size_t scanned = 0;
};

// Posts a ping to the view whenever the last one was answered, and counts the times the
// GUI thread left one waiting for longer than a second. A GUI thread that does not answer
// at all for kDeadlockUs is taken for a deadlock: the run is aborted with the action that
// was under way, since nothing else would ever end it.
class TChaosRun::TWatchdog {
  public:
    static constexpr int64_t kStallUs = 1000000;
    static constexpr int64_t kDeadlockUs = 20000000;

    TWatchdog(QObject* target, const std::atomic<int>& action)
        : fTarget(target), fAction(action), fState(std::make_shared<TState>()) {
        fThread = std::thread([this] { Loop(); });
    }
    ~TWatchdog() {
        {
            std::lock_guard lock(fState->lock);
            fStop = true;
        }
        fWake.notify_all();
        fThread.join();
    }
    uint64_t Stalls() const {
        std::lock_guard lock(fState->lock);
        return fState->stalls;
    }
    int64_t LongestUs() const {
        std::lock_guard lock(fState->lock);
        return fState->longestUs;
    }
    std::vector<std::string> Notes() const {
        std::lock_guard lock(fState->lock);
        return fState->notes;
    }

  private:
    // Shared with the pings still queued, which may be handled after the watchdog is gone.
    struct TState {
        mutable std::mutex lock;
        bool pending = false;
        int64_t sentUs = 0;
        const char* actionAtSend = "";
        uint64_t stalls = 0;
        int64_t longestUs = 0;
        std::vector<std::string> notes;
    };

    void Loop() {
        std::unique_lock lock(fState->lock);
        while (!fStop) {
            const int64_t now = now_us();
            if (!fState->pending) {
                fState->pending = true;
                fState->sentUs = now;
                fState->actionAtSend = ActionName(fAction.load());
                std::shared_ptr<TState> state = fState;
                QMetaObject::invokeMethod(
                    fTarget,
                    [state] {
                        std::lock_guard answered(state->lock);
                        const int64_t waited = now_us() - state->sentUs;
                        state->pending = false;
                        state->longestUs = std::max(state->longestUs, waited);
                        if (waited > kStallUs) {
                            ++state->stalls;
                            if (state->notes.size() < 20)
                                state->notes.push_back("the GUI thread answered a ping after " +
                                                       std::to_string(waited / 1000) +
                                                       " ms (during " + state->actionAtSend + ")");
                        }
                    },
                    Qt::QueuedConnection);
            } else if (now - fState->sentUs > kDeadlockUs) {
                std::fprintf(stderr,
                             "chaos: the GUI thread has not answered for %lld ms, "
                             "since the action %s: deadlock\n",
                             static_cast<long long>((now - fState->sentUs) / 1000),
                             fState->actionAtSend);
                std::abort();
            }
            fWake.wait_for(lock, std::chrono::milliseconds(50));
        }
    }

    QObject* fTarget;
    const std::atomic<int>& fAction;
    std::shared_ptr<TState> fState;
    std::condition_variable fWake;
    bool fStop = false;
    std::thread fThread;
};

const char* TChaosRun::ActionName(int action) {
    static const char* const kNames[] = {"play", "pause", "stop",          "next",  "prev",
                                         "pick", "seek",  "key",           "tempo", "volume",
                                         "mode", "port",  "all-notes-off", "prefs", "listen"};
    if (action < 0 || action >= kActions) return "(between actions)";
    return kNames[action];
}

TChaosRun::TChaosRun(TQuillView& view, TMidiRecorder& portA, TMidiRecorder& portB,
                     std::filesystem::path folder, TOptions options)
    : fView(view),
      fRecorders{&portA, &portB},
      fFolder(std::move(folder)),
      fOptions(std::move(options)),
      fRandom(fOptions.seed) {
    for (size_t i = 0; i < fRecorders.size(); ++i)
        fBalances.push_back(std::make_unique<TBalance>());
}

TChaosRun::~TChaosRun() = default;

void TChaosRun::AddRosterConsumer(TMidiRecorder* consumer) {
    fRecorders.push_back(consumer);
    fToggleIds.push_back(consumer->ID());
    fBalances.push_back(std::make_unique<TBalance>());
}

bool TChaosRun::AddSongs() {
    std::uniform_int_distribution<int> percent(0, 99);
    for (int i = 0; i < fOptions.songs; ++i) {
        const int kind = percent(fRandom);
        const std::string title = "Chaos " + std::to_string(i);
        std::vector<uint8_t> bytes;
        TSongShape shape;
        bool missing = false;
        if (kind < 20) {  // dense: many tracks, chords, short notes
            shape.tracks = 12;
            shape.spacingMin = 10, shape.spacingMax = 60;
            shape.lengthMin = 5, shape.lengthMax = 120;
            shape.chord = 3;
            shape.totalTicks = 480 * 6;
        } else if (kind < 30) {  // sparse: long rests between few notes
            shape.tracks = 1;
            shape.spacingMin = 960, shape.spacingMax = 480 * 6;
            shape.lengthMin = 240, shape.lengthMax = 960;
            shape.totalTicks = 480 * 16;
        } else if (kind < 45) {
            shape.tempoMap = true;
        } else if (kind < 60) {
            shape.bothPorts = true;
            shape.tracks = 6;
        } else if (kind < 70) {
            shape.sysEx = true;
            shape.bothPorts = kind % 2 == 0;
        } else if (kind < 75) {
            shape.totalTicks = 480;  // a song over in half a second
        } else if (kind < 80) {
            bytes = make_unplayable(kind % 4, fRandom);
        } else if (kind < 82) {
            missing = true;
        }
        if (bytes.empty()) bytes = make_song(shape, title, fRandom);
        const std::filesystem::path file = fFolder / ("chaos" + std::to_string(i) + ".mid");
        {
            std::ofstream out(file, std::ios::binary);
            out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
        }
        if (!fView.OrvickView()->AddListFolderFileToTopLevel(file)) return false;
        if (missing) fMissing.push_back(file);
    }
    // Gone after the list was made, as files moved away behind the player's back.
    for (const auto& file : fMissing) std::filesystem::remove(file);
    return true;
}

void TChaosRun::Post(uint32_t what, const char* field, int32_t value) {
    veldan::TMessage message(what);
    if (field) message.AddInt32(field, value);
    veldan::post_message(&fView, message);
    QCoreApplication::sendPostedEvents();
}

void TChaosRun::Pump(int ms) {
    const auto until = TClock::now() + std::chrono::milliseconds(ms);
    do {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        if (TClock::now() < until) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    } while (TClock::now() < until);
}

void TChaosRun::Problem(const std::string& text) {
    if (fFigures.problems.size() < 20) fFigures.problems.push_back(text);
    if (fOptions.log) fOptions.log(text);
}

void TChaosRun::Scan(size_t index) {
    const TMidiRecorder& recorder = *fRecorders[index];
    TBalance& balance = *fBalances[index];
    const auto entries = recorder.Entries();
    for (size_t i = balance.scanned; i < entries.size(); ++i) {
        const uint8_t* data = recorder.BytesOf(entries[i]);
        const size_t length = entries[i].length;
        ++fFigures.eventsChecked;
        if (length == 0) continue;
        const uint8_t kind = data[0] & 0xF0;
        const uint8_t channel = data[0] & 0x0F;
        if (kind == 0x90 && length >= 3 && data[2] != 0) {
            ++balance.sounding[channel][data[1] & 0x7F];
            ++fFigures.notesChecked;
        } else if ((kind == 0x80 || kind == 0x90) && length >= 3) {
            int32_t& count = balance.sounding[channel][data[1] & 0x7F];
            if (count > 0) --count;
        } else if (kind == 0xB0 && length >= 3 && (data[1] == 120 || data[1] == 123)) {
            balance.sounding[channel].fill(0);
        } else if (is_reset(data, length)) {
            for (auto& keys : balance.sounding) keys.fill(0);
        }
    }
    balance.scanned = entries.size();
}

void TChaosRun::CheckSilence(const char* when) {
    bool settled = fView.Controller().Chain().WaitIdle(500000);
    for (TMidiRecorder* recorder : fRecorders) settled = recorder->WaitIdle(200000) && settled;
    if (!settled) ++fFigures.unsettled;
    const bool stopped = fView.Controller().State() == quill::kStateStopped;
    ++fFigures.checks;
    bool traced = false;
    for (size_t i = 0; i < fRecorders.size(); ++i) {
        Scan(i);
        TBalance& balance = *fBalances[i];
        for (int channel = 0; channel < 16; ++channel)
            for (int key = 0; key < 128; ++key) {
                int32_t& count = balance.sounding[size_t(channel)][size_t(key)];
                if (count == 0) continue;
                fFigures.hanging += uint64_t(count);
                Problem(fRecorders[i]->Name() + ": channel " + std::to_string(channel + 1) +
                        " key " + std::to_string(key) + " sounds " + std::to_string(count) +
                        "x when " + when + " (" + (stopped ? "stopped" : "paused") + ", song " +
                        std::to_string(fView.Controller().CurSongIdx()) + ", key " +
                        std::to_string(fView.Controller().Chain().Filter(0).Key()) + ")");
                if (!traced) {
                    traced = true;
                    Problem("  " + Trace(i, channel, key));
                    std::string history = "  key changes since the last check: " +
                                          std::to_string(fKeyChangesSinceCheck) + "; last actions:";
                    for (const std::string& line : fHistory) history += " | " + line;
                    Problem(history);
                }
                // Reported once; what follows is judged afresh.
                count = 0;
            }
        fFigures.droppedEvents =
            std::max<uint64_t>(fFigures.droppedEvents, fRecorders[i]->Dropped());
        // Nothing is sent while stopped, so the storage can be used again.
        if (stopped) {
            fRecorders[i]->Clear();
            balance.scanned = 0;
        }
    }
    fKeyChangesSinceCheck = 0;
}

std::string TChaosRun::Trace(size_t index, int channel, int key) const {
    const TMidiRecorder& recorder = *fRecorders[index];
    const auto entries = recorder.Entries();
    // Replays the rules of Scan() for this key alone, to find the note-on from which it has
    // sounded without a break.
    size_t strike = entries.size();
    int32_t count = 0;
    for (size_t i = 0; i < entries.size(); ++i) {
        const uint8_t* data = recorder.BytesOf(entries[i]);
        const size_t length = entries[i].length;
        if (length == 0) continue;
        const bool ours = data[0] < 0xF0 && (data[0] & 0x0F) == channel;
        const uint8_t kind = data[0] & 0xF0;
        if (ours && length >= 3 && kind == 0x90 && data[1] == key && data[2] != 0) {
            if (count++ == 0) strike = i;
        } else if (ours && length >= 3 && (kind == 0x80 || kind == 0x90) && data[1] == key) {
            if (count > 0) --count;
        } else if ((ours && kind == 0xB0 && length >= 3 && (data[1] == 120 || data[1] == 123)) ||
                   is_reset(data, length)) {
            count = 0;
        }
        if (count == 0) strike = entries.size();
    }
    if (strike == entries.size()) return "its note-on came before the recorder was last emptied";
    // A few events of the channel before, then what the channel and the system messages
    // (resets) did after it.
    std::string text = "channel " + std::to_string(channel + 1) + ":";
    size_t from = strike;
    for (int before = 0; from > 0 && before < 5;) {
        --from;
        const uint8_t* data = recorder.BytesOf(entries[from]);
        if (entries[from].length > 0 && data[0] < 0xF0 && (data[0] & 0x0F) == channel) ++before;
    }
    int shown = 0;
    for (size_t i = from; i < entries.size() && shown < 60; ++i) {
        const uint8_t* data = recorder.BytesOf(entries[i]);
        const size_t length = entries[i].length;
        if (length == 0 || (data[0] < 0xF0 && (data[0] & 0x0F) != channel)) continue;
        text += i == strike ? " >>[" : " [";
        text += data[0] >= 0xF0 ? "sysex" : hex_bytes(data, length);
        text += "]";
        ++shown;
    }
    return text;
}

int64_t TChaosRun::ResidentKB() {
    std::ifstream statm("/proc/self/statm");
    int64_t size = 0, resident = 0;
    statm >> size >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

std::string TChaosRun::Do(int action) {
    std::string done = ActionName(action);
    auto between = [&](int low, int high) {
        const int value = std::uniform_int_distribution<int>(low, high)(fRandom);
        done += " " + std::to_string(value);
        return value;
    };
    const quill::TControlBar* bar = fView.ControlBar();
    switch (action) {
        case kPlay:
            Post(quill::kMsgPlay, nullptr, 0);
            break;
        case kPause:
            Post(quill::kMsgPause, nullptr, 0);
            break;
        case kStop:
            Post(quill::kMsgStop, nullptr, 0);
            break;
        case kNext:
            Post(quill::kMsgNext, nullptr, 0);
            break;
        case kPrev:
            Post(quill::kMsgPrev, nullptr, 0);
            break;
        case kPick:
            Post(TOrvickView::kMsgChangeSongRqtd, TOrvickView::kSongIndexField,
                 between(0, std::max(0, fView.OrvickView()->Songs() - 1)));
            break;
        case kSeek:
            Post(quill::kMsgPosChanged, TQuillController::kSliderValueField, between(0, 100));
            break;
        case kKey:
            Post(quill::kMsgKeyChanged, TQuillController::kSliderValueField,
                 between(bar->SliderMinimum(quill::TControlBar::kKey),
                         bar->SliderMaximum(quill::TControlBar::kKey)));
            break;
        case kTempo:
            Post(quill::kMsgTempoChanged, TQuillController::kSliderValueField,
                 between(bar->SliderMinimum(quill::TControlBar::kTempo),
                         bar->SliderMaximum(quill::TControlBar::kTempo)));
            break;
        case kVolume:
            Post(quill::kMsgVolumeChanged, TQuillController::kSliderValueField,
                 between(bar->SliderMinimum(quill::TControlBar::kVolume),
                         bar->SliderMaximum(quill::TControlBar::kVolume)));
            break;
        case kMode:
            Post(TQuillController::kMsgPlayMode, TQuillController::kPlayModeField, between(0, 5));
            break;
        case kPortToggle: {
            if (fToggleIds.empty()) break;
            veldan::TMessage item(TQuillController::kMsgMidiOut);
            item.AddInt32(TQuillController::kMidiPortField, between(0, 1));
            item.AddInt32(TQuillController::kConsumerIdField,
                          fToggleIds[size_t(between(0, int(fToggleIds.size()) - 1))]);
            veldan::post_message(&fView, item);
            QCoreApplication::sendPostedEvents();
            break;
        }
        case kAllNotesOff:
            Post(TQuillController::kMsgAllNotesOff, nullptr, 0);
            break;
        case kPrefs: {
            TPref* prefs = fOptions.prefs;
            if (!prefs) break;
            prefs->sendSysResets = between(0, 1);
            prefs->sysResetCombination = between(0, 15);
            prefs->waitBetweenSongs = between(0, 1);
            prefs->chaseOnSeek = between(0, 1);
            Post(quill::kMsgPrefChanged, nullptr, 0);
            break;
        }
        case kListen:
            Pump(between(300, 2500));
            break;
        default:
            break;
    }
    return done;
}

TChaosRun::TFigures TChaosRun::Run() {
    // Weights of the actions: transport most, sliders often, the rest now and then.
    static constexpr int kWeights[kActions] = {14, 8, 5, 8, 5, 6, 8, 6, 5, 4, 3, 4, 2, 2, 3};
    std::vector<int> weights(std::begin(kWeights), std::end(kWeights));
    for (int action = 0; action < kActions; ++action)
        if (fOptions.skipActions & (1u << action)) weights[size_t(action)] = 0;
    std::discrete_distribution<int> chooseAction(weights.begin(), weights.end());
    // Mostly quick succession, now and then a breath.
    std::exponential_distribution<double> gap(1.0 / std::max(1, fOptions.meanGapMs));

    const QMetaObject::Connection watch = QObject::connect(
        &fView.Controller(), &quill::TQuillController::StateChanged, [this](TMarnelState state) {
            if (state == quill::kStateStopped || state == quill::kStatePaused) fRestChanged = true;
            if (state == quill::kStatePlaying) ++fFigures.songsStarted;
        });
    fWatchdog = std::make_unique<TWatchdog>(&fView, fCurrentAction);
    const auto start = TClock::now();
    auto elapsed = [&] { return std::chrono::duration<double>(TClock::now() - start).count(); };
    fFigures.rss.emplace_back(0.0, ResidentKB());
    double nextSample = fOptions.rssEverySeconds;
    while (elapsed() < fOptions.seconds) {
        Pump(std::min(fOptions.maxGapMs, int(gap(fRandom))));
        const int action = chooseAction(fRandom);
        fCurrentAction.store(action);
        const int64_t before = now_us();
        std::string done = Do(action);
        const int64_t took = now_us() - before;
        fCurrentAction.store(-1);
        fFigures.actionUs[action] += took;
        fFigures.slowestUs[action] = std::max(fFigures.slowestUs[action], took);
        ++fFigures.actions[action];
        if (action == kKey) ++fKeyChangesSinceCheck;
        fHistory.push_back(done + " -> state " + std::to_string(fView.Controller().State()) +
                           " song " + std::to_string(fView.Controller().CurSongIdx()));
        if (fHistory.size() > 8) fHistory.pop_front();
        ++fFigures.totalActions;
        const TMarnelState state = fView.Controller().State();
        if (fRestChanged && (state == quill::kStateStopped || state == quill::kStatePaused)) {
            fRestChanged = false;
            CheckSilence(ActionName(action));
        }
        // A long stretch without a stop would fill the recorders.
        bool full = false;
        for (TMidiRecorder* recorder : fRecorders) full = full || recorder->Count() > (1u << 17);
        if (full) {
            Post(quill::kMsgStop, nullptr, 0);
            CheckSilence("the recorders filled up");
        }
        if (elapsed() >= nextSample) {
            fFigures.rss.emplace_back(elapsed(), ResidentKB());
            nextSample += fOptions.rssEverySeconds;
        }
    }
    Post(quill::kMsgStop, nullptr, 0);
    CheckSilence("at the end");
    fFigures.seconds = elapsed();
    fFigures.rss.emplace_back(fFigures.seconds, ResidentKB());
    fFigures.stalls = fWatchdog->Stalls();
    fFigures.longestStallUs = fWatchdog->LongestUs();
    for (const std::string& note : fWatchdog->Notes()) Problem(note);
    fWatchdog.reset();
    Pump(10);
    QObject::disconnect(watch);
    return fFigures;
}
