#pragma once
// The player on the session bus, as desktops and media keys expect of a music player:
// MPRIS2 under "org.mpris.MediaPlayer2.quillmidi", and the door through which a second
// start of the program hands its files to the first.
//
// The play modes show as MPRIS sees them: 1 is LoopStatus "Playlist", 3 "Track", the
// random modes are Shuffle; Rate is the tempo slider (0.3..3.0) and Volume the volume
// slider (0..2). Everything runs on the GUI thread, where QtDBus delivers the calls.

#include <QObject>
#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

namespace quill {
class TQuillView;
}

class TMprisService : public QObject {
  public:
    static constexpr char kServiceName[] = "org.mpris.MediaPlayer2.quillmidi";
    static constexpr char kObjectPath[] = "/org/mpris/MediaPlayer2";
    // Our own interface beside MPRIS's: a second start passes its files whole, so the
    // first of them plays, as it would in a window of its own.
    static constexpr char kInstanceInterface[] = "org.quillmidi.Instance";

    struct THooks {
        std::function<void()> raise;
        std::function<void()> quit;
        // Adds the files to the playlist and plays the first of them.
        std::function<void(const std::vector<std::filesystem::path>&)> open;
    };

    enum class TClaim { kOwned, kHeldByAnother, kNoBus };
    // Asks for the service name, before the first window is made.
    static TClaim ClaimServiceName();
    // Hands files to the instance holding the name (raising its window when there are
    // none); false when it could not be reached.
    static bool ForwardToRunning(const std::vector<std::filesystem::path>& files);

    // Serves the view on the session bus; does nothing without a bus.
    TMprisService(quill::TQuillView* view, THooks hooks);
    ~TMprisService() override;

    // Tell these, so that the desktop's controls follow.
    void StateChanged();
    void SongChanged();
    void PlayModeChanged();

  private:
    class TRootAdaptor;
    class TPlayerAdaptor;
    class TInstanceAdaptor;
    void EmitChanged(const char* interface, const QStringList& properties);

    quill::TQuillView* const fView;
    const THooks fHooks;  // the adaptors keep references to it
    TPlayerAdaptor* fPlayer = nullptr;
    bool fRegistered = false;
};
