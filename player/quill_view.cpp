#include "player/quill_view.h"

#include <QDesktopServices>
#include <QFont>
#include <QUrl>
#include <QVBoxLayout>

#include "player/channel_panel.h"
#include "player/list_hint.h"
#include "player/lyrics_view.h"
#include "player/pref.h"
#include "playlist/orvick_view.h"
#include "playlist/quill_sitem.h"
#include "veldan/core/llt.h"

namespace quill {

namespace {

constexpr char kStatCannotPlay[] = "Stat_Str_Cannot_Play";

// Documents that travel with MIDI files, in the order they are looked for.
constexpr const char* kDocExtensions[] = {".txt", ".TXT", ".htm", ".html", ".HTM", ".pdf", ".doc"};

constexpr char kTextKindGeneral[] = "List_Kind_General";
constexpr char kTextKindFolder[] = "List_Kind_Folder";
constexpr char kTextKindRaw[] = "List_Kind_Raw";
constexpr char kTextKindSemiRaw[] = "List_Kind_Semi_Raw";

// Null for kinds that add nothing to the window title (songs, native lists).
const char* list_kind_key(TSupportFmt kind) {
    switch (kind) {
        case kFmtGeneralList:
            return kTextKindGeneral;
        case kFmtFolderList:
            return kTextKindFolder;
        case kFmtRawList:
            return kTextKindRaw;
        case kFmtSemiRawList:
            return kTextKindSemiRaw;
        default:
            return nullptr;
    }
}

}  // namespace

TQuillView::TQuillView(const veldan::TLLT& texts, const TPref& prefs,
                       const std::filesystem::path& loaderFolder, QWidget* parent)
    : TMessageHandler<QWidget>(parent), fTexts(texts), fPrefs(prefs) {
    fControlBar = new TControlBar(texts, this);
    fControlBar->SetTarget(this);
    fPlaylist = new TOrvickView(texts, false, loaderFolder, this);
    fPlaylist->SetOwner(this);
    new TListHint(texts, fPlaylist);
    // The list has the keys when the window opens; the control bar is a Tab away.
    fPlaylist->setFocus();
    fPlaylist->SetStatusFn([this](const std::string& text) { fControlBar->SetStatusText(text); });
    fController = std::make_unique<TQuillController>(prefs, *fPlaylist);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    fChannels = new TChannelPanel(texts, fController->Chain(), this);
    fChannels->hide();
    fLyrics = new TLyricsView(texts, fController->Producer(), this);
    fLyrics->hide();
    layout->addWidget(fControlBar);
    layout->addWidget(fChannels);
    layout->addWidget(fLyrics);
    layout->addWidget(fPlaylist, 1);

    ConnectController();
    fControlBar->TurnOffAllSysReset();
    UpdatePortCompos();
    fControlBar->SetPlayState(fController->State());
}

TQuillView::~TQuillView() = default;

void TQuillView::ConnectController() {
    TQuillController* controller = fController.get();
    connect(controller, &TQuillController::TransportChanged, this,
            [this](TMarnelState state) { fControlBar->SetPlayState(state); });
    connect(controller, &TQuillController::PositionChanged, this, [this] { UpdatePosCompo(); });
    connect(controller, &TQuillController::SongChanged, fLyrics, &TLyricsView::SongChanged);
    connect(controller, &TQuillController::SongTitleChanged, this, [this] { ExpSongTitle(); });
    connect(controller, &TQuillController::CannotPlay, this,
            [this](const std::filesystem::path& song, const std::string& reason) {
                ShowCannotPlay(song, reason);
            });
    connect(controller, &TQuillController::ResetSent, this, [this](int32_t kind) {
        fControlBar->SetResetLit(kind, TLCDIndicator::TLit::kHalfLit);
    });
    connect(controller, &TQuillController::ResetSeen, this,
            [this](int32_t kind) { fControlBar->SetResetLit(kind, TLCDIndicator::TLit::kLit); });
    connect(controller, &TQuillController::ResetsCleared, this,
            [this] { fControlBar->TurnOffAllSysReset(); });
    connect(controller, &TQuillController::PortsChanged, this, [this] { UpdatePortCompos(); });
    connect(controller, &TQuillController::NowPlayingMarked, this,
            [this](int32_t index, bool playing) { MarkNowPlaying(index, playing); });
    connect(controller, &TQuillController::ScrollRequested, this,
            [this](int32_t index) { ScrollToSong(index); });
}

void TQuillView::SetTitleTarget(QObject* target) {
    fTitleTarget = target;
    fController->SetTitleTarget(target);
}

void TQuillView::CButtonPlayClicked() {
    if (fController->State() == kStatePaused) {
        fController->PauseSong();
        return;
    }
    // The selected song, else the current one.
    int32_t index = fPlaylist->SelectedSongIdx(0);
    fController->PlaySongAt(index < 0 ? fPlaylist->CurSongIdx() : index);
}

void TQuillView::ChangeSongRqtd(const veldan::TMessage& message) {
    int32_t index = 0;
    if (message.FindInt32(TOrvickView::kSongIndexField, &index)) fController->ChangeSongRqtd(index);
}

void TQuillView::ShowCannotPlay(const std::filesystem::path& song, const std::string& reason) {
    fControlBar->SetStatusText(fTexts.Text(kStatCannotPlay) + song.filename().string() + " (" +
                               reason + ")");
}

// Compos ---------------------------------------------------------------------------------

void TQuillView::ShowList(bool shown) {
    fControlBar->SetListShown(shown);
    if (fPlaylist->isHidden() == !shown) return;
    fPlaylist->setVisible(shown);
    TellTitleTarget(kMsgListShownChanged);
}

bool TQuillView::IsListShown() const { return !fPlaylist->isHidden(); }

void TQuillView::ShowChannels(bool shown) { fChannels->setVisible(shown); }

bool TQuillView::IsChannelsShown() const { return !fChannels->isHidden(); }

void TQuillView::ShowLyrics(bool shown) { fLyrics->setVisible(shown); }

bool TQuillView::IsLyricsShown() const { return !fLyrics->isHidden(); }

void TQuillView::UpdatePortCompos() {
    for (int port = 0; port < TOutputChain::kPorts; ++port)
        fControlBar->SetPortLit(port, fController->Ports().IsPortConnected(port));
}

void TQuillView::UpdatePosCompo() {
    // The time goes on while the user drags: the song plays on until the thumb is let go.
    fControlBar->SetTime(fController->PositionUs(),
                         fController->HasSong() ? fController->SongLengthUs() : -1);
    // The user's drag wins over the song's progress.
    if (fControlBar->IsSliderDragged(TControlBar::kPos)) return;
    int32_t percent = fController->PositionPercent();
    if (percent != fControlBar->SliderValue(TControlBar::kPos))
        fControlBar->SetSliderValue(TControlBar::kPos, percent);
}

void TQuillView::ExpSongTitle() { fControlBar->SetTitle(fController->SongTitle()); }

std::string TQuillView::WinTitle() const {
    std::string title;
    if (auto* first = static_cast<TQuillSItem*>(fPlaylist->topLevelItem(0))) {
        title = first->ExpFName(fTexts);
        if (const char* kindKey = list_kind_key(first->Kind())) title += fTexts.Text(kindKey);
    }
    return title + " - " + TQuillController::kAppDisplayName;
}

void TQuillView::UpdateWinTitle() { window()->setWindowTitle(QString::fromStdString(WinTitle())); }

void TQuillView::LanguageChanged() {
    fControlBar->ApplyLanguage(fTexts);
    fChannels->ApplyLanguage(fTexts);
    fLyrics->ApplyLanguage(fTexts);
    fPlaylist->LanguageChanged();
    if (auto* hint = fPlaylist->findChild<TListHint*>()) hint->ApplyLanguage(fTexts);
    UpdateWinTitle();
}

void TQuillView::PrefChangedRqtd(const veldan::TMessage& message) {
    std::string text;
    if (message.FindString(quill::kStatBarStringField, &text)) fControlBar->SetStatusText(text);
    fPlaylist->SetAutoSortKind(fPrefs.autoSortKind);
    fController->PrefChanged();
}

bool TQuillView::OpenCurDocRqtd() {
    const TQuillSItem* song = fPlaylist->Song(fPlaylist->CurSongIdx());
    if (!song) return false;
    std::filesystem::path target = song->EntryRef().parent_path();
    for (const char* extension : kDocExtensions) {
        std::filesystem::path doc = song->EntryRef();
        doc.replace_extension(extension);
        std::error_code error;
        if (std::filesystem::is_regular_file(doc, error)) {
            target = doc;
            break;
        }
    }
    return QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromStdString(target.string())));
}

