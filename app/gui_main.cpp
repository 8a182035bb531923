#include "app/gui_main.h"

#include <QApplication>
#include <QStringList>
#include <filesystem>
#include <system_error>

#include "app/app_icon.h"
#include "app/interrupt.h"
#include "app/mpris.h"
#include "app/quill_app.h"
#include "app/settings/settings.h"

namespace fs = std::filesystem;

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
    QApplication::setDesktopFileName(kAppDesktopId);
    QApplication::setWindowIcon(app_icon());
    // The settings-reset chord is read from the keyboard, so after the application exists.
    load_global();

    TQuillApp::TOptions options;
    options.exeFolder = app_privacy().ExePath();
    const QStringList arguments = QApplication::arguments();
    for (qsizetype i = 1; i < arguments.size(); ++i)
        options.files.emplace_back(arguments[i].toStdString());
    // One player per desktop: a second start hands its files to the first and ends.
    if (TMprisService::ClaimServiceName() == TMprisService::TClaim::kHeldByAnother &&
        TMprisService::ForwardToRunning(options.files))
        return 0;
    {
        TQuillApp app(options);
        // Ctrl-C in the terminal quits as the menu does, so every sounding note is silenced.
        call_on_interrupt(&app, [&app] { app.Quit(); });
        QApplication::exec();
    }
    save_exit_state();
    return 0;
}
