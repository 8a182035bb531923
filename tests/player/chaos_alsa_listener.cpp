// A sequencer client in a process of its own, for the chaos run to kill: one writable port
// "in" that takes everything sent to it.
//   chaos_alsa_listener ADDRESS_FILE COUNT_FILE CLIENT_NAME
// Writes "client:port" into ADDRESS_FILE once the port exists, then the number of events
// taken into COUNT_FILE 20 times a second, until it is killed.
#include <alsa/asoundlib.h>
#include <poll.h>

#include <cstdio>
#include <string>

namespace {

// Whole under another name first, so a reader never sees half of it.
bool write_whole(const std::string& path, const std::string& text) {
    const std::string temp = path + ".part";
    FILE* file = std::fopen(temp.c_str(), "w");
    if (!file) return false;
    std::fputs(text.c_str(), file);
    std::fclose(file);
    return std::rename(temp.c_str(), path.c_str()) == 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) return 2;
    snd_seq_t* seq = nullptr;
    if (snd_seq_open(&seq, "default", SND_SEQ_OPEN_INPUT, SND_SEQ_NONBLOCK) < 0) return 1;
    snd_seq_set_client_name(seq, argv[3]);
    // Room for a dense passage while the process waits for the processor.
    snd_seq_set_client_pool_input(seq, 2000);
    const int port =
        snd_seq_create_simple_port(seq, "in", SND_SEQ_PORT_CAP_WRITE | SND_SEQ_PORT_CAP_SUBS_WRITE,
                                   SND_SEQ_PORT_TYPE_MIDI_GENERIC | SND_SEQ_PORT_TYPE_APPLICATION);
    if (port < 0) return 1;
    if (!write_whole(argv[1], std::to_string(snd_seq_client_id(seq)) + ":" + std::to_string(port)))
        return 1;
    unsigned long taken = 0;
    for (;;) {
        pollfd fds[4];
        const int count = snd_seq_poll_descriptors(seq, fds, 4, POLLIN);
        poll(fds, nfds_t(count), 50);
        snd_seq_event_t* event = nullptr;
        while (snd_seq_event_input(seq, &event) >= 0) ++taken;
        write_whole(argv[2], std::to_string(taken));
    }
}
