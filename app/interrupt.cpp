#include "app/interrupt.h"

#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QSocketNotifier>

namespace {

int gSignalPipe[2] = {-1, -1};

void on_interrupt(int) {
    char byte = 1;
    [[maybe_unused]] ssize_t written = write(gSignalPipe[0], &byte, 1);
}

}  // namespace

void call_on_interrupt(QObject* owner, std::function<void()> action) {
    if (gSignalPipe[0] < 0 && socketpair(AF_UNIX, SOCK_STREAM, 0, gSignalPipe) != 0) return;
    auto* notifier = new QSocketNotifier(gSignalPipe[1], QSocketNotifier::Read, owner);
    QObject::connect(notifier, &QSocketNotifier::activated, owner, [action = std::move(action)] {
        char byte;
        [[maybe_unused]] ssize_t got = read(gSignalPipe[1], &byte, 1);
        action();
    });
    struct sigaction handler {};
    handler.sa_handler = on_interrupt;
    sigemptyset(&handler.sa_mask);
    sigaction(SIGINT, &handler, nullptr);
    sigaction(SIGTERM, &handler, nullptr);
}
