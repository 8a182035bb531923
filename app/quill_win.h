#pragma once
// TQuillWin: the main window. It holds the menu bar and the main view (the player), owns
// the file panels and the recent playlists, and turns menu choices into messages for the
// main view or the application.
//
// Menus are built whole from the language table and built again on a language change, so
// every label follows the language; the marks (play mode, MIDI connections) are set again
// from the player afterwards. The MIDI OUT submenus follow the roster: the main view tells
// the window when consumers come and go ('rmor') and when connections change ('ummr').
//
// Quitting always runs through the application: the close box asks the application to
// quit, and the application asks this window (QuitRequested) whether it may.

#include <QFileDialog>
#include <QMainWindow>
#include <QPointer>
#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "app/settings/mruf.h"
#include "playlist/loader_host.h"
#include "veldan/core/handler.h"

class QMenu;
class QActionGroup;
class QSystemTrayIcon;
class TExitState;
class TQuillSItem;
class TPref;

namespace veldan {
class TLLT;
}

namespace quill {
class TQuillView;
}

class TQuillWin : public veldan::TMessageHandler<QMainWindow> {
  public:
    static constexpr uint32_t kMsgNew = '_new';
    static constexpr uint32_t kMsgAddNew = 'addn';
    static constexpr uint32_t kMsgOpen = '_opn';
    static constexpr uint32_t kMsgAdd = 'add';
    static constexpr uint32_t kMsgSave = '_sav';
    static constexpr uint32_t kMsgSaveAs = '_sva';
    static constexpr uint32_t kMsgExportWav = 'xwav';
    static constexpr uint32_t kMsgOpenRecent = 'olfr';
    static constexpr uint32_t kMsgAddRecent = 'alfr';
    static constexpr uint32_t kMsgRemoveHistory = '_rhr';
    // Delete on a highlighted recent item: ask, then remove it (ref kRefsField).
    static constexpr uint32_t kMsgAskRemoveHistory = 'arhr';
    static constexpr uint32_t kMsgDelAllMRUF = '_dam';
    static constexpr uint32_t kMsgPrefs = '_prf';
    static constexpr uint32_t kMsgDrvCvtPrefs = '_dcs';
    static constexpr uint32_t kMsgHelp = '_hlp';
    static constexpr uint32_t kMsgAuthorWeb = '_jaw';
    static constexpr uint32_t kMsgAboutRequested = '_ABR';
    static constexpr char kRefsField[] = "refs";
    static constexpr char kConsumerNameField[] = "be:name";
    static constexpr int kMaxRecentLists = 10;

    // Answers a yes-or-no question (the removal of recent playlists); replaced in tests.
    using TAskFn = std::function<bool(const std::string& text)>;
    // Told the code of a change others may show: kMsgDeskBarTitle (a new current song) or
    // kMsgUpdateMenuPlayMode.
    using TPlayerChangeFn = std::function<void(uint32_t what)>;
    // Asks where to export the current song, suggesting a name; none when the user
    // cancelled. Replaced in tests.
    using TExportPanelFn =
        std::function<std::optional<std::filesystem::path>(const std::filesystem::path&)>;

    // texts, prefs and exitState must outlive the window; requests for the application go
    // to application.
    TQuillWin(const veldan::TLLT& texts, const TPref& prefs, TExitState& exitState,
              QObject* application,
              const std::filesystem::path& loaderFolder = default_loader_folder(),
              QWidget* parent = nullptr);
    ~TQuillWin() override;

    quill::TQuillView* View() const { return fView; }
    TMRUF& RecentLists() { return fMRUF; }
    QFileDialog* OpenPanel() const { return fOpenPanel; }
    void SetAskFn(TAskFn ask) { fAsk = std::move(ask); }
    void SetPlayerChangeFn(TPlayerChangeFn changed) { fPlayerChanged = std::move(changed); }
    void SetExportPanelFn(TExportPanelFn panel) { fExportPanel = std::move(panel); }

    // The application asks before quitting: the player offers to save every changed list.
    // False when the user cancelled.
    bool QuitRequested();
    // The playlist, song, play mode and connections of the last run. Consumers that no
    // longer exist are skipped; on a first start port A goes to the built-in synthesizer.
    void RestoreExitState();
    // Frame, panel folder, playlist file, song, play mode, list state and connections. A
    // main list that was never saved is written to the settings folder and comes back,
    // still unnamed, at the next start.
    void WriteExitState();

