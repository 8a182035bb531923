#include "tests/support/fault_child.h"

#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace {

constexpr int kNotStarted = -1000;
constexpr int kFaultsRefused = 126;
constexpr long kPollNs = 1000000;

bool apply_faults(const TChildFaults& faults) {
    if (faults.fileSizeLimit >= 0) {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{rlim_t(faults.fileSizeLimit), rlim_t(faults.fileSizeLimit)};
        if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return false;
    }
    if (faults.dropPrivileges) {
        const gid_t nobody = gid_t(kNobodyUid);
        if (::setgroups(1, &nobody) != 0 || ::setgid(nobody) != 0 || ::setuid(kNobodyUid) != 0)
            return false;
    }
    return true;
}

int status_of(int status) {
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return -WTERMSIG(status);
    return kNotStarted;
}

}  // namespace

int run_in_child(const std::function<int()>& body, const TChildFaults& faults, int timeoutMs) {
    const pid_t child = ::fork();
    if (child < 0) return kNotStarted;
    if (child == 0) _exit(apply_faults(faults) ? body() & 0xFF : kFaultsRefused);
    for (long waitedNs = 0; waitedNs <= long(timeoutMs) * 1000000; waitedNs += kPollNs) {
        int status = 0;
        const pid_t done = ::waitpid(child, &status, WNOHANG);
        if (done == child) return status_of(status);
        if (done < 0) return kNotStarted;
        const timespec pause{0, kPollNs};
        ::nanosleep(&pause, nullptr);
    }
    kill_and_reap(child);
    return kNotStarted;
}

pid_t start_child(const std::function<void()>& body) {
    const pid_t child = ::fork();
    if (child == 0) {
        body();
        _exit(0);
    }
    return child;
}

bool kill_and_reap(pid_t child) {
    if (child <= 0) return false;
    ::kill(child, SIGKILL);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) return false;
    }
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
}

TScopedFileSizeLimit::TScopedFileSizeLimit(int64_t bytes) {
    fOldHandler = ::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    ::getrlimit(RLIMIT_FSIZE, &limit);
    fOldSoftLimit = int64_t(limit.rlim_cur);
    limit.rlim_cur = rlim_t(bytes);
    ::setrlimit(RLIMIT_FSIZE, &limit);
}

TScopedFileSizeLimit::~TScopedFileSizeLimit() {
    rlimit limit{};
    ::getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = rlim_t(fOldSoftLimit);
    ::setrlimit(RLIMIT_FSIZE, &limit);
    ::signal(SIGXFSZ, fOldHandler);
}

TStderrCapture::TStderrCapture() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return;
    std::fflush(stderr);
    fSaved = ::dup(STDERR_FILENO);
    ::dup2(ends[1], STDERR_FILENO);
    ::close(ends[1]);
    fRead = ends[0];
}

TStderrCapture::~TStderrCapture() { Take(); }

std::string TStderrCapture::Take() {
    if (fSaved < 0) return std::string();
    std::fflush(stderr);
    ::dup2(fSaved, STDERR_FILENO);
    ::close(fSaved);
    fSaved = -1;
    std::string text;
    char buffer[4096];
    for (ssize_t count; (count = ::read(fRead, buffer, sizeof buffer)) > 0;)
        text.append(buffer, size_t(count));
    ::close(fRead);
    fRead = -1;
    return text;
}
