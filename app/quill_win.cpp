#include "app/quill_win.h"

#include <QActionGroup>
#include <QApplication>
#include <QCloseEvent>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QLayout>
#include <QMenu>
#include <QMenuBar>
#include <QScreen>
#include <QSystemTrayIcon>
#include <algorithm>
#include <system_error>

#include "app/settings/exit_state.h"
#include "app/settings/settings.h"
#include "app/song_export.h"
#include "midi/endpoint.h"
#include "midi/roster.h"
#include "midi/synth.h"
#include "player/pref.h"
#include "player/quill_view.h"
#include "playlist/orvick_view.h"
#include "playlist/quill_sitem.h"
#include "veldan/core/llt.h"
#include "veldan/widgets/alert.h"

namespace fs = std::filesystem;
using quill::TQuillController;
using quill::TQuillView;

namespace {

constexpr char kTextAskDelOne[] = "Ask_Del_One_MRUF";
constexpr char kTextAskDelAll[] = "Ask_Del_All_MRUFs";
constexpr char kTextHintDelOne[] = "Hint_How_To_Del_One_MRUF";
constexpr char kTextCannotSaveSettings[] = "Stat_Str_Cannot_Save_Settings";
// In the settings folder: the main list when the program ends before it was ever saved.
constexpr char kUnsavedListFile[] = "QuillMIDI_UnsavedList.qml";

const char* const kPlayModeKeys[] = {
    "MItem_Play_Mode_Seq",      "MItem_Play_Mode_Seq_Rep", "MItem_Play_Mode_Mono",
    "MItem_Play_Mode_Mono_Rep", "MItem_Play_Mode_Random",  "MItem_Play_Mode_AI_Random",
};

QString qs(const std::string& text) { return QString::fromStdString(text); }

// "%s" in a language text stands for the file.
std::string format_text(const char* text, const std::string& file) {
    std::string result = text;
    size_t at = result.find("%s");
    if (at != std::string::npos) result.replace(at, 2, file);
    return result;
}

veldan::TRect frame_of(const QRect& rect) {
    return veldan::TRect{float(rect.left()), float(rect.top()), float(rect.right()),
                         float(rect.bottom())};
}

// Open and Add take folders as well as files, so the panel's button takes a chosen folder
// instead of entering it; a double click still enters it.
class TOpenPanel : public QFileDialog {
  public:
    using QFileDialog::QFileDialog;

  protected:
    void accept() override {
        const QStringList chosen = selectedFiles();
        const bool folder = std::any_of(chosen.begin(), chosen.end(), [](const QString& path) {
            std::error_code error;
            return fs::is_directory(fs::path(path.toStdString()), error);
        });
        if (!folder) {
            QFileDialog::accept();
            return;
        }
        emit filesSelected(chosen);
        QDialog::accept();
    }
};

}  // namespace

