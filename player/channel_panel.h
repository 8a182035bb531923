#pragma once
// TChannelPanel: the sixteen channels of each port, each with a meter of the notes that
// sound on it and mute and solo buttons. Solo wins: while a channel of a port is soloed,
// only the soloed channels of that port play. Muting acts in the port's filter (note-ons
// dropped, what sounds released at once, everything else passed).
//
// The meters read the note tables' counts on a display-rate timer that runs only while the
// panel is shown; the real-time threads' locks are never touched.

#include <QWidget>
#include <array>
#include <cstdint>

#include "engine/output_chain.h"

class QToolButton;

namespace veldan {
class TLLT;
}

namespace quill {

class TChannelMeter;

class TChannelPanel : public QWidget {
  public:
    static constexpr int kChannels = 16;
    static constexpr int kRefreshMs = 33;

    // chain must outlive the panel.
    TChannelPanel(const veldan::TLLT& texts, TOutputChain& chain, QWidget* parent = nullptr);

    // Bit 0 is channel 1.
    uint16_t Muted(int port) const;
    uint16_t Soloed(int port) const;
    // The channels that must not play for these buttons.
    static uint16_t SilencedChannels(uint16_t muted, uint16_t soloed);
    // What a meter shows now, in sounding notes.
    int32_t MeterLevel(int port, int channel) const;
    // Reads the note tables once, as the timer does.
    void RefreshMeters();
    void ApplyLanguage(const veldan::TLLT& texts);

  protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void timerEvent(QTimerEvent* event) override;

  private:
    struct TStrip {
        TChannelMeter* meter = nullptr;
        QToolButton* mute = nullptr;
        QToolButton* solo = nullptr;
    };
    QToolButton* MakeToggle(const QString& name, int port);
    uint16_t Mask(int port, QToolButton* TStrip::*button) const;
    void Apply(int port);

    TOutputChain& fChain;
    std::array<std::array<TStrip, kChannels>, TOutputChain::kPorts> fStrips;
    int fTimer = 0;
};

}  // namespace quill
