// The channel panel: its buttons silence channels in the filter of their port, solo wins
// over mute, and the meters follow the note tables.

#include "player/channel_panel.h"

#include <gtest/gtest.h>

#include <QToolButton>

#include "engine/note_on_manager.h"
#include "engine/smf_producer.h"
#include "tests/support/widget_app.h"
#include "veldan/core/llt.h"

using quill::TChannelPanel;

namespace {

class ChannelPanel : public TWidgetTest {
  protected:
    QToolButton* Button(const char* name) {
        auto* button = fPanel.findChild<QToolButton*>(name);
        EXPECT_NE(button, nullptr) << name;
        return button;
    }
    uint16_t Muted(int port) { return fChain.Filter(port).MutedChannels(); }

    veldan::TLLT fTexts;
    TSMFProducer fProducer;
    TOutputChain fChain{fProducer};
    TChannelPanel fPanel{fTexts, fChain};
};

TEST_F(ChannelPanel, MuteAndSoloSetTheFiltersOfTheirPortAndSoloWins) {
    EXPECT_EQ(TChannelPanel::SilencedChannels(0x0004, 0), 0x0004);
    EXPECT_EQ(TChannelPanel::SilencedChannels(0x0004, 0x0010), 0xFFEF);

    Button("MuteA3")->click();
    EXPECT_EQ(Muted(0), 0x0004);
    EXPECT_EQ(Muted(1), 0);
    Button("SoloA5")->click();
    EXPECT_EQ(Muted(0), 0xFFEF) << "only channel 5 of port A plays";
    Button("SoloA3")->click();
    EXPECT_EQ(Muted(0), 0xFFEB) << "a muted channel that is soloed plays";
    Button("SoloA5")->click();
    Button("SoloA3")->click();
    EXPECT_EQ(Muted(0), 0x0004) << "without solos the mutes hold again";
    Button("MuteB16")->click();
    EXPECT_EQ(Muted(1), 0x8000);
}

TEST_F(ChannelPanel, MetersShowTheSoundingNotesAndFallAStepARefresh) {
    const TMidiLocalProducer& lane = *fProducer.Producer(0);
    for (uint8_t note : {60, 64, 67}) lane.SprayNoteOn(2, note, 100, 0);
    fChain.NoteOnManager(0).WaitIdle(2000000);
    fPanel.RefreshMeters();
    EXPECT_EQ(fPanel.MeterLevel(0, 2), 3);
    EXPECT_EQ(fPanel.MeterLevel(0, 3), 0);
    EXPECT_EQ(fPanel.MeterLevel(1, 2), 0);
    fChain.QuickAllNotesOff();
    fPanel.RefreshMeters();
    EXPECT_EQ(fPanel.MeterLevel(0, 2), 2) << "short notes stay visible a moment";
    fPanel.RefreshMeters();
    fPanel.RefreshMeters();
    EXPECT_EQ(fPanel.MeterLevel(0, 2), 0);
}

}  // namespace
