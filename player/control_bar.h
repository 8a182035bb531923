#pragma once
// TControlBar ("ControlBar"): the transport buttons, the song title, the port and reset
// indicators, the volume, key, tempo and position sliders with their read-outs, and the
// status bar. It only shows state and posts the codes below to its target; the player
// controller decides what they do and tells the bar what to show.
//
// Child names: "ToolBarTransport" with "ButtonPlay", "ButtonPause", "ButtonStop",
// "ButtonPrev", "ButtonNext"; "StrViewTitle" with "StrViewTime" at its right; "StrViewPort" holding
// "StrViewPortA" and "StrViewPortB"; "StrViewSysGM", "StrViewSysGS", "StrViewSys88",
// "StrViewSysXG"; "StrViewVolume", "StrViewKey", "StrViewTempo", "StrViewPos"; "SliderVolume",
// "SliderKey", "SliderTempo", "SliderPos"; "StatBar".

#include <QLabel>
#include <QWidget>
#include <array>
#include <cstdint>
#include <string>

#include "engine/marnel_state.h"
#include "player/compact_slider.h"
#include "player/control_messages.h"
#include "player/lcd_indicator.h"

namespace veldan {
class TLLT;
class TToolBar;
}  // namespace veldan

namespace quill {

// The player state as the controller keeps it; the preparing states are shown as playing.
using enum ::TMarnelState;

class TControlBar : public QWidget {
  public:
    enum TSlider : int {
        kVolume = 0,
        kKey,
        kTempo,
        kPos,
        kSliderCount,
    };
    // Reset indicators by the bit of the reset: 1 GM, 2 GS, 4 88, 8 XG.
    static constexpr int32_t kResetBits[] = {1, 2, 4, 8};

    explicit TControlBar(const veldan::TLLT& texts, QWidget* parent = nullptr);

    void SetTarget(QObject* target);

    // Relabels tool tips and read-outs from the table.
    void ApplyLanguage(const veldan::TLLT& texts);

    void SetPlayState(TMarnelState state);
    // Sets a slider from code (no message) and its read-out.
    void SetSliderValue(TSlider slider, int32_t value);
    int32_t SliderValue(TSlider slider) const;
    int32_t SliderMinimum(TSlider slider) const;
    int32_t SliderMaximum(TSlider slider) const;
    // While the user holds the thumb.
    bool IsSliderDragged(TSlider slider) const;

    // The song title strip; empty for none.
    void SetTitle(const std::string& title);
    // The song's elapsed and total time at the right of the title strip, "1:23 / 3:45";
    // a totalUs below 0 (no song) shows none.
    void SetTime(int64_t elapsedUs, int64_t totalUs);
    // The status bar shows the text after one blank.
    void SetStatusText(const std::string& text);

    // port 0 is A, 1 is B.
    void SetPortLit(int port, bool lit);
    // resetBit 1 GM, 2 GS, 4 88, 8 XG; other values are ignored.
    void SetResetLit(int32_t resetBit, TLCDIndicator::TLit lit);
    void TurnOffAllSysReset();

    veldan::TToolBar* TransportBar() const { return fTransport; }
    // The list button's state, settable from code without a message.
    bool IsListShown() const;
    void SetListShown(bool shown);

  private:
    QWidget* MakeTransport();
    QWidget* MakeTitleDisplay();
    QWidget* MakeIndicators();
    QWidget* MakeListButton();
    QWidget* MakeSliders();
    void ChainFocus();
    void LabelIndicators(const veldan::TLLT& texts);
    void UpdateReadout(int slider);
    void FitReadout(int slider);

    veldan::TToolBar* fTransport = nullptr;
    veldan::TToolBar* fListBar = nullptr;
    TLCDIndicator* fTitle = nullptr;
    TLCDIndicator* fTime = nullptr;
    std::array<TLCDIndicator*, 2> fPorts{};
    std::array<TLCDIndicator*, 4> fResets{};
    std::array<TCompactSlider*, kSliderCount> fSliders{};
    std::array<QLabel*, kSliderCount> fReadouts{};
    std::array<std::string, kSliderCount> fPrefixes;
    QLabel* fStatusBar = nullptr;
};

}  // namespace quill
