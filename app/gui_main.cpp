#include "app/gui_main.h"

#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QApplication>
#include <QSocketNotifier>
#include <QStringList>
#include <filesystem>
#include <system_error>

#include "app/quill_app.h"
#include "app/settings/settings.h"

namespace fs = std::filesystem;

namespace {

// Ctrl-C in the terminal quits as the menu does, so every sounding note is silenced; the
// handler only writes a byte, which the event loop reads.
int gSignalPipe[2] = {-1, -1};

void on_interrupt(int) {
    char byte = 1;
    [[maybe_unused]] ssize_t written = write(gSignalPipe[0], &byte, 1);
}

void quit_on_interrupt(TQuillApp* app, QObject* owner) {
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, gSignalPipe) != 0) return;
    auto* notifier = new QSocketNotifier(gSignalPipe[1], QSocketNotifier::Read, owner);
    QObject::connect(notifier, &QSocketNotifier::activated, owner, [app] {
        char byte;
        [[maybe_unused]] ssize_t got = read(gSignalPipe[1], &byte, 1);
        app->Quit();
    });
    struct sigaction action {};
    action.sa_handler = on_interrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

}  // namespace

int run_gui(int argc, char** argv) {
    // The process-wide records, in the order they must die in reverse.
    app_privacy();
    exit_state();
    language_table();
    pref();
    std::error_code error;
    fs::path exe = fs::read_symlink("/proc/self/exe", error);
    app_privacy().AnaExePath(error ? argv[0] : exe.c_str());

    QApplication qapp(argc, argv);
    QApplication::setApplicationName("Quill MIDI");
    QApplication::setDesktopFileName("quillmidi");
    // The settings-reset chord is read from the keyboard, so after the application exists.
    load_global();

    TQuillApp::TOptions options;
    options.exeFolder = app_privacy().ExePath();
    const QStringList arguments = QApplication::arguments();
    for (qsizetype i = 1; i < arguments.size(); ++i)
        options.files.emplace_back(arguments[i].toStdString());
    {
        TQuillApp app(options);
        quit_on_interrupt(&app, &app);
        QApplication::exec();
    }
    save_exit_state();
    return 0;
}
