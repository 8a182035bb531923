#include "player/control_bar.h"

#include <gtest/gtest.h>

#include "tests/player/language_fixture.h"
#include "tests/support/message_recorder.h"
#include "tests/support/widget_app.h"
#include "veldan/widgets/tool_bar.h"
#include "veldan/widgets/tool_button.h"

using quill::TCompactSlider;
using quill::TControlBar;
using quill::TLCDIndicator;
using TLit = quill::TLCDIndicator::TLit;

namespace {

class ControlBar : public TWidgetTest {
  protected:
    ControlBar() : texts(builtin_language()), bar(texts) {
        bar.SetTarget(&recorder);
        bar.resize(bar.sizeHint().expandedTo(QSize(640, 0)));
        bar.show();
    }
    template <class T>
    T* Child(const char* name) {
        T* child = bar.findChild<T*>(name);
        EXPECT_NE(child, nullptr) << name;
        return child;
    }
    QString Text(const char* name) { return Child<QLabel>(name)->text(); }
    TCompactSlider* Slider(const char* name) { return Child<TCompactSlider>(name); }
    veldan::TToolButton* Button(const char* name) { return Child<veldan::TToolButton>(name); }
    void Click(const char* name) { QTest::mouseClick(Button(name), Qt::LeftButton); }
    uint32_t LastCode() const { return recorder.received.back().what; }

