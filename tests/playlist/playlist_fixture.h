#pragma once
// Shared by the playlist tests: an offscreen Qt application, a language table with the
// playlist's texts, a temporary settings folder, and a view that records what it reports.

#include <gtest/gtest.h>

#include <QApplication>
#include <QByteArray>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "playlist/orvick_view.h"
#include "tests/support/scoped_env.h"
#include "tests/support/temp_dir.h"
#include "veldan/core/handler.h"
#include "veldan/core/llt.h"

inline void ensure_application() {
    if (QCoreApplication::instance()) return;
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    static int argc = 1;
    static char name[] = "playlist_tests";
    static char* argv[] = {name, nullptr};
    static QApplication application(argc, argv);
}

// Collects the messages the view posts to its owner.
class TRecordingOwner : public veldan::THandler {
  public:
    void MessageReceived(veldan::TMessage* message) override { received.push_back(*message); }
    std::vector<veldan::TMessage> received;
};

// Runs the event loop until done() or five seconds have passed.
inline bool process_events_until(const std::function<bool()>& done) {
    QElapsedTimer clock;
    clock.start();
    while (!done() && clock.elapsed() < 5000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    return done();
}

class PlaylistTest : public ::testing::Test {
  protected:
    PlaylistTest() {
        ensure_application();
        const QByteArray language =
            "[Informations]\nHeader = LLT File Format 100\n[Data]\n"
            "New_List = New List#s\nContainer_Stat_Modified = (modified)\n"
            "Stat_Str_File_Not_Found = Not found:#s\nStat_Str_Unsupported_File = Unsupported:#s\n"
            "Stat_Str_Already_Added = Already added:#s\nErr_Already_Deled = Deleted\n"
            "Err_Cannot_Save_List = Cannot save:#s\n";
        fTexts.LoadData(language);
    }

    // A view whose loaders come from folder (by default an empty one: the built-in only).
    std::unique_ptr<TOrvickView> MakeView(const std::filesystem::path& folder = {}) {
        auto view = std::make_unique<TOrvickView>(
            fTexts, false, folder.empty() ? fTemp.Path() / "no-loaders" : folder);
        view->SetOwner(&fOwner);
        view->SetStatusFn([this](const std::string& text) { fStatus.push_back(text); });
        return view;
    }

    std::filesystem::path Song(const std::string& name) const {
        return fTemp.Write(name, std::string("MThd"));
    }

    TTempDir fTemp;
    TTempDir fConfig;
    TScopedEnv fXdg{"XDG_CONFIG_HOME", fConfig.Path().c_str()};
    veldan::TLLT fTexts;
    TRecordingOwner fOwner;
    std::vector<std::string> fStatus;
};