TQuillWin::TQuillWin(const veldan::TLLT& texts, const TPref& prefs, TExitState& exitState,
                     QObject* application, const fs::path& loaderFolder, QWidget* parent)
    : TMessageHandler<QMainWindow>(parent),
      fTexts(texts),
      fPrefs(prefs),
      fExitState(exitState),
      fApplication(application),
      fPanelFolder(exitState.panelFolder) {
    setObjectName("QuillWin");
    menuBar()->setObjectName("MenuBar");
    fView = new TQuillView(texts, prefs, loaderFolder, this);
    fView->setObjectName("QuillView");
    fView->SetTitleTarget(this);
    fView->OrvickView()->SetAutoSortKind(prefs.autoSortKind);
    setCentralWidget(fView);

    fOpenPanel = new TOpenPanel(this);
    fOpenPanel->setOption(QFileDialog::DontUseNativeDialog);
    fOpenPanel->setFileMode(QFileDialog::ExistingFiles);
    connect(fOpenPanel, &QFileDialog::filesSelected, this, [this](const QStringList& files) {
        // Open replaces the playlist with the first file; the others join it.
        bool add = fOpenPanelAdds;
        for (const QString& file : files) {
            if (!OpenListFolderFileRqtd(fs::path(file.toStdString()), add) && !add) return;
            add = true;
        }
    });
    // Both panels start in the last folder either one showed.
    fOpenPanel->setDirectory(qs(fPanelFolder.string()));
    connect(fOpenPanel, &QDialog::finished, this,
            [this] { fPanelFolder = fOpenPanel->directory().absolutePath().toStdString(); });
    fView->OrvickView()->SetSavePanelFn(
        [this](const TQuillSItem& list) { return RunSavePanel(list); });

    fAsk = [this](const std::string& text) {
        return veldan::show_alert(fTexts.Text("Alert_Caption"), text.c_str(),
                                  fTexts.Text("Button_No"), fTexts.Text("Button_Yes"), nullptr, 0,
                                  veldan::TAlertType::kWarning) == 1;
    };
    fExportPanel = [this](const fs::path& suggestion) -> std::optional<fs::path> {
        const QString chosen = QFileDialog::getSaveFileName(
            this, fTexts.Text("MItem_Export_WAV"), qs(suggestion.string()),
            "WAV (*.wav);;FLAC (*.flac)", nullptr, QFileDialog::DontUseNativeDialog);
        if (chosen.isEmpty()) return std::nullopt;
        return fs::path(chosen.toStdString());
    };
    // Every save, from the menu, the pop-up menu or the questions at quit, makes the list
    // the newest recent one.
    fView->OrvickView()->SetSavedFn([this](const TQuillSItem& list) {
        fMRUF.AddMRUF(list.EntryRef().string());
        GenerateMenuMRUF();
    });
    fMRUF.SetShowSC(true);
    fMRUF.SetMaxMRUF(kMaxRecentLists);
    if (fs::path entry; settings_entry(kMRUPlaylistsFile, &entry)) fMRUF.Load(entry);
    set_settings_failure_fn([this](const fs::path& file) {
        fView->ControlBar()->SetStatusText(fTexts.Text(kTextCannotSaveSettings) +
                                           file.filename().string());
    });

    CreateMenu();
    LabelFilePanels();
    fView->UpdateWinTitle();
    ShowTrayIcon();
}

TQuillWin::~TQuillWin() { set_settings_failure_fn(nullptr); }

// Menus --------------------------------------------------------------------------------

void TQuillWin::PostOnTrigger(QAction* item, const veldan::TMessage& message, QObject* target) {
    QPointer<QObject> guarded(target);
    connect(item, &QAction::triggered, this, [guarded, message] {
        if (guarded) veldan::post_message(guarded, message);
    });
}

QAction* TQuillWin::AddItem(QMenu* menu, const char* key, const veldan::TMessage& message,
                            QObject* target, const QKeySequence& shortcut) {
    QAction* item = menu->addAction(fTexts.Text(key));
    item->setObjectName(key);
    item->setShortcut(shortcut);
    PostOnTrigger(item, message, target);
    return item;
}

void TQuillWin::CreateMenu() {
    menuBar()->clear();
    qDeleteAll(fMenus);
    fMenus.clear();
    fMenus.push_back(CreateMenuFile());
    fMenus.push_back(CreateMenuPlay());
    auto* midiOut = new QMenu(fTexts.Text("Menu_MIDI_OUT"), menuBar());
    midiOut->setObjectName("Menu_MIDI_OUT");
    fMenus.push_back(midiOut);
    for (size_t port = 0; port < fMenuMidiOut.size(); ++port) {
        // The output's letter after the word for port, as the public ports are named.
        fMenuMidiOut[port] = midiOut->addMenu(
            QString("%1 %2").arg(fTexts.Text("Menu_MIDI_Port")).arg(QChar('A' + int(port))));
        fMenuMidiOut[port]->setObjectName(QString("Menu_MIDI_Port_%1").arg(port));
    }
    fMenus.push_back(CreateMenuTool());
    fMenus.push_back(CreateMenuHelp());
    for (QMenu* menu : fMenus) menuBar()->addMenu(menu);
    CreateMenuMidiOut();
    GenerateMenuMRUF();
    UpdateMenuPlayModeRqtd();
}

