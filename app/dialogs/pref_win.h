#pragma once
// The preferences window: system resets, silences, automatic sorting and the language.
//
// TPrefView edits the preferences record directly, so every change takes effect at once;
// it keeps a backup of the record as it was when last confirmed, which Cancel (and the
// close box) restores. OK and Cancel hide the window; the application keeps it and
// shows it again.
//
// Child names: "PrefView"; box "BoxSendSysResets" holding "CBoxSendSysResets", "CBoxSRGM",
// "CBoxSRGS", "CBoxSR88", "CBoxSRXG", "TxtCtrlSilenceIntervalAfterSysResets" and
// "StrViewSilenceIntervalAfterSysResets"; "CBoxSilenceBetweenSongs",
// "TxtCtrlSilenceIntervalBetweenSongs", "StrViewSilenceIntervalBetweenSongs"; box
// "BoxAutoSort" holding "RButtonAutoSortNone", "RButtonAutoSortUp", "RButtonAutoSortDown";
// "MFieldLanguage" (items carry their file name as Qt::UserRole data); "ButtonOK",
// "ButtonCancel". A text field's label is named as the field followed by "Label".
//
// To the target (the application): 'sssr' with string "StatBarString" on OK, 'plnc' when
// the language file was changed by the menu or put back by Cancel, 'lnfd' with the ref
// "refs" when a language file is dropped on the window. The window takes '_lgc' (relabel),
// 'lnfd' (the application has made the dropped file the language) and 'nlnc' (the
// language folder changed).

#include <QDialog>
#include <QPointer>
#include <QWidget>
#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "app/dialogs/lang_files.h"
#include "app/dialogs/synth_box.h"
#include "app/language_messages.h"
#include "player/pref.h"
#include "player/pref_messages.h"
#include "playlist/app_messages.h"
#include "veldan/core/handler.h"

class QButtonGroup;
class QCheckBox;
class QComboBox;
class QGroupBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QRadioButton;

namespace veldan {
class TLLT;
class TToolTip;
}  // namespace veldan

class TPrefView : public veldan::TMessageHandler<QWidget> {
  public:
    static constexpr char kRefsField[] = "refs";

    static constexpr int64_t kMinSilenceAfterResetsMs = 0;
    static constexpr int64_t kMaxSilenceAfterResetsMs = 1000;
    static constexpr int64_t kMinSilenceBetweenSongsS = 1;
    static constexpr int64_t kMaxSilenceBetweenSongsS = 5;

    // Bits of "SRCb", in the order of the reset check boxes.
    static constexpr std::array<int32_t, 4> kResetBits = {1, 2, 4, 8};

    // texts and prefs must outlive the view; texts is read again at every relabelling.
    TPrefView(const veldan::TLLT& texts, TPref& prefs, TLanguageFolders languageFolders,
              QWidget* parent = nullptr);
    ~TPrefView() override;

    // 0, or -1 when a control is missing from the layout.
    int InitCheck() const { return fInitStatus; }
    void SetTarget(QObject* target) { fTarget = target; }
    const TPref& Backup() const { return fBackup; }
    const veldan::TToolTip* AfterResetsToolTip() const { return fAfterResetsTip.get(); }
    const veldan::TToolTip* BetweenSongsToolTip() const { return fBetweenSongsTip.get(); }

    void CBoxSendSysResetsChanged();
    void CBoxSRCombiChanged();
    void TxtCtrlSilenceIntervalAfterSysResetsChanged();
    void CBoxSilenceBetweenSongsChanged();
    void TxtCtrlSilenceIntervalBetweenSongsChanged();
    void CBoxPlayMarkedLoopsChanged();
    void TxtCtrlLoopTimesChanged();
    void TxtCtrlLoopFadeChanged();
    void RButtonAutoSortChanged();
    void MFieldLanguageChanged();
    void ButtonOKClicked();
    void ButtonCancelClicked();

    void LanguageChanged();
    void NodeLanguageChanged();
    void LanguageFileDropped();
    void ReloadLanguageFiles();
    void UpdateCompos();
    void UpdateSRComposEnabled();
    void UpdateSilenceIntervalBetweenSongsComposEnabled();
    void UpdateLoopComposEnabled();

    void NotifyPrefChange(const veldan::TMessage& message);
    void NotifyPrefChange(uint32_t code);

  private:
    void BuildLayout();
    QLayout* BuildLoopRow();
    bool FindControls();
    void Connect();
    void NotifyPrefDiffe(const TPref& edited, const TPref& restored);
    void SetRangeTip(veldan::TToolTip* tip, const char* textKey, int64_t min, int64_t max);
    void MarkLanguage();

    const veldan::TLLT& fTexts;
    TPref& fPrefs;
    TPref fBackup;
    TLanguageFolders fLanguageFolders;
    QPointer<QObject> fTarget;
    int fInitStatus = 0;
    // Set while the controls are being set from the preferences, so that their change
    // signals don't write half-updated states back.
    bool fUpdating = false;

    QCheckBox* fSendSysResets = nullptr;
    std::array<QCheckBox*, 4> fResetBoxes{};
    QLabel* fAfterResetsLabel = nullptr;
    QLineEdit* fAfterResets = nullptr;
    QLabel* fAfterResetsUnit = nullptr;
    QCheckBox* fBetweenSongsBox = nullptr;
    QLineEdit* fBetweenSongs = nullptr;
    QLabel* fBetweenSongsUnit = nullptr;
    QCheckBox* fChaseOnSeek = nullptr;
    QCheckBox* fLoopsBox = nullptr;
    QLineEdit* fLoopTimes = nullptr;
    QLabel* fLoopTimesUnit = nullptr;
    QLineEdit* fLoopFade = nullptr;
    QLabel* fLoopFadeUnit = nullptr;
    TSynthBox* fSynthBox = nullptr;
    QGroupBox* fAutoSortBox = nullptr;
    std::array<QRadioButton*, 3> fAutoSort{};
    QButtonGroup* fAutoSortGroup = nullptr;
    QLabel* fLanguageLabel = nullptr;
    QComboBox* fLanguage = nullptr;
    QPushButton* fOK = nullptr;
    QPushButton* fCancel = nullptr;
    std::unique_ptr<veldan::TToolTip> fAfterResetsTip;
    std::unique_ptr<veldan::TToolTip> fBetweenSongsTip;
};

class TPrefWin : public veldan::TMessageHandler<QDialog> {
  public:
    TPrefWin(veldan::TLLT& texts, TPref& prefs, TLanguageFolders languageFolders,
             QWidget* parent = nullptr);

    int InitCheck() const { return fView->InitCheck(); }
    void SetTarget(QObject* target) { fView->SetTarget(target); }
    void SetWinTitle();
    TPrefView* View() const { return fView; }

    void MessageReceived(veldan::TMessage* message) override;

    // The close box and Escape act as Cancel.
    void reject() override;

  protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

  private:
    const veldan::TLLT& fTexts;
    TPrefView* fView;
};
