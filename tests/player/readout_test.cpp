#include "player/readout.h"

#include <gtest/gtest.h>

using quill::readout_text;
using quill::TReadoutKind;

TEST(Readout, KeyShowsPlusAboveZeroAndItsOwnMinusBelow) {
    EXPECT_EQ(readout_text("Key:", 3, TReadoutKind::kSigned), "Key:+3");
    EXPECT_EQ(readout_text("Key:", 0, TReadoutKind::kSigned), "Key:0");
    EXPECT_EQ(readout_text("Key:", -5, TReadoutKind::kSigned), "Key:-5");
}

TEST(Readout, PercentagesCarryAPercentSign) {
    EXPECT_EQ(readout_text("Vol:", 100, TReadoutKind::kPercent), "Vol:100%");
    EXPECT_EQ(readout_text("Tem:", 30, TReadoutKind::kPercent), "Tem:30%");
    EXPECT_EQ(readout_text("", 0, TReadoutKind::kPercent), "0%");
}

TEST(Readout, ElapsedAndTotalTimeShowMinutesAndSeconds) {
    using quill::elapsed_total_text;
    EXPECT_EQ(elapsed_total_text(83000000, 225000000), "1:23 / 3:45");
    EXPECT_EQ(elapsed_total_text(0, 59999999), "0:00 / 0:59") << "seconds are not rounded up";
    EXPECT_EQ(elapsed_total_text(605000000, 1200000000), "10:05 / 20:00");
}

TEST(Readout, ElapsedAndTotalTimeShowHoursWhenTheSongLastsAnHour) {
    using quill::elapsed_total_text;
    EXPECT_EQ(elapsed_total_text(65000000, 3723000000), "0:01:05 / 1:02:03");
    EXPECT_EQ(elapsed_total_text(3599000000, 3599000000), "59:59 / 59:59");
}

TEST(Readout, NoSongShowsNoTime) {
    EXPECT_EQ(quill::elapsed_total_text(0, -1), "");
    EXPECT_EQ(quill::elapsed_total_text(-5, 10000000), "0:00 / 0:10") << "never below zero";
}