    veldan::TLLT texts;
    TControlBar bar;
    TMessageRecorder recorder;
};

TEST_F(ControlBar, EveryChildKeepsItsName) {
    EXPECT_EQ(bar.objectName(), "ControlBar");
    for (const char* name :
         {"StrViewTitle", "StrViewTime",  "StrViewPort",  "StrViewPortA",     "StrViewPortB",
          "StrViewSysGM", "StrViewSysGS", "StrViewSys88", "StrViewSysXG",     "StrViewVolume",
          "StrViewKey",   "StrViewTempo", "StrViewPos",   "SliderVolume",     "SliderKey",
          "SliderTempo",  "SliderPos",    "StatBar",      "ToolBarTransport", "ButtonPlay",
          "ButtonPause",  "ButtonStop",   "ButtonPrev",   "ButtonNext"}) {
        EXPECT_NE(bar.findChild<QWidget*>(name), nullptr) << name;
    }
}

TEST_F(ControlBar, SlidersHaveTheirRangesAndStartValues) {
    struct Expected {
        const char* name;
        int min, max, value;
    };
    for (const Expected& e :
         {Expected{"SliderVolume", 0, 200, 100}, Expected{"SliderKey", -12, 12, 0},
          Expected{"SliderTempo", 30, 300, 100}, Expected{"SliderPos", 0, 100, 0}}) {
        TCompactSlider* slider = Slider(e.name);
        EXPECT_EQ(slider->minimum(), e.min) << e.name;
        EXPECT_EQ(slider->maximum(), e.max) << e.name;
        EXPECT_EQ(slider->value(), e.value) << e.name;
    }
}

TEST_F(ControlBar, TheTempoSliderCannotReachZero) {
    bar.SetSliderValue(TControlBar::kTempo, 0);
    EXPECT_EQ(bar.SliderValue(TControlBar::kTempo), 30);
    EXPECT_EQ(Text("StrViewTempo"), "Tem:30%");
}

TEST_F(ControlBar, ReadOutsShowTheValues) {
    EXPECT_EQ(Text("StrViewVolume"), "Vol:100%");
    EXPECT_EQ(Text("StrViewKey"), "Key:0");
    EXPECT_EQ(Text("StrViewTempo"), "Tem:100%");
    EXPECT_EQ(Text("StrViewPos"), "Pos:0%");
    bar.SetSliderValue(TControlBar::kKey, 3);
    EXPECT_EQ(Text("StrViewKey"), "Key:+3");
    bar.SetSliderValue(TControlBar::kKey, -5);
    EXPECT_EQ(Text("StrViewKey"), "Key:-5");
    bar.SetSliderValue(TControlBar::kPos, 42);
    EXPECT_EQ(Text("StrViewPos"), "Pos:42%");
    EXPECT_TRUE(recorder.Deliver().empty()) << "values set from code post nothing";
}

TEST_F(ControlBar, RightClickOnVolumeAfterDraggingRestoresOneHundred) {
    bar.SetSliderValue(TControlBar::kVolume, 150);
    QTest::mouseClick(Slider("SliderVolume"), Qt::RightButton, {}, QPoint(5, 5));
    EXPECT_EQ(bar.SliderValue(TControlBar::kVolume), 100);
    EXPECT_EQ(Text("StrViewVolume"), "Vol:100%");
    ASSERT_EQ(recorder.Deliver().size(), 1u);
    EXPECT_EQ(LastCode(), quill::kMsgVolumeChanged);
    EXPECT_EQ(recorder.LastValue(), 100);
}

TEST_F(ControlBar, RightClickRestoresKeyAndTempoButNotPosition) {
    bar.SetSliderValue(TControlBar::kKey, 7);
    bar.SetSliderValue(TControlBar::kTempo, 250);
    bar.SetSliderValue(TControlBar::kPos, 60);
    for (const char* name : {"SliderKey", "SliderTempo", "SliderPos"}) {
        QTest::mouseClick(Slider(name), Qt::RightButton, {}, QPoint(5, 5));
    }
    EXPECT_EQ(bar.SliderValue(TControlBar::kKey), 0);
    EXPECT_EQ(bar.SliderValue(TControlBar::kTempo), 100);
    EXPECT_EQ(bar.SliderValue(TControlBar::kPos), 60);
    const auto& received = recorder.Deliver();
    ASSERT_EQ(received.size(), 2u);
    EXPECT_EQ(received[0].what, quill::kMsgKeyChanged);
    EXPECT_EQ(received[1].what, quill::kMsgTempoChanged);
}

TEST_F(ControlBar, KeysOnTheSlidersPostTheirChangedCodes) {
    const std::pair<const char*, uint32_t> sliders[] = {{"SliderKey", quill::kMsgKeyChanged},
                                                        {"SliderTempo", quill::kMsgTempoChanged},
                                                        {"SliderPos", quill::kMsgPosChanged}};
    for (const auto& [name, code] : sliders) {
        Slider(name)->setFocus();
        QTest::keyClick(Slider(name), Qt::Key_Right);
        ASSERT_FALSE(recorder.Deliver().empty()) << name;
        EXPECT_EQ(LastCode(), code) << name;
    }
}

TEST_F(ControlBar, TransportButtonsPostTheirCodes) {
    const std::pair<const char*, uint32_t> buttons[] = {{"ButtonPlay", quill::kMsgPlay},
                                                        {"ButtonPause", quill::kMsgPause},
                                                        {"ButtonPrev", quill::kMsgPrev},
                                                        {"ButtonNext", quill::kMsgNext},
                                                        {"ButtonStop", quill::kMsgStop}};
    for (const auto& [name, code] : buttons) {
        Click(name);
        ASSERT_FALSE(recorder.Deliver().empty()) << name;
        EXPECT_EQ(LastCode(), code) << name;
    }
}

TEST_F(ControlBar, PlayPauseAndStopShowTheStateAsOneRadioGroup) {
    EXPECT_EQ(Button("ButtonStop")->Value(), 1);
    bar.SetPlayState(quill::kStatePlaying);
    EXPECT_EQ(Button("ButtonPlay")->Value(), 1);
    EXPECT_EQ(Button("ButtonStop")->Value(), 0);
    bar.SetPlayState(quill::kStatePaused);
    EXPECT_EQ(Button("ButtonPause")->Value(), 1);
    EXPECT_EQ(Button("ButtonPlay")->Value(), 0);
    bar.SetPlayState(kStateAfterGS);
    EXPECT_EQ(Button("ButtonPlay")->Value(), 1) << "preparing shows as playing";
    EXPECT_EQ(Button("ButtonNext")->Behavior(), veldan::TToolButton::kPushButton);
}

TEST_F(ControlBar, TransportButtonsCarryTheLanguagesTips) {
    EXPECT_EQ(Button("ButtonPlay")->Tip(), "Play");
    EXPECT_EQ(Button("ButtonNext")->Tip(), "Next song");
    bar.ApplyLanguage(file_language("Japanese.llt"));
    EXPECT_EQ(Button("ButtonStop")->Tip(), "停止");
    EXPECT_EQ(Text("StrViewVolume"), QString::fromUtf8("音量:100%"));
}

TEST_F(ControlBar, IndicatorsUseTheLiquidCrystalColours) {
    auto* gm = Child<TLCDIndicator>("StrViewSysGM");
    EXPECT_EQ(gm->palette().color(QPalette::WindowText), QColor(203, 255, 0));
    EXPECT_EQ(gm->palette().color(QPalette::Window), QColor(150, 200, 0));
    bar.SetResetLit(1, TLit::kHalfLit);
    EXPECT_EQ(gm->palette().color(QPalette::Window), QColor(100, 133, 0));
    bar.SetResetLit(1, TLit::kLit);
    EXPECT_EQ(gm->palette().color(QPalette::Window), QColor(0, 0, 0));
    EXPECT_EQ(gm->palette().color(QPalette::WindowText), QColor(203, 255, 0));
    EXPECT_EQ(gm->grab().toImage().pixelColor(1, 1), QColor(0, 0, 0));
}

TEST_F(ControlBar, ResetIndicatorsFollowTheirBitsAndAllTurnOff) {
    bar.SetResetLit(8, TLit::kLit);
    bar.SetResetLit(4, TLit::kHalfLit);
    bar.SetResetLit(3, TLit::kLit);
    EXPECT_EQ(Child<TLCDIndicator>("StrViewSysXG")->Lit(), TLit::kLit);
    EXPECT_EQ(Child<TLCDIndicator>("StrViewSys88")->Lit(), TLit::kHalfLit);
    EXPECT_EQ(Child<TLCDIndicator>("StrViewSysGM")->Lit(), TLit::kUnlit);
    EXPECT_EQ(Child<TLCDIndicator>("StrViewSysGS")->Lit(), TLit::kUnlit);
    bar.TurnOffAllSysReset();
    EXPECT_EQ(Child<TLCDIndicator>("StrViewSysXG")->Lit(), TLit::kUnlit);
    EXPECT_EQ(Child<TLCDIndicator>("StrViewSys88")->Lit(), TLit::kUnlit);
    EXPECT_EQ(Child<TLCDIndicator>("StrViewSys88")->grab().toImage().pixelColor(1, 1),
              QColor(150, 200, 0));
}

TEST_F(ControlBar, PortIndicatorsLightWhenConnected) {
    bar.SetPortLit(1, true);
    EXPECT_EQ(Child<TLCDIndicator>("StrViewPortB")->Lit(), TLit::kLit);
    EXPECT_EQ(Child<TLCDIndicator>("StrViewPortA")->Lit(), TLit::kUnlit);
    bar.SetPortLit(1, false);
    bar.SetPortLit(2, true);
    EXPECT_EQ(Child<TLCDIndicator>("StrViewPortB")->Lit(), TLit::kUnlit);
}

TEST_F(ControlBar, StatusTextHasOneLeadingBlankAndTitleIsShownAsGiven) {
    bar.SetStatusText("File not found: a.mid");
    EXPECT_EQ(Text("StatBar"), " File not found: a.mid");
    bar.SetTitle("Nocturne");
    EXPECT_EQ(Text("StrViewTitle"), "Nocturne");
    bar.SetTitle("");
    EXPECT_EQ(Text("StrViewTitle"), "");
}

// The song's time sits in the title display, at its right, and never covers the title.
TEST_F(ControlBar, ElapsedAndTotalTimeShowRightAlignedInTheTitleDisplay) {
    bar.SetTitle("Nocturne");
    EXPECT_EQ(Text("StrViewTime"), "") << "no song, no time";
    bar.SetTime(83000000, 225000000);
    QCoreApplication::processEvents();
    EXPECT_EQ(Text("StrViewTime"), "1:23 / 3:45");
    QLabel* time = Child<QLabel>("StrViewTime");
    QLabel* title = Child<QLabel>("StrViewTitle");
    EXPECT_TRUE(time->alignment() & Qt::AlignRight);
    // One display: the time follows the title on one black strip.
    const QRect timeBox(time->mapTo(&bar, QPoint(0, 0)), time->size());
    const QRect titleBox(title->mapTo(&bar, QPoint(0, 0)), title->size());
    EXPECT_GT(timeBox.left(), titleBox.right());
    EXPECT_EQ(timeBox.top(), titleBox.top());
    const QWidget* strip = time->parentWidget();
    EXPECT_EQ(strip, title->parentWidget());
    EXPECT_TRUE(strip->autoFillBackground());
    EXPECT_EQ(strip->palette().color(QPalette::Window), TLCDIndicator::kLitBackground)
        << "the gap between them is black too";
    EXPECT_EQ(time->geometry().right(), strip->rect().right()) << "at the strip's right end";
    EXPECT_EQ(time->palette().color(QPalette::Window), TLCDIndicator::kLitBackground);
    EXPECT_EQ(time->palette().color(QPalette::WindowText), TLCDIndicator::kTextColor);
    EXPECT_GE(time->contentsRect().width() - 2 * time->margin(),
              time->fontMetrics().horizontalAdvance(time->text()))
        << "the time is never cut";
    bar.SetTime(0, -1);
    EXPECT_EQ(Text("StrViewTime"), "");
}

}  // namespace