QMenu* TQuillWin::CreateMenuFile() {
    auto* menu = new QMenu(fTexts.Text("Menu_File"), menuBar());
    menu->setObjectName("Menu_File");
    AddItem(menu, "MItem_New", veldan::TMessage(kMsgNew), this, QKeySequence("Ctrl+N"));
    AddItem(menu, "MItem_Add_New", veldan::TMessage(kMsgAddNew), this, QKeySequence("Ctrl+L"));
    menu->addSeparator();
    // A submenu can't be chosen itself here, so each holds its panel item first.
    fMenuOpen = menu->addMenu(fTexts.Text("Menu_Open"));
    fMenuOpen->setObjectName("Menu_Open");
    fMenuAdd = menu->addMenu(fTexts.Text("Menu_Add"));
    fMenuAdd->setObjectName("Menu_Add");
    for (QMenu* recent : {fMenuOpen, fMenuAdd}) {
        // The recent items' tool tip tells how to remove one.
        recent->setToolTipsVisible(true);
        recent->installEventFilter(this);
    }
    menu->addSeparator();
    AddItem(menu, "MItem_Save", veldan::TMessage(kMsgSave), this, QKeySequence("Ctrl+S"));
    // Kept: Save As answers the digit 2, not a letter.
    AddItem(menu, "MItem_Save_As", veldan::TMessage(kMsgSaveAs), this, QKeySequence("Ctrl+2"));
    menu->addSeparator();
    AddItem(menu, "MItem_Export_WAV", veldan::TMessage(kMsgExportWav), this);
    menu->addSeparator();
    AddItem(menu, "MItem_Quit", veldan::TMessage(veldan::kMsgQuitRequested), fApplication,
            QKeySequence("Ctrl+Q"));
    return menu;
}

QMenu* TQuillWin::CreateMenuPlay() {
    auto* menu = new QMenu(fTexts.Text("Menu_Play"), menuBar());
    menu->setObjectName("Menu_Play");
    AddItem(menu, "MItem_All_Notes_Off", veldan::TMessage(TQuillController::kMsgAllNotesOff), fView,
            QKeySequence("Ctrl+F"));
    QAction* channels =
        AddItem(menu, "MItem_Channels", veldan::TMessage(TQuillView::kMsgChannelsToggled), fView);
    channels->setCheckable(true);
    channels->setChecked(fView->IsChannelsShown());
    QAction* lyrics =
        AddItem(menu, "MItem_Lyrics", veldan::TMessage(TQuillView::kMsgLyricsToggled), fView);
    lyrics->setCheckable(true);
    lyrics->setChecked(fView->IsLyricsShown());
    menu->addSeparator();
    fPlayModes = new QActionGroup(menu);
    for (int32_t mode = 0; mode < int32_t(std::size(kPlayModeKeys)); ++mode) {
        veldan::TMessage message(TQuillController::kMsgPlayMode);
        message.AddInt32(TQuillController::kPlayModeField, mode);
        QAction* item = AddItem(menu, kPlayModeKeys[mode], message, fView);
        item->setCheckable(true);
        item->setData(mode);
        fPlayModes->addAction(item);
    }
    return menu;
}

QMenu* TQuillWin::CreateMenuTool() {
    auto* menu = new QMenu(fTexts.Text("Menu_Tool"), menuBar());
    menu->setObjectName("Menu_Tool");
    AddItem(menu, "MItem_Open_Cur_Doc", veldan::TMessage(TQuillView::kMsgOpenCurDoc), fView);
    menu->addSeparator();
    AddItem(menu, "MItem_Prefs", veldan::TMessage(kMsgPrefs), fApplication);
    AddItem(menu, "MItem_Drv_Cvt_Prefs", veldan::TMessage(kMsgDrvCvtPrefs), fApplication);
    return menu;
}

QMenu* TQuillWin::CreateMenuHelp() {
    auto* menu = new QMenu(fTexts.Text("Menu_Help"), menuBar());
    menu->setObjectName("Menu_Help");
    AddItem(menu, "MItem_Help", veldan::TMessage(kMsgHelp), fApplication);
    menu->addSeparator();
    AddItem(menu, "MItem_Author_Web", veldan::TMessage(kMsgAuthorWeb), fApplication);
    menu->addSeparator();
    AddItem(menu, "MItem_About", veldan::TMessage(kMsgAboutRequested), fApplication);
    return menu;
}

