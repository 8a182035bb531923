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
