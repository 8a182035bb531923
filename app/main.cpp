#include <cstdio>
#include <cstdlib>
#include <vector>

#include "app/gui_main.h"
#include "app/headless.h"

namespace {

// Every option belongs to the window-less modes; the window takes only files.
bool is_option(const char* arg) { return arg[0] == '-'; }

bool has_display() {
    for (const char* variable : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
        if (const char* value = std::getenv(variable); value && value[0]) return true;
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i)
        if (is_option(argv[i])) return run_headless(argc, argv);
    if (has_display()) return run_gui(argc, argv);
    // A terminal without a desktop still plays the songs.
    std::fprintf(stderr, "quillmidi: no display; playing without a window (--headless)\n");
    std::vector<char*> headless(argv, argv + argc);
    static char flag[] = "--headless";
    headless.insert(headless.begin() + 1, flag);
    headless.push_back(nullptr);
    return run_headless(argc + 1, headless.data());
}
