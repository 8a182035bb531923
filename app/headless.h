#pragma once
// The command-line player: plays files without a window, or dumps a file's events.
//   quillmidi --headless [options] FILE...     quillmidi --dump FILE
// Returns the process exit code.

int run_headless(int argc, char** argv);
