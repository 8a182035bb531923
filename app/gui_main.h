#pragma once
// The window program: settings loaded before any window, the application run, the exit
// state saved after every window has written into it. Returns the process exit code.

int run_gui(int argc, char** argv);
