#pragma once
// TQuillView: the main view. It shows a TQuillController, which it owns: the control bar,
// the channel panel, the lyrics and the playlist, whose songs the controller plays. It
// passes the bar's buttons and sliders, the menus' requests and the playlist's choices on
// to the controller and shows what the controller tells; it holds no player state itself.
//
// Threads: everything runs on the GUI thread.

#include <QPointer>
#include <QWidget>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "player/control_bar.h"
#include "player/pref_messages.h"
#include "player/quill_controller.h"
#include "playlist/app_messages.h"
#include "playlist/loader_host.h"
#include "veldan/core/handler.h"

class TOrvickView;

namespace quill {
class TChannelPanel;
class TLyricsView;
}  // namespace quill
class TPref;
class TQuillSItem;

namespace veldan {
class TLLT;
}

namespace quill {

class TQuillView : public veldan::TMessageHandler<QWidget> {
  public:
    // To the title target: the playlist was shown or hidden, fit the window to it.
    static constexpr uint32_t kMsgListShownChanged = 'lsch';
    // From the menu: show or hide the channel panel.
    static constexpr uint32_t kMsgChannelsToggled = 'tchn';
    // From the menu: show or hide the lyrics.
    static constexpr uint32_t kMsgLyricsToggled = 'tlyr';
    static constexpr uint32_t kMsgOpenCurDoc = 'ocdc';

    // texts and prefs are read, never copied, so a change of either takes effect at the
    // next use; both must outlive the view.
    TQuillView(const veldan::TLLT& texts, const TPref& prefs,
               const std::filesystem::path& loaderFolder = default_loader_folder(),
               QWidget* parent = nullptr);
    ~TQuillView() override;

    TQuillController& Controller() { return *fController; }
    const TQuillController& Controller() const { return *fController; }
    TControlBar* ControlBar() const { return fControlBar; }
    TChannelPanel* ChannelPanel() const { return fChannels; }
    TLyricsView* LyricsView() const { return fLyrics; }
    TOrvickView* OrvickView() const { return fPlaylist; }

    // The main window: told of a new Deskbar title, of the menus to mark again and of the
    // playlist shown or hidden.
    void SetTitleTarget(QObject* target);

    // The play button: the selected song, else the current one; a paused song goes on.
    void CButtonPlayClicked();
    // Passes the playlist's choice on to the controller.
    void ChangeSongRqtd(const veldan::TMessage& message);

    void LanguageChanged();
    void PrefChangedRqtd(const veldan::TMessage& message);
    // The song's own document: a text or web page of the same name beside it, else its
    // folder. False when there is no current song or the desktop could not open either.
    bool OpenCurDocRqtd();
    // The window title from the playlist's first row and its kind.
    std::string WinTitle() const;
    void UpdateWinTitle();

    // The playlist part below the control bar; the list button follows.
    void ShowList(bool shown);
    bool IsListShown() const;
    // The channels' meters, mute and solo buttons, between the control bar and the list.
    void ShowChannels(bool shown);
    bool IsChannelsShown() const;
    // The song's words, between the channels and the list.
    void ShowLyrics(bool shown);
    bool IsLyricsShown() const;

    void UpdatePortCompos();
    void UpdatePosCompo();
    void ExpSongTitle();

    void MessageReceived(veldan::TMessage* message) override;

  private:
    void ConnectController();
    void MarkNowPlaying(int32_t index, bool playing);
    void ScrollToSong(int32_t index);
    void ShowCannotPlay(const std::filesystem::path& song, const std::string& reason);
    void TellTitleTarget(uint32_t what);

    const veldan::TLLT& fTexts;
    const TPref& fPrefs;
    TControlBar* fControlBar = nullptr;
    TChannelPanel* fChannels = nullptr;
    TLyricsView* fLyrics = nullptr;
    TOrvickView* fPlaylist = nullptr;
    // Made after the playlist it plays, gone before the widgets that show it.
    std::unique_ptr<TQuillController> fController;
    QPointer<QObject> fTitleTarget;
};

}  // namespace quill