void TQuillWin::CreateMenuMidiOut() {
    for (QMenu* menu : fMenuMidiOut) menu->clear();
    const std::string separator = fTexts.Text("SC_Sep");
    int n = 0;
    int32_t id = 0;
    while (TMidiConsumer* consumer = TMidiRoster::Default().NextConsumer(&id)) {
        if (consumer->Name() == "<anonymous>") continue;
        std::string label =
            std::string(1, n < 9 ? char('1' + n) : '*') + separator + consumer->Name();
        for (size_t port = 0; port < fMenuMidiOut.size(); ++port) {
            veldan::TMessage message(TQuillController::kMsgMidiOut);
            message.AddInt32(TQuillController::kMidiPortField, int32_t(port));
            message.AddInt32(TQuillController::kConsumerIdField, consumer->ID());
            message.AddString(kConsumerNameField, consumer->Name());
            QAction* item = fMenuMidiOut[port]->addAction(qs(label));
            item->setCheckable(true);
            item->setData(consumer->ID());
            PostOnTrigger(item, message, fView);
        }
        ++n;
    }
    UpdateMenuMidiOutRqtd();
}

void TQuillWin::RecreateMenuMidiOutRqtd() { CreateMenuMidiOut(); }

void TQuillWin::UpdateMenuMidiOutRqtd() {
    for (size_t port = 0; port < fMenuMidiOut.size(); ++port) {
        for (QAction* item : fMenuMidiOut[port]->actions()) {
            TMidiConsumer* consumer = TMidiRoster::Default().FindConsumer(item->data().toInt());
            item->setChecked(consumer && fView->Controller().IsConnected(int(port), consumer));
        }
    }
}

void TQuillWin::UpdateMenuPlayModeRqtd() {
    for (QAction* item : fPlayModes->actions())
        item->setChecked(item->data().toInt() == fView->Controller().PlayMode());
    if (fPlayerChanged) fPlayerChanged(TQuillController::kMsgUpdateMenuPlayMode);
}

// Recent playlists ----------------------------------------------------------------------

void TQuillWin::GenerateMenuMRUF() {
    fMRUF.SetSeparator(fTexts.Text("SC_Sep"));
    FillRecentMenu(fMenuOpen, kMsgOpenRecent);
    FillRecentMenu(fMenuAdd, kMsgAddRecent);
    SaveRecentLists();
}

void TQuillWin::FillRecentMenu(QMenu* menu, uint32_t what) {
    menu->clear();
    bool opens = what == kMsgOpenRecent;
    AddItem(menu, opens ? "Open_Panel_Title_Open" : "Open_Panel_Title_Add",
            veldan::TMessage(opens ? kMsgOpen : kMsgAdd), this,
            QKeySequence(opens ? "Ctrl+O" : "Ctrl+E"));
    menu->addSeparator();
    for (int32_t i = 0; i < fMRUF.CountMRUFs(); ++i) {
        QAction* item = menu->addAction(qs(fMRUF.ItemLabel(i)));
        item->setToolTip(fTexts.Text(kTextHintDelOne));
        if (char key = fMRUF.ItemShortcut(i); key && opens)
            item->setShortcut(QKeySequence(QString("Ctrl+Shift+%1").arg(QChar(key))));
        std::string path = fMRUF.MRUFAt(i);
        item->setData(qs(path));
        connect(item, &QAction::triggered, this,
                [this, path, what] { RecentItemChosen(path, what); });
    }
    menu->addSeparator();
    QAction* clear = AddItem(menu, "MItem_Del_All_MRUFs", veldan::TMessage(kMsgDelAllMRUF), this);
    clear->setEnabled(fMRUF.CountMRUFs() > 0);
}

void TQuillWin::RecentItemChosen(const std::string& path, uint32_t what) {
    // No held key turns this into a removal: the items' own short-cuts hold Control, so
    // a Control gesture could not tell "open" from "remove". Delete on the item removes.
    veldan::TMessage message(what);
    message.AddRef(kRefsField, path);
    veldan::post_message(this, message);
}