void TQuillView::TellTitleTarget(uint32_t what) {
    if (fTitleTarget) veldan::post_message(fTitleTarget, veldan::TMessage(what));
}

void TQuillView::MarkNowPlaying(int32_t index, bool playing) {
    // The row has no flag of its own for this; a bold text shows the song in the list.
    TQuillSItem* song = fPlaylist->Song(index);
    if (!song) return;
    QFont font = song->font(0);
    font.setBold(playing);
    song->setFont(0, font);
}

void TQuillView::ScrollToSong(int32_t index) {
    if (TQuillSItem* song = fPlaylist->Song(index)) fPlaylist->scrollToItem(song);
}

void TQuillView::MessageReceived(veldan::TMessage* message) {
    switch (message->what) {
        case kMsgPlay:
            CButtonPlayClicked();
            break;
        case kMsgListToggled:
            ShowList(fControlBar->IsListShown());
            break;
        case kMsgChannelsToggled:
            ShowChannels(!IsChannelsShown());
            break;
        case kMsgLyricsToggled:
            ShowLyrics(!IsLyricsShown());
            break;
        case TOrvickView::kMsgChangeSongRqtd:
            ChangeSongRqtd(*message);
            break;
        case quill::kMsgPrefChanged:
            PrefChangedRqtd(*message);
            break;
        case quill::kMsgLanguageChanged:
            LanguageChanged();
            break;
        case quill::kMsgLoaderFolderChanged:
            fPlaylist->NodeLoaderChanged();
            break;
        case TOrvickView::kMsgUpdateWinTitle:
            UpdateWinTitle();
            break;
        case kMsgOpenCurDoc:
        case TOrvickView::kMsgPopupOpenDoc:
            OpenCurDocRqtd();
            break;
        default:
            // Transport, sliders, ports and play modes: the controller's.
            fController->MessageReceived(message);
            break;
    }
}

}  // namespace quill