    // Opens (replacing the playlist) or adds a playlist file, a folder or a song. Opening
    // first offers to save the changed lists; false when the user cancelled or ref is gone,
    // and the playlist is left as it was.
    bool OpenListFolderFileRqtd(const std::filesystem::path& ref, bool add);
    // Offers to save the changed lists first, as quitting does.
    void MItemNewClicked();
    void MItemSaveClicked(bool saveAs);
    // The current song as a WAV file, rendered faster than real time.
    void MItemExportClicked();
    void RemoveHistoryRqtd(const std::filesystem::path& ref);
    void AskRemoveHistoryRqtd(const std::filesystem::path& ref);
    void MItemDelAllMRUFClicked();
    void RecreateMenuMidiOutRqtd();
    void UpdateMenuMidiOutRqtd();
    void UpdateMenuPlayModeRqtd();
    void SetDeskBarTitleRqtd(const std::string& title);
    // Collapses the window to the control bar while the playlist is hidden, and gives it
    // back its expanded height when it shows again.
    void FitHeightToList();
    void LanguageChanged();

    void MessageReceived(veldan::TMessage* message) override;

  protected:
    void closeEvent(QCloseEvent* event) override;
    void changeEvent(QEvent* event) override;
    // Delete or Backspace on a highlighted item of the recent menus.
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    void ShowTrayIcon();
    // "Song - List - Quill MIDI" while a song is current, else the main view's title.
    void ShowWinTitle();
    void CreateMenu();
    QMenu* CreateMenuFile();
    QMenu* CreateMenuPlay();
    QMenu* CreateMenuTool();
    QMenu* CreateMenuHelp();
    void CreateMenuMidiOut();
    void GenerateMenuMRUF();
    void FillRecentMenu(QMenu* menu, uint32_t what);
    void RecentItemChosen(const std::string& path, uint32_t what);
    // Choosing item posts message to target, while target exists.
    void PostOnTrigger(QAction* item, const veldan::TMessage& message, QObject* target);
    QAction* AddItem(QMenu* menu, const char* key, const veldan::TMessage& message, QObject* target,
                     const QKeySequence& shortcut = {});
    void ShowOpenPanel(bool add);
    // Before the playlist is replaced; false when the user cancelled.
    bool AskSaveChangedLists();
    void LabelFilePanels();
    // Where to save list; none when the user cancelled. Wherever it ends, the open panel
    // starts there next.
    std::optional<std::filesystem::path> RunSavePanel(const TQuillSItem& list);
    void SaveRecentLists() const;
    void ConnectByNames(int port, const std::vector<std::string>& names);
    // true when ref was a playlist file that now is the list or part of it.
    bool LoadListFolderFile(const std::filesystem::path& ref, bool add);
    void RestoreMainList();
    std::string MainListFileForExit();
    static std::filesystem::path UnsavedListFile();

    const veldan::TLLT& fTexts;
    const TPref& fPrefs;
    TExitState& fExitState;
    QPointer<QObject> fApplication;
    quill::TQuillView* fView = nullptr;
    std::vector<QMenu*> fMenus;  // the menu bar's, rebuilt whole
    QMenu* fMenuOpen = nullptr;
    QMenu* fMenuAdd = nullptr;
    QActionGroup* fPlayModes = nullptr;
    std::array<QMenu*, 2> fMenuMidiOut{};
    QFileDialog* fOpenPanel = nullptr;
    bool fOpenPanelAdds = false;
    // Shared by the open and save panels, and kept in the exit state.
    std::filesystem::path fPanelFolder;
    TMRUF fMRUF;
    TAskFn fAsk;
    TPlayerChangeFn fPlayerChanged;
    TExportPanelFn fExportPanel;
    // The height with the playlist shown, kept while it is hidden.
    int fExpandedHeight = 0;
    // Only where the desktop has a tray: its tool tip names the song.
    QSystemTrayIcon* fTray = nullptr;
    std::string fSongTitle;  // of the current song; empty when there is none
    bool fShowingTitle = false;
};