bool TQuillWin::eventFilter(QObject* watched, QEvent* event) {
    auto* menu = qobject_cast<QMenu*>(watched);
    if (event->type() != QEvent::KeyPress || !menu || (menu != fMenuOpen && menu != fMenuAdd))
        return TMessageHandler<QMainWindow>::eventFilter(watched, event);
    const int key = static_cast<QKeyEvent*>(event)->key();
    QAction* highlighted = menu->activeAction();
    if ((key != Qt::Key_Delete && key != Qt::Key_Backspace) || !highlighted ||
        highlighted->data().toString().isEmpty())
        return TMessageHandler<QMainWindow>::eventFilter(watched, event);
    // The question is a modal alert: it comes once the menus are closed.
    for (QWidget* popup = QApplication::activePopupWidget(); popup;
         popup = QApplication::activePopupWidget())
        popup->close();
    veldan::TMessage ask(kMsgAskRemoveHistory);
    ask.AddRef(kRefsField, highlighted->data().toString().toStdString());
    veldan::post_message(this, ask);
    return true;
}

void TQuillWin::AskRemoveHistoryRqtd(const fs::path& ref) {
    if (fAsk(format_text(fTexts.Text(kTextAskDelOne), ref.string()))) RemoveHistoryRqtd(ref);
}

void TQuillWin::RemoveHistoryRqtd(const fs::path& ref) {
    fMRUF.RemoveMRUF(ref.string());
    GenerateMenuMRUF();
}

void TQuillWin::MItemDelAllMRUFClicked() {
    std::string question =
        std::string(fTexts.Text(kTextAskDelAll)) + "\n\n" + fTexts.Text(kTextHintDelOne);
    if (!fAsk(question)) return;
    fMRUF.ClearMRUF();
    GenerateMenuMRUF();
}

void TQuillWin::SaveRecentLists() const { save_settings_file(fMRUF, kMRUPlaylistsFile); }

// Playlists -----------------------------------------------------------------------------

void TQuillWin::LabelFilePanels() {
    fOpenPanel->setWindowTitle(
        fTexts.Text(fOpenPanelAdds ? "Open_Panel_Title_Add" : "Open_Panel_Title_Open"));
    fOpenPanel->setLabelText(
        QFileDialog::Accept,
        fTexts.Text(fOpenPanelAdds ? "Open_Panel_Button_Add" : "Open_Panel_Button_Open"));
}

void TQuillWin::ShowOpenPanel(bool add) {
    fOpenPanelAdds = add;
    LabelFilePanels();
    fOpenPanel->setDirectory(qs(fPanelFolder.string()));
    fOpenPanel->show();
    fOpenPanel->raise();
}

std::optional<fs::path> TQuillWin::RunSavePanel(const TQuillSItem& list) {
    QFileDialog panel(this, fTexts.Text("Save_Panel_Title"));
    panel.setObjectName("SavePanel");
    panel.setOption(QFileDialog::DontUseNativeDialog);
    panel.setAcceptMode(QFileDialog::AcceptSave);
    panel.setFileMode(QFileDialog::AnyFile);
    // A list with a file of its own is saved beside it; any other starts in the last folder.
    const bool ownFolder = !list.UnnamedNewList() && !list.EntryRef().empty();
    panel.setDirectory(qs((ownFolder ? list.EntryRef().parent_path() : fPanelFolder).string()));
    // A folder's name may hold a full stop that is no extension.
    fs::path name(list.ExpFName(fTexts));
    if (list.Kind() != kFmtFolderList) name.replace_extension();
    name += TOrvickView::kPlaylistExtension;
    panel.selectFile(qs(name.string()));
    const bool accepted = panel.exec() == QDialog::Accepted && !panel.selectedFiles().isEmpty();
    fPanelFolder = panel.directory().absolutePath().toStdString();
    fOpenPanel->setDirectory(qs(fPanelFolder.string()));
    if (!accepted) return std::nullopt;
    return fs::path(panel.selectedFiles().front().toStdString());
}

