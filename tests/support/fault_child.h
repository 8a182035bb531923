#pragma once
// Real faults for write tests, made in a forked child process so that the test process
// itself keeps its rights and limits: a full disk (a file-size limit, SIGXFSZ ignored, so a
// write past it fails with EFBIG as a full disk fails with ENOSPC), and a user without
// write permission (root ignores permission bits, so the child drops to "nobody").
//
// The child runs only the given function and leaves with its result through _exit: no
// test assertions there, no atexit handlers, no flushing of the parent's buffers.

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>

struct TChildFaults {
    int64_t fileSizeLimit = -1;   // bytes; -1: none
    bool dropPrivileges = false;  // setgid/setuid 65534 before running
};

// The child's exit code (0..255), or -signal when a signal ended it, or -1000 when it could
// not be started or did not end within timeoutMs (it is then killed).
int run_in_child(const std::function<int()>& body, const TChildFaults& faults,
                 int timeoutMs = 10000);

// Starts body in a child that runs until killed; returns its pid (or -1).
pid_t start_child(const std::function<void()>& body);

// Kills with SIGKILL and reaps; true when the child died of that signal.
bool kill_and_reap(pid_t child);

// A full disk for this process itself, where a child can't be used (widgets of the test's
// application): lowers the soft file-size limit and ignores SIGXFSZ, and puts both back at
// the end. The hard limit stays, so putting it back is allowed without rights.
class TScopedFileSizeLimit {
  public:
    explicit TScopedFileSizeLimit(int64_t bytes);
    ~TScopedFileSizeLimit();
    TScopedFileSizeLimit(const TScopedFileSizeLimit&) = delete;
    TScopedFileSizeLimit& operator=(const TScopedFileSizeLimit&) = delete;

  private:
    int64_t fOldSoftLimit = -1;
    void (*fOldHandler)(int) = nullptr;
};

// What this process writes to stderr meanwhile, through a pipe (a capture file would be
// cut short by a file-size limit). Up to the pipe's capacity, 64 KiB on Linux.
class TStderrCapture {
  public:
    TStderrCapture();
    ~TStderrCapture();
    TStderrCapture(const TStderrCapture&) = delete;
    TStderrCapture& operator=(const TStderrCapture&) = delete;
    // Ends the capture (stderr is restored) and returns what was written.
    std::string Take();

  private:
    int fSaved = -1;
    int fRead = -1;
};

// The user id the children drop to.
inline constexpr uid_t kNobodyUid = 65534;