bool TQuillWin::LoadListFolderFile(const fs::path& ref, bool add) {
    TOrvickView* list = fView->OrvickView();
    std::error_code error;
    bool isPlaylist = fs::is_regular_file(ref, error) && !TOrvickView::IsMidiFile(ref);
    if (!add) {
        fView->Controller().StopSong();
        list->ClearList();
        // A playlist file becomes the list itself; songs and folders go into a new one.
        if (!isPlaylist) list->AddNewList(nullptr);
    }
    bool added = add || !isPlaylist ? list->AddListFolderFileToTopLevel(ref)
                                    : list->AddListFolderFile(ref, nullptr, -1);
    if (list->topLevelItemCount() == 0) list->AddNewList(nullptr);
    fView->UpdateWinTitle();
    return added && isPlaylist;
}

bool TQuillWin::AskSaveChangedLists() {
    // A list never saved is kept at quit, so quitting need not ask about it; replacing it
    // loses it, so here its songs count as changes.
    auto* first = static_cast<TQuillSItem*>(fView->OrvickView()->topLevelItem(0));
    const bool markUnnamed =
        first && first->UnnamedNewList() && !first->Modified() && first->childCount() > 0;
    if (markUnnamed) first->SetModified(true);
    const bool goOn = fView->OrvickView()->AskSaveAllList(veldan::TMessage(kMsgNew), this);
    if (!goOn && markUnnamed && first->Modified()) first->SetModified(false);
    return goOn;
}

bool TQuillWin::OpenListFolderFileRqtd(const fs::path& ref, bool add) {
    if (!add) {
        std::error_code error;
        if (!fs::exists(ref, error)) {
            // Nothing would take the playlist's place, so it stays as it is.
            fView->ControlBar()->SetStatusText(fTexts.Text("Stat_Str_File_Not_Found") +
                                               ref.filename().string());
            return false;
        }
        if (!AskSaveChangedLists()) return false;
    }
    if (LoadListFolderFile(ref, add)) {
        fMRUF.AddMRUF(ref.string());
        GenerateMenuMRUF();
    }
    return true;
}

void TQuillWin::MItemNewClicked() {
    if (!AskSaveChangedLists()) return;
    fView->Controller().StopSong();
    fView->OrvickView()->ClearList();
    fView->OrvickView()->AddNewList(nullptr);
    fView->UpdateWinTitle();
}

void TQuillWin::MItemSaveClicked(bool saveAs) {
    auto* first = static_cast<TQuillSItem*>(fView->OrvickView()->topLevelItem(0));
    if (!first) return;
    // The playlist's own save: its panel, its file extension and its failure alerts.
    veldan::TMessage save(saveAs ? kMsgSaveAs : kMsgSave);
    save.AddInt32(TOrvickView::kListIdField, first->ListId());
    TOrvickView* list = fView->OrvickView();
    if (!(saveAs ? list->SaveListAs(save) : list->SaveList(save))) return;
    fView->UpdateWinTitle();
}

// Start and quit ------------------------------------------------------------------------

void TQuillWin::ConnectByNames(int port, const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        int32_t id = 0;
        while (TMidiConsumer* consumer = TMidiRoster::Default().NextConsumer(&id)) {
            if (consumer->Name() != name) continue;
            fView->Controller().ConnectMidiOut(port, consumer->ID());
            break;
        }
    }
}

fs::path TQuillWin::UnsavedListFile() {
    fs::path file;
    return settings_entry(kUnsavedListFile, &file) ? file : fs::path();
}

void TQuillWin::RestoreMainList() {
    const fs::path file = fExitState.mainListFile;
    std::error_code error;
    if (file.empty() || !fs::exists(file, error)) return;
    if (file != UnsavedListFile()) {
        OpenListFolderFileRqtd(file, false);
        return;
    }
    LoadListFolderFile(file, false);
    // Still the user's unsaved list: saving it asks for a name.
    if (auto* first = static_cast<TQuillSItem*>(fView->OrvickView()->topLevelItem(0))) {
        first->SetUnnamedNewList(true);
        first->UpdateText(fTexts);
    }
    fView->UpdateWinTitle();
}

std::string TQuillWin::MainListFileForExit() {
    auto* first = static_cast<TQuillSItem*>(fView->OrvickView()->topLevelItem(0));
    if (!first) return std::string();
    if (!first->UnnamedNewList()) return first->EntryRef().string();
    // A list never saved is kept for the next start rather than lost.
    fs::path keep = UnsavedListFile();
    if (keep.empty()) return std::string();
    std::string error;
    if (fView->OrvickView()->OverwriteList(first->ListId(), keep, &error)) return keep.string();
    // The reason is on stderr already. The list kept by an earlier run is still whole, and
    // better to come back to than none.
    report_settings_failure(std::string(), keep);
    std::error_code missing;
    return fs::exists(keep, missing) ? keep.string() : std::string();
}

void TQuillWin::RestoreExitState() {
    bool firstStart = fExitState.version.empty();
    RestoreMainList();
    fView->Controller().SetPlayMode(fExitState.playMode);
    UpdateMenuPlayModeRqtd();
    // Loaded, not scored: coming back to a song is not choosing it again.
    if (fView->OrvickView()->Song(fExitState.currentSongIndex))
        fView->Controller().ChangeSong(fExitState.currentSongIndex, false);
    fExpandedHeight = int(fExitState.expandedHeight);
    fView->ShowList(fExitState.listShown);
    if (firstStart) {
        // Music at once on a new machine: both ports play through the built-in
        // synthesizer, port B on its channels 17-32, so two-port songs are whole.
        ConnectByNames(0, {TSynthConsumer::kName});
        ConnectByNames(1, {TSynthConsumer::kName});
    } else {
        for (int port = 0; port < TExitState::kOutputCount; ++port)
            ConnectByNames(port, fExitState.connections[size_t(port)]);
    }
    fView->UpdatePortCompos();
    UpdateMenuMidiOutRqtd();
}

void TQuillWin::WriteExitState() {
    fExitState.frame = frame_of(geometry());
    fExitState.listShown = fView->IsListShown();
    fExitState.expandedHeight = float(fView->IsListShown() ? height() : fExpandedHeight);
    fExitState.panelFolder = fPanelFolder.string();
    fExitState.playMode = fView->Controller().PlayMode();
    fExitState.currentSongIndex = std::max(0, fView->Controller().CurSongIdx());
    fExitState.mainListFile = MainListFileForExit();
    for (int port = 0; port < TExitState::kOutputCount; ++port) {
        auto& names = fExitState.connections[size_t(port)];
        names.clear();
        for (TMidiConsumer* consumer : fView->Controller().Connections(port))
            names.push_back(consumer->Name());
    }
}

bool TQuillWin::QuitRequested() {
    veldan::TMessage quit(veldan::kMsgQuitRequested);
    return fView->OrvickView()->AskSaveAllList(quit, fApplication);
}

void TQuillWin::closeEvent(QCloseEvent* event) {
    // The application decides, after asking about unsaved playlists.
    event->ignore();
    veldan::post_message(fApplication, veldan::TMessage(veldan::kMsgQuitRequested));
}

void TQuillWin::MItemExportClicked() {
    const fs::path song = fView->Controller().CurSongRef();
    if (song.empty()) return;
    fs::path suggestion = song;
    suggestion.replace_extension(".wav");
    const std::optional<fs::path> target = fExportPanel(suggestion);
    if (!target) return;
    std::string error;
    if (export_current_song(this, *fView, fTexts, fPrefs, *target, &error))
        fView->ControlBar()->SetStatusText(fTexts.Text("Stat_Str_Exported") + target->string());
    else if (error != "cancelled")
        fView->ControlBar()->SetStatusText(fTexts.Text("Stat_Str_Cannot_Export") + error);
}

void TQuillWin::FitHeightToList() {
    if (fView->IsListShown()) {
        setMaximumHeight(QWIDGETSIZE_MAX);
        resize(width(), fExpandedHeight);
        return;
    }
    // Collapsed to the menus and the control bar, which the user can still widen.
    fExpandedHeight = height();
    layout()->activate();
    const int collapsed = minimumSizeHint().height();
    setMaximumHeight(collapsed);
    resize(width(), collapsed);
}

void TQuillWin::SetDeskBarTitleRqtd(const std::string& title) {
    // The song goes where the desktop shows the program: its task list reads the window
    // title (the icon text alone reaches no taskbar), and the tray where there is one.
    const bool hasSong = fView->OrvickView()->Song(fView->Controller().CurSongIdx()) != nullptr;
    fSongTitle = hasSong ? title : std::string();
    setWindowIconText(qs(title));
    ShowWinTitle();
    if (fTray) fTray->setToolTip(qs(title));
    if (fPlayerChanged) fPlayerChanged(TQuillController::kMsgDeskBarTitle);
}

void TQuillWin::ShowWinTitle() {
    if (fShowingTitle) return;
    fShowingTitle = true;
    std::string title = fView->WinTitle();
    // A cleared playlist has no current song, though no new title came for it.
    if (!fSongTitle.empty() && fView->OrvickView()->Song(fView->Controller().CurSongIdx()))
        title = fSongTitle + " - " + title;
    setWindowTitle(qs(title));
    fShowingTitle = false;
}

void TQuillWin::changeEvent(QEvent* event) {
    // The main view names the list in the title whenever the list changes; the song is
    // put back in front of it.
    if (event->type() == QEvent::WindowTitleChange) ShowWinTitle();
    TMessageHandler<QMainWindow>::changeEvent(event);
}

void TQuillWin::ShowTrayIcon() {
    if (!QSystemTrayIcon::isSystemTrayAvailable()) return;
    fTray = new QSystemTrayIcon(QGuiApplication::windowIcon(), this);
    fTray->setToolTip(qs(TQuillController::kAppDisplayName));
    connect(fTray, &QSystemTrayIcon::activated, this, [this] {
        show();
        raise();
        activateWindow();
    });
    fTray->show();
}

void TQuillWin::LanguageChanged() {
    CreateMenu();
    LabelFilePanels();
    fView->LanguageChanged();
}

void TQuillWin::MessageReceived(veldan::TMessage* message) {
    fs::path ref;
    message->FindRef(kRefsField, &ref);
    std::string title;
    switch (message->what) {
        case kMsgNew:
            MItemNewClicked();
            break;
        case kMsgAddNew:
            fView->OrvickView()->AddNewList(nullptr);
            break;
        case kMsgOpen:
        case kMsgAdd:
            ShowOpenPanel(message->what == kMsgAdd);
            break;
        case kMsgOpenRecent:
        case kMsgAddRecent:
            if (!ref.empty()) OpenListFolderFileRqtd(ref, message->what == kMsgAddRecent);
            break;
        case kMsgRemoveHistory:
            RemoveHistoryRqtd(ref);
            break;
        case kMsgAskRemoveHistory:
            AskRemoveHistoryRqtd(ref);
            break;
        case kMsgDelAllMRUF:
            MItemDelAllMRUFClicked();
            break;
        case kMsgSave:
        case kMsgSaveAs:
            MItemSaveClicked(message->what == kMsgSaveAs);
            break;
        case kMsgExportWav:
            MItemExportClicked();
            break;
        case TQuillController::kMsgDeskBarTitle:
            message->FindString(TQuillController::kDeskBarTitleField, &title);
            SetDeskBarTitleRqtd(title);
            break;
        case TQuillController::kMsgRecreateMenuMidiOut:
            RecreateMenuMidiOutRqtd();
            break;
        case TQuillController::kMsgUpdateMenuMidiOut:
            UpdateMenuMidiOutRqtd();
            break;
        case TQuillController::kMsgUpdateMenuPlayMode:
            UpdateMenuPlayModeRqtd();
            break;
        case TQuillView::kMsgListShownChanged:
            FitHeightToList();
            break;
        case quill::kMsgLanguageChanged:
            LanguageChanged();
            break;
        case quill::kMsgLoaderFolderChanged:
        case quill::kMsgPrefChanged:
            veldan::post_message(fView, *message);
            break;
        default:
            TMessageHandler<QMainWindow>::MessageReceived(message);
            break;
    }
}
